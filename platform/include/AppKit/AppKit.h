// The application object, running applications and launching: the subset of the platform's application classes that
// this project uses, as C++ classes named alike, each method named by the first word of its selector.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <Foundation/Foundation.h>

/// One user application that ran when it was looked for: a snapshot, not refreshed.
///
/// Running applications are the processes of this user whose executable, or whose script, lies in X.app/Contents/MacOS.
/// Any thread; each query scans the process table afresh.
class NSRunningApplication {
  public:
    /// Those whose Info.plist names exactly this identifier (case counts), oldest first; possibly none.
    static std::vector<NSRunningApplication> runningApplicationsWithBundleIdentifier(const NSString& identifier);

    /// Nothing when the bundle has no readable Info.plist, or names none.
    [[nodiscard]] const std::optional<NSString>& bundleIdentifier() const { return bundleIdentifier_; }
    /// The name for people: CFBundleDisplayName, else CFBundleName, else the bundle's file name without ".app".
    [[nodiscard]] const NSString& localizedName() const { return localizedName_; }
    /// Absolute path of the bundle, links resolved. Empty when there is none.
    [[nodiscard]] const NSString& bundlePath() const { return bundlePath_; }
    [[nodiscard]] pid_t processIdentifier() const { return processIdentifier_; }

  private:
    friend struct ProcessScan;  // platform/linux fills one in
    std::optional<NSString> bundleIdentifier_;
    NSString localizedName_;
    NSString bundlePath_;
    pid_t processIdentifier_ = 0;
};

class NSWorkspace {
  public:
    static NSWorkspace& sharedWorkspace();

    /// Starts the application whose bundle is at `path` (absolute) unless that bundle runs already: true in both cases.
    /// One launch at a time per bundle, so two calls start one process: under that lock the process table is looked at
    /// again, unless the calling thread looked within the last 5 ms, the lock was free and nothing was launched since.
    /// The application gets a session of its own, no descriptor of ours but /dev/null on 0, 1 and 2, default signals,
    /// the working directory "/" and our environment; it outlives us. Any thread.
    bool launchApplication(const NSString& path);
};

/// What the application object tells the application.
class NSApplicationDelegate {
  public:
    virtual ~NSApplicationDelegate() = default;
    /// Once, on the main thread, before its loop is served. May never return (it may hand the thread to dispatch_main).
    virtual void applicationDidFinishLaunching() = 0;
    /// Before the application ends by NSApplication::terminate; not called on any other road to the end.
    virtual void applicationWillTerminate() = 0;
};

/// Supplied by the application: makes its delegate. Called once by NSApplicationMain, which owns the result for the
/// life of the process (it is never destroyed).
std::unique_ptr<NSApplicationDelegate> NSApplicationCreateDelegate();

/// The application's life: takes the instance lock beside the user's store (a second instance waits up to 2 s for an
/// ending one, then returns 0), starts the runtime, makes the delegate, tells it that launching has finished, and
/// serves the main queue. The process ends by platform_exit, a signal, or NSApplication::terminate; otherwise this does
/// not return.
int NSApplicationMain(int argc, char** argv);

class NSApplication {
  public:
    static NSApplication& sharedApplication();
    /// Tells the delegate that the application will terminate, on the main thread, and ends the process with status 0.
    /// Callable from any thread. Nothing on this platform calls it by itself.
    void terminate();
};
