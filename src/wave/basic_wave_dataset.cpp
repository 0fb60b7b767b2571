#include "wave/basic_wave_dataset.h"

#include "dataset/dataset_tool.h"
#include "dataset/serialization_helper.h"
#include "host/base_ctr.h"
#include "host/item_binding.h"
#include "host/item_type.h"
#include "host/string_utils.h"
#include "storage/data_channel.h"
#include "storage/storage_base.h"
#include "wave/basic_wave_checker.h"
#include "wave/basic_wave_cycler.h"
#include "wave/cycle_setting.h"
#include "wave/summary_builder.h"
#include "wave/wave_data_filler.h"
#include "wave/wave_derived_readers.h"

template <class T>
BasicWaveDataSet<T>::BasicWaveDataSet(void*) {}

template <class T>
BasicWaveDataSet<T>::BasicWaveDataSet() : BasicWaveDataSet(nullptr) {
    CreateStorage("Wave", sizeof(T));
    CreateStorage("Index", sizeof(MinMaxData<T>));
    CreateStorage("Area", sizeof(ValidDataArea));
    summary_ = std::make_unique<SummaryBuilder<T>>(GetStorage("Index"));
}

template <class T>
BasicWaveDataSet<T>::~BasicWaveDataSet() {
    delete checker_.exchange(nullptr);
    summary_.reset();  // its rebuild reads "Index"
}

template <class T>
unsigned long long BasicWaveDataSet<T>::Append(const char* id, const void* data, unsigned long long count) {
    auto it = storages_.find(id);
    if (it == storages_.end() || data == nullptr || count == 0) return 0;
    return it->second->Write(data, count);
}

template <class T>
unsigned long long BasicWaveDataSet<T>::Push(const T* data, unsigned long long count) {
    const unsigned long long appended = Append("Wave", data, count);
    if (appended == 0) return 0;
    if (BasicWaveChecker* checker = checker_.load(std::memory_order_acquire)) checker->PerformCheck();
    return appended;
}

template <class T>
unsigned long long BasicWaveDataSet<T>::Push(const MinMaxData<T>* data, unsigned long long count) {
    const unsigned long long appended = Append("Index", data, count);
    if (appended != 0 && summary_) summary_->OnPush(data, appended);
    return appended;
}

template <class T>
void BasicWaveDataSet<T>::SetIndexSummary(bool on) {
    if (summary_) summary_->SetEnabled(on);
}

template <class T>
bool BasicWaveDataSet<T>::IndexSummaryOn() const {
    return summary_ && summary_->Enabled();
}

template <class T>
bool BasicWaveDataSet<T>::WaitIndexSummary() {
    return summary_ && summary_->WaitReady();
}

template <class T>
uint64_t BasicWaveDataSet<T>::IndexSummaryBytes() const {
    return summary_ ? summary_->Bytes() : 0;
}

template <class T>
std::shared_ptr<const IndexSummary<T>> BasicWaveDataSet<T>::Summary() const {
    return summary_ ? summary_->Summary() : nullptr;
}

template <class T>
void BasicWaveDataSet<T>::OnDataChanged() {
    if (summary_) summary_->Rebuild();
}

template <class T>
void BasicWaveDataSet<T>::OnClear() {
    if (summary_) summary_->OnClear();
}

template <class T>
unsigned long long BasicWaveDataSet<T>::Push(const ValidDataArea* data, unsigned long long count) {
    return Append("Area", data, count);
}

template <class T>
template <class R>
std::unique_ptr<IReader> BasicWaveDataSet<T>::StructReader(const std::string& id) const {
    std::shared_ptr<StorageBase> storage = GetStorage(id);
    if (!storage) return nullptr;
    return std::make_unique<BaseStructReader<R>>(std::move(storage));
}

template <class T>
CBasicWaveReader<T>* BasicWaveDataSet<T>::CreateBasicWaveReader() const {
    auto* reader = new CBasicWaveReader<T>(item_, StructReader<T>("Wave"), StructReader<MinMaxData<T>>("Index"),
                                           StructReader<ValidDataArea>("Area"));
    if (summary_) reader->SetIndexSummary(summary_->Summary());
    return reader;
}

