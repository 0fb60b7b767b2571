// The demo host: loads the module the way a host application does and shows what it
// registered and how its memory pool stands.

#include <wavestore/wavestore.h>

#include <fmt/format.h>

#include <cstdlib>

int main() {
    CLocalSource scope("demo", GetRootLocal());
    constexpr unsigned kExpandMiB = 16, kMaxPoolMiB = 64, kAtom = 1, kPendingLimit = 2;
    InitDataSetModule(&scope, kExpandMiB, kMaxPoolMiB, kAtom, kPendingLimit);

    fmt::print("wavestore demo host\n\nitem types registered in the host's scope:\n");
    for (const std::string& name : scope.ItemTypeNames()) {
        IStructType* record = scope.GetLocalItemType(name, false)->AsStruct();
        fmt::print("  {}", name);
        if (record != nullptr && !record->Fields().empty()) {
            fmt::print(" ({} bytes:", record->StructSize());
            for (const StructField& field : record->Fields())
                fmt::print(" {}@{}:{}", field.name, field.offset, VarTypeStr(field.type));
            fmt::print(")");
        }
        fmt::print("\n");
    }
    fmt::print("shared types in the root scope:");
    for (const char* name : {"AXIS", "WaveDatasetParameters"})
        if (GetRootLocal()->GetLocalItemType(name, false)) fmt::print(" {}", name);
    fmt::print("\n");

    // A staging block of one MiB, as producers take it, shows the pool at work.
    auto block = CMemoryManager::Malloc(static_cast<unsigned>(1048576 / CMemoryManager::GetAtomSize()));
    uint64_t size = 0, max_size = 0;
    double current = 0, max = 0;
    GetDatasetMemoryInfo(&size, &max_size, &current, &max);
    fmt::print("\nmemory pool: atom {} bytes, expansion {} bytes, maximum {} bytes\n", CMemoryManager::GetAtomSize(),
               CMemoryManager::GetPoolExpandSize(), max_size);
    fmt::print("  obtained {} bytes; in use {:.1f}% of obtained, {:.2f}% of maximum (one 1 MiB block held)\n", size,
               current * 100, max * 100);
    return block ? EXIT_SUCCESS : EXIT_FAILURE;
}
