#include "dataset/serialization_helper.h"

#include "dataset/axis.h"
#include "dataset/dataset_base.h"
#include "dataset/partial_exportable.h"
#include "dataset/tagged_table.h"
#include "host/base64.h"
#include "host/base_ctr.h"
#include "host/configuration.h"
#include "host/logger.h"
#include "host/string_utils.h"
#include "host/value_item.h"
#include "storage/storage_base.h"

#include <cstring>

namespace {

constexpr const char* kImportedGroup = "__imported__";
constexpr const char* kDataState = "ST_DataState";
// The axes a dataset item may have, by their child names.
constexpr const char* kAxisNames[] = {"dataAxis", "sizeAxis"};

bool IsOne(const std::string& text) { return StringCompare(text, "1", true) == 0; }

IDatasetAxis* AxisOf(IBaseCtr* owner, const std::string& name) {
    if (owner == nullptr) return nullptr;
    return QueryInterface<IDatasetAxis>(owner->GetChildItem(name)).get();
}

}  // namespace

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
    if (is("Export")) return Export();
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

bool DataSetSerializationHelper::Export() {
    Ctr<IPartialExportable> exportable = QueryInterface<IPartialExportable>(owner_);
    ExportParameters parameters;
    if (!exportable || !ReadExportParameters(owner_, parameters)) return false;
    bool done = exportable->InitializeExport(true) &&
                exportable->AddRange(Vellum::Var(parameters.begin), Vellum::Var(parameters.end),
                                     Vellum::Var(parameters.shift));
    // Finalizing also ends an export whose range failed.
    done = exportable->FinalizeExport() && done;
    OnCMD("flush", nullptr);
    return done;
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

std::string DataSetSerializationHelper::EncodeFileTable(const std::map<std::string, std::string>& files) {
    TaggedTableWriter table;
    for (const auto& [name, id] : files) {
        if (!name.empty()) table.AddText(name, id);
    }
    return Base64Encode(table.Bytes());
}

std::vector<uint8_t> DataSetSerializationHelper::EncodeAxisTable(const std::map<std::string, AxisRecord>& axes) {
    TaggedTableWriter table;
    for (const auto& [name, record] : axes) table.AddRecord(name, &record, sizeof(AxisRecord));
    return table.Bytes();
}

std::map<std::string, std::string> DataSetSerializationHelper::DecodeFileTable(const std::string& base64) {
    std::map<std::string, std::string> files;
    std::vector<uint8_t> buffer(kTaggedTableCapacity);
    const int64_t decoded = Base64Decode(base64, buffer.data(), buffer.size());
    if (decoded < 0) return files;
    for (TaggedEntry& entry : ParseTaggedTable(buffer.data(), static_cast<std::size_t>(decoded))) {
        if (entry.key_type == kTaggedText && entry.value_type == kTaggedText)
            files[entry.key] = std::move(entry.value);
    }
    return files;
}

void DataSetSerializationHelper::WriteFileTable(const SerializeContext& context) {
    context.config->SetString(MakePath(context.path, "files", "value"), EncodeFileTable(GetFileIdMap(owner_)));
}

void DataSetSerializationHelper::WriteAxisTable(const SerializeContext& context) {
    std::map<std::string, AxisRecord> axes;
    for (const char* name : kAxisNames) {
        IDatasetAxis* axis = AxisOf(owner_, name);
        if (axis == nullptr) continue;
        axes[name] = AxisRecord{axis->GetRatio(), axis->GetIndexStep(), axis->GetScale()};
    }
    const std::vector<uint8_t> table = EncodeAxisTable(axes);
    context.config->SetBinary(MakePath(context.path, "axis", "value"), table.data(), table.size());
}

void DataSetSerializationHelper::WriteDataState(const SerializeContext& context) {
    IBaseCtr* state = owner_->GetChildItem(kDataState);
    context.config->SetString(MakePath(context.path, "data", "value"),
                              state ? state->GetValue().ToString() : std::string());
}

void DataSetSerializationHelper::Serialize(std::shared_ptr<SerializeContext> context,
                                           const SerializeConfig* config) {
    if (config == nullptr || config->flag == 0 || owner_ == nullptr) return;
    if (!IsOne(owner_->GetAttribute("exportable"))) return;
    if (!context || context->config == nullptr) return;
    SerializationManager& manager = SerializationManager::Instance();
    if (manager.GetDataSaveType() == 1 && QueryInterface<IPartialExportable>(owner_)) {
        manager.AddPartialData(owner_, context->path);
        return;
    }
    WriteFileTable(*context);
    WriteAxisTable(*context);
    WriteDataState(*context);
    if (!IsOne(owner_->GetAttribute("lazy"))) {
        // Flushing can change the files (a storage's content reaches its file only now).
        if (Ctr<DataSetBase> dataset = QueryInterface<DataSetBase>(owner_)) dataset->Flush();
        WriteFileTable(*context);
    } else {
        manager.AddDynamicData(owner_);
    }
}

bool DataSetSerializationHelper::LoadFiles(DataSetBase& dataset, const SerializeContext& context) {
    const std::string text = context.config->GetString(MakePath(context.path, "files", "value"), "");
    if (text.empty()) return false;
    const auto files = DecodeFileTable(text);
    bool loaded = false;
    dataset.Lock();
    for (const auto& [name, id] : files) {
        // A name the dataset has no storage for has no unit size to read it with.
        std::shared_ptr<StorageBase> storage = dataset.GetStorage(name);
        if (!storage) {
            CLogger::DefaultLogger().Warning("Dataset @{} has no storage {} for file {}", fmt::ptr(owner_), name, id);
            continue;
        }
        dataset.LoadStorage(name, id, storage->UnitSize(), kImportedGroup);
        loaded = true;
    }
    // Without a loaded file there is no group to switch to, and the fallback to the
    // default group would rebind (and so drop) what the storages hold.
    if (loaded) dataset.SwitchGroup(kImportedGroup);
    dataset.UnLock();
    if (!loaded) CLogger::DefaultLogger().Warning("Dataset @{} file table without usable entry", fmt::ptr(owner_));
    return loaded;
}

void DataSetSerializationHelper::LoadAxes(const SerializeContext& context) {
    std::vector<uint8_t> table;
    if (!context.config->GetBinary(MakePath(context.path, "axis", "value"), table)) return;
    for (const TaggedEntry& entry : ParseTaggedTable(table.data(), table.size())) {
        if (entry.key_type != kTaggedText || entry.value_type != kTaggedRecord ||
            entry.value.size() != sizeof(AxisRecord))
            continue;
        IDatasetAxis* axis = AxisOf(owner_, entry.key);
        if (axis == nullptr) continue;
        AxisRecord record;
        std::memcpy(&record, entry.value.data(), sizeof(record));
        double offset = 0, ratio = 0;
        axis->GetRatioOffset(&offset, &ratio);
        axis->SetRatioOffset(offset, record.ratio);
        axis->SetIndexStep(record.index_step);
        axis->SetScale(&record.scale);
    }
}

void DataSetSerializationHelper::LoadDataState(const SerializeContext& context) {
    const std::string text = context.config->GetString(MakePath(context.path, "data", "value"), "");
    if (text.empty()) return;
    IBaseCtr* state = owner_->GetChildItem(kDataState);
    if (state == nullptr) {
        IItemType* type = GetValueItemType(SysVarType::STRING);
        state = type ? type->CreateItem(kDataState) : nullptr;
        if (state == nullptr || !owner_->AddChildItem(state, kDataState, true)) return;
    }
    if (Ctr<CValueItem> value = QueryInterface<CValueItem>(state))
        value->SetText(text);
    else
        state->SetValue(Vellum::Var(text));
}

bool DataSetSerializationHelper::Deserialize(std::shared_ptr<SerializeContext> context) {
    if (!context || context->config == nullptr || owner_ == nullptr) return false;
    Ctr<DataSetBase> dataset = QueryInterface<DataSetBase>(owner_);
    if (!dataset) return false;
    const bool loaded = LoadFiles(*dataset, *context);
    LoadAxes(*context);
    LoadDataState(*context);
    owner_->OnCMD("LockAxis", nullptr);
    if (IBaseCtr* state = owner_->GetChildItem(kDataState)) {
        owner_->SetAttribute(kDataState, state->GetValue().ToString());
        state->UpdateItem(true, kDataState);
    }
    return loaded;
}
