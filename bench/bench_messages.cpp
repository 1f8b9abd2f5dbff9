// The helper's service beside a raw stream and sd-bus: how long a request and its answer take, and how many requests
// without an answer get through.
//
// Ours is the real path: LXPCClient here, in the program's own main queue, and the real helper. Each request is sent
// from the event that brought the answer to the last, as a main application would. The peers' clients wait for each
// answer where they sent the question, which is the least that can be done.
#include <benchmark/benchmark.h>

#include "app/LRequestKeys.h"
#include "bench/peers.h"
#include "bench/support.h"

namespace {

constexpr int64_t kBatch = 500;
constexpr int64_t kPipelined = 5000;

void RoundTripOurs(benchmark::State& state) {
    const HelperRun helper;
    HelperClient client;
    client.Find();
    const std::vector<LXPCData> question = QuestionOfSixEntries();
    while (state.KeepRunningBatch(kBatch)) client.Ask(question, kBatch);
}

template <typename Peer>
void AskBatch(benchmark::State& state, Peer& peer) {
    while (state.KeepRunningBatch(kBatch)) {
        for (int64_t i = 0; i < kBatch; ++i) peer.Ask();
    }
}

void RoundTripRaw(benchmark::State& state) {
    RawPeer peer;
    AskBatch(state, peer);
}
void RoundTripBus(benchmark::State& state) {
    BusPeer peer(BusPeer::Way::Direct);
    AskBatch(state, peer);
}
void RoundTripDaemon(benchmark::State& state) {
    BusPeer peer(BusPeer::Way::Daemon);
    AskBatch(state, peer);
}

/// One batch is as many requests as given, and a question behind them whose answer shows that all were handled.
void OneWayOurs(benchmark::State& state) {
    const HelperRun helper;
    HelperClient client;
    client.Find();
    const std::vector<LXPCData> notice{{kKeyNewTime, LXPCDataTypeDate, 1'798'131'590}};
    const std::vector<LXPCData> test{{kKeyTestConnection, LXPCDataTypeBool, 1}};
    while (state.KeepRunningBatch(kPipelined)) {
        for (int64_t i = 0; i < kPipelined; ++i) client.Tell(notice);
        client.Ask(test, 1);
    }
}

template <typename Peer>
void TellBatch(benchmark::State& state, Peer& peer) {
    while (state.KeepRunningBatch(kPipelined)) {
        for (int64_t i = 0; i < kPipelined; ++i) peer.Tell();
        peer.Ask();
    }
}

void OneWayRaw(benchmark::State& state) {
    RawPeer peer;
    TellBatch(state, peer);
}
void OneWayBus(benchmark::State& state) {
    BusPeer peer(BusPeer::Way::Direct);
    TellBatch(state, peer);
}

BENCHMARK(RoundTripOurs)->Name("round_trip/ours")->UseRealTime();
BENCHMARK(RoundTripRaw)->Name("round_trip/raw")->UseRealTime();
BENCHMARK(RoundTripBus)->Name("round_trip/sd_bus")->UseRealTime();
BENCHMARK(RoundTripDaemon)->Name("round_trip/dbus_daemon")->UseRealTime();
BENCHMARK(OneWayOurs)->Name("one_way/ours")->UseRealTime();
BENCHMARK(OneWayRaw)->Name("one_way/raw")->UseRealTime();
BENCHMARK(OneWayBus)->Name("one_way/sd_bus")->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    return RunBenchmarks(argc, argv, ServePeer);
}
