#include "support/small_pool.h"

#include "storage/memory_pool.h"

namespace testing_support {

void ConfigureSmallPool() {
    CMemoryManager::SetAtomSize(1);
    CMemoryManager::SetPoolExpandSize(kSmallPoolExpandMiB);
    CMemoryManager::SetMaxPoolSize(kSmallPoolMaxMiB);
}

}  // namespace testing_support
