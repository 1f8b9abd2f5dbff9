// The signal dispositions of the process, set before main by the making of one static object.
//
//   SIGPIPE                          ignored: a write to a peer that has gone reports an error
//   SIGINT, SIGTERM                  the process ends in order, with status 0
//   SIGFPE, SIGBUS, SIGSEGV          the first ends the process in order, with status 666 (a parent sees 154)
//   SIGQUIT, SIGILL                  the first counts as trapped; the process goes on
//
// A signal that somebody sent and one that an instruction raised are told apart. A handler for a sent one only asks for
// the end and returns, so that the interrupted code can release what it holds, and never changes a disposition; once
// anything was trapped, a sent fault signal does nothing. A raised one cannot be returned from, since the instruction
// would raise it again for ever: the first SIGFPE, SIGBUS or SIGSEGV waits in its handler for the end; SIGILL, and
// whatever is raised after something was trapped, gets the default disposition and so ends the process by the signal.
// A stack that is used up cannot run a handler; the process then ends by SIGSEGV itself.
//
// Handlers run with every signal blocked and touch nothing but the flag and the request for the end.
#pragma once

#include <csignal>

#include <atomic>

/// The status of an end by a fault.
constexpr int kLFaultExitStatus = 666;

/// Set by the first call of LDebugSignalHandler, never cleared.
extern std::atomic<bool> bLLibExceptionAlreadyTrapped;

void LDebugSignalHandler(int signal, siginfo_t* info, void* context);
void LIntTermSignalHandler(int signal, siginfo_t* info, void* context);

/// Its constructor sets the dispositions.
struct LExceptionHandlerInstaller {
    LExceptionHandlerInstaller();
};
extern LExceptionHandlerInstaller gLExceptionHandlerInstaller;
