// What the tests of messages share: raw frames, a private runtime directory, and a log that threads write and tests
// wait on.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <platform_testing.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <xpc/xpc.h>

#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/unique_fd.h"
#include "platform/linux/wire_format.h"
#include "tests/support/TemporaryFolder.h"

using Bytes = std::string;

template <typename Value>
Bytes raw(Value value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

inline Bytes pad(Bytes bytes) {
    bytes.resize(wire::padded(bytes.size()));
    return bytes;
}

/// An entry from bytes as they stand: `key` and `value` come with their terminators.
inline Bytes entry(const Bytes& key, wire::Type type, const Bytes& value) {
    return raw(wire::EntryHeader{static_cast<uint32_t>(value.size()), static_cast<uint16_t>(key.size()),
                                 static_cast<uint8_t>(type), 0}) +
           pad(key) + pad(value);
}

inline Bytes text(const char* characters) {
    return {characters, std::strlen(characters) + 1};
}

/// A frame around entries, with its length right.
inline Bytes frame(const Bytes& entries, uint32_t count, wire::FrameHeader header = {0, 1, 1, 0, 0, 0, 0}) {
    header.length = static_cast<uint32_t>(sizeof header + entries.size());
    header.entries = count;
    return raw(header) + entries;
}

/// Events in order; `wait` blocks until there are `count`, or until ctest's limit ends a test that hangs.
class Log {
  public:
    void add(const std::string& event) {
        const std::lock_guard lock(mutex_);
        events_.push_back(event);
        changed_.notify_all();
    }
    std::vector<std::string> wait(size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return events_.size() >= count; });
        return events_;
    }
    size_t size() {
        const std::lock_guard lock(mutex_);
        return events_.size();
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> events_;
};

inline size_t openDescriptors() {
    size_t count = 0;
    for (const auto& item : std::filesystem::directory_iterator("/proc/self/fd")) count += item.exists() ? 1 : 0;
    return count;
}

/// A raw socket in the place of a client; empty when nobody listens at `path`.
inline UniqueFd rawClient(const std::string& path) {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) fd.reset();
    return fd;
}

/// A directory of its own that XDG_RUNTIME_DIR names.
class RuntimeDirectory {
  public:
    explicit RuntimeDirectory(const std::string& below = "") {
        path = root_.path() + below;
        std::filesystem::create_directories(path);
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        setenv("XDG_RUNTIME_DIR", path.c_str(), 1);
    }

    [[nodiscard]] std::string services() const { return path + "/mach-services"; }
    std::string path;

  private:
    TemporaryFolder root_;
};

/// One reference to an object, given back at the end of the scope.
class Held {
  public:
    explicit Held(xpc_object_t object = nullptr) : object_(object) {}
    ~Held() { xpc_release(object_); }
    Held(Held&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Held& operator=(Held&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    operator xpc_object_t() const { return object_; }
    xpc_connection_t connection() const { return static_cast<xpc_connection_t>(object_); }

  private:
    xpc_object_t object_;
};

inline Held message(int64_t number) {
    Held made(xpc_dictionary_create(nullptr, nullptr, 0));
    xpc_dictionary_set_int64(made, "n", number);
    return made;
}

/// "n=7" for a message, the error's name for an error, "peer" for a connection.
inline std::string describe(xpc_object_t event) {
    if (event == XPC_ERROR_CONNECTION_INVALID) return "invalid";
    if (event == XPC_ERROR_CONNECTION_INTERRUPTED) return "interrupted";
    if (xpc_get_type(event) == XPC_TYPE_CONNECTION) return "peer";
    if (xpc_get_type(event) == XPC_TYPE_DICTIONARY) return "n=" + std::to_string(xpc_dictionary_get_int64(event, "n"));
    return "?";
}
