// Where a named service is found: the Unix socket NAME in a directory that only this user can enter.
//
// The directory is the first of these that is ours alone (owner, no access for group and others):
//   $XDG_RUNTIME_DIR/mach-services, when the variable is absolute and its directory is ours alone;
//   /run/user/UID/mach-services, likewise;
//   /tmp/mach-services-UID, a directory and no link.
// Both sides choose alike, and neither goes on to the next place because a socket or the last directory is missing.
//
// Who offers a name holds a lock on NAME.lock for as long as it lives. Only the holder puts a socket there, under a
// temporary name first, so the name always leads to somebody who listens or, after a crash, to a socket that refuses.
// Sockets are reached through descriptors of their directory, so the length of its path does not matter.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "platform/linux/unique_fd.h"

namespace transport {

/// Not null or empty, at most 200 bytes, without '/', not beginning with '.'.
bool isServiceName(const char* name);

/// The environment's runtime directory as it is now ("" when unset): taken on the caller's thread, used on another.
std::string runtimeDirectoryFromEnvironment();

/// A name held: dropped by destruction, which leaves a socket that refuses, or by withdraw.
class ServiceOffer {
  public:
    /// Locks the name, binds and listens. False when another process holds the name, when the directory is not ours
    /// alone, or when the system refuses.
    bool open(const std::string& runtimeDirectory, const char* name);

    /// Removes the socket, unless it is no longer the one that was bound here, closes it and unlocks the name.
    void withdraw();

    /// The listening socket, not blocking.
    [[nodiscard]] int socket() const { return socket_.get(); }

  private:
    bool lockName();
    bool listenAs(const std::string& temporaryName);

    std::string name_;
    UniqueFd directory_;
    UniqueFd lock_;
    UniqueFd socket_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

enum class ConnectOutcome {
    Connected,
    Busy,    // the service has more waiting callers than the system lets it have; try again
    Failed,  // nobody there, or somebody else's
};

struct ServiceLink {
    UniqueFd socket;  // not blocking
    pid_t pid = 0;    // of the process that offers the name, as peerOf tells it
    uid_t uid = 0;
};

/// Does not wait for the other side. Runs on the io thread, and touches the file system of the directory only.
ConnectOutcome connectToService(const std::string& runtimeDirectory, const char* name, ServiceLink* link);

/// Who is at the other end, as the kernel recorded it when the connection was made; process identifiers above 99999 are
/// told as 99999, and 0 stays 0. False when it cannot be told.
bool peerOf(int socket, pid_t* pid, uid_t* uid);

}  // namespace transport
