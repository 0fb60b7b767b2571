#include "module/module_entry.h"

#include "module/dataset_ctr_func.h"
#include "module/type_registration.h"
#include "host/local_source.h"
#include "host/logger.h"
#include "storage/block_storage.h"
#include "storage/memory_pool.h"

#include <exception>

namespace {

template <class Setter>
void ApplySize(const char* name, Setter&& setter) {
    try {
        setter();
    } catch (const std::exception& error) {
        CLogger::DefaultLogger().Error("InitDataSetModule: {} refused: {}", name, error.what());
    }
}

}  // namespace

extern "C" bool InitDataSetModule(ILocalSource* source, unsigned int pool_expand, unsigned int max_pool,
                                  unsigned int atom, unsigned int pending_limit) {
    if (source == nullptr) source = GetRootLocal();
    if (source->GetLocalItemType("AXIS", true) != nullptr) return true;

    RegisterDataSetCtrFunc();
    // The sizes come before any type exists, so that no storage is made under others.
    ApplySize("pool expand size", [&] { CMemoryManager::SetPoolExpandSize(pool_expand); });
    ApplySize("maximum pool size", [&] { CMemoryManager::SetMaxPoolSize(max_pool); });
    ApplySize("atom size", [&] { CMemoryManager::SetAtomSize(atom); });
    CStorage::SetPendingLimit(pending_limit);

    RegisterModuleTypes(source);
    return true;
}

extern "C" void GetDatasetMemoryInfo(uint64_t* size, uint64_t* max_size, double* current, double* max) {
    CMemoryManager::GetMemoryInfo(size, max_size, current, max);
}
