#pragma once
// A process-wide test seam: a function that the file layer calls when one is installed.
// Calls without one cost a single atomic load.

#include <atomic>
#include <utility>

namespace Tessel {

template <class Fn>
class ProcessHook {
public:
    // Installs fn; an empty one removes the hook. Not to be changed while a call is running.
    void Set(Fn fn) {
        installed_ = false;
        fn_ = std::move(fn);
        installed_ = static_cast<bool>(fn_);
    }
    bool Installed() const { return installed_.load(std::memory_order_acquire); }
    const Fn& Function() const { return fn_; }

private:
    std::atomic<bool> installed_{false};
    Fn fn_;
};

}  // namespace Tessel
