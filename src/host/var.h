#pragma once
// The host's value types and Vellum::Var, the variant value that items exchange.
//
// SysVarType numbers are fixed: the module passes 6 ("UINT32"), 7 ("UINT64") and
// 9 ("DOUBLE") as plain numbers. STRING is our extension for text-valued items.

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>

enum class SysVarType : int {
    INT8 = 0,
    UINT8 = 1,
    INT16 = 2,
    UINT16 = 3,
    INT32 = 4,
    INT64 = 5,
    UINT32 = 6,
    UINT64 = 7,
    FLOAT = 8,
    DOUBLE = 9,
    BOOL = 10,
    VOID = 11,
    STRING = 12,
};

// "INT8" ... "VOID", "STRING"; the empty text for a number outside the enumeration.
std::string VarTypeStr(SysVarType type);
// The type of a word, compared without regard to case; false for an unknown word.
bool StrVarType(const std::string& word, SysVarType& type);
// Width in bytes of a value of the type in memory (0 for VOID and STRING).
std::size_t VarTypeSize(SysVarType type);

// Parses text as a value of type into out, which must hold VarTypeSize(type) bytes,
// little-endian as in memory. False (out untouched) for text that isn't a number of
// that type or is out of its range; booleans take "1"/"0"/"true"/"false".
bool SysStringToValue(SysVarType type, const std::string& text, void* out);
// The same with the numeric type code the module passes (6, 7, 9...).
bool SysStringToValue(int type, const std::string& text, void* out);

namespace Vellum {

class Var {
public:
    Var() = default;
    Var(bool value) : value_(value) {}
    Var(int value) : value_(static_cast<int64_t>(value)) {}
    Var(unsigned value) : value_(static_cast<uint64_t>(value)) {}
    Var(long value) : value_(static_cast<int64_t>(value)) {}
    Var(long long value) : value_(static_cast<int64_t>(value)) {}
    Var(unsigned long value) : value_(static_cast<uint64_t>(value)) {}
    Var(unsigned long long value) : value_(static_cast<uint64_t>(value)) {}
    Var(double value) : value_(value) {}
    Var(std::string value) : value_(std::move(value)) {}
    Var(const char* value) : value_(std::string(value ? value : "")) {}

    bool IsEmpty() const { return std::holds_alternative<std::monostate>(value_); }
    // BOOL, INT64, UINT64, DOUBLE, STRING, or VOID when empty.
    SysVarType Type() const;

    // Conversions. On failure the result is 0 / false / "" and *error, if given, is
    // set true; on success *error is set false. Text converts when the whole of it
    // is a number; integers refuse values out of their range; doubles truncate
    // toward zero into integers and must fit.
    bool ToBool(bool* error = nullptr) const;
    double ToDouble(bool* error = nullptr) const;
    int64_t ToInt64(bool* error = nullptr) const;
    uint32_t ToUInt32(bool* error = nullptr) const;
    uint64_t ToUInt64(bool* error = nullptr) const;
    std::string ToString(bool* error = nullptr) const;

    bool operator==(const Var& other) const = default;

private:
    std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string> value_;
};

}  // namespace Vellum
