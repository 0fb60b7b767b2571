#pragma once
// The binding glue that turns a plain C++ class into an item type.
//
// A class C becomes an item type by RegisterClassType<C>(name, source). Its items are
// Vellum::VellumStruct<C>: the item owns a C made by its default constructor and
// forwards to C what C has of these members (each is optional):
//   static bool InitType(IItemType* type, const std::string& name);   at registration
//   bool InitItem(IBaseCtr* item);                                     after creation
//   bool SetLinkItem(IBaseCtr* item, const std::string& name);         per link
//   bool FinishConfig(ILocalSource*, IBaseCtr* item, const std::string& config);
//   bool OnCMD(const std::string& command, IBaseCtr* argument);        then generic commands
//   std::string GetAttribute(const std::string& name) const;           empty: the item's own
//   std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID&, bool, const std::string&);
// The item answers queries for C itself (and for IItemXmlInit when C is one) before it
// asks C. Fields that InitType declares on the type (StructBuilder) address bytes of
// the C object.

#include "host/base_ctr.h"
#include "host/item_type.h"
#include "host/struct_type.h"
#include "host/xml_items.h"

#include <concepts>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace vellum_detail {

template <class C>
concept HasInitType = requires(IItemType* type, const std::string& name) {
    { C::InitType(type, name) };
};
template <class C>
concept HasInitItem = requires(C& c, IBaseCtr* item) {
    { c.InitItem(item) };
};
template <class C>
concept HasSetLinkItem = requires(C& c, IBaseCtr* item, const std::string& name) {
    { c.SetLinkItem(item, name) };
};
template <class C>
concept HasFinishConfig = requires(C& c, ILocalSource* source, IBaseCtr* item, const std::string& config) {
    { c.FinishConfig(source, item, config) };
};
template <class C>
concept HasOnCMD = requires(C& c, const std::string& command, IBaseCtr* argument) {
    { c.OnCMD(command, argument) } -> std::convertible_to<bool>;
};
template <class C>
concept HasGetAttribute = requires(const C& c, const std::string& name) {
    { c.GetAttribute(name) } -> std::convertible_to<std::string>;
};
template <class C>
concept HasGetExtendCtr = requires(C& c, const VellumTypeID& type, bool flag, const std::string& name) {
    { c.GetExtendCtr(type, flag, name) } -> std::convertible_to<std::shared_ptr<CtrVar>>;
};

}  // namespace vellum_detail

namespace Vellum {

template <class C>
class VellumStruct final : public CStruct {
public:
    VellumStruct(std::string name, IStructType* type) : CStruct(std::move(name), type), object_(std::make_unique<C>()) {
        Bind(object_.get());
    }
    ~VellumStruct() override { NotifyDestroy(); }

    C* Object() const { return object_.get(); }

    // Runs the object's InitItem; the type's CreateItem calls it once.
    bool Init() {
        if constexpr (vellum_detail::HasInitItem<C>) return static_cast<bool>(object_->InitItem(this));
        return true;
    }

    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override {
        if (type == VellumTypeOf<C>()) return MakeCtrVar<C>(object_.get());
        if constexpr (std::is_base_of_v<IItemXmlInit, C>) {
            if (type == VellumTypeOf<IItemXmlInit>()) return MakeCtrVar<IItemXmlInit>(object_.get());
        }
        if constexpr (vellum_detail::HasGetExtendCtr<C>) {
            if (auto answer = object_->GetExtendCtr(type, flag, name)) return answer;
        }
        return CStruct::GetExtendCtr(type, flag, name);
    }

    bool OnCMD(const std::string& command, IBaseCtr* argument) override {
        if constexpr (vellum_detail::HasOnCMD<C>) {
            if (object_->OnCMD(command, argument)) return true;
        }
        return GenericCommand(command, argument);
    }

    bool SetLinkItem(IBaseCtr* item, const std::string& name) override {
        if constexpr (vellum_detail::HasSetLinkItem<C>) return static_cast<bool>(object_->SetLinkItem(item, name));
        return CStruct::SetLinkItem(item, name);
    }

    bool FinishConfig(ILocalSource* source, const std::string& config) override {
        if constexpr (vellum_detail::HasFinishConfig<C>)
            return static_cast<bool>(object_->FinishConfig(source, this, config));
        return CStruct::FinishConfig(source, config);
    }

    std::string GetAttribute(const std::string& name) const override {
        if constexpr (vellum_detail::HasGetAttribute<C>) {
            std::string answer = object_->GetAttribute(name);
            if (!answer.empty()) return answer;
        }
        return CStruct::GetAttribute(name);
    }

private:
    std::unique_ptr<C> object_;
};

template <class C>
class VellumStructType final : public CStructType {
public:
    VellumStructType(std::string name, ILocalSource* source) : CStructType(std::move(name), source, sizeof(C)) {}

    const VellumTypeID* ObjectType() const override { return &VellumTypeOf<C>(); }

    IBaseCtr* CreateItem(const std::string& name) override {
        auto item = std::make_unique<VellumStruct<C>>(name, this);
        item->Init();
        return item.release();
    }
};

}  // namespace Vellum

