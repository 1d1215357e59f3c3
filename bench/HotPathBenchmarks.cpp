// The module's hot paths, each beside the bare baseline of the same work:
// a member change decoded and routed to the member observer (beside parsing
// its bytes), a burst of status announcements to eight observers (beside a
// mutex and condition-variable handoff and eight virtual calls), an accepted
// join until the core sees its request (beside a handoff to a worker that
// wakes a second thread first, their samples alternating), and registering
// one more observer.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>

#include "ZMBenchFixtures.h"
#include "ZMBenchSupport.h"

namespace {

using namespace zmbench;
using Clock = std::chrono::steady_clock;

// ---- Member change ---------------------------------------------------------------

// Implements the list form, the one callback most observers override.
class MemberObserver : public ZMChatRoomMemberDelegate {
public:
    void memberDidChange(const std::vector<std::shared_ptr<ZMChatRoomMemberAction>>& members,
                         const std::string&) override {
        seen += members.size();
    }
    size_t seen = 0;
};

ZMData memberChangeBytes(int64_t users) {
    ZMValue payload = {{"memberCount", 1000}, {"userList", ZMValue::array()}};
    for (int64_t i = 0; i < users; ++i) {
        std::string user("user");
        user += std::to_string(i);
        payload["userList"].push_back({{"userId", user}, {"status", 1 + i % 3}});
    }
    const std::string text = payload.dump();
    return ZMData(text.begin(), text.end());
}

// What the module does with one received member change: the registered
// class makes the content, which decodes the payload; the message goes to
// the extension module, which routes it to the member observer.
void BM_MemberChange(benchmark::State& state) {
    auto& module = loadedModule();
    auto observer = std::make_shared<MemberObserver>();
    client().setMemberDelegate(observer);
    const ZMData bytes = memberChangeBytes(state.range(0));
    const ZMMessageClass messageClass = ZMMessageClass::of<ZMChatRoomMemberActionMessage>();
    auto message = std::make_shared<ZMMessage>();
    message->objectName = ZMChatRoomMemberActionMessage::getObjectName();
    message->targetId = "room";
    AllocationMeter meter(state);
    for (auto _ : state) {
        auto content = messageClass.create();
        content->decodeWithData(bytes);
        message->content = std::move(content);
        benchmark::DoNotOptimize(module.didHoldReceivedMessage(message, false));
    }
    meter.report();
    message->content.reset();
    client().setMemberDelegate(nullptr);
    if (observer->seen == 0) state.SkipWithError("the member observer heard nothing");
}
BENCHMARK(BM_MemberChange)->Arg(1)->Arg(50);

void BM_MemberChangeBaseline(benchmark::State& state) {
    const ZMData bytes = memberChangeBytes(state.range(0));
    AllocationMeter meter(state);
    for (auto _ : state) {
        ZMValue parsed = ZMValue::parse(bytes.begin(), bytes.end());
        benchmark::DoNotOptimize(parsed);
    }
    meter.report();
}
BENCHMARK(BM_MemberChangeBaseline)->Arg(1)->Arg(50);

// ---- Status announcements ------------------------------------------------------------

constexpr uint32_t kBurst = 256;
constexpr int kStatusObservers = 8;

// Counts its calls (only ever called on one thread at a time); the last of a
// group publishes the count and wakes the issuer once it reaches the target.
class BurstObserver : public ZMChatRoomStatusDelegate {
public:
    BurstObserver(std::atomic<uint32_t>* published, const std::atomic<uint32_t>* target)
        : published_(published), target_(target) {}
    void onChatRoomJoining(const std::string& roomId) override {
        bytes_ += roomId.size();
        ++calls_;
        if (published_ && calls_ == target_->load(std::memory_order_relaxed)) {
            published_->store(calls_, std::memory_order_release);
            published_->notify_one();
        }
    }

private:
    std::atomic<uint32_t>* published_;
    const std::atomic<uint32_t>* target_;
    size_t bytes_ = 0;
    uint32_t calls_ = 0;
};

// Eight observers; the last one tells when a burst has been heard.
struct BurstObservers {
    std::atomic<uint32_t> published{0};
    std::atomic<uint32_t> target{0};
    std::vector<std::shared_ptr<BurstObserver>> all;

