// All of the helper in one process, set against itself, for the thread sanitizer to watch:
//
//     races races [N]     N operations: adds, deletes, firings, connections that come and go, and both owners destroyed
//     races timers [N]    N cancels that race a firing, 10,000 armed sources, a process stopped over many intervals
//
// Prints a line "name: value" for each figure; returns 1 after a line "MISSED: ..." for each thing that should not be.
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <dispatch/dispatch.h>
#include <platform_ending.h>
#include <platform_testing.h>

#include "app/LRequestKeys.h"
#include "app/LScheduleHelper.h"
#include "platform/linux/timer_source.h"
#include "scheduler/LScheduleStore.h"
#include "tests/platform/dispatch_support.h"
#include "tests/platform/xpc_support.h"
#include "tests/support/TempHome.h"
#include "xpc/LXPCClient.h"

namespace {

constexpr uint64_t kSecond = 1'000'000'000;

std::atomic<bool> missed = false;

void Need(bool holds, const std::string& what) {
    if (holds) return;
    missed = true;
    std::printf("MISSED: %s\n", what.c_str());
    std::fflush(stdout);  // whoever ends a run that takes too long has read it
}

void Tell(const char* name, long value) {
    std::printf("%s: %ld\n", name, value);
}

/// Waits until other threads have brought `condition` about; `what` is missed after half a minute of looking. Looks are
/// counted, not the time: a process that was held up as a whole, by a busy machine or a signal, has missed nothing.
template <typename Condition>
void Await(const char* what, Condition condition) {
    bool holds = condition();
    for (int looks = 300'000; !holds && looks > 0; --looks) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        holds = condition();
    }
    Need(holds, what);
}

long Threads() {
    const std::filesystem::directory_iterator all("/proc/self/task");
    return std::distance(begin(all), end(all));
}

/// Bytes in use on the heap; tells nothing under a sanitizer, which has a heap of its own.
long HeapBytes() {
    return static_cast<long>(mallinfo2().uordblks);
}

// ---- Races

std::atomic<long> operations = 0, connections = 0, firings = 0;
std::string bundlePath;  // one that exists, so that a load keeps its schedules

/// What has fired since it was last asked for, by identifier and name.
std::mutex firedMutex;
std::set<std::string> fired;

struct Sink : LScheduleHelperNotify {
    ~Sink() override { StopFirings(); }
    void EvScheduleStart(const char* bundleId, const char* appPath, const char* skedName) override {
        {
            const std::lock_guard lock(firedMutex);
            fired.insert(std::string(bundleId) + skedName);
        }
        // A firing may change schedules; these are nobody's, so that nobody misses them.
        const LDateTime soon(static_cast<long>(std::time(nullptr)) + 20);
        if (firings % 8 == 0) Add("fired", appPath, skedName, soon, false, false, LWeekDay());
        if (firings % 8 == 4) Delete("fired", appPath, skedName);
        LScheduleHelperNotify::EvScheduleStart(bundleId, appPath, skedName);
    }
};

struct Server : LXPCMachServer {
    using LXPCMachServer::LXPCMachServer;
    long Listed() {
        const std::lock_guard lock(connectionsMutex_);
        long count = 0;
        for ([[maybe_unused]] const LXPCConnection& each : connections) ++count;
        return count;
    }
};

/// Stands for the application: nothing ends and nothing is launched.
struct Delegate : LScheduleHelper {
    LXPCMachServer* getXPCServer() override { return server.get(); }
    void shutdownHelper() override { Need(false, "somebody asked for the end"); }
    void launchMainApp(const char*, const char*) override { ++firings, ++operations; }
    LPtr<LXPCMachServer> server;
};

/// An application that asks for one change after the other, and the names that are stored once all have been performed.
/// Nobody else uses its identifier, now or later.
struct Owner {
    Owner() { Forget(); }

