#include "common/common_wave_dataset.h"

#include "common/common_wave_indexer.h"
#include "common/wave_type_ops.h"
#include "host/base_ctr.h"
#include "host/logger.h"
#include "host/string_utils.h"
#include "storage/storage_base.h"

#include <cmath>
#include <limits>

CommonWaveDataSet::CommonWaveDataSet() : factory_(WaveChannelFactory::Default()) { group_.SetListener(this); }

CommonWaveDataSet::~CommonWaveDataSet() {
    // Indexer items go before the storages they write to; nothing calls back into us.
    group_.SetListener(nullptr);
    indexers_.clear();
    indexer_items_.clear();
    main_indexer_.reset();
}

bool CommonWaveDataSet::InitItem(IBaseCtr* item) {
    item_ = item;
    return true;
}

bool CommonWaveDataSet::OnCMD(const std::string& command, IBaseCtr*) {
    if (StringCompare(command, "Clear", true) == 0) {
        group_.Clear();
        return true;
    }
    return false;
}

std::shared_ptr<CtrVar> CommonWaveDataSet::GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
    if (type == VellumTypeOf<IWaveDataset>()) return MakeCtrVar<IWaveDataset>(this);
    if (type == VellumTypeOf<IDataSetEx>()) return MakeCtrVar<IDataSetEx>(this);
    if (type == VellumTypeOf<IWaveWriter>()) return MakeCtrVar<IWaveWriter>(this);
    if (type == VellumTypeOf<ISerializable>()) return MakeCtrVar<ISerializable>(this);
    if (type == VellumTypeOf<IDataSetBase>()) return MakeCtrVar<IDataSetBase>(&group_);
    if (type == VellumTypeOf<DataSetBaseEx>()) return MakeCtrVar<DataSetBaseEx>(&group_);
    return {};
}

bool CommonWaveDataSet::InitItemByXML(ILocalSource* source, IBaseCtr* item, const pugi::xml_node& node) {
    if (item_ == nullptr) item_ = item;
    source_ = source;
    IBaseCtr* init_item = item ? item->GetChildItem(INIT_OBJECT_NAME) : nullptr;
    if (Ctr<CommonWaveDataSetInit> init = QueryInterface<CommonWaveDataSetInit>(init_item)) {
        // A dataset that its item type configured at creation has been through it already.
        if (!configured_) init->InitDataset(this, source);
        return true;
    }
    Configure(source, node.attribute("dtype").value(), node.child("storage"), node.child("index"));
    return true;
}

void CommonWaveDataSet::Configure(ILocalSource* source, const std::string& dtype, const pugi::xml_node& storage,
                                  const pugi::xml_node& index) {
    source_ = source;
    configured_ = true;
    if (!dtype.empty()) SetDataType(dtype, true);
    CreateStorages(ReadStorageDeclarations(storage), source, storage);
    BuildIndexers(source, index);
    if (FindIndexer(kMainIndexerName) == nullptr) MakeMainIndexer();
}

void CommonWaveDataSet::BuildIndexers(ILocalSource* source, const pugi::xml_node& index) {
    auto& log = CLogger::DefaultLogger();
    for (const pugi::xml_node& child : index.children()) {
        if (child.type() != pugi::node_element) continue;
        if (std::string(child.name()) == "default") {
            if (!main_indexer_) MakeMainIndexer();
            main_indexer_->InitItemByXML(source, item_, child);
            continue;
        }
        const std::string id = child.attribute("id").value();
        std::unique_ptr<IBaseCtr> made(CreateItemByXmlNote(source, child));
        if (!made) continue;  // the item factory has logged why
        Ctr<IWaveIndexer> indexer = QueryInterface<IWaveIndexer>(made.get());
        if (!indexer) {
            log.Warning("index {}: the item is not an indexer", id);
            continue;
        }
        if (AddIndexer(id, indexer.get())) indexer_items_.push_back(std::move(made));
    }
}

void CommonWaveDataSet::MakeMainIndexer() {
    if (main_indexer_) return;
    main_indexer_ = std::make_unique<CommonWaveMaxMinIndexer>();
    AddIndexer(kMainIndexerName, main_indexer_.get());
}

bool CommonWaveDataSet::SetDataType(const std::string& type, bool save) {
    data_type_ = -1;
    ops_ = nullptr;
    if (const WaveTypeOps* row = WaveTypeOpsByName(type)) {
        data_type_ = row->code;
        if (save) saved_data_type_ = row->code;
    }
    RefreshDerivedState();
    return ops_ != nullptr;
}

void CommonWaveDataSet::RefreshDerivedState() {
    ops_ = WaveTypeOpsByCode(data_type_);
    if (ops_ == nullptr) return;
    // An empty sample storage takes the element's width; one with data keeps its own,
    // and the writer then refuses to mix widths.
    if (wave_ && wave_->Count() == 0) wave_->ChangeUnitSize(static_cast<uint32_t>(ops_->size), nullptr);
    for (const auto& entry : indexers_) entry.second->Prepare();
}

