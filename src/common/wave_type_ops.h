#pragma once
// The operations on one sample type of the configurable wave family, whose element type
// is a run-time value: one row per host value type code 0 to 9 (INT8 ... DOUBLE, in the
// numbering of SysVarType). No other code has a row.

#include <cstddef>
#include <string>

struct WaveTypeOps {
    int code;
    const char* name;  // the host's type word, "FLOAT" and the like
    std::size_t size;  // bytes of one element
    // Negative, 0 or positive as *a is below, equal to or above *b. NaN compares equal.
    int (*compare)(const void* a, const void* b);
    double (*to_double)(const void* element);
    // Converts with the language's conversion; out-of-range values of integer types
    // are clamped to the type's range, NaN gives 0.
    void (*from_double)(double value, void* element);
};

// The row of a code; null for a code outside 0 to 9.
const WaveTypeOps* WaveTypeOpsByCode(int code);
// The row of a type word (any case); null for a word that names no wave value type.
const WaveTypeOps* WaveTypeOpsByName(const std::string& name);
