// The processes that are running applications, found by looking through /proc.
//
// A process is one when its executable lies in X.app/Contents/MacOS, or when it interprets a script that does: the
// first of its arguments 1 to 3 that names a file there, and the file is the one that the bundle calls its executable.
// Only processes of our own user count, no zombies. Of a process that is none, one link and at most its arguments are
// read; start times are read for those that are.
//
// A look costs some microseconds for each process of the machine, and takes that long: what begins behind its back is
// missed. So a launch, which asks under its lock whether the application runs, may take the look that its own thread
// has just made for the same question, if it did not have to wait for the lock and nothing was launched since.
#pragma once

#include <AppKit/AppKit.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

struct ApplicationProcess {
    pid_t pid = 0;
    uint64_t startTime = 0;  // clock ticks since boot
    std::string bundlePath;  // absolute, links resolved
};

/// All of them, oldest first. Processes that end or begin meanwhile may be missed. The look is kept for the calling
/// thread's next `takeRecentLook`, until another thread looks. May throw std::bad_alloc.
std::vector<ApplicationProcess> findApplicationProcesses();

/// The calling thread's last look, if it ended at most 5 ms ago and `forgetOlderLooks` was not called since it began;
/// otherwise a new one. Each look is given out once. May throw std::bad_alloc.
std::vector<ApplicationProcess> takeRecentLook();

/// To be called once a launched process exists, before anybody else may ask whether to launch it: no look that began
/// before is taken for recent any more. Any thread.
void forgetOlderLooks() noexcept;

namespace processes {

/// The bundle that holds `executable` (".../X.app" for ".../X.app/Contents/MacOS/..."); "" when none does.
std::string bundleOfExecutable(const std::string& executable);

/// Field 22 of /proc/PID/stat, and the state letter; false when `text` is no such line. The name in it may hold
/// anything.
bool parseStat(const std::string& text, char& state, uint64_t& startTime);

/// Arguments 1 to 3 of a /proc/PID/cmdline text.
std::vector<std::string> scriptCandidates(const std::string& commandLine);

}  // namespace processes
