#pragma once
// ExportManager: the background copier of the module, one per process.
//
// Jobs copy the whole content of a source channel to the end of a destination channel,
// oldest first, in pieces of 1 MiB, on one thread started by the first Enqueue. After
// each job, finished or not, a destination that is a file cache is flushed and marked
// ready (SetFileReady(1)), so a failed or cancelled copy leaves a short file that is
// ready all the same.
//
// The thread is joined when the process-wide object is destroyed at exit; a copy in
// progress then ends at its next piece and the queued jobs are dropped.

#include "host/storage_interfaces.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

class ExportManager {
public:
    static ExportManager& Instance();

    ~ExportManager();
    ExportManager(const ExportManager&) = delete;
    ExportManager& operator=(const ExportManager&) = delete;

    void Enqueue(std::shared_ptr<IDeviceChannel> source, std::shared_ptr<IDeviceChannel> destination);
    // Ends the running copy after its current piece and drops every queued job. Jobs
    // enqueued afterwards run as usual.
    void Cancel();
    // Waits until no job is queued or running (a host saving a project waits for the
    // copies that Persist started); false when the timeout passed first.
    bool WaitIdle(std::chrono::milliseconds timeout);

private:
    struct Job {
        std::shared_ptr<IDeviceChannel> source;
        std::shared_ptr<IDeviceChannel> destination;
    };

    ExportManager() = default;
    void Run();
    void Copy(const Job& job, uint64_t generation, unsigned char* buffer);

    std::mutex queue_mutex_;
    std::deque<Job> jobs_;
    std::condition_variable wake_;
    // Held by the thread while it copies.
    std::mutex run_mutex_;
    // The cancel flag, as a count of Cancel calls: a job stops when the count differs
    // from the one it started with, so no cancel is missed between two pieces.
    std::atomic<uint64_t> cancels_{0};
    std::atomic<bool> stop_{false};
    // Jobs queued or running.
    std::atomic<uint64_t> outstanding_{0};
    std::thread thread_;
};
