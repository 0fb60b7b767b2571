#pragma once
// XmlStorageReader: what a declared dataset hands out as IReader for a storage key: the
// storage found by that key and its unit width. Finding the storage throws
// std::out_of_range("invalid map<K, T> key") for a key the dataset doesn't have.

#include "wave/struct_reader.h"

#include <cstdint>
#include <memory>
#include <string>

class DataSetBase;

class XmlStorageReader final : public IReader {
public:
    XmlStorageReader(const DataSetBase& dataset, const std::string& key, uint64_t unit_size);
    uint64_t Count() override { return storage_->Count(); }
    uint64_t Read(uint64_t pos, void* out, uint64_t count) override { return storage_->Read(pos, out, count); }
    uint64_t UnitSize() const { return unit_size_; }

private:
    std::shared_ptr<StorageBase> storage_;
    uint64_t unit_size_;
};
