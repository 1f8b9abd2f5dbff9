// Running applications and launching, with real processes from bundles in a temporary folder.
#include <AppKit/AppKit.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <thread>

#include "foundation_support.h"
#include "platform/linux/processes.h"

namespace {

using Applications = std::vector<NSRunningApplication>;

class ApplicationsTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(mkfifo((folder_ / "hold").c_str(), 0600), 0);
        hold_ = open((folder_ / "hold").c_str(), O_RDWR | O_CLOEXEC);  // while it is open the probes live
        setenv("PROBE_REPORT", (folder_ / "report").c_str(), 1);
        setenv("PROBE_HOLD", (folder_ / "hold").c_str(), 1);
        identifier_ = "test." + std::filesystem::path(folder_.path()).filename().string();
    }
    void TearDown() override {
        close(hold_);
        for (const pid_t pid : children_) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
        EXPECT_TRUE(eventually([this] { return running().empty(); })) << "an application stayed";
    }

    // There is no event for "another process got so far", so it is looked for until a deadline.
    template <typename Condition>
    static bool eventually(Condition condition) {
        for (int i = 0; i < 2000; ++i) {
            if (condition()) return true;
            poll(nullptr, 0, 5);
        }
        return false;
    }

    std::string makeBundle(const std::string& name, bool script = false) {
        std::string bundle = folder_ / name;
        writeFile(bundle + "/Contents/Info.plist",
                  "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" + identifier_ +
                      "</string><key>CFBundleExecutable</key><string>Probe</string><key>CFBundleName</"
                      "key><string>Probe</string></dict></plist>");
        std::filesystem::create_directories(bundle + "/Contents/MacOS");
        const std::string file = bundle + "/Contents/MacOS/Probe";
        if (script) {
            writeFile(file, "#!/bin/sh\n" LAUNCHED_PROBE "\nexit\n");
        } else {
            std::filesystem::copy_file(LAUNCHED_PROBE, file);
        }
        chmod(file.c_str(), 0755);
        return bundle;
    }

    pid_t spawn(std::vector<std::string> arguments, const char* directory = "/") {
        std::vector<char*> pointers;
        for (std::string& argument : arguments) pointers.push_back(argument.data());
        pointers.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addchdir_np(&actions, directory);
        pid_t pid = 0;
        EXPECT_EQ(posix_spawn(&pid, arguments[0].c_str(), &actions, nullptr, pointers.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        children_.push_back(pid);
        return pid;
    }

    [[nodiscard]] Applications running() const {
        return NSRunningApplication::runningApplicationsWithBundleIdentifier(identifier_);
    }
    std::vector<std::string> reports() {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
            if (entry.path().filename().string().rfind("report-", 0) == 0) found.push_back(contentOf(entry.path()));
        }
        return found;
    }

    TemporaryFolder folder_;
    std::string identifier_;
    int hold_ = -1;
    std::vector<pid_t> children_;
};

}  // namespace

TEST_F(ApplicationsTest, AreFoundHoweverTheyWereStarted) {
    const std::string app = makeBundle("One.app");
    const std::string scripted = makeBundle("Two.app", true);
    std::filesystem::create_directory_symlink(app, folder_ / "link");
    const std::string linked = makeBundle("Three.app", true);
    std::filesystem::rename(linked + "/Contents/MacOS/Probe", linked + "/Contents/MacOS/run.sh");
    std::filesystem::create_symlink("run.sh", linked + "/Contents/MacOS/Probe");
    const std::string inside = scripted + "/Contents/MacOS";
    const struct {
        const char* what;
        std::vector<std::string> arguments;
        std::string directory, bundle;  // "": none is found
    } table[] = {
        {"binary", {app + "/Contents/MacOS/Probe"}, "/", app},
        {"binary through a link", {folder_ / "link/Contents/MacOS/Probe"}, "/", app},
        {"binary under another name", {app + "/Contents/MacOS/Probe", "/etc/passwd"}, "/", app},
        {"script", {inside + "/Probe"}, "/", scripted},
        {"script after an option", {"/bin/sh", "-e", inside + "/Probe"}, "/", scripted},
        {"script by a relative path", {"/bin/sh", "Two.app/Contents/MacOS/Probe"}, folder_.path(), scripted},
        {"script behind a link", {linked + "/Contents/MacOS/Probe"}, "/", linked},
        {"reader of the script", {"/usr/bin/tail", "-f", "-n0", "-q", inside + "/Probe"}, "/", ""},
        {"script of another name", {"/bin/sh", "-c", "read x < $PROBE_HOLD", inside + "/Other"}, "/", ""},
    };
    for (const auto& [what, arguments, directory, bundle] : table) {
        const pid_t pid = spawn(arguments, directory.c_str());
        const auto own = [&] {
            Applications found = running();
            std::erase_if(found, [pid](const auto& each) { return each.processIdentifier() != pid; });
            return found;
        };
        if (bundle.empty()) {
            EXPECT_TRUE(own().empty()) << what;
        } else {
            ASSERT_TRUE(eventually([&] { return !own().empty(); })) << what;
            EXPECT_EQ(own().front().bundlePath(), bundle) << what;
            EXPECT_EQ(own().front().localizedName(), "Probe") << what;
        }
    }
    const Applications all = running();
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end(), [this](const auto& a, const auto& b) {
        const auto place = [this](pid_t pid) { return std::find(children_.begin(), children_.end(), pid); };
        return place(a.processIdentifier()) < place(b.processIdentifier());
    })) << "not oldest first";
    identifier_[0] = 'T';
    EXPECT_TRUE(running().empty()) << "case must count";
    identifier_[0] = 't';
}

