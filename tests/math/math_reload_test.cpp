// A math result saved with its project and loaded into a new math item reads back the
// same, through the wave dataset's record: nothing of the sources is saved.

#include "math_fixture.h"

#include "dataset/serialization_helper.h"
#include "host/configuration.h"
#include "host/project_file_manager.h"
#include "host/serialization.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

using namespace math_test;

TEST(MathReload, ASavedResultLoadsThroughTheWaveDatasetRecord) {
    const fs::path dir = fs::temp_directory_path() / ("wavestore-math-reload-" + std::to_string(::getpid()));
    ProjectFileManager::instance().SetProjectFolder((dir / "work").string());
    auto context = [](Configuration& config) {
        return std::make_shared<SerializeContext>(SerializeContext{&config, "waves/math"});
    };
    Source<double> left, right;
    left.Constant(0.0, 1.0, 5.0).Constant(2.0, 3.0, 6.0);
    right.Constant(0.0, 3.0, 1.0);
    Configuration config;
    std::vector<double> samples;
    std::vector<ValidDataArea> areas;
    {
        Math<double, 1> m;
        m.item->SetAttribute("exportable", "1");
        m.Link(left.item.get(), right.item.get());
        m.math->CalcRange(0.0, 3.0);
        samples = ReadAll<double>(m.math->GetStorage("Wave"));
        areas = ReadAll<ValidDataArea>(m.math->GetStorage("Area"));
        const SerializeConfig save{1};
        QueryInterface<ISerializable>(m.item.get())->Serialize(context(config), &save);
        fs::create_directories(dir / "__old__");
        for (const auto& [name, id] :
             DataSetSerializationHelper::DecodeFileTable(config.GetString("waves/math/files/value")))
            fs::copy_file(dir / "work" / id, dir / "__old__" / id);
    }
    ASSERT_EQ(areas.size(), 2u);
    ASSERT_EQ(samples.size(), 1026u);

    ProjectFileManager::instance().SetProjectFolder(dir.string());
    Math<double, 1> loaded;
    ASSERT_TRUE(QueryInterface<ISerializable>(loaded.item.get())->Deserialize(context(config)));
    EXPECT_EQ(ReadAll<double>(loaded.math->GetStorage("Wave")), samples);
    const auto back = ReadAll<ValidDataArea>(loaded.math->GetStorage("Area"));
    ASSERT_EQ(back.size(), areas.size());
    EXPECT_EQ(std::memcmp(back.data(), areas.data(), areas.size() * sizeof(ValidDataArea)), 0);
    double value = 0;
    ASSERT_TRUE(QueryInterface<IBasicWaveReader>(loaded.item.get())->At(2.5, value));
    EXPECT_EQ(value, 5.0);

    std::error_code ignored;
    fs::remove_all(dir, ignored);
}

}  // namespace
