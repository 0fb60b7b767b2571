#include "common/saved_project.h"

#include "dataset/serialization_helper.h"
#include "host/base_ctr.h"
#include "host/configuration.h"
#include "host/item_type.h"
#include "host/project_file_manager.h"
#include "host/serialization.h"
#include "host/xml_items.h"
#include "storage/export_manager.h"

#include <chrono>
#include <system_error>

namespace {

namespace fs = std::filesystem;

const char* kProjectFile = "project.xml";

std::string RecordPath(const std::string& name) { return "datasets/" + name; }

}  // namespace

bool SaveWaveDataset(IBaseCtr* item, const std::string& name, const fs::path& folder, std::string& error) {
    const Ctr<ISerializable> serializable = item ? QueryInterface<ISerializable>(item) : Ctr<ISerializable>();
    if (!serializable || item->GetItemType() == nullptr) {
        error = "the item can't be saved";
        return false;
    }
    Configuration config;
    const std::string path = RecordPath(name);
    const SerializeConfig save{1};
    serializable->Serialize(std::make_shared<SerializeContext>(SerializeContext{&config, path}), &save);
    const auto files = DataSetSerializationHelper::DecodeFileTable(config.GetString(path + "/files/value"));
    if (files.empty()) {
        error = "the dataset wrote no file table (is its attribute \"exportable\" \"1\"?)";
        return false;
    }
    config.SetString(path + "/type", item->GetItemType()->TypeName());

    std::error_code failed;
    const fs::path old = folder / "__old__";
    fs::create_directories(old, failed);
    if (failed) {
        error = old.string() + ": " + failed.message();
        return false;
    }
    const fs::path project = ProjectFileManager::instance().GetProjectFolder();
    // Storages on other channels than cache files are copied into new files in the
    // background: the files are complete when the copier is idle.
    if (!ExportManager::Instance().WaitIdle(std::chrono::minutes(5))) {
        error = "the copies into the project's files did not complete";
        return false;
    }
    for (const auto& [storage, id] : files) {
        fs::copy_file(project / id, old / id, fs::copy_options::overwrite_existing, failed);
        if (failed) {
            error = (project / id).string() + ": " + failed.message();
            return false;
        }
    }
    if (!config.SaveToFile((folder / kProjectFile).string())) {
        error = (folder / kProjectFile).string() + ": cannot be written";
        return false;
    }
    return true;
}

std::vector<std::string> SavedWaveDatasets(const fs::path& folder, std::string& error) {
    Configuration config;
    std::vector<std::string> names;
    if (!config.LoadFromFile((folder / kProjectFile).string())) {
        error = (folder / kProjectFile).string() + ": no readable project";
        return names;
    }
    for (const std::string& key : config.Keys()) {
        // "datasets/<name>/type"
        const std::string prefix = "datasets/", suffix = "/type";
        if (key.size() > prefix.size() + suffix.size() && key.compare(0, prefix.size(), prefix) == 0 &&
            key.compare(key.size() - suffix.size(), suffix.size(), suffix) == 0)
            names.push_back(key.substr(prefix.size(), key.size() - prefix.size() - suffix.size()));
    }
    if (names.empty()) error = (folder / kProjectFile).string() + ": no saved dataset";
    return names;
}

std::unique_ptr<IBaseCtr> LoadWaveDataset(ILocalSource* scope, const fs::path& folder, const std::string& name,
                                          std::string& error) {
    Configuration config;
    if (!config.LoadFromFile((folder / kProjectFile).string())) {
        error = (folder / kProjectFile).string() + ": no readable project";
        return nullptr;
    }
    const std::string path = RecordPath(name);
    const std::string type = config.GetString(path + "/type");
    if (type.empty()) {
        error = (folder / kProjectFile).string() + ": no dataset \"" + name + "\"";
        return nullptr;
    }
    ProjectFileManager::instance().SetProjectFolder(folder.string());
    std::unique_ptr<IBaseCtr> item(CreateItemByType(scope, type, name));
    if (!item) {
        error = "unknown dataset type \"" + type + "\"";
        return nullptr;
    }
    for (const char* axis : {"sizeAxis", "dataAxis"}) item->AddChildItem(CreateItemByType(scope, "AXIS", axis), axis, true);
    const Ctr<ISerializable> serializable = QueryInterface<ISerializable>(item.get());
    if (!serializable || !serializable->Deserialize(std::make_shared<SerializeContext>(SerializeContext{&config, path}))) {
        error = (folder / "__old__").string() + ": the saved files of \"" + name + "\" could not be opened";
        return nullptr;
    }
    return item;
}