template <class T>
bool BasicWaveDataSet<T>::InitType(IItemType* type, const std::string&) {
    for (const char* event : {"DataComes", "IndexComes", "AreaComes", "PostClear", "AfterClear"})
        type->RegisterEvent(event, "");
    RegisterMemberFunction(type, "SetCycleSize", &BasicWaveDataSet<T>::SetCycleSize);
    RegisterMemberFunction(type, "SetCycleTime", &BasicWaveDataSet<T>::SetCycleTime);
    RegisterMemberFunction(type, "DisableCycle", &BasicWaveDataSet<T>::DisableCycle);
    RegisterDerivedReaderItems(type);
    return true;
}

template <class T>
bool BasicWaveDataSet<T>::InitItem(IBaseCtr* item) {
    if (item == nullptr) return true;
    SetSerialization(std::make_unique<DataSetSerializationHelper>(item));
    item_ = item;
    if (IBaseCtr* parameters = WaveDatasetParameters::InitStructInfo(nullptr))
        item->AddChildItem(parameters, "WaveParam", true);
    return true;
}

template <class T>
bool BasicWaveDataSet<T>::FinishConfig(ILocalSource* source, IBaseCtr* item, const std::string& config) {
    DataSetBase::FinishConfig(source, item, config);
    for (const auto& [key, value] : ParseConfigString(config)) {
        if (!IsCycleKey(key)) continue;
        const std::optional<CycleSetting> cycle = ParseCycleSetting(value);  // throws on a bad number
        // The cycler is a child of the item and works through it.
        if (!cycle || item == nullptr) continue;
        RegisterWaveCyclerType();
        IBaseCtr* tool = CreateItemByTypeID(VellumTypeOf<BasicWaveCycler>(), "CircleTool");
        Ctr<BasicWaveCycler> cycler = QueryInterface<BasicWaveCycler>(tool);
        if (!cycler) {
            delete tool;
            continue;
        }
        if (cycle->kind == CycleSetting::Kind::kTime) {
            SetCycleTime(cycle->limit);
            cycler->Config(BasicWaveCycler::kTime, cycle->step);
        } else {
            SetCycleSize(TruncateToCount(cycle->limit));
            cycler->Config(BasicWaveCycler::kSize, cycle->step);
        }
        item->AddChildItem(tool, "CircleTool", true);
        // Looked up without inserting: a device dataset may not have linked them yet, and
        // an empty entry in the map would break every walk over the storages.
        cycler->ConfigStorages(GetStorage("Wave"), GetStorage("Index"), GetStorage("Area"));
        cycler->InitEvents(item);
    }
    return true;
}

template <class T>
BasicWaveChecker* BasicWaveDataSet<T>::Checker() {
    if (BasicWaveChecker* known = checker_.load(std::memory_order_acquire)) return known;
    std::shared_ptr<StorageBase> wave = GetStorage("Wave");
    if (!wave || item_ == nullptr) return nullptr;
    auto* made = new BasicWaveChecker(item_, std::move(wave));
    checker_.store(made, std::memory_order_release);
    return made;
}

template <class T>
void BasicWaveDataSet<T>::SetCycleSize(unsigned long long bytes) {
    if (BasicWaveChecker* checker = Checker()) checker->Config(BasicWaveChecker::kSize, static_cast<double>(bytes));
}

template <class T>
void BasicWaveDataSet<T>::SetCycleTime(double seconds) {
    if (BasicWaveChecker* checker = Checker()) checker->Config(BasicWaveChecker::kTime, seconds);
}

template <class T>
void BasicWaveDataSet<T>::DisableCycle() {
    if (BasicWaveChecker* checker = Checker()) checker->Config(BasicWaveChecker::kNone, 0.0);
}

template <class T>
void BasicWaveDataSet<T>::HandOverTo(IBaseCtr* channel_item) {
    if (Ctr<IDataChannel> channel = QueryInterface<IDataChannel>(channel_item)) channel->SetDataset(item_);
}

template <class T>
void BasicWaveDataSet<T>::RefreshFromFiller() {
    Ctr<IWaveDataFiller> filler = QueryInterface<IWaveDataFiller>(item_ ? item_->GetChildItem("Filler") : nullptr);
    if (!filler) return;
    // The lock keeps a concurrent clear out while the filler pushes.
    struct Hold {
        DataSetBase& dataset;
        explicit Hold(DataSetBase& d) : dataset(d) { dataset.Lock(); }
        ~Hold() { dataset.UnLock(); }
    } hold(*this);
    filler->Fill(item_);
    EventPublishHelper::FireObjectEvent(item_, "Update");
}

