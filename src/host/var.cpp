#include "host/var.h"

#include "host/string_utils.h"

#include <array>
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <limits>
#include <utility>

namespace {

constexpr std::array<std::pair<SysVarType, const char*>, 13> kTypeWords{{
    {SysVarType::INT8, "INT8"},     {SysVarType::UINT8, "UINT8"},   {SysVarType::INT16, "INT16"},
    {SysVarType::UINT16, "UINT16"}, {SysVarType::INT32, "INT32"},   {SysVarType::INT64, "INT64"},
    {SysVarType::UINT32, "UINT32"}, {SysVarType::UINT64, "UINT64"}, {SysVarType::FLOAT, "FLOAT"},
    {SysVarType::DOUBLE, "DOUBLE"}, {SysVarType::BOOL, "BOOL"},     {SysVarType::VOID, "VOID"},
    {SysVarType::STRING, "STRING"},
}};

template <class T>
bool StoreInteger(const std::string& text, void* out) {
    if constexpr (std::is_signed_v<T>) {
        int64_t v = 0;
        if (!SysParseI64(text, v) || v < std::numeric_limits<T>::min() || v > std::numeric_limits<T>::max())
            return false;
        const T narrowed = static_cast<T>(v);
        std::memcpy(out, &narrowed, sizeof(T));
    } else {
        uint64_t v = 0;
        if (!SysParseU64(text, v) || v > std::numeric_limits<T>::max()) return false;
        const T narrowed = static_cast<T>(v);
        std::memcpy(out, &narrowed, sizeof(T));
    }
    return true;
}

bool ParseBool(const std::string& text, bool& out) {
    const std::string t = tolower(Trim(text));
    if (t == "1" || t == "true") return out = true, true;
    if (t == "0" || t == "false") return out = false, true;
    return false;
}

template <class T>
T Fail(bool* error) {
    if (error) *error = true;
    return T{};
}

template <class T>
T Ok(T value, bool* error) {
    if (error) *error = false;
    return value;
}

// A double that fits into integer type T after truncation toward zero.
template <class T>
bool DoubleFits(double v) {
    if (!std::isfinite(v)) return false;
    const double t = std::trunc(v);
    return t >= static_cast<double>(std::numeric_limits<T>::min()) &&
           t < std::ldexp(1.0, std::numeric_limits<T>::digits);
}

}  // namespace

std::string VarTypeStr(SysVarType type) {
    for (const auto& [t, word] : kTypeWords)
        if (t == type) return word;
    return {};
}

bool StrVarType(const std::string& word, SysVarType& type) {
    const std::string w = Trim(word);
    for (const auto& [t, text] : kTypeWords) {
        if (StringCompare(w, text, true) == 0) {
            type = t;
            return true;
        }
    }
    return false;
}

std::size_t VarTypeSize(SysVarType type) {
    switch (type) {
    case SysVarType::INT8:
    case SysVarType::UINT8:
    case SysVarType::BOOL: return 1;
    case SysVarType::INT16:
    case SysVarType::UINT16: return 2;
    case SysVarType::INT32:
    case SysVarType::UINT32:
    case SysVarType::FLOAT: return 4;
    case SysVarType::INT64:
    case SysVarType::UINT64:
    case SysVarType::DOUBLE: return 8;
    case SysVarType::VOID:
    case SysVarType::STRING: return 0;
    }
    return 0;
}

bool SysStringToValue(SysVarType type, const std::string& text, void* out) {
    if (out == nullptr) return false;
    switch (type) {
    case SysVarType::INT8: return StoreInteger<int8_t>(text, out);
    case SysVarType::UINT8: return StoreInteger<uint8_t>(text, out);
    case SysVarType::INT16: return StoreInteger<int16_t>(text, out);
    case SysVarType::UINT16: return StoreInteger<uint16_t>(text, out);
    case SysVarType::INT32: return StoreInteger<int32_t>(text, out);
    case SysVarType::UINT32: return StoreInteger<uint32_t>(text, out);
    case SysVarType::INT64: return StoreInteger<int64_t>(text, out);
    case SysVarType::UINT64: return StoreInteger<uint64_t>(text, out);
    case SysVarType::FLOAT: {
        double v = 0;
        if (!SysParseDouble(text, v)) return false;
        const float f = static_cast<float>(v);
        std::memcpy(out, &f, sizeof f);
        return true;
    }
    case SysVarType::DOUBLE: {
        double v = 0;
        if (!SysParseDouble(text, v)) return false;
        std::memcpy(out, &v, sizeof v);
        return true;
    }
    case SysVarType::BOOL: {
        bool b = false;
        if (!ParseBool(text, b)) return false;
        const uint8_t byte = b ? 1 : 0;
        std::memcpy(out, &byte, 1);
        return true;
    }
    case SysVarType::VOID:
    case SysVarType::STRING: return false;
    }
    return false;
}

bool SysStringToValue(int type, const std::string& text, void* out) {
    if (type < 0 || type > static_cast<int>(SysVarType::STRING)) return false;
    return SysStringToValue(static_cast<SysVarType>(type), text, out);
}

