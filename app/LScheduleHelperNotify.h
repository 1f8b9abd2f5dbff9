// The helper's event sink and schedule manager in one: it receives what the transport reports, acts on requests,
// answers them, and has the main application launched when a schedule fires.
#pragma once

#include "scheduler/LGCDScheduler.h"
#include "xpc/LXPCBase.h"

class LScheduleHelper;
class LXPCMachServer;
struct LScheduleRequest;

/// Events of different connections, and firings, come on different threads side by side. What one message asks for is
/// kept on the stack; the schedules are guarded by the scheduler.
class LScheduleHelperNotify : public LXPCServerEventNotify, public LGCDScheduler {
  public:
    LScheduleHelperNotify() = default;
    /// Ends the firings before the scheduler goes.
    ~LScheduleHelperNotify() override;

    /// Every error but an interruption has the server drop the connection.
    void EvConnectionError(long connection, LXPCErrorType error) override;
    /// Performs one request. A message is answered from within this call or not at all.
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override;
    void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) override;
    void EvMessageSent(long connection) override;
    /// A refused peer ends the helper.
    void EvInvalidConnectionAttempt() override;
    /// Has the application at `appPath` launched. On the firing timer's thread; no lock is held.
    void EvScheduleStart(const char* bundleId, const char* appPath, const char* skedName) override;

    /// The application: the way to the server, to the end, and to launching. Not owned; set right after construction,
    /// before any event can arrive.
    LScheduleHelper* delegate = nullptr;

  private:
    void Perform(const LScheduleRequest& request, long connection, long message);
    void Reply(const char* key, bool value, long connection, long message);
};
