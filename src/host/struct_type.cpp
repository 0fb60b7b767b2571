#include "host/struct_type.h"

#include "host/value_item.h"

#include <algorithm>

namespace {

bool WidthFits(SysVarType type, std::size_t width) {
    if (type == SysVarType::STRING || type == SysVarType::VOID) return false;
    if (type == SysVarType::BOOL) return width >= 1;
    return VarTypeSize(type) == width;
}

}  // namespace

CStructType::CStructType(std::string name, ILocalSource* source, std::size_t fixed_size)
    : IStructType(std::move(name), source), size_(fixed_size), fixed_size_(fixed_size != 0) {}

bool CStructType::AddField(StructField field) {
    if (field.name.empty() || FindField(field.name) != nullptr || !WidthFits(field.type, field.width)) return false;
    if (fixed_size_ && field.offset + field.width > size_) return false;
    fields_.push_back(std::move(field));
    return true;
}

const StructField* CStructType::FindField(const std::string& name) const {
    auto it = std::find_if(fields_.begin(), fields_.end(), [&](const StructField& f) { return f.name == name; });
    return it == fields_.end() ? nullptr : &*it;
}

void CStructType::Complete() {
    if (fixed_size_) return;
    for (const auto& field : fields_) size_ = std::max(size_, field.offset + field.width);
}

IBaseCtr* CStructType::CreateItem(const std::string& name) { return new CStruct(name, this); }

CStruct::CStruct(std::string name, IStructType* type)
    : CBaseItem(std::move(name), type), struct_type_(type), own_(std::max<std::size_t>(1, type ? type->StructSize() : 1)) {}

void CStruct::Bind(void* memory) {
    bound_ = memory;
    null_ = memory == nullptr;
    if (struct_type_ == nullptr) return;
    for (const auto& field : struct_type_->Fields()) {
        // Field items that exist follow the new memory; the others bind when made.
        for (const auto& child : GetChildren()) {
            if (child != field.name) continue;
            if (Ctr<CValueItem> value = QueryInterface<CValueItem>(CBaseItem::GetChildItem(child)))
                value->Bind(static_cast<unsigned char*>(Data()) + field.offset);
        }
    }
}

IBaseCtr* CStruct::GetChildItem(const std::string& name) {
    for (const auto& child : GetChildren())
        if (child == name) return CBaseItem::GetChildItem(name);
    const StructField* field = struct_type_ ? struct_type_->FindField(name) : nullptr;
    if (field == nullptr) return CBaseItem::GetChildItem(name);
    auto value = std::make_unique<CValueItem>(name, field->type);
    value->Bind(static_cast<unsigned char*>(Data()) + field->offset);
    IBaseCtr* raw = value.release();
    AddChildItem(raw, name, true);
    return raw;
}

std::shared_ptr<CtrVar> CStruct::GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) {
    if (type == VellumTypeOf<CStruct>()) return MakeCtrVar<CStruct>(this);
    return CBaseItem::GetExtendCtr(type, flag, name);
}

StructBuilder::StructBuilder(IStructType*& type, ILocalSource* source, const std::string& name) {
    if (type == nullptr) {
        type = static_cast<IStructType*>(
            GetCPPTypeManager()->Adopt(std::make_unique<CStructType>(name, source ? source : GetRootLocal())));
    }
    type_ = type;
}

StructBuilder::~StructBuilder() {
    if (type_) type_->Complete();
}

StructBuilder& StructBuilder::AddVar(const std::string& name, const std::string& type_word, Slot slot,
                                     const std::string& comment) {
    SysVarType type;
    if (type_ == nullptr || !StrVarType(type_word, type) ||
        !type_->AddField(StructField{name, type, slot.offset, slot.width, comment}))
        ok_ = false;
    return *this;
}

namespace Vellum {

StructInfoBuilder StructInfoBuilder::New(ILocalSource* source, const std::string& name) {
    return StructInfoBuilder(source ? source : GetRootLocal(), name);
}

StructInfoBuilder& StructInfoBuilder::AddVar(const std::string& name, IItemType* field_type, int offset, int width) {
    const auto* value_type = dynamic_cast<const CValueType*>(field_type);
    if (value_type == nullptr || offset < 0 || width <= 0) {
        ok_ = false;
        return *this;
    }
    fields_.push_back(StructField{name, value_type->ValueType(), static_cast<std::size_t>(offset),
                                  static_cast<std::size_t>(width), {}});
    return *this;
}

IStructType* StructInfoBuilder::Build() {
    if (!ok_) return nullptr;
    auto type = std::make_unique<CStructType>(name_, source_);
    for (auto& field : fields_)
        if (!type->AddField(field)) return nullptr;
    type->Complete();
    return static_cast<IStructType*>(GetCPPTypeManager()->Adopt(std::move(type)));
}

}  // namespace Vellum
