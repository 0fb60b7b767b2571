// The read side of the common wave dataset: ranges, single samples, runs, min/max pairs
// from samples and from the index, and values in the data axis' unit.

#include "common/common_wave_dataset.h"
#include "common/common_wave_reader.h"
#include "common/wave_result_data.h"
#include "common_test_scope.h"
#include "dataset/axis.h"
#include "host/base_ctr.h"
#include "storage/storage_base.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

namespace {

// Samples 0..99 as one push at sample 0, a gap, then 1000..1019 at sample 200; 1 kHz,
// an index step of 10.
class CommonReaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        pugi::xml_document document;
        ASSERT_TRUE(document.load_string(R"(<item name="cwread" type="WaveDataset" dtype="INT16">
              <item name="dataAxis" type="AXIS"/>
              <index><default step="10"/></index>
            </item>)"));
        item.reset(CreateItemByXmlNote(&common_tests::Scope(), document.document_element()));
        ASSERT_TRUE(item);
        dataset = QueryInterface<CommonWaveDataSet>(item.get()).get();
        dataset->SetSampleRate(1000);
        std::vector<int16_t> first(100), second(20);
        for (int i = 0; i < 100; ++i) first[i] = static_cast<int16_t>(i);
        for (int i = 0; i < 20; ++i) second[i] = static_cast<int16_t>(1000 + i);
        ASSERT_TRUE(dataset->Push(Ms(0), first.data(), first.size()));
        ASSERT_TRUE(dataset->Push(Ms(200), second.data(), second.size()));
        reader = std::make_unique<CommonWaveReader>(nullptr, dataset);
    }
    static VellumTime Ms(int64_t ms) { return VellumTime::FromNanoseconds(ms * 1000000); }
    IRatio* Axis() { return QueryInterface<IRatio>(item->GetChildItem("dataAxis")).get(); }

    std::unique_ptr<IBaseCtr> item;
    CommonWaveDataSet* dataset = nullptr;
    std::unique_ptr<CommonWaveReader> reader;
};

TEST_F(CommonReaderTest, ValidRangeAndCountsCutToIt) {
    VellumTime begin, end;
    ASSERT_TRUE(reader->ValidRange(begin, end));
    EXPECT_EQ(begin, Ms(0));
    EXPECT_EQ(end, Ms(219));
    EXPECT_EQ(reader->Count(Ms(-1000), Ms(10000)), 219u);
    EXPECT_EQ(reader->Count(Ms(10), Ms(20)), 10u);
    EXPECT_EQ(reader->Count(Ms(300), Ms(400)), 0u);  // outside the data
    EXPECT_EQ(reader->Count(Ms(-400), Ms(-300)), 0u);
}

TEST_F(CommonReaderTest, AtFindsTheRunOfATimeOrFails) {
    auto data = reader->Data();
    int64_t value = 0;
    ASSERT_TRUE(reader->At(Ms(50), data.get()));
    ASSERT_TRUE(data->GetInt(&value));
    EXPECT_EQ(value, 50);
    EXPECT_FALSE(reader->At(Ms(150), data.get()));  // in the gap
    ASSERT_TRUE(reader->At(Ms(205), data.get()));   // the last area, not yet stored
    ASSERT_TRUE(data->GetInt(&value));
    EXPECT_EQ(value, 1005);
    EXPECT_FALSE(reader->At(Ms(500), data.get()));

    // Values come in the data axis' unit.
    Axis()->SetRatioOffset(0.5, 1.0);
    double converted = 0;
    std::string text;
    ASSERT_TRUE(data->GetDouble(&converted));
    EXPECT_DOUBLE_EQ(converted, 503.5);
    ASSERT_TRUE(data->GetText(&text));
    EXPECT_EQ(text, "503.5");
    ASSERT_TRUE(data->GetInt(&value));
    EXPECT_EQ(value, 503);
}

