#include "debug/LSignals.h"

#include <platform_ending.h>

#include "debug/LStaticOrder.h"

static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may not wait for a lock");

// Constant-initialised: it holds before any code runs.
std::atomic<bool> bLLibExceptionAlreadyTrapped{false};

[[gnu::init_priority(LSTATIC_ORDER_DIAGNOSTICS)]] LExceptionHandlerInstaller gLExceptionHandlerInstaller;

namespace {

bool IsFault(int signal) {
    return signal == SIGFPE || signal == SIGBUS || signal == SIGSEGV;
}

/// An instruction of this thread raised it, rather than somebody sending it: then the code is the kernel's own. A
/// terminal's SIGQUIT carries such a code as well, but no instruction raises that signal.
bool IsRaisedByInstruction(int signal, const siginfo_t* info) {
    return (IsFault(signal) || signal == SIGILL) && info != nullptr && info->si_code > 0;
}

using Handler = void (*)(int, siginfo_t*, void*);

void Install(int signal, Handler handler) {
    struct sigaction action {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO;
    sigfillset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

void SetPlain(int signal, void (*disposition)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = disposition;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

}  // namespace

void LDebugSignalHandler(int signal, siginfo_t* info, void* /*context*/) {
    const bool raised = IsRaisedByInstruction(signal, info);
    const bool first = !bLLibExceptionAlreadyTrapped.exchange(true);
    if (first && IsFault(signal)) {
        if (raised) platform_exit_from_fault(kLFaultExitStatus);
        platform_exit_from_signal(kLFaultExitStatus);
    } else if (raised) {
        SetPlain(signal, SIG_DFL, 0);  // the instruction runs again, and this time it ends the process
    }
}

void LIntTermSignalHandler(int signal, siginfo_t* /*info*/, void* /*context*/) {
    if (signal == SIGINT || signal == SIGTERM) platform_exit_from_signal(0);
}

LExceptionHandlerInstaller::LExceptionHandlerInstaller() {
    SetPlain(SIGPIPE, SIG_IGN, SA_RESTART);
    for (const int signal : {SIGQUIT, SIGILL, SIGFPE, SIGSEGV, SIGBUS}) Install(signal, LDebugSignalHandler);
    for (const int signal : {SIGINT, SIGTERM}) Install(signal, LIntTermSignalHandler);
}
