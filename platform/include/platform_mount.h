// Where file systems are mounted.
#pragma once

#include <cstddef>

/// Writes the directory on which the file system that holds `path` is mounted, cut to `size` bytes with its terminator.
/// Links in the path are followed; a relative path is taken against the current directory. False, with `out` untouched,
/// when the path does not exist or cannot be reached, when the mount cannot be told, or when `size` is 0.
bool platform_mount_point(const char* path, char* out, size_t size);
