#include "xpc/LXPCClient.h"

#include <cstring>
#include <memory>
#include <utility>

namespace {

char Lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Whatever the locale, only ASCII letters lose their case.
bool EqualNames(const char* left, const char* right) {
    while (*left != '\0' && Lowered(*left) == Lowered(*right)) ++left, ++right;
    return Lowered(*left) == Lowered(*right);
}

bool Matches(const LXPCConnection& listed, const char* name, unsigned long id) {
    const auto& client = static_cast<const LXPCConnectionClient&>(listed);
    return client.id == id && EqualNames(client.name, name);
}

}  // namespace

LXPCClient::~LXPCClient() {
    CloseConnections();
}

LXPCConnection* LXPCClient::Find(const char* name, unsigned long id) {
    if (name == nullptr) return nullptr;
    for (LXPCConnection& listed : connections) {
        if (Matches(listed, name, id)) return &listed;
    }
    return nullptr;
}

bool LXPCClient::Connect(const char* name, unsigned long id, bool machService) {
    if (name == nullptr || std::strlen(name) >= kLXPCNameSize) return false;
    auto opened = std::make_unique<LXPCConnectionClient>();
    const xpc_connection_t handle =
        machService ? xpc_connection_create_mach_service(name, nullptr, 0) : xpc_connection_create(name, nullptr);
    if (handle == nullptr) return false;
    opened->connection = handle;
    opened->retainCount = 1;  // the reference that creation gave
    LCopyXPCName(opened->name, name);
    opened->id = id;
    OpenConnection(std::move(opened), false);
    return true;
}

void LXPCClient::Disconnect(const char* name, unsigned long id) {
    if (name == nullptr) return;
    CloseFirst([name, id](const LXPCConnection& listed) { return Matches(listed, name, id); });
}

void LXPCClient::Suspend(const char* name, unsigned long id) {
    const std::lock_guard lock(connectionsMutex_);
    if (LXPCConnection* const found = Find(name, id)) found->Suspend();
}

void LXPCClient::Resume(const char* name, unsigned long id) {
    const std::lock_guard lock(connectionsMutex_);
    if (LXPCConnection* const found = Find(name, id)) found->Resume();
}

/// A reference of the sender's own, so that a Disconnect meanwhile does no harm; null when there is no such connection.
LXPCHeldConnection LXPCClient::Hold(const char* name, unsigned long id) {
    const std::lock_guard lock(connectionsMutex_);
    const LXPCConnection* const found = Find(name, id);
    if (found == nullptr) return nullptr;
    xpc_retain(found->connection);
    return LXPCHeldConnection(found->connection);
}

void LXPCClient::SendMessage(const char* name, unsigned long id, const LXPCData* items, unsigned long count,
                             bool wantReply) {
    const LXPCHeldConnection held = Hold(name, id);
    if (held == nullptr) return;
    LList<LXPCDataListable> message;
    for (unsigned long i = 0; i < count; ++i) {
        message.Insert(new LXPCDataListable(items[i].name, items[i].type, items[i].value, items[i].size));
    }
    LXPCBase::SendMessage(LXPCAddress(held.get()), message, wantReply);
}
