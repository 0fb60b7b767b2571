#include "dataset/axis.h"

#include "host/item_binding.h"
#include "host/item_type.h"
#include "host/local_source.h"
#include "host/logger.h"
#include "host/string_utils.h"
#include "host/struct_type.h"
#include "host/value_item.h"

#include <cmath>
#include <optional>

namespace {

// Numeric type codes of SysStringToValue for the literals of "init".
constexpr int kUInt32 = 6;
constexpr int kUInt64 = 7;
constexpr int kDouble = 9;

// Events that every axis item declares; all with empty signatures.
constexpr const char* kAxisEvents[] = {"BackReadScaleOffset", "GroupUpdate", "ScrollUpdate", "AutoScroll",
                                       "ScrollChanged"};

// Values of bound items, read at every query. Empty when there is no item or its value
// doesn't convert, so that the caller keeps its own value.
std::optional<double> ReadDouble(IBaseCtr* item) {
    if (item == nullptr) return std::nullopt;
    bool error = false;
    const double value = item->GetValue().ToDouble(&error);
    if (error) return std::nullopt;
    return value;
}

std::optional<uint64_t> ReadU64(IBaseCtr* item) {
    if (item == nullptr) return std::nullopt;
    bool error = false;
    const uint64_t value = item->GetValue().ToUInt64(&error);
    if (error) return std::nullopt;
    return value;
}

std::optional<uint32_t> ReadU32(IBaseCtr* item) {
    if (item == nullptr) return std::nullopt;
    bool error = false;
    const uint32_t value = item->GetValue().ToUInt32(&error);
    if (error) return std::nullopt;
    return value;
}

// round(x * 1e15) * 1e-15. A value too large for the scaled product is already coarser
// than 1e-15 and is kept as it is rather than turned into infinity.
template <class T>
T RoundTo1e15(T x) {
    const T scaled = x * static_cast<T>(1e15);
    if (!std::isfinite(scaled)) return x;
    return std::round(scaled) * static_cast<T>(1e-15);
}

bool DiffersFrom(IBaseCtr* item, double value) {
    const std::optional<double> current = ReadDouble(item);
    // A value that can't be read is taken as different: it gets overwritten.
    return !current || std::fabs(*current - value) > 1e-12;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// CRatio

template <class T>
SysVarType CRatio<T>::GetVarType() {
    return SysVarType::DOUBLE;
}

template <class T>
bool CRatio<T>::Translate(Vellum::Var& out, Vellum::Var raw) {
    bool error = false;
    const double value = raw.ToDouble(&error);
    if (error) return false;
    out = Vellum::Var(static_cast<double>(value * ratio + offset));
    return true;
}

template <class T>
bool CRatio<T>::ReverseTranslate(Vellum::Var& raw, Vellum::Var value) {
    bool error = false;
    const double translated = value.ToDouble(&error);
    if (error || ratio == 0) return false;
    raw = Vellum::Var(static_cast<double>((translated - offset) / ratio));
    return true;
}

template <class T>
double CRatio<T>::GetRatio() {
    return static_cast<double>(ratio);
}

template <class T>
double CRatio<T>::GetOffset() {
    return static_cast<double>(offset);
}

template <class T>
void CRatio<T>::SetRatioOffset(double new_ratio, double new_offset) {
    if (new_ratio < 1e-9) CLogger::DefaultLogger().Error("设置的lfRatio太小了 ={}", new_ratio);
    ratio = RoundTo1e15(static_cast<T>(new_ratio));
    offset = RoundTo1e15(static_cast<T>(new_offset));
}

template class CRatio<double>;

// ---------------------------------------------------------------------------------------
// CDataAxisInfo

bool CDataAxisInfo::SetRatio(double value) {
    ratio = value;
    return true;
}

bool CDataAxisInfo::SetOffset(double value) {
    offset = value;
    return true;
}

void CDataAxisInfo::GetRange(double* begin, double* end) {
    if (begin != nullptr) *begin = range_begin;
    if (end != nullptr) *end = range_end;
}

bool CDataAxisInfo::SetRange(double begin, double end) {
    if (std::fabs(begin - range_begin) < 1e-12 && std::fabs(end - range_end) < 1e-12) return false;
    range_begin = begin;
    range_end = end;
    return true;
}

// ---------------------------------------------------------------------------------------
// CDatasetAxis: creation and configuration

CDatasetAxis::CDatasetAxis() : event_ctr(CreateEventCtr()) {}

CDatasetAxis::~CDatasetAxis() = default;

bool CDatasetAxis::InitType(IItemType* type, const std::string&) {
    IStructType* struct_type = type ? type->AsStruct() : nullptr;
    if (struct_type == nullptr) return false;
    if (!struct_type->Fields().empty()) return true;
    StructBuilder builder(struct_type, type->Source());
    builder.AddVar("trig_pos", "DOUBLE", {MemberOffset(&CDatasetAxis::trig_pos), sizeof(double)}, "trigger position")
        .AddVar("axisstate", "UINT32", {MemberOffset(&CDatasetAxis::axisstate), sizeof(uint32_t)},
                "lock state: 0 free, 1 locked")
        .AddVar("hasdata", "UINT32", {MemberOffset(&CDatasetAxis::hasdata), sizeof(uint32_t)},
                "0 between DataPre and DataFinish, else 1")
        .AddVar("aync", "BOOL", {MemberOffset(&CDatasetAxis::aync), sizeof(bool)}, "asynchronous flag");
    return builder.Ok();
}

bool CDatasetAxis::InitItem(IBaseCtr* item) {
    item_ = item;
    AxisValue* const values[] = {&ratio_var, &offset_var, &scale_var, &count_var};
    const char* const texts[] = {"DOUBLE = 1.0", "DOUBLE = 0.0", "DOUBLE = 1.0", "DOUBLE = 1.0"};
    for (std::size_t i = 0; i < 4; ++i) {
        values[i]->local.reset(Eval(texts[i], nullptr));
        values[i]->bound = nullptr;
        values[i]->is_bound = false;
    }
    ratio_item = ratio_var.local.get();
    offset_item = offset_var.local.get();
    scale_item = scale_var.local.get();
    count_item = count_var.local.get();
    for (const char* event : kAxisEvents) EventItem()->RegisterEvent(event, "");
    return ratio_item && offset_item && scale_item && count_item;
}

bool CDatasetAxis::InitItemByXML(ILocalSource* source, IBaseCtr*, const pugi::xml_node& node) {
    if (const pugi::xml_attribute init = node.attribute("init")) ApplyInit(init.value(), source);
    return true;
}

// Keys of "init" (compared without regard to case, other keys ignored):
//   offset      binds offset_item, or the offset literal (a leading '-' negates it)
//   ratio       binds ratio_item, or the ratio literal (1.0 when absent)
//   scale       binds scale_item, or scale (unsigned 64-bit)
//   count       binds count_item, or count (unsigned 32-bit)
//   maxscaling, minscaling, maxoffset, minoffset   bind the limit items, or the limits
//   index_step  always a literal (unsigned 64-bit)
// A literal clears the item pointer; a literal that doesn't parse keeps the field.
void CDatasetAxis::ApplyInit(const std::string& text, ILocalSource* source) {
    double parsed_ratio = 1.0;
    double parsed_offset = 0.0;

    auto lookup = [source](const std::string& name) -> IBaseCtr* {
        return source != nullptr ? GetLocalItem(source, nullptr, name) : nullptr;
    };
    // Binds the item that value names into slot (and records it in var), or parses the
    // literal into field with slot cleared. True when a literal was parsed.
    auto bind_or_parse = [&lookup](IBaseCtr*& slot, AxisValue* var, int type_code, const std::string& value,
                                   void* field) {
        IBaseCtr* named = lookup(value);
        slot = named;
        if (var != nullptr) {
            var->bound = named;
            var->is_bound = named != nullptr;
        }
        return named == nullptr && SysStringToValue(type_code, value, field);
    };

    for (const auto& entry : ParseConfigString(text)) {
        const std::string& key = entry.first;
        const std::string& value = entry.second;
        auto is = [&key](const char* name) { return StringCompare(key, name, true) == 0; };
        if (is("offset")) {
            // The sign belongs to a literal; a named item is bound as it is.
            std::string name = value;
            bool negate = false;
            if (!name.empty() && (name.front() == '-' || name.front() == '+')) {
                negate = name.front() == '-';
                name.erase(0, 1);
            }
            double literal = 0.0;
            if (bind_or_parse(offset_item, &offset_var, kDouble, name, &literal))
                parsed_offset = negate ? -literal : literal;
        } else if (is("ratio")) {
            bind_or_parse(ratio_item, &ratio_var, kDouble, value, &parsed_ratio);
        } else if (is("scale")) {
            bind_or_parse(scale_item, &scale_var, kUInt64, value, &scale);
        } else if (is("count")) {
            bind_or_parse(count_item, &count_var, kUInt32, value, &count);
        } else if (is("maxscaling")) {
            bind_or_parse(max_scale_item, nullptr, kDouble, value, &max_scale);
        } else if (is("minscaling")) {
            bind_or_parse(min_scale_item, nullptr, kDouble, value, &min_scale);
        } else if (is("maxoffset")) {
            bind_or_parse(max_offset_item, nullptr, kDouble, value, &max_offset);
        } else if (is("minoffset")) {
            bind_or_parse(min_offset_item, nullptr, kDouble, value, &min_offset);
        } else if (is("index_step")) {
            SysStringToValue(kUInt64, value, &index_step);
        }
    }

    ratio.SetRatioOffset(parsed_ratio, parsed_offset);
    Reset();
}

bool CDatasetAxis::Reset() {
    if (ratio_item == nullptr && offset_item == nullptr && scale_item == nullptr && axisstate != 0) return false;
    double width = ratio.GetRatio();
    double left = ratio.GetOffset();
    if (const auto value = ReadDouble(ratio_item)) width = *value;
    if (const auto value = ReadDouble(offset_item)) left = *value;
    RefreshScale();
    RefreshCount();
    // The window's centre becomes its left edge.
    left -= static_cast<double>(count) * width * 0.5;
    // A scale of 0 has no width of a sample: the mapping stays as it was.
    if (scale == 0) return false;
    // The width of a division becomes the width of a sample.
    width /= static_cast<double>(scale);
    ratio.SetRatioOffset(width < 1e-15 ? 1e-15 : width, left);
    return true;
}

bool CDatasetAxis::OnCMD(const std::string& command, IBaseCtr*) {
    if (command == "Reset") {
        Reset();
    } else if (command == "Lock") {
        CLogger::DefaultLogger().Info("axisstate lock : {}", fmt::ptr(this));
        axisstate = 1;
    } else if (command == "UnLock") {
        CLogger::DefaultLogger().Info("axisstate unlock :{}", fmt::ptr(this));
        axisstate = 0;
    } else if (command == "DataPre") {
        hasdata = 0;
    } else if (command == "DataFinish") {
        hasdata = 1;
    } else {
        return false;
    }
    return true;
}

std::shared_ptr<CtrVar> CDatasetAxis::GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
    auto mapping = MakeCtrVar<CRatio<double>>(&ratio);
    if (mapping->CastTo(type) != nullptr) return mapping;
    auto self = MakeCtrVar<CDatasetAxis>(this);
    if (self->CastTo(type) != nullptr) return self;
    return {};
}

// ---------------------------------------------------------------------------------------
// CDatasetAxis: IDatasetAxis

void CDatasetAxis::RefreshCount() {
    if (const auto value = ReadU32(count_item)) count = *value;
}

void CDatasetAxis::RefreshScale() {
    if (const auto value = ReadU64(scale_item)) scale = *value;
}

void CDatasetAxis::Fire(const std::string& event) { EventPublishHelper::FireObjectEvent(EventItem(), event); }

bool CDatasetAxis::SetOffsetScale(double new_offset, double width) {
    RefreshCount();
    // No division width for a window of 0 divisions.
    if (count == 0) return false;
    const double div = width / static_cast<double>(count);
    if (ratio_item != nullptr && DiffersFrom(ratio_item, div)) {
        ratio_item->SetValue(Vellum::Var(div));
        EventPublishHelper::FireObjectEvent(ratio_var.local.get(), "ValueChanged");
    }
    if (offset_item != nullptr && DiffersFrom(offset_item, new_offset)) {
        offset_item->SetValue(Vellum::Var(new_offset));
        EventPublishHelper::FireObjectEvent(offset_var.local.get(), "ValueChanged");
    }
    return true;
}

void CDatasetAxis::GetOffsetScale(double* offset_out, double* width_out) {
    if (offset_out != nullptr) *offset_out = ReadDouble(offset_item).value_or(ratio.GetOffset());
    double width = 0.0;
    if (const auto div = ReadDouble(ratio_item)) {
        width = *div * static_cast<double>(count);
    } else {
        RefreshCount();
        width = ratio.GetRatio() * static_cast<double>(count) * static_cast<double>(scale);
    }
    if (width_out != nullptr) *width_out = width;
}

void CDatasetAxis::GetScaleRange(double* min, double* max) {
    if (min != nullptr) *min = ReadDouble(min_scale_item).value_or(min_scale);
    if (max != nullptr) *max = ReadDouble(max_scale_item).value_or(max_scale);
}

void CDatasetAxis::GetOffsetRange(double* min, double* max) {
    if (min != nullptr) *min = ReadDouble(min_offset_item).value_or(min_offset);
    if (max != nullptr) *max = ReadDouble(max_offset_item).value_or(max_offset);
}

double CDatasetAxis::GetRatio() { return ratio.GetRatio(); }

void CDatasetAxis::SetCalcRange(uint64_t* begin, uint64_t* end) {
    if (begin != nullptr) calc_begin = *begin;
    if (end != nullptr) calc_end = *end;
}

void CDatasetAxis::GetCalcRange(uint64_t* begin, uint64_t* end) {
    if (begin != nullptr) *begin = calc_begin;
    if (end != nullptr) *end = calc_end;
}

void CDatasetAxis::SetScaleRange(double* min, double* max) {
    if (min != nullptr) {
        min_scale = *min;
        if (min_scale_item != nullptr) min_scale_item->SetValue(Vellum::Var(*min));
    }
    if (max != nullptr) {
        max_scale = *max;
        if (max_scale_item != nullptr) max_scale_item->SetValue(Vellum::Var(*max));
    }
}

void CDatasetAxis::SetOffsetRange(double* min, double* max) {
    if (min != nullptr) {
        min_offset = *min;
        if (min_offset_item != nullptr) min_offset_item->SetValue(Vellum::Var(*min));
    }
    if (max != nullptr) {
        max_offset = *max;
        if (max_offset_item != nullptr) max_offset_item->SetValue(Vellum::Var(*max));
    }
}

void CDatasetAxis::GetRatioOffset(double* offset_out, double* ratio_out) {
    if (offset_out != nullptr) *offset_out = ratio.GetOffset();
    if (ratio_out != nullptr) *ratio_out = ratio.GetRatio();
}

void CDatasetAxis::SetRatioOffset(double new_offset, double new_ratio) {
    ratio.SetRatioOffset(new_ratio, new_offset);
    Fire("Update");
}

void CDatasetAxis::GetRange(double* begin, double* end) {
    RefreshCount();
    const double div = ratio.GetRatio() * static_cast<double>(count);
    const double first = ratio.GetOffset();
    if (begin != nullptr) *begin = first;
    if (end != nullptr) *end = static_cast<double>(scale) * div + first;
}

void CDatasetAxis::SetRange(double* begin, double* end) {
    // Both ends are needed, and a window of 0 divisions has no division width.
    if (begin == nullptr || end == nullptr || count == 0) return;
    const double div = (*end - *begin) / static_cast<double>(count);
    const double centre = (*begin + *end) * 0.5;
    if (ratio_item != nullptr) ratio_item->SetValue(Vellum::Var(div));
    if (offset_item != nullptr) offset_item->SetValue(Vellum::Var(centre));
}

uint64_t CDatasetAxis::GetScale() {
    RefreshScale();
    return scale;
}

void CDatasetAxis::SetScale(uint64_t* value) {
    if (value == nullptr) return;
    if (scale_item != nullptr) scale_item->SetValue(Vellum::Var(*value));
    scale = *value;
}

void CDatasetAxis::SetDataOffset(double value) {
    data_offset = value;
    Fire("Update");
}

// ---------------------------------------------------------------------------------------

IItemType* RegisterAxisType(ILocalSource* source) {
    IItemType* type = RegisterClassType<CDatasetAxis>("AXIS", source);
    ILocalSource* scope = source != nullptr ? source : GetCPPTypeManager()->Root();
    // The type is made once per process; a further scope gets it under the same name.
    if (type != nullptr && scope->GetLocalItemType("AXIS", false) == nullptr)
        scope->RegisterItemType("AXIS", type, false);
    return type;
}