    BurstObservers() {
        for (int i = 0; i < kStatusObservers; ++i) {
            all.push_back(std::make_shared<BurstObserver>(i + 1 == kStatusObservers ? &published : nullptr, &target));
        }
    }
    // Sets the count the next burst ends at and answers it.
    uint32_t expect(uint32_t more) {
        const uint32_t end = published.load(std::memory_order_relaxed) + more;
        target.store(end, std::memory_order_relaxed);
        return end;
    }
    void waitFor(uint32_t end) {
        for (uint32_t seen = published.load(std::memory_order_acquire); seen != end;
             seen = published.load(std::memory_order_acquire)) {
            published.wait(seen, std::memory_order_acquire);
        }
    }
};

void BM_StatusBurst(benchmark::State& state) {
    auto& statusClient = client();
    BurstObservers observers;
    for (const auto& observer : observers.all) statusClient.addChatRoomStatusDelegate(observer);
    settle();
    AllocationMeter meter(state);
    for (auto _ : state) {
        const uint32_t end = observers.expect(kBurst);
        for (uint32_t i = 0; i < kBurst; ++i) statusClient.notifyChatRoomStatus("room-42", ZMChatRoomStatusJoining, 0);
        observers.waitFor(end);
    }
    meter.report(kBurst);
    for (const auto& observer : observers.all) statusClient.removeChatRoomStatusDelegate(observer);
}
BENCHMARK(BM_StatusBurst)->UseRealTime();

// The bare handoff: a worker thread, a mutex and a condition variable; the
// worker takes every queued announcement at once and calls the eight
// observers for each.
class HandoffWorker {
public:
    struct Announcement {
        std::string roomId;
        int64_t status;
        int32_t code;
    };

    explicit HandoffWorker(std::vector<ZMChatRoomStatusDelegate*> observers)
        : observers_(std::move(observers)), thread_([this] { run(); }) {}
    ~HandoffWorker() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_one();
        thread_.join();
    }
    void post(Announcement announcement) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            pending_.push_back(std::move(announcement));
        }
        wake_.notify_one();
    }

private:
    void run() {
        std::vector<Announcement> batch;
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return stopping_ || !pending_.empty(); });
            if (pending_.empty()) return;
            batch.swap(pending_);
            lock.unlock();
            for (const auto& announcement : batch) {
                for (auto* observer : observers_) observer->onChatRoomJoining(announcement.roomId);
            }
            batch.clear();
            lock.lock();
        }
    }

    std::vector<ZMChatRoomStatusDelegate*> observers_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::vector<Announcement> pending_;
    bool stopping_ = false;
    std::thread thread_;
};

void BM_StatusBurstBaseline(benchmark::State& state) {
    BurstObservers observers;
    std::vector<ZMChatRoomStatusDelegate*> targets;
    for (const auto& observer : observers.all) targets.push_back(observer.get());
    HandoffWorker worker(std::move(targets));
    AllocationMeter meter(state);
    for (auto _ : state) {
        const uint32_t end = observers.expect(kBurst);
        for (uint32_t i = 0; i < kBurst; ++i) worker.post({"room-42", ZMChatRoomStatusJoining, 0});
        observers.waitFor(end);
    }
    meter.report(kBurst);
}
BENCHMARK(BM_StatusBurstBaseline)->UseRealTime();

// ---- Join until the core sees the request -----------------------------------------------

// The moment a request was seen, published by whoever saw it.
struct Sighting {
    std::atomic<uint32_t> count{0};
    std::atomic<int64_t> at{0};

    void note() {
        at.store(Clock::now().time_since_epoch().count(), std::memory_order_relaxed);
        count.fetch_add(1, std::memory_order_release);
        count.notify_one();
    }
    // Waits for the sighting after `before` and answers its time.
    Clock::time_point waitAfter(uint32_t before) {
        for (uint32_t seen = count.load(std::memory_order_acquire); seen == before;
             seen = count.load(std::memory_order_acquire)) {
            count.wait(seen, std::memory_order_acquire);
        }
        return Clock::time_point(Clock::duration(at.load(std::memory_order_relaxed)));
    }
};

// Latency samples and their median, reported as a counter; the module's
// samples also set each iteration's time.
class LatencySamples {
public:
    void add(benchmark::State& state, Clock::duration latency) {
        state.SetIterationTime(std::chrono::duration<double>(latency).count());
        add(latency);
    }
    void add(Clock::duration latency) { samples_.push_back(std::chrono::duration<double, std::nano>(latency).count()); }
    void report(benchmark::State& state, const char* counter) {
        if (samples_.empty()) return;
        auto middle = samples_.begin() + static_cast<std::ptrdiff_t>(samples_.size() / 2);
        std::nth_element(samples_.begin(), middle, samples_.end());
        state.counters[counter] = *middle;
    }

private:
    std::vector<double> samples_;
};

