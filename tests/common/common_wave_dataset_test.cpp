// The common wave dataset: types, periods, storages from declarations, indexers, the
// write path with its areas, the init object.

#include "common/common_wave_dataset.h"
#include "common/common_wave_indexer.h"
#include "common/wave_type_ops.h"
#include "common_test_scope.h"
#include "host/base_ctr.h"
#include "host/item_binding.h"
#include "storage/device_channels.h"
#include "storage/storage_base.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>

namespace {

using common_tests::Scope;
using testing_support::LogCapture;

std::unique_ptr<IBaseCtr> MakeItem(const std::string& xml) {
    pugi::xml_document document;
    EXPECT_TRUE(document.load_string(xml.c_str()));
    return std::unique_ptr<IBaseCtr>(CreateItemByXmlNote(&Scope(), document.document_element()));
}

CommonWaveDataSet* Dataset(IBaseCtr* item) { return QueryInterface<CommonWaveDataSet>(item).get(); }

TEST(WaveTypeOps, TenCodesWithTheirWidthsAndOrder) {
    const std::size_t widths[10] = {1, 1, 2, 2, 4, 8, 4, 8, 4, 8};
    for (int code = 0; code < 10; ++code) {
        const WaveTypeOps* row = WaveTypeOpsByCode(code);
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->code, code);
        EXPECT_EQ(row->size, widths[code]) << row->name;
        EXPECT_EQ(WaveTypeOpsByName(row->name), row);
    }
    EXPECT_EQ(WaveTypeOpsByCode(-1), nullptr);
    EXPECT_EQ(WaveTypeOpsByCode(10), nullptr);
    EXPECT_EQ(WaveTypeOpsByName("BOOL"), nullptr);
    EXPECT_EQ(WaveTypeOpsByName("float"), WaveTypeOpsByCode(8));

    // Elements compare in their own type: no loss for 64-bit integers.
    const WaveTypeOps* u64 = WaveTypeOpsByName("UINT64");
    const uint64_t a = (1ull << 60) + 1, b = (1ull << 60);
    EXPECT_GT(u64->compare(&a, &b), 0);
    EXPECT_LT(u64->compare(&b, &a), 0);
    const WaveTypeOps* i8 = WaveTypeOpsByName("INT8");
    const int8_t m = -5, p = 3;
    EXPECT_LT(i8->compare(&m, &p), 0);
    int8_t out = 0;
    i8->from_double(300.0, &out);
    EXPECT_EQ(out, 127);
}

TEST(CommonWaveDataSet, SamplePeriodIsASmallIntegerTimesAPowerOfTen) {
    CommonWaveDataSet dataset;
    auto period = [&](double rate) {
        dataset.SetSampleRate(rate);
        return dataset.SamplePeriod();
    };
    EXPECT_EQ(period(1000), VellumLevelTime(-3, 1));
    EXPECT_EQ(period(0), VellumLevelTime(-3, 1));
    EXPECT_EQ(period(-5), VellumLevelTime(-3, 1));
    EXPECT_EQ(period(1e9), VellumLevelTime(-9, 1));
    EXPECT_EQ(period(2.5e6), VellumLevelTime(-7, 4));
    EXPECT_EQ(period(3), VellumLevelTime(-4, 3333));  // a rate of 3: within 0.1% of a third
    EXPECT_EQ(period(std::numeric_limits<double>::infinity()), VellumLevelTime());

    dataset.SetSampleRate(1000);
    EXPECT_EQ(dataset.TimeUnit(), VellumLevelTime(-3, 1));
    dataset.SetNanosecondTime(true);
    EXPECT_EQ(dataset.TimeUnit(), VellumLevelTime(-9, 1));
}

