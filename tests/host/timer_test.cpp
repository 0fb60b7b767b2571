#include "host/timer_task_manager.h"

#include "support/log_capture.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

using namespace std::chrono_literals;

using testing_support::WaitFor;

TEST(Timer, ThrowingCallbackRepeatsUntilRemovedAndRemoveWaitsForIt) {
    testing_support::LogCapture log;
    ITimerTaskManager& timer = ITimerTaskManager::GetInstance();
    std::atomic<int> calls{0};
    std::atomic<bool> inside{false};
    const uint64_t id = timer.AddTimerTask([&] {
        inside = true;
        if (calls.fetch_add(1) >= 4) std::this_thread::sleep_for(50ms);
        inside = false;
        throw std::runtime_error("tick failed");
    }, 2);
    ASSERT_NE(id, 0u);
    ASSERT_TRUE(WaitFor([&] { return calls.load() >= 5; }));  // the fifth call is sleeping
    EXPECT_TRUE(timer.RemoveTimerTask(id));
    EXPECT_FALSE(inside.load());
    EXPECT_TRUE(log.ContainsSubstring("tick failed"));
    const int after_remove = calls.load();
    std::this_thread::sleep_for(30ms);  // ~15 periods
    EXPECT_EQ(calls.load(), after_remove);
    EXPECT_FALSE(timer.RemoveTimerTask(id));
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
    EXPECT_TRUE(removed.load() && state_alive.load());
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
