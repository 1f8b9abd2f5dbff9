// Sending changes and making sure of them, and what clear and import need from the user and from files.
#pragma once

#include <string>
#include <vector>

#include "tools/schedulectl/Service.h"

namespace schedulectl {

/// Sends `requests` on one connection, waits until the helper has acted on them, and looks at everything again. Throws
/// Failure: no service, or no answer, in which case nobody knows what became of the requests.
World SendAndLook(const World& world, const std::vector<Request>& requests);

/// The helper answered, and the store shows nothing of `what`.
[[noreturn]] void ThrowNotStored(const std::string& what);

/// Shows what goes and asks on the terminal. Throws Failure when nobody can be asked.
bool AskToClear(const std::string& what, const std::string& list, bool json);

/// Where clear writes its export unless told otherwise: the user's state folder, which is made.
std::string DefaultExportPath(Moment now);

/// The schedules of an export; `file` "-" is standard input. Throws Failure naming what is wrong in it.
std::vector<Schedule> ReadExport(const std::string& file);

}  // namespace schedulectl