bool CommonWaveDataSet::AddIndexer(const std::string& name, IWaveIndexer* indexer) {
    if (indexer == nullptr) return false;
    if (FindIndexer(name) != nullptr) {
        CLogger::DefaultLogger().Warning("duplicated index {}", name);
        return false;
    }
    indexers_.emplace_back(name, indexer);
    indexer->Attach(this, source_);
    if (ops_ != nullptr) indexer->Prepare();
    return true;
}

IWaveIndexer* CommonWaveDataSet::FindIndexer(const std::string& name) const {
    for (const auto& entry : indexers_)
        if (entry.first == name) return entry.second;
    return nullptr;
}

std::vector<std::string> CommonWaveDataSet::IndexerNames() const {
    std::vector<std::string> names;
    for (const auto& entry : indexers_) names.push_back(entry.first);
    return names;
}

void CommonWaveDataSet::ResetIndexer(const std::string& name) {
    const bool all = StringCompare(name, "__all__", true) == 0;
    for (const auto& entry : indexers_) {
        if (!all && entry.first != name) continue;
        entry.second->Reset();
        entry.second->Complete();
    }
}

void CommonWaveDataSet::SetIndexStep(unsigned int step) {
    if (!main_indexer_) MakeMainIndexer();
    main_indexer_->SetAttribute("step", std::to_string(step));
}

VellumLevelTime CommonWaveDataSet::PeriodOfRate(double rate) {
    if (!(rate > 0.0)) return VellumLevelTime(-3, 1);
    const double x = 1.0 / rate;
    // A rate so high or low that the period has no decimal exponent of 8 bits (or is
    // 0 or infinite) can't be expressed: the zero period.
    if (!(x > 0.0) || !std::isfinite(x)) return VellumLevelTime();
    long long e = static_cast<long long>(std::trunc(std::log10(x)));
    auto mantissa = [&](long long exponent) { return std::trunc(x / std::pow(10.0, static_cast<double>(exponent))); };
    double m = mantissa(e);
    // An error of exactly 0.1 % (1/3 as 333e-3) is not below it: the bound allows for
    // the rounding of the double arithmetic, which would otherwise decide that case.
    const double bound = x * 0.001 * (1.0 - 1e-9);
    while (std::fabs(x - m * std::pow(10.0, static_cast<double>(e))) >= bound) {
        --e;
        m = mantissa(e);
    }
    if (e < std::numeric_limits<signed char>::min() || e > std::numeric_limits<signed char>::max())
        return VellumLevelTime();
    return VellumLevelTime(static_cast<signed char>(e), static_cast<long long>(m));
}

VellumLevelTime CommonWaveDataSet::SamplePeriod() const { return PeriodOfRate(sample_rate_); }

VellumLevelTime CommonWaveDataSet::TimeUnit() const {
    return nanosecond_time_ ? VellumLevelTime(-9, 1) : SamplePeriod();
}

void CommonWaveDataSet::CloseArea() {
    if (!area_open_) return;
    area_open_ = false;
    if (area_ && area_->UnitSize() == sizeof(ValidDataArea)) area_->Write(&last_area_, 1);
}

bool CommonWaveDataSet::Push(VellumTime time, const void* data, uint64_t count) {
    // Elements of another width than the storage's would be cut or mixed.
    if (ops_ == nullptr || !wave_ || data == nullptr || count == 0 || wave_->UnitSize() != ops_->size) return false;
    const double position = std::trunc(time / SamplePeriod());
    if (!(position >= -9.2e18 && position <= 9.2e18)) return false;  // no sample number for this time
    const auto s = static_cast<int64_t>(position);

    const uint64_t wave_pos = wave_->Count();
    if (area_open_ && s != last_area_.end_time + 1) CloseArea();
    if (!area_open_) {
        last_area_ = ValidDataArea{};
        last_area_.start_time = s;
        last_area_.end_time = s - 1;
        last_area_.index_id = index_ ? index_->Count() : 0;
        last_area_.wave_beg_pos = wave_pos;
        last_area_.wave_end_pos = wave_pos == 0 ? 0 : wave_pos - 1;
        area_open_ = true;
    }
    const uint64_t written = wave_->Write(data, count);
    if (written == 0) return false;
    last_area_.end_time = s + static_cast<int64_t>(written) - 1;
    last_area_.wave_end_pos = wave_pos + written - 1;
    for (const auto& entry : indexers_) entry.second->Push(time, data, written);
    return written == count;
}

void CommonWaveDataSet::OnClear() { ResetIndexer("__all__"); }

void CommonWaveDataSet::PostClear() {
    last_area_ = ValidDataArea{};
    area_open_ = false;
}