TEST_F(CommonReaderTest, ReadDataStaysWithinOneRun) {
    auto array = reader->DataArray(200);
    EXPECT_EQ(reader->ReadData(Ms(90), array.get()), 10u);
    ASSERT_EQ(array->Count(), 10u);
    EXPECT_EQ(array->At(0), 90.0);
    EXPECT_EQ(array->At(9), 99.0);
    EXPECT_TRUE(std::isnan(array->At(10)));
    std::vector<uint32_t> ints(10);
    ASSERT_TRUE(array->GetInt(ints.data()));
    EXPECT_EQ(ints[3], 93u);
    EXPECT_EQ(reader->ReadData(Ms(150), array.get()), 0u);
    EXPECT_EQ(array->Count(), 0u);
}

TEST_F(CommonReaderTest, MinMaxFromSamplesBelowTheStepAndFromTheIndexAtIt) {
    // Five samples a column: a raw scan.
    auto raw = reader->MinMaxData(4);
    ASSERT_EQ(reader->ReadMinMax(Ms(20), Ms(40), raw.get()), 4u);
    std::vector<int64_t> pairs(8);
    ASSERT_TRUE(raw->GetInt(pairs.data()));
    EXPECT_EQ(pairs, (std::vector<int64_t>{20, 24, 25, 29, 30, 34, 35, 39}));

    // Twenty samples a column: whole index entries. Each entry of this single push
    // restarted from the push's first element (0), so the index shows minima of 0
    // where the samples alone would not.
    auto indexed = reader->MinMaxData(5);
    ASSERT_EQ(reader->ReadMinMax(Ms(0), Ms(100), indexed.get()), 5u);
    double min = 0, max = 0;
    ASSERT_TRUE(indexed->PairDouble(1, &min, &max));
    EXPECT_EQ(min, 0.0);
    EXPECT_EQ(max, 39.0);
    ASSERT_TRUE(indexed->PairDouble(4, &min, &max));
    EXPECT_EQ(max, 99.0);
    std::string text;
    ASSERT_TRUE(indexed->PairText(0, &text));
    EXPECT_EQ(text, "0,19");
    EXPECT_FALSE(indexed->PairDouble(5, &min, &max));

    // A span that starts in the gap has no run.
    EXPECT_EQ(reader->ReadMinMax(Ms(120), Ms(180), indexed.get()), 0u);
    EXPECT_EQ(reader->ReadMinMax(Ms(50), Ms(50), indexed.get()), 0u);
}

TEST(CommonReader, WithoutADataAxisValuesAreNotConverted) {
    CommonWaveDataSet dataset;
    dataset.SetDataType("FLOAT", true);
    dataset.CreateStorages({}, nullptr, {});
    const float sample = 2.5f;
    ASSERT_TRUE(dataset.Push(VellumTime::FromNanoseconds(0), &sample, 1));
    CommonWaveReader reader(nullptr, &dataset);
    auto data = reader.Data();
    ASSERT_TRUE(reader.At(VellumTime::FromNanoseconds(0), data.get()));
    double value = 0;
    EXPECT_FALSE(data->GetDouble(&value));

    // A type changed under stored elements of another width: nothing is read or written
    // across the widths.
    ASSERT_TRUE(dataset.SetDataType("INT8", true));
    EXPECT_EQ(dataset.WaveStorage()->UnitSize(), 4u);
    const int8_t small = 1;
    EXPECT_FALSE(dataset.Push(VellumTime::FromNanoseconds(0), &small, 1));
    CommonWaveReader narrowed(nullptr, &dataset);
    EXPECT_FALSE(narrowed.At(VellumTime::FromNanoseconds(0), narrowed.Data().get()));
    auto pairs = narrowed.MinMaxData(2);
    EXPECT_EQ(narrowed.ReadMinMax(VellumTime::FromNanoseconds(0), VellumTime::FromNanoseconds(2000000), pairs.get()), 0u);
    EXPECT_EQ(narrowed.ReadData(VellumTime::FromNanoseconds(0), narrowed.DataArray(4).get()), 0u);

    CommonWaveReader empty(nullptr, nullptr);
    VellumTime begin, end;
    EXPECT_FALSE(empty.ValidRange(begin, end));
    EXPECT_EQ(empty.Count(begin, end), 0u);
    EXPECT_FALSE(empty.At(begin, empty.Data().get()));
}

}  // namespace
