// The HDF5 export read back with the HDF5 C API: the samples, areas and index columns
// equal what the dataset's readers give, a span holds exactly its samples, and a failed
// export leaves no file under the target name.

#include "common/hdf5_export.h"
#include "support/test_wave.h"
#include "wave/wave_producer.h"

#include <gtest/gtest.h>
#include <hdf5.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// A float wave of two runs: 30000 samples from 0 s and 12345 from 0.05 s, 1 µs apart,
// an index column per 100 samples.
struct TwoRunWave : testing_support::TestWave<float> {
    std::vector<float> first, second;
    TwoRunWave() : TestWave<float>("WAVEDATASET[FLOAT]", 1e-6, 100), first(30000), second(12345) {
        for (std::size_t i = 0; i < first.size(); ++i) first[i] = static_cast<float>((i * 37) % 1001) - 500.0f;
        for (std::size_t i = 0; i < second.size(); ++i) second[i] = static_cast<float>(i % 77) * 0.5f;
        WaveProducer<float> producer(*dataset, 1e-6, 1e-4);
        producer.Append(0.0, first.data(), first.size());
        producer.Append(0.05, second.data(), second.size());
    }
};

template <class R>
std::vector<R> ReadDataset(hid_t file, const char* name, hid_t memory_type) {
    const hid_t dataset = H5Dopen2(file, name, H5P_DEFAULT);
    const hid_t space = H5Dget_space(dataset);
    hsize_t size = 0;
    H5Sget_simple_extent_dims(space, &size, nullptr);
    std::vector<R> rows(size);
    if (size > 0) H5Dread(dataset, memory_type, H5S_ALL, H5S_ALL, H5P_DEFAULT, rows.data());
    H5Sclose(space);
    H5Dclose(dataset);
    return rows;
}

double DoubleAttribute(hid_t file, const char* name) {
    const hid_t dataset = H5Dopen2(file, "samples", H5P_DEFAULT);
    const hid_t attribute = H5Aopen(dataset, name, H5P_DEFAULT);
    double value = -1;
    H5Aread(attribute, H5T_NATIVE_DOUBLE, &value);
    H5Aclose(attribute);
    H5Dclose(dataset);
    return value;
}

std::string StringAttribute(hid_t file, const char* name) {
    const hid_t dataset = H5Dopen2(file, "samples", H5P_DEFAULT);
    const hid_t attribute = H5Aopen(dataset, name, H5P_DEFAULT);
    const hid_t type = H5Aget_type(attribute);
    char* text = nullptr;
    H5Aread(attribute, type, &text);
    std::string value = text ? text : "";
    const hid_t space = H5Aget_space(attribute);
    H5Dvlen_reclaim(type, space, H5P_DEFAULT, &text);
    H5Sclose(space);
    H5Tclose(type);
    H5Aclose(attribute);
    H5Dclose(dataset);
    return value;
}

hid_t AreaMemoryType() {
    const hid_t type = H5Tcreate(H5T_COMPOUND, sizeof(ValidDataArea));
    H5Tinsert(type, "start_time", offsetof(ValidDataArea, start_time), H5T_NATIVE_INT64);
    H5Tinsert(type, "end_time", offsetof(ValidDataArea, end_time), H5T_NATIVE_INT64);
    H5Tinsert(type, "index_id", offsetof(ValidDataArea, index_id), H5T_NATIVE_UINT64);
    H5Tinsert(type, "first_count", offsetof(ValidDataArea, first_count), H5T_NATIVE_UINT64);
    H5Tinsert(type, "wave_beg_pos", offsetof(ValidDataArea, wave_beg_pos), H5T_NATIVE_UINT64);
    H5Tinsert(type, "wave_end_pos", offsetof(ValidDataArea, wave_end_pos), H5T_NATIVE_UINT64);
    return type;
}

hid_t ColumnMemoryType() {
    const hid_t type = H5Tcreate(H5T_COMPOUND, sizeof(MinMaxData<float>));
    H5Tinsert(type, "min", offsetof(MinMaxData<float>, min), H5T_NATIVE_FLOAT);
    H5Tinsert(type, "max", offsetof(MinMaxData<float>, max), H5T_NATIVE_FLOAT);
    return type;
}

template <class R>
std::vector<R> StorageRecords(BasicWaveDataSet<float>& dataset, const char* id) {
    BaseStructReader<R> reader(dataset.GetStorage(id));
    std::vector<R> records(reader.Count());
    reader.Read(0, records.data(), records.size());
    return records;
}

class Hdf5Export : public ::testing::Test {
protected:
    void SetUp() override {
        folder_ = fs::temp_directory_path() / ("wavestore-export-test-" + std::to_string(::getpid()));
        fs::remove_all(folder_);
        fs::create_directories(folder_);
    }
    void TearDown() override { fs::remove_all(folder_); }
    fs::path folder_;
};