// Registers C as an item type named name: a type the manager already holds for C is
// kept as it is; otherwise the type is built, C::InitType runs on it, and it is entered
// in the manager and under name in source (the manager's root scope without one).
template <class C>
IItemType* RegisterClassType(const std::string& name, ILocalSource* source = nullptr, bool force = false) {
    ICPPTypeManager* manager = GetCPPTypeManager();
    if (IItemType* known = manager->Find(VellumTypeOf<C>())) return known;
    ILocalSource* scope = source ? source : manager->Root();
    auto type = std::make_unique<Vellum::VellumStructType<C>>(name, scope);
    if constexpr (vellum_detail::HasInitType<C>) C::InitType(type.get(), name);
    type->Complete();
    IItemType* entered = manager->Enter(VellumTypeOf<C>(), std::move(type));
    scope->RegisterItemType(name, entered, force);
    return entered;
}

// An item that points to an object it does not own and answers queries for T with it.
template <class T>
class CBasePointItem final : public CBaseItem {
public:
    CBasePointItem(std::string name, T* object) : CBaseItem(std::move(name)), object_(object) {}
    T* Object() const { return object_; }
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override {
        if (type == VellumTypeOf<T>()) return MakeCtrVar<T>(object_);
        if constexpr (vellum_detail::HasGetExtendCtr<T>) {
            if (auto answer = object_->GetExtendCtr(type, flag, name)) return answer;
        }
        return CBaseItem::GetExtendCtr(type, flag, name);
    }

private:
    T* object_;
};

// A function item around a callable: the item it runs on, the arguments, the result.
class CFunctionItem : public CBaseItem, public IFunctionCall {
public:
    using Function = std::function<bool(IBaseCtr*, const std::vector<Vellum::Var>&, Vellum::Var&)>;
    explicit CFunctionItem(Function function, std::string name = {})
        : CBaseItem(std::move(name)), function_(std::move(function)) {}
    bool Invoke(IBaseCtr* item, const std::vector<Vellum::Var>& args, Vellum::Var& result) override {
        return function_ && function_(item, args, result);
    }
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override {
        if (type == VellumTypeOf<IFunctionCall>()) return MakeCtrVar<IFunctionCall>(this);
        return CBaseItem::GetExtendCtr(type, flag, name);
    }

private:
    Function function_;
};

namespace vellum_detail {

template <class A>
bool FromVar(const Vellum::Var& var, std::decay_t<A>& out) {
    using T = std::decay_t<A>;
    bool error = false;
    if constexpr (std::is_same_v<T, bool>) {
        out = var.ToBool(&error);
    } else if constexpr (std::is_floating_point_v<T>) {
        out = static_cast<T>(var.ToDouble(&error));
    } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T>) {
        const uint64_t v = var.ToUInt64(&error);
        if (!error && v > std::numeric_limits<T>::max()) error = true;
        out = static_cast<T>(v);
    } else if constexpr (std::is_integral_v<T>) {
        const int64_t v = var.ToInt64(&error);
        if (!error && (v < std::numeric_limits<T>::min() || v > std::numeric_limits<T>::max())) error = true;
        out = static_cast<T>(v);
    } else {
        static_assert(std::is_same_v<T, std::string>, "unsupported argument type of a type function");
        out = var.ToString(&error);
    }
    return !error;
}

}  // namespace vellum_detail

// A member function of C as a type function: it runs on the C object of the item it is
// invoked on. Arguments convert from Var; a wrong count or a failed conversion gives false.
template <class C, class R, class... A>
class VellumMemberFunc final : public CFunctionItem {
public:
    explicit VellumMemberFunc(R (C::*member)(A...))
        : CFunctionItem([member](IBaseCtr* item, const std::vector<Vellum::Var>& args, Vellum::Var& result) {
              Ctr<C> object = QueryInterface<C>(item);
              if (!object || args.size() != sizeof...(A)) return false;
              return Call(object.get(), member, args, result, std::index_sequence_for<A...>{});
          }) {}

private:
    template <std::size_t... I>
    static bool Call(C* object, R (C::*member)(A...), const std::vector<Vellum::Var>& args, Vellum::Var& result,
                     std::index_sequence<I...>) {
        std::tuple<std::decay_t<A>...> values;
        if (!(vellum_detail::FromVar<A>(args[I], std::get<I>(values)) && ...)) return false;
        if constexpr (std::is_void_v<R>) {
            (object->*member)(std::get<I>(values)...);
        } else {
            result = Vellum::Var((object->*member)(std::get<I>(values)...));
        }
        return true;
    }
};

template <class C, class R>
using VellumMemberFunc0 = VellumMemberFunc<C, R>;

// Registers member as the type function name of type.
template <class C, class R, class... A>
bool RegisterMemberFunction(IItemType* type, const std::string& name, R (C::*member)(A...)) {
    return type && type->RegisterTypeFunction(name, new VellumMemberFunc<C, R, A...>(member), 0);
}

// A static object published under an interface type, found again by that type.
bool RegisterStaticInterface(const VellumTypeID& id, std::shared_ptr<CtrVar> ctr, ILocalSource* source);
std::shared_ptr<CtrVar> GetStaticInterface(const VellumTypeID& id);
