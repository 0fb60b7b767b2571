#pragma once
// Value items: items that hold one value of a SysVarType, either in themselves or in
// memory bound to them (a field of a record), and Eval, which makes one from a text
// such as "DOUBLE = 1.0".
//
// GetValue reads the value as a Var of the item's type family (a signed integer as
// INT64, an unsigned one as UINT64, FLOAT and DOUBLE as DOUBLE, BOOL, STRING).
// SetValue converts the Var into the item's type; a value that does not convert or
// does not fit leaves the item unchanged and gives false. Setting a value fires no
// event by itself: whoever changes a value and wants it known fires "ValueChanged".

#include "host/base_ctr.h"
#include "host/item_type.h"

#include <cstdint>
#include <mutex>
#include <string>

class ILocalSource;

class CValueItem : public CBaseItem {
public:
    CValueItem(std::string name, SysVarType type, IItemType* item_type = nullptr);

    SysVarType ValueType() const { return value_type_; }

    // Reads and writes bound memory from now on (null returns to the own value). The
    // memory must hold VarTypeSize(ValueType()) bytes and outlive the binding.
    void Bind(void* memory);
    bool IsBound() const;

    Vellum::Var GetValue() const override;
    bool SetValue(const Vellum::Var& value, int flags = 0, int index = 0) override;
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override;

    // Sets the value from text; false if it does not parse as the item's type.
    bool SetText(const std::string& text);

private:
    SysVarType value_type_;
    mutable std::mutex mutex_;
    alignas(8) unsigned char own_[8] = {};
    std::string text_;
    void* bound_ = nullptr;
};

// The item type of value items of one SysVarType, registered in the root scope under
// its word ("DOUBLE", "UINT64", "STRING"...).
class CValueType : public IItemType {
public:
    CValueType(SysVarType type, ILocalSource* source);
    SysVarType ValueType() const { return value_type_; }
    IBaseCtr* CreateItem(const std::string& name) override;

private:
    SysVarType value_type_;
};

// The value item type of type; null for VOID.
IItemType* GetValueItemType(SysVarType type);
// Registers the value item types in source under their words.
void RegisterValueTypes(ILocalSource* source);

// Parses "TYPE = literal" (or "TYPE" alone, giving zero) into a new value item owned
// by the caller. The type word is a SysVarType word; the literal must parse as it.
// Null for any malformed text. source is unused by literals; it is kept for the
// host's signature.
IBaseCtr* Eval(const std::string& text, ILocalSource* source);

// Sets item's value from text: the value of the item that text names in source (as
// GetLocalItem finds it from context), else text as a literal. False if neither works.
bool SetItemValue(IBaseCtr* item, const std::string& text, ILocalSource* source, IBaseCtr* context);
