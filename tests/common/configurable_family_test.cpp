// The family end to end: a dataset declared in XML on a file, an external file and a
// buffer, written through a writer item and read through a reader item; a common wave
// dataset on the same three kinds of storage, written, read through a CommonWaveReader,
// saved with the project and loaded again.

#include "common/basic_wave_items.h"
#include "common/common_wave_dataset.h"
#include "common/common_wave_reader.h"
#include "common/xml_dataset.h"
#include "common_test_scope.h"
#include "dataset/dataset_base_ex.h"
#include "host/base_ctr.h"
#include "host/configuration.h"
#include "host/project_file_manager.h"
#include "reader/basic_wave_reader.h"
#include "storage/storage_base.h"
#include "wave/struct_reader.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

namespace {

using common_tests::Scope;

std::string WriteFloats(const std::string& name, const std::vector<float>& values) {
    const std::string path = common_tests::TempFolder("family") + "/" + name;
    FILE* file = std::fopen(path.c_str(), "wb");
    EXPECT_NE(file, nullptr);
    std::fwrite(values.data(), sizeof(float), values.size(), file);
    std::fclose(file);
    return path;
}

std::vector<std::unique_ptr<IBaseCtr>> MakeItems(const std::string& xml) {
    auto items = CreateItemsFromXml(&Scope(), xml);
    EXPECT_FALSE(items.empty());
    return items;
}

TEST(ConfigurableFamily, DeclaredDatasetWrittenByAWriterItemAndReadByAReaderItem) {
    const std::string path = WriteFloats("reference.bin", {10, 20, 30, 40});
    pugi::xml_document type;
    ASSERT_TRUE(type.load_string(("<dataset name=\"XDS_FAMILY\"><storages>"
                                  "<file key=\"Wave\" vtype=\"FLOAT\" main=\"\"/>"
                                  "<file key=\"Index\" vtype=\"MinMaxF32\" init=\"version=1\"/>"
                                  "<file key=\"Area\" vtype=\"ValidDataArea\"/>"
                                  "<ext_file key=\"Reference\" vtype=\"FLOAT\" init=\"path=" + path + "\"/>"
                                  "<buffer key=\"Calibration\" vtype=\"FLOAT\" init=\"bind=familyCal\"/>"
                                  "</storages>"
                                  "<readers><reader key=\"view\" type=\"IBasicWaveReader\" factory=\"BasicWaveReader_f32\"/></readers>"
                                  "<writers><writer key=\"in\" type=\"BasicWaveWriter_f32\" factory=\"BasicWaveWriter_f32\"/></writers>"
                                  "<data_flags flags=\"basic_wave|image;tree\"/></dataset>").c_str()));
    ASSERT_NE(CreateXmlDatasetType(type.document_element(), &Scope()), nullptr);
    auto items = MakeItems(R"(<items>
        <item name="familyCal" type="TEST_BUFFER" floats="1.5,2.5"/>
        <item name="family" type="XDS_FAMILY">
          <item name="sizeAxis" type="AXIS" init="ratio=1e-3,index_step=10"/>
        </item></items>)");
    ASSERT_EQ(items.size(), 2u);
    IBaseCtr* item = items[1].get();
    Ctr<XmlDataset> dataset = QueryInterface<XmlDataset>(item);
    ASSERT_TRUE(dataset);
    EXPECT_EQ(dataset->Storages().size(), 5u);
    EXPECT_EQ(dataset->Flags(), 1281u);

    // Write 100 samples at 1 kHz with their index columns and their area.
    Ctr<BasicWaveWriter<float>> writer = QueryInterface<BasicWaveWriter<float>>(item, "in");
    ASSERT_TRUE(writer);
    StructFiller<float>* samples = writer.get();
    StructFiller<MinMaxData<float>>* columns = writer.get();
    StructFiller<ValidDataArea>* areas = writer.get();
    std::vector<float> wave(100);
    std::vector<MinMaxData<float>> index(10);
    for (int i = 0; i < 100; ++i) wave[i] = static_cast<float>(i % 7);
    for (int c = 0; c < 10; ++c) index[c] = {0, c == 3 ? 6.0f : 5.0f};
    EXPECT_EQ(samples->Push(wave.data(), wave.size()), 100u);
    EXPECT_EQ(columns->Push(index.data(), index.size()), 10u);
    const ValidDataArea area{0, 99000000, 0, 10, 0, 99};
    EXPECT_EQ(areas->Push(&area, 1), 1u);

    Ctr<IBasicWaveReader> reader = QueryInterface<IBasicWaveReader>(item, "view");
    ASSERT_TRUE(reader);
    EXPECT_EQ(QueryInterface<IBasicWaveReader>(item, "view").get(), reader.get());  // made once, kept
    double value = 0;
    ASSERT_TRUE(reader->At(0.050, value));
    EXPECT_EQ(value, 50 % 7);
    double begin = 0, end = 0;
    ASSERT_TRUE(reader->GetMaxValidRange(begin, end, false));
    EXPECT_NEAR(end, 0.099, 1e-12);

    // The external file and the buffer read through the readers filed for their keys.
    Ctr<IReader> reference = QueryInterface<IReader>(item, "Reference");
    Ctr<IReader> calibration = QueryInterface<IReader>(item, "Calibration");
    ASSERT_TRUE(reference && calibration);
    float read[4] = {};
    EXPECT_EQ(reference->Read(0, read, 4), 4u);
    EXPECT_EQ(read[3], 40.0f);
    EXPECT_EQ(calibration->Count(), 2u);
    EXPECT_EQ(calibration->Read(1, read, 1), 1u);
    EXPECT_EQ(read[0], 2.5f);
    EXPECT_FALSE(QueryInterface<IBasicWaveReader>(item, "missing"));
}

std::unique_ptr<IBaseCtr> CommonItem(const std::string& name) {
    pugi::xml_document document;
    EXPECT_TRUE(document.load_string(("<item name=\"" + name + R"(" type="WaveDataset" dtype="FLOAT">
          <item name="dataAxis" type="AXIS"/>
          <storage><Wave type="File;"/><Index type="file;"/><Area type="File;"/></storage>
          <index><default step="10"/></index>
        </item>)").c_str()));
    return std::unique_ptr<IBaseCtr>(CreateItemByXmlNote(&Scope(), document.document_element()));
}

TEST(ConfigurableFamily, CommonWaveDatasetReadSavedAndLoaded) {
    auto item = CommonItem("commonSaved");
    ASSERT_TRUE(item);
    CommonWaveDataSet* dataset = QueryInterface<CommonWaveDataSet>(item.get()).get();
    dataset->SetSampleRate(1e4);  // 100 us
    const VellumLevelTime period = dataset->SamplePeriod();
    std::vector<float> first(300), second(50);
    for (int i = 0; i < 300; ++i) first[i] = static_cast<float>(i) * 0.5f;
    for (int i = 0; i < 50; ++i) second[i] = -static_cast<float>(i);
    Ctr<IWaveWriter> writer = QueryInterface<IWaveWriter>(item.get());
    ASSERT_TRUE(writer);
    ASSERT_TRUE(writer->Push(period * 0, first.data(), first.size()));
    ASSERT_TRUE(writer->Push(period * 1000, second.data(), second.size()));

    auto check = [&](IWaveDataset* wave, const char* when) {
        SCOPED_TRACE(when);
        CommonWaveReader reader(nullptr, wave);
        VellumTime begin, end;
        ASSERT_TRUE(reader.ValidRange(begin, end));
        EXPECT_EQ(begin, period * 0);
        EXPECT_EQ(end, period * 1049);
        auto data = reader.Data();
        double value = 0;
        ASSERT_TRUE(reader.At(period * 123, data.get()));
        ASSERT_TRUE(data->GetDouble(&value));
        EXPECT_EQ(value, 61.5);
        ASSERT_TRUE(reader.At(period * 1040, data.get()));
        ASSERT_TRUE(data->GetDouble(&value));
        EXPECT_EQ(value, -40.0);
        EXPECT_FALSE(reader.At(period * 500, data.get()));
        auto pairs = reader.MinMaxData(3);
        ASSERT_EQ(reader.ReadMinMax(period * 0, period * 300, pairs.get()), 3u);
        double min = 0, max = 0;
        ASSERT_TRUE(pairs->PairDouble(2, &min, &max));
        EXPECT_EQ(max, 149.5);
    };
    check(dataset, "written");

    Configuration config;
    auto context = std::make_shared<SerializeContext>(SerializeContext{&config, "project/common"});
    Ctr<ISerializable> saving = QueryInterface<ISerializable>(item.get());
    ASSERT_TRUE(saving);
    saving->Serialize(context, nullptr);
    EXPECT_EQ(config.GetString("project/common.data_type"), "FLOAT");
    EXPECT_EQ(config.GetString("project/common.sample_rate"), "10000");
    ASSERT_FALSE(config.GetString("project/common/files/value").empty());

    // A loaded project finds its files under "__old__" of the project folder.
    namespace fs = std::filesystem;
    const fs::path folder = ProjectFileManager::instance().GetProjectFolder();
    fs::create_directories(folder / "__old__");
    for (const auto& [storage, entry] : DataSetBaseEx::DecodeRecord(config.GetString("project/common/files/value"))) {
        ASSERT_FALSE(entry.second.empty()) << storage;
        fs::copy_file(folder / entry.second, folder / "__old__" / entry.second, fs::copy_options::overwrite_existing);
    }

    auto loaded_item = CommonItem("commonLoaded");
    ASSERT_TRUE(loaded_item);
    CommonWaveDataSet* loaded = QueryInterface<CommonWaveDataSet>(loaded_item.get()).get();
    EXPECT_EQ(loaded->SampleRate(), 0.0);
    ASSERT_TRUE(QueryInterface<ISerializable>(loaded_item.get())->Deserialize(context));
    EXPECT_EQ(loaded->SampleRate(), 1e4);
    EXPECT_EQ(loaded->GetDataType(), 8);
    EXPECT_EQ(loaded->Group().CurrentGroup(), "__imported__");
    check(loaded, "loaded");
}

}  // namespace
