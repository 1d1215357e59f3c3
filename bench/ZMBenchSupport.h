#pragma once

// What the benchmark programs share: a count of every heap allocation the
// process makes (a replaced global operator new), and the ratio table that
// zm_bench prints after the runs. Each row of the table compares the median
// of a module benchmark's repetitions with the median of its bare baseline
// (run in the same program and run), or with a fixed bound where a path has
// no baseline.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

namespace zmbench {

// Heap allocations made through operator new, by every thread, while an
// AllocationMeter was measuring.
uint64_t allocationCount();
// Bytes the heap holds now (in use, chunk overheads included).
int64_t liveHeapBytes();

// Counts allocations over a timed loop and reports them per item as the
// counter "allocs" (items: what one iteration handles, e.g. 256 announcements).
// Allocations are counted only while a meter lives, so that benchmarks
// without one do not pay for counting.
class AllocationMeter {
public:
    explicit AllocationMeter(benchmark::State& state);
    ~AllocationMeter();
    AllocationMeter(const AllocationMeter&) = delete;
    AllocationMeter& operator=(const AllocationMeter&) = delete;
    void report(double itemsPerIteration = 1) const;

private:
    benchmark::State& state_;
    uint64_t start_ = 0;
};

// A value a row reads from a benchmark's median: its real time per iteration
// (in nanoseconds) when counter is empty, its CPU time per iteration when
// counter is kCPUTime (for single-threaded paths: the machine is shared and a
// thread that is not running is not charged), else the named counter.
inline constexpr const char* kCPUTime = "cpu time";
struct Metric {
    std::string run;  // function name plus "/args", e.g. "BM_MemberChange/50"
    std::string counter;
};

// A row comparing module with baseline: ratio = module / baseline, met when
// ratio <= target. scale divides both values for display in unit.
void addRatioRow(std::string label, Metric module, Metric baseline, double target, double scale, std::string unit);
// A row with a fixed bound: met when module <= bound (both in raw metric
// units); scale and unit as above.
void addBoundRow(std::string label, Metric module, double bound, double scale, std::string unit);
// A row that only reports a value (no target).
void addReportRow(std::string label, Metric module, double scale, std::string unit);

}  // namespace zmbench
