#include "host/thread_pool.h"

#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

TEST(ThreadPool, ConcurrentProducersKeepTheirOrderOneTaskAtATime) {
    ThreadPool pool;
    ASSERT_TRUE(pool.AddService("sink", 1, 0));
    constexpr int kProducers = 4, kTasks = 500;
    std::vector<std::vector<int>> seen(kProducers);  // touched by the one worker only
    std::atomic<int> inside{0}, overlaps{0};
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p)
        producers.emplace_back([&, p] {
            for (int i = 0; i < kTasks; ++i)
                pool.AddTask([&, p, i] {
                    if (inside.fetch_add(1) != 0) overlaps.fetch_add(1);
                    seen[p].push_back(i);
                    if (i % 100 == 0) std::this_thread::sleep_for(1ms);
                    inside.fetch_sub(1);
                }, "sink");
        });
    for (auto& producer : producers) producer.join();
    pool.WaitIdle("sink");
    EXPECT_EQ(overlaps.load(), 0);
    for (const auto& list : seen) {
        ASSERT_EQ(list.size(), static_cast<std::size_t>(kTasks));
        for (int i = 0; i < kTasks; ++i) ASSERT_EQ(list[i], i);
    }
}

TEST(ThreadPool, ServicesAreIndependentAndSeveralThreadsRunAtOnce) {
    ThreadPool pool;
    ASSERT_TRUE(pool.AddService("slow", 1, 0));
    ASSERT_TRUE(pool.AddService("wide", 2, 0));
    std::promise<void> started, release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<int> slow_done{0};
    ASSERT_TRUE(pool.AddTask([&] {
        started.set_value();
        released.wait_for(10s);
        slow_done.fetch_add(1);
    }, "slow"));
    ASSERT_TRUE(pool.AddTask([&] { slow_done.fetch_add(1); }, "slow"));
    ASSERT_EQ(started.get_future().wait_for(10s), std::future_status::ready);
    EXPECT_EQ(pool.Pending("slow"), 2u);  // one running, one queued
    // While "slow" is blocked, each "wide" task waits for the other: both meet only if
    // two workers run at once.
    std::atomic<int> arrived{0}, met{0};
    auto task = [&] {
        arrived.fetch_add(1);
        for (int i = 0; i < 10000 && arrived.load() < 2; ++i) std::this_thread::sleep_for(1ms);
        if (arrived.load() == 2) met.fetch_add(1);
    };
    ASSERT_TRUE(pool.AddTask(task, "wide") && pool.AddTask(task, "wide"));
    pool.WaitIdle("wide");
    EXPECT_EQ(met.load(), 2);
    EXPECT_EQ(slow_done.load(), 0);
    release.set_value();
    pool.WaitIdle("slow");
    EXPECT_EQ(slow_done.load(), 2);
}

TEST(ThreadPool, RefusalsAndThrowingTasks) {
    testing_support::LogCapture log;
    ThreadPool pool;
    EXPECT_TRUE(pool.AddService("b", 1, 7));
    EXPECT_FALSE(pool.AddService("b", 4, 99));  // taken: nothing changes
    EXPECT_EQ(pool.Priority("b"), 7);
    EXPECT_FALSE(pool.AddTask([] {}, "unknown"));
    EXPECT_TRUE(log.ContainsSubstring("unknown service 'unknown'"));
    EXPECT_FALSE(pool.AddTask(std::function<void()>(), "b"));
    pool.WaitIdle("unknown");  // returns at once
    std::atomic<int> after{0};
    ASSERT_TRUE(pool.AddTask([] { throw std::runtime_error("boom"); }, "b"));
    ASSERT_TRUE(pool.AddTask([] { throw 42; }, "b"));
    ASSERT_TRUE(pool.AddTask([&] { after.fetch_add(1); }, "b"));
    pool.WaitIdle("b");
    EXPECT_EQ(after.load(), 1);
    EXPECT_TRUE(log.ContainsSubstring("threw: boom"));
    EXPECT_TRUE(log.ContainsSubstring("unknown exception"));
}

TEST(ThreadPool, TasksCanAddTasksAndWaitWithoutDeadlock) {
    testing_support::LogCapture log;
    std::atomic<int> other{0}, ran{0};
    {
        ThreadPool pool;
        ASSERT_TRUE(pool.AddService("self", 1, 0));
        ASSERT_TRUE(pool.AddService("other", 2, 0));
        std::vector<int> chain;  // touched by "self" only, one task at a time
        std::function<void(int)> step = [&](int n) {
            chain.push_back(n);
            if (n == 0) pool.WaitIdle("self");  // cannot wait for itself: logged, returns
            if (n < 50) {
                pool.AddTask([&, n] { step(n + 1); }, "self");
                pool.AddTask([&] { other.fetch_add(1); }, "other");
            }
        };
        ASSERT_TRUE(pool.AddTask([&] { step(0); }, "self"));
        pool.WaitIdle("self");  // each task queues its successor first: idle means done
        pool.WaitIdle("other");
        ASSERT_EQ(chain.size(), 51u);
        for (int i = 0; i <= 50; ++i) EXPECT_EQ(chain[i], i);
        EXPECT_EQ(other.load(), 50);
        EXPECT_TRUE(log.ContainsSubstring("called from a task of that service"));
        // Destruction runs what is queued, with tasks added while it shuts down.
        ASSERT_TRUE(pool.AddTask([] { std::this_thread::sleep_for(20ms); }, "self"));
        for (int i = 0; i < 100; ++i)
            ASSERT_TRUE(pool.AddTask([&] {
                ran.fetch_add(1);
                pool.AddTask([&] { ran.fetch_add(1); }, "other");
            }, "self"));
    }
    EXPECT_EQ(ran.load(), 200);
}
