// The membership cache at scale: the reconnect sweep until the core has seen
// a rejoin request for every cached room (beside a locked map sweep handing
// as many tasks to a worker, and beside the core emulator's own cost of a
// join request), the 2-second timer's sweep when every room is joined, and
// the module's memory per cached room.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <VemoIMLibCore/ZMKernel.h>

#include "ZMBenchFixtures.h"
#include "ZMBenchSupport.h"

namespace {

using namespace zmbench;
using Clock = std::chrono::steady_clock;

// Waits until the core has seen count join requests since its record was
// last cleared (every request is answered with success, the emulator's
// default).
void waitForJoinRequests(int64_t count) {
    if (!core().waitForRequests("joinChatroom", static_cast<size_t>(count), 600)) std::abort();
}

// The cache holds exactly `rooms` joined rooms, joined through the public
// API. Built once per size and kept while benchmarks of that size run; the
// module's heap per room is measured while it is built.
struct Population {
    int64_t rooms = 0;
    double bytesPerRoom = 0;
};

Population& population() {
    static Population current;
    return current;
}

void populate(int64_t rooms) {
    loadedModule();
    Population& current = population();
    auto& cacheClient = client();
    // Other benchmarks run in between (in random order) answer joins with
    // rules of their own and clear the cache: the rules go, and the rooms
    // are joined again unless they are all there.
    core().clearRules();
    if (current.rooms == rooms && cacheClient.cacheChatRoomDict().count() == static_cast<size_t>(rooms)) return;
    cacheClient.clearChatRoom();
    settle();
    forgetCoreRecords();
    // The heap is read after the first half of the rooms and after all of
    // them: the difference is what the second half holds, without what any
    // number of rooms shares (buffers that keep their capacity, records).
    auto join = [&](int64_t from, int64_t to) {
        for (int64_t i = from; i < to; ++i) {
            cacheClient.joinChatRoom(roomName(i), 10, ZMSuccessBlock{}, ZMErrorBlock{});
            // Keeps the emulator's records from growing without bound.
            if (i % 1024 == 1023) {
                settle();
                forgetCoreRecords();
            }
        }
        settle();
        forgetCoreRecords();
    };
    join(0, rooms / 2);
    const int64_t half = liveHeapBytes();
    join(rooms / 2, rooms);
    current.rooms = rooms;
    current.bytesPerRoom = static_cast<double>(liveHeapBytes() - half) / static_cast<double>(rooms - rooms / 2);
}

// Runs the benchmark's iterations: each runs round, which answers the time
// it measured; everything then settles and the emulator forgets its records,
// outside the timing. The counter receives the microseconds per unit (units:
// what one round handles).
template <class Round>
void timedRounds(benchmark::State& state, const char* counter, int64_t units, Round round) {
    double seconds = 0;
    for (auto _ : state) {
        const double elapsed = std::chrono::duration<double>(round()).count();
        state.SetIterationTime(elapsed);
        seconds += elapsed;
        settle();
        forgetCoreRecords();
    }
    if (state.iterations() > 0) {
        state.counters[counter] = seconds * 1e6 / static_cast<double>(state.iterations()) / static_cast<double>(units);
    }
}

// From connection lost (every room failed) to connected again: the module's
// reconnect sweep, until the core has seen every room's rejoin request.
void BM_ReconnectSweep(benchmark::State& state) {
    const int64_t rooms = state.range(0);
    populate(rooms);
    timedRounds(state, "us_per_room", rooms, [&] {
        core().setConnectionStatus(1);  // every room failed
        settle();
        forgetCoreRecords();
        const auto start = Clock::now();
        core().setConnectionStatus(0);  // the sweep runs on the core's callback thread
        waitForJoinRequests(rooms);
        return Clock::now() - start;
    });
    state.counters["bytes_per_room"] = population().bytesPerRoom;
}
BENCHMARK(BM_ReconnectSweep)->Arg(1000)->Arg(10000)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_ReconnectSweep)
    ->Arg(100000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(3);

// The core emulator's own share of each rejoin: join requests made straight
// to the emulator from one thread, each recorded and its answer handed to a
// callback thread (delivered outside the timing).
void BM_CoreJoinRequest(benchmark::State& state) {
    loadedModule();
    core().clearRules();
    auto& service = ZMKernel::sharedInstance().chatRoomPSManager();
    constexpr int64_t kBatch = 1000;
    timedRounds(state, "us_per_request", kBatch, [&] {
        const auto start = Clock::now();
        for (int64_t i = 0; i < kBatch; ++i) {
            service.joinChatroom(roomName(i), 10, true, 0, [](int32_t, const ZMValue&) {});
        }
        return Clock::now() - start;
    });
}
BENCHMARK(BM_CoreJoinRequest)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

// A locked map of the same rooms, swept once: every room hands a task
// carrying its id to a worker thread, until the worker has run them all.
void BM_ReconnectSweepBaseline(benchmark::State& state) {
    struct Entry {
        int32_t messageCount = 10;
        int64_t status = 3;
    };
    std::mutex mapMutex;
    std::map<std::string, Entry> entries;
    for (int64_t i = 0; i < state.range(0); ++i) entries.emplace(roomName(i), Entry{});

    std::mutex queueMutex;
    std::condition_variable wake;
    std::vector<std::function<void()>> tasks;
    bool stopping = false;
    std::atomic<uint64_t> ran{0};
    std::atomic<uint64_t> target{0};
    std::atomic<bool> reached{false};
    std::thread worker([&] {
        std::vector<std::function<void()>> batch;
        std::unique_lock<std::mutex> lock(queueMutex);
        for (;;) {
            wake.wait(lock, [&] { return stopping || !tasks.empty(); });
            if (tasks.empty()) return;
            batch.swap(tasks);
            lock.unlock();
            for (auto& task : batch) task();
            batch.clear();
            lock.lock();
        }
    });
    size_t seenBytes = 0;
    for (auto _ : state) {
        reached.store(false);
        target.store(ran.load() + entries.size());
        const auto start = Clock::now();
        {
            std::lock_guard<std::mutex> lock(mapMutex);
            for (const auto& item : entries) {
                if (item.second.status != 3) continue;
                {
                    std::lock_guard<std::mutex> queueLock(queueMutex);
                    tasks.push_back([&, roomId = item.first, count = item.second.messageCount] {
                        seenBytes += roomId.size() + static_cast<size_t>(count);
                        if (ran.fetch_add(1) + 1 == target.load()) {
                            reached.store(true);
                            reached.notify_one();
                        }
                    });
                }
                wake.notify_one();
            }
        }
        while (!reached.load()) reached.wait(false);
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
    {
        std::lock_guard<std::mutex> lock(queueMutex);
        stopping = true;
    }
    wake.notify_one();
    worker.join();
    benchmark::DoNotOptimize(seenBytes);
}
BENCHMARK(BM_ReconnectSweepBaseline)->Arg(10000)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

// The 2-second rejoin timer firing while every cached room is joined: the
// main thread's time per firing.
void BM_TimerSweepAllJoined(benchmark::State& state) {
    populate(state.range(0));
    auto& mainQueue = ZMMainQueue::shared();
    client().startChatRoomRejoinTimer();
    mainQueue.drain();
    if (mainQueue.activeTimerCount() == 0) state.SkipWithError("no rejoin timer");
    forgetCoreRecords();
    for (auto _ : state) mainQueue.advance(2.0);
    if (core().waitForRequests("joinChatroom", 1, 0)) state.SkipWithError("the timer rejoined a joined room");
}
BENCHMARK(BM_TimerSweepAllJoined)->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace
