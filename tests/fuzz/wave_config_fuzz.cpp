// libFuzzer target: the input is the configuration text of a float wave dataset item.
// The text goes through FinishConfig (the `cycle` entry makes the cycler child and the
// limit), then a producer records three runs of samples, so that a configured size or
// time limit fires and the cycler cuts. A cycle value without a number must end in
// "bad argument!!"; nothing may crash, hang or leak.
//   ./wave_config_fuzz -max_total_time=60 [corpus folder]

#include "dataset/axis.h"
#include "host/base_ctr.h"
#include "host/item_type.h"
#include "host/local_source.h"
#include "host/logger.h"
#include "host/project_file_manager.h"
#include "host/string_utils.h"
#include "module/module_entry.h"
#include "wave/basic_wave_dataset.h"
#include "wave/cycle_setting.h"
#include "wave/wave_producer.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// A broken expectation: says which, then ends the run as a crash.
[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "%s: %s\n", "wave_config_fuzz", what);
    std::abort();
}

constexpr double kSamplePeriod = 1e-3;
constexpr uint64_t kSamplesPerColumn = 4;

// The module's types live in the root scope, so that every target of one process finds them.
ILocalSource* Scope() {
    static ILocalSource* scope = [] {
        CLogger::DefaultLogger().SetConsoleEnabled(false);
        InitDataSetModule(GetRootLocal(), 1, 8, 1, 2);  // a small pool: 1 MiB expansions, 8 MiB at most
        return GetRootLocal();
    }();
    return scope;
}

// Text without a number in a TIME or SIZE argument is the one exception allowed.
void ExpectBadArgument(const std::runtime_error& error) {
    if (std::strcmp(error.what(), "bad argument!!") != 0) Fail(error.what());
}

// The parsing steps on their own: every cycle value gives a setting, nothing, or the
// exception, and a size limit always has a count.
bool ParsesCleanly(const std::string& config) {
    for (const auto& [key, value] : ParseConfigString(config)) {
        if (!IsCycleKey(key)) continue;
        try {
            if (const auto setting = ParseCycleSetting(value)) (void)TruncateToCount(setting->limit);
        } catch (const std::runtime_error& error) {
            ExpectBadArgument(error);
            return false;
        }
    }
    return true;
}

void Record(BasicWaveDataSet<float>& dataset) {
    WaveProducer<float> producer(dataset, kSamplePeriod, kSamplePeriod * kSamplesPerColumn);
    std::vector<float> samples(1500);
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<float>(i % 97) - 48.0f;
    // Three runs with gaps between them, pushed in pieces so that the limit is checked often.
    for (double start : {0.0, 2.0, 4.5}) {
        for (std::size_t at = 0; at < samples.size(); at += 500)
            producer.Append(start + static_cast<double>(at) * kSamplePeriod, samples.data() + at, 500);
        producer.CloseRun();
    }
}

// The files of a dataset's storages belong to the project, not to the dataset: they stay
// open until the project lets them go. Each input is a session of its own.
struct Session {
    ~Session() { ProjectFileManager::instance().ReleaseAll(); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string config(reinterpret_cast<const char*>(data), size);
    const bool parses = ParsesCleanly(config);

    const Session session;  // outlives the item

    std::unique_ptr<IBaseCtr> item(CreateItemByType(Scope(), "WAVEDATASET[FLOAT]", "wave"));
    IBaseCtr* size_axis = CreateItemByType(Scope(), "AXIS", "sizeAxis");
    if (!item || !size_axis) Fail("no wave or axis item");
    item->AddChildItem(size_axis, "sizeAxis", true);
    IDatasetAxis* axis = QueryInterface<IDatasetAxis>(size_axis).get();
    axis->SetRatioOffset(0.0, kSamplePeriod);
    axis->SetIndexStep(kSamplesPerColumn);
    BasicWaveDataSet<float>* dataset = QueryInterface<BasicWaveDataSet<float>>(item.get()).get();

    try {
        if (!item->FinishConfig(Scope(), config)) Fail("FinishConfig gave false");
    } catch (const std::runtime_error& error) {
        ExpectBadArgument(error);
        if (parses) Fail("FinishConfig threw where the parsing steps did not");
        return 0;
    }
    if (!parses) Fail("the parsing steps threw where FinishConfig did not");
    Record(*dataset);
    return 0;
}
