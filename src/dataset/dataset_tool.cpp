#include "dataset/dataset_tool.h"

#include "dataset/axis.h"
#include "host/base_ctr.h"
#include "host/item_binding.h"
#include "host/item_type.h"
#include "host/local_source.h"
#include "host/struct_type.h"
#include "host/value_item.h"

#include <atomic>
#include <cmath>
#include <cstddef>
#include <limits>
#include <new>
#include <type_traits>

static_assert(std::is_standard_layout_v<WaveDatasetParameters>);
static_assert(offsetof(WaveDatasetParameters, raw_point_offset) == 0);
static_assert(offsetof(WaveDatasetParameters, index_offset) == 8);
static_assert(offsetof(WaveDatasetParameters, time_offset) == 16);
static_assert(sizeof(WaveDatasetParameters) == 24);

// ---------------------------------------------------------------------------------------
// WaveDatasetParameters

bool WaveDatasetParameters::InitType(IItemType* type, const std::string& name) {
    IStructType* struct_type = type ? type->AsStruct() : nullptr;
    if (struct_type == nullptr) return false;
    if (struct_type->Fields().empty()) {
        // The description is built as a struct of UINT64 values and copied onto the
        // class' own type, whose items read and write the fields of the object.
        IItemType* u64 = GetValueItemType(SysVarType::UINT64);
        IStructType* description =
            Vellum::StructInfoBuilder::New(type->Source(), name)
                .AddVar("raw_point_offset", u64, offsetof(WaveDatasetParameters, raw_point_offset), 8)
                .AddVar("index_offset", u64, offsetof(WaveDatasetParameters, index_offset), 8)
                .AddVar("time_offset", u64, offsetof(WaveDatasetParameters, time_offset), 8)
                .Build();
        if (description == nullptr) return false;
        for (const StructField& field : description->Fields())
            if (!struct_type->AddField(field)) return false;
    }
    if (type->GetTypeFunction("Reset") == nullptr &&
        !RegisterMemberFunction(type, "Reset", &WaveDatasetParameters::Reset))
        return false;
    return true;
}

IBaseCtr* WaveDatasetParameters::InitStructInfo(ILocalSource* source) {
    IItemType* type = RegisterWaveDatasetParametersType(source);
    return type != nullptr ? type->CreateItem("WaveParam") : nullptr;
}

void WaveDatasetParameters::Reset() {
    raw_point_offset = 0;
    index_offset = 0;
    time_offset = 0;
}

IItemType* RegisterWaveDatasetParametersType(ILocalSource* source) {
    static constexpr const char* kName = "WaveDatasetParameters";
    IItemType* type = RegisterClassType<WaveDatasetParameters>(kName, source);
    ILocalSource* scope = source != nullptr ? source : GetCPPTypeManager()->Root();
    // The type is made once per process; a further scope gets it under the same name.
    if (type != nullptr && scope->GetLocalItemType(kName, false) == nullptr) scope->RegisterItemType(kName, type, false);
    return type;
}

