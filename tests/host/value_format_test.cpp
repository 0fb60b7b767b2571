// Formats: patterns applied to each kind of value, base formats by name.

#include "host/value_format.h"

#include <gtest/gtest.h>

namespace {

TEST(ValueFormat, PatternsFitEachKindOfValueAndFallBackToPlainText) {
    CFormatItem fixed("fixed", "{:.1f}");
    EXPECT_EQ(fixed.Format(Vellum::Var(2.25)), "2.2");
    EXPECT_EQ(fixed.Format(Vellum::Var(uint64_t{7})), "7");  // an integer pattern error: plain text
    CFormatItem hex("hex", "{:#x}");
    EXPECT_EQ(hex.Format(Vellum::Var(int64_t{255})), "0xff");
    EXPECT_EQ(hex.Format(Vellum::Var(std::string("ab"))), "ab");
    CFormatItem plain("plain", "[{}]");
    EXPECT_EQ(plain.Format(Vellum::Var(true)), "[true]");
    EXPECT_TRUE(QueryInterface<IValueFormat>(&plain));
}

}  // namespace