    /// For when nobody can tell how many of the changes will be performed.
    void Forget() {
        static std::atomic<unsigned> last = 0;
        const unsigned number = ++last;
        chance.seed(number);
        bundleId = "a" + std::to_string(number) + ".";
        kept.clear();
    }
    unsigned Draw(unsigned below) { return static_cast<unsigned>(chance() >> 8) % below; }

    /// The next change as a message; its texts live until the next call.
    std::vector<LXPCData> Next() {
        ++operations;
        name = "s" + std::to_string(Draw(6));
        const unsigned draw = Draw(20);
        const LXPCData id{kKeyBundleId, LXPCDataTypeString, LXPCAddress(bundleId.c_str())};
        const LXPCData path{kKeyBundlePath, LXPCDataTypeString, LXPCAddress(bundlePath.c_str())};
        if (draw == 0) {
            kept.clear();
            return {id, path, {kKeyDeleteAll, LXPCDataTypeBool, 1}};
        }
        if (draw < 6) {
            kept.erase(name);
            return {id, path, {kKeyDeleteName, LXPCDataTypeString, LXPCAddress(name.c_str())}};
        }
        const bool weekly = kept[name] = draw < 10;
        {
            const std::lock_guard lock(firedMutex);
            fired.erase(bundleId + name);
        }
        const long start = static_cast<long>(std::time(nullptr)) + static_cast<long>(Draw(60));
        return {id,
                path,
                {kKeyNewName, LXPCDataTypeString, LXPCAddress(name.c_str())},
                {kKeyNewTime, LXPCDataTypeDate, start},
                {kKeyNewWeekly, LXPCDataTypeBool, weekly},
                {kKeyNewWeekdayMask, LXPCDataTypeUInt64, static_cast<long>(Draw(128))}};
    }

    std::minstd_rand chance;
    std::string bundleId, name;
    std::map<std::string, bool> kept;  // with whether it repeats
};

/// A client with many connections, each an application of its own.
struct Client : LXPCEventNotify {
    explicit Client(std::string name) : service(std::move(name)) {
        for (const char* key : kReplyKeys) client.AddKey(key, LXPCDataTypeBool);
        for (unsigned id = 0; id < owners.size(); ++id) Open(id);
    }

    /// A few changes on one connection, often with a question behind them; now and then the connection goes, whatever
    /// is under way on it, and comes again.
    void Work(bool patient) {
        const unsigned id = owners[0].Draw(static_cast<unsigned>(owners.size()));
        Owner& owner = owners[id];
        for (unsigned i = owner.Draw(6); i > 0; --i) Send(id, owner.Next(), false);
        if (owner.Draw(2) == 0) Ask(id, owner.Draw(2) == 0 ? kKeyTestConnection : kKeyShutdownQuestion, patient);
        if (owner.Draw(10) != 0) return;
        client.Disconnect(service.c_str(), id);
        owner.Forget();
        Open(id);
    }
    /// Afterwards everything that was sent has been performed.
    void Settle() {
        for (unsigned id = 0; id < owners.size(); ++id) Ask(id, kKeyTestConnection, true);
    }
    void Open(unsigned id) {
        Need(client.Connect(service.c_str(), id, true), "a client without a connection");
        ++operations, ++connections;
    }
    void Send(unsigned id, const std::vector<LXPCData>& items, bool wantReply) {
        client.SendMessage(service.c_str(), id, items.data(), items.size(), wantReply);
    }
    void Ask(unsigned id, const char* key, bool patient) {
        ++operations, ++asked;
        Send(id, {{key, LXPCDataTypeBool, 1}}, true);
        if (patient) Await("a question without an answer", [this] { return answers >= asked; });
    }
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override { ++answers; }
    void EvConnectionError(long, LXPCErrorType) override {}
    void EvMessageReceived(long, long, const LList<LXPCDataListable>&) override {}
    void EvMessageSent(long) override {}

