// Durable operations of the scheduler with so many schedules held, beside one SQLite transaction of the same rows in
// the same tables, in the same folder, with the same journal and the same durability.
//
// What is added is taken away again outside the measurement, so the number of schedules stays. The peer has its
// statements ready and does nothing else: no texts to check, no timer to arm, no copy in memory.
#include <benchmark/benchmark.h>
#include <platform_testing.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <stdexcept>

#include "app/LRequestKeys.h"
#include "bench/support.h"
#include "scheduler/LGCDScheduler.h"
#include "scheduler/LScheduleStore.h"

namespace {

constexpr char kApplication[] = "/usr";  // exists everywhere
constexpr long kFarAhead = 4'000'000'000;
constexpr size_t kNew = 1'000'000;

class Silent : public LGCDScheduler {
  public:
    ~Silent() override { StopFirings(); }
    using LGCDScheduler::EvScheduleStart;
    void EvScheduleStart(const char*, const char*, const char*) override {}
    void AddNumber(size_t number) {
        Add(kMainAppBundleId, kApplication, ScheduleName(number).c_str(), LDateTime(kFarAhead), false, false,
            LWeekDay(0));
    }
    void DeleteNumber(size_t number) { Delete(kMainAppBundleId, kApplication, ScheduleName(number).c_str()); }
};

/// A fresh store of so many schedules, made by our own code: the peer uses the same file.
void Prepare(size_t count) {
    std::filesystem::remove_all(std::filesystem::path(StorePath()).parent_path());
    ReopenStore();
    StoreSchedules(count, kApplication, kFarAhead);
}

/// The rows that the store has for a schedule, written and deleted one by one.
class Rows {
  public:
    Rows() {
        Check(sqlite3_open_v2(StorePath().c_str(), &database_, SQLITE_OPEN_READWRITE, nullptr));
        Run("PRAGMA journal_mode=WAL");
        Run("PRAGMA synchronous=FULL");
        Run("PRAGMA journal_size_limit=4194304");
        Prepare(entry_, "INSERT OR REPLACE INTO entries(key, position, name, type, value) VALUES(?1, ?2, ?3, ?4, ?5)");
        Prepare(member_, "INSERT OR REPLACE INTO members(key, position, value) VALUES(?1, ?2, ?3)");
        Prepare(deleteEntries_, "DELETE FROM entries WHERE key=?1");
        Prepare(deleteMember_, "DELETE FROM members WHERE key=?1 AND position=?2");
    }
    ~Rows() {
        for (sqlite3_stmt* statement : {entry_, member_, deleteEntries_, deleteMember_}) sqlite3_finalize(statement);
        sqlite3_close(database_);
    }
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    void Begin() { Run("BEGIN IMMEDIATE"); }
    void Commit() { Run("COMMIT"); }

    void Insert(size_t number) {
        const std::string name = ScheduleName(number);
        const std::string key = LScheduleKey(kMainAppBundleId, kApplication, name);
        const struct {
            const char* name;
            const char* type;
            const char* text;
            int64_t value;
        } entries[] = {{"APP_BUNDLEID", "string", kMainAppBundleId, 0},
                       {"APP_PATH", "string", kApplication, 0},
                       {"SKED_NAME", "string", name.c_str(), 0},
                       {"START_TIME", "integer", nullptr, kFarAhead},
                       {"IS_DAILY", "boolean", nullptr, 0},
                       {"IS_WEEKLY", "boolean", nullptr, 0},
                       {"WEEKDAY_MASK", "integer", nullptr, 0}};
        int position = 0;
        for (const auto& entry : entries) {
            Bind(entry_, 1, key);
            sqlite3_bind_int(entry_, 2, ++position);
            sqlite3_bind_text(entry_, 3, entry.name, -1, SQLITE_STATIC);
            sqlite3_bind_text(entry_, 4, entry.type, -1, SQLITE_STATIC);
            if (entry.text != nullptr) sqlite3_bind_text(entry_, 5, entry.text, -1, SQLITE_STATIC);
            if (entry.text == nullptr) sqlite3_bind_int64(entry_, 5, entry.value);
            Step(entry_);
        }
        Bind(member_, 1, std::string(kScheduleIndexKey));
        sqlite3_bind_int64(member_, 2, static_cast<int64_t>(number) + 1);
        Bind(member_, 3, key);
        Step(member_);
    }

    void Delete(size_t number) {
        Bind(deleteEntries_, 1, LScheduleKey(kMainAppBundleId, kApplication, ScheduleName(number)));
        Step(deleteEntries_);
        Bind(deleteMember_, 1, std::string(kScheduleIndexKey));
        sqlite3_bind_int64(deleteMember_, 2, static_cast<int64_t>(number) + 1);
        Step(deleteMember_);
    }

