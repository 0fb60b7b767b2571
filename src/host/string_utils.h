#pragma once
// Text helpers: comparison, case folding, trimming, splitting, "key=value" configuration
// strings, numbers with a unit suffix, slash-joined item paths and strict number parsing.
//
// Choices: case folding and whitespace are ASCII only (whitespace = space, tab, CR, LF).
// Parsing functions never throw except ReadNumberWithUnit, whose throw is part of its
// contract.

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

// 0 when equal, negative / positive like strcmp (bytes compared as unsigned). With
// ignoreCase, ASCII letters compare without regard to case.
int StringCompare(const std::string& a, const std::string& b, bool ignoreCase);

// ASCII lower-case copy; other bytes are kept as they are.
std::string tolower(const std::string& text);

// Copy without leading and trailing spaces, tabs, CR and LF.
std::string Trim(const std::string& text);

// Splits at every character of separators; pieces are trimmed and empty pieces kept, so
// "a,,b" gives three pieces. Empty text gives no pieces (text of blanks gives one "").
std::vector<std::string> SplitString(const std::string& text, const std::string& separators);

// Splits at the first character of separators into two trimmed halves. Without a
// separator: first = whole trimmed text, second = "" and false.
bool SplitString(const std::string& text, const std::string& separators, std::string& first,
                 std::string& second);

// Reads "NAME(args)": name = trimmed text before the first '(', args = trimmed text between
// that '(' and the last ')'; anything after the last ')' is ignored. True when both
// brackets exist. Without '(' : name = trimmed text, args = "", false. A '(' without a
// later ')' : name set, args = trimmed rest after '(', false.
bool SplitBracket(const std::string& text, std::string& name, std::string& args);

// Parses "key=value, key2=value2; ...". Pairs are separated by ',' or ';' outside brackets
// ('(' ')' and '[' ']' nest, a stray closing bracket is ignored), so "cycle=SIZE(1G,100M)"
// is one pair. Key and value are separated by the first '=' or ':' outside brackets and
// both are trimmed. A piece without '=' or ':' is a key with an empty value; empty pieces
// and pieces with an empty key are skipped; a later duplicate key replaces an earlier one.
std::map<std::string, std::string> ParseConfigString(const std::string& text);

// Reads like a C++ input stream: a double, then one whitespace-delimited word (possibly
// empty). "10M" -> (10, "M"), "1.5 G" -> (1.5, "G"). As with a stream, a word starting
// with 'e' or 'E' right after the digits is taken as an exponent, so "10E" fails while
// "10 E" works. Throws std::runtime_error("bad argument!!") when no number can be read.
std::pair<double, std::string> ReadNumberWithUnit(const std::string& text);

// Joins the non-empty parts with '/', with exactly one '/' at each join.
// MakePath("ds/w1", "files", "value") == "ds/w1/files/value".
std::string MakePath(const std::string& base, const std::string& section, const std::string& key);
std::string MakePath(const std::string& base, const std::string& key);

// The whole trimmed text must be one number (an optional leading '+' is accepted; U64
// rejects '-'; Double accepts what std::from_chars accepts, including "inf" and "nan").
// Out-of-range values fail. On failure the output is left untouched and false returned.
bool SysParseDouble(const std::string& text, double& value);
bool SysParseU64(const std::string& text, uint64_t& value);
bool SysParseI64(const std::string& text, int64_t& value);
