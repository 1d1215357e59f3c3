#include "ZMBenchSupport.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <new>
#include <optional>
#include <string_view>
#include <vector>

// ---- Counted heap ------------------------------------------------------------------
// Every operator new of the process (the shared libraries' too: the program's
// definitions interpose theirs) counts one allocation while an
// AllocationMeter is measuring; otherwise it costs one relaxed load.

namespace {

// Counts in slots of their own cache line, a thread keeping to one slot, so
// that counting does not make the threads' allocations contend; a read adds
// the slots up.
struct alignas(64) CountSlot {
    std::atomic<uint64_t> allocations{0};
};
constexpr size_t kCountSlots = 64;
CountSlot gSlots[kCountSlots];
std::atomic<size_t> gNextSlot{0};
std::atomic<int> gMeters{0};

CountSlot& threadSlot() {
    thread_local CountSlot* const slot = &gSlots[gNextSlot.fetch_add(1, std::memory_order_relaxed) % kCountSlots];
    return *slot;
}

void* countedAllocation(std::size_t size, std::size_t alignment) {
    if (size == 0) size = 1;
    void* memory = alignment > alignof(std::max_align_t)
                       ? std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment)
                       : std::malloc(size);
    if (memory == nullptr) return nullptr;
    if (gMeters.load(std::memory_order_relaxed) > 0) {
        threadSlot().allocations.fetch_add(1, std::memory_order_relaxed);
    }
    return memory;
}

void* allocateOrThrow(std::size_t size, std::size_t alignment) {
    void* memory = countedAllocation(size, alignment);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void release(void* memory) noexcept { std::free(memory); }

}  // namespace

