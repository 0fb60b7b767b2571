#pragma once
// Runs a test body on a thread of its own; a body that doesn't end in time is a hang,
// and the test program stops at once rather than stall the suite.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>
#include <utility>

namespace reliability {

// `what` names the case: it is also the trace of any failure inside body (a trace of the
// calling thread doesn't reach the body's thread).
template <class Body>
void RunWithin(std::chrono::seconds limit, const std::string& what, Body body) {
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

// A whole number from the environment variable name, or fallback when it is unset or
// not a positive number.
inline long EnvCount(const char* name, long fallback) {
    const char* text = std::getenv(name);
    if (text == nullptr) return fallback;
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    return end != text && *end == '\0' && value > 0 ? value : fallback;
}

}  // namespace reliability