// A serial worker of its own: tasks handed over under a mutex, woken by a
// condition variable.
class TaskWorker {
public:
    TaskWorker() : thread_([this] { run(); }) {}
    ~TaskWorker() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_one();
        thread_.join();
    }
    void post(std::function<void()> task) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            tasks_.push_back(std::move(task));
        }
        wake_.notify_one();
    }
    // Returns once every task posted so far has run.
    void drain() {
        std::atomic<bool> done{false};
        post([&done] {
            done.store(true, std::memory_order_release);
            done.notify_one();
        });
        while (!done.load(std::memory_order_acquire)) done.wait(false, std::memory_order_acquire);
    }

private:
    void run() {
        std::vector<std::function<void()>> batch;
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
            if (tasks_.empty()) return;
            batch.swap(tasks_);
            lock.unlock();
            for (auto& task : batch) task();
            batch.clear();
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::vector<std::function<void()>> tasks_;
    bool stopping_ = false;
    std::thread thread_;
};

// The baseline of the same path: a handoff to a worker that first wakes a
// second worker (the joining announcement) and then reaches the core.
struct JoinBaseline {
    TaskWorker operations;
    TaskWorker notifications;
    Sighting sighting;

    Clock::duration sample() {
        const uint32_t before = sighting.count.load(std::memory_order_acquire);
        const auto start = Clock::now();
        operations.post([this] {
            notifications.post([] {});  // the joining announcement is woken first
            sighting.note();            // then the request reaches the core
        });
        const auto latency = sighting.waitAfter(before) - start;
        operations.drain();
        notifications.drain();
        return latency;
    }
};

// Module and baseline samples alternate, so that both meet the machine in
// the same state: on a shared virtual machine the cost of waking a thread
// on an idle processor changes over seconds, and it dominates both paths.
// Reports the module's median as "p50_ns" and the baseline's as
// "baseline_p50_ns".
void BM_JoinUntilCoreSeesRequest(benchmark::State& state) {
    loadedModule();
    auto& joinClient = client();
    Sighting sighting;
    core().setRule("joinChatroom", [&sighting](const ZMCoreRequest&) -> std::optional<ZMCoreAnswer> {
        sighting.note();
        return ZMCoreAnswer::success();
    });
    joinClient.clearChatRoom();
    settle();
    forgetCoreRecords();
    LatencySamples samples;
    LatencySamples baselineSamples;
    JoinBaseline baseline;
    const ZMValue roomId = "room-7";
    for (auto _ : state) {
        const uint32_t before = sighting.count.load(std::memory_order_acquire);
        const auto start = Clock::now();
        joinClient.joinChatRoom(roomId, 10, ZMSuccessBlock{}, ZMErrorBlock{});
        samples.add(state, sighting.waitAfter(before) - start);
        // Outside the sample: the answer runs its course and the room is
        // forgotten (so the next join is again of a room not yet cached).
        settle();
        joinClient.clearChatRoom();
        if (state.iterations() % 256 == 0) forgetCoreRecords();
        // The baseline's sample, while the module's threads go idle.
        baselineSamples.add(baseline.sample());
    }
    samples.report(state, "p50_ns");
    baselineSamples.report(state, "baseline_p50_ns");
    core().clearRules();
    forgetCoreRecords();
}
BENCHMARK(BM_JoinUntilCoreSeesRequest)->UseManualTime()->Iterations(2000);


// ---- Observer registration ----------------------------------------------------------------

class IdleStatusObserver : public ZMChatRoomStatusDelegate {
public:
    void onChatRoomJoining(const std::string&) override {}
};

// Registering observers when range(0) are registered already: each
// iteration registers 256 more (timed) and removes them again (not timed).
void BM_RegisterStatusObserver(benchmark::State& state) {
    constexpr int kAdded = 256;
    auto& registry = client();
    std::vector<std::shared_ptr<ZMChatRoomStatusDelegate>> present;
    for (int64_t i = 1; i < state.range(0); ++i) {
        present.push_back(std::make_shared<IdleStatusObserver>());
        registry.addChatRoomStatusDelegate(present.back());
    }
    std::vector<std::shared_ptr<ZMChatRoomStatusDelegate>> added;
    for (int i = 0; i < kAdded; ++i) added.push_back(std::make_shared<IdleStatusObserver>());
    for (auto _ : state) {
        for (const auto& observer : added) registry.addChatRoomStatusDelegate(observer);
        state.PauseTiming();
        for (const auto& observer : added) registry.removeChatRoomStatusDelegate(observer);
        state.ResumeTiming();
    }
    for (const auto& observer : present) registry.removeChatRoomStatusDelegate(observer);
}
BENCHMARK(BM_RegisterStatusObserver)->Arg(100)->Arg(1000);

}  // namespace
