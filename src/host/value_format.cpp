#include "host/value_format.h"

#include <fmt/format.h>

#include <map>
#include <memory>
#include <mutex>

namespace {

struct BaseFormats {
    std::mutex mutex;
    std::map<std::string, std::unique_ptr<CFormatItem>> by_name;
};

BaseFormats& Formats() {
    static BaseFormats formats;
    return formats;
}

}  // namespace

CFormatItem::CFormatItem(std::string name, std::string pattern)
    : CBaseItem(std::move(name)), pattern_(std::move(pattern)) {}

std::string CFormatItem::Format(const Vellum::Var& value) const {
    try {
        switch (value.Type()) {
            case SysVarType::INT64: return fmt::format(fmt::runtime(pattern_), value.ToInt64());
            case SysVarType::UINT64: return fmt::format(fmt::runtime(pattern_), value.ToUInt64());
            case SysVarType::DOUBLE: return fmt::format(fmt::runtime(pattern_), value.ToDouble());
            case SysVarType::BOOL: return fmt::format(fmt::runtime(pattern_), value.ToBool());
            default: return fmt::format(fmt::runtime(pattern_), value.ToString());
        }
    } catch (const fmt::format_error&) {
        return value.ToString();
    }
}

std::shared_ptr<CtrVar> CFormatItem::GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) {
    if (type == VellumTypeOf<IValueFormat>()) return MakeCtrVar<IValueFormat>(this);
    return CBaseItem::GetExtendCtr(type, flag, name);
}

bool RegisterBaseFormat(const std::string& name, const std::string& pattern) {
    BaseFormats& formats = Formats();
    std::lock_guard lock(formats.mutex);
    return formats.by_name.try_emplace(name, std::make_unique<CFormatItem>(name, pattern)).second;
}

IBaseCtr* GetBaseFormat(ILocalSource*, const std::string& name) {
    BaseFormats& formats = Formats();
    std::lock_guard lock(formats.mutex);
    auto it = formats.by_name.find(name);
    return it == formats.by_name.end() ? nullptr : it->second.get();
}
