#include "common/common_wave_dataset.h"

#include "host/string_utils.h"

bool CommonWaveDataSetInit::InitItemByXML(ILocalSource*, IBaseCtr*, const pugi::xml_node& node) {
    dtype_ = node.attribute("dtype").value();
    vtype_ = node.attribute("vtype").value();
    id_ = node.attribute("id").value();
    uint64_t step = 0;
    has_step_ = SysParseU64(node.attribute("step").value(), step) && step > 0 && step <= UINT32_MAX;
    step_ = has_step_ ? static_cast<unsigned int>(step) : 0;
    definition_.reset();
    for (const char* name : {"storage", "index"}) {
        if (pugi::xml_node child = node.child(name)) definition_.append_copy(child);
    }
    return true;
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
