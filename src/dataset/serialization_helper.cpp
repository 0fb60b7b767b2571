#include "dataset/serialization_helper.h"

#include "dataset/dataset_base.h"
#include "host/base_ctr.h"
#include "host/logger.h"
#include "host/string_utils.h"
#include "storage/storage_base.h"

bool DataSetSerializationHelper::FinishConfig(ILocalSource*, IBaseCtr*, const std::string&) {
    CLogger::DefaultLogger().Info("Dataset @{} Initialized, id={}, caption={}", fmt::ptr(owner_),
                                  owner_ ? owner_->GetAttribute("id") : std::string(),
                                  owner_ ? owner_->GetAttribute("caption") : std::string());
    return true;
}

void DataSetSerializationHelper::SendToAxes(const std::string& command, bool size_axis_only) {
    if (owner_ == nullptr) return;
    if (!size_axis_only) {
        if (IBaseCtr* axis = owner_->GetChildItem("dataAxis")) axis->OnCMD(command, nullptr);
    }
    if (IBaseCtr* axis = owner_->GetChildItem("sizeAxis")) axis->OnCMD(command, nullptr);
}

bool DataSetSerializationHelper::OnCMD(const std::string& command, IBaseCtr*) {
    auto is = [&](const char* name) { return StringCompare(command, name, true) == 0; };
    if (is("LockAxis")) {
        SendToAxes("Lock");
    } else if (is("UnlockAxis")) {
        SendToAxes("UnLock");
    } else if (is("Update")) {
        SendToAxes("Update");
    } else if (is("AxisUpdate")) {
        SendToAxes("Update", true);
    } else if (is("flush")) {
        if (Ctr<DataSetBase> dataset = QueryInterface<DataSetBase>(owner_)) dataset->Flush();
        SendToAxes("Update");
    } else if (is("reset")) {
        if (owner_) owner_->OnCMD("Clear", nullptr);
        if (Ctr<DataSetBase> dataset = QueryInterface<DataSetBase>(owner_)) dataset->SwitchGroup(kDefaultGroup);
        SendToAxes("Update");
    } else {
        return false;
    }
    return true;
}

std::map<std::string, std::string> DataSetSerializationHelper::GetFileIdMap(IBaseCtr* owner) {
    std::map<std::string, std::string> files;
    Ctr<DataSetBase> dataset = QueryInterface<DataSetBase>(owner);
    if (!dataset) return files;
    dataset->Lock();
    for (const auto& [name, storage] : dataset->Storages()) files[name] = storage->Persist();
    dataset->UnLock();
    return files;
}
