#pragma once
// Struct types: item types whose items hold a block of bytes with named fields at
// fixed offsets, such as the result records that the host reads by field name.
//
// A field is a SysVarType word, an offset and a width. A struct item's child of a
// field's name is a value item bound to those bytes, made on first use. The block is
// either the item's own (zero-filled, at least one byte) or memory bound to it, such
// as a C++ object that the item stands for.
//
// StructBuilder adds fields and completes the type when it goes out of scope: a type
// without a fixed size gets the end of its last field as its size.

#include "host/base_ctr.h"
#include "host/item_type.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

struct StructField {
    std::string name;
    SysVarType type = SysVarType::VOID;
    std::size_t offset = 0;
    std::size_t width = 0;
    std::string comment;
};

class IStructType : public IItemType {
public:
    using IItemType::IItemType;

    IStructType* AsStruct() override { return this; }

    // False for a duplicate name, an unknown type word, or a width that doesn't match
    // the type (BOOL and STRING excepted) .
    virtual bool AddField(StructField field) = 0;
    virtual const std::vector<StructField>& Fields() const = 0;
    virtual const StructField* FindField(const std::string& name) const = 0;
    // Bytes of one record.
    virtual std::size_t StructSize() const = 0;
    // Called once all fields are in.
    virtual void Complete() = 0;
};

// A struct type of its own, for records without a C++ class; or the base of one bound
// to a class, which fixes the size.
class CStructType : public IStructType {
public:
    CStructType(std::string name, ILocalSource* source, std::size_t fixed_size = 0);

    bool AddField(StructField field) override;
    const std::vector<StructField>& Fields() const override { return fields_; }
    const StructField* FindField(const std::string& name) const override;
    std::size_t StructSize() const override { return size_; }
    void Complete() override;
    IBaseCtr* CreateItem(const std::string& name) override;

private:
    std::vector<StructField> fields_;
    std::size_t size_;
    bool fixed_size_;
};

// An item of a struct type.
class CStruct : public CBaseItem {
public:
    CStruct(std::string name, IStructType* type);

    IStructType* StructType() const { return struct_type_; }
    void* Data() { return bound_ ? bound_ : own_.data(); }
    std::size_t Size() const { return struct_type_ ? struct_type_->StructSize() : 0; }
    // Reads and writes memory from now on; null returns to the own block. Field items
    // made before follow the new memory.
    void Bind(void* memory);
    // True after Bind(nullptr) until memory is bound again: the item then stands for no
    // record (it reads its own block). A new item is not null.
    bool IsNull() const { return null_; }

    IBaseCtr* GetChildItem(const std::string& name) override;
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override;

private:
    IStructType* struct_type_;
    std::vector<unsigned char> own_;
    void* bound_ = nullptr;
    bool null_ = false;
};

// Offset of a member within its class, measured on a default-constructed object.
template <class C, class M>
std::size_t MemberOffset(M C::*member) {
    const C object{};
    return static_cast<std::size_t>(reinterpret_cast<const char*>(&(object.*member)) -
                                    reinterpret_cast<const char*>(&object));
}

class StructBuilder {
public:
    struct Slot {
        std::size_t offset;
        std::size_t width;
    };

    // Adds fields to type; a null type becomes a new CStructType named name in source,
    // kept by the type manager.
    StructBuilder(IStructType*& type, ILocalSource* source, const std::string& name = {});
    ~StructBuilder();
    StructBuilder(const StructBuilder&) = delete;
    StructBuilder& operator=(const StructBuilder&) = delete;

    StructBuilder& AddVar(const std::string& name, const std::string& type_word, Slot slot,
                          const std::string& comment = {});
    // True while every AddVar so far was accepted.
    bool Ok() const { return ok_; }

private:
    IStructType* type_;
    bool ok_ = true;
};

namespace Vellum {

// Builds a struct type field by field with the item type of each field.
class StructInfoBuilder {
public:
    static StructInfoBuilder New(ILocalSource* source, const std::string& name = {});
    StructInfoBuilder& AddVar(const std::string& name, IItemType* field_type, int offset, int width);
    // The completed type, kept by the type manager; null if a field was refused.
    IStructType* Build();

private:
    StructInfoBuilder(ILocalSource* source, std::string name) : source_(source), name_(std::move(name)) {}
    ILocalSource* source_;
    std::string name_;
    std::vector<StructField> fields_;
    bool ok_ = true;
};

}  // namespace Vellum
