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
    explicit BundleTurn(FileIdentity bundle) : bundle_(bundle) {
        std::unique_lock lock(mutex());
        while (std::find(busy().begin(), busy().end(), bundle_) != busy().end()) {
            waited_ = true;
            free().wait(lock);
        }
        busy().push_back(bundle_);
    }
    ~BundleTurn() {
        const std::lock_guard lock(mutex());
        busy().erase(std::find(busy().begin(), busy().end(), bundle_));
        free().notify_all();
    }
    BundleTurn(const BundleTurn&) = delete;
    BundleTurn& operator=(const BundleTurn&) = delete;

    [[nodiscard]] bool waited() const { return waited_; }

  private:
    static std::mutex& mutex() {
        static std::mutex& object = *new std::mutex;
        return object;
    }
    static std::condition_variable& free() {
        static std::condition_variable& object = *new std::condition_variable;
        return object;
    }
    static std::vector<FileIdentity>& busy() {
        static std::vector<FileIdentity>& list = *new std::vector<FileIdentity>;
        return list;
    }
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
