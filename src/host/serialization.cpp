#include "host/serialization.h"

#include "host/logger.h"

#include <algorithm>

ISerializable::~ISerializable() = default;

SerializationManager& SerializationManager::Instance() {
    static SerializationManager manager;
    return manager;
}

int SerializationManager::GetDataSaveType() const {
    std::lock_guard lock(mutex_);
    return data_save_type_;
}

void SerializationManager::SetDataSaveType(int type) {
    std::lock_guard lock(mutex_);
    data_save_type_ = type;
}

void SerializationManager::AddPartialData(IBaseCtr* owner, const std::string& path) {
    if (!owner) {
        CLogger::DefaultLogger().Warning("serialization: partial data '{}' without owner ignored", path);
        return;
    }
    std::lock_guard lock(mutex_);
    const auto entry = std::make_pair(owner, path);
    if (std::find(partial_.begin(), partial_.end(), entry) == partial_.end()) partial_.push_back(entry);
}

void SerializationManager::AddDynamicData(IBaseCtr* owner) {
    if (!owner) {
        CLogger::DefaultLogger().Warning("serialization: dynamic data without owner ignored");
        return;
    }
    std::lock_guard lock(mutex_);
    if (std::find(dynamic_.begin(), dynamic_.end(), owner) == dynamic_.end()) dynamic_.push_back(owner);
}

std::vector<std::pair<IBaseCtr*, std::string>> SerializationManager::TakePartialData() {
    std::lock_guard lock(mutex_);
    return std::exchange(partial_, {});
}

std::vector<IBaseCtr*> SerializationManager::TakeDynamicData() {
    std::lock_guard lock(mutex_);
    return std::exchange(dynamic_, {});
}
