#pragma once
// ILocalSource: a scope of names (items, item types, type creators, format values and
// nested scopes), and CLocalSource, its implementation.
//
// Look-ups with recursive = true try this scope, then its parents up to the root.
// Registration does not take ownership: the type manager owns types, the host owns
// items. Registering a name that exists fails unless force is true, which replaces.

#include <pugixml.hpp>

#include <map>
#include <mutex>
#include <string>
#include <vector>

class IBaseCtr;
class IItemType;

class ILocalSource {
public:
    using TypeCreator = IItemType* (*)(pugi::xml_node, ILocalSource*);
    using TypeCreatorEx = IItemType* (*)(const std::string&, ILocalSource*);

    virtual ~ILocalSource() = default;

    // The owner is done with the scope: forget everything in it.
    virtual void Release() = 0;
    // Forgets registered items, types, creators, format values and nested scopes.
    virtual void Clear() = 0;
    virtual ILocalSource* GetRootLocalSource() = 0;
    virtual bool RegisterExternSource(const std::string& name, ILocalSource* source) = 0;
    virtual ILocalSource* GetLocalByName(const std::string& name, bool recursive) = 0;
    virtual bool RegisterItemType(const std::string& name, IItemType* type, bool force) = 0;
    virtual IItemType* GetLocalItemType(const std::string& name, bool recursive) = 0;
    virtual bool RegisterItem(const std::string& name, IBaseCtr* item, bool force) = 0;
    virtual IBaseCtr* GetItem(const std::string& name, bool recursive) = 0;
    // Removes item from the scope if it is registered under name.
    virtual bool UnregisterItem(const std::string& name, IBaseCtr* item) = 0;
    virtual bool RegisterTypeCreator(const std::string& name, TypeCreator creator) = 0;
    virtual TypeCreator GetTypeCreator(const std::string& name, bool recursive) = 0;
    virtual bool RegisterTypeCreatorEx(const std::string& name, TypeCreatorEx creator) = 0;
    virtual TypeCreatorEx GetTypeCreatorEx(const std::string& name, bool recursive) = 0;
    virtual void SetFormatSpecValue(const std::string& name, const std::string& value) = 0;
    virtual bool GetFormatSpecValue(const std::string& name, std::string& value) = 0;
    virtual ILocalSource* GetParentLocal() = 0;
    // Name under which child was registered as a nested scope; empty if it wasn't.
    virtual std::string GetChildName(const ILocalSource* child) = 0;
};

class CLocalSource : public ILocalSource {
public:
    explicit CLocalSource(std::string name = {}, ILocalSource* parent = nullptr);
    ~CLocalSource() override;
    CLocalSource(const CLocalSource&) = delete;
    CLocalSource& operator=(const CLocalSource&) = delete;

    const std::string& Name() const { return name_; }

    void Release() override;
    void Clear() override;
    ILocalSource* GetRootLocalSource() override;
    bool RegisterExternSource(const std::string& name, ILocalSource* source) override;
    ILocalSource* GetLocalByName(const std::string& name, bool recursive) override;
    bool RegisterItemType(const std::string& name, IItemType* type, bool force) override;
    IItemType* GetLocalItemType(const std::string& name, bool recursive) override;
    bool RegisterItem(const std::string& name, IBaseCtr* item, bool force) override;
    IBaseCtr* GetItem(const std::string& name, bool recursive) override;
    bool UnregisterItem(const std::string& name, IBaseCtr* item) override;
    bool RegisterTypeCreator(const std::string& name, TypeCreator creator) override;
    TypeCreator GetTypeCreator(const std::string& name, bool recursive) override;
    bool RegisterTypeCreatorEx(const std::string& name, TypeCreatorEx creator) override;
    TypeCreatorEx GetTypeCreatorEx(const std::string& name, bool recursive) override;
    void SetFormatSpecValue(const std::string& name, const std::string& value) override;
    bool GetFormatSpecValue(const std::string& name, std::string& value) override;
    ILocalSource* GetParentLocal() override { return parent_; }
    std::string GetChildName(const ILocalSource* child) override;

    // Names of the item types registered in this scope, in name order.
    std::vector<std::string> ItemTypeNames() const;
    std::vector<std::string> ItemNames() const;

private:
    template <class Map, class Value>
    Value Find(Map CLocalSource::*map, const std::string& name, bool recursive,
               Value (ILocalSource::*next)(const std::string&, bool));

    std::string name_;
    ILocalSource* parent_;
    mutable std::recursive_mutex mutex_;
    std::map<std::string, ILocalSource*> sources_;
    std::map<std::string, IItemType*> types_;
    std::map<std::string, IBaseCtr*> items_;
    std::map<std::string, TypeCreator> creators_;
    std::map<std::string, TypeCreatorEx> creators_ex_;
    std::map<std::string, std::string> formats_;
};

// The process-wide root scope, built on first use.
ILocalSource* GetRootLocal();

// Finds an item by name: a child of base (a dotted name "a.b" walks children), else
// the scope's item of the first name part, searched up to the root. Null if none.
IBaseCtr* GetLocalItem(ILocalSource* source, IBaseCtr* base, const std::string& name);