template <class T>
bool BasicWaveDataSet<T>::SetLinkItem(IBaseCtr* item, const std::string& name) {
    if (StringCompare(name, "DataCH", true) == 0) HandOverTo(item);
    return true;
}

template <class T>
bool BasicWaveDataSet<T>::OnCMD(const std::string& command, IBaseCtr* argument) {
    if (LockCommand(command)) return true;
    auto is = [&](const char* name) { return StringCompare(command, name, true) == 0; };
    if (is("clear") || is("WaveClear")) {
        EventPublishHelper::FireObjectEvent(item_, "PostClear");
        Clear();
        EventPublishHelper::FireObjectEvent(item_, "AfterClear");
        return true;
    }
    if (is("DataRefleshIgnor")) {
        RefreshFromFiller();
        return true;
    }
    if (is("SetChannelDataset")) {
        if (argument != nullptr) HandOverTo(argument);
        return true;
    }
    if (DataSetSerializationHelper* helper = Serialization()) return helper->OnCMD(command, argument);
    return false;
}

template <class T>
std::string BasicWaveDataSet<T>::GetAttribute(const std::string& name) const {
    if (StringCompare(name, "ElementType", true) == 0) return std::string(ElementTraits<T>::kShortName);
    return {};
}

template <class T>
std::shared_ptr<CtrVar> BasicWaveDataSet<T>::GetExtendCtr(const VellumTypeID& type, bool flag,
                                                           const std::string& name) {
    if (type == VellumTypeOf<DataSetBase>()) return MakeCtrVar<DataSetBase>(this);
    // The items of subclasses answer as the wave dataset too (type functions find it so).
    if (type == VellumTypeOf<BasicWaveDataSet<T>>()) return MakeCtrVar<BasicWaveDataSet<T>>(this);
    if (type == VellumTypeOf<IBasicWaveReader>())
        return MakeOwnedCtrVar<IBasicWaveReader>(std::unique_ptr<IBasicWaveReader>(CreateBasicWaveReader()));
    if (type == VellumTypeOf<CBasicWaveReader<T>>())
        return MakeOwnedCtrVar<CBasicWaveReader<T>>(std::unique_ptr<CBasicWaveReader<T>>(CreateBasicWaveReader()));
    // The level and edge information readers and the IDataReader items "EdgeReader",
    // "LogicReader" and "ValidReader" belong here once those readers exist; until then
    // such queries fall through to the base and give an empty answer.
    if (type == VellumTypeOf<IReader>()) {
        if (name == "Wave") return MakeOwnedCtrVar<IReader>(StructReader<T>("Wave"));
        if (name == "Index") return MakeOwnedCtrVar<IReader>(StructReader<MinMaxData<T>>("Index"));
        if (name == "Area") return MakeOwnedCtrVar<IReader>(StructReader<ValidDataArea>("Area"));
    }
    if (type == VellumTypeOf<StructFiller<T>>()) return MakeCtrVar<StructFiller<T>>(this);
    if (type == VellumTypeOf<StructFiller<MinMaxData<T>>>()) return MakeCtrVar<StructFiller<MinMaxData<T>>>(this);
    if (type == VellumTypeOf<StructFiller<ValidDataArea>>()) return MakeCtrVar<StructFiller<ValidDataArea>>(this);
    if (type == VellumTypeOf<WaveDatasetParameters>() && item_ != nullptr) {
        if (IBaseCtr* parameters = item_->GetChildItem("WaveParam")) return parameters->GetExtendCtr(type, flag, name);
    }
    if (auto derived = DerivedReaderCtr(*this, type, name)) return derived;
    return DataSetBase::GetExtendCtr(type, flag, name);
}

template class BasicWaveDataSet<int8_t>;
template class BasicWaveDataSet<uint8_t>;
template class BasicWaveDataSet<int16_t>;
template class BasicWaveDataSet<uint16_t>;
template class BasicWaveDataSet<int32_t>;
template class BasicWaveDataSet<uint32_t>;
template class BasicWaveDataSet<int64_t>;
template class BasicWaveDataSet<uint64_t>;
template class BasicWaveDataSet<float>;
template class BasicWaveDataSet<double>;
template class BasicWaveDataSet<LongDouble>;
