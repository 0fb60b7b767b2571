#pragma once
// Waiting for background work in tests: a condition, or a project file marked ready.

#include "host/project_file_manager.h"

#include <chrono>
#include <string>
#include <thread>

namespace testing_support {

// Polls `done` for up to 30 s; true once it holds.
template <class Predicate>
bool WaitFor(Predicate done) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done() && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return done();
}

// True once the project file `id` exists and is ready.
inline bool WaitReady(const std::string& id) {
    return WaitFor([&] {
        auto file = ProjectFileManager::instance().GetFile(id, 19, 0).lock();
        return file && file->IsReady() == 1;
    });
}

}  // namespace testing_support
