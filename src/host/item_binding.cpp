#include "host/item_binding.h"

#include <map>
#include <mutex>

namespace {

struct StaticInterfaces {
    std::mutex mutex;
    std::map<uint64_t, std::vector<std::pair<const VellumTypeID*, std::shared_ptr<CtrVar>>>> by_hash;
};

StaticInterfaces& Statics() {
    static auto* statics = new StaticInterfaces;  // lives until the process ends
    return *statics;
}

}  // namespace

bool RegisterStaticInterface(const VellumTypeID& id, std::shared_ptr<CtrVar> ctr, ILocalSource*) {
    if (!ctr) return false;
    auto& statics = Statics();
    std::lock_guard lock(statics.mutex);
    auto& entries = statics.by_hash[id.Hash()];
    for (auto& entry : entries) {
        if (*entry.first == id) {
            entry.second = std::move(ctr);
            return true;
        }
    }
    entries.emplace_back(&id, std::move(ctr));
    return true;
}

std::shared_ptr<CtrVar> GetStaticInterface(const VellumTypeID& id) {
    auto& statics = Statics();
    std::lock_guard lock(statics.mutex);
    auto it = statics.by_hash.find(id.Hash());
    if (it == statics.by_hash.end()) return {};
    for (const auto& entry : it->second)
        if (*entry.first == id) return entry.second;
    return {};
}
