// How many descriptors the process may still open.
#pragma once

namespace runtime {

/// True when `wanted` more descriptors can be opened in this process.
bool hasFreeDescriptors(int wanted) noexcept;

}  // namespace runtime
