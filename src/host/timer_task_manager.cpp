#include "host/timer_task_manager.h"

#include "host/logger.h"

#include <exception>
#include <utility>

using Clock = std::chrono::steady_clock;

ITimerTaskManager::~ITimerTaskManager() = default;

ITimerTaskManager& ITimerTaskManager::GetInstance() {
    static TimerTaskManager manager;
    return manager;
}

TimerTaskManager::TimerTaskManager() {
    // Built before the singleton so that it is destroyed after it: callbacks may log.
    CLogger::DefaultLogger();
    thread_ = std::thread([this] { Run(); });
}

TimerTaskManager::~TimerTaskManager() {
    {
        std::lock_guard lock(mutex_);
        stop_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

uint64_t TimerTaskManager::AddTimerTask(std::function<void()> callback, unsigned periodMs) {
    if (!callback || periodMs == 0) {
        CLogger::DefaultLogger().Warning("timer: task refused ({})", !callback ? "empty callback" : "period 0");
        return 0;
    }
    const auto period = std::chrono::duration_cast<Clock::duration>(std::chrono::milliseconds(periodMs));
    std::lock_guard lock(mutex_);
    const uint64_t id = next_id_++;
    tasks_.emplace(id, Task{std::make_shared<std::function<void()>>(std::move(callback)), period,
                            Clock::now() + period});
    wake_.notify_one();
    return id;
}

bool TimerTaskManager::RemoveTimerTask(uint64_t id) {
    std::shared_ptr<std::function<void()>> dropped;
    {
        std::unique_lock lock(mutex_);
        const auto it = tasks_.find(id);
        if (it == tasks_.end()) return false;
        dropped = std::move(it->second.callback);
        tasks_.erase(it);
        // From the timer thread itself the running callback is the caller (or another
        // task's callback): waiting would never end.
        if (running_id_ == id && std::this_thread::get_id() != thread_.get_id())
            finished_.wait(lock, [this, id] { return running_id_ != id; });
    }
    // The callback's captured state is released outside the lock.
    return true;
}

std::size_t TimerTaskManager::TaskCount() const {
    std::lock_guard lock(mutex_);
    return tasks_.size();
}

void TimerTaskManager::Run() {
    std::unique_lock lock(mutex_);
    while (!stop_) {
        auto next = tasks_.end();
        for (auto it = tasks_.begin(); it != tasks_.end(); ++it)
            if (next == tasks_.end() || it->second.due < next->second.due) next = it;
        if (next == tasks_.end()) {
            wake_.wait(lock);
            continue;
        }
        // A copy: the task may be removed while the lock is released in the wait.
        const Clock::time_point due = next->second.due;
        if (due > Clock::now()) {
            wake_.wait_until(lock, due);
            continue;  // re-evaluate: tasks may have changed meanwhile
        }

        const uint64_t id = next->first;
        std::shared_ptr<std::function<void()>> callback = next->second.callback;
        running_id_ = id;
        lock.unlock();
        try {
            (*callback)();
        } catch (const std::exception& error) {
            CLogger::DefaultLogger().Error("timer: task {} threw: {}", id, error.what());
        } catch (...) {
            CLogger::DefaultLogger().Error("timer: task {} threw an unknown exception", id);
        }
        callback.reset();  // if the task was removed meanwhile, its state goes now
        lock.lock();
        running_id_ = 0;
        finished_.notify_all();

        const auto it = tasks_.find(id);
        if (it == tasks_.end()) continue;  // removed while running
        Task& task = it->second;
        task.due += task.period;
        const auto now = Clock::now();
        if (task.due <= now) task.due += ((now - task.due) / task.period + 1) * task.period;
    }
}
