// The rows of the ratio table zm_bench prints at the end: each hot path's
// target, read from the medians of its benchmark and of its baseline.

#include "ZMBenchSupport.h"

namespace zmbench {

void registerTableRows() {
    // Wall-clock time, for paths that cross threads.
    auto timeOf = [](const char* run) { return Metric{run, ""}; };
    // CPU time, for paths that run on the calling thread alone.
    auto cpuOf = [](const char* run) { return Metric{run, kCPUTime}; };
    auto counterOf = [](const char* run, const char* counter) { return Metric{run, counter}; };

    addRatioRow("member change, 1 user: decode + route", cpuOf("BM_MemberChange/1"),
                cpuOf("BM_MemberChangeBaseline/1"), 1.2, 1e3, "us");
    addRatioRow("member change, 1 user: allocations", counterOf("BM_MemberChange/1", "allocs"),
                counterOf("BM_MemberChangeBaseline/1", "allocs"), 1.2, 1, "");
    addRatioRow("member change, 50 users: decode + route", cpuOf("BM_MemberChange/50"),
                cpuOf("BM_MemberChangeBaseline/50"), 1.2, 1e3, "us");
    addRatioRow("member change, 50 users: allocations", counterOf("BM_MemberChange/50", "allocs"),
                counterOf("BM_MemberChangeBaseline/50", "allocs"), 1.2, 1, "");

    // The join refused for its room id writes three lines; its baseline
    // formats them with snprintf.
    addRatioRow("refused join, its three lines included", cpuOf("BM_RefusedJoin/recording:1/existing:0"),
                cpuOf("BM_RefusedJoinBaseline"), 1.5, 1, "ns");
    addBoundRow("refused join: allocations", counterOf("BM_RefusedJoin/recording:1/existing:0", "allocs"), 0, 1, "");

    // One iteration is a burst of 256 announcements; shown per announcement.
    addRatioRow("status burst to 8 observers, per announcement", timeOf("BM_StatusBurst"),
                timeOf("BM_StatusBurstBaseline"), 1.2, 256, "ns");
    addBoundRow("status burst: allocations per announcement", counterOf("BM_StatusBurst", "allocs"), 1, 1, "");

    // Module and baseline samples alternate within one benchmark.
    addRatioRow("accepted join until the core sees it, p50", counterOf("BM_JoinUntilCoreSeesRequest", "p50_ns"),
                counterOf("BM_JoinUntilCoreSeesRequest", "baseline_p50_ns"), 1.2, 1e3, "us");

    addRatioRow("reconnect sweep, 10,000 rooms", timeOf("BM_ReconnectSweep/10000"),
                timeOf("BM_ReconnectSweepBaseline/10000"), 3, 1e6, "ms");
    addRatioRow("reconnect sweep per room, 10,000 vs 1,000 rooms", counterOf("BM_ReconnectSweep/10000", "us_per_room"),
                counterOf("BM_ReconnectSweep/1000", "us_per_room"), 1.3, 1, "us");
    addBoundRow("2-second timer sweep, 10,000 rooms all joined", cpuOf("BM_TimerSweepAllJoined/10000"), 0.3e6, 1e6,
                "ms");
    addBoundRow("module heap per cached room (10,000 rooms)", counterOf("BM_ReconnectSweep/10000", "bytes_per_room"),
                200, 1, "B");

    // What the core emulator alone spends on each join request, of the
    // sweep's time per room.
    addReportRow("core emulator alone: one join request", counterOf("BM_CoreJoinRequest", "us_per_request"), 1,
                 "us");
    addReportRow("reconnect sweep per room, 100,000 rooms", counterOf("BM_ReconnectSweep/100000", "us_per_room"), 1,
                 "us");
    addReportRow("module heap per cached room (100,000 rooms)", counterOf("BM_ReconnectSweep/100000", "bytes_per_room"),
                 1, "B");

    // One iteration registers 256 observers; shown per registration.
    addRatioRow("registering an observer, 1,000 vs 100 registered", cpuOf("BM_RegisterStatusObserver/1000"),
                cpuOf("BM_RegisterStatusObserver/100"), 1.3, 256, "ns");

    addRatioRow("KV change of 100 entries, filter + 8 observers", cpuOf("BM_KVChangeDelivery"),
                cpuOf("BM_KVChangeDeliveryBaseline"), 2, 1e3, "us");
}

}  // namespace zmbench
