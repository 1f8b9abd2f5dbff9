#include "tests/e2e/Helper.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include <platform_testing.h>

#include "app/LRequestKeys.h"
#include "scheduler/LScheduleStore.h"

/// Between two looks at what another process does and cannot announce (a store that is written, a service that comes
/// up); every loop around it has a deadline and fails at it.
void PauseBriefly() {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

Process::Process(const std::vector<std::string>& words) {
    std::vector<char*> argv;
    for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, argv[0], nullptr, nullptr, argv.data(), environ) != 0) pid_ = 0;
}

Process::~Process() {
    if (ended_ || pid_ == 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

void Process::Send(int signal) const {
    if (!ended_ && pid_ != 0) kill(pid_, signal);
}

int Process::Status(double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    int status = 0;
    while (pid_ != 0 && waitpid(pid_, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) return 1000;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));  // waitpid takes no deadline of its own
    }
    ended_ = true;
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

bool Process::Sleeps() const {
    std::error_code error;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid_) + "/task", error)) {
        std::ifstream file(task.path() / "stat");
        std::string stat;
        std::getline(file, stat);
        const size_t name = stat.rfind(')');
        if (name == std::string::npos || stat.substr(name + 2, 1) != "S") return false;
    }
    return !error;
}

Client::Client() = default;

void Client::Heard(const std::string& answer) {
    const std::lock_guard lock(mutex_);
    answer_ = answer;
    heard_.notify_all();
}

void Client::EvConnectionError(long /*connection*/, LXPCErrorType /*error*/) {
    Heard("gone");
}

void Client::EvReplyReceived(long /*connection*/, const LList<LXPCDataListable>& items) {
    Heard(std::string(items.head->name) + "=" + std::to_string(items.head->value));
}

std::string Client::Ask(const std::vector<LXPCData>& items) {
    Heard("");
    client_->SendMessage(kServiceName, 1, items.data(), items.size(), true);
    std::unique_lock lock(mutex_);
    return heard_.wait_for(lock, std::chrono::seconds(30), [this] { return !answer_.empty(); }) ? answer_ : "silence";
}

void Client::Tell(const std::vector<LXPCData>& items) {
    client_->SendMessage(kServiceName, 1, items.data(), items.size(), false);
}

bool Client::Find() {
    const std::string alive = std::string(kReplyTestConnection) + "=1";
    return Eventually([this, &alive] {
        client_ = std::make_unique<LXPCClient>(this);  // and none of an earlier one's errors is heard any more
        for (const char* key : kReplyKeys) client_->AddKey(key, LXPCDataTypeBool);
        return client_->Connect(kServiceName, 1, true) && Ask({Flag(kKeyTestConnection)}) == alive;
    });
}

LXPCData Text(const char* key, const std::string& text) {
    return {key, LXPCDataTypeString, LXPCAddress(text.c_str())};
}

LXPCData Flag(const char* key) {
    return {key, LXPCDataTypeBool, 1};
}

std::vector<LXPCData> Of(const std::string& bundle, std::vector<LXPCData> request) {
    request.push_back({kKeyBundleId, LXPCDataTypeString, LXPCAddress(kMainAppBundleId)});
    request.push_back(Text(kKeyBundlePath, bundle));
    return request;
}

std::string Stored() {
    platform_testing::use_defaults_at(std::string(std::getenv("XDG_DATA_HOME")) +
                                      "/com.brindlewick.schedulehelper.orvinfree213/defaults.sqlite3");
    std::string text;
    for (const LStoredSchedule& stored : LReadStoredSchedules(NSUserDefaults::standardUserDefaults())) {
        text += (text.empty() ? "" : " ") + (stored.record ? stored.record->skedName : "-");
    }
    return text;
}
