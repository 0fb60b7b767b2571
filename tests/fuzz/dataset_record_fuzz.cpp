// libFuzzer target: the input is the dataset record of a saved project, loaded into a
// float wave dataset item by its serialization helper, which then answers a view.
//
// Input: three pieces, each a u16 (little endian) length and that many bytes: the file
// table, the axis table, and the content of the saved file "input.wsc"; then the data
// state text. The file table is stored as its Base64 text, as a save writes it. Beside
// "input.wsc" the loaded project's folder holds raw files "wave.wsc", "index.wsc" and
// "area.wsc" (a run of 1000 samples) for the table to name. The whole input is also
// decoded as file table text. Nothing may crash, hang or leak.
//   ./dataset_record_fuzz -max_total_time=60 [corpus folder]

#include "dataset/axis.h"
#include "dataset/records.h"
#include "dataset/serialization_helper.h"
#include "dataset/tagged_table.h"
#include "host/base64.h"
#include "host/base_ctr.h"
#include "host/configuration.h"
#include "host/item_type.h"
#include "host/local_source.h"
#include "host/logger.h"
#include "host/project_file_manager.h"
#include "host/serialization.h"
#include "host/string_utils.h"
#include "module/module_entry.h"
#include "wave/basic_wave_dataset.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

// A broken expectation: says which, then ends the run as a crash.
[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "%s: %s\n", "dataset_record_fuzz", what);
    std::abort();
}

namespace fs = std::filesystem;

constexpr uint64_t kSamples = 1000;
constexpr uint64_t kSamplesPerColumn = 4;
constexpr int64_t kSampleNs = 1000000;  // 1 ms

template <class R>
void WriteRaw(const fs::path& path, const std::vector<R>& records) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(records.data()), static_cast<std::streamsize>(records.size() * sizeof(R)));
    if (!out) Fail("cannot write the saved files");
}

// A temporary project folder whose "__old__" holds the files of one saved run, removed
// at exit.
struct Project {
    fs::path folder;
    Project() {
        std::string templ = (fs::temp_directory_path() / "dataset-record-fuzz-XXXXXX").string();
        if (::mkdtemp(templ.data()) == nullptr) Fail("no temporary folder");
        folder = templ;
        fs::create_directories(folder / "__old__");
        std::vector<float> wave(kSamples);
        for (uint64_t i = 0; i < kSamples; ++i) wave[i] = static_cast<float>(i % 50) - 25.0f;
        std::vector<MinMaxData<float>> index;
        for (uint64_t at = 0; at < kSamples; at += kSamplesPerColumn) {
            MinMaxData<float> column{wave[at], wave[at]};
            for (uint64_t i = at; i < at + kSamplesPerColumn && i < kSamples; ++i) {
                column.min = std::min(column.min, wave[i]);
                column.max = std::max(column.max, wave[i]);
            }
            index.push_back(column);
        }
        const std::vector<ValidDataArea> area = {
            {0, static_cast<int64_t>(kSamples - 1) * kSampleNs, 0, kSamplesPerColumn, 0, kSamples - 1}};
        WriteRaw(folder / "__old__" / "wave.wsc", wave);
        WriteRaw(folder / "__old__" / "index.wsc", index);
        WriteRaw(folder / "__old__" / "area.wsc", area);
    }
    ~Project() {
        std::error_code error;
        fs::remove_all(folder, error);
    }
};

Project& TheProject() {
    static Project project;
    return project;
}

// Where the files of the loaded project are.
fs::path SavedFolder() { return TheProject().folder / "__old__"; }

ILocalSource* Scope() {
    static ILocalSource* scope = [] {
        Project& project = TheProject();
        CLogger::DefaultLogger().SetConsoleEnabled(false);
        ProjectFileManager::instance().SetProjectFolder(project.folder.string());
        // The module's types live in the root scope, so that every target of one process finds them.
        InitDataSetModule(GetRootLocal(), 1, 8, 1, 2);  // a small pool: 1 MiB expansions, 8 MiB at most
        return GetRootLocal();
    }();
    return scope;
}

// The next u16-length-prefixed piece of the input; the rest when it is shorter.
std::string TakePiece(const uint8_t*& data, size_t& size) {
    if (size < 2) {
        data += size;
        size = 0;
        return {};
    }
    size_t length = static_cast<size_t>(data[0]) | static_cast<size_t>(data[1]) << 8;
    data += 2;
    size -= 2;
    if (length > size) length = size;
    std::string piece(reinterpret_cast<const char*>(data), length);
    data += length;
    size -= length;
    return piece;
}

IBaseCtr* AddAxis(IBaseCtr* item, const char* name) {
    IBaseCtr* axis = CreateItemByType(Scope(), "AXIS", name);
    if (axis == nullptr || !item->AddChildItem(axis, name, true)) Fail("no axis item");
    return axis;
}

// The files of a dataset's storages belong to the project, not to the dataset: they stay
// open until the project lets them go. Each input is a session of its own.
struct Session {
    ~Session() { ProjectFileManager::instance().ReleaseAll(); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string whole(reinterpret_cast<const char*>(data), size);
    for (const auto& [name, id] : DataSetSerializationHelper::DecodeFileTable(whole))
        if (name.size() + id.size() + 12 > kTaggedTableCapacity) Fail("an entry larger than the table");

    const std::string files = TakePiece(data, size);
    const std::string axes = TakePiece(data, size);
    const std::string content = TakePiece(data, size);
    const std::string state(reinterpret_cast<const char*>(data), size);
    WriteRaw(SavedFolder() / "input.wsc", std::vector<char>(content.begin(), content.end()));

    Configuration config;
    const std::string path = "project/ds";
    config.SetString(MakePath(path, "files", "value"), Base64Encode(files.data(), files.size()));
    config.SetBinary(MakePath(path, "axis", "value"), axes.data(), axes.size());
    config.SetString(MakePath(path, "data", "value"), state);

    const Session session;  // outlives the item
    std::unique_ptr<IBaseCtr> item(CreateItemByType(Scope(), "WAVEDATASET[FLOAT]", "ds"));
    if (!item) Fail("no wave item");
    IDatasetAxis* size_axis = QueryInterface<IDatasetAxis>(AddAxis(item.get(), "sizeAxis")).get();
    size_axis->SetRatioOffset(0.0, 1e-3);
    size_axis->SetIndexStep(kSamplesPerColumn);
    AddAxis(item.get(), "dataAxis");
    Ctr<ISerializable> helper = QueryInterface<ISerializable>(item.get());
    if (!helper) Fail("no serialization helper");
    helper->Deserialize(std::make_shared<SerializeContext>(SerializeContext{&config, path}));

    // What was bound (whatever file went to whatever storage) answers a view.
    BasicWaveDataSet<float>* dataset = QueryInterface<BasicWaveDataSet<float>>(item.get()).get();
    std::unique_ptr<CBasicWaveReader<float>> reader(dataset->CreateBasicWaveReader());
    double begin = 0, end = 0;
    if (reader->GetMaxValidRange(begin, end, false)) {
        std::vector<MinMaxData<double>> columns;
        reader->GetMinMaxData(begin, end, columns, 16, GetDataParam{}, 0);
        if (columns.size() > 16) Fail("more columns than asked for");
        double value = 0;
        reader->At(begin, value);
    }
    return 0;
}