    const std::string service;
    long asked = 0;
    std::atomic<long> answers = 0;
    std::vector<Owner> owners{32};
    LXPCClient client{this};  // goes first
};

/// A peer that says nothing, or a part of something, and goes.
void ConnectAndClose(const std::string& service, unsigned turn) {
    const UniqueFd peer = rawClient(std::string(std::getenv("XDG_RUNTIME_DIR")) + "/mach-services/" + service);
    if (!peer) return;
    const Bytes whole = frame(entry(text(kKeyShutdownQuestion), wire::Type::Bool, Bytes(1, '\1')), 1);
    (void)!send(peer.get(), whole.data(), turn % (whole.size() + 1), MSG_NOSIGNAL);
    ++operations, ++connections;
}

/// One life of both owners: work until `goal`, a look at what is kept, and the end of both while clients go on.
class Life {
  public:
    Life(std::string service, platform_testing::ManualClock& clock) : service_(std::move(service)), clock_(clock) {
        sink_->delegate = &delegate_;
        sink_->LoadFromSettings();
        delegate_.server = server_ = new Server(sink_.get());
        for (const LRequestKeyType& key : kRequestKeys) delegate_.server->AddKey(key.name, key.type);
        Need(delegate_.server->Listen(service_.c_str()), "no service");
        for (int i = 0; i < 4; ++i) clients_.push_back(std::make_unique<Client>(service_));
    }

    void Run(long goal) {
        const long connectionsGoal = connections + (goal - operations) / 10;
        BeginPeers(true);
        for (Owner& owner : direct_) {
            Begin([this, &owner] {
                Perform(owner.Next());
                if (owner.Draw(500) == 0) sink_->LoadFromSettings();
                if (owner.Draw(200) == 0) owner.Forget();
            });
        }
        waitUntil([=] { return operations >= goal && connections >= connectionsGoal; });
        End();
        for (const auto& client : clients_) client->Settle();
        // Those that have gone were accepted before those that have answered, and are dropped with all that they sent.
        Await("connections are left behind", [this] { return server_->Listed() == 128; });
        Check();
        BeginPeers(false);
        waitUntil([more = operations + 300] { return operations >= more; });  // the end meets them at work
        delegate_.server->Close();
        delegate_.server = nullptr;
        sink_.reset();
        End();
    }

  private:
    void BeginPeers(bool patient) {
        stop_ = false;
        for (const auto& client : clients_) Begin([each = client.get(), patient] { each->Work(patient); });
        Begin([this, turn = 0U]() mutable { ConnectAndClose(service_, ++turn); });
        Begin([this, turn = 0U]() mutable {
            clock_.advance((++turn % 16 == 0 ? 604800 : turn % 16) * kSecond);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));  // time goes fast enough
        });
    }
    template <typename Step>
    void Begin(Step step) {
        threads_.emplace_back([this, step]() mutable {
            while (!stop_) step();
        });
    }
    void End() {
        stop_ = true;
        for (std::thread& thread : threads_) thread.join();
        threads_.clear();
    }
    void Perform(const std::vector<LXPCData>& items) {
        LList<LXPCDataListable> received;
        for (const LXPCData& item : items) received.Insert(new LXPCDataListable(item.name, item.type, item.value));
        sink_->EvMessageReceived(0, 0, received);
    }

    /// Every change that returned, or that an answer came behind, is in the store; and in memory, or over.
    void Check() {
        std::set<std::string> armed, stored, unknown;
        for (const LGCDTimer& timer : sink_->timers) armed.insert(std::string(timer.bundleId) + timer.skedName);
        for (const LStoredSchedule& each : LReadStoredSchedules(NSUserDefaults::standardUserDefaults())) {
            const LScheduleRecord& record = each.record.value();
            stored.insert(record.bundleId + record.skedName);
            unknown.insert(record.bundleId);
        }
        std::vector<const Owner*> owners;
        for (const Owner& owner : direct_) owners.push_back(&owner);
        for (const auto& client : clients_) {
            for (const Owner& owner : client->owners) owners.push_back(&owner);
        }
        for (const Owner* owner : owners) {
            unknown.erase(owner->bundleId);
            for (int i = 0; i < 6; ++i, ++checked) {
                const std::string identity = owner->bundleId + "s" + std::to_string(i);
                const auto found = owner->kept.find("s" + std::to_string(i));
                const bool kept = found != owner->kept.end(), over = kept && !found->second && fired.contains(identity);
                Need(stored.contains(identity) == kept, identity + (kept ? " is lost" : " is back"));
                Need(!kept || over || armed.contains(identity), identity + " does not fire");
                Need(kept || !armed.contains(identity), identity + " is held");
            }
        }
        for (const std::string& id : unknown) sink_->DeleteAll(id.c_str(), bundlePath.c_str());
        fired.clear();
    }

    const std::string service_;
    platform_testing::ManualClock& clock_;
    Delegate delegate_;
    Server* server_ = nullptr;
    std::unique_ptr<Sink> sink_ = std::make_unique<Sink>();
    std::vector<Owner> direct_{2};
    std::vector<std::unique_ptr<Client>> clients_;
    std::vector<std::thread> threads_;
    std::atomic<bool> stop_ = false;

  public:
    long checked = 0;
};

