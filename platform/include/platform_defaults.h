// Whether the standard user defaults know what their file holds.
#pragma once

namespace platform_defaults {

/// True when the file was read, or when there is none. While it is false (a lock of another program, an error of the
/// disk), the defaults answer with what was set in this process alone, and what is set or removed wins over the file
/// later. The file is tried again by each call of this, and by each flush that has something to write; at no other
/// time. The first reading waits at most 2 s at each lock, a flush 250 ms, and further calls of this do not wait. May
/// throw std::bad_alloc.
bool readStore();

}  // namespace platform_defaults
