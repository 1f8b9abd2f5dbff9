#include <AppKit/AppKit.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <new>

#include "file_status.h"
#include "info_plist.h"
#include "launch.h"
#include "processes.h"

namespace {

// One launch at a time for each bundle, whatever path leads to it. Launches of different bundles do not wait for each
// other.
class BundleTurn {
  public:
    explicit BundleTurn(FileIdentity bundle) : turns_(turns()), bundle_(bundle) {
        std::unique_lock lock(turns_.mutex);
        while (std::find(turns_.busy.begin(), turns_.busy.end(), bundle_) != turns_.busy.end()) {
            waited_ = true;
            turns_.free.wait(lock);
        }
        turns_.busy.push_back(bundle_);
    }
    ~BundleTurn() {
        const std::lock_guard lock(turns_.mutex);
        turns_.busy.erase(std::find(turns_.busy.begin(), turns_.busy.end(), bundle_));
        turns_.free.notify_all();
    }
    BundleTurn(const BundleTurn&) = delete;
    BundleTurn& operator=(const BundleTurn&) = delete;

    [[nodiscard]] bool waited() const { return waited_; }

  private:
    struct Turns {
        std::mutex mutex;
        std::condition_variable free;
        std::vector<FileIdentity> busy;
    };
    // Made by the first turn and kept for ever. May throw std::bad_alloc, so a turn's end does not ask for it.
    static Turns& turns() {
        static Turns& object = *new Turns;
        return object;
    }
    Turns& turns_;
    FileIdentity bundle_;
    bool waited_ = false;
};

bool isRunning(FileIdentity bundle, bool lookAnew) {
    if (launchedChildRuns(bundle)) return true;
    const std::vector<ApplicationProcess> running = lookAnew ? findApplicationProcesses() : takeRecentLook();
    return std::any_of(running.begin(), running.end(), [bundle](const ApplicationProcess& process) {
        struct stat status {};
        return statFile(process.bundlePath, status) && identityOf(status) == bundle;
    });
}

bool endsInApp(const std::string& path) {
    constexpr std::string_view kEnd = ".app";
    const size_t slash = path.rfind('/');
    const size_t nameLength = path.size() - slash - 1;
    return nameLength > kEnd.size() && path.compare(path.size() - kEnd.size(), kEnd.size(), kEnd) == 0;
}

// The absolute path of what `bundle` (links resolved) names as its executable; "" when that is missing, leads out of
// the bundle, or is no executable file.
std::string executableOf(const std::string& bundle) {
    const InfoPlist plist = InfoPlist::ofBundle(bundle);
    const std::string* name = plist.text("CFBundleExecutable");
    if (name == nullptr || name->empty() || name->find('/') != std::string::npos ||
        name->find("..") != std::string::npos) {
        return {};
    }
    const std::string folder = bundle + "/Contents/MacOS/";
    std::string executable = folder + *name;
    struct stat status {};
    if (resolvedPath(executable).compare(0, folder.size(), folder) != 0) return {};
    if (!statFile(executable, status) || !S_ISREG(status.st_mode) || access(executable.c_str(), X_OK) != 0) return {};
    return executable;
}

bool launch(const NSString& path) {
    if (path.empty() || path.front() != '/') return false;
    // A bundle of another name would start but never be recognised as running, and so start again and again.
    const std::string bundle = resolvedPath(path);
    struct stat status {};
    if (!endsInApp(bundle) || !statFile(bundle, status) || !S_ISDIR(status.st_mode)) return false;
    const FileIdentity identity = identityOf(status);
    const BundleTurn turn(identity);
    if (isRunning(identity, turn.waited())) return true;
    const std::string executable = executableOf(bundle);
    return !executable.empty() && launchDetached(executable, identity);
}

}  // namespace

NSWorkspace& NSWorkspace::sharedWorkspace() {
    static NSWorkspace workspace;
    return workspace;
}

bool NSWorkspace::launchApplication(const NSString& path) {
    try {
        return launch(path);
    } catch (const std::bad_alloc&) {
        return false;
    }
}
