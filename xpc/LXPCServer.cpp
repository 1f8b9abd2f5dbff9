#include "xpc/LXPCServer.h"

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace {

/// Owns the listeners of this process. They live as long as it does, so nothing ever takes one out, and no static
/// destructor touches them while their events may still come.
xpc_connection_t KeepForGood(LXPCHeldConnection listener) {
    static std::mutex mutex;
    static auto* const listeners = new std::vector<LXPCHeldConnection>;
    const std::lock_guard lock(mutex);
    listeners->push_back(std::move(listener));
    return listeners->back().get();
}

}  // namespace

std::atomic<LXPCServerBase*> LXPCServerBase::pServer{nullptr};

LXPCServerBase::LXPCServerBase(LXPCServerEventNotify* sink, bool checkPeers)
    : LXPCBase(sink), serverNotify(sink), checkPeerProcess(checkPeers) {
    pServer = this;
}

LXPCServerBase::~LXPCServerBase() {
    Close();
}

void LXPCServerBase::Close() {
    pServer = nullptr;
    CloseConnections();
}

void LXPCServerBase::NewConnectionHandler(_xpc_connection_s* connection) {
    if (connection == nullptr) return;
    constexpr unsigned kLargestPid = 99999;
    if (checkPeerProcess && static_cast<unsigned>(xpc_connection_get_pid(connection)) - 1 >= kLargestPid) {
        if (serverNotify != nullptr) serverNotify->EvInvalidConnectionAttempt();
        return;
    }
    OpenConnection(std::make_unique<LXPCConnection>(connection), true);
}

void LXPCServerBase::Disconnect(long connection) {
    CloseFirst([connection](const LXPCConnection& listed) { return LXPCAddress(listed.connection) == connection; });
}

void LXPCServerBase::HandleListenerEvent(xpc_object_t event) {
    if (xpc_get_type(event) == XPC_TYPE_CONNECTION) NewConnectionHandler(static_cast<xpc_connection_t>(event));
}

bool LXPCMachServer::Listen(const char* name) {
    LXPCHeldConnection listener(
        xpc_connection_create_mach_service(name, dispatch_get_main_queue(), XPC_CONNECTION_MACH_SERVICE_LISTENER));
    if (listener == nullptr) return false;
    xpc_connection_set_event_handler(listener.get(), [this, link = link_](xpc_object_t event) {
        const PlatformGate::Pass pass(link->gate);
        if (pass) HandleListenerEvent(event);
    });
    // Where memory runs out before this, the name is free again: callers are better refused than never served.
    xpc_connection_resume(KeepForGood(std::move(listener)));
    return true;
}

bool LXPCMachServer::Start(const char* name) {
    if (!Listen(name)) return false;
    dispatch_main();
}

void LXPCServer::StaticNewConnectionHandler(_xpc_connection_s* connection) {
    if (LXPCServerBase* const server = pServer) server->NewConnectionHandler(connection);
}
