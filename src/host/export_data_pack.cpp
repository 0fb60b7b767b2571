#include "host/export_data_pack.h"

#include "host/logger.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <filesystem>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace {
constexpr const char* kManifest = "manifest.xml";
}  // namespace

ExportDataPack::ExportDataPack(std::string folder) : folder_(std::move(folder)), random_(std::random_device{}()) {}

// Problems are logged after the lock is released, so log observers never run under it.
std::shared_ptr<Tessel::CFile> ExportDataPack::RequestExportFile(const std::string& name) {
    std::string problem;
    std::shared_ptr<Tessel::CFile> file;
    if (name.empty()) {
        problem = "stream without a name refused";
    } else {
        std::lock_guard lock(mutex_);
        file = [&]() -> std::shared_ptr<Tessel::CFile> {
            if (committed_) {
                problem = fmt::format("stream '{}' requested after commit", name);
                return nullptr;
            }
            std::error_code error;
            fs::create_directories(folder_, error);
            if (error) {
                problem = fmt::format("cannot create the folder: {}", error.message());
                return nullptr;
            }
            std::string id;
            for (;;) {
                id = fmt::format("{:016x}", random_());
                const bool taken = fs::exists(fs::path(folder_) / id, error);
                if (error) {
                    problem = fmt::format("cannot look into the folder: {}", error.message());
                    return nullptr;
                }
                if (!taken) break;
            }
            constexpr unsigned mode = Tessel::CFile::ModeRead | Tessel::CFile::ModeWrite |
                                      Tessel::CFile::ModeCreate | Tessel::CFile::ModeTruncate;
            auto created = std::make_shared<Tessel::CFile>((fs::path(folder_) / id).string(), mode);
            if (!created->IsOpen()) {
                problem = fmt::format("cannot create the file for stream '{}'", name);
                return nullptr;
            }
            Stream& stream = streams_[name];
            if (!stream.id.empty()) replaced_.push_back(stream.id);
            stream = Stream{id, created};
            return created;
        }();
    }
    if (!file) CLogger::DefaultLogger().Error("export pack '{}': {}", folder_, problem);
    return file;
}

std::string ExportDataPack::GetSaveParameter() const { return folder_; }

std::map<std::string, std::string> ExportDataPack::GetFileIdMap() const {
    std::lock_guard lock(mutex_);
    std::map<std::string, std::string> ids;
    for (const auto& [name, stream] : streams_) ids.emplace(name, stream.id);
    return ids;
}

bool ExportDataPack::Commit() {
    std::vector<std::string> problems;
    {
        std::lock_guard lock(mutex_);
        if (committed_) {
            problems.push_back("already committed");
        } else {
            committed_ = true;
            for (auto& [name, stream] : streams_) {
                if (stream.file->IsOpen() && !stream.file->Flush())
                    problems.push_back(fmt::format("cannot flush stream '{}'", name));
                stream.file->Close();
            }
            std::error_code error;
            for (const std::string& id : replaced_) fs::remove(fs::path(folder_) / id, error);
            replaced_.clear();

            fs::create_directories(folder_, error);
            pugi::xml_document manifest;
            pugi::xml_node root = manifest.append_child("exportDataPack");
            root.append_attribute("version") = 1;
            for (const auto& [name, stream] : streams_) {
                pugi::xml_node node = root.append_child("stream");
                node.append_attribute("name") = name.c_str();
                node.append_attribute("file") = stream.id.c_str();
            }
            const std::string path = (fs::path(folder_) / kManifest).string();
            if (!manifest.save_file(path.c_str(), "\t", pugi::format_default, pugi::encoding_utf8))
                problems.push_back(fmt::format("cannot write {}", path));
        }
    }
    for (const std::string& problem : problems)
        CLogger::DefaultLogger().Error("export pack '{}': {}", folder_, problem);
    return problems.empty();
}
