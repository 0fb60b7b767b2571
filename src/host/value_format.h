#pragma once
// Formats: items that turn a value into its text for display. A format item answers
// IValueFormat. Base formats are process-wide and found by name (GetBaseFormat); a
// scope may hold format items of its own, found as items.
//
// CFormatItem formats by a pattern with one "{}" placeholder in the syntax of fmt
// ("{:.3f}", "0x{:X}"), applied to the value as its own kind (integer, floating,
// boolean or text). A pattern that does not fit the value gives the value's plain text.

#include "host/base_ctr.h"

#include <string>

class ILocalSource;

class IValueFormat {
public:
    virtual ~IValueFormat() = default;
    virtual std::string Format(const Vellum::Var& value) const = 0;
};

class CFormatItem final : public CBaseItem, public IValueFormat {
public:
    CFormatItem(std::string name, std::string pattern);
    std::string Format(const Vellum::Var& value) const override;
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override;
    const std::string& Pattern() const { return pattern_; }

private:
    std::string pattern_;
};

// Enters a base format under name; false for a name that is taken, which keeps its
// format (items hold base formats by pointer for the life of the process).
bool RegisterBaseFormat(const std::string& name, const std::string& pattern);
// The base format of name; null if none. source is kept for the host's signature.
IBaseCtr* GetBaseFormat(ILocalSource* source, const std::string& name);
