#pragma once
// Periodic callbacks: the ITimerTaskManager interface and TimerTaskManager, its
// implementation on one timer thread.
//
// Choices made here:
// - The first call of a task comes one period after AddTimerTask.
// - The schedule is drift-free on the steady clock: the next call is due one period after
//   the previous due time, not after the callback ended. When the timer thread is late
//   (a slow callback), the periods already missed are skipped, not run in a burst.
// - All callbacks run on the one timer thread, so a slow callback delays the others.
// - An exception from a callback is logged at error level and swallowed; the task stays.
// - Ids start at 1 and are never reused; 0 means refused.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

class ITimerTaskManager {
public:
    // The process-wide timer (a TimerTaskManager), built on first use.
    static ITimerTaskManager& GetInstance();

    // Registers callback to run every periodMs milliseconds. Gives its id, or 0 for an
    // empty callback or a period of 0.
    virtual uint64_t AddTimerTask(std::function<void()> callback, unsigned periodMs) = 0;

    // Unregisters a task; false for an unknown id. When it returns, the callback is not
    // running and will not run again. Called from inside that very callback it does not
    // wait (the callback is still on the stack), but the callback is not called again.
    virtual bool RemoveTimerTask(uint64_t id) = 0;

    // Number of registered tasks.
    virtual std::size_t TaskCount() const = 0;

    // Declared after the operations, which keep the first places in the interface.
    virtual ~ITimerTaskManager();
};

class TimerTaskManager final : public ITimerTaskManager {
public:
    // Starts the timer thread.
    TimerTaskManager();
    // Stops the timer thread after the callback running at the time (if any) returns.
    // Must not be destroyed from one of its own callbacks.
    ~TimerTaskManager() override;
    TimerTaskManager(const TimerTaskManager&) = delete;
    TimerTaskManager& operator=(const TimerTaskManager&) = delete;

    uint64_t AddTimerTask(std::function<void()> callback, unsigned periodMs) override;
    bool RemoveTimerTask(uint64_t id) override;
    std::size_t TaskCount() const override;

private:
    struct Task {
        // Shared so that a running callback outlives its removal from the map.
        std::shared_ptr<std::function<void()>> callback;
        std::chrono::steady_clock::duration period;
        std::chrono::steady_clock::time_point due;
    };
    void Run();

    mutable std::mutex mutex_;
    std::condition_variable wake_;      // tasks changed, or stop
    std::condition_variable finished_;  // the running callback returned
    std::map<uint64_t, Task> tasks_;
    uint64_t next_id_ = 1;
    uint64_t running_id_ = 0;  // id of the callback being called, 0 if none
    bool stop_ = false;
    std::thread thread_;
};
