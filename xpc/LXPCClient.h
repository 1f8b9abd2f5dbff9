// The client endpoint: opens connections to services and sends them messages. This is the side of those who talk to the
// helper; the helper itself opens none.
//
//     LXPCClient client(&sink);
//     client.AddKey(kReplyTestConnection, LXPCDataTypeBool);             // replies decode by registered keys
//     if (!client.Connect(kServiceName, 1, true)) return false;
//     const LXPCData question[] = {{kKeyTestConnection, LXPCDataTypeBool, 1}};
//     client.SendMessage(kServiceName, 1, question, 1, true);            // sink.EvReplyReceived, on the main queue
//     dispatch_main();                                                   // which therefore has to be served
#pragma once

#include <memory>

#include "xpc/LXPCBase.h"

/// A connection that a client opened.
class LXPCConnectionClient : public LXPCConnection {
  public:
    LXPCConnectionClient() { name[0] = '\0'; }

    char name[kLXPCNameSize];  // of the service
    unsigned long id = 0;      // chosen by the caller of Connect
};

/// Keeps any number of connections. Each is found again by service name (whatever the case of ASCII letters) and
/// identifier, the newest first; an operation on one that is not there does nothing. Any thread.
class LXPCClient : public LXPCBase {
  public:
    /// `sink` is not owned and outlives the client.
    explicit LXPCClient(LXPCEventNotify* sink) : LXPCBase(sink) {}
    /// Waits for events in flight on other threads, then destroys every connection, newest first.
    ~LXPCClient() override;

    /// Opens a connection to the named service (`machService`) or to the service bundle of that name. False when the
    /// platform makes none, and for a name that is null or has 260 bytes or more. Whether anybody offers the service
    /// shows later, by EvConnectionError.
    bool Connect(const char* name, unsigned long id, bool machService);
    void Disconnect(const char* name, unsigned long id);
    void Suspend(const char* name, unsigned long id);
    void Resume(const char* name, unsigned long id);

    /// Sends `count` items, possibly none. Of two with one name the earlier in the array wins. Texts, byte blocks and
    /// UUIDs need to stay valid until the call returns. Events as for LXPCBase::SendMessage.
    void SendMessage(const char* name, unsigned long id, const LXPCData* items, unsigned long count, bool wantReply);
    using LXPCBase::SendMessage;

  private:
    LXPCHeldConnection Hold(const char* name, unsigned long id);
    /// The caller holds the lock. Null when there is none.
    LXPCConnection* Find(const char* name, unsigned long id);
};
