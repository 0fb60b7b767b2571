#pragma once
// IItemType: the type of items, a scope of its own with events, type functions,
// dynamic items and attributes; ICPPTypeManager: the process-wide table from a C++
// type's VellumTypeID to its item type.
//
// CreateItem makes an item with its object and runs the object's InitItem; the
// configuration steps (links, XML, FinishConfig) belong to the creator functions of
// xml_items.h. A dynamic item is created by its owner's GetChildItem on first use:
// the item of the dynamic type, named as asked, gets the link "__LinkData" to the
// owner and FinishConfig with the "config" attribute of its declaration.

#include "host/base_ctr.h"
#include "host/local_source.h"
#include "host/type_id.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

class IStructType;

// A function item that a type offers to scripts: "SetCycleSize" and the like.
class IFunctionCall {
public:
    virtual ~IFunctionCall() = default;
    // Runs the function on item with args; result receives the return value, if any.
    // False when the item has no suitable object or an argument does not convert.
    virtual bool Invoke(IBaseCtr* item, const std::vector<Vellum::Var>& args, Vellum::Var& result) = 0;
};

class IItemType : public CLocalSource {
public:
    struct DynamicItem {
        IItemType* type = nullptr;
        std::map<std::string, std::string> attributes;
        const VellumTypeID* interface_type = nullptr;
    };

    IItemType(std::string name, ILocalSource* source);
    ~IItemType() override;

    const std::string& TypeName() const { return type_name_; }
    // The scope the type was registered in.
    ILocalSource* Source() const { return source_; }
    // The C++ class of the type's objects; null for types without one.
    virtual const VellumTypeID* ObjectType() const { return nullptr; }
    virtual IStructType* AsStruct() { return nullptr; }

    // Makes a new item of this type, owned by the caller, with InitItem done.
    virtual IBaseCtr* CreateItem(const std::string& name) = 0;

    void RegisterEvent(const std::string& name, const std::string& signature);
    std::string GetEventInfo(const std::string& name) const;
    std::vector<std::string> GetEventNames() const;

    // Takes ownership of function, which must answer IFunctionCall.
    bool RegisterTypeFunction(const std::string& name, IBaseCtr* function, int flags);
    IBaseCtr* GetTypeFunction(const std::string& name) const;
    std::vector<std::string> GetTypeFunctionNames() const;

    bool RegisterDynamicItem(const std::string& name, IItemType* type,
                             const std::map<std::string, std::string>& attributes, const VellumTypeID& interface);
    const DynamicItem* GetDynamicItem(const std::string& name) const;

    std::string GetAttribute(const std::string& name) const;
    void SetAttribute(const std::string& name, const std::string& value);

    // Declares the type's events on a new item.
    void InitEvents(IBaseCtr* item) const;

private:
    std::string type_name_;
    ILocalSource* source_;
    EventTable events_;
    std::map<std::string, std::unique_ptr<IBaseCtr>> functions_;
    std::map<std::string, DynamicItem> dynamic_items_;
    std::map<std::string, std::string> attributes_;
};

// Creates the dynamic item name of owner, if owner's type declares one; null otherwise.
IBaseCtr* CreateDynamicItem(IBaseCtr* owner, const std::string& name);
// A new instance of owner's dynamic item name, configured as CreateDynamicItem does but
// not added to owner; null if owner's type declares none.
std::unique_ptr<IBaseCtr> NewDynamicItem(IBaseCtr* owner, const std::string& name);
// When owner's type declares the dynamic item name with the interface type: a new
// instance of it, owned by the answer, which points to the instance's object. Empty
// otherwise.
std::shared_ptr<CtrVar> DynamicItemCtr(IBaseCtr* owner, const VellumTypeID& type, const std::string& name);

// Calls the type function name of item's type with args; false if there is none.
bool CallTypeFunction(IBaseCtr* item, const std::string& name, const std::vector<Vellum::Var>& args,
                      Vellum::Var* result = nullptr);

class ICPPTypeManager {
public:
    virtual ~ICPPTypeManager() = default;
    virtual IItemType* Find(const VellumTypeID& id) const = 0;
    // Enters type under id and owns it; an id that is known keeps its type, which is returned.
    virtual IItemType* Enter(const VellumTypeID& id, std::unique_ptr<IItemType> type) = 0;
    // Keeps a type that has no C++ class (a struct built field by field).
    virtual IItemType* Adopt(std::unique_ptr<IItemType> type) = 0;
    // The scope of types registered without a source of their own.
    virtual ILocalSource* Root() = 0;
};

ICPPTypeManager* GetCPPTypeManager();

// Creates an item of the named type found in source (or its parents); FinishConfig
// runs with the empty text. Null, with an error logged, for an unknown type.
IBaseCtr* CreateItemByType(ILocalSource* source, const std::string& type, const std::string& name);
// The same for the type registered for a C++ class.
IBaseCtr* CreateItemByTypeID(const VellumTypeID& id, const std::string& name, ILocalSource* source = nullptr);
