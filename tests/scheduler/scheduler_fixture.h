// A scheduler over a store of its own in a temporary folder, on a clock that the test moves.
#pragma once

#include <gtest/gtest.h>
#include <platform_testing.h>

#include <ctime>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "scheduler/LGCDScheduler.h"
#include "scheduler/LScheduleStore.h"
#include "tests/support/TemporaryFolder.h"

class Recorder : public LGCDScheduler {
  public:
    ~Recorder() override { StopFirings(); }
    using LGCDScheduler::EvScheduleStart;
    void EvScheduleStart(const char*, const char*, const char* skedName) override {
        {
            const std::lock_guard lock(mutex_);
            fired_.emplace_back(skedName);
        }
        if (onFire) onFire(skedName);
    }
    std::vector<std::string> Fired() const {
        const std::lock_guard lock(mutex_);
        return fired_;
    }
    std::function<void(const std::string&)> onFire;

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> fired_;
};

class SchedulerTest : public testing::Test {
  protected:
    static constexpr const char* kId = "com.example.app";
    static constexpr uint64_t kSecond = 1000000000;

    SchedulerTest() {
        for (const char* name : {"/a.app", "/a.app2", "/b.app"}) std::filesystem::create_directory(folder + name);
        platform_testing::use_defaults_at(folder + "/defaults.sqlite3");
    }

    static NSUserDefaults& Store() { return NSUserDefaults::standardUserDefaults(); }
    void Once(const std::string& name, long inSeconds) { Add(app, name, inSeconds, false, false, 0); }
    void Daily(const std::string& name) { Add(app, name, 30000, true, false, 0); }
    void Add(const std::string& path, const std::string& name, long inSeconds, bool daily, bool weekly,
             unsigned char mask) {
        scheduler.Add(kId, path.c_str(), name.c_str(), LDateTime(static_cast<long>(std::time(nullptr)) + inSeconds),
                      daily, weekly, LWeekDay(mask));
    }
    std::string Key(const std::string& name) const { return LScheduleKey(kId, app, name); }

    /// The names in memory, newest first, each with the number of its sources ("!" for an armed one-off); checks the
    /// links.
    std::string Timers() const {
        std::string text;
        const LGCDTimer* previous = nullptr;
        for (const LGCDTimer& timer : scheduler.timers) {
            EXPECT_EQ(timer.previous, previous);
            previous = &timer;
            long sources = 0;
            for ([[maybe_unused]] const LGCDSource& source : timer.sources) ++sources;
            text += (text.empty() ? "" : " ") + std::string(timer.skedName) + std::to_string(sources);
            if (timer.oneOff) text += "!";
        }
        return text;
    }

    /// The stored index in order, each key by what follows the application's prefix, "-" before one without a record.
    /// Checks that the scheduler's own copy says the same.
    std::string Stored() const {
        std::string text;
        std::vector<std::string> keys;
        for (const LStoredSchedule& stored : LReadStoredSchedules(Store())) {
            keys.push_back(stored.key);
            const std::string prefix = LScheduleApplicationPrefix(kId, folder);
            const bool own = stored.key.starts_with(prefix);
            text += (text.empty() ? "" : " ") + std::string(Store().dictionaryForKey(stored.key) ? "" : "-") +
                    (own ? stored.key.substr(prefix.size()) : stored.key);
        }
        EXPECT_EQ(keys, scheduler.skedKeys->allObjects());
        return text;
    }

    const TemporaryFolder temporary;
    const std::string folder = temporary.path();
    const std::string app = folder + "/a.app";
    platform_testing::ManualClock clock;
    Recorder scheduler;
};
