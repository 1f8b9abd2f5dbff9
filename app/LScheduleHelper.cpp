#include "app/LScheduleHelper.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <platform_ending.h>

#include "app/LCFBundle.h"
#include "app/LRequestKeys.h"
#include "base/LCFString.h"
#include "debug/LStaticOrder.h"
#include "scheduler/LScheduleStore.h"

[[gnu::init_priority(LSTATIC_ORDER_SINK)]] LPtr<LScheduleHelperNotify> pXpcNotifyee;
[[gnu::init_priority(LSTATIC_ORDER_SERVER)]] LPtr<LXPCMachServer> pXPCServer;

namespace {

/// Bytes that a path or a version text may have, the terminator included.
constexpr size_t kTextSize = 260;

struct FileIdentity {
    dev_t device;
    ino_t inode;
    friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

/// Which file `path` reaches, links followed; false when there is none.
bool Identify(const char* path, FileIdentity& identity) {
    struct stat status {};
    int result = stat(path, &status);
    while (result != 0 && errno == EINTR) result = stat(path, &status);
    if (result != 0) return false;
    identity = {status.st_dev, status.st_ino};
    return true;
}

/// A path that is missing, or too long to be a schedule's, is no schedule's bundle.
bool RunsFrom(const NSRunningApplication& application, const char* bundlePath) {
    const NSString& path = application.bundlePath();
    if (path.empty() || path.size() >= kTextSize) return false;
    FileIdentity running{};
    FileIdentity wanted{};
    return Identify(path.c_str(), running) && Identify(bundlePath, wanted) && running == wanted;
}

/// The bundle at `path`; null when there is none. One reference.
CFBundleRef CreateBundle(const char* path) {
    LCFString text;
    text.SetString(path);
    if (text.GetStringRef() == nullptr) return nullptr;
    const CFURLRef url =
        CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text.GetStringRef(), kCFURLPOSIXPathStyle, true);
    if (url == nullptr) return nullptr;
    const CFBundleRef bundle = CFBundleCreate(kCFAllocatorDefault, url);
    CFRelease(url);
    return bundle;
}

bool HasServedVersion(const LCFBundle& bundle) {
    int major = 0;
    int minor = 0;
    bundle.GetVersionNumber(major, minor);
    char version[kTextSize];
    std::snprintf(version, sizeof version, "%d.%d", major, minor);
    return std::strcmp(version, kMainAppVersion) == 0;
}

}  // namespace

void LScheduleHelper::StopFirings() {
    if (pXpcNotifyee) pXpcNotifyee->StopFirings();
}

void LScheduleHelper::DestroyServer() {
    if (!IsOSMacLionOrLater() || !pXPCServer) return;
    pXPCServer->Close();  // from here on no event can ask for it
    pXPCServer = nullptr;
}

LXPCMachServer* LScheduleHelper::getXPCServer() {
    return pXPCServer.get();
}

void LScheduleHelper::shutdownHelper() {
    platform_exit(0);
}

void LScheduleHelper::launchMainApp(const char* bundleId, const char* bundlePath) {
    if (!LIsScheduleText(bundlePath)) return;  // no bundle that a stored schedule can mean
    for (const NSRunningApplication& application :
         NSRunningApplication::runningApplicationsWithBundleIdentifier(bundleId)) {
        if (RunsFrom(application, bundlePath)) return;
    }
    const LCFBundle bundle(CreateBundle(bundlePath));
    if (bundle.IsNull() || !HasServedVersion(bundle)) return;
    NSWorkspace::sharedWorkspace().launchApplication(bundlePath);
}

void LScheduleHelper::startXPCServer() {
    pXPCServer = new LXPCMachServer(pXpcNotifyee.get());
    for (const LRequestKeyType& key : kRequestKeys) pXPCServer->AddKey(key.name, key.type);
    pXPCServer->Start(kServiceName);
}

bool LScheduleHelper::isMainAppRunning() {
    for (const NSRunningApplication& application :
         NSRunningApplication::runningApplicationsWithBundleIdentifier(kMainAppBundleId)) {
        if (application.localizedName() == kMainAppName) return true;
    }
    return false;
}

void LScheduleHelper::applicationDidFinishLaunching() {
    if (!IsOSMacLionOrLater()) {
        shutdownHelper();
        return;
    }
    pXpcNotifyee = new LScheduleHelperNotify;
    pXpcNotifyee->delegate = this;
    pXpcNotifyee->LoadFromSettings();
    if (isMainAppRunning()) startXPCServer();
}

void LScheduleHelper::applicationWillTerminate() {
    DestroyServer();
}
