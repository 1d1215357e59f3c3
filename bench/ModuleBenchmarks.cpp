// Costs of smaller paths of the module: the UTF-16 length every argument
// check takes, the JSON text of the KV log lines, and the KV change delivery
// and KV refusals, the last two beside a bare baseline of the same work.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdio>
#include <string>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMUTF16.h>
#include <ZMChatRoom/Utility/ZMChatRoomUtil.h>
#include <ZMChatRoom/ZMChatRoomClient.h>

#include "ZMBenchSupport.h"

// Reaches the client's KV-change callback directly, without the emulator's
// callback thread in between.
struct ZMChatRoomClientTestPeer {
    static void kvChange(const std::string& room, const ZMValue& update, const ZMValue& remove) {
        ZMChatRoomClient::sharedChatRoomClient().kvChangeBlock(room, update, remove);
    }
};

namespace {

void BM_UTF16LengthOfRoomId(benchmark::State& state) {
    const std::string roomId(static_cast<size_t>(state.range(0)), 'r');
    for (auto _ : state) benchmark::DoNotOptimize(ZMUTF16::length(roomId));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_UTF16LengthOfRoomId)->Arg(8)->Arg(64)->Arg(4096);

void BM_StringFromDict(benchmark::State& state) {
    ZMValue entries = ZMValue::object();
    for (int i = 0; i < state.range(0); ++i) {
        std::string key("key");
        key += std::to_string(i);
        entries[key] = std::string(32, 'v');
    }
    for (auto _ : state) benchmark::DoNotOptimize(ZMChatRoomUtil::stringFromDict(entries));
}
BENCHMARK(BM_StringFromDict)->Arg(1)->Arg(10);

// ---- KV change delivery --------------------------------------------------------
// A pushed change of 100 entries through a filter to 8 observers, against its
// bare baseline: one copy of the dictionary, 8 virtual calls and one JSON
// rendering (the text of the delivery line, which repeats per observer).

class KVCountingObserver : public ZMChatRoomKVStatusChangeDelegate {
public:
    void chatRoomKVDidUpdate(const std::string&, const ZMValue& entry) override {
        entries.fetch_add(entry.size(), std::memory_order_relaxed);
    }
    std::atomic<uint64_t> entries{0};
};

class PassingFilter : public ZMChatRoomKVStatusFilterDelegate {
public:
    ZMValue chatRoomKVUpdateFilter(const std::string&, const ZMValue& entry) override { return entry; }
};

ZMValue hundredEntries() {
    ZMValue entries = ZMValue::object();
    for (int i = 0; i < 100; ++i) {
        std::string key("key");
        key += std::to_string(i);
        std::string value("value");
        value += std::to_string(i);
        entries[key] = value;
    }
    return entries;
}

// Clears the emulator's record of log lines now and then, outside the timing,
// so that the record's growth is not measured.
void forgetLinesEvery(benchmark::State& state, int64_t iterations) {
    if (state.iterations() % iterations != 0) return;
    state.PauseTiming();
    ZMCoreEmulator::shared().logger().clear();
    state.ResumeTiming();
}

void BM_KVChangeDelivery(benchmark::State& state) {
    auto& client = ZMChatRoomClient::sharedChatRoomClient();
    std::vector<std::shared_ptr<KVCountingObserver>> observers;
    for (int i = 0; i < 8; ++i) {
        observers.push_back(std::make_shared<KVCountingObserver>());
        client.addChatRoomKVStatusChangeDelegate(observers.back());
    }
    auto filter = std::make_shared<PassingFilter>();
    client.setZMChatRoomKVStatusFilterDelegate(filter);
    const ZMValue update = hundredEntries();
    const ZMValue none = ZMValue::object();
    zmbench::AllocationMeter meter(state);
    for (auto _ : state) {
        ZMChatRoomClientTestPeer::kvChange("room", update, none);
        forgetLinesEvery(state, 256);
    }
    meter.report();
    for (const auto& observer : observers) client.removeChatRoomKVStatusChangeDelegate(observer);
    client.setZMChatRoomKVStatusFilterDelegate(nullptr);
}
BENCHMARK(BM_KVChangeDelivery);

void BM_KVChangeDeliveryBaseline(benchmark::State& state) {
    std::vector<std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>> observers;
    for (int i = 0; i < 8; ++i) observers.push_back(std::make_shared<KVCountingObserver>());
    const ZMValue update = hundredEntries();
    const std::string room = "room";
    zmbench::AllocationMeter meter(state);
    for (auto _ : state) {
        ZMValue copy = update;
        std::string text = copy.dump(2);
        for (const auto& observer : observers) observer->chatRoomKVDidUpdate(room, copy);
        benchmark::DoNotOptimize(copy);
        benchmark::DoNotOptimize(text);
    }
    meter.report();
}
BENCHMARK(BM_KVChangeDeliveryBaseline);

// ---- A refused KV call ------------------------------------------------------------
// setChatRoomEntry with an empty key writes three lines (start, the key
// validator's, the result) and calls the error callback; the baseline formats
// the same three lines with snprintf.

void BM_KVRefusedSet(benchmark::State& state) {
    auto& client = ZMChatRoomClient::sharedChatRoomClient();
    int32_t refused = 0;
    const ZMErrorBlock error = [&refused](int32_t code) { refused = code; };
    for (auto _ : state) {
        client.setChatRoomEntry("room", "", "value", true, false, nullptr, ZMSuccessBlock{}, error);
        forgetLinesEvery(state, 4096);
    }
    benchmark::DoNotOptimize(refused);
}
BENCHMARK(BM_KVRefusedSet);

void BM_KVRefusedSetBaseline(benchmark::State& state) {
    char line[512];
    for (auto _ : state) {
        std::snprintf(line, sizeof line, "room_id:%s,key:%s,value:%s,overwrite:%d,notify:%d,auto_del:%d", "room", "",
                      "value", 0, 1, 0);
        benchmark::DoNotOptimize(line);
        std::snprintf(line, sizeof line, "Parameter error，key is empty or length More than %d", 128);
        benchmark::DoNotOptimize(line);
        std::snprintf(line, sizeof line, "room_id:%s,code:%d", "room", 34260);
        benchmark::DoNotOptimize(line);
    }
}
BENCHMARK(BM_KVRefusedSetBaseline);

}  // namespace