namespace Vellum {

SysVarType Var::Type() const {
    switch (value_.index()) {
    case 1: return SysVarType::BOOL;
    case 2: return SysVarType::INT64;
    case 3: return SysVarType::UINT64;
    case 4: return SysVarType::DOUBLE;
    case 5: return SysVarType::STRING;
    default: return SysVarType::VOID;
    }
}

bool Var::ToBool(bool* error) const {
    if (auto* b = std::get_if<bool>(&value_)) return Ok(*b, error);
    if (auto* i = std::get_if<int64_t>(&value_)) return Ok(*i != 0, error);
    if (auto* u = std::get_if<uint64_t>(&value_)) return Ok(*u != 0, error);
    if (auto* d = std::get_if<double>(&value_)) return std::isnan(*d) ? Fail<bool>(error) : Ok(*d != 0.0, error);
    if (auto* s = std::get_if<std::string>(&value_)) {
        bool b = false;
        if (ParseBool(*s, b)) return Ok(b, error);
        double d = 0;
        if (SysParseDouble(*s, d) && !std::isnan(d)) return Ok(d != 0.0, error);
    }
    return Fail<bool>(error);
}

double Var::ToDouble(bool* error) const {
    if (auto* b = std::get_if<bool>(&value_)) return Ok(*b ? 1.0 : 0.0, error);
    if (auto* i = std::get_if<int64_t>(&value_)) return Ok(static_cast<double>(*i), error);
    if (auto* u = std::get_if<uint64_t>(&value_)) return Ok(static_cast<double>(*u), error);
    if (auto* d = std::get_if<double>(&value_)) return Ok(*d, error);
    if (auto* s = std::get_if<std::string>(&value_)) {
        double d = 0;
        if (SysParseDouble(*s, d)) return Ok(d, error);
    }
    return Fail<double>(error);
}

int64_t Var::ToInt64(bool* error) const {
    if (auto* b = std::get_if<bool>(&value_)) return Ok<int64_t>(*b ? 1 : 0, error);
    if (auto* i = std::get_if<int64_t>(&value_)) return Ok(*i, error);
    if (auto* u = std::get_if<uint64_t>(&value_)) {
        if (*u > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return Fail<int64_t>(error);
        return Ok(static_cast<int64_t>(*u), error);
    }
    if (auto* d = std::get_if<double>(&value_)) {
        if (!DoubleFits<int64_t>(*d)) return Fail<int64_t>(error);
        return Ok(static_cast<int64_t>(*d), error);
    }
    if (auto* s = std::get_if<std::string>(&value_)) {
        int64_t v = 0;
        if (SysParseI64(*s, v)) return Ok(v, error);
        double d = 0;
        if (SysParseDouble(*s, d) && DoubleFits<int64_t>(d)) return Ok(static_cast<int64_t>(d), error);
    }
    return Fail<int64_t>(error);
}

uint64_t Var::ToUInt64(bool* error) const {
    if (auto* b = std::get_if<bool>(&value_)) return Ok<uint64_t>(*b ? 1 : 0, error);
    if (auto* i = std::get_if<int64_t>(&value_)) {
        if (*i < 0) return Fail<uint64_t>(error);
        return Ok(static_cast<uint64_t>(*i), error);
    }
    if (auto* u = std::get_if<uint64_t>(&value_)) return Ok(*u, error);
    if (auto* d = std::get_if<double>(&value_)) {
        if (!DoubleFits<uint64_t>(*d)) return Fail<uint64_t>(error);
        return Ok(static_cast<uint64_t>(*d), error);
    }
    if (auto* s = std::get_if<std::string>(&value_)) {
        uint64_t v = 0;
        if (SysParseU64(*s, v)) return Ok(v, error);
        double d = 0;
        if (SysParseDouble(*s, d) && DoubleFits<uint64_t>(d)) return Ok(static_cast<uint64_t>(d), error);
    }
    return Fail<uint64_t>(error);
}

uint32_t Var::ToUInt32(bool* error) const {
    bool failed = false;
    const uint64_t v = ToUInt64(&failed);
    if (failed || v > std::numeric_limits<uint32_t>::max()) return Fail<uint32_t>(error);
    return Ok(static_cast<uint32_t>(v), error);
}

std::string Var::ToString(bool* error) const {
    if (auto* b = std::get_if<bool>(&value_)) return Ok<std::string>(*b ? "1" : "0", error);
    if (auto* i = std::get_if<int64_t>(&value_)) return Ok(fmt::format("{}", *i), error);
    if (auto* u = std::get_if<uint64_t>(&value_)) return Ok(fmt::format("{}", *u), error);
    if (auto* d = std::get_if<double>(&value_)) return Ok(fmt::format("{}", *d), error);
    if (auto* s = std::get_if<std::string>(&value_)) return Ok(*s, error);
    return Fail<std::string>(error);
}

}  // namespace Vellum
