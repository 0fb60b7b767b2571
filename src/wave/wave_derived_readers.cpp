#include "wave/wave_derived_readers.h"

#include "host/item_binding.h"
#include "host/item_type.h"
#include "reader/infor_iterator_reader.h"

namespace {

template <class R>
std::shared_ptr<IReader> OpenStorage(const DataSetBase& dataset, const char* id) {
    std::shared_ptr<StorageBase> storage = dataset.GetStorage(id);
    if (!storage) return nullptr;
    return std::make_shared<BaseStructReader<R>>(std::move(storage));
}

template <class I, class C>
std::shared_ptr<CtrVar> Owned(C* object) {
    return MakeOwnedCtrVar<I>(std::unique_ptr<I>(object));
}

}  // namespace

template <class T>
CBasicLevelInformation<T>* CreateLevelInformationReader(const BasicWaveDataSet<T>& dataset) {
    return new CBasicLevelInformation<T>(dataset.CreateBasicWaveReader());
}

template <class T>
CBasicEdgeInformation<T>* CreateEdgeInformationReader(const BasicWaveDataSet<T>& dataset) {
    return new CBasicEdgeInformation<T>(dataset.CreateBasicWaveReader(), CreateLevelInformationReader(dataset));
}

template <class T>
CEdgeDataReader<T>* CreateEdgeReader(const BasicWaveDataSet<T>& dataset) {
    return new CEdgeDataReader<T>(CreateLevelInformationReader(dataset), dataset.CreateBasicWaveReader());
}

template <class T>
CLogicDataReader<T>* CreateLogicReader(const BasicWaveDataSet<T>& dataset) {
    return new CLogicDataReader<T>(CreateEdgeReader(dataset), CreateValidReader(dataset),
                                   dataset.CreateBasicWaveReader());
}

template <class T>
CValidAreaDataReader* CreateValidReader(const BasicWaveDataSet<T>& dataset) {
    return new CValidAreaDataReader(dataset.Item(), OpenStorage<ValidDataArea>(dataset, "Area"),
                                    OpenStorage<T>(dataset, "Wave"));
}

template <class T>
std::shared_ptr<CtrVar> DerivedReaderCtr(const BasicWaveDataSet<T>& dataset, const VellumTypeID& type,
                                         const std::string& name) {
    if (type == VellumTypeOf<IBasicLevelInformation>())
        return Owned<IBasicLevelInformation>(CreateLevelInformationReader(dataset));
    if (type == VellumTypeOf<CBasicLevelInformation<T>>())
        return Owned<CBasicLevelInformation<T>>(CreateLevelInformationReader(dataset));
    if (type == VellumTypeOf<IBasicEdgeInformation>())
        return Owned<IBasicEdgeInformation>(CreateEdgeInformationReader(dataset));
    if (type == VellumTypeOf<CBasicEdgeInformation<T>>())
        return Owned<CBasicEdgeInformation<T>>(CreateEdgeInformationReader(dataset));
    if (type == VellumTypeOf<IDataReader>()) {
        if (name == "EdgeReader") return Owned<IDataReader>(CreateEdgeReader(dataset));
        if (name == "LogicReader") return Owned<IDataReader>(CreateLogicReader(dataset));
        if (name == "ValidReader") return Owned<IDataReader>(CreateValidReader(dataset));
    }
    return {};
}

void RegisterDerivedReaderItems(IItemType* type) {
    if (type == nullptr) return;
    IItemType* iterator = RegisterClassType<CInforIteratorReader>("InforIteratorReader", type->Source());
    const VellumTypeID& face = VellumTypeOf<IInforIteratorReader>();
    type->RegisterDynamicItem("ValidReader", iterator, {{"config", "TYPE=ValidReader,DataType=ValidDataArea"}}, face);
    type->RegisterDynamicItem("EdgeReader", iterator, {{"config", "TYPE=EdgeReader,DataType=FindEdgeResult"}}, face);
    type->RegisterDynamicItem("LogicReader", iterator, {{"config", "TYPE=LogicReader,DataType=LogicResult"}}, face);
}

#define WAVESTORE_DERIVED_READERS(T)                                                                         \
    template CBasicLevelInformation<T>* CreateLevelInformationReader(const BasicWaveDataSet<T>&);           \
    template CBasicEdgeInformation<T>* CreateEdgeInformationReader(const BasicWaveDataSet<T>&);             \
    template CEdgeDataReader<T>* CreateEdgeReader(const BasicWaveDataSet<T>&);                              \
    template CLogicDataReader<T>* CreateLogicReader(const BasicWaveDataSet<T>&);                            \
    template CValidAreaDataReader* CreateValidReader(const BasicWaveDataSet<T>&);                           \
    template std::shared_ptr<CtrVar> DerivedReaderCtr(const BasicWaveDataSet<T>&, const VellumTypeID&,      \
                                                      const std::string&)
WAVESTORE_DERIVED_READERS(int8_t);
WAVESTORE_DERIVED_READERS(uint8_t);
WAVESTORE_DERIVED_READERS(int16_t);
WAVESTORE_DERIVED_READERS(uint16_t);
WAVESTORE_DERIVED_READERS(int32_t);
WAVESTORE_DERIVED_READERS(uint32_t);
WAVESTORE_DERIVED_READERS(int64_t);
WAVESTORE_DERIVED_READERS(uint64_t);
WAVESTORE_DERIVED_READERS(float);
WAVESTORE_DERIVED_READERS(double);
WAVESTORE_DERIVED_READERS(LongDouble);
