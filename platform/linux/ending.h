// The inner side of the ending: its thread, its descriptor, and the step that the defaults put into it.
//
// Whoever asks stores the status (the first one counts) and writes the exit descriptor. The io thread wakes up by it,
// wakes the ending thread, and from then on does nothing but sleep until the deadline: it reads no socket, accepts
// nobody, fires no timer. So whatever the ending thread gets stuck in, a static destructor included, the process ends.
#pragma once

namespace runtime {

/// What the ending thread calls between stopping the firings and destroying the server: one last try to store what is
/// dirty. Set by the defaults when they first hold anything; the result is not used, since there is nobody left to
/// tell.
void setFlushAtEnding(bool (*flush)()) noexcept;

/// Makes the exit descriptor, has the io loop watch it, and starts the ending thread. From then on the runtime counts
/// as up. By start() only.
void startEnding();

}  // namespace runtime
