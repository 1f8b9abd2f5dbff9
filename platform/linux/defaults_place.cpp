#include "defaults_place.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "unique_fd.h"

namespace defaults_place {

namespace {

constexpr char kDirectoryName[] = "com.brindlewick.schedulehelper.orvinfree213";
constexpr char kFileName[] = "defaults.sqlite3";
constexpr char kSetAside[] = ".set-aside-";

std::string homeDirectory() {
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] == '/') return home;
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) return {};
    return found->pw_dir != nullptr && found->pw_dir[0] == '/' ? found->pw_dir : "";
}

bool exists(const std::string& path) {
    struct stat status {};
    return statLink(path, status) || errno != ENOENT;
}

// Makes one folder unless it is there. It survives a crash of the machine only when its entry above is on the disk too.
void makeOne(const std::string& directory) {
    if (mkdir(directory.c_str(), 0700) != 0) return;
    const UniqueFd above(open(directoryOf(directory).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (above) (void)fsync(above.get());
}

// Moves `from` to `to` without replacing anything. A `from` that is not there is moved already.
bool moveWithoutReplacing(const std::string& from, const std::string& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno == ENOENT) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    // A file system without that flag: a link never replaces.
    return link(from.c_str(), to.c_str()) == 0 && unlink(from.c_str()) == 0;
}

// What SQLite keeps beside a database. The logs go first: a log without its database says nothing, while one left
// beside a new database would be played into it.
constexpr std::array<const char*, 4> kFamily = {"-wal", "-shm", "-journal", ""};

std::string nameForSettingAside(const std::string& path) {
    const time_t now = time(nullptr);
    struct tm utc {};
    std::array<char, 32> stamp{};
    if (gmtime_r(&now, &utc) != nullptr) (void)strftime(stamp.data(), stamp.size(), "%Y%m%dT%H%M%SZ", &utc);
    const std::string base = path + kSetAside + stamp.data();
    std::string name = base;
    const auto taken = [&name](const char* suffix) { return exists(name + suffix); };
    for (unsigned i = 2; std::any_of(kFamily.begin(), kFamily.end(), taken); ++i) {
        if (i == 10000) return {};
        name = base + '-' + std::to_string(i);
    }
    return name;
}

}  // namespace

std::string standardDirectory() {
    const char* data = std::getenv("XDG_DATA_HOME");
    std::string base;
    if (data != nullptr && data[0] == '/') {
        base = data;
    } else {
        base = homeDirectory();
        if (base.empty()) return {};
        base += "/.local/share";
    }
    return base + '/' + kDirectoryName;
}

std::string standardPath() {
    const std::string directory = standardDirectory();
    return directory.empty() ? directory : directory + '/' + kFileName;
}

std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, std::max<size_t>(slash, 1));
}

bool makeDirectory(const std::string& directory) {
    if (directory.empty()) return false;
    struct stat status {};
    if (!statLink(directory, status)) {
        for (size_t slash = directory.find('/', 1); slash != std::string::npos;
             slash = directory.find('/', slash + 1)) {
            makeOne(directory.substr(0, slash));
        }
        makeOne(directory);
    }
    return directoryIsSafe(directory);
}

bool directoryIsSafe(const std::string& directory) {
    struct stat status {};
    return statLink(directory, status) && S_ISDIR(status.st_mode) && isOurs(status);
}

FileState examine(const std::string& path, FileIdentity& identity) {
    struct stat status {};
    const std::string directory = directoryOf(path);
    if (!statLink(directory, status))
        return errno == ENOENT || errno == ENOTDIR ? FileState::missing : FileState::unknown;
    if (!S_ISDIR(status.st_mode) || !isOurs(status)) return FileState::refused;
    if (!statLink(path, status)) return errno == ENOENT ? FileState::missing : FileState::unknown;
    if (!S_ISREG(status.st_mode) || !isOurs(status) || status.st_nlink != 1) return FileState::refused;
    identity = identityOf(status);
    return FileState::safe;
}

void closeToOthers(const std::string& path) {
    struct stat status {};
    const std::string directory = directoryOf(path);
    if (statLink(directory, status) && (status.st_mode & 077) != 0) (void)chmod(directory.c_str(), 0700);
    if (statLink(path, status) && (status.st_mode & 077) != 0) (void)chmod(path.c_str(), 0600);
}

bool createFile(const std::string& path) {
    const UniqueFd file(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    return file || errno == EEXIST;
}

bool setAside(const std::string& path) {
    const std::string name = nameForSettingAside(path);
    if (name.empty()) return false;
    return std::all_of(kFamily.begin(), kFamily.end(),
                       [&](const char* suffix) { return moveWithoutReplacing(path + suffix, name + suffix); });
}

std::vector<std::string> filesSetAside(const std::string& path) {
    std::vector<std::string> found;
    const std::string directory = directoryOf(path);
    const std::string prefix = path.substr(path.rfind('/') + 1) + kSetAside;
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(directory.c_str()), closedir);
    while (const dirent* entry = listing == nullptr ? nullptr : readdir(listing.get())) {
        const std::string name = entry->d_name;
        if (name.compare(0, prefix.size(), prefix) != 0) continue;
        const bool isBeside = std::any_of(kFamily.begin(), kFamily.end() - 1, [&name](const std::string& suffix) {
            return name.size() > suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
        });
        if (!isBeside) found.push_back(directory + '/' + name);
    }
    std::sort(found.begin(), found.end());
    return found;
}

}  // namespace defaults_place
