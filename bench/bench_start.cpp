// From nothing to the first answer with so many schedules stored; and from a firing to the first line of the launched
// application's main with so many processes running.
//
// For the start both the helper and the bare program are asked by the same few lines: connect until somebody listens,
// write a request, read the answer. For the firing ours is the sink's own firing event, in this process; the bare
// counterpart looks once through the same files of /proc and spawns the same program.
#include <AppKit/AppKit.h>
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <platform_testing.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "app/LRequestKeys.h"
#include "app/LScheduleHelper.h"
#include "bench/support.h"
#include "platform/linux/wire_format.h"

namespace {

// ---- Start to first answer

/// The connection test as it stands on the wire.
std::string TestFrame() {
    const std::string key(kKeyTestConnection, sizeof kKeyTestConnection);
    wire::FrameHeader frame{};
    frame.length = static_cast<uint32_t>(sizeof frame + wire::entryBytes(key.size(), 1));
    frame.version = wire::version;
    frame.kind = static_cast<uint8_t>(wire::Kind::Request);
    frame.id = 1;
    frame.entries = 1;
    wire::EntryHeader entry{};
    entry.valueBytes = 1;
    entry.keyBytes = static_cast<uint16_t>(key.size());
    entry.type = static_cast<uint8_t>(wire::Type::Bool);
    std::string bytes(frame.length, '\0');
    std::memcpy(bytes.data(), &frame, sizeof frame);
    std::memcpy(bytes.data() + sizeof frame, &entry, sizeof entry);
    std::memcpy(bytes.data() + sizeof frame + sizeof entry, key.data(), key.size());
    bytes[sizeof frame + sizeof entry + wire::padded(key.size())] = 1;
    return bytes;
}

/// Through the folder's descriptor, since an address has room for short paths only.
int ConnectWhenThere(const std::string& path) {
    const size_t slash = path.rfind('/');
    std::filesystem::create_directories(path.substr(0, slash));
    std::filesystem::permissions(path.substr(0, slash), std::filesystem::perms::owner_all);
    static int folder = -1;
    close(folder);
    folder = open(path.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", folder, path.c_str() + slash + 1);
    for (int attempt = 0; attempt < 300'000; ++attempt) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return fd;
        close(fd);
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    throw std::runtime_error("nobody listens at " + path);
}

void AskOnce(const std::string& path) {
    static const std::string frame = TestFrame();
    const int fd = ConnectWhenThere(path);
    char answer[256];
    const bool answered = send(fd, frame.data(), frame.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(frame.size()) &&
                          read(fd, answer, sizeof answer) > 0;
    close(fd);
    if (!answered) throw std::runtime_error("no answer");
}

/// Starts by `start`, ends by `end`, and counts the time from one to the first answer at `socketPath`.
template <typename Begin, typename End>
void TimeToAnswer(benchmark::State& state, const std::string& socketPath, Begin begin, End end) {
    for (auto _ : state) {
        std::filesystem::remove(socketPath);
        const int64_t began = SteadyNanoseconds();
        begin();
        AskOnce(socketPath);
        state.SetIterationTime(static_cast<double>(SteadyNanoseconds() - began) * 1e-9);
        end();
    }
}

/// A store of as many schedules as the benchmark's argument says, all of them far ahead; none at all for 0.
void PrepareStore(const benchmark::State& state) {
    std::filesystem::remove_all(std::filesystem::path(StorePath()).parent_path());
    ReopenStore();
    const auto count = static_cast<size_t>(state.range(0));
    if (count > 0) StoreSchedules(count, HelperRun::Application(), 4'000'000'000);
    platform_testing::use_defaults_at("/nonexistent/defaults.sqlite3");  // and lets go of the file
}

void StartOurs(benchmark::State& state) {
    PrepareStore(state);
    HelperRun helper;
    AskOnce(HelperRun::Socket());
    helper.EndHelper();
    TimeToAnswer(
        state, HelperRun::Socket(), [&] { helper.StartHelper(); }, [&] { helper.EndHelper(); });
}

void StartBare(benchmark::State& state) {
    PrepareStore(state);
    const std::string folder = std::getenv("XDG_RUNTIME_DIR");
    const std::string path = folder + "/bare";
    std::unique_ptr<Child> bare;
    TimeToAnswer(
        state, path,
        [&] {
            bare = std::make_unique<Child>(std::vector<std::string>{BENCH_BARE, "start", StorePath(), folder});
        },
        [&] { bare.reset(); });
}

// ---- Firing to main

/// An application whose main says when it began, in this process's home; and the pipe on which it says it.
class Announcer {
  public:
    Announcer() {
        const std::string home = std::getenv("HOME");
        bundle = home + "/Orvin.app";
        executable = bundle + "/Contents/MacOS/Orvin";
        std::filesystem::create_directories(bundle + "/Contents/MacOS");
        std::filesystem::copy_file(HelperRun::Application() + "/Contents/Info.plist", bundle + "/Contents/Info.plist",
                                   std::filesystem::copy_options::overwrite_existing);
        std::filesystem::copy_file(BENCH_BARE, executable, std::filesystem::copy_options::overwrite_existing);
        const std::string path = home + "/hello";
        std::filesystem::remove(path);
        if (mkfifo(path.c_str(), 0600) != 0) throw std::runtime_error("no pipe");
        setenv("BENCH_HELLO", path.c_str(), 1);
        pipe_ = open(path.c_str(), O_RDWR | O_CLOEXEC);
    }
    ~Announcer() { close(pipe_); }
    Announcer(const Announcer&) = delete;
    Announcer& operator=(const Announcer&) = delete;

    /// Waits for the word; the nanosecond in which the main began. The process has gone when this returns.
    [[nodiscard]] int64_t Began() const {
        char text[64]{};
        if (read(pipe_, text, sizeof text - 1) <= 0) throw std::runtime_error("nothing was launched");
        char* after = nullptr;
        const int64_t began = std::strtoll(text, &after, 10);
        const auto pid = static_cast<pid_t>(std::strtol(after, nullptr, 10));
        while (kill(pid, 0) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return began;
    }

    std::string bundle;
    std::string executable;

  private:
    int pipe_ = -1;
};

size_t RunningProcesses() {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name[0] >= '1' && name[0] <= '9') ++count;
    }
    return count;
}

/// Idle processes until so many run in all as the benchmark's argument says.
class Crowd {
  public:
    explicit Crowd(const benchmark::State& state) {
        const size_t running = RunningProcesses();
        for (auto count = running; count < static_cast<size_t>(state.range(0)); ++count) {
            idle_.push_back(std::make_unique<Child>(std::vector<std::string>{"/bin/sleep", "1000"}));
        }
    }

  private:
    std::vector<std::unique_ptr<Child>> idle_;
};

template <typename Fire>
void TimeToMain(benchmark::State& state, const Announcer& announcer, Fire fire) {
    for (auto _ : state) {
        const int64_t fired = SteadyNanoseconds();
        fire();
        state.SetIterationTime(static_cast<double>(announcer.Began() - fired) * 1e-9);
    }
}

void LaunchOurs(benchmark::State& state) {
    const Announcer announcer;
    const Crowd crowd(state);
    LScheduleHelper helper;
    LScheduleHelperNotify sink;
    sink.delegate = &helper;
    LGCDScheduler& scheduler = sink;
    TimeToMain(state, announcer,
               [&] { scheduler.EvScheduleStart(kMainAppBundleId, announcer.bundle.c_str(), "Take 1"); });
}

/// One look: where every process's executable is, and the arguments of those that are ours to read.
size_t LookThroughProcesses() {
    DIR* const listing = opendir("/proc");
    const int proc = dirfd(listing);
    char text[16384];
    size_t bytes = 0;
    while (const dirent* entry = readdir(listing)) {
        if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
        char name[40];
        std::snprintf(name, sizeof name, "%.20s/exe", entry->d_name);
        if (readlinkat(proc, name, text, sizeof text) <= 0) continue;
        bytes += std::strstr(text, ".app/Contents/MacOS/") != nullptr ? 1 : 0;
        std::snprintf(name, sizeof name, "%.20s/cmdline", entry->d_name);
        const int file = openat(proc, name, O_RDONLY | O_CLOEXEC);
        if (file < 0) continue;
        const ssize_t got = read(file, text, sizeof text);
        if (got > 0) bytes += static_cast<size_t>(got);
        close(file);
    }
    closedir(listing);
    return bytes;
}

void LaunchBare(benchmark::State& state) {
    const Announcer announcer;
    const Crowd crowd(state);
    std::unique_ptr<Child> child;
    for (auto _ : state) {
        const int64_t fired = SteadyNanoseconds();
        benchmark::DoNotOptimize(LookThroughProcesses());
        child = std::make_unique<Child>(std::vector<std::string>{announcer.executable});
        std::thread collector([&child] { child->Collect(); });
        state.SetIterationTime(static_cast<double>(announcer.Began() - fired) * 1e-9);
        collector.join();
    }
}

void StoreSizes(benchmark::internal::Benchmark* bench) {
    bench->Arg(0)->Arg(1'000)->Arg(10'000)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);
}

void CrowdSizes(benchmark::internal::Benchmark* bench) {
    bench->Arg(200)->Arg(1'000)->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(StartOurs)->Name("start/ours")->Apply(StoreSizes);
BENCHMARK(StartBare)->Name("start/bare")->Apply(StoreSizes);
BENCHMARK(LaunchOurs)->Name("launch/ours")->Apply(CrowdSizes);
BENCHMARK(LaunchBare)->Name("launch/bare")->Apply(CrowdSizes);

}  // namespace

int main(int argc, char** argv) {
    return RunBenchmarks(argc, argv);
}
