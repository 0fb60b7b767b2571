// Wave dataset types made by the type creators "WaveDatasetType" and
// "WaveDatasetTypeEx": their items are configured by the type's init object, write and
// read back, and the names resolve as documented.

#include "common/common_wave_dataset.h"
#include "common/common_wave_indexer.h"
#include "common/common_wave_reader.h"
#include "common/common_wave_type.h"
#include "common_test_scope.h"
#include "host/base_ctr.h"
#include "host/item_type.h"
#include "storage/storage_base.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace {

using common_tests::Scope;
using testing_support::LogCapture;

IItemType* TypeFromXml(const std::string& xml) {
    pugi::xml_document document;
    EXPECT_TRUE(document.load_string(xml.c_str()));
    ILocalSource::TypeCreator creator = Scope().GetTypeCreator("WaveDatasetType", true);
    EXPECT_NE(creator, nullptr);
    return creator ? creator(document.document_element(), &Scope()) : nullptr;
}

IItemType* TypeFromName(const std::string& name) {
    ILocalSource::TypeCreatorEx creator = Scope().GetTypeCreatorEx("WaveDatasetTypeEx", true);
    EXPECT_NE(creator, nullptr);
    return creator ? creator(name, &Scope()) : nullptr;
}

std::unique_ptr<IBaseCtr> ItemFromXml(const std::string& name, const std::string& type) {
    pugi::xml_document document;
    EXPECT_TRUE(document.load_string(("<item name=\"" + name + "\" type=\"" + type +
                                      "\" dtype=\"INT8\"><item name=\"dataAxis\" type=\"AXIS\"/></item>")
                                         .c_str()));
    return std::unique_ptr<IBaseCtr>(CreateItemByXmlNote(&Scope(), document.document_element()));
}

// Pushes 0..n-1 at 1 kHz and reads them back: single samples and min/max pairs.
template <class T>
void WriteAndReadBack(IBaseCtr* item, int n, unsigned step) {
    CommonWaveDataSet* dataset = QueryInterface<CommonWaveDataSet>(item).get();
    ASSERT_NE(dataset, nullptr);
    dataset->SetSampleRate(1000);
    std::vector<T> values(n);
    for (int i = 0; i < n; ++i) values[i] = static_cast<T>(i);
    Ctr<IWaveWriter> writer = QueryInterface<IWaveWriter>(item);
    ASSERT_TRUE(writer);
    ASSERT_TRUE(writer->Push(VellumTime::FromNanoseconds(0), values.data(), values.size()));
    EXPECT_EQ(dataset->IndexStorage()->Count(), n / step);

    CommonWaveReader reader(nullptr, dataset);
    const VellumLevelTime ms(-3, 1);
    auto data = reader.Data();
    double value = -1;
    ASSERT_TRUE(reader.At(ms * (n - 3), data.get()));
    ASSERT_TRUE(data->GetDouble(&value));
    EXPECT_EQ(value, n - 3);
    auto pairs = reader.MinMaxData(2);
    ASSERT_EQ(reader.ReadMinMax(ms * 0, ms * n, pairs.get()), 2u);
    double min = 0, max = 0;
    ASSERT_TRUE(pairs->PairDouble(1, &min, &max));
    EXPECT_EQ(max, n - 1);
}

