#include "host/item_type.h"

#include "host/logger.h"

#include <mutex>

IItemType::IItemType(std::string name, ILocalSource* source)
    : CLocalSource(name, source), type_name_(std::move(name)), source_(source) {}

IItemType::~IItemType() = default;

void IItemType::RegisterEvent(const std::string& name, const std::string& signature) {
    events_.Register(name, signature);
}

std::string IItemType::GetEventInfo(const std::string& name) const { return events_.Signature(name); }

std::vector<std::string> IItemType::GetEventNames() const { return events_.RegisteredNames(); }

bool IItemType::RegisterTypeFunction(const std::string& name, IBaseCtr* function, int /*flags*/) {
    std::unique_ptr<IBaseCtr> owned(function);
    if (!QueryInterface<IFunctionCall>(owned.get())) return false;
    functions_[name] = std::move(owned);
    return true;
}

IBaseCtr* IItemType::GetTypeFunction(const std::string& name) const {
    auto it = functions_.find(name);
    return it == functions_.end() ? nullptr : it->second.get();
}

std::vector<std::string> IItemType::GetTypeFunctionNames() const {
    std::vector<std::string> names;
    for (const auto& entry : functions_) names.push_back(entry.first);
    return names;
}

bool IItemType::RegisterDynamicItem(const std::string& name, IItemType* type,
                                    const std::map<std::string, std::string>& attributes,
                                    const VellumTypeID& interface) {
    if (type == nullptr) return false;
    dynamic_items_[name] = DynamicItem{type, attributes, &interface};
    return true;
}

const IItemType::DynamicItem* IItemType::GetDynamicItem(const std::string& name) const {
    auto it = dynamic_items_.find(name);
    return it == dynamic_items_.end() ? nullptr : &it->second;
}

std::string IItemType::GetAttribute(const std::string& name) const {
    auto it = attributes_.find(name);
    return it == attributes_.end() ? std::string() : it->second;
}

void IItemType::SetAttribute(const std::string& name, const std::string& value) { attributes_[name] = value; }

void IItemType::InitEvents(IBaseCtr* item) const {
    for (const auto& name : events_.RegisteredNames()) item->RegisterEvent(name, events_.Signature(name));
}

std::unique_ptr<IBaseCtr> NewDynamicItem(IBaseCtr* owner, const std::string& name) {
    IItemType* owner_type = owner ? owner->GetItemType() : nullptr;
    const IItemType::DynamicItem* declaration = owner_type ? owner_type->GetDynamicItem(name) : nullptr;
    if (declaration == nullptr) return nullptr;
    std::unique_ptr<IBaseCtr> item(declaration->type->CreateItem(name));
    if (!item) return nullptr;
    for (const auto& [key, value] : declaration->attributes) item->SetAttribute(key, value);
    item->SetLinkItem(owner, "__LinkData");
    auto config = declaration->attributes.find("config");
    item->FinishConfig(owner_type->Source(), config == declaration->attributes.end() ? "" : config->second);
    return item;
}

IBaseCtr* CreateDynamicItem(IBaseCtr* owner, const std::string& name) {
    std::unique_ptr<IBaseCtr> item = NewDynamicItem(owner, name);
    if (!item) return nullptr;
    IBaseCtr* raw = item.release();
    owner->AddChildItem(raw, name, true);
    return raw;
}

namespace {

// Owns a dynamic item and hands out its object as another handle does.
class DynamicItemPoint final : public CtrVar::ICtrPoint {
public:
    DynamicItemPoint(std::unique_ptr<IBaseCtr> item, std::shared_ptr<CtrVar> object)
        : item_(std::move(item)), object_(std::move(object)) {}
    ~DynamicItemPoint() override {
        object_.reset();  // the handle to the object goes before the item that owns it
    }
    void* Get() const override { return object_->Get(); }
    void* CastTo(const VellumTypeID& to) const override { return object_->CastTo(to); }

private:
    std::unique_ptr<IBaseCtr> item_;
    std::shared_ptr<CtrVar> object_;
};

}  // namespace

