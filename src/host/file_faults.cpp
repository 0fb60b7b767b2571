#include "host/file_faults.h"

#include "host/process_hook.h"

namespace Tessel {

namespace {

ProcessHook<FileFaultHook>& Hook() {
    static ProcessHook<FileFaultHook> hook;
    return hook;
}

}  // namespace

void SetFileFaultHook(FileFaultHook hook) { Hook().Set(std::move(hook)); }

bool FileFaultInjected(FileOperation operation, const std::string& path) {
    return Hook().Installed() && Hook().Function()(operation, path);
}

}  // namespace Tessel
