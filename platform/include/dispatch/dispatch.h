// Queues and timer sources: the subset of the platform's dispatch interface that this project calls.
//
// Work is handed over as a `dispatch_block_t`. The main queue is serial and is drained by `dispatch_main` or by the
// application's run loop; the global queue starts its blocks in order on a pool of worker threads and runs them side by
// side. A block may run on any thread of the pool, so nothing may be kept in thread-local storage between two blocks.
// Blocks run under a trampoline: `std::bad_alloc` leaving a block drops that block's work and the process goes on; any
// other exception ends the process.
//
// References: a create call gives the caller one reference; retain and release are atomic. The queues returned by
// `dispatch_get_main_queue` and `dispatch_get_global_queue` live for ever and need no reference.
#pragma once

#include <cstdint>
#include <functional>

struct dispatch_queue_s;
struct dispatch_source_s;
struct dispatch_source_type_s;

using dispatch_queue_t = dispatch_queue_s*;
using dispatch_source_t = dispatch_source_s*;
using dispatch_source_type_t = const dispatch_source_type_s*;
using dispatch_block_t = std::function<void()>;

/// A point on the monotonic clock, in nanoseconds; the clock stands still while the machine sleeps.
using dispatch_time_t = uint64_t;

constexpr dispatch_time_t DISPATCH_TIME_NOW = 0;
constexpr dispatch_time_t DISPATCH_TIME_FOREVER = ~static_cast<dispatch_time_t>(0);
constexpr long DISPATCH_QUEUE_PRIORITY_DEFAULT = 0;

extern const dispatch_source_type_s _dispatch_source_type_timer;
#define DISPATCH_SOURCE_TYPE_TIMER (&_dispatch_source_type_timer)

// ---- Queues

dispatch_queue_t dispatch_get_main_queue();

/// The concurrent queue of default priority; `priority` and `flags` take DISPATCH_QUEUE_PRIORITY_DEFAULT and 0 only
/// (null otherwise).
dispatch_queue_t dispatch_get_global_queue(long priority, unsigned long flags);

/// A new serial queue over the worker pool; `label` and `attributes` are not used and may be null. Throws
/// std::bad_alloc.
dispatch_queue_t dispatch_queue_create(const char* label, void* attributes);

/// Runs `block` on `queue` later, never inside this call. Callable from any thread. Throws std::bad_alloc, and the
/// block then does not run. A block that waits holds a reference to its queue.
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);

void dispatch_retain(dispatch_queue_t queue);
void dispatch_release(dispatch_queue_t queue);

/// Serves the main queue on the calling thread, which must be the process's first; never returns.
[[noreturn]] void dispatch_main();

// ---- Time

/// `when` (DISPATCH_TIME_NOW or an earlier result) moved by `delta` nanoseconds. A result beyond INT64_MAX is
/// DISPATCH_TIME_FOREVER; one before the clock's beginning is the smallest point that is not DISPATCH_TIME_NOW.
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);

// ---- Timer sources

/// A suspended source that fires on `queue`. `type` is DISPATCH_SOURCE_TYPE_TIMER, `handle` and `mask` are 0. Null only
/// when memory is out (or on another type).
dispatch_source_t dispatch_source_create(dispatch_source_type_t type, uintptr_t handle, unsigned long mask,
                                         dispatch_queue_t queue);

/// First firing at `start`, then every `interval` nanoseconds (counted from `start`, so a late firing does not shift
/// the later ones). `interval` DISPATCH_TIME_FOREVER (or 0) fires once and leaves the source alive; `start`
/// DISPATCH_TIME_FOREVER never fires. A source never fires early; `leeway` is a permission to be late and is not used.
/// Callable from any thread once the source was resumed; before that, by whoever is setting it up.
void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, uint64_t interval, uint64_t leeway);

/// The block that runs at each firing; destroyed with the source, never while it runs. Set before the first resume. The
/// handler is never run twice at once for one source: occurrences that fall due while it runs or waits are coalesced
/// into one call.
void dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t handler);

/// Number of occurrences since the last call of the handler; meaningful inside the handler only.
unsigned long dispatch_source_get_data(dispatch_source_t source);

/// No call of the handler starts after this one returns; a call that has started is not interrupted and not waited for.
/// Legal from any thread, the source's own handler included. Idempotent.
void dispatch_source_cancel(dispatch_source_t source);

/// Arms the source. Once: resuming a running source is an error of the caller.
void dispatch_resume(dispatch_source_t source);

/// A source may be released as soon as it is cancelled, also while its handler runs: the runtime holds its own
/// reference for a call in flight.
void dispatch_retain(dispatch_source_t source);
void dispatch_release(dispatch_source_t source);
