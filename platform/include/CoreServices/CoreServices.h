// System queries of the platform's older services: the version, and whether a URL names a file that exists.
#pragma once

#include <cstdint>

#include <CoreFoundation/CoreFoundation.h>

using OSErr = short;
using OSType = uint32_t;

constexpr OSErr noErr = 0;
constexpr OSErr gestaltUndefSelectorErr = -5551;
constexpr OSType gestaltSystemVersionMajor = 0x73797331;  // 'sys1'
constexpr OSType gestaltSystemVersionMinor = 0x73797332;  // 'sys2'

/// Answers `selector` into `response`: 10 and 15 for the two above, the version that this layer stands for. Any other
/// selector gives gestaltUndefSelectorErr and leaves `response` as it was.
OSErr Gestalt(OSType selector, int32_t* response);

/// A file reference: the file system's own identity of a file.
struct FSRef {
    uint64_t device;
    uint64_t inode;
};

/// True when the URL's path names an existing file, folder or link (a link in last place is not followed);
/// `reference` then tells which.
Boolean CFURLGetFSRef(CFURLRef url, FSRef* reference);