TEST(CommonWaveDataSet, StoragesFromDeclarationsByKindAndName) {
    const std::string path = common_tests::TempFolder("ext") + "/ext.bin";
    {
        const float values[3] = {1, 2, 3};
        FILE* file = std::fopen(path.c_str(), "wb");
        ASSERT_NE(file, nullptr);
        std::fwrite(values, sizeof values, 1, file);
        std::fclose(file);
    }
    auto buffer_item = MakeItem(R"(<item name="cwBuffer" type="TEST_BUFFER" areas="0:2:0:2"/>)");
    ASSERT_TRUE(buffer_item);
    LogCapture log;
    auto item = MakeItem("<item name=\"cw\" type=\"WaveDataset\" dtype=\"FLOAT\"><storage>"
                         "<Wave type=\"extfile;" + path + "\"/><Area type=\"MEM;cwBuffer\"/>"
                         "<Extra type=\"weird;16\"/><Bare type=\"24\"/><Lost type=\"Mem;noSuchItem\"/>"
                         "<Odd type=\"File;-3\"/></storage></item>");
    ASSERT_TRUE(item);
    EXPECT_TRUE(log.Contains(LogLevel::Warning, "storage Odd: no unit size in \"File;-3\""));
    CommonWaveDataSet* dataset = Dataset(item.get());
    ASSERT_NE(dataset, nullptr);
    IDataSetBase* group = dataset->StorageGroup();
    ASSERT_NE(group->GetStorage("Wave"), nullptr);
    EXPECT_EQ(group->GetStorage("Wave")->Count(), 3u);  // the external file's three floats
    EXPECT_EQ(group->GetStorage("Area")->Count(), 1u);  // the buffer's one area
    EXPECT_EQ(group->GetStorage("Area")->UnitSize(), 48u);
    // Index is made on a new file with two elements per unit.
    ASSERT_NE(group->GetStorage("Index"), nullptr);
    EXPECT_EQ(group->GetStorage("Index")->UnitSize(), 8u);
    // Other names take their unit from the argument; an unknown kind is a file.
    ASSERT_NE(group->GetStorage("Extra"), nullptr);
    EXPECT_EQ(group->GetStorage("Extra")->UnitSize(), 16u);
    ASSERT_NE(group->GetStorage("Bare"), nullptr);  // no ';': the text is the argument
    EXPECT_EQ(group->GetStorage("Bare")->UnitSize(), 24u);
    EXPECT_EQ(group->GetStorage("Lost"), nullptr);   // a missing buffer item skips the entry
    EXPECT_EQ(group->GetStorage("Odd"), nullptr);
    EXPECT_EQ(group->GetStorage(""), group->GetStorage("Wave"));  // the main storage
}

TEST(CommonWaveDataSet, IndexersAreNamedOnceAndResetTogether) {
    CommonWaveDataSet dataset;
    dataset.SetDataType("INT16", true);
    dataset.CreateStorages({}, nullptr, {});
    CommonWaveMaxMinIndexer first, second;
    first.SetAttribute("step", "2");
    ASSERT_TRUE(dataset.AddIndexer("a", &first));
    LogCapture log;
    EXPECT_FALSE(dataset.AddIndexer("a", &second));
    EXPECT_TRUE(log.Contains(LogLevel::Warning, "duplicated index a"));
    EXPECT_EQ(dataset.IndexerNames(), std::vector<std::string>{"a"});

    const int16_t samples[4] = {1, 2, 3, 4};
    ASSERT_TRUE(dataset.Push(VellumTime::FromNanoseconds(0), samples, 4));
    EXPECT_EQ(first.IndexStorage()->Count(), 2u);
    dataset.ResetIndexer("__ALL__");
    EXPECT_EQ(first.IndexStorage()->Count(), 0u);

    // SetIndexStep makes the main indexer when there is none.
    EXPECT_EQ(dataset.MainIndexer(), nullptr);
    dataset.SetIndexStep(7);
    ASSERT_NE(dataset.MainIndexer(), nullptr);
    EXPECT_EQ(dataset.MainIndexer()->Step(), 7u);
    EXPECT_NE(dataset.FindIndexer(CommonWaveDataSet::kMainIndexerName), nullptr);
}

