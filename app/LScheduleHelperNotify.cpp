#include "app/LScheduleHelperNotify.h"

#include "app/LRequestKeys.h"
#include "app/LScheduleHelper.h"
#include "app/LScheduleRequest.h"
#include "datetime/LDateTime.h"

LScheduleHelperNotify::~LScheduleHelperNotify() {
    StopFirings();  // while this object's firing event is still its own
}

void LScheduleHelperNotify::EvConnectionError(long connection, LXPCErrorType error) {
    if (error == LXPCErrorConnectionInterrupted) return;
    if (LXPCMachServer* const server = delegate->getXPCServer()) server->Disconnect(connection);
}

void LScheduleHelperNotify::EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) {
    LScheduleRequest request;
    switch (request.Collect(items)) {
        case LScheduleRequest::End::Shutdown:
            delegate->shutdownHelper();
            return;
        case LScheduleRequest::End::Test:
            Reply(kReplyTestConnection, true, connection, message);
            break;
        case LScheduleRequest::End::AllRead:
            break;
    }
    Perform(request, connection, message);
}

void LScheduleHelperNotify::Perform(const LScheduleRequest& request, long connection, long message) {
    switch (request.ChosenAction()) {
        case LScheduleRequest::Action::Add:
            Add(request.bundleId, request.bundlePath, request.name, LDateTime(request.EarlyStart()), request.daily,
                request.weekly, LWeekDay(static_cast<unsigned char>(request.weekdays & 127U)));
            break;
        case LScheduleRequest::Action::Delete:
            Delete(request.bundleId, request.bundlePath, request.name);
            break;
        case LScheduleRequest::Action::DeleteAll:
            DeleteAll(request.bundleId, request.bundlePath);
            break;
        case LScheduleRequest::Action::Introduce:
            if (request.IsFromMainApp()) Reply(kReplyNewConnection, true, connection, message);
            break;
        case LScheduleRequest::Action::AskShutdown:
            Reply(kReplyShutdownQuestion, !HasSchedules(), connection, message);
            break;
        case LScheduleRequest::Action::None:
            break;
    }
}

void LScheduleHelperNotify::Reply(const char* key, bool value, long connection, long message) {
    LXPCMachServer* const server = delegate->getXPCServer();
    if (server == nullptr) return;
    LList<LXPCDataListable> reply;
    reply.Insert(new LXPCDataListable(key, LXPCDataTypeBool, value ? 1 : 0));
    server->SendReply(connection, message, reply);
}

void LScheduleHelperNotify::EvReplyReceived(long /*connection*/, const LList<LXPCDataListable>& /*items*/) {}

void LScheduleHelperNotify::EvMessageSent(long /*connection*/) {}

void LScheduleHelperNotify::EvInvalidConnectionAttempt() {
    delegate->shutdownHelper();
}

void LScheduleHelperNotify::EvScheduleStart(const char* bundleId, const char* appPath, const char* /*skedName*/) {
    delegate->launchMainApp(bundleId, appPath);
}