TEST_F(ApplicationsTest, RenamedDeletedAndDead) {
    std::string app = makeBundle("One.app");
    const pid_t pid = spawn({app + "/Contents/MacOS/Probe"});
    ASSERT_EQ(running().size(), 1U);
    std::filesystem::rename(app, folder_ / "Renamed.app");
    app = folder_ / "Renamed.app";
    ASSERT_EQ(running().size(), 1U);
    EXPECT_EQ(running().front().bundlePath(), app);
    std::filesystem::remove(app + "/Contents/MacOS/Probe");
    EXPECT_EQ(running().size(), 1U) << "an update replaces the file of a running application";
    kill(pid, SIGKILL);
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
    EXPECT_TRUE(running().empty()) << "a zombie does not run";
}

TEST_F(ApplicationsTest, LaunchingTogetherStartsOneThatInheritsNothing) {
    const int leaked = open("/dev/zero", O_RDONLY);  // deliberately without close-on-exec
    (void)signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);

    size_t expected = 0;
    for (const bool script : {false, true}) {
        const std::string app = makeBundle(script ? "Script.app" : "Binary.app", script);
        std::filesystem::create_directory_symlink(app, folder_ / (script ? "s" : "b"));
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([&, i] {
                const std::string path = i % 2 == 0 ? app : folder_ / (script ? "s" : "b");
                EXPECT_TRUE(NSWorkspace::sharedWorkspace().launchApplication(path));
            });
        }
        for (std::thread& thread : threads) thread.join();
        EXPECT_TRUE(NSWorkspace::sharedWorkspace().launchApplication(app)) << "running already is no failure";
        ++expected;
        ASSERT_TRUE(eventually([&] { return reports().size() >= expected; }));
        EXPECT_EQ(running().size(), expected);
        for (const std::string& report : reports()) {
            EXPECT_EQ(report.substr(6), " 0 0 / /dev/null /dev/null /dev/null");
            EXPECT_NE(report.substr(0, 6), "member");
        }
    }
    close(leaked);
    (void)signal(SIGPIPE, SIG_DFL);
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);

    // Ended children leave the process table without anybody asking.
    const Applications all = running();
    ASSERT_EQ(all.size(), 2U);
    close(std::exchange(hold_, -1));
    for (const NSRunningApplication& each : all) {
        EXPECT_TRUE(eventually([&] { return kill(each.processIdentifier(), 0) != 0; })) << "a zombie stayed";
    }
}

TEST_F(ApplicationsTest, LaunchingRefuses) {
    makeBundle("NoName");
    for (const char* name : {"NoName", "NotThere.app"}) {
        EXPECT_FALSE(NSWorkspace::sharedWorkspace().launchApplication(folder_ / name)) << name;
    }
    makeBundle("One.app");
    EXPECT_FALSE(NSWorkspace::sharedWorkspace().launchApplication("One.app")) << "relative";
    EXPECT_FALSE(NSWorkspace::sharedWorkspace().launchApplication(""));
    EXPECT_TRUE(reports().empty());
}

TEST(ProcessTexts, AreReadWithCare) {
    char state = 0;
    uint64_t start = 0;
    const std::string fields = " 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 4711 20";
    EXPECT_TRUE(processes::parseStat("7 (a) Z 9) (b) S" + fields, state, start));
    EXPECT_EQ(state, 'S');
    EXPECT_EQ(start, 4711U);
    for (const char* bad : {"", "7 (a", "7 (a)", "7 (a) S", "7 (a) S 1 2 3"}) {
        EXPECT_FALSE(processes::parseStat(bad, state, start)) << bad;
    }
    const struct {
        const char *executable, *bundle;
    } table[] = {{"/a/X.app/Contents/MacOS/x", "/a/X.app"},
                 {"/a/X.app/Contents/MacOS/sub/x", "/a/X.app"},
                 {"/X.app/Contents/MacOS/Y.app/Contents/MacOS/y", "/X.app/Contents/MacOS/Y.app"},
                 {"/a/X.app/Contents/MacOS/", ""},
                 {"/a/.app/Contents/MacOS/x", ""},
                 {"/a/X.bundle/Contents/MacOS/x", ""},
                 {"/bin/sh", ""}};
    for (const auto& [executable, bundle] : table) {
        EXPECT_EQ(processes::bundleOfExecutable(executable), bundle) << executable;
    }
    using Texts = std::vector<std::string>;
    EXPECT_EQ(processes::scriptCandidates(std::string("sh\0-e\0/s\0x\0y\0", 13)), (Texts{"-e", "/s", "x"}));
    EXPECT_EQ(processes::scriptCandidates(std::string("sh\0cut off", 10)), Texts{});
    EXPECT_EQ(processes::scriptCandidates(""), Texts{});
}
