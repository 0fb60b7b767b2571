#include "trend/trend_tool.h"

#include "dataset/axis.h"
#include "dataset/time_rules.h"
#include "host/base_ctr.h"

#include <cmath>

namespace {

IDatasetAxis* AxisOf(IBaseCtr* item, const char* name) {
    if (item == nullptr) return nullptr;
    return QueryInterface<IDatasetAxis>(item->GetChildItem(name)).get();
}

}  // namespace

void CTrendTool::Reload() {
    size_axis_ = AxisOf(item_, "sizeAxis");
    data_axis_ = AxisOf(item_, "dataAxis");
    duration_ = item_ ? item_->GetChildItem("duration") : nullptr;
    post_ratio_ = item_ ? item_->GetChildItem("post_ratio") : nullptr;
}

uint64_t CTrendTool::SampleStepNs() const {
    if (size_axis_ == nullptr) return 0;
    return SecondsToUnsignedNs(size_axis_->GetRatio());
}

uint64_t CTrendTool::IndexStepNs() const { return SampleStepNs() * kSamplesPerBucket; }

uint64_t CTrendTool::Duration() const { return duration_ ? duration_->GetValue().ToUInt64() : 0; }

float CTrendTool::PostRatio() const {
    return post_ratio_ ? static_cast<float>(post_ratio_->GetValue().ToDouble()) : 0.0f;
}

double CTrendTool::ToPhysical(double value) const {
    if (data_axis_ == nullptr) return value;
    double offset = 0.0, scale = 1.0;
    data_axis_->GetRatioOffset(&offset, &scale);
    return value * scale + offset;
}

uint64_t FloatToNs(float value) {
    if (!(value > 0.0f)) return 0;
    if (value >= 18446744073709551616.0f) return ~uint64_t{0};
    return static_cast<uint64_t>(value);
}