TEST(CommonWaveDataSet, WritesKeepTheLastAreaAndCloseItOnAGap) {
    CommonWaveDataSet dataset;
    dataset.SetSampleRate(1e6);  // 1 us
    dataset.SetDataType("UINT8", true);
    dataset.CreateStorages({}, nullptr, {});
    const uint8_t block[5] = {1, 2, 3, 4, 5};
    const VellumLevelTime us = dataset.SamplePeriod();
    ASSERT_TRUE(dataset.Push(us * 10, block, 5));
    ASSERT_TRUE(dataset.Push(us * 15, block, 5));  // continues the run
    EXPECT_EQ(dataset.AreaStorage()->Count(), 0u);
    EXPECT_EQ(dataset.LastArea().start_time, 10);
    EXPECT_EQ(dataset.LastArea().end_time, 19);

    ASSERT_TRUE(dataset.Push(us * 100, block, 2));  // a gap ends the run
    ASSERT_EQ(dataset.AreaStorage()->Count(), 1u);
    ValidDataArea closed{};
    dataset.AreaStorage()->Read(0, &closed, 1);
    EXPECT_EQ(closed.start_time, 10);
    EXPECT_EQ(closed.end_time, 19);
    EXPECT_EQ(closed.wave_beg_pos, 0u);
    EXPECT_EQ(closed.wave_end_pos, 9u);
    EXPECT_EQ(dataset.LastArea().start_time, 100);
    EXPECT_EQ(dataset.LastArea().wave_beg_pos, 10u);
    EXPECT_EQ(dataset.LastArea().wave_end_pos, 11u);

    EXPECT_FALSE(dataset.Push(us * 200, nullptr, 3));
    EXPECT_FALSE(dataset.Push(us * 200, block, 0));
    EXPECT_EQ(dataset.WaveStorage()->Count(), 12u);

    // "Clear" empties storages and indexers, and forgets the area.
    dataset.Group().Clear();
    EXPECT_EQ(dataset.WaveStorage()->Count(), 0u);
    EXPECT_EQ(dataset.LastArea().end_time, 0);
}

TEST(CommonWaveDataSet, WithoutATypeNothingIsWritten) {
    CommonWaveDataSet dataset;
    dataset.CreateStorages({}, nullptr, {});
    EXPECT_EQ(dataset.WaveStorage()->UnitSize(), 0u);  // the empty row's width
    const double values[2] = {1, 2};
    EXPECT_FALSE(dataset.Push(VellumTime::FromNanoseconds(0), values, 2));
    // A type set later gives the empty storage its width.
    ASSERT_TRUE(dataset.SetDataType("DOUBLE", true));
    EXPECT_EQ(dataset.WaveStorage()->UnitSize(), 8u);
    EXPECT_TRUE(dataset.Push(VellumTime::FromNanoseconds(0), values, 2));
}

TEST(CommonWaveDataSet, XmlDefinitionBuildsTypeStoragesAndIndexers) {
    LogCapture log;
    auto item = MakeItem(R"(<item name="cwx" type="WaveDataset" dtype="INT32">
        <storage><Wave type="File;"/></storage>
        <index><default id="mm" step="25" comment="main"/><item name="bad" type="NoSuchType" id="x"/></index>
      </item>)");
    ASSERT_TRUE(item);
    CommonWaveDataSet* dataset = Dataset(item.get());
    EXPECT_EQ(dataset->GetDataType(), 4);
    ASSERT_NE(dataset->MainIndexer(), nullptr);
    EXPECT_EQ(dataset->MainIndexer()->Step(), 25u);
    EXPECT_EQ(dataset->MainIndexer()->GetAttribute("comment"), "main");
    EXPECT_EQ(dataset->IndexerNames(), std::vector<std::string>{CommonWaveDataSet::kMainIndexerName});
    EXPECT_TRUE(log.ContainsSubstring("NoSuchType"));  // the failed indexer item is logged, not fatal
    EXPECT_EQ(dataset->WaveStorage()->UnitSize(), 4u);
    EXPECT_TRUE(item->OnCMD("clear", nullptr));
}

