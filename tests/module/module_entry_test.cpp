// The module entry: pool sizes, pending limit and registration.

#include "module/module_entry.h"
#include "host/local_source.h"
#include "host/struct_type.h"
#include "storage/block_storage.h"
#include "storage/memory_pool.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

// Runs in a child process of its own: the pool is built once per process, and other
// tests of this program build it with the settings in force.
void InitialiseAndCheck() {
    static CLocalSource scope("module", GetRootLocal());
    bool ok = InitDataSetModule(&scope, 2, 8, 1, 3);

    uint64_t size = 1, max_size = 0;
    double current = 1, max = 1;
    GetDatasetMemoryInfo(&size, &max_size, &current, &max);
    ok = ok && size == 0 && max_size == 8u * 1048576 && current == 0.0 && max == 0.0;  // nothing obtained yet
    ok = ok && CMemoryManager::GetPoolExpandSize() == 2u * 1048576 && CMemoryManager::GetAtomSize() == 32768u;
    ok = ok && CStorage::PendingLimit() == 3u;
    GetDatasetMemoryInfo(nullptr, nullptr, nullptr, nullptr);  // every output is optional

    IItemType* area = scope.GetLocalItemType("ValidDataArea", false);
    ok = ok && area != nullptr && area->AsStruct()->StructSize() == 48u;
    ok = ok && scope.GetLocalItemType("AXIS", true) != nullptr;
    ok = ok && scope.GetLocalItemType("WAVEDATASET[FLOAT]", false) != nullptr;
    ok = ok && scope.GetLocalItemType("WAVEDATASET[INT32]", false) == nullptr;  // bound by class only

    // A second call changes nothing: neither sizes nor registrations.
    static CLocalSource other("other", GetRootLocal());
    ok = ok && InitDataSetModule(&scope, 4, 16, 1, 2) && InitDataSetModule(&other, 4, 16, 1, 2);
    ok = ok && other.GetLocalItemType("WAVEDATASET[FLOAT]", false) == nullptr && CStorage::PendingLimit() == 3u;
    ok = ok && CMemoryManager::GetPoolExpandSize() == 2u * 1048576 && CMemoryManager::GetMaxPoolSize() == 8u * 1048576;
    std::exit(ok ? 0 : 1);
}

TEST(ModuleEntry, SizesThePoolBeforeItIsBuiltAndRegistersTheRecords) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(InitialiseAndCheck(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
