// Looking at files by name, with the few twists that every caller needs: calls that a signal cut short are repeated,
// and a file is told from another by what the file system calls it.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <string>

struct FileIdentity {
    uint64_t device = 0;
    uint64_t inode = 0;
    friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

inline FileIdentity identityOf(const struct stat& status) {
    return {status.st_dev, status.st_ino};
}

/// Belongs to us, and nobody else may write to it.
inline bool isOurs(const struct stat& status) {
    return status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// Links followed. False with errno set.
bool statFile(const std::string& path, struct stat& status);

/// The link itself, if it is one. False with errno set.
bool statLink(const std::string& path, struct stat& status);

/// The absolute path with every link resolved; "" when it leads nowhere.
std::string resolvedPath(const std::string& path);
