#pragma once
// SimpleReader: the plain IReader over one storage, with the unit width its creator
// gave. Count and Read are the storage's.

#include "wave/struct_reader.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

class SimpleReader final : public IReader {
public:
    SimpleReader(std::shared_ptr<StorageBase> storage, int32_t width);
    // The storage of key among storages; throws std::out_of_range("invalid map<K, T> key")
    // for a key that names none.
    SimpleReader(const std::map<std::string, std::shared_ptr<StorageBase>>& storages, const std::string& key,
                 int32_t width);

    uint64_t Count() override { return storage->Count(); }
    uint64_t Read(uint64_t pos, void* out, uint64_t count) override { return storage->Read(pos, out, count); }
    int32_t Width() const { return width; }

private:
    int32_t width;
    std::shared_ptr<StorageBase> storage;
};
