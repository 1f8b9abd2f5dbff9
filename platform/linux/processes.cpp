#include "processes.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <tuple>
#include <utility>

#include "clock.h"
#include "file_status.h"
#include "info_plist.h"
#include "runtime.h"
#include "unique_fd.h"

namespace {

constexpr std::string_view kInside = ".app/Contents/MacOS/";
constexpr std::string_view kDeleted = " (deleted)";
constexpr size_t kMostArguments = 16384;  // bytes looked at for arguments 1 to 3

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// What the link `name` under `directory` points to; "" when it cannot be read (no executable, not ours, gone).
std::string readLink(int directory, const char* name) {
    std::array<char, PATH_MAX> target;  // NOLINT: filled by the call
    const ssize_t length = readlinkat(directory, name, target.data(), target.size());
    if (length <= 0 || static_cast<size_t>(length) == target.size()) return {};
    return {target.data(), static_cast<size_t>(length)};
}

// A read that brings less than was asked for has met the end: these files are made up while they are read, and the
// kernel goes on until it has filled what it was given.
std::string readText(int directory, const char* name, size_t limit) {
    UniqueFd file(openat(directory, name, O_RDONLY | O_CLOEXEC));
    std::string text;
    while (file && text.size() < limit) {
        std::array<char, 4096> part;  // NOLINT: filled by the call
        const size_t wanted = std::min(part.size(), limit - text.size());
        const ssize_t got = read(file.get(), part.data(), wanted);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        text.append(part.data(), static_cast<size_t>(got));
        if (static_cast<size_t>(got) < wanted) break;
    }
    return text;
}

std::string withoutDeletedMark(std::string path) {
    if (endsWith(path, kDeleted)) path.resize(path.size() - kDeleted.size());
    return path;
}

// One process, read through its own folder: once that is open, every name in it means this process or fails, even when
// the number has been given to another.
class Process {
  public:
    Process(int directory, const char* prefix) : directory_(directory), prefix_(prefix) {}

    // The bundle that it runs; "" when it is no application.
    [[nodiscard]] std::string bundle() const {
        const std::string executable = readLink(directory_, name("exe").data());
        if (executable.empty()) return {};
        std::string path = processes::bundleOfExecutable(executable);
        return path.empty() ? scriptBundle() : path;
    }

  private:
    [[nodiscard]] std::array<char, 32> name(const char* file) const {
        std::array<char, 32> text{};
        std::strncat(std::strncpy(text.data(), prefix_, 16), file, 15);
        return text;
    }

    [[nodiscard]] std::string scriptBundle() const {
        const std::string commandLine = readText(directory_, name("cmdline").data(), kMostArguments);
        std::string here;
        for (const std::string& argument : processes::scriptCandidates(commandLine)) {
            if (argument.empty() || argument.front() == '-') continue;
            if (argument.front() != '/' && here.empty()) {
                here = withoutDeletedMark(readLink(directory_, name("cwd").data())) + '/';
            }
            std::string bundle = bundleOfScript(argument.front() == '/' ? argument : here + argument);
            if (!bundle.empty()) return bundle;
        }
        return {};
    }

    static std::string bundleOfScript(const std::string& path) {
        // Most arguments of most processes end here, without a look at the disk.
        if (path.find("/MacOS/") == std::string::npos) return {};
        const std::string script = resolvedPath(path);
        std::string bundle = processes::bundleOfExecutable(script);
        if (bundle.empty()) return {};
        const InfoPlist plist = InfoPlist::ofBundle(bundle);
        const std::string* executable = plist.text("CFBundleExecutable");
        const bool isIt = executable != nullptr && executable->find('/') == std::string::npos &&
                          script == resolvedPath(bundle + "/Contents/MacOS/" + *executable);
        return isIt ? bundle : std::string();
    }

