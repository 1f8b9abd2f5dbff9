// The helper's application delegate: start-up, the two owners of what lives for the whole run, the launch and detection
// of the main application, and the way to the end.
//
// The owners are assigned on the main thread before any other thread can see what they hold. When the process ends, the
// ending thread stops the firings, then destroys the server, and the statics' destructors the rest: the server, if it
// is still there, before the sink. Events that are still inside the server keep it until they leave.
#pragma once

#include <AppKit/AppKit.h>
#include <CoreServices/CoreServices.h>

#include "app/LScheduleHelperNotify.h"
#include "base/LPtr.h"
#include "xpc/LXPCServer.h"

/// The one event sink and scheduler; null until launching has finished.
extern LPtr<LScheduleHelperNotify> pXpcNotifyee;
/// The one server; null while no service is offered.
extern LPtr<LXPCMachServer> pXPCServer;

/// True on version 10.7 and later of the system that the platform layer stands for. Asked once per process.
inline bool IsOSMacLionOrLater() {
    static const bool bIsLionOrLater = [] {
        int32_t major = 0;
        int32_t minor = 0;
        Gestalt(gestaltSystemVersionMajor, &major);  // a query that fails leaves the 0
        Gestalt(gestaltSystemVersionMinor, &minor);
        const auto lowByte = [](int32_t number) { return static_cast<uint32_t>(number) & 0xFFU; };
        return lowByte(major) == 10 ? lowByte(minor) > 6 : lowByte(major) > 10;
    }();
    return bIsLionOrLater;
}

class LScheduleHelper : public NSApplicationDelegate {
  public:
    /// The server, or null before there is one.
    virtual LXPCMachServer* getXPCServer();

    /// Ends the process with status 0 by the ending road, on which the server is destroyed. Does not return; any
    /// thread.
    virtual void shutdownHelper();

    /// Launches the application whose bundle is at `bundlePath`, unless that very bundle (the same directory, however
    /// it is reached) runs already under `bundleId`, and only in the version that the helper serves. Whatever fails,
    /// nothing is launched and nothing reported. Any thread.
    virtual void launchMainApp(const char* bundleId, const char* bundlePath);

    /// Makes the server, registers the request keys and starts it; does not return once the service is offered.
    virtual void startXPCServer();

    /// True when an application with the main application's identifier and name is running now.
    virtual bool isMainAppRunning();

    /// Start-up: refuses an old system, makes the sink, arms the stored schedules, and offers the service when the main
    /// application runs. Otherwise the helper keeps its schedules and offers none until it is started again.
    void applicationDidFinishLaunching() override;

    /// Destroys the server.
    void applicationWillTerminate() override;

    // ---- The two steps of the ending, without which no owner may go: nothing fires, and no event asks for the server.

    static void StopFirings();
    static void DestroyServer();
};
