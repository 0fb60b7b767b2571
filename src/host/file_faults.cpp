#include "host/file_faults.h"

#include <atomic>

namespace Tessel {

namespace {

std::atomic<bool> g_installed{false};

FileFaultHook& Hook() {
    static FileFaultHook hook;
    return hook;
}

}  // namespace

void SetFileFaultHook(FileFaultHook hook) {
    g_installed = false;
    Hook() = std::move(hook);
    g_installed = static_cast<bool>(Hook());
}

bool FileFaultInjected(FileOperation operation, const std::string& path) {
    return g_installed.load(std::memory_order_acquire) && Hook()(operation, path);
}

}  // namespace Tessel
