#include "host/base_ctr.h"

#include "host/item_type.h"
#include "host/local_source.h"
#include "host/string_utils.h"

#include <algorithm>

CBaseItem::CBaseItem(std::string name, IItemType* type) : name_(std::move(name)), type_(type) {
    if (type_ != nullptr) type_->InitEvents(this);
}

CBaseItem::~CBaseItem() {
    NotifyDestroy();
    if (registered_source_ != nullptr) registered_source_->UnregisterItem(name_, this);
    std::vector<Child> children;
    {
        std::lock_guard lock(mutex_);
        children.swap(children_);
    }
    for (auto it = children.rbegin(); it != children.rend(); ++it)
        if (it->owned) delete it->item;
}

void CBaseItem::NotifyDestroy() {
    if (destroy_fired_) return;
    destroy_fired_ = true;
    EventPublishHelper::FireObjectEvent(this, "Destroy");
}

IBaseCtr* CBaseItem::GetChildItem(const std::string& name) {
    {
        std::lock_guard lock(mutex_);
        for (const auto& child : children_)
            if (child.name == name) return child.item;
        if (name == "__base") return this;
        // Creation of a dynamic item runs under the lock so that two threads asking
        // at once get the same item.
        return CreateDynamicItem(this, name);
    }
}

std::shared_ptr<CtrVar> CBaseItem::GetExtendCtr(const VellumTypeID& type, bool, const std::string& name) {
    if (type == VellumTypeOf<IBaseCtr>()) return MakeCtrVar<IBaseCtr>(this);
    return DynamicItemCtr(this, type, name);
}

bool CBaseItem::OnCMD(const std::string& command, IBaseCtr* argument) { return GenericCommand(command, argument); }

bool CBaseItem::GenericCommand(const std::string& command, IBaseCtr*) {
    if (StringCompare(command, "Update", true) == 0) {
        EventPublishHelper::FireObjectEvent(this, "Update");
        return true;
    }
    return false;
}

bool CBaseItem::UpdateItem(bool, const std::string&) {
    EventPublishHelper::FireObjectEvent(this, "Update");
    return true;
}

std::vector<std::string> CBaseItem::GetChildren() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    names.reserve(children_.size());
    for (const auto& child : children_) names.push_back(child.name);
    return names;
}

bool CBaseItem::ReplaceEventHandler(const std::string& name, EventHandlerPtr handler, const SubscribeExtras& extras) {
    return events_.Replace(name, std::move(handler), extras);
}

bool CBaseItem::SubscribeEvent(const std::string& name, EventHandlerPtr handler, const SubscribeExtras& extras) {
    return events_.Subscribe(name, std::move(handler), extras);
}

bool CBaseItem::RemoveSubscribeEvent(const std::string& name, const EventHandlerPtr& handler) {
    return events_.Remove(name, handler);
}

bool CBaseItem::AddChildItem(IBaseCtr* child, const std::string& name, bool owned) {
    if (child == nullptr || child == this) return false;
    IBaseCtr* replaced = nullptr;
    {
        std::lock_guard lock(mutex_);
        auto it = std::find_if(children_.begin(), children_.end(), [&](const Child& c) { return c.name == name; });
        if (it != children_.end()) {
            if (it->item == child) {
                it->owned = owned;
                return true;
            }
            if (it->owned) replaced = it->item;
            *it = Child{name, child, owned};
        } else {
            children_.push_back(Child{name, child, owned});
        }
    }
    if (owned) {
        if (auto* base = dynamic_cast<CBaseItem*>(child)) base->SetParent(this);
    }
    delete replaced;
    return true;
}

bool CBaseItem::RemoveChildItem(const std::string& name) {
    std::lock_guard lock(mutex_);
    return std::erase_if(children_, [&](const Child& c) { return c.name == name; }) > 0;
}

bool CBaseItem::SetLinkItem(IBaseCtr*, const std::string&) { return true; }

bool CBaseItem::FinishConfig(ILocalSource*, const std::string&) { return true; }

std::string CBaseItem::GetAttribute(const std::string& name) const {
    std::lock_guard lock(mutex_);
    auto it = attributes_.find(name);
    return it == attributes_.end() ? std::string() : it->second;
}

void CBaseItem::SetAttribute(const std::string& name, const std::string& value) {
    std::lock_guard lock(mutex_);
    attributes_[name] = value;
}

Vellum::Var CBaseItem::GetValue() const { return {}; }

bool CBaseItem::SetValue(const Vellum::Var&, int, int) { return false; }

std::unique_ptr<IBaseCtr> CreateEventCtr() { return std::make_unique<CBaseItem>("__event__"); }
