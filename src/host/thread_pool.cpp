#include "host/thread_pool.h"

#include "host/logger.h"

#include <deque>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

struct ThreadPool::Service {
    std::string name;
    int priority = 0;
    std::deque<std::function<void()>> queue;
    std::size_t running = 0;
    std::condition_variable work;  // a task was queued, or the pool stops
    std::condition_variable idle;  // queue empty and nothing running
    std::vector<std::thread> workers;
};

namespace {
// The service whose task the current thread is running, to catch WaitIdle on itself.
thread_local const void* t_current_service = nullptr;
}  // namespace

ThreadPool& ThreadPool::Instance() {
    static ThreadPool pool;
    return pool;
}

ThreadPool::ThreadPool() {
    // Tasks may still log while the singleton shuts down at process end: make sure the
    // logger is built first, so that it is destroyed after the pool.
    CLogger::DefaultLogger();
}

ThreadPool::~ThreadPool() {
    {
        std::unique_lock lock(mutex_);
        // Everything queued runs, including tasks added by running tasks; only when no
        // task is queued or running anywhere can nothing new arrive from inside.
        all_idle_.wait(lock, [this] { return outstanding_ == 0; });
        stopping_ = true;
        for (auto& entry : services_) entry.second->work.notify_all();
    }
    for (auto& entry : services_)
        for (auto& worker : entry.second->workers) worker.join();
}

ThreadPool::Service* ThreadPool::Find(const std::string& name) const {
    const auto it = services_.find(name);
    return it == services_.end() ? nullptr : it->second.get();
}

bool ThreadPool::AddService(const std::string& name, unsigned threads, int priority) {
    // Messages are logged after the lock is released: log observers may use the pool.
    std::string failure;
    bool added = false;
    {
        std::lock_guard lock(mutex_);
        if (stopping_ || Find(name)) return false;
        auto service = std::make_unique<Service>();
        service->name = name;
        service->priority = priority;
        Service* raw = service.get();
        const unsigned count = threads == 0 ? 1 : threads;
        try {
            for (unsigned i = 0; i < count; ++i)
                raw->workers.emplace_back([this, raw] { WorkerLoop(raw); });
        } catch (const std::system_error& error) {
            failure = error.what();
        }
        if (!raw->workers.empty()) {
            services_.emplace(name, std::move(service));
            added = true;
        }
    }
    if (!failure.empty())
        CLogger::DefaultLogger().Error("thread pool: cannot start a worker for service '{}': {}", name, failure);
    return added;
}

bool ThreadPool::AddTask(std::function<void()> task, const std::string& service) {
    if (!task) {
        CLogger::DefaultLogger().Error("thread pool: empty task for service '{}' refused", service);
        return false;
    }
    bool known = false;
    {
        std::lock_guard lock(mutex_);
        Service* target = Find(service);
        known = target != nullptr;
        if (target && !stopping_) {
            target->queue.push_back(std::move(task));
            ++outstanding_;
            target->work.notify_one();
            return true;
        }
    }
    if (known)
        CLogger::DefaultLogger().Error("thread pool: task for service '{}' refused, pool is stopping", service);
    else
        CLogger::DefaultLogger().Error("thread pool: unknown service '{}'", service);
    return false;
}

int ThreadPool::Priority(const std::string& service) const {
    std::lock_guard lock(mutex_);
    const Service* found = Find(service);
    return found ? found->priority : 0;
}

std::size_t ThreadPool::Pending(const std::string& service) const {
    std::lock_guard lock(mutex_);
    const Service* found = Find(service);
    return found ? found->queue.size() + found->running : 0;
}

void ThreadPool::WaitIdle(const std::string& service) {
    std::unique_lock lock(mutex_);
    Service* target = Find(service);
    if (!target) return;
    if (t_current_service == target) {
        lock.unlock();
        CLogger::DefaultLogger().Error("thread pool: WaitIdle('{}') called from a task of that service", service);
        return;
    }
    target->idle.wait(lock, [target] { return target->queue.empty() && target->running == 0; });
}

std::vector<std::string> ThreadPool::Services() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    names.reserve(services_.size());
    for (const auto& entry : services_) names.push_back(entry.first);
    return names;
}

void ThreadPool::WorkerLoop(Service* service) {
    t_current_service = service;
    std::unique_lock lock(mutex_);
    for (;;) {
        service->work.wait(lock, [this, service] { return stopping_ || !service->queue.empty(); });
        if (service->queue.empty()) return;  // stopping, and nothing left
        std::function<void()> task = std::move(service->queue.front());
        service->queue.pop_front();
        ++service->running;
        lock.unlock();
        try {
            task();
        } catch (const std::exception& error) {
            CLogger::DefaultLogger().Error("thread pool: task of service '{}' threw: {}", service->name,
                                           error.what());
        } catch (...) {
            CLogger::DefaultLogger().Error("thread pool: task of service '{}' threw an unknown exception",
                                           service->name);
        }
        // Captured state is destroyed outside the lock: its destructors may use the pool.
        task = nullptr;
        lock.lock();
        --service->running;
        --outstanding_;
        if (service->queue.empty() && service->running == 0) service->idle.notify_all();
        if (outstanding_ == 0) all_idle_.notify_all();
    }
}
