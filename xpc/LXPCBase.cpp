#include "xpc/LXPCBase.h"

#include <unistd.h>

#include <utility>

#include "xpc/LXPCDictionary.h"

namespace {

long Identifier(xpc_connection_t handle) {
    return LXPCAddress(handle);
}

bool IsHandle(xpc_connection_t handle) {
    return handle != nullptr && handle != LXPCConnection::NoConnection();
}

/// Owns one reference to a dictionary; null when there is none.
class OwnedDictionary {
  public:
    explicit OwnedDictionary(xpc_object_t object) : object_(object) {}
    ~OwnedDictionary() {
        if (object_ != nullptr) xpc_release(object_);
    }
    OwnedDictionary(const OwnedDictionary&) = delete;
    OwnedDictionary& operator=(const OwnedDictionary&) = delete;
    [[nodiscard]] xpc_object_t get() const { return object_; }

  private:
    xpc_object_t object_;
};

/// The decoded items of a message. Descriptors among them go to the sink with `take`; when decoding fails halfway, no
/// sink will ever see them and they are closed here.
class DecodedItems {
  public:
    DecodedItems() = default;
    DecodedItems(const DecodedItems&) = delete;
    DecodedItems& operator=(const DecodedItems&) = delete;
    ~DecodedItems() {
        if (taken_) return;
        for (const LXPCDataListable& item : items_) {
            if (item.type == LXPCDataTypeFD && item.value >= 0) close(static_cast<int>(item.value));
        }
    }

    void decode(xpc_object_t dictionary, LList<LXPCDictionaryKeyListable>& keys) {
        GetXPCDictionary(dictionary, keys, items_);
    }
    [[nodiscard]] bool empty() const { return items_.head == nullptr; }
    const LList<LXPCDataListable>& take() {
        taken_ = true;
        return items_;
    }

  private:
    LList<LXPCDataListable> items_;
    bool taken_ = false;
};

/// Runs `work` on the link's endpoint unless that is closing; the endpoint may be gone when `work` returns.
template <typename Work>
void WithEndpoint(LXPCEndpointLink& link, Work work) {
    const PlatformGate::Pass pass(link.gate);
    if (pass) work(link.endpoint);
}

}  // namespace

// ---- LXPCConnection

xpc_connection_t LXPCConnection::NoConnection() {
    return reinterpret_cast<xpc_connection_t>(~static_cast<uintptr_t>(0));
}

LXPCConnection::~LXPCConnection() {
    if (!IsValid()) return;
    Resume();
    Cancel();
    Release();
}

void LXPCConnection::Suspend() {
    if (suspended) return;
    xpc_connection_suspend(connection);
    suspended = true;
}

void LXPCConnection::Resume() {
    if (!suspended) return;
    xpc_connection_resume(connection);
    suspended = false;
}

void LXPCConnection::Cancel() {
    if (IsValid()) xpc_connection_cancel(connection);
}

void LXPCConnection::Retain() {
    xpc_retain(connection);
    ++retainCount;
}

void LXPCConnection::Release() {
    if (retainCount <= 0) return;
    --retainCount;
    xpc_release(connection);
}

// ---- Events

void ErrorHandler(void* event, long connection, LXPCEventNotify* notify) {
    if (notify == nullptr) return;
    LXPCErrorType error = LXPCErrorOther;
    if (event == XPC_ERROR_CONNECTION_INVALID) error = LXPCErrorConnectionInvalid;
    if (event == XPC_ERROR_CONNECTION_INTERRUPTED) error = LXPCErrorConnectionInterrupted;
    if (event == XPC_ERROR_TERMINATION_IMMINENT) error = LXPCErrorTerminationImminent;
    notify->EvConnectionError(connection, error);
}

void LXPCBase::HandleEvent(xpc_object_t event) {
    const xpc_type_t type = xpc_get_type(event);
    const long connection = Identifier(xpc_dictionary_get_remote_connection(event));
    if (type == XPC_TYPE_ERROR) {
        ErrorHandler(event, connection, notify);
    } else if (type == XPC_TYPE_DICTIONARY && notify != nullptr) {
        DecodedItems items;
        items.decode(event, keys);
        if (!items.empty()) notify->EvMessageReceived(connection, LXPCAddress(event), items.take());
    }
}

