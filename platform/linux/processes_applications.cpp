#include <AppKit/AppKit.h>

#include <cstring>

#include "info_plist.h"
#include "processes.h"

namespace {

NSString nameOf(const InfoPlist& plist, const std::string& bundlePath) {
    for (const char* key : {"CFBundleDisplayName", "CFBundleName"}) {
        const std::string* name = plist.text(key);
        if (name != nullptr && !name->empty()) return *name;
    }
    const size_t slash = bundlePath.rfind('/');
    return bundlePath.substr(slash + 1, bundlePath.size() - slash - 1 - std::strlen(".app"));
}

}  // namespace

struct ProcessScan {
    static NSRunningApplication make(const ApplicationProcess& process, const InfoPlist& plist) {
        NSRunningApplication application;
        if (const std::string* identifier = plist.text("CFBundleIdentifier"))
            application.bundleIdentifier_ = *identifier;
        application.localizedName_ = nameOf(plist, process.bundlePath);
        application.bundlePath_ = process.bundlePath;
        application.processIdentifier_ = process.pid;
        return application;
    }
};

std::vector<NSRunningApplication> NSRunningApplication::runningApplicationsWithBundleIdentifier(
    const NSString& identifier) {
    std::vector<NSRunningApplication> running;
    for (const ApplicationProcess& process : findApplicationProcesses()) {
        const InfoPlist plist = InfoPlist::ofBundle(process.bundlePath);
        const std::string* own = plist.text("CFBundleIdentifier");
        if (own != nullptr && *own == identifier) running.push_back(ProcessScan::make(process, plist));
    }
    return running;
}
