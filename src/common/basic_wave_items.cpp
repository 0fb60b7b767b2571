#include "common/basic_wave_items.h"

#include "common/xml_dataset.h"
#include "host/base_ctr.h"
#include "host/item_binding.h"
#include "host/string_utils.h"
#include "storage/storage_base.h"
#include "wave/struct_reader.h"

namespace {

std::string KeyOr(const std::map<std::string, std::string>& options, const char* key, const char* fallback) {
    auto it = options.find(key);
    return it == options.end() ? std::string(fallback) : it->second;
}

unsigned long long Append(const std::shared_ptr<StorageBase>& storage, bool checked, const void* data,
                          unsigned long long count) {
    return checked && storage ? storage->Write(data, count) : 0;
}

// The public face of a family of items: a type that has a class but makes no items.
class InterfaceType final : public IItemType {
public:
    InterfaceType(std::string name, ILocalSource* source, const VellumTypeID& id)
        : IItemType(std::move(name), source), id_(id) {}
    const VellumTypeID* ObjectType() const override { return &id_; }
    IBaseCtr* CreateItem(const std::string&) override { return nullptr; }

private:
    const VellumTypeID& id_;
};

}  // namespace

bool __internal::WaveStorageTriple::Find(IBaseCtr* dataset, const std::string& options) {
    Ctr<XmlDataset> declared = QueryInterface<XmlDataset>(dataset);
    if (!declared) return false;
    const auto items = ParseConfigString(options);
    wave = declared->GetStorage(KeyOr(items, "wave", "Wave"));
    index = declared->GetStorage(KeyOr(items, "index", "Index"));
    area = declared->GetStorage(KeyOr(items, "area", "Area"));
    return true;
}

bool __internal::WaveStorageTriple::WidthsFit(std::size_t element) const {
    return wave && index && area && wave->UnitSize() == element && index->UnitSize() == 2 * element &&
           area->UnitSize() == sizeof(ValidDataArea);
}

template <class T>
bool BasicWaveReader<T>::Init(IBaseCtr* dataset, const std::string& options) {
    __internal::WaveStorageTriple storages;
    if (!storages.Find(dataset, options)) return false;
    dataset_ = dataset;
    wave_ = storages.wave;
    index_ = storages.index;
    area_ = storages.area;
    return Create();
}

template <class T>
bool BasicWaveReader<T>::Create() {
    reader_.reset();
    if (!__internal::WaveStorageTriple{wave_, index_, area_}.WidthsFit(sizeof(T))) return false;
    reader_ = std::make_unique<CBasicWaveReader<T>>(dataset_, std::make_shared<BaseStructReader<T>>(wave_),
                                                    std::make_shared<BaseStructReader<MinMaxData<T>>>(index_),
                                                    std::make_shared<BaseStructReader<ValidDataArea>>(area_));
    return reader_ != nullptr;
}

template <class T>
std::shared_ptr<CtrVar> BasicWaveReader<T>::GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
    if (type == VellumTypeOf<IDatasetReader>()) return MakeCtrVar<IDatasetReader>(this);
    if (!reader_) return {};
    if (type == VellumTypeOf<IBasicWaveReader>()) return MakeCtrVar<IBasicWaveReader>(reader_.get());
    if (type == VellumTypeOf<IPieceReader>()) return MakeCtrVar<IPieceReader>(reader_.get());
    if (type == VellumTypeOf<CBasicWaveReader<T>>()) return MakeCtrVar<CBasicWaveReader<T>>(reader_.get());
    return {};
}

template <class T>
bool BasicWaveWriter<T>::Init(IBaseCtr* dataset, const std::string& options) {
    __internal::WaveStorageTriple storages;
    if (!storages.Find(dataset, options)) return false;
    wave_ = storages.wave;
    index_ = storages.index;
    area_ = storages.area;
    return Check();
}

template <class T>
bool BasicWaveWriter<T>::Check() {
    checked_ = __internal::WaveStorageTriple{wave_, index_, area_}.WidthsFit(sizeof(T));
    return checked_;
}

template <class T>
unsigned long long BasicWaveWriter<T>::Push(const T* data, unsigned long long count) {
    return Append(wave_, checked_, data, count);
}

template <class T>
unsigned long long BasicWaveWriter<T>::Push(const MinMaxData<T>* data, unsigned long long count) {
    return Append(index_, checked_, data, count);
}

