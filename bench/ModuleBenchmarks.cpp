// Costs of the module's hot paths: the UTF-16 length every argument check
// takes, the decoding of the signal messages the core hands in, the JSON text
// of the KV log lines, and the status fan-out to observers.
#include <benchmark/benchmark.h>

#include <atomic>
#include <string>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMUTF16.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>
#include <ZMChatRoom/Utility/ZMChatRoomUtil.h>
#include <ZMChatRoom/ZMChatRoomClient.h>

namespace {

void BM_UTF16LengthOfRoomId(benchmark::State& state) {
    const std::string roomId(static_cast<size_t>(state.range(0)), 'r');
    for (auto _ : state) benchmark::DoNotOptimize(ZMUTF16::length(roomId));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_UTF16LengthOfRoomId)->Arg(8)->Arg(64)->Arg(4096);

void BM_DecodeMemberChange(benchmark::State& state) {
    ZMValue payload = {{"memberCount", 1000}, {"userList", ZMValue::array()}};
    for (int i = 0; i < state.range(0); ++i) payload["userList"].push_back({{"userId", "user" + std::to_string(i)}, {"status", 1}});
    const std::string text = payload.dump();
    const ZMData bytes(text.begin(), text.end());
    for (auto _ : state) {
        ZMChatRoomMemberActionMessage message;
        message.decodeWithData(bytes);
        benchmark::DoNotOptimize(message.userList.size());
    }
}
BENCHMARK(BM_DecodeMemberChange)->Arg(1)->Arg(50);

void BM_StringFromDict(benchmark::State& state) {
    ZMValue entries = ZMValue::object();
    for (int i = 0; i < state.range(0); ++i) entries["key" + std::to_string(i)] = std::string(32, 'v');
    for (auto _ : state) benchmark::DoNotOptimize(ZMChatRoomUtil::stringFromDict(entries));
}
BENCHMARK(BM_StringFromDict)->Arg(1)->Arg(10);

// Issue-to-delivery of status announcements to ten observers, measured as
// throughput: the notify queue is drained once per batch.
class CountingObserver : public ZMChatRoomStatusDelegate {
public:
    void onChatRoomJoining(const std::string&) override { calls.fetch_add(1, std::memory_order_relaxed); }
    std::atomic<uint64_t> calls{0};
};

void BM_StatusFanOut(benchmark::State& state) {
    auto& client = ZMChatRoomClient::sharedChatRoomClient();
    std::vector<std::shared_ptr<CountingObserver>> observers;
    for (int i = 0; i < 10; ++i) {
        observers.push_back(std::make_shared<CountingObserver>());
        client.addChatRoomStatusDelegate(observers.back());
    }
    constexpr int kBatch = 1000;
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i) client.notifyChatRoomStatus("room", ZMChatRoomStatusJoining, 0);
        client.zm__notify_chatroom_status_queue().sync([] {});
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kBatch);
    for (const auto& observer : observers) client.removeChatRoomStatusDelegate(observer);
}
BENCHMARK(BM_StatusFanOut)->Unit(benchmark::kMillisecond);

}  // namespace
