#pragma once
// Runs a test body on a thread of its own; a body that doesn't end in time is a hang, and
// the test program stops at once rather than stall the suite.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>

namespace reliability {

// `what` names the case: it is the trace of any failure inside body (a trace of the
// calling thread doesn't reach the body's thread).
template <class Body>
void RunWithinDeadline(const std::string& what, Body body, std::chrono::seconds limit = std::chrono::seconds(60)) {
    std::packaged_task<void()> task([&what, &body] {
        SCOPED_TRACE(what);
        body();
    });
    std::future<void> done = task.get_future();
    std::thread runner(std::move(task));
    if (done.wait_for(limit) != std::future_status::ready) {
        ADD_FAILURE() << "hang: " << what;
        std::fprintf(stderr, "hang: %s\n", what.c_str());
        std::_Exit(3);
    }
    runner.join();
    done.get();
}

}  // namespace reliability