    int directory_;
    const char* prefix_;  // "PID/" under /proc, or "" in the process's own folder
};

// Looks at a process again by its own folder and with its start time; false when it is not, or no longer, running as an
// application of ours.
bool confirm(int proc, const char* number, ApplicationProcess& found) {
    const UniqueFd folder(openat(proc, number, O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    if (!folder || fstat(folder.get(), &status) != 0 || status.st_uid != geteuid()) return false;
    found.bundlePath = Process(folder.get(), "").bundle();
    char state = '\0';
    if (found.bundlePath.empty()) return false;
    if (!processes::parseStat(readText(folder.get(), "stat", 4096), state, found.startTime)) return false;
    const std::string_view name(number);
    return state != 'Z' && state != 'X' &&
           std::from_chars(name.data(), name.data() + name.size(), found.pid).ec == std::errc();
}

}  // namespace

namespace processes {

std::string bundleOfExecutable(const std::string& executable) {
    const size_t at = executable.rfind(kInside);
    if (at == std::string::npos || at == 0 || executable[at - 1] == '/') return {};
    if (at + kInside.size() == executable.size()) return {};
    return executable.substr(0, at + std::strlen(".app"));
}

bool parseStat(const std::string& text, char& state, uint64_t& startTime) {
    // "PID (name) S 4 5 ...": the name may hold blanks and brackets, the rest does not.
    constexpr int kFieldsToStartTime = 19;
    size_t at = text.rfind(')');
    if (at == std::string::npos || at + 2 >= text.size()) return false;
    at += 2;
    state = text[at];
    for (int field = 0; field < kFieldsToStartTime; ++field) {
        at = text.find(' ', at);
        if (at == std::string::npos) return false;
        ++at;
    }
    return std::from_chars(text.data() + at, text.data() + text.size(), startTime).ec == std::errc();
}

std::vector<std::string> scriptCandidates(const std::string& commandLine) {
    std::vector<std::string> arguments;
    size_t at = commandLine.find('\0');
    while (arguments.size() < 3 && at != std::string::npos && at + 1 < commandLine.size()) {
        const size_t end = commandLine.find('\0', at + 1);
        if (end == std::string::npos) break;  // cut off: not a whole name
        arguments.push_back(commandLine.substr(at + 1, end - at - 1));
        at = end;
    }
    return arguments;
}

}  // namespace processes

namespace {

std::vector<ApplicationProcess> lookThroughProcesses() {
    runtime::expectToBlock();
    std::vector<ApplicationProcess> found;
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir("/proc"), closedir);
    if (listing == nullptr) return found;
    const int proc = dirfd(listing.get());
    while (const dirent* entry = readdir(listing.get())) {
        if (entry->d_name[0] < '1' || entry->d_name[0] > '9' || std::strlen(entry->d_name) > 12) continue;
        const std::string prefix = std::string(entry->d_name) + '/';
        if (Process(proc, prefix.c_str()).bundle().empty()) continue;
        ApplicationProcess process;
        if (confirm(proc, entry->d_name, process)) found.push_back(std::move(process));
    }
    std::sort(found.begin(), found.end(), [](const ApplicationProcess& a, const ApplicationProcess& b) {
        return std::tie(a.startTime, a.pid) < std::tie(b.startTime, b.pid);
    });
    return found;
}

// ---- Recent looks

constexpr uint64_t kRecent = 5'000'000;  // nanoseconds; a look among some hundred processes takes as long

std::atomic<uint64_t> launches{0};

// The last look of all threads, and whose it was. Not one for each thread: without memory to note its destructor the C
// library would end the process.
struct Look {
    std::mutex mutex;
    std::vector<ApplicationProcess> found;
    std::thread::id by;
    uint64_t launchesBefore = 0;
    uint64_t ended = 0;  // 0: none, or given out
};

Look& lastLook() {
    static Look& object = *new Look;
    return object;
}

}  // namespace

std::vector<ApplicationProcess> findApplicationProcesses() {
    const uint64_t launchesBefore = launches.load(std::memory_order_acquire);
    std::vector<ApplicationProcess> found = lookThroughProcesses();
    Look& look = lastLook();
    const std::lock_guard lock(look.mutex);
    look.ended = 0;
    look.found = found;
    look.by = std::this_thread::get_id();
    look.launchesBefore = launchesBefore;
    look.ended = runtime::steadyNow();
    return found;
}

std::vector<ApplicationProcess> takeRecentLook() {
    {
        Look& look = lastLook();
        const std::lock_guard lock(look.mutex);
        const bool recent = look.ended != 0 && look.by == std::this_thread::get_id() &&
                            runtime::steadyNow() - look.ended <= kRecent &&
                            look.launchesBefore == launches.load(std::memory_order_acquire);
        if (recent) {
            look.ended = 0;
            return std::move(look.found);
        }
    }
    return lookThroughProcesses();
}

void forgetOlderLooks() noexcept {
    launches.fetch_add(1, std::memory_order_acq_rel);
}
