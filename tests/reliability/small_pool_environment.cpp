// The reliability tests run on a small process pool, so that blocks are recycled.
#include "support/small_pool.h"

#include <gtest/gtest.h>

namespace {

class SmallPoolEnvironment : public ::testing::Environment {
public:
    void SetUp() override { testing_support::ConfigureSmallPool(); }
};

const auto* const kEnvironment = ::testing::AddGlobalTestEnvironment(new SmallPoolEnvironment);

}  // namespace
