#include "file_status.h"

#include <cerrno>
#include <cstdlib>
#include <memory>

bool statFile(const std::string& path, struct stat& status) {
    while (stat(path.c_str(), &status) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

bool statLink(const std::string& path, struct stat& status) {
    while (lstat(path.c_str(), &status) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

std::string resolvedPath(const std::string& path) {
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
    return real == nullptr ? std::string() : std::string(real.get());
}