std::shared_ptr<CtrVar> DynamicItemCtr(IBaseCtr* owner, const VellumTypeID& type, const std::string& name) {
    IItemType* owner_type = owner ? owner->GetItemType() : nullptr;
    const IItemType::DynamicItem* declaration = owner_type ? owner_type->GetDynamicItem(name) : nullptr;
    if (declaration == nullptr || declaration->interface_type == nullptr || !(*declaration->interface_type == type))
        return {};
    const VellumTypeID* object_type = declaration->type->ObjectType();
    if (object_type == nullptr) return {};
    std::unique_ptr<IBaseCtr> item = NewDynamicItem(owner, name);
    if (!item) return {};
    std::shared_ptr<CtrVar> object = item->GetExtendCtr(*object_type, false, {});
    if (!object || object->CastTo(type) == nullptr) return {};
    const VellumTypeID& held = object->Type();
    return std::make_shared<CtrVar>(held, std::make_unique<DynamicItemPoint>(std::move(item), std::move(object)));
}

bool CallTypeFunction(IBaseCtr* item, const std::string& name, const std::vector<Vellum::Var>& args,
                      Vellum::Var* result) {
    IItemType* type = item ? item->GetItemType() : nullptr;
    Ctr<IFunctionCall> function = QueryInterface<IFunctionCall>(type ? type->GetTypeFunction(name) : nullptr);
    if (!function) return false;
    Vellum::Var ignored;
    return function->Invoke(item, args, result ? *result : ignored);
}

namespace {

class CPPTypeManager final : public ICPPTypeManager {
public:
    IItemType* Find(const VellumTypeID& id) const override {
        std::lock_guard lock(mutex_);
        for (const auto& entry : types_)
            if (*entry.first == id) return entry.second.get();
        return nullptr;
    }

    IItemType* Enter(const VellumTypeID& id, std::unique_ptr<IItemType> type) override {
        std::lock_guard lock(mutex_);
        for (const auto& entry : types_)
            if (*entry.first == id) return entry.second.get();
        if (!type) return nullptr;
        types_.emplace_back(&id, std::move(type));
        return types_.back().second.get();
    }

    IItemType* Adopt(std::unique_ptr<IItemType> type) override {
        std::lock_guard lock(mutex_);
        if (!type) return nullptr;
        adopted_.push_back(std::move(type));
        return adopted_.back().get();
    }

    ILocalSource* Root() override { return GetRootLocal(); }

private:
    mutable std::mutex mutex_;
    std::vector<std::pair<const VellumTypeID*, std::unique_ptr<IItemType>>> types_;
    std::vector<std::unique_ptr<IItemType>> adopted_;
};

}  // namespace

// Process-wide objects live until the process ends and are never destroyed, so that
// nothing depends on the order of static destruction.
ICPPTypeManager* GetCPPTypeManager() {
    static auto* manager = new CPPTypeManager;
    return manager;
}

namespace {

IBaseCtr* CreateConfigured(IItemType* type, const std::string& name, ILocalSource* source) {
    IBaseCtr* item = type->CreateItem(name);
    if (item) item->FinishConfig(source, "");
    return item;
}

}  // namespace

IBaseCtr* CreateItemByType(ILocalSource* source, const std::string& type, const std::string& name) {
    IItemType* item_type = source ? source->GetLocalItemType(type, true) : nullptr;
    if (item_type == nullptr) {
        CLogger::DefaultLogger().Error("unknown item type \"{}\" for item \"{}\"", type, name);
        return nullptr;
    }
    return CreateConfigured(item_type, name, source);
}

IBaseCtr* CreateItemByTypeID(const VellumTypeID& id, const std::string& name, ILocalSource* source) {
    IItemType* item_type = GetCPPTypeManager()->Find(id);
    if (item_type == nullptr) {
        CLogger::DefaultLogger().Error("no item type for class {} (item \"{}\")", id.Name(), name);
        return nullptr;
    }
    return CreateConfigured(item_type, name, source ? source : item_type->Source());
}
