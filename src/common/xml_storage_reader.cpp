#include "common/xml_storage_reader.h"

#include "dataset/dataset_base.h"

#include <stdexcept>

namespace {

std::shared_ptr<StorageBase> StorageOf(const DataSetBase& dataset, const std::string& key) {
    auto it = dataset.Storages().find(key);
    if (it == dataset.Storages().end()) throw std::out_of_range("invalid map<K, T> key");
    return it->second;
}

}  // namespace

XmlStorageReader::XmlStorageReader(const DataSetBase& dataset, const std::string& key, uint64_t unit_size)
    : storage_(StorageOf(dataset, key)), unit_size_(unit_size) {}
