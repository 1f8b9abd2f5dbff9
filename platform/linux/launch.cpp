#include "launch.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>
#include <mutex>
#include <vector>

#include "processes.h"
#include "runtime.h"
#include "unique_fd.h"

namespace {

// One child. Once it runs its pidfd is watched: that becomes readable, on the io thread, when it has ended.
class Child final : public runtime::IoWatcher {
  public:
    explicit Child(FileIdentity startedFor) : application(startedFor) {}
    void ready(uint32_t events) noexcept override;

    const FileIdentity application;
    pid_t pid = 0;  // 0 while it is being started
    UniqueFd pidfd;
    bool unwatched = false;
};

// Every child that was not collected yet. A child is collected and forgotten under one lock, so a pid in the list is
// that child's and nobody else's. The lock is held for moments only, since the io thread takes it.
class Children {
  public:
    static Children& shared() {
        static Children& list = *new Children;
        return list;
    }

    Child* add(FileIdentity application) {
        auto child = std::make_unique<Child>(application);
        const std::lock_guard lock(mutex_);
        list_.push_back(std::move(child));
        return list_.back().get();
    }

    void started(Child* child, pid_t pid) {
        const std::lock_guard lock(mutex_);
        child->pid = pid;
    }

    // No descriptor could be had for it. It is collected at the next launch; till then it stays in the process table,
    // which costs little and blocks nobody.
    void leaveUnwatched(Child* child) {
        const std::lock_guard lock(mutex_);
        child->unwatched = true;
    }

    void remove(Child* child) {
        const std::lock_guard lock(mutex_);
        if (child->pid != 0) (void)waitpid(child->pid, nullptr, WNOHANG);
        std::erase_if(list_, [child](const std::unique_ptr<Child>& each) { return each.get() == child; });
    }

    void collectUnwatched() {
        const std::lock_guard lock(mutex_);
        std::erase_if(list_, [](const std::unique_ptr<Child>& each) {
            return each->unwatched && waitpid(each->pid, nullptr, WNOHANG) != 0;
        });
    }

    bool anyRuns(FileIdentity application) {
        const std::lock_guard lock(mutex_);
        return std::any_of(list_.begin(), list_.end(), [application](const std::unique_ptr<Child>& each) {
            return each->application == application && each->pid != 0 && !hasEnded(each->pid);
        });
    }

  private:
    static bool hasEnded(pid_t pid) {
        siginfo_t info{};
        const int result = waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
        return result != 0 || info.si_pid != 0;
    }

    std::mutex mutex_;
    std::vector<std::unique_ptr<Child>> list_;
};

void Child::ready(uint32_t) noexcept {
    runtime::IoLoop::shared().forget(pidfd.get(), this);
    Children::shared().remove(this);
}

class SpawnSettings {
  public:
    SpawnSettings() {
        ok_ = posix_spawnattr_init(&attributes_) == 0;
        if (!ok_) return;
        ok_ = posix_spawn_file_actions_init(&actions_) == 0;
        if (!ok_) (void)posix_spawnattr_destroy(&attributes_);
    }
    ~SpawnSettings() {
        if (!ok_) return;
        (void)posix_spawn_file_actions_destroy(&actions_);
        (void)posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    bool fill() {
        sigset_t all;
        sigset_t none;
        (void)sigfillset(&all);
        (void)sigemptyset(&none);
        constexpr short kFlags = POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
        return ok_ && posix_spawnattr_setflags(&attributes_, kFlags) == 0 &&
               posix_spawnattr_setsigdefault(&attributes_, &all) == 0 &&
               posix_spawnattr_setsigmask(&attributes_, &none) == 0 &&
               posix_spawn_file_actions_addopen(&actions_, 0, "/dev/null", O_RDWR, 0) == 0 &&
               posix_spawn_file_actions_adddup2(&actions_, 0, 1) == 0 &&
               posix_spawn_file_actions_adddup2(&actions_, 0, 2) == 0 &&
               posix_spawn_file_actions_addclosefrom_np(&actions_, 3) == 0 &&
               posix_spawn_file_actions_addchdir_np(&actions_, "/") == 0;
    }

    // 0 or an error number.
    int spawn(const std::string& executable, pid_t& pid) {
        char* const arguments[] = {const_cast<char*>(executable.c_str()), nullptr};  // the call changes none
        return posix_spawn(&pid, executable.c_str(), &actions_, &attributes_, arguments, environ);
    }

  private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
    bool ok_ = false;
};

void watch(Child* child, pid_t pid) {
    Children::shared().started(child, pid);
    // Not the library's own pidfd_open: its header forgets that it may be read as C++.
    child->pidfd.reset(static_cast<int>(syscall(SYS_pidfd_open, pid, 0U)));
    const bool watched = child->pidfd && runtime::IoLoop::shared().watch(child->pidfd.get(), EPOLLIN, child);
    if (!watched) Children::shared().leaveUnwatched(child);
}

}  // namespace

bool launchDetached(const std::string& executable, FileIdentity application) {
    Children::shared().collectUnwatched();
    SpawnSettings settings;
    if (!settings.fill()) return false;
    Child* child = Children::shared().add(application);
    pid_t pid = 0;
    int error = 0;
    do {
        error = settings.spawn(executable, pid);
    } while (error == EINTR);
    if (error != 0) {
        Children::shared().remove(child);
        return false;
    }
    watch(child, pid);
    forgetOlderLooks();
    return true;
}

bool launchedChildRuns(FileIdentity application) {
    return Children::shared().anyRuns(application);
}
