// The block cache's hash table against an ordered map, through growth and through
// deletions that shift runs of colliding keys back, wrapping round the table's end.

#include "storage/block_cache.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <vector>

using __internal::BlockKey;
using __internal::BlockTable;
using __internal::CacheBlock;

namespace {

std::shared_ptr<CacheBlock> Tagged(uint64_t tag) {
    auto block = std::make_shared<CacheBlock>(nullptr, nullptr, 0);
    block->key = tag;  // tells the blocks apart
    return block;
}

void ExpectSame(BlockTable& table, const std::map<uint64_t, std::shared_ptr<CacheBlock>>& model,
                const std::vector<uint64_t>& keys) {
    ASSERT_EQ(table.Size(), model.size());
    for (uint64_t key : keys) {
        std::shared_ptr<CacheBlock>* found = table.Find(key);
        auto it = model.find(key);
        if (it == model.end()) {
            ASSERT_EQ(found, nullptr) << key;
        } else {
            ASSERT_NE(found, nullptr) << key;
            ASSERT_EQ(found->get(), it->second.get()) << key;
        }
    }
}

TEST(BlockTable, FollowsAMapThroughPutsErasesAndGrowth) {
    BlockTable table;
    std::map<uint64_t, std::shared_ptr<CacheBlock>> model;
    // Neighbouring blocks of a few storages, as the cache sees them, and stray keys.
    std::vector<uint64_t> keys;
    for (uint32_t storage = 1; storage <= 5; ++storage)
        for (uint64_t block = 0; block < 3000; ++block) keys.push_back(BlockKey(storage, block));
    std::mt19937_64 rng(3);
    for (int i = 0; i < 500; ++i) keys.push_back(rng());
    keys.push_back(0);
    keys.push_back(~uint64_t{0});

    for (int round = 0; round < 60000; ++round) {
        const uint64_t key = keys[rng() % keys.size()];
        const unsigned what = rng() % 10;
        if (what < 5) {
            auto block = Tagged(static_cast<uint64_t>(round));
            table.Put(key, block);
            model[key] = block;
        } else {
            EXPECT_EQ(table.Erase(key), model.erase(key) == 1) << key;
        }
        if (round % 5000 == 0) {
            ExpectSame(table, model, keys);
            if (::testing::Test::HasFatalFailure()) return;
        }
    }
    ExpectSame(table, model, keys);
    // Emptied in an order other than the one of entry, every key is gone.
    for (auto it = model.begin(); it != model.end(); it = model.erase(it)) ASSERT_TRUE(table.Erase(it->first));
    ExpectSame(table, model, keys);
}

TEST(BlockTable, ErasingAKeyKeepsTheKeysThatProbedPastIt) {
    // Many keys in a small table collide; each one erased in turn from the middle of a
    // run leaves all others findable.
    BlockTable table;
    std::vector<uint64_t> keys;
    for (uint64_t i = 0; i < 400; ++i) keys.push_back(BlockKey(7, i * 1024));
    for (uint64_t key : keys) table.Put(key, Tagged(key));
    for (std::size_t gone = 0; gone < keys.size(); gone += 3) {
        ASSERT_TRUE(table.Erase(keys[gone]));
        ASSERT_FALSE(table.Erase(keys[gone]));
        for (std::size_t i = 0; i < keys.size(); ++i) {
            const bool erased = i % 3 == 0 && i <= gone;
            std::shared_ptr<CacheBlock>* found = table.Find(keys[i]);
            ASSERT_EQ(found == nullptr, erased) << i;
            if (found) {
                ASSERT_EQ((*found)->key.load(), keys[i]);
            }
        }
    }
}

}  // namespace
