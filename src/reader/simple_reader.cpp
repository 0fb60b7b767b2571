#include "reader/simple_reader.h"

#include <stdexcept>

namespace {

std::shared_ptr<StorageBase> StorageOf(const std::map<std::string, std::shared_ptr<StorageBase>>& storages,
                                       const std::string& key) {
    auto it = storages.find(key);
    if (it == storages.end()) throw std::out_of_range("invalid map<K, T> key");
    return it->second;
}

}  // namespace

SimpleReader::SimpleReader(std::shared_ptr<StorageBase> held, int32_t unit_width)
    : width(unit_width), storage(std::move(held)) {
    if (!storage) throw std::invalid_argument("SimpleReader: no storage");
}

SimpleReader::SimpleReader(const std::map<std::string, std::shared_ptr<StorageBase>>& storages,
                           const std::string& key, int32_t unit_width)
    : SimpleReader(StorageOf(storages, key), unit_width) {}