TEST(WaveDatasetType, ATypeFromXmlMakesConfiguredItemsThatWriteAndReadBack) {
    IItemType* type = TypeFromXml(R"(<WaveType name="TEST_INT16_WAVE">
        <__main__ dtype="INT16" vtype="INT16" step="10" id="w16">
          <storage><Wave type="File;"/><Scratch type="File;4"/></storage>
          <index><default comment="by type"/></index>
        </__main__>
        <PublicAttr unit="mV" caption="Probe"/>
      </WaveType>)");
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(Scope().GetLocalItemType("TEST_INT16_WAVE", false), type);
    EXPECT_EQ(type->GetAttribute("unit"), "mV");
    EXPECT_EQ(type->GetAttribute("caption"), "Probe");
    IBaseCtr* main = type->GetItem("__main__", false);
    ASSERT_TRUE(QueryInterface<CommonWaveDataSetInit>(main));
    auto* wave_type = dynamic_cast<CommonWaveDatasetType*>(type);
    ASSERT_NE(wave_type, nullptr);
    EXPECT_EQ(wave_type->MainItem(), main);
    EXPECT_EQ(wave_type->MainObject()->Id(), "w16");
    EXPECT_EQ(main->GetChildItem("PublicAttr")->GetAttribute("unit"), "mV");

    LogCapture log;
    auto item = ItemFromXml("typedWave", "TEST_INT16_WAVE");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->GetChildItem(IDataSetEx::INIT_OBJECT_NAME), main);
    CommonWaveDataSet* dataset = QueryInterface<CommonWaveDataSet>(item.get()).get();
    ASSERT_NE(dataset, nullptr);
    EXPECT_EQ(dataset->GetDataType(), 2);  // INT16 from the type, not the item's INT8
    EXPECT_NE(dataset->StorageGroup()->GetStorage("Scratch"), nullptr);
    ASSERT_NE(dataset->MainIndexer(), nullptr);
    EXPECT_EQ(dataset->MainIndexer()->Step(), 10u);
    EXPECT_EQ(dataset->MainIndexer()->GetAttribute("comment"), "by type");
    EXPECT_FALSE(log.ContainsSubstring("duplicated index"));  // configured once
    WriteAndReadBack<int16_t>(item.get(), 40, 10);

    // Made by type name instead of XML: the same configuration; and items don't share data.
    std::unique_ptr<IBaseCtr> second(CreateItemByType(&Scope(), "TEST_INT16_WAVE", "typedWave2"));
    ASSERT_TRUE(second);
    CommonWaveDataSet* other = QueryInterface<CommonWaveDataSet>(second.get()).get();
    EXPECT_EQ(other->GetDataType(), 2);
    EXPECT_EQ(other->MainIndexer()->Step(), 10u);
    EXPECT_EQ(other->WaveStorage()->Count(), 0u);
    EXPECT_EQ(dataset->WaveStorage()->Count(), 40u);
}

TEST(WaveDatasetType, NamesTakenMissingOrDefinedTwice) {
    LogCapture log;
    EXPECT_EQ(TypeFromXml(R"(<WaveType><__main__ dtype="FLOAT"/></WaveType>)"), nullptr);
    EXPECT_EQ(TypeFromXml(R"(<WaveType name="WaveDataset"><__main__ dtype="FLOAT"/></WaveType>)"), nullptr);
    EXPECT_TRUE(log.ContainsSubstring("the name is taken"));

    IItemType* first = TypeFromXml(R"(<WaveType name="TEST_TWICE"><__main__ dtype="FLOAT"/></WaveType>)");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(TypeFromXml(R"(<WaveType name="TEST_TWICE"><__main__ dtype="DOUBLE"/></WaveType>)"), first);
    EXPECT_TRUE(log.ContainsSubstring("defined already"));
    std::unique_ptr<IBaseCtr> item(CreateItemByType(&Scope(), "TEST_TWICE", "twice"));
    ASSERT_TRUE(item);
    EXPECT_EQ(QueryInterface<CommonWaveDataSet>(item.get())->GetDataType(), 8);  // the first definition
}

TEST(WaveDatasetTypeEx, ATypeByNameTakesTheElementTypeFromTheName) {
    IItemType* type = TypeFromName("TEST_WAVE[UINT32]");
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(TypeFromName("TEST_WAVE[UINT32]"), type);  // asked again: the same type
    auto item = ItemFromXml("byName", "TEST_WAVE[UINT32]");
    ASSERT_TRUE(item);
    CommonWaveDataSet* dataset = QueryInterface<CommonWaveDataSet>(item.get()).get();
    ASSERT_NE(dataset, nullptr);
    EXPECT_EQ(dataset->GetDataType(), 6);
    // The default storages and main indexer, with the step the indexer derives: 1 ms
    // gives 100 samples per entry.
    EXPECT_EQ(dataset->WaveStorage()->UnitSize(), 4u);
    EXPECT_EQ(dataset->IndexStorage()->UnitSize(), 8u);
    EXPECT_EQ(dataset->AreaStorage()->UnitSize(), 48u);
    WriteAndReadBack<uint32_t>(item.get(), 300, 100);

    IItemType* bare = TypeFromName("double");
    ASSERT_NE(bare, nullptr);
    std::unique_ptr<IBaseCtr> plain(CreateItemByType(&Scope(), "double", "plain"));
    ASSERT_TRUE(plain);
    EXPECT_EQ(QueryInterface<CommonWaveDataSet>(plain.get())->GetDataType(), 9);

    LogCapture log;
    EXPECT_EQ(TypeFromName("TEST_WAVE[NOPE]"), nullptr);
    EXPECT_EQ(TypeFromName("TEST_WAVE[UINT32"), nullptr);
    EXPECT_EQ(TypeFromName(""), nullptr);
    EXPECT_EQ(TypeFromName("WaveDataset"), nullptr);  // the name of another type
    EXPECT_TRUE(log.ContainsSubstring("unknown element type \"NOPE\""));
    EXPECT_EQ(Scope().GetLocalItemType("TEST_WAVE[NOPE]", false), nullptr);
}

}  // namespace
