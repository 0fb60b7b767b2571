// Storages on managed cache files: data that outgrows the pool comes back from both file
// formats, and Persist turns any content into a kept file.

#include "host/project_file_manager.h"
#include "storage/block_storage.h"
#include "storage/device_channels.h"

#include "support/wait.h"

#include <gtest/gtest.h>

#include <chrono>
#include <numeric>
#include <thread>
#include <vector>

namespace {

constexpr uint64_t kUnits = 16 * 1024 * 1024;  // 64 MiB of 4-byte units through the 4 MiB pool

using testing_support::WaitReady;

class StorageOnFiles : public ::testing::TestWithParam<int> {};

TEST_P(StorageOnFiles, DataLargerThanThePoolReadsBackByteForByte) {
    auto channel = CreateLocalFileCache(GetParam());
    CStorage storage(channel, 4);
    std::vector<uint32_t> batch(1 << 16);
    for (uint64_t done = 0; done < kUnits; done += batch.size()) {
        std::iota(batch.begin(), batch.end(), static_cast<uint32_t>(done));
        ASSERT_EQ(storage.Write(batch.data(), batch.size()), batch.size());
    }
    storage.Sync();
    EXPECT_EQ(channel->Size(), kUnits * 4);
    for (uint64_t from = 0; from < kUnits; from += batch.size()) {
        ASSERT_EQ(storage.Read(from, batch.data(), batch.size()), batch.size());
        for (uint64_t i = 0; i < batch.size(); ++i) ASSERT_EQ(batch[i], from + i) << "unit " << from + i;
    }
    // A second storage bound to the same file finds the whole extent.
    CStorage again(nullptr, 4);
    again.Bind(channel);
    EXPECT_EQ(again.Count(), kUnits);
}
INSTANTIATE_TEST_SUITE_P(FormatVersions, StorageOnFiles, ::testing::Values(0, 1));

TEST(Persist, AManagedFileIsKeptAndNamedByItsId) {
    auto channel = CreateLocalFileCache(1);
    CStorage storage(channel, 4);
    const uint32_t values[3] = {1, 2, 3};
    storage.Write(values, 3);
    const std::string id = storage.Persist();
    EXPECT_EQ(id, std::dynamic_pointer_cast<IFileCache>(channel)->GetId());
    auto file = ProjectFileManager::instance().GetFile(id, 19, 0).lock();
    ASSERT_TRUE(file);
    EXPECT_FALSE(file->GetAutoRemove());
}

TEST(Persist, AMemoryChannelIsCopiedIntoANewFileInTheBackground) {
    std::vector<uint32_t> memory(50000);
    std::iota(memory.begin(), memory.end(), 7u);
    CStorage storage(CreateMemCache(memory.data(), memory.size() * 4), 4);
    EXPECT_EQ(storage.Count(), memory.size());
    const std::string id = storage.Persist();
    ASSERT_FALSE(id.empty());
    ASSERT_TRUE(WaitReady(id));
    auto file = ProjectFileManager::instance().GetFile(id, 19, 0).lock();
    ASSERT_TRUE(file);
    Tessel::CFile* data = file->GetCFile();
    ASSERT_EQ(data->GetLength(), static_cast<int64_t>(memory.size() * 4));
    std::vector<uint32_t> back(memory.size());
    data->Seek(0, Tessel::CFile::SeekBegin);
    data->Read(back.data(), back.size() * 4);
    EXPECT_EQ(back, memory);
}

TEST(Persist, AStorageWithoutChannelWritesItsCachedBlocks) {
    CStorage storage(nullptr, 4);
    std::vector<uint32_t> values(1000);
    std::iota(values.begin(), values.end(), 0u);
    storage.Write(values.data(), values.size());
    const std::string id = storage.Persist();
    ASSERT_FALSE(id.empty());
    auto file = ProjectFileManager::instance().GetFile(id, 19, 0).lock();
    ASSERT_TRUE(file);
    std::vector<uint32_t> back(values.size());
    file->GetCFile()->Seek(0, Tessel::CFile::SeekBegin);
    ASSERT_EQ(file->GetCFile()->Read(back.data(), back.size() * 4), static_cast<int64_t>(back.size() * 4));
    EXPECT_EQ(back, values);
}

}  // namespace
