#pragma once
// ThreadPool: named task queues ("services"), each served by its own worker threads.
//
// Choices made here:
// - A service runs its tasks in the order they were added. With one worker thread they
//   run strictly one after another; with several, they start in that order.
// - The priority of a service is a stored hint only; worker threads run at the normal
//   operating-system priority.
// - A task that throws is caught and logged at error level; the service goes on.
// - A task may add tasks (to any service, its own included) without deadlock.
// - Destruction lets every queued task run, including tasks those tasks add, then joins
//   the workers. AddTask after that point is refused.

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class ThreadPool {
public:
    // The process-wide pool, built on first use.
    static ThreadPool& Instance();

    // An empty pool (the singleton, or a private one in tests).
    ThreadPool();
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Creates the service `name` with `threads` workers (0 is taken as 1). False, with
    // nothing changed, when the name is already taken, the pool is shutting down, or no
    // worker thread could be started.
    bool AddService(const std::string& name, unsigned threads, int priority);

    // Queues a task on a service. False for an empty task or an unknown service (both
    // logged at error level), and during shutdown.
    bool AddTask(std::function<void()> task, const std::string& service);

    // The priority given to AddService; 0 for an unknown service.
    int Priority(const std::string& service) const;

    // Tasks queued plus tasks running on the service; 0 for an unknown service.
    std::size_t Pending(const std::string& service) const;

    // Blocks until the service has nothing queued and nothing running. Returns at once
    // for an unknown service, and (logging an error) when called from a task of that
    // same service, which could never see it idle.
    void WaitIdle(const std::string& service);

    // Names of the services, sorted.
    std::vector<std::string> Services() const;

private:
    struct Service;
    void WorkerLoop(Service* service);
    Service* Find(const std::string& name) const;  // needs mutex_

    mutable std::mutex mutex_;
    std::condition_variable all_idle_;
    std::map<std::string, std::unique_ptr<Service>> services_;
    std::size_t outstanding_ = 0;  // tasks queued or running, all services together
    bool stopping_ = false;
};
