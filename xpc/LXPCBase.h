// Connections, and what the endpoints of both sides share: the event sink, the registry of keys, the list of open
// connections, sending and receiving.
//
// Identifiers. A connection is named to the sink, and by the sink, by a `long` that is the platform's connection
// handle. It is good during the event call that names it and for as long as the connection is listed. A received
// message is named by a `long` that is good during the event call that delivers it, and so are its items.
//
// Threads. Events of one connection come one at a time, on a queue of that connection; replies to messages sent with a
// reply come on the main queue. Different connections' events run side by side. The registry is filled before the
// endpoint starts or connects and only read afterwards. The list of connections is guarded by the endpoint's own lock,
// under which no event is delivered and no connection is destroyed.
//
// Life. Handlers that the platform still holds do not keep an endpoint alive: they pass its gate, which its destructor
// closes first, waiting for events in flight on other threads. An endpoint may be destroyed from inside one of its own
// events; that event is the last.
#pragma once

#include <memory>
#include <mutex>

#include <xpc/xpc.h>

#include "base/LList.h"
#include "xpc/LXPCData.h"
#include "xpc/LXPCEndpointLink.h"

/// What an endpoint tells the application. The application implements it and outlives the endpoint; the endpoint does
/// not own it.
class LXPCEventNotify {
  public:
    /// An error arose on `connection`, or came instead of the reply to a message sent on it.
    virtual void EvConnectionError(long connection, LXPCErrorType error) = 0;
    /// A message with at least one registered key; `items` in the order in which the keys were registered. Neither the
    /// list nor anything in it is valid beyond the call, received descriptors apart: those are the receiver's to close.
    virtual void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) = 0;
    /// The reply to a message sent with a wanted reply, with at least one registered key. On the main queue.
    virtual void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) = 0;
    /// A reply, or a message sent without a wanted reply, has left on `connection` (or was dropped with it).
    virtual void EvMessageSent(long connection) = 0;

  protected:
    ~LXPCEventNotify() = default;  // never destroyed through this interface
};

/// What a server tells the application besides.
class LXPCServerEventNotify : public LXPCEventNotify {
  public:
    /// A new connection was refused.
    virtual void EvInvalidConnectionAttempt() = 0;

  protected:
    ~LXPCServerEventNotify() = default;
};

/// One platform connection with its state. Guarded by its endpoint's lock while it is listed.
class LXPCConnection {
  public:
    /// Stands for a connection that there is not: the all-ones value.
    static xpc_connection_t NoConnection();

    LXPCConnection() = default;
    /// For a connection as the platform makes it: suspended.
    explicit LXPCConnection(xpc_connection_t handle) : connection(handle) {}
    /// Resumes the connection if it is suspended, cancels it, and gives back one reference if one is held.
    virtual ~LXPCConnection();
    LXPCConnection(const LXPCConnection&) = delete;
    LXPCConnection& operator=(const LXPCConnection&) = delete;

    [[nodiscard]] bool IsValid() const { return connection != NoConnection(); }
    /// Does nothing when suspended already; Resume likewise the other way round.
    void Suspend();
    void Resume();
    void Cancel();
    void Retain();
    /// Gives back one of the references taken with Retain; nothing when there is none.
    void Release();

    LXPCConnection* next = nullptr;
    xpc_connection_t connection = NoConnection();
    bool suspended = true;
    int retainCount = 0;  // references of the platform connection that this object holds
};

struct LXPCHandleRelease {
    void operator()(xpc_connection_t handle) const { xpc_release(handle); }
};
/// One reference to a platform connection.
using LXPCHeldConnection = std::unique_ptr<_xpc_connection_s, LXPCHandleRelease>;

/// Tells `notify` (null: nobody) what the platform's error object `event` means.
void ErrorHandler(void* event, long connection, LXPCEventNotify* notify);

/// The common base of LXPCServerBase and LXPCClient. Derived classes' destructors call CloseConnections first.
class LXPCBase {
  public:
    /// `sink` is not owned; null drops every event.
    explicit LXPCBase(LXPCEventNotify* sink);
    virtual ~LXPCBase();
    LXPCBase(const LXPCBase&) = delete;
    LXPCBase& operator=(const LXPCBase&) = delete;

    /// Registers a key. Names are cut to 259 bytes; registering one twice gives two items for it. Before the endpoint
    /// starts or connects.
    void AddKey(const char* name, LXPCDataType type);
    void AddKey(const LXPCDictionaryKeyListable& key);

    /// Sends `items` on `connection`. With `wantReply` exactly one EvReplyReceived or EvConnectionError follows, or
    /// nothing when the reply holds no registered key; without, exactly one EvMessageSent. Any thread.
    void SendMessage(long connection, const LList<LXPCDataListable>& items, bool wantReply);

    /// Answers `message` with `items`; one EvMessageSent follows. Called from within EvMessageReceived. A message that
    /// expects no reply, or has been answered before, is not answered: nothing is sent and no event follows.
    void SendReply(long connection, long message, const LList<LXPCDataListable>& items);

    /// Installs this endpoint's event handler on `connection` and resumes it if it is suspended.
    void SetupConnectionHandlerAndResume(LXPCConnection& connection);

    LXPCEventNotify* notify;
    LList<LXPCDictionaryKeyListable> keys;  // newest first
    LList<LXPCConnection> connections;      // newest first; on a client they are LXPCConnectionClient

  protected:
    /// Refuses and awaits events (of other threads), then destroys every listed connection, newest first. Idempotent.
    void CloseConnections();

    /// Lists `opened`, installs the handler and resumes it, then takes a reference if `retain`, all in one step that
    /// neither an event of that connection nor anybody who takes connections off the list can come between.
    void OpenConnection(std::unique_ptr<LXPCConnection> opened, bool retain);

    /// Takes the first connection that `matches` off the list and destroys it, the latter outside the lock.
    template <typename Predicate>
    void CloseFirst(Predicate matches) {
        std::unique_ptr<LXPCConnection> closed;
        const std::lock_guard lock(connectionsMutex_);
        LListIterator<LXPCConnection> place(connections);
        while (place.current != nullptr && !matches(*place)) ++place;
        closed.reset(connections.Detach(place));
    }

    std::mutex connectionsMutex_;  // `connections` and the state of those listed
    LXPCEndpointReference link_;

  private:
    void HandleEvent(xpc_object_t event);
    void HandleReply(xpc_object_t reply);
    void SendBarrier(xpc_connection_t handle);
};
