#include "host/string_utils.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

using Strings = std::vector<std::string>;
using Map = std::map<std::string, std::string>;

TEST(StringUtilsText, CompareTrimAndPaths) {
    EXPECT_LT(StringCompare("ab", "ABC", true), 0);   // folded; a prefix sorts first
    EXPECT_GT(StringCompare("\xe9", "z", false), 0);  // bytes compare unsigned
    EXPECT_GT(StringCompare("Z", "[", true), 0);      // folds to lower, like strcasecmp
    EXPECT_EQ(tolower("MiXeD 1 \xC3\x89"), "mixed 1 \xC3\x89");
    EXPECT_EQ(Trim(" \t\r\n a b \n\t") + Trim("\va\v"), "a b\va\v");
    EXPECT_EQ(MakePath("ds//", "/files/", "value"), "ds/files/value");
    EXPECT_EQ(MakePath("/root", "/", "k") + MakePath("/", "a") + MakePath("", "", ""), "/root/k/a");
}

TEST(StringUtilsSplit, PiecesHalvesAndBrackets) {
    EXPECT_EQ(SplitString("a,,b", ","), (Strings{"a", "", "b"}));
    EXPECT_EQ(SplitString(" a ; b,c ", ",;"), (Strings{"a", "b", "c"}));
    EXPECT_TRUE(SplitString("", ",").empty());
    std::string first, second;
    EXPECT_TRUE(SplitString("a : b=c", "=:", first, second));
    EXPECT_EQ(first + "|" + second, "a|b=c");
    EXPECT_FALSE(SplitString("  lonely ", "=", first, second));
    EXPECT_EQ(first + "|" + second, "lonely|");
    struct { const char* in; bool ok; const char* out; } brackets[] = {
        {" SIZE ( 1G, f(2) ) ", true, "SIZE|1G, f(2)"},
        {" plain ", false, "plain|"},
        {"F( open", false, "F|open"},
        {"a)b(c", false, "a)b|c"},  // a ')' before the '(' does not close it
    };
    for (const auto& c : brackets) {
        EXPECT_EQ(SplitBracket(c.in, first, second), c.ok) << c.in;
        EXPECT_EQ(first + "|" + second, c.out);
    }
}

TEST(StringUtilsConfig, PairsNestingAndOddInput) {
    EXPECT_EQ(ParseConfigString(" cycle=SIZE(1G,100M); mode : fast,list=[1,2;3] , flag ,, "),
              (Map{{"cycle", "SIZE(1G,100M)"}, {"mode", "fast"}, {"list", "[1,2;3]"}, {"flag", ""}}));
    // The first '=' or ':' at depth 0 splits.
    EXPECT_EQ(ParseConfigString("url=http://h:1/x;f(a=b)=c"), (Map{{"url", "http://h:1/x"}, {"f(a=b)", "c"}}));
    EXPECT_EQ(ParseConfigString("a=1,a=2,=3, :4"), (Map{{"a", "2"}}));
    EXPECT_EQ(ParseConfigString("a=f(1,2;b=3"), (Map{{"a", "f(1,2;b=3"}}));
    EXPECT_EQ(ParseConfigString("a=1)),b=2"), (Map{{"a", "1))"}, {"b", "2"}}));
    EXPECT_TRUE(ParseConfigString(" ;, ;").empty());
}

TEST(StringUtilsNumber, NumberWithUnitAndStrictParsers) {
    using R = std::pair<double, std::string>;
    EXPECT_EQ(ReadNumberWithUnit("1.5 G"), R(1.5, "G"));
    EXPECT_EQ(ReadNumberWithUnit("-2.5e1ms extra"), R(-25, "ms"));
    for (const char* bad : {"abc", "", "   ", "M10", "10E"}) {
        try {
            ReadNumberWithUnit(bad);
            ADD_FAILURE() << "no throw for '" << bad << "'";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "bad argument!!") << bad;
        }
    }
    double d = 0;
    uint64_t u = 0;
    int64_t i = 0;  // failures below leave these untouched
    EXPECT_TRUE(SysParseDouble(" +2.5e3 ", d) && SysParseU64("\t+18446744073709551615\n", u) &&
                SysParseI64("-9223372036854775808", i));
    for (const char* bad : {"", " ", "1.5x", "1 2", "+-1", "++1", "0x10", "1e999"}) EXPECT_FALSE(SysParseDouble(bad, d)) << bad;
    for (const char* bad : {"-1", "-0", "18446744073709551616", "4.0", "+"}) EXPECT_FALSE(SysParseU64(bad, u)) << bad;
    for (const char* bad : {"9223372036854775808", "--1", "1e3"}) EXPECT_FALSE(SysParseI64(bad, i)) << bad;
    EXPECT_EQ(d, 2500.0);
    EXPECT_EQ(u, std::numeric_limits<uint64_t>::max());
    EXPECT_EQ(i, std::numeric_limits<int64_t>::min());
}
