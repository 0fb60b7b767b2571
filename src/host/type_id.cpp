#include "host/type_id.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

std::string DemangledTypeName(const std::type_info& info) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(info.name(), nullptr, nullptr, &status),
                                                std::free);
    return status == 0 && name ? std::string(name.get()) : std::string(info.name());
}

VellumTypeID::VellumTypeID(const std::type_info& info)
    : hash_(static_cast<uint64_t>(info.hash_code())), name_(DemangledTypeName(info)), info_(&info) {}
