#pragma once
// VellumTypeID: the run-time identity of a C++ type as the object model sees it.
//
// One static instance exists per type, built at first use by VellumTypeOf<T>(). It
// carries a 64-bit hash and the readable (demangled) name; two ids are equal when
// they denote the same type.

#include <cstdint>
#include <string>
#include <typeinfo>

class VellumTypeID {
public:
    explicit VellumTypeID(const std::type_info& info);

    uint64_t Hash() const { return hash_; }
    const std::string& Name() const { return name_; }
    const std::type_info& Info() const { return *info_; }

    bool operator==(const VellumTypeID& other) const {
        return this == &other || (hash_ == other.hash_ && *info_ == *other.info_);
    }

private:
    uint64_t hash_;
    std::string name_;
    const std::type_info* info_;
};

template <class T>
const VellumTypeID& VellumTypeOf() {
    static const VellumTypeID id(typeid(T));
    return id;
}

// Readable name of a type_info (demangled where the platform can).
std::string DemangledTypeName(const std::type_info& info);