void Races(long goal) {
    constexpr long kMostThreads = 13;  // first, driver, io, ending, eight workers, and a sanitizer's
    const TempHome home;
    bundlePath = home.path;
    platform_testing::ManualClock clock;
    NSUserDefaults::standardUserDefaults().setObject(NSString("opens the store"), "key");
    Need(NSUserDefaults::standardUserDefaults().synchronize(), "no store");
    xpc_release(xpc_connection_create("test.nobody", nullptr));  // makes the main queue's lookout
    const size_t before = openDescriptors();
    Need(LXPCMachServer(nullptr).Listen("test.listener"), "no listener");
    const size_t listener = openDescriptors() - before;  // it stays as long as the process

    const long lives = 4 + goal / 20'000;
    long heap = 0, checked = 0;
    for (long i = 0; i < lives; ++i) {
        {
            Life life("test.races" + std::to_string(i), clock);
            life.Run(goal * (i + 1) / lives);
            checked += life.checked;
        }
        const size_t expected = before + listener * static_cast<size_t>(i + 2);
        Await("descriptors are left behind", [expected] { return openDescriptors() == expected; });
        if (i == 0) heap = HeapBytes();
    }
    Await("threads are left behind", [] { return Threads() <= kMostThreads; });
    Tell("operations", operations);
    Tell("connections opened and closed", connections);
    Tell("firings", firings);
    Tell("lives of both owners", lives);
    Tell("names compared with store and memory", checked);
    Tell("threads", Threads());
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    Tell("heap bytes left", HeapBytes() - heap);
#endif
    Need(HeapBytes() - heap < 1 << 20, "memory is left behind");
    Need(firings > 0, "nothing fired");
}

// ---- Timers

dispatch_queue_t Workers() {
    return dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0);
}

void ManySources() {
    constexpr int kSources = 10'000;
    std::atomic<int> calls = 0;
    Timer first(Workers(), [] {});
    first.arm(DISPATCH_TIME_FOREVER);
    const size_t before = openDescriptors();
    std::vector<std::unique_ptr<Timer>> timers;
    const dispatch_time_t start = dispatch_time(DISPATCH_TIME_NOW, kSecond / 10);
    for (int i = 0; i < kSources; ++i) {
        timers.push_back(std::make_unique<Timer>(Workers(), [&calls] { ++calls; }));
        timers.back()->arm(start + static_cast<dispatch_time_t>(i) * 1000);
    }
    Tell("descriptors of 10000 sources", static_cast<long>(openDescriptors() - before));
    Need(openDescriptors() == before, "sources have descriptors");
    Await("sources that do not fire", [&calls] { return calls == kSources; });
}

