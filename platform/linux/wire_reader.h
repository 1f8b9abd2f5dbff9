// The one place where bytes of another process are judged.
//
// What passes can be walked with wire::Entry without a further look at a bound: every entry lies inside the frame,
// every key and string ends with its only NUL, no key comes twice, sizes fit types and counts agree. What does not pass
// costs the sender its connection; there is no partial acceptance.
#pragma once

#include <cstddef>

#include "platform/linux/wire_format.h"

namespace wire {

enum class Verdict {
    Incomplete,  // so far nothing is wrong; more bytes are needed
    Complete,    // a frame of `length` bytes stands at the front; its entries have not been looked at
    Malformed,
};

/// Looks at the front of what a socket delivered. `length` is set with Complete. A claimed length is judged as soon as
/// its four bytes are there, so nothing is ever reserved on a peer's word.
Verdict measure(const unsigned char* bytes, size_t available, size_t* length);

/// True when the complete frame of `length` bytes at `frame` is well-formed.
bool check(const unsigned char* frame, size_t length);

}  // namespace wire
