// The plain reader over one storage, made from a storage or from a dataset's storages by key.

#include "reader/simple_reader.h"
#include "storage/block_storage.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

TEST(SimpleReader, ReadsItsStorageAndRefusesAnUnknownKey) {
    auto storage = std::make_shared<CStorage>(nullptr, 8);
    const double values[3] = {1.5, 2.5, 3.5};
    storage->Write(values, 3);
    std::map<std::string, std::shared_ptr<StorageBase>> storages{{"s", storage}};
    SimpleReader reader(storages, "s", 8);
    EXPECT_EQ(reader.Width(), 8);
    EXPECT_EQ(reader.Count(), 3u);
    double back[3] = {};
    EXPECT_EQ(reader.Read(1, back, 5), 2u);
    EXPECT_EQ(back[1], 3.5);
    EXPECT_EQ(reader.Read(3, back, 1), 0u);
    storage->Write(values, 1);
    EXPECT_EQ(reader.Count(), 4u);  // the storage's count, read fresh

    try {
        SimpleReader missing(storages, "gone", 8);
        FAIL() << "no exception";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "invalid map<K, T> key");
    }
}

}  // namespace
