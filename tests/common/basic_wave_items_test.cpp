// The typed reader and writer items over a declared dataset: keys from the options and
// the width checks.

#include "common/basic_wave_items.h"
#include "common/xml_dataset.h"
#include "common_test_scope.h"
#include "host/base_ctr.h"
#include "host/item_type.h"
#include "storage/storage_base.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using common_tests::Scope;

// Storages: the float triple, a second float triple, a double wave, and an index of
// the wrong width for floats.
class BasicWaveItemsTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        pugi::xml_document type;
        ASSERT_TRUE(type.load_string(R"(<dataset name="XDS_ITEMS"><storages>
              <file key="Wave" vtype="FLOAT"/><file key="Index" vtype="MinMaxF32"/><file key="Area" vtype="ValidDataArea"/>
              <file key="W2" vtype="FLOAT"/><file key="I2" vtype="MinMaxF32"/>
              <file key="W8" vtype="DOUBLE"/><file key="I4" vtype="FLOAT"/>
            </storages></dataset>)"));
        ASSERT_NE(CreateXmlDatasetType(type.document_element(), &Scope()), nullptr);
    }
    void SetUp() override {
        pugi::xml_document document;
        ASSERT_TRUE(document.load_string(R"(<item name="items" type="XDS_ITEMS">
              <item name="sizeAxis" type="AXIS" init="ratio=1e-3,index_step=10"/></item>)"));
        item.reset(CreateItemByXmlNote(&Scope(), document.document_element()));
        ASSERT_TRUE(item);
    }
    std::unique_ptr<IBaseCtr> item;
};

TEST_F(BasicWaveItemsTest, EmptyOptionsTakeTheDefaultKeys) {
    BasicWaveReader<float> reader;
    EXPECT_TRUE(reader.Init(item.get(), ""));
    ASSERT_NE(reader.Reader(), nullptr);
    BasicWaveWriter<float> writer;
    EXPECT_TRUE(writer.Init(item.get(), ""));
    const float samples[3] = {4, 5, 6};
    EXPECT_EQ(writer.Push(samples, 3), 3u);
    EXPECT_EQ(QueryInterface<XmlDataset>(item.get())->GetStorage("Wave")->Count(), 3u);
}

TEST_F(BasicWaveItemsTest, GivenKeysReplaceTheirDefaultsOnly) {
    BasicWaveWriter<float> writer;
    ASSERT_TRUE(writer.Init(item.get(), "wave=W2; index:I2"));
    const float samples[2] = {7, 8};
    ASSERT_EQ(writer.Push(samples, 2), 2u);
    ValidDataArea area{0, 1000000, 0, 1, 0, 1};
    EXPECT_EQ(writer.Push(&area, 1), 1u);
    Ctr<XmlDataset> dataset = QueryInterface<XmlDataset>(item.get());
    EXPECT_EQ(dataset->GetStorage("W2")->Count(), 2u);
    EXPECT_EQ(dataset->GetStorage("Wave")->Count(), 0u);
    EXPECT_EQ(dataset->GetStorage("Area")->Count(), 1u);  // "area" was not given

    BasicWaveReader<float> reader;
    ASSERT_TRUE(reader.Init(item.get(), "wave=W2;index=I2"));
    double value = 0;
    ASSERT_TRUE(reader.Reader()->At(0.001, value));
    EXPECT_EQ(value, 8.0);
}

TEST_F(BasicWaveItemsTest, WrongWidthsAndMissingStoragesAreRefused) {
    BasicWaveReader<float> reader;
    BasicWaveWriter<float> writer;
    EXPECT_FALSE(reader.Init(item.get(), "index=I4"));  // 4 bytes, not 8
    EXPECT_EQ(reader.Reader(), nullptr);
    EXPECT_FALSE(writer.Init(item.get(), "index=I4"));
    const float sample = 1;
    EXPECT_EQ(writer.Push(&sample, 1), 0u);  // a refused writer writes nothing
    EXPECT_FALSE(reader.Init(item.get(), "wave=W8"));  // a double wave for a float reader
    EXPECT_FALSE(reader.Init(item.get(), "area=Nothing"));
    BasicWaveReader<double> wide;
    EXPECT_FALSE(wide.Init(item.get(), "wave=W8"));  // its index is still "Index", of floats

    // Without a dataset, or on an item that is not a declared dataset.
    EXPECT_FALSE(reader.Init(nullptr, ""));
    auto axis = std::unique_ptr<IBaseCtr>(CreateItemByType(&Scope(), "AXIS", "notADataset"));
    EXPECT_FALSE(reader.Init(axis.get(), ""));
    EXPECT_FALSE(writer.Init(axis.get(), ""));
    // A failed Init keeps nothing built: the item answers no reader.
    EXPECT_EQ(reader.GetExtendCtr(VellumTypeOf<IBasicWaveReader>(), false, ""), nullptr);
}

TEST_F(BasicWaveItemsTest, TheTwentyItemsAndTheirPublicFaceAreRegistered) {
    for (const char* role : {"Reader", "Writer"}) {
        for (const char* type : {"u8", "u16", "u32", "u64", "i8", "i16", "i32", "i64", "f32", "f64"}) {
            const std::string name = std::string("BasicWave") + role + "_" + type;
            EXPECT_NE(Scope().GetLocalItemType(name, true), nullptr) << name;
        }
    }
    IItemType* face = Scope().GetLocalItemType("IBasicWaveReader", true);
    ASSERT_NE(face, nullptr);
    EXPECT_TRUE(*face->ObjectType() == VellumTypeOf<IBasicWaveReader>());
    EXPECT_EQ(face->CreateItem("x"), nullptr);
    EXPECT_EQ(Scope().GetLocalItemType("BasicWaveReader_f80", true), nullptr);  // no long double item
}

}  // namespace
