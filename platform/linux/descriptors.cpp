#include "platform/linux/descriptors.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "platform/linux/unique_fd.h"

namespace runtime {

namespace {

constexpr int numbersPerLook = 64;

}  // namespace

// poll tells of each number whether it is open. The system gives out the lowest free number first, so the look starts
// there, and usually the first window suffices.
bool hasFreeDescriptors(int wanted) noexcept {
    const UniqueFd probe(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    const UniqueFd other(probe ? -1 : open("/", O_PATH | O_CLOEXEC));  // standard input may be closed
    const int lowest = std::max(probe.get(), other.get());
    rlimit limit{};
    if (lowest < 0 || getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
    const auto end = static_cast<int>(std::min<rlim_t>(limit.rlim_cur, INT32_MAX));
    int found = 1;
    for (int from = lowest + 1; found < wanted && from < end; from += numbersPerLook) {
        std::array<pollfd, numbersPerLook> look{};
        const int count = std::min(numbersPerLook, end - from);
        for (int i = 0; i < count; ++i) look[static_cast<size_t>(i)].fd = from + i;
        if (poll(look.data(), static_cast<nfds_t>(count), 0) < 0) return false;
        for (int i = 0; i < count; ++i) found += (look[static_cast<size_t>(i)].revents & POLLNVAL) != 0 ? 1 : 0;
    }
    return found >= wanted;
}

}  // namespace runtime
