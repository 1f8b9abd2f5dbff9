// Threads of the runtime, and the place where one of them sleeps.
#pragma once

#include <atomic>
#include <cstdint>

namespace runtime {

/// Which signals a new thread takes. Workers take those that the thread which started the runtime takes, so that a
/// program that keeps signals to one thread of its own is not disturbed. The io thread blocks all but the faults that
/// an instruction raises (a blocked one would kill without a handler); the ending thread blocks every one.
enum class Signals { asAtStart, faultsOnly, none };

/// Keeps the calling thread's signal mask for `asAtStart`. Before the first thread.
void keepSignalMask() noexcept;

/// Starts a thread that is never joined and whose `body` never returns. Stack of 1 MiB: the handlers above size some of
/// their scratch from their input. `name` shows in a debugger (at most 15 bytes). False when the system has no thread
/// to give.
[[nodiscard]] bool startThread(const char* name, void (*body)(), Signals signals) noexcept;

/// The same for the threads without which nothing works: tries for a second, then ends the process by SIGABRT.
void startVitalThread(const char* name, void (*body)(), Signals signals) noexcept;

/// Never returns. Signals are still handled where they are open.
[[noreturn]] void parkForGood() noexcept;

/// One thread's bed. `wake` leaves a token that one `wait` takes; a system call is made only if the thread sleeps. No
/// spinning on either side.
class Parking {
  public:
    void wait() noexcept;  // by the owner only
    void wake() noexcept;  // by anyone; never twice for one wait

  private:
    enum : uint32_t { empty, token, asleep };
    std::atomic<uint32_t> state_{empty};
};

}  // namespace runtime
