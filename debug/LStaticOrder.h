// The order in which the process's static objects are made, and, the other way round, destroyed at its end: the event
// sink's owner, the server's owner, the diagnostics. The language leaves the order open between files, so it is fixed
// here. The server must go before the sink, to which it delivers; both must exist before a signal can ask for the end.
// Statics without a place in this list are made after and destroyed before all of these.
#pragma once

#define LSTATIC_ORDER_SINK 1100
#define LSTATIC_ORDER_SERVER 1200
#define LSTATIC_ORDER_DIAGNOSTICS 1300