  private:
    void Check(int result) const {
        if (result != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(database_));
    }
    void Run(const char* sql) { Check(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr)); }
    void Prepare(sqlite3_stmt*& statement, const char* sql) {
        Check(sqlite3_prepare_v3(database_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr));
    }
    static void Bind(sqlite3_stmt* statement, int place, const std::string& text) {
        sqlite3_bind_text(statement, place, text.c_str(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    }
    void Step(sqlite3_stmt* statement) {
        if (sqlite3_step(statement) != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(database_));
        sqlite3_reset(statement);
    }

    sqlite3* database_ = nullptr;
    sqlite3_stmt* entry_ = nullptr;
    sqlite3_stmt* member_ = nullptr;
    sqlite3_stmt* deleteEntries_ = nullptr;
    sqlite3_stmt* deleteMember_ = nullptr;
};

/// Counts `work`, not `undo`.
template <typename Work, typename Undo>
void Timed(benchmark::State& state, Work work, Undo undo) {
    undo();
    for (auto _ : state) {
        const int64_t began = SteadyNanoseconds();
        work();
        state.SetIterationTime(static_cast<double>(SteadyNanoseconds() - began) * 1e-9);
        undo();
    }
}

/// The scheduler over a fresh store of so many. Not kept open when it goes.
struct Held {
    explicit Held(const benchmark::State& state) {
        Prepare(static_cast<size_t>(state.range(0)));
        scheduler.LoadFromSettings();
    }
    Silent scheduler;
};

/// The peer's connection to a fresh store of so many, of which our own code has let go.
struct HeldRows {
    explicit HeldRows(const benchmark::State& state) {
        Prepare(static_cast<size_t>(state.range(0)));
        platform_testing::use_defaults_at("/nonexistent/defaults.sqlite3");
        rows = std::make_unique<Rows>();
    }
    template <typename Work>
    void Commit(Work work) const {
        rows->Begin();
        work(*rows);
        rows->Commit();
    }
    std::unique_ptr<Rows> rows;
};

void AddOurs(benchmark::State& state) {
    Held held(state);
    Timed(
        state, [&] { held.scheduler.AddNumber(kNew); }, [&] { held.scheduler.DeleteNumber(kNew); });
}
void AddSqlite(benchmark::State& state) {
    const HeldRows held(state);
    Timed(
        state, [&] { held.Commit([](Rows& rows) { rows.Insert(kNew); }); },
        [&] { held.Commit([](Rows& rows) { rows.Delete(kNew); }); });
}
void DeleteOurs(benchmark::State& state) {
    Held held(state);
    Timed(
        state, [&] { held.scheduler.DeleteNumber(kNew); }, [&] { held.scheduler.AddNumber(kNew); });
}
void DeleteSqlite(benchmark::State& state) {
    const HeldRows held(state);
    Timed(
        state, [&] { held.Commit([](Rows& rows) { rows.Delete(kNew); }); },
        [&] { held.Commit([](Rows& rows) { rows.Insert(kNew); }); });
}

void DeleteAllOurs(benchmark::State& state) {
    const auto count = static_cast<size_t>(state.range(0));
    Prepare(count);
    Silent scheduler;
    Timed(
        state, [&] { scheduler.DeleteAll(kMainAppBundleId, kApplication); },
        [&] {
            StoreSchedules(count, kApplication, kFarAhead);
            scheduler.LoadFromSettings();
        });
}
void DeleteAllSqlite(benchmark::State& state) {
    const HeldRows held(state);
    const auto count = static_cast<size_t>(state.range(0));
    const auto all = [&](auto work) {
        held.Commit([&](Rows& rows) {
            for (size_t number = 0; number < count; ++number) work(rows, number);
        });
    };
    Timed(
        state, [&] { all([](Rows& rows, size_t number) { rows.Delete(number); }); },
        [&] { all([](Rows& rows, size_t number) { rows.Insert(number); }); });
}

void Sizes(benchmark::internal::Benchmark* bench) {
    for (const int64_t held : {10, 100, 1'000, 10'000}) bench->Arg(held);
    bench->Iterations(100)->UseManualTime()->Unit(benchmark::kMicrosecond);
}
void Thousand(benchmark::internal::Benchmark* bench) {
    bench->Arg(1'000)->UseManualTime()->Unit(benchmark::kMicrosecond);
}

BENCHMARK(AddOurs)->Name("add/ours")->Apply(Sizes);
BENCHMARK(AddSqlite)->Name("add/sqlite")->Apply(Sizes);
BENCHMARK(DeleteOurs)->Name("delete/ours")->Apply(Thousand)->Iterations(100);
BENCHMARK(DeleteSqlite)->Name("delete/sqlite")->Apply(Thousand)->Iterations(100);
BENCHMARK(DeleteAllOurs)->Name("delete_all/ours")->Apply(Thousand)->Iterations(10);
BENCHMARK(DeleteAllSqlite)->Name("delete_all/sqlite")->Apply(Thousand)->Iterations(10);

}  // namespace

int main(int argc, char** argv) {
    return RunBenchmarks(argc, argv);
}
