// Saving and loading of a CommonWaveDataSet: three texts of its own beside the record of
// its files, which the storage group writes and reads.

#include "common/common_wave_dataset.h"

#include "common/wave_type_ops.h"
#include "host/base_ctr.h"
#include "host/configuration.h"
#include "host/string_utils.h"

#include <fmt/format.h>

#include <array>

namespace {

// start, end, index id, first count, first and last position, and whether it is open.
std::string AreaText(const ValidDataArea& area, bool open) {
    return fmt::format("{},{},{},{},{},{},{}", area.start_time, area.end_time, area.index_id, area.first_count,
                       area.wave_beg_pos, area.wave_end_pos, open ? 1 : 0);
}

bool ParseArea(const std::string& text, ValidDataArea& area, bool& open) {
    const std::vector<std::string> parts = SplitString(text, ",");
    if (parts.size() != 7) return false;
    std::array<int64_t, 2> times{};
    std::array<uint64_t, 5> values{};
    for (int i = 0; i < 2; ++i)
        if (!SysParseI64(parts[i], times[i])) return false;
    for (int i = 0; i < 5; ++i)
        if (!SysParseU64(parts[i + 2], values[i])) return false;
    if (values[4] > 1) return false;
    area = ValidDataArea{times[0], times[1], values[0], values[1], values[2], values[3]};
    open = values[4] == 1;
    return true;
}

}  // namespace

void CommonWaveDataSet::Serialize(std::shared_ptr<SerializeContext> context, const SerializeConfig*) {
    if (!context || context->config == nullptr) return;
    Configuration& config = *context->config;
    const WaveTypeOps* saved = WaveTypeOpsByCode(saved_data_type_ >= 0 ? saved_data_type_ : data_type_);
    config.SetString(context->path + ".data_type", saved ? saved->name : "");
    config.SetString(context->path + ".sample_rate", fmt::format("{}", sample_rate_));
    config.SetString(context->path + ".last_area", AreaText(last_area_, area_open_));
    // Cached blocks reach their files before the files are named.
    group_.Flush();
    group_.Save(context);
}

bool CommonWaveDataSet::Deserialize(std::shared_ptr<SerializeContext> context) {
    if (!context || context->config == nullptr) return false;
    const Configuration& config = *context->config;
    if (item_) item_->Publish("Reset");

    std::string type = config.GetString(context->path + ".data_type", "");
    if (type.empty() && ops_) type = ops_->name;
    if (const WaveTypeOps* row = WaveTypeOpsByName(type)) data_type_ = row->code;
    RefreshDerivedState();

    double rate = 0;
    if (SysParseDouble(config.GetString(context->path + ".sample_rate", ""), rate)) sample_rate_ = rate;
    ValidDataArea area{};
    bool open = false;
    if (ParseArea(config.GetString(context->path + ".last_area", ""), area, open)) {
        last_area_ = area;
        area_open_ = open;
    }
    group_.Load(context);
    return true;
}
