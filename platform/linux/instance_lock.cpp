#include "instance_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "defaults_place.h"

namespace instance_lock {

namespace {

std::string pathIn(const std::string& directory) {
    return directory + "/instance.lock";
}

// A regular file of ours. Its mode is of no weight, since nobody else can put anything into its folder.
bool isLockFile(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_uid == geteuid();
}

// Opens without following a link; empty when what is there is no lock file.
UniqueFd openFile(const std::string& path, int flags) {
    int fd = -1;
    do {
        fd = open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    } while (fd < 0 && errno == EINTR);
    UniqueFd file(fd);
    struct stat status {};
    if (!file || fstat(fd, &status) != 0 || !isLockFile(status)) return {};
    return file;
}

// Unavailable where the file system knows no such locks: that is nobody else's doing.
Result tryLock(int fd, int kind) {
    while (flock(fd, kind | LOCK_NB) != 0) {
        if (errno != EINTR) return errno == EWOULDBLOCK ? Result::heldByAnother : Result::unavailable;
    }
    return Result::taken;
}

// Makes the lock's name usable: a lock file of ours that is closed to us is opened, a link, a pipe or another user's
// file, which holds nothing of worth, is removed. What a link leads to is not touched. Under the folder's own lock, so
// that no start takes away the file that another has just made; false while another is at it.
bool freeName(const std::string& directory, const std::string& path) {
    const UniqueFd folder(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder && tryLock(folder.get(), LOCK_EX) == Result::heldByAnother) return false;
    struct stat status {};
    if (!statLink(path, status)) return true;
    if (isLockFile(status)) {
        (void)chmod(path.c_str(), 0600);
    } else {
        (void)unlink(path.c_str());
    }
    return true;
}

// The lock could be had by a process that then lost its file to a deletion; only a lock on the file that bears the name
// keeps others out.
bool isStillThere(const std::string& path, int fd) {
    struct stat byName {};
    struct stat byDescriptor {};
    return statLink(path, byName) && fstat(fd, &byDescriptor) == 0 && identityOf(byName) == identityOf(byDescriptor);
}

void writeHolder(int fd) {
    std::array<char, 64> text{};
    const int length = std::snprintf(text.data(), text.size(), "%ld\n%lld\n", static_cast<long>(getpid()),
                                     static_cast<long long>(time(nullptr)));
    // Written over what was there and cut to its length only then: a file cut to nothing first would have to find its
    // block anew. A full disk leaves it empty; the lock holds all the same.
    const bool written = pwrite(fd, text.data(), static_cast<size_t>(length), 0) == length;
    (void)!ftruncate(fd, written ? length : 0);
}

}  // namespace

// Nothing tells when a lock of this kind becomes free but waiting in the call itself, which has no limit; so it is
// asked for again every 10 ms, while a start waits and at no other time.
Result take(const std::string& directory, int milliseconds, UniqueFd& lock) {
    if (!defaults_place::makeDirectory(directory)) return Result::unavailable;
    const std::string path = pathIn(directory);
    for (int waited = 0;; waited += 10) {
        UniqueFd file = openFile(path, O_RDWR | O_CREAT);
        if (!file && freeName(directory, path)) {
            file = openFile(path, O_RDWR | O_CREAT);
            if (!file) return Result::unavailable;
        }
        const Result result = file ? tryLock(file.get(), LOCK_EX) : Result::heldByAnother;
        if (result == Result::unavailable) return result;
        if (result == Result::taken && isStillThere(path, file.get())) {
            (void)fchmod(file.get(), 0600);
            writeHolder(file.get());
            lock = std::move(file);
            return Result::taken;
        }
        if (waited >= milliseconds) return Result::heldByAnother;
        const timespec pause{0, 10'000'000};
        (void)nanosleep(&pause, nullptr);
    }
}

UniqueFd share(const std::string& directory, bool& held) {
    held = false;
    UniqueFd file = openFile(pathIn(directory), O_RDONLY);
    if (!file) return {};
    const Result result = tryLock(file.get(), LOCK_SH);
    held = result == Result::heldByAnother;
    return result == Result::taken ? std::move(file) : UniqueFd();
}

Holder readHolder(const std::string& directory) {
    Holder holder;
    const UniqueFd file = openFile(pathIn(directory), O_RDONLY);
    std::array<char, 64> text{};
    if (!file || pread(file.get(), text.data(), text.size() - 1, 0) <= 0) return holder;
    long pid = 0;
    long long startedAt = 0;
    if (std::sscanf(text.data(), "%ld\n%lld\n", &pid, &startedAt) != 2) return holder;
    holder.pid = static_cast<pid_t>(pid);
    holder.startedAt = startedAt;
    return holder;
}

}  // namespace instance_lock
