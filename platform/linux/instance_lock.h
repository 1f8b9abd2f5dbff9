// The lock file beside the store: whoever holds it is the one running instance, and the only writer of the store.
//
// A lock of the kind that belongs to the open file (flock), so it ends with the process however that ends, and no other
// open or close of the file disturbs it. The file holds two lines, the holder's pid and the second since 1970 in which
// it started; they mean something only while the lock is held.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "unique_fd.h"

namespace instance_lock {

enum class Result { taken, heldByAnother, unavailable };

/// Makes the folder and the file as needed and takes the lock, waiting at most `milliseconds` for another holder to
/// end. `lock` holds it until it is closed. What stands at its name and is no regular file of ours is removed first.
/// Unavailable: the file cannot be made, or the file system has no locks.
Result take(const std::string& directory, int milliseconds, UniqueFd& lock);

/// Keeps an instance from starting while it lives (a moment only: a starting one waits); empty when one runs, or when
/// there is no file to lock. `held` tells the two apart.
UniqueFd share(const std::string& directory, bool& held);

struct Holder {
    pid_t pid = 0;
    int64_t startedAt = 0;
};
/// What the holder wrote; zeros when it could not.
Holder readHolder(const std::string& directory);

}  // namespace instance_lock
