// The cost of the module's log lines, on the path that writes the most of
// them for the least work: a join refused for its room id (65 UTF-16 units,
// one too many). It writes three lines (the start line, the validator's, the
// result) and calls the error callback. The baseline formats the same three
// lines with snprintf into a buffer on the stack.
//
// The emulator's logger keeps lines by default (recording on): once its
// buffer has turned round, a line is rendered into storage reused from line
// to line. With recording off and no console or observer, a line is not
// rendered at all. The "allocs" counter (zm_bench's counted operator new)
// shows what the call allocates per refused join. Two entry points: the
// plain join (whose success callback the client wraps into a response
// callback before checking anything) and the join of an existing room with a
// response callback (passed through as it is), so that the logging part is
// seen apart from that wrapping.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <ZMChatRoom/ZMChatRoomClient.h>

#include "ZMBenchSupport.h"

namespace {

const std::string kRoomId(65, 'r');

void BM_RefusedJoin(benchmark::State& state) {
    auto& client = ZMChatRoomClient::sharedChatRoomClient();
    auto& logger = ZMCoreEmulator::shared().logger();
    const bool recording = state.range(0) != 0;
    logger.setRecording(recording);
    // Passed as the application would pass them; built once, outside the timing.
    const ZMValue roomId = kRoomId;
    int32_t refused = 0;
    const ZMErrorBlock error = [&refused](int32_t code) { refused = code; };
    const ZMSuccessBlock success;
    const ZMJoinSuccessBlock responseSuccess;
    const bool existing = state.range(1) != 0;
    auto join = [&] {
        if (existing) {
            client.joinExistChatRoom(roomId, 10, responseSuccess, error);
        } else {
            client.joinChatRoom(roomId, 10, success, error);
        }
    };
    // Fills the line buffer three times over: each join writes three lines
    // and the buffer's capacity need not be a multiple of three, so only
    // then has every slot held the longest of the three lines and grown its
    // storage to fit it.
    const size_t warmUpJoins = logger.lineCapacity() + 1;
    for (size_t i = 0; i < warmUpJoins; ++i) join();

    zmbench::AllocationMeter meter(state);
    for (auto _ : state) join();
    meter.report();
    benchmark::DoNotOptimize(refused);
    if (refused != ZMErrorInvalidParameter) state.SkipWithError("the join was not refused");
    logger.setRecording(true);
}
BENCHMARK(BM_RefusedJoin)->ArgNames({"recording", "existing"})->ArgsProduct({{1, 0}, {0, 1}});

void BM_RefusedJoinBaseline(benchmark::State& state) {
    const char* roomId = kRoomId.c_str();
    zmbench::AllocationMeter meter(state);
    char line[512];
    for (auto _ : state) {
        std::snprintf(line, sizeof line, "room_id:%s,existed:%d,count:%d,joinMode:%d", roomId, 0, 10, 0);
        benchmark::DoNotOptimize(line);
        std::snprintf(line, sizeof line, "Parameter error，targetId length More than %d", 64);
        benchmark::DoNotOptimize(line);
        std::snprintf(line, sizeof line, "code:%d,room_id:%s", 34210, roomId);
        benchmark::DoNotOptimize(line);
    }
    meter.report();
}
BENCHMARK(BM_RefusedJoinBaseline);

}  // namespace