void* operator new(std::size_t size) { return allocateOrThrow(size, 0); }
void* operator new[](std::size_t size) { return allocateOrThrow(size, 0); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return countedAllocation(size, 0); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return countedAllocation(size, 0); }
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return countedAllocation(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return countedAllocation(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { release(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept { release(memory); }
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept { release(memory); }

namespace zmbench {

uint64_t allocationCount() {
    uint64_t total = 0;
    for (const auto& slot : gSlots) total += slot.allocations.load(std::memory_order_relaxed);
    return total;
}

int64_t liveHeapBytes() {
    // What the allocator has handed out and not got back, in every arena and
    // in mapped chunks, chunk overheads included.
    const struct mallinfo2 info = mallinfo2();
    return static_cast<int64_t>(info.uordblks + info.hblkhd);
}

AllocationMeter::AllocationMeter(benchmark::State& state) : state_(state) {
    gMeters.fetch_add(1, std::memory_order_relaxed);
    start_ = allocationCount();
}

AllocationMeter::~AllocationMeter() { gMeters.fetch_sub(1, std::memory_order_relaxed); }

void AllocationMeter::report(double itemsPerIteration) const {
    const double items = static_cast<double>(state_.iterations()) * itemsPerIteration;
    if (items <= 0) return;
    state_.counters["allocs"] = static_cast<double>(allocationCount() - start_) / items;
}

// ---- The ratio table -----------------------------------------------------------------

namespace {

struct Row {
    std::string label;
    Metric module;
    std::optional<Metric> baseline;  // absent: a bound row
    std::optional<double> target;    // ratio target, or the bound in raw units (absent: reported only)
    double scale = 1;
    std::string unit;
};

std::vector<Row>& rows() {
    static std::vector<Row> all;
    return all;
}

// The medians of every run, by "function/args".
class CollectingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& reports) override {
        for (const auto& run : reports) {
            if (run.error_occurred) continue;
            // A run without repetitions has no aggregates: its single run stands for the median.
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
            if (!median && !single) continue;
            std::string name = run.run_name.function_name;
            if (!run.run_name.args.empty()) {
                name += '/';
                name += run.run_name.args;
            }
            Values& values = medians[name];
            values.realTimeNs = run.GetAdjustedRealTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
            values.cpuTimeNs = run.GetAdjustedCPUTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
            for (const auto& [counter, value] : run.counters) values.counters[counter] = value.value;
        }
        ConsoleReporter::ReportRuns(reports);
    }

    std::optional<double> value(const Metric& metric) const {
        auto found = medians.find(metric.run);
        if (found == medians.end()) return std::nullopt;
        if (metric.counter.empty()) return found->second.realTimeNs;
        if (metric.counter == kCPUTime) return found->second.cpuTimeNs;
        auto counter = found->second.counters.find(metric.counter);
        if (counter == found->second.counters.end()) return std::nullopt;
        return counter->second;
    }

private:
    struct Values {
        double realTimeNs = 0;
        double cpuTimeNs = 0;
        std::map<std::string, double> counters;
    };
    std::map<std::string, Values> medians;
};

std::string formatted(double value, const std::string& unit) {
    char text[64];
    if (value >= 100) {
        std::snprintf(text, sizeof text, "%.0f %s", value, unit.c_str());
    } else if (value >= 10) {
        std::snprintf(text, sizeof text, "%.1f %s", value, unit.c_str());
    } else {
        std::snprintf(text, sizeof text, "%.2f %s", value, unit.c_str());
    }
    return text;
}

void printTable(const CollectingReporter& reporter) {
    std::printf("\nRatio table (medians of the repetitions; module beside its baseline, same program and run)\n");
    std::printf("%-58s %14s %14s %8s %12s  %s\n", "path", "module", "baseline", "ratio", "target", "met");
    size_t met = 0;
    size_t measured = 0;
    for (const auto& row : rows()) {
        const auto module = reporter.value(row.module);
        const auto baseline = row.baseline ? reporter.value(*row.baseline) : std::nullopt;
        if (!module || (row.baseline && !baseline)) {
            std::printf("%-58s %14s %14s %8s %12s  %s\n", row.label.c_str(), "-", "-", "-", "-", "not run");
            continue;
        }
        ++measured;
        char target[32];
        char ratio[32] = "-";
        bool ok = false;
        std::string baselineText = "-";
        if (row.baseline) {
            const double r = *baseline > 0 ? *module / *baseline : 0;
            std::snprintf(ratio, sizeof ratio, "%.2fx", r);
            std::snprintf(target, sizeof target, "<= %.2fx", *row.target);
            baselineText = formatted(*baseline / row.scale, row.unit);
            ok = r <= *row.target;
        } else if (row.target) {
            std::snprintf(target, sizeof target, "<= %s", formatted(*row.target / row.scale, row.unit).c_str());
            ok = *module <= *row.target;
        } else {
            --measured;  // reported only
            std::printf("%-58s %14s %14s %8s %12s  %s\n", row.label.c_str(),
                        formatted(*module / row.scale, row.unit).c_str(), "-", "-", "-", "-");
            continue;
        }
        met += ok ? 1 : 0;
        std::printf("%-58s %14s %14s %8s %12s  %s\n", row.label.c_str(), formatted(*module / row.scale, row.unit).c_str(),
                    baselineText.c_str(), ratio, target, ok ? "yes" : "NO");
    }
    std::printf("%zu of %zu measured rows meet their target.\n", met, measured);
}

}  // namespace

void addRatioRow(std::string label, Metric module, Metric baseline, double target, double scale, std::string unit) {
    rows().push_back(Row{std::move(label), std::move(module), std::move(baseline), target, scale, std::move(unit)});
}

void addBoundRow(std::string label, Metric module, double bound, double scale, std::string unit) {
    rows().push_back(Row{std::move(label), std::move(module), std::nullopt, bound, scale, std::move(unit)});
}

void addReportRow(std::string label, Metric module, double scale, std::string unit) {
    rows().push_back(Row{std::move(label), std::move(module), std::nullopt, std::nullopt, scale, std::move(unit)});
}

void registerTableRows();

}  // namespace zmbench

// Five repetitions of everything by default (the table reads their medians),
// with only the aggregates displayed, and the repetitions of all benchmarks
// run in random order, so that a module benchmark and its baseline see the
// same spells of load on a shared machine; each can still be set on the
// command line.
int main(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc);
    auto given = [&](std::string_view flag) {
        return std::any_of(arguments.begin() + 1, arguments.end(),
                           [&](const char* argument) { return std::string_view(argument).starts_with(flag); });
    };
    static char repetitions[] = "--benchmark_repetitions=5";
    static char aggregatesOnly[] = "--benchmark_display_aggregates_only=true";
    static char interleaving[] = "--benchmark_enable_random_interleaving=true";
    if (!given("--benchmark_repetitions")) arguments.push_back(repetitions);
    if (!given("--benchmark_display_aggregates_only")) arguments.push_back(aggregatesOnly);
    if (!given("--benchmark_enable_random_interleaving")) arguments.push_back(interleaving);
    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 1;

    zmbench::registerTableRows();
    zmbench::CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    printTable(reporter);
    benchmark::Shutdown();
    return 0;
}
