#include "host/value_item.h"

#include "host/local_source.h"
#include "host/string_utils.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

namespace {

template <class T>
T Load(const void* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <class T>
void Store(void* p, T v) {
    std::memcpy(p, &v, sizeof v);
}

template <class T>
bool StoreSigned(void* p, const Vellum::Var& value) {
    bool error = false;
    const int64_t v = value.ToInt64(&error);
    if (error || v < std::numeric_limits<T>::min() || v > std::numeric_limits<T>::max()) return false;
    Store<T>(p, static_cast<T>(v));
    return true;
}

template <class T>
bool StoreUnsigned(void* p, const Vellum::Var& value) {
    bool error = false;
    const uint64_t v = value.ToUInt64(&error);
    if (error || v > std::numeric_limits<T>::max()) return false;
    Store<T>(p, static_cast<T>(v));
    return true;
}

}  // namespace

CValueItem::CValueItem(std::string name, SysVarType type, IItemType* item_type)
    : CBaseItem(std::move(name), item_type), value_type_(type) {}

void CValueItem::Bind(void* memory) {
    std::lock_guard lock(mutex_);
    bound_ = memory;
}

bool CValueItem::IsBound() const {
    std::lock_guard lock(mutex_);
    return bound_ != nullptr;
}

Vellum::Var CValueItem::GetValue() const {
    std::lock_guard lock(mutex_);
    const void* p = bound_ ? bound_ : own_;
    switch (value_type_) {
    case SysVarType::INT8: return Vellum::Var(static_cast<long long>(Load<int8_t>(p)));
    case SysVarType::UINT8: return Vellum::Var(static_cast<unsigned long long>(Load<uint8_t>(p)));
    case SysVarType::INT16: return Vellum::Var(static_cast<long long>(Load<int16_t>(p)));
    case SysVarType::UINT16: return Vellum::Var(static_cast<unsigned long long>(Load<uint16_t>(p)));
    case SysVarType::INT32: return Vellum::Var(static_cast<long long>(Load<int32_t>(p)));
    case SysVarType::UINT32: return Vellum::Var(static_cast<unsigned long long>(Load<uint32_t>(p)));
    case SysVarType::INT64: return Vellum::Var(static_cast<long long>(Load<int64_t>(p)));
    case SysVarType::UINT64: return Vellum::Var(static_cast<unsigned long long>(Load<uint64_t>(p)));
    case SysVarType::FLOAT: return Vellum::Var(static_cast<double>(Load<float>(p)));
    case SysVarType::DOUBLE: return Vellum::Var(Load<double>(p));
    case SysVarType::BOOL: return Vellum::Var(Load<uint8_t>(p) != 0);
    case SysVarType::STRING: return Vellum::Var(text_);
    case SysVarType::VOID: break;
    }
    return {};
}

bool CValueItem::SetValue(const Vellum::Var& value, int, int) {
    std::lock_guard lock(mutex_);
    void* p = bound_ ? bound_ : own_;
    bool error = false;
    switch (value_type_) {
    case SysVarType::INT8: return StoreSigned<int8_t>(p, value);
    case SysVarType::UINT8: return StoreUnsigned<uint8_t>(p, value);
    case SysVarType::INT16: return StoreSigned<int16_t>(p, value);
    case SysVarType::UINT16: return StoreUnsigned<uint16_t>(p, value);
    case SysVarType::INT32: return StoreSigned<int32_t>(p, value);
    case SysVarType::UINT32: return StoreUnsigned<uint32_t>(p, value);
    case SysVarType::INT64: return StoreSigned<int64_t>(p, value);
    case SysVarType::UINT64: return StoreUnsigned<uint64_t>(p, value);
    case SysVarType::FLOAT: {
        const double d = value.ToDouble(&error);
        if (error) return false;
        Store<float>(p, static_cast<float>(d));
        return true;
    }
    case SysVarType::DOUBLE: {
        const double d = value.ToDouble(&error);
        if (error) return false;
        Store<double>(p, d);
        return true;
    }
    case SysVarType::BOOL: {
        const bool b = value.ToBool(&error);
        if (error) return false;
        Store<uint8_t>(p, b ? 1 : 0);
        return true;
    }
    case SysVarType::STRING: {
        std::string s = value.ToString(&error);
        if (error) return false;
        text_ = std::move(s);
        return true;
    }
    case SysVarType::VOID: break;
    }
    return false;
}

std::shared_ptr<CtrVar> CValueItem::GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) {
    if (type == VellumTypeOf<CValueItem>()) return MakeCtrVar<CValueItem>(this);
    return CBaseItem::GetExtendCtr(type, flag, name);
}

bool CValueItem::SetText(const std::string& text) {
    if (value_type_ == SysVarType::STRING) return SetValue(Vellum::Var(text));
    alignas(8) unsigned char parsed[8] = {};
    if (!SysStringToValue(value_type_, text, parsed)) return false;
    std::lock_guard lock(mutex_);
    std::memcpy(bound_ ? bound_ : own_, parsed, VarTypeSize(value_type_));
    return true;
}

CValueType::CValueType(SysVarType type, ILocalSource* source) : IItemType(VarTypeStr(type), source), value_type_(type) {}

IBaseCtr* CValueType::CreateItem(const std::string& name) {
    return new CValueItem(name, value_type_, this);
}

IItemType* GetValueItemType(SysVarType type) {
    // Built once and never destroyed, like the scope they are registered in.
    static const auto& types = *[] {
        auto* all = new std::vector<std::unique_ptr<CValueType>>;
        for (int t = 0; t <= static_cast<int>(SysVarType::STRING); ++t)
            all->push_back(std::make_unique<CValueType>(static_cast<SysVarType>(t), nullptr));
        return all;
    }();
    if (type == SysVarType::VOID) return nullptr;
    const auto index = static_cast<std::size_t>(type);
    return index < types.size() ? types[index].get() : nullptr;
}

void RegisterValueTypes(ILocalSource* source) {
    if (source == nullptr) return;
    for (int t = 0; t <= static_cast<int>(SysVarType::STRING); ++t) {
        const auto type = static_cast<SysVarType>(t);
        if (IItemType* item_type = GetValueItemType(type)) source->RegisterItemType(VarTypeStr(type), item_type, false);
    }
}

IBaseCtr* Eval(const std::string& text, ILocalSource*) {
    std::string word, literal;
    const bool has_literal = SplitString(text, "=", word, literal);
    SysVarType type;
    if (!StrVarType(word, type) || type == SysVarType::VOID) return nullptr;
    auto item = std::make_unique<CValueItem>(std::string(), type);
    if (has_literal && !item->SetText(literal)) return nullptr;
    return item.release();
}

bool SetItemValue(IBaseCtr* item, const std::string& text, ILocalSource* source, IBaseCtr* context) {
    if (item == nullptr) return false;
    if (IBaseCtr* named = GetLocalItem(source, context, Trim(text)); named != nullptr && named != item) {
        const Vellum::Var value = named->GetValue();
        if (!value.IsEmpty()) return item->SetValue(value);
    }
    if (Ctr<CValueItem> value_item = QueryInterface<CValueItem>(item)) return value_item->SetText(text);
    return item->SetValue(Vellum::Var(text));
}