void LXPCBase::HandleReply(xpc_object_t reply) {
    const xpc_type_t type = xpc_get_type(reply);
    const long connection = Identifier(xpc_dictionary_get_remote_connection(reply));
    if (type == XPC_TYPE_ERROR) {
        ErrorHandler(reply, connection, notify);
    } else if (type == XPC_TYPE_DICTIONARY && notify != nullptr) {
        DecodedItems items;
        items.decode(reply, keys);
        if (!items.empty()) notify->EvReplyReceived(connection, items.take());
    }
}

// ---- LXPCBase

LXPCBase::LXPCBase(LXPCEventNotify* sink) : notify(sink), link_(*this) {}

LXPCBase::~LXPCBase() {
    CloseConnections();  // a derived class has done it already, while it was whole
}

void LXPCBase::AddKey(const char* name, LXPCDataType type) {
    keys.Insert(new LXPCDictionaryKeyListable(name, type));
}

void LXPCBase::AddKey(const LXPCDictionaryKeyListable& key) {
    AddKey(key.name, key.type);
}

void LXPCBase::SendMessage(long connection, const LList<LXPCDataListable>& items, bool wantReply) {
    const auto handle = reinterpret_cast<xpc_connection_t>(connection);
    if (!IsHandle(handle)) return;
    const OwnedDictionary message(xpc_dictionary_create(nullptr, nullptr, 0));
    SetXPCDictionary(message.get(), items);
    if (!wantReply) {
        xpc_connection_send_message(handle, message.get());
        SendBarrier(handle);
        return;
    }
    xpc_connection_send_message_with_reply(
        handle, message.get(), dispatch_get_main_queue(), [link = link_](xpc_object_t reply) {
            WithEndpoint(*link, [reply](LXPCBase& endpoint) { endpoint.HandleReply(reply); });
        });
}

void LXPCBase::SendReply(long connection, long message, const LList<LXPCDataListable>& items) {
    const auto handle = reinterpret_cast<xpc_connection_t>(connection);
    if (!IsHandle(handle) || message == 0) return;
    const OwnedDictionary reply(xpc_dictionary_create_reply(reinterpret_cast<xpc_object_t>(message)));
    if (reply.get() == nullptr) return;
    SetXPCDictionary(reply.get(), items);
    xpc_connection_send_message(handle, reply.get());
    SendBarrier(handle);
}

void LXPCBase::SendBarrier(xpc_connection_t handle) {
    LXPCEndpointReference carried(link_);
    xpc_connection_send_barrier(handle, [link = carried.get(), handle] {
        const LXPCEndpointReference reference = LXPCEndpointReference::adopt(link);
        WithEndpoint(*reference, [handle](LXPCBase& endpoint) {
            if (endpoint.notify != nullptr) endpoint.notify->EvMessageSent(Identifier(handle));
        });
    });
    (void)carried.handOver();  // the block's from here on; had the call thrown, it would still be ours
}

void LXPCBase::SetupConnectionHandlerAndResume(LXPCConnection& connection) {
    xpc_connection_set_event_handler(connection.connection, [link = link_](xpc_object_t event) {
        WithEndpoint(*link, [event](LXPCBase& endpoint) { endpoint.HandleEvent(event); });
    });
    connection.Resume();
}

void LXPCBase::OpenConnection(std::unique_ptr<LXPCConnection> opened, bool retain) {
    const std::lock_guard lock(connectionsMutex_);
    connections.Insert(opened.get());
    try {
        SetupConnectionHandlerAndResume(*opened);
    } catch (...) {
        connections.head = opened->next;  // and `opened` destroys it, after the lock
        throw;
    }
    if (retain) opened->Retain();
    (void)opened.release();
}

void LXPCBase::CloseConnections() {
    link_->gate.close();
    LList<LXPCConnection> closed;
    {
        const std::lock_guard lock(connectionsMutex_);
        std::swap(closed.head, connections.head);
    }
    closed.Clear();
}