TEST(CommonWaveDataSet, AnInitObjectConfiguresTheDatasetInsteadOfItsXml) {
    auto item = MakeItem(R"(<item name="cwi" type="WaveDataset" dtype="INT8">
        <item name="__InitObject__" type="WaveDatasetInit">
          <__main__ dtype="UINT16" vtype="UINT16" step="8" id="i">
            <storage><Area type="File;"/></storage>
            <index><default comment="from init"/></index>
          </__main__>
          <PublicAttr unit="V" caption="Volt"/>
        </item>
        <storage><Extra type="File;4"/></storage>
      </item>)");
    ASSERT_TRUE(item);
    CommonWaveDataSet* dataset = Dataset(item.get());
    EXPECT_TRUE(dataset->Configured());
    EXPECT_EQ(dataset->GetDataType(), 3);  // UINT16 from the init object, not INT8
    EXPECT_EQ(dataset->StorageGroup()->GetStorage("Extra"), nullptr);
    EXPECT_NE(dataset->StorageGroup()->GetStorage("Area"), nullptr);
    ASSERT_NE(dataset->MainIndexer(), nullptr);
    EXPECT_EQ(dataset->MainIndexer()->Step(), 8u);
    EXPECT_EQ(dataset->MainIndexer()->GetAttribute("comment"), "from init");

    IBaseCtr* init_item = item->GetChildItem(IDataSetEx::INIT_OBJECT_NAME);
    Ctr<CommonWaveDataSetInit> init = QueryInterface<CommonWaveDataSetInit>(init_item);
    ASSERT_TRUE(init);
    EXPECT_EQ(init->ValueType(), "UINT16");
    EXPECT_EQ(init->Id(), "i");
    IBaseCtr* attributes = init_item->GetChildItem("PublicAttr");
    ASSERT_NE(attributes, nullptr);
    EXPECT_EQ(attributes, init->PublicAttributes());
    EXPECT_EQ(attributes->GetAttribute("unit"), "V");
    EXPECT_EQ(init->PublicAttribute("caption"), "Volt");
    EXPECT_EQ(init->PublicAttribute("dtype"), "");
}

TEST(CommonWaveDataSetInit, ANodeWithoutMainObjectIsItsOwnAndPublicAttrIsAlwaysMade) {
    auto item = MakeItem(R"(<item name="cwi2" type="WaveDatasetInit" dtype="DOUBLE" step="0"/>)");
    ASSERT_TRUE(item);
    Ctr<CommonWaveDataSetInit> init = QueryInterface<CommonWaveDataSetInit>(item.get());
    ASSERT_TRUE(init);
    EXPECT_EQ(init->DataType(), "DOUBLE");
    EXPECT_EQ(init->Step(), 0u);  // not a step: the indexer derives its own
    ASSERT_NE(item->GetChildItem("PublicAttr"), nullptr);
    EXPECT_EQ(item->GetChildItem("PublicAttr")->GetAttribute("unit"), "");

    // Without an item the init object keeps "PublicAttr" itself.
    CommonWaveDataSetInit loose;
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(R"(<x><__main__ dtype="INT8"/><PublicAttr unit="A"/></x>)"));
    ASSERT_TRUE(loose.InitItemByXML(&Scope(), nullptr, document.document_element()));
    EXPECT_EQ(loose.DataType(), "INT8");
    EXPECT_EQ(loose.PublicAttribute("unit"), "A");
    CommonWaveDataSet dataset;
    EXPECT_TRUE(loose.InitDataset(&dataset, &Scope()));
    EXPECT_EQ(dataset.GetDataType(), 0);
    EXPECT_FALSE(loose.InitDataset(nullptr, &Scope()));
}

}  // namespace
