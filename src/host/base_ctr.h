#pragma once
// IBaseCtr, an item of the object model, and CBaseItem, the implementation that every
// item of this library derives from.
//
// An item has a name, an optional parent, child items (owned or not, kept in the
// order they were added), text attributes, events, commands and interface queries.
// Choices of this host:
//  - Adding a child under a name that exists replaces it (an owned old child is deleted).
//  - GetChildItem of a name that the item's type declares as a dynamic item creates
//    that item on first use and keeps it as an owned child.
//  - The child "__base", unless a child of that name was added, is the item itself:
//    the item that carries the object.
//  - An interface query that the item's object does not answer, for the interface
//    type and the name of a dynamic item of the item's type, gives a new instance of
//    that dynamic item (not a child), owned by the answer, which points to its object.
//  - Generic commands, tried after an item's own handling: "Update" fires the event
//    "Update" on the item and succeeds. Every other command fails (false).
//  - A destroyed item first fires "Destroy", then deletes its owned children (newest
//    first) and leaves the local source it was registered in.
//  - Every operation may be called from any thread.

#include "host/ctr_var.h"
#include "host/events.h"
#include "host/var.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class ILocalSource;
class IItemType;

class IBaseCtr {
public:
    virtual ~IBaseCtr() = default;

    // Child item by name; null if none.
    virtual IBaseCtr* GetChildItem(const std::string& name) = 0;
    // Interface query: a handle of the asked type, empty if the item has none.
    virtual std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) = 0;
    // A command with an optional argument item; true if it was handled.
    virtual bool OnCMD(const std::string& command, IBaseCtr* argument) = 0;
    // Re-reads the item's value; fires "Update".
    virtual bool UpdateItem(bool force, const std::string& reason) = 0;
    virtual std::vector<std::string> GetChildren() const = 0;
    virtual bool ReplaceEventHandler(const std::string& name, EventHandlerPtr handler,
                                     const SubscribeExtras& extras = {}) = 0;
    virtual bool SubscribeEvent(const std::string& name, EventHandlerPtr handler,
                                const SubscribeExtras& extras = {}) = 0;
    virtual bool RemoveSubscribeEvent(const std::string& name, const EventHandlerPtr& handler) = 0;
    // Adds child under name; an owned child is deleted by this item. False for a null child.
    virtual bool AddChildItem(IBaseCtr* child, const std::string& name, bool owned) = 0;

    // Configuration steps that the framework drives on an item.
    virtual bool SetLinkItem(IBaseCtr* item, const std::string& name) = 0;
    virtual bool FinishConfig(ILocalSource* source, const std::string& config) = 0;

    // Text attributes: those of the item's definition, or answered by its object.
    virtual std::string GetAttribute(const std::string& name) const = 0;
    virtual void SetAttribute(const std::string& name, const std::string& value) = 0;

    // Value of a value item; an empty Var and false for other items.
    virtual Vellum::Var GetValue() const = 0;
    virtual bool SetValue(const Vellum::Var& value, int flags = 0, int index = 0) = 0;

    virtual const std::string& GetName() const = 0;
    virtual IBaseCtr* GetParent() const = 0;
    virtual IItemType* GetItemType() const = 0;
    virtual EventTable& Events() = 0;

    // Declares an event of this item.
    void RegisterEvent(const std::string& name, const std::string& signature) { Events().Register(name, signature); }
    // Fires an event of this item through EventPublishHelper.
    void Publish(const std::string& name, const std::string& args = {}) {
        EventPublishHelper::FireObjectEvent(this, name, args);
    }
};

class CBaseItem : public IBaseCtr {
public:
    explicit CBaseItem(std::string name = {}, IItemType* type = nullptr);
    ~CBaseItem() override;
    CBaseItem(const CBaseItem&) = delete;
    CBaseItem& operator=(const CBaseItem&) = delete;

    IBaseCtr* GetChildItem(const std::string& name) override;
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override;
    bool OnCMD(const std::string& command, IBaseCtr* argument) override;
    bool UpdateItem(bool force, const std::string& reason) override;
    std::vector<std::string> GetChildren() const override;
    bool ReplaceEventHandler(const std::string& name, EventHandlerPtr handler,
                             const SubscribeExtras& extras = {}) override;
    bool SubscribeEvent(const std::string& name, EventHandlerPtr handler, const SubscribeExtras& extras = {}) override;
    bool RemoveSubscribeEvent(const std::string& name, const EventHandlerPtr& handler) override;
    bool AddChildItem(IBaseCtr* child, const std::string& name, bool owned) override;
    bool SetLinkItem(IBaseCtr* item, const std::string& name) override;
    bool FinishConfig(ILocalSource* source, const std::string& config) override;
    std::string GetAttribute(const std::string& name) const override;
    void SetAttribute(const std::string& name, const std::string& value) override;
    Vellum::Var GetValue() const override;
    bool SetValue(const Vellum::Var& value, int flags = 0, int index = 0) override;
    const std::string& GetName() const override { return name_; }
    IBaseCtr* GetParent() const override { return parent_; }
    IItemType* GetItemType() const override { return type_; }
    EventTable& Events() override { return events_; }

    void SetName(const std::string& name) { name_ = name; }
    void SetParent(IBaseCtr* parent) { parent_ = parent; }
    // Remembers the source this item is registered in, to leave it on destruction.
    void SetRegisteredSource(ILocalSource* source) { registered_source_ = source; }
    // Detaches a child without deleting it; false if there is none of that name.
    bool RemoveChildItem(const std::string& name);

protected:
    // The generic commands; items call it after their own handling.
    bool GenericCommand(const std::string& command, IBaseCtr* argument);
    // Fires "Destroy" unless it was fired already; items that own an object call it
    // before the object goes, so that handlers still see a whole item.
    void NotifyDestroy();

private:
    struct Child {
        std::string name;
        IBaseCtr* item;
        bool owned;
    };

    std::string name_;
    IItemType* type_;
    IBaseCtr* parent_ = nullptr;
    ILocalSource* registered_source_ = nullptr;
    bool destroy_fired_ = false;
    EventTable events_;
    mutable std::recursive_mutex mutex_;
    std::vector<Child> children_;
    std::map<std::string, std::string> attributes_;
};

// Interface query as a typed handle: Ctr<T> of the item's answer, empty on failure.
template <class T>
Ctr<T> QueryInterface(IBaseCtr* item, const std::string& name = {}, bool flag = false) {
    if (item == nullptr) return {};
    return Ctr<T>(item->GetExtendCtr(VellumTypeOf<T>(), flag, name));
}

// A plain item that only holds events, children and attributes.
std::unique_ptr<IBaseCtr> CreateEventCtr();