/// In a process of its own, which is stopped from outside between two calls.
void Stopped() {
    constexpr int64_t kInterval = 10'000'000;
    constexpr long kStopped = 100;  // intervals
    Child child([] {
        static long calls = 0, sum = 0, most = 0;
        static dispatch_time_t start = dispatch_time(DISPATCH_TIME_NOW, 0);
        static runtime::SerialQueue queue(nullptr);
        static Timer timer(&queue, [] {
            const auto count = static_cast<long>(dispatch_source_get_data(timer.source));
            most = std::max(most, count);
            sum += count;
            // Never early, and never more than what has fallen due, whatever was missed.
            Need(sum <= static_cast<int64_t>(dispatch_time(DISPATCH_TIME_NOW, 0) - start) / kInterval, "too many");
            if (++calls == 5) Child::leave('r');
            if (most < kStopped) return;
            Child::leave(missed ? 'm' : 'k');
            _exit(0);
        });
        timer.arm(start + kInterval, kInterval);
        for (;;) pause();
    });
    child.next();
    kill(child.pid, SIGSTOP);
    std::this_thread::sleep_for(std::chrono::nanoseconds(kInterval * (kStopped + 2)));
    kill(child.pid, SIGCONT);
    Need(child.finish().second == "k", "a stopped process");
    Tell("intervals missed and told in one call, at least", kStopped);
}

/// A cancel decides: unless a call is running just then, none follows.
void CancelRacesFire(long trials) {
    long claimed = 0;
    for (long trial = 0; trial < trials; ++trial) {
        std::atomic<int> inside{0}, calls{0};
        std::atomic<bool> overlapped{false};
        std::atomic<bool> gone{false};
        std::shared_ptr<void> alive(nullptr, [&gone](void*) { gone = true; });
        dispatch_source_t source = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, Workers());
        dispatch_source_set_event_handler(source, [&, alive = std::move(alive)] {
            ++calls;  // first, so that a call inside is a call counted
            if (inside.fetch_add(1) != 0) overlapped = true;
            for (long i = trial % 64 * 16; i > 0; --i) (void)inside.load();  // a call that lasts, for cancels to meet
            inside.fetch_sub(1);
        });
        dispatch_source_set_timer(source, DISPATCH_TIME_NOW, 1'000, 0);
        dispatch_resume(source);
        while (trial % 4 != 0 && calls.load() < trial % 4) std::this_thread::yield();
        dispatch_source_cancel(source);
        const bool running = (source->state.load() & dispatch_source_s::kPhase) == dispatch_source_s::kRunning;
        const int more = running && inside.load() == 0 ? 1 : 0;
        const int begun = calls.load();
        dispatch_release(source);
        while (!gone) std::this_thread::yield();
        claimed += running ? 1 : 0;
        Need(calls.load() <= begun + more, "a call was claimed after the cancel");
        Need(!overlapped.load(), "two calls at once");
    }
    Tell("cancels that raced a firing", trials);
    Tell("of them with a call under way", claimed);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    const long count = argc > 2 ? std::atol(argv[2]) : 100'000;
    if ((mode != "races" && mode != "timers") || count < 1) {
        std::fprintf(stderr, "races races|timers [N]\n");
        return 2;
    }
    if (std::filesystem::exists("/dev/shm")) setenv("TMPDIR", "/dev/shm", 0);  // no matter how fast a disk is
    if (mode == "timers") Stopped();                                           // before there are threads
    dispatch_get_main_queue();  // the runtime is up before anybody can ask for the end
    std::thread([&mode, count] {
        if (mode == "races") Races(count);
        if (mode == "timers") ManySources();
        if (mode == "timers") CancelRacesFire(count);
        platform_exit(missed ? 1 : 0);
    }).detach();
    dispatch_main();
}
