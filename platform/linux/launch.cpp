#include "launch.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/pidfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "runtime.h"
#include "unique_fd.h"

namespace {

// Collects one child when it ends: its pidfd becomes readable, on the io thread.
class ChildWatcher final : public runtime::IoWatcher {
  public:
    explicit ChildWatcher(int pidfd) : pidfd_(pidfd) {}

    void ready(uint32_t) noexcept override {
        siginfo_t info{};
        if (waitid(P_PIDFD, static_cast<id_t>(pidfd_.get()), &info, WEXITED | WNOHANG) == 0 && info.si_pid == 0) return;
        runtime::IoLoop::shared().forget(pidfd_.get(), this);
        delete this;
    }

  private:
    UniqueFd pidfd_;
};

// Children for which no descriptor could be had. They are collected at the next launch; till then an ended one stays in
// the process table, which costs little and blocks nobody.
class Unwatched {
  public:
    static Unwatched& shared() {
        static Unwatched& list = *new Unwatched;
        return list;
    }

    void collect() {
        const std::lock_guard lock(mutex_);
        std::erase_if(pids_, [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; });
        pids_.reserve(pids_.size() + 1);  // so that add cannot fail
    }
    void add(pid_t pid) {
        const std::lock_guard lock(mutex_);
        pids_.push_back(pid);
    }

  private:
    std::mutex mutex_;
    std::vector<pid_t> pids_;
};

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
        std::string name = executable;
        char* const arguments[] = {name.data(), nullptr};
        return posix_spawn(&pid, executable.c_str(), &actions_, &attributes_, arguments, environ);
    }

  private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
    bool ok_ = false;
};

void watchChild(pid_t pid) {
    const int pidfd = pidfd_open(pid, 0);
    if (pidfd < 0) return Unwatched::shared().add(pid);
    auto* watcher = new (std::nothrow) ChildWatcher(pidfd);
    if (watcher == nullptr) {
        close(pidfd);
        return Unwatched::shared().add(pid);
    }
    if (!runtime::IoLoop::shared().watch(pidfd, EPOLLIN, watcher)) {
        delete watcher;
        Unwatched::shared().add(pid);
    }
}

}  // namespace

bool launchDetached(const std::string& executable) {
    Unwatched::shared().collect();
    SpawnSettings settings;
    pid_t pid = 0;
    if (!settings.fill()) return false;
    int error = 0;
    do {
        error = settings.spawn(executable, pid);
    } while (error == EINTR);
    if (error != 0) return false;
    watchChild(pid);
    return true;
}
