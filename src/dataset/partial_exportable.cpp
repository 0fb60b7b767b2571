#include "dataset/partial_exportable.h"

#include "host/base_ctr.h"
#include "host/logger.h"
#include "host/string_utils.h"
#include "storage/data_channel.h"

#include <filesystem>
#include <map>

namespace {

std::string ValueText(IBaseCtr* item) {
    if (item == nullptr) return {};
    return item->GetValue().ToString();
}

bool ReadSeconds(const std::map<std::string, std::string>& values, const char* key, double& out) {
    auto it = values.find(key);
    if (it == values.end()) return false;
    bool error = false;
    const double value = Vellum::Var(it->second).ToDouble(&error);
    if (error || value != value) return false;
    out = value;
    return true;
}

}  // namespace

bool ReadExportParameters(IBaseCtr* item, ExportParameters& out, bool with_range) {
    if (item == nullptr) return false;
    const std::string text = ValueText(item->GetChildItem("ExportParam"));
    const auto values = ParseConfigString(text);
    ExportParameters read;
    auto path = values.find("path");
    const bool range = ReadSeconds(values, "begin", read.begin) && ReadSeconds(values, "end", read.end);
    if ((with_range && !range) || path == values.end() || path->second.empty()) {
        CLogger::DefaultLogger().Warning("Dataset @{} Export: bad ExportParam \"{}\"", fmt::ptr(item), text);
        return false;
    }
    if (values.count("shift") != 0 && !ReadSeconds(values, "shift", read.shift)) {
        CLogger::DefaultLogger().Warning("Dataset @{} Export: bad ExportParam \"{}\"", fmt::ptr(item), text);
        return false;
    }
    std::string name;
    if (IBaseCtr* channel = item->GetChildItem("DataCH")) {
        if (Ctr<IDataChannel> source = QueryInterface<IDataChannel>(channel))
            name = source->GetChannelName();
        else
            name = ValueText(channel);
    }
    name = Trim(name);
    read.folder = name.empty() ? path->second : (std::filesystem::path(path->second) / name).string();
    out = read;
    return true;
}
