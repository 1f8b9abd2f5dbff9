#include "bench/support.h"

#include <benchmark/benchmark.h>
#include <dispatch/dispatch.h>
#include <fcntl.h>
#include <platform_ending.h>
#include <platform_testing.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "app/LRequestKeys.h"
#include "scheduler/LScheduleStore.h"

extern char** environ;

namespace {

[[noreturn]] void Fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

int64_t SteadyNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void SleepUntil(int64_t steadyNanoseconds) {
    const timespec moment{static_cast<time_t>(steadyNanoseconds / 1'000'000'000),
                          static_cast<long>(steadyNanoseconds % 1'000'000'000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &moment, nullptr) == EINTR) {
    }
}

std::string OwnProgram() {
    return std::filesystem::read_symlink("/proc/self/exe").string();
}

// ---- Processes

Child::Child(const std::vector<std::string>& words, int descriptor) {
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    if (descriptor == 3) {
        fcntl(descriptor, F_SETFD, 0);
    } else if (descriptor >= 0) {
        posix_spawn_file_actions_adddup2(&actions, descriptor, 3);
    }
    errno = posix_spawn(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (errno != 0) Fail(arguments[0]);
}

Child::~Child() {
    if (collected_) return;
    kill(pid_, SIGKILL);
    Collect();
}

int Child::Collect() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    collected_ = true;
    return status;
}

StreamPair::StreamPair() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) Fail("socketpair");
    ours = ends[0];
    theirs = ends[1];
}

StreamPair::~StreamPair() {
    CloseTheirs();
    close(ours);
}

void StreamPair::CloseTheirs() {
    if (theirs >= 0) close(theirs);
    theirs = -1;
}

// ---- Stores

std::string ScheduleName(size_t number) {
    return "Take " + std::to_string(number);
}

void StoreSchedules(size_t count, const std::string& appPath, long start) {
    NSUserDefaults& store = NSUserDefaults::standardUserDefaults();
    NSMutableArray keys;
    for (size_t number = 0; number < count; ++number) {
        LScheduleRecord record;
        record.bundleId = kMainAppBundleId;
        record.appPath = appPath;
        record.skedName = ScheduleName(number);
        record.start = LDateTime(start);
        const std::string key = LScheduleKey(record.bundleId, record.appPath, record.skedName);
        store.setObject(LScheduleRecordToDictionary(record), key);
        keys.addObject(key);
    }
    store.setObject(keys, kScheduleIndexKey);
    if (!store.synchronize()) throw std::runtime_error("the store cannot be written");
}

std::string StorePath() {
    return std::string(std::getenv("XDG_DATA_HOME")) + "/com.brindlewick.schedulehelper.orvinfree213/defaults.sqlite3";
}

void ReopenStore() {
    platform_testing::use_defaults_at(StorePath());
}

// ---- The helper

HelperRun::HelperRun() {
    application_ =
        std::make_unique<Child>(std::vector<std::string>{Application() + "/Contents/MacOS/Orvin", "wait", "100000"});
    StartHelper();
}

void HelperRun::StartHelper() {
    helper_.reset();
    helper_ = std::make_unique<Child>(std::vector<std::string>{BENCH_HELPER});
}

std::string HelperRun::Application() {
    return BENCH_APPLICATION;
}

std::string HelperRun::Socket() {
    return std::string(std::getenv("XDG_RUNTIME_DIR")) + "/mach-services/" + kServiceName;
}

/// What the asking thread and the events share.
struct HelperClient::Waiting {
    std::mutex mutex;
    std::condition_variable changed;
    bool over = true;
    bool failed = false;
    const std::vector<LXPCData>* request = nullptr;  // these two are the main queue's while a chain runs
    int64_t left = 0;

    void End(bool badly) {
        const std::lock_guard lock(mutex);
        over = true;
        failed = failed || badly;
        changed.notify_all();
    }
};

HelperClient::HelperClient() : waiting_(std::make_unique<Waiting>()) {}
HelperClient::~HelperClient() = default;

void HelperClient::Send() {
    client_->SendMessage(kServiceName, 1, waiting_->request->data(), waiting_->request->size(), true);
}

void HelperClient::Ask(const std::vector<LXPCData>& request, int64_t count) {
    waiting_->request = &request;
    waiting_->left = count;
    waiting_->over = false;
    waiting_->failed = false;
    Send();
    std::unique_lock lock(waiting_->mutex);
    if (!waiting_->changed.wait_for(lock, std::chrono::seconds(30), [this] { return waiting_->over; }) ||
        waiting_->failed) {
        throw std::runtime_error("the helper gives no answer");
    }
}

void HelperClient::Tell(const std::vector<LXPCData>& request) {
    client_->SendMessage(kServiceName, 1, request.data(), request.size(), false);
}

void HelperClient::EvReplyReceived(long /*connection*/, const LList<LXPCDataListable>& /*items*/) {
    if (--waiting_->left == 0) {
        waiting_->End(false);
    } else {
        Send();
    }
}

void HelperClient::EvConnectionError(long /*connection*/, LXPCErrorType /*error*/) {
    waiting_->End(true);
}

void HelperClient::Find() {
    const std::vector<LXPCData> test{{kKeyTestConnection, LXPCDataTypeBool, 1}};
    for (int attempt = 0; attempt < 3000; ++attempt) {
        client_ = std::make_unique<LXPCClient>(this);
        for (const char* key : kReplyKeys) client_->AddKey(key, LXPCDataTypeBool);
        try {
            if (client_->Connect(kServiceName, 1, true)) return Ask(test, 1);
        } catch (const std::runtime_error&) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    throw std::runtime_error("there is no helper");
}

std::vector<LXPCData> QuestionOfSixEntries() {
    static const char* const kPath = "/srv/home/Applications/Orvin.app";
    return {{kKeyBundleId, LXPCDataTypeString, LXPCAddress(kMainAppBundleId)},
            {kKeyBundlePath, LXPCDataTypeString, LXPCAddress(kPath)},
            {kKeyNewTime, LXPCDataTypeDate, 1'798'131'590},
            {kKeyNewWeekly, LXPCDataTypeBool, 1},
            {kKeyNewWeekdayMask, LXPCDataTypeUInt64, 62},
            {kKeyShutdownQuestion, LXPCDataTypeBool, 1}};
}

// ---- Running

int RunBenchmarks(int argc, char** argv, int (*serve)(const std::string& role)) {
    const std::string role = argc > 1 ? argv[1] : "";
    if (serve != nullptr && role.starts_with("--serve=")) return serve(role.substr(role.find('=') + 1));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    std::thread([] {
        size_t run = 0;
        try {
            const TempHome home;
            run = benchmark::RunSpecifiedBenchmarks();
        } catch (const std::exception& error) {  // by now every child has been ended
            std::fprintf(stderr, "%s\n", error.what());
        }
        platform_exit(run == 0 ? 1 : 0);
    }).detach();
    dispatch_main();
}