TEST_F(Hdf5Export, TheWholeWaveReadsBackAsTheStoragesHoldIt) {
    TwoRunWave wave;
    const std::string path = (folder_ / "whole.h5").string();
    ExportSummary summary;
    std::string error;
    std::vector<double> fractions;
    ExportOptions options;
    options.progress = [&](double f) { fractions.push_back(f); };
    ASSERT_TRUE(ExportWaveToHdf5(wave.item.get(), path, options, summary, error)) << error;
    EXPECT_EQ(summary.samples, 42345u);
    EXPECT_EQ(summary.areas, 2u);
    ASSERT_FALSE(fractions.empty());
    EXPECT_DOUBLE_EQ(fractions.back(), 1.0);

    const hid_t file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    ASSERT_GE(file, 0);
    std::vector<float> expected = wave.first;
    expected.insert(expected.end(), wave.second.begin(), wave.second.end());
    EXPECT_EQ(ReadDataset<float>(file, "samples", H5T_NATIVE_FLOAT), expected);

    const hid_t area_type = AreaMemoryType(), column_type = ColumnMemoryType();
    const auto areas = ReadDataset<ValidDataArea>(file, "areas", area_type);
    const auto stored_areas = StorageRecords<ValidDataArea>(*wave.dataset, "Area");
    ASSERT_EQ(areas.size(), stored_areas.size());
    for (std::size_t i = 0; i < areas.size(); ++i) {
        EXPECT_EQ(0, std::memcmp(&areas[i], &stored_areas[i], sizeof(ValidDataArea))) << "area " << i;
    }
    const auto columns = ReadDataset<MinMaxData<float>>(file, "index", column_type);
    const auto stored_columns = StorageRecords<MinMaxData<float>>(*wave.dataset, "Index");
    ASSERT_EQ(columns.size(), stored_columns.size());
    EXPECT_EQ(summary.index_entries, stored_columns.size());
    for (std::size_t i = 0; i < columns.size(); ++i) {
        EXPECT_EQ(columns[i].min, stored_columns[i].min) << "column " << i;
        EXPECT_EQ(columns[i].max, stored_columns[i].max) << "column " << i;
    }
    EXPECT_DOUBLE_EQ(DoubleAttribute(file, "sample_period"), 1e-6);
    EXPECT_DOUBLE_EQ(DoubleAttribute(file, "start_time"), 0.0);
    EXPECT_EQ(StringAttribute(file, "element_type"), "f32");
    EXPECT_EQ(StringAttribute(file, "time_unit"), "s");
    H5Tclose(area_type);
    H5Tclose(column_type);
    H5Fclose(file);
}

TEST_F(Hdf5Export, ASpanHoldsExactlyItsSamplesWithRebasedAreas) {
    TwoRunWave wave;
    const std::string path = (folder_ / "span.h5").string();
    ExportOptions options;
    options.span = {false, 0.0299945, 0.0500505};  // the last 5 samples of the first run, the first 51 of the second
    ExportSummary summary;
    std::string error;
    ASSERT_TRUE(ExportWaveToHdf5(wave.item.get(), path, options, summary, error)) << error;
    EXPECT_EQ(summary.samples, 5u + 51u);

    const hid_t file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    ASSERT_GE(file, 0);
    std::vector<float> expected(wave.first.end() - 5, wave.first.end());
    expected.insert(expected.end(), wave.second.begin(), wave.second.begin() + 51);
    EXPECT_EQ(ReadDataset<float>(file, "samples", H5T_NATIVE_FLOAT), expected);

    const hid_t area_type = AreaMemoryType(), column_type = ColumnMemoryType();
    const auto areas = ReadDataset<ValidDataArea>(file, "areas", area_type);
    ASSERT_EQ(areas.size(), 2u);
    EXPECT_EQ(areas[0].start_time, 29995000);
    EXPECT_EQ(areas[0].end_time, 29999000);
    EXPECT_EQ(areas[0].wave_beg_pos, 0u);
    EXPECT_EQ(areas[0].wave_end_pos, 4u);
    EXPECT_EQ(areas[1].start_time, 50000000);
    EXPECT_EQ(areas[1].end_time, 50050000);
    EXPECT_EQ(areas[1].wave_beg_pos, 5u);
    EXPECT_EQ(areas[1].wave_end_pos, 55u);
    // Each run brings the index columns that cover its samples: the last column of the
    // first run, and the first column of the second.
    const auto columns = ReadDataset<MinMaxData<float>>(file, "index", column_type);
    ASSERT_EQ(columns.size(), 2u);
    EXPECT_EQ(areas[0].index_id, 0u);
    EXPECT_EQ(areas[1].index_id, 1u);
    EXPECT_EQ(areas[0].first_count, 5u);
    EXPECT_EQ(areas[1].first_count, 51u);
    const auto stored = StorageRecords<MinMaxData<float>>(*wave.dataset, "Index");
    EXPECT_EQ(columns[0].max, stored[299].max);
    EXPECT_EQ(columns[1].max, stored[300].max);
    EXPECT_DOUBLE_EQ(DoubleAttribute(file, "start_time"), 0.029995);
    H5Tclose(area_type);
    H5Tclose(column_type);
    H5Fclose(file);
}

TEST_F(Hdf5Export, AFailedExportLeavesNoFileBehind) {
    TwoRunWave wave;
    ExportSummary summary;
    std::string error;
    // A folder that doesn't exist.
    const fs::path missing = folder_ / "no-such-folder" / "out.h5";
    EXPECT_FALSE(ExportWaveToHdf5(wave.item.get(), missing.string(), {}, summary, error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(fs::exists(missing));

    // A span without samples, and a span that ends before it begins.
    const fs::path empty = folder_ / "empty.h5";
    ExportOptions options;
    options.span = {false, 0.04, 0.045};
    EXPECT_FALSE(ExportWaveToHdf5(wave.item.get(), empty.string(), options, summary, error));
    EXPECT_EQ(error, "no sample lies in the span");
    options.span = {false, 0.01, 0.005};
    EXPECT_FALSE(ExportWaveToHdf5(wave.item.get(), empty.string(), options, summary, error));
    EXPECT_FALSE(fs::exists(empty));

    // An item that is no wave dataset.
    std::unique_ptr<IBaseCtr> axis(CreateItemByType(&testing_support::ModuleScope(), "AXIS", "axis"));
    EXPECT_FALSE(ExportWaveToHdf5(axis.get(), empty.string(), {}, summary, error));
    EXPECT_EQ(error, "the item is not a wave dataset");

    // Nothing but the target's folder content the test made.
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 0);
}

}  // namespace
