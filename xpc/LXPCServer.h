// Server endpoints: they accept connections and keep them until the application disconnects them.
#pragma once

#include <sys/types.h>

#include <atomic>

#include "xpc/LXPCBase.h"

/// What both kinds of server share: the accept rule and Disconnect. A connection whose peer went away stays listed
/// until the sink disconnects it.
class LXPCServerBase : public LXPCBase {
  public:
    /// Close, then frees the keys.
    ~LXPCServerBase() override;

    /// Sets pServer to null, refuses and awaits events (of other threads), and destroys every connection, newest first.
    /// Whoever lets other threads find the server through a pointer of his own closes it before he clears that.
    void Close();

    /// For each new connection from the platform; null is ignored. A peer whose process identifier is none is refused
    /// where the server checks it: the sink is told, and the connection is left as it is. Any other is listed first,
    /// given the event handler, resumed and retained.
    void NewConnectionHandler(_xpc_connection_s* connection);

    /// Takes the connection off the list and destroys it; nothing when it is not listed. Callable from inside an event
    /// of that very connection.
    void Disconnect(long connection);

    LXPCServerEventNotify* serverNotify;  // the same object as `notify`
    bool checkPeerProcess;                // refuse peers whose process identifier lies outside 1 to 99999

    /// The server of this process that was made last; null when none was or after one has been destroyed.
    static std::atomic<LXPCServerBase*> pServer;

  protected:
    LXPCServerBase(LXPCServerEventNotify* sink, bool checkPeers);

    /// Hands on what is a connection; a listener's errors concern nobody here.
    void HandleListenerEvent(xpc_object_t event);
};

/// A server on a named service of this user.
class LXPCMachServer : public LXPCServerBase {
  public:
    explicit LXPCMachServer(LXPCServerEventNotify* sink) : LXPCServerBase(sink, true) {}

    /// Listens on `name` and hands the calling thread, which must be the process's first, to the main queue for good.
    /// Returns, with false, only when the service cannot be offered: nothing is installed then. The listener lives as
    /// long as the process, and once this server is gone it drops whoever comes.
    bool Start(const char* name);

    /// As Start, for programs that serve the main queue themselves: returns true when the service is offered.
    bool Listen(const char* name);
};

/// A server without the check of its peers, for a process that the platform starts on demand. How such a process is
/// packaged and started is a matter of the platform; here it is handed connections through StaticNewConnectionHandler.
class LXPCServer : public LXPCServerBase {
  public:
    explicit LXPCServer(LXPCServerEventNotify* sink) : LXPCServerBase(sink, false) {}

    /// Hands `connection` to the server that pServer names; dropped when there is none.
    static void StaticNewConnectionHandler(_xpc_connection_s* connection);
};
