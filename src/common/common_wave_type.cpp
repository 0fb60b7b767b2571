#include "common/common_wave_type.h"

#include "common/common_wave_dataset.h"
#include "common/common_wave_dataset_init.h"
#include "common/wave_public_attributes.h"
#include "common/wave_type_ops.h"
#include "host/item_binding.h"
#include "host/logger.h"

CommonWaveDatasetType::CommonWaveDatasetType(std::string name, ILocalSource* source,
                                             std::unique_ptr<IBaseCtr> init_item)
    : CStructType(std::move(name), source, sizeof(CommonWaveDataSet)), init_item_(std::move(init_item)) {
    init_ = QueryInterface<CommonWaveDataSetInit>(init_item_.get()).get();
    RegisterItem(CommonWaveDataSetInit::kMainObjectName, init_item_.get(), true);
    if (IBaseCtr* attributes = init_ ? init_->PublicAttributes() : nullptr) {
        if (Ctr<WaveDatasetPublicAttr> values = QueryInterface<WaveDatasetPublicAttr>(attributes))
            for (const auto& [key, value] : values->Values()) SetAttribute(key, value);
    }
}

CommonWaveDatasetType::~CommonWaveDatasetType() = default;

const VellumTypeID* CommonWaveDatasetType::ObjectType() const { return &VellumTypeOf<CommonWaveDataSet>(); }

IBaseCtr* CommonWaveDatasetType::CreateItem(const std::string& name) {
    auto item = std::make_unique<Vellum::VellumStruct<CommonWaveDataSet>>(name, this);
    item->Init();
    item->AddChildItem(init_item_.get(), IDataSetEx::INIT_OBJECT_NAME, false);
    if (init_ != nullptr) init_->InitDataset(item->Object(), Source());
    return item.release();
}

namespace {

// The wave dataset type already under name in source; null with taken set when the
// name belongs to a type of another kind.
CommonWaveDatasetType* KnownType(ILocalSource* source, const std::string& name, bool& taken) {
    IItemType* type = source->GetLocalItemType(name, false);
    auto* wave = dynamic_cast<CommonWaveDatasetType*>(type);
    taken = type != nullptr && wave == nullptr;
    return wave;
}

IItemType* MakeType(const std::string& name, ILocalSource* source, const pugi::xml_node& definition) {
    auto& log = CLogger::DefaultLogger();
    std::unique_ptr<IBaseCtr> init_item(
        CreateItemByTypeID(VellumTypeOf<CommonWaveDataSetInit>(), CommonWaveDataSetInit::kMainObjectName, source));
    Ctr<CommonWaveDataSetInit> init = QueryInterface<CommonWaveDataSetInit>(init_item.get());
    if (!init) {
        log.Error("wave dataset type \"{}\": no init item type", name);
        return nullptr;
    }
    init->InitItemByXML(source, init_item.get(), definition);
    auto made = std::make_unique<CommonWaveDatasetType>(name, source, std::move(init_item));
    made->Complete();
    IItemType* type = GetCPPTypeManager()->Adopt(std::move(made));
    source->RegisterItemType(name, type, false);
    return type;
}

}  // namespace

IItemType* CreateWaveDatasetType(pugi::xml_node node, ILocalSource* source) {
    auto& log = CLogger::DefaultLogger();
    const std::string name = node.attribute("name").value();
    if (name.empty() || source == nullptr) {
        log.Error("wave dataset type: no name");
        return nullptr;
    }
    bool taken = false;
    if (CommonWaveDatasetType* known = KnownType(source, name, taken)) {
        log.Warning("wave dataset type \"{}\" is defined already, the new definition is not read", name);
        return known;
    }
    if (taken) {
        log.Error("wave dataset type \"{}\": the name is taken by another type", name);
        return nullptr;
    }
    return MakeType(name, source, node);
}

IItemType* CreateWaveDatasetTypeEx(const std::string& name, ILocalSource* source) {
    auto& log = CLogger::DefaultLogger();
    if (name.empty() || source == nullptr) {
        log.Error("wave dataset type: no name");
        return nullptr;
    }
    bool taken = false;
    if (CommonWaveDatasetType* known = KnownType(source, name, taken)) return known;
    if (taken) {
        log.Error("wave dataset type \"{}\": the name is taken by another type", name);
        return nullptr;
    }
    std::string word = name;
    const auto open = name.find('[');
    if (open != std::string::npos && name.back() == ']') word = name.substr(open + 1, name.size() - open - 2);
    const WaveTypeOps* row = WaveTypeOpsByName(word);
    if (row == nullptr) {
        log.Error("wave dataset type \"{}\": unknown element type \"{}\"", name, word);
        return nullptr;
    }
    pugi::xml_document document;
    pugi::xml_node main = document.append_child(CommonWaveDataSetInit::kMainObjectName);
    main.append_attribute("dtype") = row->name;
    return MakeType(name, source, main);
}

void RegisterCommonWaveTypes(ILocalSource* source) {
    RegisterClassType<CommonWaveDataSet>("WaveDataset", source);
    if (source != nullptr) {
        source->RegisterTypeCreator("WaveDatasetType", &CreateWaveDatasetType);
        source->RegisterTypeCreatorEx("WaveDatasetTypeEx", &CreateWaveDatasetTypeEx);
    }
    RegisterClassType<CommonWaveDataSetInit>("WaveDatasetInit", source);
    RegisterClassType<WaveDatasetPublicAttr>("WaveDatasetPublicAttr", source);
}
