#include "host/local_source.h"

#include "host/base_ctr.h"
#include "host/string_utils.h"
#include "host/value_item.h"

CLocalSource::CLocalSource(std::string name, ILocalSource* parent) : name_(std::move(name)), parent_(parent) {}

CLocalSource::~CLocalSource() = default;

void CLocalSource::Release() { Clear(); }

void CLocalSource::Clear() {
    std::lock_guard lock(mutex_);
    sources_.clear();
    types_.clear();
    items_.clear();
    creators_.clear();
    creators_ex_.clear();
    formats_.clear();
}

ILocalSource* CLocalSource::GetRootLocalSource() {
    ILocalSource* source = this;
    while (source->GetParentLocal() != nullptr) source = source->GetParentLocal();
    return source;
}

namespace {

template <class Map, class Value>
bool Insert(Map& map, const std::string& name, Value value, bool force) {
    if (!value) return false;
    auto [it, inserted] = map.try_emplace(name, value);
    if (!inserted) {
        if (!force) return false;
        it->second = value;
    }
    return true;
}

}  // namespace

template <class Map, class Value>
Value CLocalSource::Find(Map CLocalSource::*map, const std::string& name, bool recursive,
                         Value (ILocalSource::*next)(const std::string&, bool)) {
    {
        std::lock_guard lock(mutex_);
        auto it = (this->*map).find(name);
        if (it != (this->*map).end()) return it->second;
    }
    if (recursive && parent_ != nullptr) return (parent_->*next)(name, true);
    return Value{};
}

bool CLocalSource::RegisterExternSource(const std::string& name, ILocalSource* source) {
    std::lock_guard lock(mutex_);
    return Insert(sources_, name, source, true);
}

ILocalSource* CLocalSource::GetLocalByName(const std::string& name, bool recursive) {
    return Find(&CLocalSource::sources_, name, recursive, &ILocalSource::GetLocalByName);
}

bool CLocalSource::RegisterItemType(const std::string& name, IItemType* type, bool force) {
    std::lock_guard lock(mutex_);
    return Insert(types_, name, type, force);
}

IItemType* CLocalSource::GetLocalItemType(const std::string& name, bool recursive) {
    return Find(&CLocalSource::types_, name, recursive, &ILocalSource::GetLocalItemType);
}

bool CLocalSource::RegisterItem(const std::string& name, IBaseCtr* item, bool force) {
    std::lock_guard lock(mutex_);
    return Insert(items_, name, item, force);
}

IBaseCtr* CLocalSource::GetItem(const std::string& name, bool recursive) {
    return Find(&CLocalSource::items_, name, recursive, &ILocalSource::GetItem);
}

bool CLocalSource::UnregisterItem(const std::string& name, IBaseCtr* item) {
    std::lock_guard lock(mutex_);
    auto it = items_.find(name);
    if (it == items_.end() || it->second != item) return false;
    items_.erase(it);
    return true;
}

bool CLocalSource::RegisterTypeCreator(const std::string& name, TypeCreator creator) {
    std::lock_guard lock(mutex_);
    return Insert(creators_, name, creator, true);
}

ILocalSource::TypeCreator CLocalSource::GetTypeCreator(const std::string& name, bool recursive) {
    return Find(&CLocalSource::creators_, name, recursive, &ILocalSource::GetTypeCreator);
}

bool CLocalSource::RegisterTypeCreatorEx(const std::string& name, TypeCreatorEx creator) {
    std::lock_guard lock(mutex_);
    return Insert(creators_ex_, name, creator, true);
}

ILocalSource::TypeCreatorEx CLocalSource::GetTypeCreatorEx(const std::string& name, bool recursive) {
    return Find(&CLocalSource::creators_ex_, name, recursive, &ILocalSource::GetTypeCreatorEx);
}

void CLocalSource::SetFormatSpecValue(const std::string& name, const std::string& value) {
    std::lock_guard lock(mutex_);
    formats_[name] = value;
}

bool CLocalSource::GetFormatSpecValue(const std::string& name, std::string& value) {
    {
        std::lock_guard lock(mutex_);
        auto it = formats_.find(name);
        if (it != formats_.end()) {
            value = it->second;
            return true;
        }
    }
    return parent_ != nullptr && parent_->GetFormatSpecValue(name, value);
}

std::string CLocalSource::GetChildName(const ILocalSource* child) {
    std::lock_guard lock(mutex_);
    for (const auto& [name, source] : sources_)
        if (source == child) return name;
    return {};
}

std::vector<std::string> CLocalSource::ItemTypeNames() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& entry : types_) names.push_back(entry.first);
    return names;
}

std::vector<std::string> CLocalSource::ItemNames() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& entry : items_) names.push_back(entry.first);
    return names;
}

// Never destroyed: items and types may refer to it until the process ends.
ILocalSource* GetRootLocal() {
    static CLocalSource* root = [] {
        auto* scope = new CLocalSource("root");
        RegisterValueTypes(scope);
        return scope;
    }();
    return root;
}

IBaseCtr* GetLocalItem(ILocalSource* source, IBaseCtr* base, const std::string& name) {
    const std::vector<std::string> parts = SplitString(name, ".");
    if (parts.empty() || parts.front().empty()) return nullptr;
    IBaseCtr* item = base ? base->GetChildItem(parts.front()) : nullptr;
    if (item == nullptr && source != nullptr) item = source->GetItem(parts.front(), true);
    for (std::size_t i = 1; item != nullptr && i < parts.size(); ++i) item = item->GetChildItem(parts[i]);
    return item;
}
