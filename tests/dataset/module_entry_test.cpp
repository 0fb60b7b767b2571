// The module entry: pool sizes, pending limit and registration.

#include "dataset/module_entry.h"
#include "host/local_source.h"
#include "host/struct_type.h"
#include "storage/block_storage.h"
#include "storage/memory_pool.h"

#include <gtest/gtest.h>

namespace {

TEST(ModuleEntry, SizesThePoolBeforeItIsBuiltAndRegistersTheRecords) {
    static CLocalSource scope("module", GetRootLocal());
    EXPECT_TRUE(InitDataSetModule(&scope, 2, 8, 1, 3));

    uint64_t size = 1, max_size = 0;
    double current = 1, max = 1;
    GetDatasetMemoryInfo(&size, &max_size, &current, &max);
    EXPECT_EQ(size, 0u);  // nothing obtained before the first storage
    EXPECT_EQ(max_size, 8u * 1048576);
    EXPECT_EQ(current, 0.0);
    EXPECT_EQ(max, 0.0);
    EXPECT_EQ(CMemoryManager::GetPoolExpandSize(), 2u * 1048576);
    EXPECT_EQ(CMemoryManager::GetAtomSize(), 32768u);
    EXPECT_EQ(CStorage::PendingLimit(), 3u);
    GetDatasetMemoryInfo(nullptr, nullptr, nullptr, nullptr);  // every output is optional

    IItemType* area = scope.GetLocalItemType("ValidDataArea", false);
    ASSERT_NE(area, nullptr);
    EXPECT_EQ(area->AsStruct()->StructSize(), 48u);

    // Later sizes cannot change a pool that exists.
    EXPECT_TRUE(InitDataSetModule(&scope, 4, 16, 1, 2));
    EXPECT_EQ(CMemoryManager::GetPoolExpandSize(), 2u * 1048576);
    EXPECT_EQ(CMemoryManager::GetMaxPoolSize(), 8u * 1048576);
}

}  // namespace
