// What the real helper does while nothing happens, with so many schedules armed: how often any of its threads was put
// on a processor in the window (context switches of both kinds), and how much memory it holds.
//
// The window is BENCH_WINDOW seconds long, 2 by default.
#include <benchmark/benchmark.h>
#include <platform_testing.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "bench/support.h"

namespace {

/// The number behind `name` in a file of /proc with a field in each line.
uint64_t Field(const std::filesystem::path& file, const std::string& name) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(name)) return std::strtoull(line.c_str() + name.size(), nullptr, 10);
    }
    return 0;
}

uint64_t Switches(pid_t pid) {
    uint64_t sum = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        sum += Field(task.path() / "status", "voluntary_ctxt_switches:");
        sum += Field(task.path() / "status", "nonvoluntary_ctxt_switches:");
    }
    return sum;
}

void IdleOurs(benchmark::State& state) {
    std::filesystem::remove_all(std::filesystem::path(StorePath()).parent_path());
    ReopenStore();
    StoreSchedules(static_cast<size_t>(state.range(0)), HelperRun::Application(), 4'000'000'000);
    platform_testing::use_defaults_at("/nonexistent/defaults.sqlite3");
    const HelperRun helper;
    {
        HelperClient client;
        client.Find();
    }
    const char* const asked = std::getenv("BENCH_WINDOW");
    const double window = asked != nullptr ? std::strtod(asked, nullptr) : 2;
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // the client's leave-taking
    for (auto _ : state) {
        const uint64_t before = Switches(helper.pid());
        std::this_thread::sleep_for(std::chrono::duration<double>(window));
        state.counters["switches"] = static_cast<double>(Switches(helper.pid()) - before);
    }
    state.counters["resident_kib"] =
        static_cast<double>(Field("/proc/" + std::to_string(helper.pid()) + "/status", "VmRSS:"));
}

BENCHMARK(IdleOurs)->Name("idle/ours")->Arg(10)->Arg(10'000)->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
    return RunBenchmarks(argc, argv);
}
