#include "host/timer_task_manager.h"

#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {
// Polls until the condition holds or a generous timeout passes.
template <class Condition>
bool WaitFor(Condition condition) {
    const auto deadline = Clock::now() + 10s;
    for (; !condition(); std::this_thread::sleep_for(1ms))
        if (Clock::now() > deadline) return false;
    return true;
}
}  // namespace

TEST(Timer, ThrowingCallbackRepeatsUntilRemoved) {
    testing_support::LogCapture log;
    ITimerTaskManager& timer = ITimerTaskManager::GetInstance();
    EXPECT_EQ(&timer, &ITimerTaskManager::GetInstance());
    std::atomic<int> calls{0};
    const uint64_t id = timer.AddTimerTask([&] {
        calls.fetch_add(1);
        throw std::runtime_error("tick failed");
    }, 2);
    ASSERT_NE(id, 0u);
    EXPECT_TRUE(WaitFor([&] { return calls.load() >= 5; }));
    EXPECT_TRUE(log.ContainsSubstring("tick failed"));
    EXPECT_TRUE(timer.RemoveTimerTask(id));
    const int after_remove = calls.load();
    std::this_thread::sleep_for(30ms);  // ~15 periods
    EXPECT_EQ(calls.load(), after_remove);
    EXPECT_FALSE(timer.RemoveTimerTask(id));
}

TEST(Timer, RemoveWaitsForTheRunningCallback) {
    TimerTaskManager timer;
    std::atomic<bool> entered{false}, inside{false};
    const uint64_t id = timer.AddTimerTask([&] {
        inside = entered = true;
        std::this_thread::sleep_for(50ms);
        inside = false;
    }, 1);
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));
    ASSERT_TRUE(timer.RemoveTimerTask(id));
    EXPECT_FALSE(inside.load());
}

TEST(Timer, RemoveFromInsideTheCallback) {
    TimerTaskManager timer;
    std::atomic<uint64_t> self{0};
    std::atomic<int> calls{0};
    std::atomic<bool> removed{false}, state_alive{false};
    auto token = std::make_shared<int>(7);
    const uint64_t id = timer.AddTimerTask([&, token] {
        while (self.load() == 0) std::this_thread::yield();  // the id is set just after adding
        calls.fetch_add(1);
        removed = timer.RemoveTimerTask(self.load());
        state_alive = *token == 7;  // its captures survive its own removal
    }, 1);
    ASSERT_NE(id, 0u);
    self = id;
    ASSERT_TRUE(WaitFor([&] { return token.use_count() == 1; }));  // the timer let go
    std::this_thread::sleep_for(10ms);
    EXPECT_EQ(calls.load(), 1);
    EXPECT_TRUE(removed.load());
    EXPECT_TRUE(state_alive.load());
    EXPECT_EQ(timer.TaskCount(), 0u);
}

TEST(Timer, RefusedTasksAndIds) {
    TimerTaskManager timer;
    EXPECT_EQ(timer.AddTimerTask(std::function<void()>(), 10), 0u);
    EXPECT_EQ(timer.AddTimerTask([] {}, 0), 0u);
    EXPECT_EQ(timer.AddTimerTask([] {}, 100000), 1u);
    EXPECT_EQ(timer.AddTimerTask([] {}, 100000), 2u);
    EXPECT_TRUE(timer.RemoveTimerTask(1));
    EXPECT_EQ(timer.AddTimerTask([] {}, 100000), 3u);  // ids are not reused
    EXPECT_FALSE(timer.RemoveTimerTask(0));
    EXPECT_FALSE(timer.RemoveTimerTask(99));
    EXPECT_EQ(timer.TaskCount(), 2u);
}

TEST(Timer, LateCallsSkipMissedPeriodsInsteadOfBursting) {
    TimerTaskManager timer;
    std::mutex mutex;
    std::vector<Clock::time_point> starts;
    const uint64_t id = timer.AddTimerTask([&] {
        std::unique_lock lock(mutex);
        starts.push_back(Clock::now());
        const bool first = starts.size() == 1;
        lock.unlock();
        if (first) std::this_thread::sleep_for(250ms);  // misses two periods
    }, 100);
    ASSERT_TRUE(WaitFor([&] {
        std::lock_guard lock(mutex);
        return starts.size() >= 3;
    }));
    timer.RemoveTimerTask(id);
    std::lock_guard lock(mutex);
    // Catching up would call twice right after the slow call; skipping keeps the calls
    // after it on the 100 ms grid, about a period apart.
    EXPECT_GE(starts[1] - starts[0], 250ms);
    EXPECT_GE(starts[2] - starts[1], 50ms);
}
