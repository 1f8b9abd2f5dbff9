#include "platform/linux/service_name.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/linux/file_status.h"

namespace transport {

namespace {

constexpr size_t maxNameBytes = 200;     // a file name may have 255; ours carry a suffix
constexpr pid_t maxReportedPid = 99999;  // the rule above the platform takes larger ones for "no process"
constexpr char directoryName[] = "mach-services";
constexpr char lockSuffix[] = ".lock";
constexpr int directoryFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

bool isOursAlone(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & 077) == 0;
}

enum class Missing { Create, Leave };

/// The directory `path` below `base`, invalid unless it is ours alone.
UniqueFd openPrivate(int base, const char* path, Missing missing) {
    if (missing == Missing::Create) (void)mkdirat(base, path, 0700);  // whatever stands there is judged next
    UniqueFd directory(openat(base, path, directoryFlags));
    if (directory && !isOursAlone(directory.get())) directory.reset();
    return directory;
}

/// A runtime directory may be a link to its place, as the system sets it up.
UniqueFd openRuntimeDirectory(const std::string& path) {
    if (path.empty() || path.front() != '/') return {};
    UniqueFd directory(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (directory && !isOursAlone(directory.get())) directory.reset();
    return directory;
}

UniqueFd openServiceDirectory(const std::string& runtimeDirectory, Missing missing) {
    const std::string user = std::to_string(geteuid());
    for (const std::string& place : {runtimeDirectory, "/run/user/" + user}) {
        const UniqueFd runtime = openRuntimeDirectory(place);
        if (runtime) return openPrivate(runtime.get(), directoryName, missing);
    }
    return openPrivate(AT_FDCWD, ("/tmp/" + std::string(directoryName) + "-" + user).c_str(), missing);
}

/// An address that reaches a file, or a name in a directory, through a descriptor. `name` is short or empty.
sockaddr_un addressThrough(int fd, const char* name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const char* separator = *name == '\0' ? "" : "/";
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d%s%s", fd, separator, name);
    return address;
}

UniqueFd openSocket() {
    return UniqueFd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

/// Short whatever the service is called, as an address is; the lock on the name keeps others with this name away.
std::string temporaryNameFor(const std::string& name) {
    uint64_t hash = 14695981039346656037U;  // FNV-1a
    for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    char text[32];
    std::snprintf(text, sizeof text, ".bind-%016llx", static_cast<unsigned long long>(hash));
    return text;
}

bool endsWith(const std::string& text, const char* suffix) {
    const size_t length = std::strlen(suffix);
    return text.size() >= length && text.compare(text.size() - length, length, suffix) == 0;
}

}  // namespace

bool isServiceName(const char* name) {
    if (name == nullptr || *name == '\0' || *name == '.') return false;
    return std::strlen(name) <= maxNameBytes && std::strchr(name, '/') == nullptr;
}

std::string runtimeDirectoryFromEnvironment() {
    const char* value = std::getenv("XDG_RUNTIME_DIR");
    return value == nullptr ? "" : value;
}

bool ServiceOffer::open(const std::string& runtimeDirectory, const char* name) {
    name_ = name;
    if (endsWith(name_, lockSuffix)) return false;  // its socket would stand where another name's lock does
    directory_ = openServiceDirectory(runtimeDirectory, Missing::Create);
    return directory_ && lockName() && listenAs(temporaryNameFor(name_));
}

/// A lock on a file that has been removed meanwhile locks nobody out: look again whether it still has its name. One
/// that others may write to could be held by them for ever.
bool ServiceOffer::lockName() {
    const std::string file = name_ + lockSuffix;
    for (;;) {
        lock_.reset(
            openat(directory_.get(), file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600));
        if (!lock_) return false;
        while (flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
            if (errno != EINTR) return false;
        }
        struct stat held {};
        struct stat named {};
        if (fstat(lock_.get(), &held) != 0 || !S_ISREG(held.st_mode) || !isOurs(held)) return false;
        if (fstatat(directory_.get(), file.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (held.st_dev == named.st_dev && held.st_ino == named.st_ino) return true;
    }
}

bool ServiceOffer::listenAs(const std::string& temporaryName) {
    const int directory = directory_.get();
    (void)unlinkat(directory, temporaryName.c_str(), 0);  // left by a holder that ended between the two steps
    socket_ = openSocket();
    const sockaddr_un address = addressThrough(directory, temporaryName.c_str());
    if (!socket_ || bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return false;
    struct stat status {};
    if (listen(socket_.get(), SOMAXCONN) == 0 &&
        fstatat(directory, temporaryName.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        renameat(directory, temporaryName.c_str(), directory, name_.c_str()) == 0) {
        device_ = status.st_dev;
        inode_ = status.st_ino;
        return true;
    }
    (void)unlinkat(directory, temporaryName.c_str(), 0);
    return false;
}

void ServiceOffer::withdraw() {
    struct stat status {};
    if (socket_ && fstatat(directory_.get(), name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_dev == device_ && status.st_ino == inode_) {
        (void)unlinkat(directory_.get(), name_.c_str(), 0);
    }
    socket_.reset();
    lock_.reset();
    directory_.reset();
}

ConnectOutcome connectToService(const std::string& runtimeDirectory, const char* name, ServiceLink* link) {
    const UniqueFd directory = openServiceDirectory(runtimeDirectory, Missing::Leave);
    if (!directory) return ConnectOutcome::Failed;
    const UniqueFd file(openat(directory.get(), name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    UniqueFd socket = openSocket();
    if (!file || !socket) return ConnectOutcome::Failed;
    const sockaddr_un address = addressThrough(file.get(), "");
    while (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        if (errno == EAGAIN) return ConnectOutcome::Busy;
        if (errno != EINTR) return ConnectOutcome::Failed;
    }
    if (!peerOf(socket.get(), &link->pid, &link->uid) || link->uid != geteuid()) return ConnectOutcome::Failed;
    link->socket = std::move(socket);
    return ConnectOutcome::Connected;
}

bool peerOf(int socket, pid_t* pid, uid_t* uid) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return false;
    *pid = std::min(credentials.pid, maxReportedPid);
    *uid = credentials.uid;
    return true;
}

}  // namespace transport
