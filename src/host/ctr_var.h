#pragma once
// CtrVar: a typed, reference-counted handle to an object, the answer of an interface
// query. Ctr<T>: the handle joined with the typed pointer got from it.
//
// A CtrVar remembers the type under which the object was handed out and a point that
// either owns the object (deleting it with the last handle) or merely refers to it.
// Vellum::MagicCast turns the handle into a pointer of an asked type with a checked
// cast: the stored type itself, or any base that the stored type lists through
// VELLUM_BASES (recursively). Everything else gives null, never an exception.

#include "host/type_id.h"

#include <memory>
#include <type_traits>
#include <utility>

// Lists the bases that a handle of type T may be cast to. Specialise with VELLUM_BASES.
template <class T>
struct VellumBases {
    static void* Visit(T*, const VellumTypeID&) { return nullptr; }
};

namespace vellum_detail {

template <class T>
void* CastTo(T* object, const VellumTypeID& to);

template <class T, class B>
void* CastBase(T* object, const VellumTypeID& to) {
    static_assert(std::is_base_of_v<B, T>, "VELLUM_BASES lists a class that is not a base");
    return CastTo<B>(static_cast<B*>(object), to);
}

// The stored type, then each listed base in order, depth first.
template <class T>
void* CastTo(T* object, const VellumTypeID& to) {
    if (object == nullptr) return nullptr;
    if (VellumTypeOf<T>() == to) return const_cast<std::remove_cv_t<T>*>(object);
    return VellumBases<std::remove_cv_t<T>>::Visit(object, to);
}

}  // namespace vellum_detail

// VELLUM_BASES(Derived, Base1, Base2...): handles of Derived also answer as the bases.
#define VELLUM_BASES(Derived, ...)                                                         \
    template <>                                                                            \
    struct VellumBases<Derived> {                                                          \
        template <class... B>                                                              \
        static void* VisitAll(Derived* object, const VellumTypeID& to) {                   \
            void* result = nullptr;                                                        \
            ((result = result ? result : vellum_detail::CastBase<Derived, B>(object, to)), \
             ...);                                                                         \
            return result;                                                                 \
        }                                                                                  \
        static void* Visit(Derived* object, const VellumTypeID& to) {                      \
            return VisitAll<__VA_ARGS__>(object, to);                                      \
        }                                                                                  \
    }

class CtrVar {
public:
    // Holds the object and knows whether to delete it.
    class ICtrPoint {
    public:
        virtual ~ICtrPoint() = default;
        virtual void* Get() const = 0;
        // Pointer to the object as the asked type, null if the stored type can't be one.
        virtual void* CastTo(const VellumTypeID& to) const = 0;
    };

    template <class T>
    class CtrPoint final : public ICtrPoint {
    public:
        CtrPoint(T* object, bool owned) : object_(object), owned_(owned) {}
        ~CtrPoint() override {
            if (owned_) delete object_;
        }
        CtrPoint(const CtrPoint&) = delete;
        CtrPoint& operator=(const CtrPoint&) = delete;
        void* Get() const override { return object_; }
        void* CastTo(const VellumTypeID& to) const override { return vellum_detail::CastTo<T>(object_, to); }

    private:
        T* object_;
        bool owned_;
    };

    CtrVar(const VellumTypeID& type, std::unique_ptr<ICtrPoint> point) : type_(&type), point_(std::move(point)) {}

    const VellumTypeID& Type() const { return *type_; }
    void* Get() const { return point_ ? point_->Get() : nullptr; }
    void* CastTo(const VellumTypeID& to) const { return point_ ? point_->CastTo(to) : nullptr; }

private:
    const VellumTypeID* type_;
    std::unique_ptr<ICtrPoint> point_;
};

// A handle that refers to object under type T without owning it.
template <class T>
std::shared_ptr<CtrVar> MakeCtrVar(T* object) {
    if (object == nullptr) return {};
    return std::make_shared<CtrVar>(VellumTypeOf<T>(), std::make_unique<CtrVar::CtrPoint<T>>(object, false));
}

// A handle that owns object: it is deleted with the last copy of the handle.
template <class T>
std::shared_ptr<CtrVar> MakeOwnedCtrVar(std::unique_ptr<T> object) {
    if (!object) return {};
    T* raw = object.release();
    return std::make_shared<CtrVar>(VellumTypeOf<T>(), std::make_unique<CtrVar::CtrPoint<T>>(raw, true));
}

namespace Vellum {

// The checked cast of a handle to type To; null for an empty handle or an unrelated type.
template <class To>
To* MagicCast(const std::shared_ptr<CtrVar>& var) {
    return var ? static_cast<To*>(var->CastTo(VellumTypeOf<To>())) : nullptr;
}

}  // namespace Vellum

// The handle and the typed pointer in one value; empty when the query failed.
template <class T>
class Ctr {
public:
    Ctr() = default;
    explicit Ctr(std::shared_ptr<CtrVar> var) : var_(std::move(var)), ptr_(Vellum::MagicCast<T>(var_)) {
        if (!ptr_) var_.reset();
    }

    T* get() const { return ptr_; }
    T* operator->() const { return ptr_; }
    T& operator*() const { return *ptr_; }
    explicit operator bool() const { return ptr_ != nullptr; }
    const std::shared_ptr<CtrVar>& Var() const { return var_; }

private:
    std::shared_ptr<CtrVar> var_;
    T* ptr_ = nullptr;
};
