// Versions read from bundles, and the decision whether to launch, with real processes.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "app/LCFBundle.h"
#include "app/LRequestKeys.h"
#include "app/LScheduleHelper.h"

namespace {

namespace fs = std::filesystem;

/// A copy of the example bundle under the temporary home, with one text of its information dictionary replaced.
std::string MakeBundle(const char* source, const std::string& place, const std::string& text = "",
                       const std::string& by = "") {
    const fs::path bundle = fs::path(std::getenv("HOME")) / place;
    fs::remove_all(bundle);
    fs::create_directories(bundle.parent_path());
    fs::copy(source, bundle, fs::copy_options::recursive);
    std::ifstream in(bundle / "Contents/Info.plist");
    std::string plist{std::istreambuf_iterator<char>(in), {}};
    in.close();
    std::ofstream(bundle / "Contents/Info.plist") << plist.replace(plist.find(text), text.size(), by);
    return bundle.string();
}

std::vector<NSRunningApplication> Running() {
    return NSRunningApplication::runningApplicationsWithBundleIdentifier(kMainAppBundleId);
}

/// Ends every Orvin that a case has started, and waits until each is gone altogether: they are the
/// platform layer's children, so only it can wait for them properly.
void EndAll() {
    for (const NSRunningApplication& application : Running()) {
        const pid_t pid = application.processIdentifier();
        if (!application.bundlePath().starts_with(std::getenv("HOME"))) continue;
        while (kill(pid, SIGKILL) == 0) usleep(1000);
    }
}

/// Somebody else's Orvin on this machine is not ours to end; it is waited for.
bool NobodyRuns() {
    for (int i = 0; i < 60000 && !Running().empty(); ++i) usleep(1000);
    return Running().empty();
}

/// The bundles that run, in order of their start, as the last folder above each: "at copy". A process that has just
/// been started is recognised a moment later, so as many as are expected are waited for, a minute at most.
std::string RunningFolders(size_t expected) {
    for (int i = 0; i < 60000 && Running().size() < expected; ++i) usleep(1000);
    std::string folders;
    for (const NSRunningApplication& application : Running()) {
        folders += (folders.empty() ? "" : " ") + fs::path(application.bundlePath()).parent_path().filename().string();
    }
    return folders;
}

TEST(Launch, VersionsAreReadAsTwoNumbers) {
    struct Row {
        const char* text;
        bool read;
        int major;
        int minor;
    };
    const Row rows[] = {{"2.13", true, 2, 13},
                        {"2.13.4", true, 2, 13},
                        {"2.013", true, 2, 13},
                        {"Version 2.13", true, 2, 13},
                        {"V 2.13b", true, 2, 13},
                        {"213", true, 213, 0},
                        {"2.1", true, 2, 1},
                        {"V2.13", true, 0, 0},
                        {"v2.13", true, 0, 13},
                        {"-2. +13", true, -2, 13},
                        {" 2.13", true, 2, 13},
                        {".13", true, 0, 13},
                        {"99999999999.1", true, 2147483647, 1},
                        {"", false, -7, -7}};
    for (const Row& row : rows) {
        const std::string path = MakeBundle(ORVIN_SCRIPT_BUNDLE, "Version.app", "2.13", row.text);
        const CFStringRef text = CFStringCreateWithCString(kCFAllocatorDefault, path.c_str(), kCFStringEncodingUTF8);
        const CFURLRef url = CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text, kCFURLPOSIXPathStyle, true);
        const LCFBundle bundle(CFBundleCreate(kCFAllocatorDefault, url));
        CFRelease(url);
        CFRelease(text);
        int major = -7;
        int minor = -7;
        EXPECT_EQ(bundle.GetVersionNumber(major, minor), row.read) << row.text;
        EXPECT_EQ(std::pair(major, minor), std::pair(row.major, row.minor)) << row.text;
    }
    int major = 0;
    int minor = 0;
    EXPECT_FALSE(LCFBundle(nullptr).GetVersionNumber(major, minor));
}

TEST(Launch, OnlyTheServedVersionAndOnlyOnce) {
    LScheduleHelper helper;
    const auto launch = [&helper](const std::string& bundle) {
        helper.launchMainApp(kMainAppBundleId, bundle.c_str());
    };
    for (const char* source : {ORVIN_BUNDLE, ORVIN_SCRIPT_BUNDLE}) {
        SCOPED_TRACE(source);
        ASSERT_TRUE(NobodyRuns());
        EXPECT_FALSE(helper.isMainAppRunning());
        launch(MakeBundle(source, "newer/Orvin.app", "2.13", "2.14"));
        launch(MakeBundle(source, "none/Orvin.app", "CFBundleVersion", "Other"));
        launch("/nonexistent/Orvin.app");
        const std::string bundle = MakeBundle(source, "at/Orvin.app");
        launch(bundle);
        EXPECT_EQ(RunningFolders(1), "at");
        EXPECT_TRUE(helper.isMainAppRunning());

        launch(bundle);  // it runs already, and does so through a link
        const fs::path link = fs::path(std::getenv("HOME")) / "link.app";
        fs::create_directory_symlink(bundle, link);
        launch(link);
        fs::remove(link);
        launch(MakeBundle(source, "copy/Orvin.app", "2.13", "2.13.4"));  // another copy is another
        EXPECT_EQ(RunningFolders(2), "at copy");
        EndAll();
    }
}

TEST(Launch, AnotherNameIsNotTheMainApplication) {
    const std::string name = "<key>CFBundleName</key>\n    <string>Orvin";
    const std::string bundle = MakeBundle(ORVIN_SCRIPT_BUNDLE, "named/Orvin.app", name, name + "a");
    ASSERT_TRUE(NobodyRuns());
    LScheduleHelper helper;
    helper.launchMainApp(kMainAppBundleId, bundle.c_str());
    EXPECT_EQ(RunningFolders(1), "named");
    EXPECT_FALSE(helper.isMainAppRunning());
    EndAll();
}

}  // namespace
