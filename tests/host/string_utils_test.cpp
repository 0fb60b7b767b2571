#include "host/string_utils.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

using Strings = std::vector<std::string>;

TEST(StringUtilsText, CompareLowerTrim) {
    EXPECT_EQ(StringCompare("Clear", "clear", true), 0);
    EXPECT_LT(StringCompare("Clear", "clear", false), 0);
    EXPECT_LT(StringCompare("ab", "ABC", true), 0);        // a prefix sorts first
    EXPECT_GT(StringCompare("\xe9", "z", false), 0);       // bytes compare unsigned
    EXPECT_GT(StringCompare("Z", "[", true), 0);           // folds to lower, like strcasecmp
    EXPECT_EQ(tolower("MiXeD 1 \xC3\x89"), "mixed 1 \xC3\x89");
    EXPECT_EQ(Trim(" \t\r\n a b \n\t"), "a b");
    EXPECT_EQ(Trim("\va\v"), "\va\v");
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

    std::string name, args;
    EXPECT_TRUE(SplitBracket(" SIZE ( 1G, f(2) ) ", name, args));
    EXPECT_EQ(name + "|" + args, "SIZE|1G, f(2)");
    EXPECT_FALSE(SplitBracket(" plain ", name, args));
    EXPECT_EQ(name + "|" + args, "plain|");
    EXPECT_FALSE(SplitBracket("F( open", name, args));
    EXPECT_EQ(name + "|" + args, "F|open");
    EXPECT_FALSE(SplitBracket("a)b(c", name, args));  // a ')' before the '(' does not close it
    EXPECT_EQ(name + "|" + args, "a)b|c");
}

TEST(StringUtilsConfig, PairsNestingAndOddInput) {
    auto map = ParseConfigString(" cycle=SIZE(1G,100M); mode : fast,list=[1,2;3] , flag ,, ");
    EXPECT_EQ(map, (std::map<std::string, std::string>{
                       {"cycle", "SIZE(1G,100M)"}, {"mode", "fast"}, {"list", "[1,2;3]"}, {"flag", ""}}));
    map = ParseConfigString("url=http://h:1/x;f(a=b)=c");  // first '=' or ':' at depth 0 splits
    EXPECT_EQ(map.at("url"), "http://h:1/x");
    EXPECT_EQ(map.at("f(a=b)"), "c");
    EXPECT_EQ(ParseConfigString("a=1,a=2,=3, :4"), (std::map<std::string, std::string>{{"a", "2"}}));
    EXPECT_EQ(ParseConfigString("a=f(1,2;b=3"), (std::map<std::string, std::string>{{"a", "f(1,2;b=3"}}));
    EXPECT_EQ(ParseConfigString("a=1)),b=2"), (std::map<std::string, std::string>{{"a", "1))"}, {"b", "2"}}));
    EXPECT_TRUE(ParseConfigString(" ;, ;").empty());
}

TEST(StringUtilsNumber, ReadNumberWithUnit) {
    using R = std::pair<double, std::string>;
    EXPECT_EQ(ReadNumberWithUnit("10M"), R(10, "M"));
    EXPECT_EQ(ReadNumberWithUnit("1.5 G"), R(1.5, "G"));
    EXPECT_EQ(ReadNumberWithUnit("  3"), R(3, ""));
    EXPECT_EQ(ReadNumberWithUnit("-2.5e1ms extra"), R(-25, "ms"));
    for (const char* bad : {"abc", "", "   ", "M10", "10E"}) {
        try {
            ReadNumberWithUnit(bad);
            ADD_FAILURE() << "no throw for '" << bad << "'";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "bad argument!!") << bad;
        }
    }
}

TEST(StringUtilsPath, MakePath) {
    EXPECT_EQ(MakePath("ds/w1", "files", "value"), "ds/w1/files/value");
    EXPECT_EQ(MakePath("", "files", "value"), "files/value");
    EXPECT_EQ(MakePath("ds//", "/files/", "value"), "ds/files/value");
    EXPECT_EQ(MakePath("/", "a"), "/a");
    EXPECT_EQ(MakePath("/root", "/", "k"), "/root/k");
    EXPECT_EQ(MakePath("", "", ""), "");
}

TEST(StringUtilsNumber, StrictParsers) {
    double d = 0;
    EXPECT_TRUE(SysParseDouble(" +2.5e3 ", d));
    EXPECT_EQ(d, 2500.0);
    uint64_t u = 0;
    EXPECT_TRUE(SysParseU64("\t+18446744073709551615\n", u));
    EXPECT_EQ(u, std::numeric_limits<uint64_t>::max());
    int64_t i = 0;
    EXPECT_TRUE(SysParseI64("-9223372036854775808", i));
    EXPECT_EQ(i, std::numeric_limits<int64_t>::min());

    d = -7, u = 9, i = 5;
    for (const char* bad : {"", " ", "1.5x", "1 2", "+-1", "++1", "0x10", "1e999"}) {
        EXPECT_FALSE(SysParseDouble(bad, d)) << bad;
    }
    for (const char* bad : {"-1", "-0", "18446744073709551616", "4.0", "+"}) EXPECT_FALSE(SysParseU64(bad, u)) << bad;
    for (const char* bad : {"9223372036854775808", "--1", "1e3"}) EXPECT_FALSE(SysParseI64(bad, i)) << bad;
    EXPECT_EQ(d, -7);  // failures leave the output untouched
    EXPECT_EQ(u, 9u);
    EXPECT_EQ(i, 5);
}
