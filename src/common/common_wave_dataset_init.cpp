#include "common/common_wave_dataset_init.h"

#include "common/common_wave_dataset.h"
#include "common/wave_public_attributes.h"
#include "host/base_ctr.h"
#include "host/item_type.h"
#include "host/string_utils.h"

CommonWaveDataSetInit::CommonWaveDataSetInit() = default;

CommonWaveDataSetInit::~CommonWaveDataSetInit() = default;

bool CommonWaveDataSetInit::InitItemByXML(ILocalSource* source, IBaseCtr* item, const pugi::xml_node& node) {
    pugi::xml_node main = node.child(kMainObjectName);
    if (!main) main = node;
    dtype_ = main.attribute("dtype").value();
    vtype_ = main.attribute("vtype").value();
    id_ = main.attribute("id").value();
    uint64_t step = 0;
    has_step_ = SysParseU64(main.attribute("step").value(), step) && step > 0 && step <= UINT32_MAX;
    step_ = has_step_ ? static_cast<unsigned int>(step) : 0;
    definition_.reset();
    for (const char* name : {"storage", "index"}) {
        if (pugi::xml_node child = main.child(name)) definition_.append_copy(child);
    }

    std::unique_ptr<IBaseCtr> made(CreateItemByTypeID(VellumTypeOf<WaveDatasetPublicAttr>(), kPublicAttrName, source));
    Ctr<IItemXmlInit> attributes = QueryInterface<IItemXmlInit>(made.get());
    if (!attributes) return true;  // the type is not registered: logged by the creation
    attributes->InitItemByXML(source, made.get(), node.child(kPublicAttrName));
    public_attr_ = made.get();
    if (item != nullptr && item->AddChildItem(made.get(), kPublicAttrName, true)) {
        made.release();
        own_public_attr_.reset();
    } else {
        own_public_attr_ = std::move(made);
    }
    return true;
}

std::string CommonWaveDataSetInit::PublicAttribute(const std::string& name) const {
    Ctr<WaveDatasetPublicAttr> attributes = QueryInterface<WaveDatasetPublicAttr>(public_attr_);
    return attributes ? attributes->GetAttribute(name) : std::string();
}

bool CommonWaveDataSetInit::InitDataset(IWaveDataset* dataset, ILocalSource* source) {
    if (dataset == nullptr) return false;
    const pugi::xml_node storage = definition_.child("storage");
    if (auto* common = dynamic_cast<CommonWaveDataSet*>(dataset)) {
        common->Configure(source, dtype_, storage, definition_.child("index"));
    } else {
        if (!dtype_.empty()) dataset->SetDataType(dtype_, true);
        dataset->CreateStorages(ReadStorageDeclarations(storage), source, storage);
    }
    if (has_step_) dataset->SetIndexStep(step_);
    return true;
}

std::shared_ptr<CtrVar> CommonWaveDataSetInit::GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
    if (type == VellumTypeOf<IWaveDatasetInit>()) return MakeCtrVar<IWaveDatasetInit>(this);
    return {};
}