namespace __internal {

// ---------------------------------------------------------------------------------------
// DataSetTool

DataSetTool::DataSetTool(IBaseCtr* owner) : item(owner) {
    if (item == nullptr) return;
    // The axes answer with handles that don't own them: the pointers live as long as
    // the dataset's child items.
    data_axis = QueryInterface<IDatasetAxis>(item->GetChildItem("dataAxis")).get();
    size_axis = QueryInterface<IDatasetAxis>(item->GetChildItem("sizeAxis")).get();
}

double DataSetTool::GetSampleTime() const { return size_axis != nullptr ? size_axis->GetRatio() : 0.0; }

double DataSetTool::GetIndexStepTime() const {
    if (size_axis == nullptr) return 1e-6;
    const uint64_t steps = size_axis->GetIndexStep();
    const double sample = size_axis->GetRatio();
    if (steps != 0) return static_cast<double>(steps) * sample;

    // A power of ten of seconds below 1000 samples: columns of datasets with related
    // sample rates then line up in time.
    double s = std::fabs(sample);
    if (s < 1e-9) s = 1e-9;
    const double limit = s * 1000.0;
    if (1000.0 < limit) return 1000.0;
    // limit is at least 1e-6, so the loop ends after at most ten divisions; a NaN
    // period fails the comparison at once and gives 1000.0.
    double p = 1000.0;
    while (p >= limit) p /= 10.0;
    return p;
}

std::pair<double, double> DataSetTool::GetSizeAxisInfo() {
    if (size_axis == nullptr) return {0.0, 0.0};
    double offset = 0.0, width = 0.0;
    size_axis->GetOffsetScale(&offset, &width);
    return {offset, width};
}

std::pair<double, double> DataSetTool::GetDataAxisInfo() {
    if (data_axis == nullptr) return {0.0, 0.0};
    double offset = 0.0, width = 0.0;
    data_axis->GetOffsetScale(&offset, &width);
    return {width, offset};
}

std::pair<double, double> DataSetTool::GetTimeRange() {
    if (size_axis == nullptr) return {0.0, 0.0};
    double first = 0.0, last = 0.0;
    size_axis->GetRange(&first, &last);
    return {first, last};
}

unsigned int DataSetTool::GetAxisState() const { return size_axis != nullptr ? size_axis->GetAxisState() : 0; }

bool DataSetTool::Lock() const { return Command("lock"); }

bool DataSetTool::UnLock() const { return Command("unlock"); }

bool DataSetTool::Command(const std::string& command) const {
    return item != nullptr && item->OnCMD(command, nullptr);
}

void DataSetTool::ApplyDataOffset(double* a, double* b) const {
    if (size_axis == nullptr) return;
    const double offset = size_axis->GetDataOffset();
    if (a != nullptr) *a -= offset;
    if (b != nullptr) *b -= offset;
}

void DataSetTool::RemoveDataOffset(double* a, double* b) const {
    if (size_axis == nullptr) return;
    const double offset = size_axis->GetDataOffset();
    if (a != nullptr) *a += offset;
    if (b != nullptr) *b += offset;
}

WaveDatasetParameters* DataSetTool::GetDataParameters() {
    // Two threads may both look it up; they store the same pointer.
    std::atomic_ref<WaveDatasetParameters*> cached(parameters);
    if (WaveDatasetParameters* known = cached.load(std::memory_order_acquire); known != nullptr || item == nullptr)
        return known;
    IBaseCtr* child = item->GetChildItem("WaveParam");
    if (child == nullptr) return nullptr;
    auto* found = Vellum::MagicCast<WaveDatasetParameters>(
        child->GetExtendCtr(VellumTypeOf<WaveDatasetParameters>(), false, std::string()));
    cached.store(found, std::memory_order_release);
    return found;
}

// ---------------------------------------------------------------------------------------
// DataFillingTool

namespace {

// Truncation toward zero into unsigned 64 bits, defined for every double: negative values
// and NaN give 0, values past the range the largest value.
uint64_t TruncateToU64(double x) {
    if (!(x > 0.0)) return 0;
    if (x >= 18446744073709551616.0) return std::numeric_limits<uint64_t>::max();
    return static_cast<uint64_t>(x);
}

}  // namespace

std::vector<unsigned char> DataFillingTool::GetScreenValidPointVec(const unsigned int& count, const double& step,
                                                                   const double& start) {
    std::vector<unsigned char> flags;
    try {
        flags.reserve(count);
    } catch (const std::bad_alloc&) {
        return {};  // no memory for that many columns: the empty answer
    }
    uint64_t last = 0;
    for (unsigned int i = 0; i < count; ++i) {
        const uint64_t n = TruncateToU64(static_cast<double>(i) * step + start);
        flags.push_back(n > last ? 1 : 0);
        last = n;
    }
    return flags;
}

}  // namespace __internal

// ---------------------------------------------------------------------------------------
// DataOffsetUtility

DataOffsetUtility::DataOffsetUtility(double* a, double* b, IDatasetAxis* offset_axis)
    : first(a), second(b), axis(offset_axis) {
    if (axis == nullptr) return;
    const double offset = axis->GetDataOffset();
    if (first != nullptr) *first -= offset;
    if (second != nullptr) *second -= offset;
}

DataOffsetUtility::~DataOffsetUtility() {
    if (axis == nullptr) return;
    const double offset = axis->GetDataOffset();
    if (first != nullptr) *first += offset;
    if (second != nullptr) *second += offset;
}