template <class T>
unsigned long long BasicWaveWriter<T>::Push(const ValidDataArea* data, unsigned long long count) {
    return Append(area_, checked_, data, count);
}

template <class T>
std::shared_ptr<CtrVar> BasicWaveWriter<T>::GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
    if (type == VellumTypeOf<IDatasetWriter>()) return MakeCtrVar<IDatasetWriter>(this);
    if (type == VellumTypeOf<StructFiller<T>>()) return MakeCtrVar<StructFiller<T>>(this);
    if (type == VellumTypeOf<StructFiller<MinMaxData<T>>>()) return MakeCtrVar<StructFiller<MinMaxData<T>>>(this);
    if (type == VellumTypeOf<StructFiller<ValidDataArea>>()) return MakeCtrVar<StructFiller<ValidDataArea>>(this);
    return {};
}

void RegisterBasicWaveItems(ILocalSource* source) {
    ICPPTypeManager* manager = GetCPPTypeManager();
    ILocalSource* scope = source ? source : manager->Root();
    const VellumTypeID& face = VellumTypeOf<IBasicWaveReader>();
    IItemType* announced = manager->Find(face);
    if (announced == nullptr)
        announced = manager->Enter(face, std::make_unique<InterfaceType>("IBasicWaveReader", scope, face));
    scope->RegisterItemType("IBasicWaveReader", announced, false);

    RegisterClassType<BasicWaveReader<uint8_t>>("BasicWaveReader_u8", source);
    RegisterClassType<BasicWaveReader<uint16_t>>("BasicWaveReader_u16", source);
    RegisterClassType<BasicWaveReader<uint32_t>>("BasicWaveReader_u32", source);
    RegisterClassType<BasicWaveReader<uint64_t>>("BasicWaveReader_u64", source);
    RegisterClassType<BasicWaveReader<int8_t>>("BasicWaveReader_i8", source);
    RegisterClassType<BasicWaveReader<int16_t>>("BasicWaveReader_i16", source);
    RegisterClassType<BasicWaveReader<int32_t>>("BasicWaveReader_i32", source);
    RegisterClassType<BasicWaveReader<int64_t>>("BasicWaveReader_i64", source);
    RegisterClassType<BasicWaveReader<float>>("BasicWaveReader_f32", source);
    RegisterClassType<BasicWaveReader<double>>("BasicWaveReader_f64", source);
    RegisterClassType<BasicWaveWriter<uint8_t>>("BasicWaveWriter_u8", source);
    RegisterClassType<BasicWaveWriter<uint16_t>>("BasicWaveWriter_u16", source);
    RegisterClassType<BasicWaveWriter<uint32_t>>("BasicWaveWriter_u32", source);
    RegisterClassType<BasicWaveWriter<uint64_t>>("BasicWaveWriter_u64", source);
    RegisterClassType<BasicWaveWriter<int8_t>>("BasicWaveWriter_i8", source);
    RegisterClassType<BasicWaveWriter<int16_t>>("BasicWaveWriter_i16", source);
    RegisterClassType<BasicWaveWriter<int32_t>>("BasicWaveWriter_i32", source);
    RegisterClassType<BasicWaveWriter<int64_t>>("BasicWaveWriter_i64", source);
    RegisterClassType<BasicWaveWriter<float>>("BasicWaveWriter_f32", source);
    RegisterClassType<BasicWaveWriter<double>>("BasicWaveWriter_f64", source);
}

#define WAVESTORE_BASIC_WAVE_ITEMS(T)    \
    template class BasicWaveReader<T>;   \
    template class BasicWaveWriter<T>;
WAVESTORE_BASIC_WAVE_ITEMS(uint8_t)
WAVESTORE_BASIC_WAVE_ITEMS(uint16_t)
WAVESTORE_BASIC_WAVE_ITEMS(uint32_t)
WAVESTORE_BASIC_WAVE_ITEMS(uint64_t)
WAVESTORE_BASIC_WAVE_ITEMS(int8_t)
WAVESTORE_BASIC_WAVE_ITEMS(int16_t)
WAVESTORE_BASIC_WAVE_ITEMS(int32_t)
WAVESTORE_BASIC_WAVE_ITEMS(int64_t)
WAVESTORE_BASIC_WAVE_ITEMS(float)
WAVESTORE_BASIC_WAVE_ITEMS(double)
#undef WAVESTORE_BASIC_WAVE_ITEMS
