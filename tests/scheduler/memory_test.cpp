// Each operation with memory running out at its first allocation, its second, and so on until it succeeds: without
// memory it must have had no effect, with memory the next one must work.
#include <new>

#include "scheduler_fixture.h"

namespace {

thread_local long allocationsLeft = -1;  // -1: no limit on this thread

}  // namespace

[[gnu::noinline]] void* operator new(size_t size) {
    if (allocationsLeft == 0) throw std::bad_alloc();
    if (allocationsLeft > 0) --allocationsLeft;
    if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
    throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(size_t size, const std::nothrow_t&) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, size_t) noexcept {
    std::free(block);
}

namespace {

class OutOfMemory : public SchedulerTest {
  protected:
    /// Runs `operation` with ever more memory; true when it succeeded, having failed `least` times without effect.
    void Starve(const std::function<void()>& operation, long least) {
        const std::string timers = Timers();
        const std::string stored = Stored();
        for (long memory = 0;; ++memory) {
            bool done = false;
            allocationsLeft = memory;
            try {
                operation();
                done = true;
            } catch (const std::bad_alloc&) {
            }
            allocationsLeft = -1;
            if (done) {
                EXPECT_GE(memory, least);
                return;
            }
            ASSERT_EQ(Timers(), timers) << memory;
            ASSERT_EQ(Stored(), stored) << memory;
        }
    }
};

TEST_F(OutOfMemory, LeavesOperationsWithoutEffect) {
    Daily("A");
    scheduler.LoadFromSettings();
    Starve([&] { Add(app, "weekly", 0, false, true, 127); }, 20);
    EXPECT_EQ(Timers(), "weekly7 A1");
    EXPECT_EQ(Stored(), "/a.appA /a.appweekly");
    Starve([&] { scheduler.LoadFromSettings(); }, 20);
    EXPECT_EQ(Timers(), "weekly7 A1");
    Starve([&] { scheduler.Delete(kId, app.c_str(), "A"); }, 1);
    EXPECT_EQ(Stored(), "/a.appweekly");
    Daily("A");
    Starve([&] { scheduler.DeleteAll(kId, app.c_str()); }, 1);
    EXPECT_EQ(Timers() + Stored(), "");
}

TEST_F(OutOfMemory, AFailedReplacementLosesNeitherTheOldScheduleNorItsKey) {
    Daily("A");
    Daily("B");
    bool replaced = false;
    for (long memory = 0; !replaced; ++memory) {
        allocationsLeft = memory;
        try {
            scheduler.Add(kId, app.c_str(), "A", LDateTime(30000), false, true, LWeekDay(3));
            replaced = true;
        } catch (const std::bad_alloc&) {
        }
        allocationsLeft = -1;
        ASSERT_EQ(Timers(), replaced ? "A2 B1" : "B1 A1") << memory;
        ASSERT_EQ(LReadScheduleRecord(Store(), Key("A"))->daily, !replaced);
        Daily("B");
        ASSERT_EQ(Stored(), "/a.appA /a.appB") << memory;
    }
}

}  // namespace
