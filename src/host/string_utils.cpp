#include "host/string_utils.h"

#include <algorithm>
#include <charconv>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace {

constexpr std::string_view kBlanks = " \t\r\n";

char LowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

std::string_view TrimView(std::string_view text) {
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    const auto last = text.find_last_not_of(kBlanks);
    return text.substr(first, last - first + 1);
}

// Strips one optional '+' so that from_chars sees a plain number; "+-1" stays rejected.
bool StripPlus(std::string_view& text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (text.empty() || text.front() == '-' || text.front() == '+') return false;
    }
    return !text.empty();
}

template <class T>
bool ParseWhole(const std::string& text, T& value) {
    std::string_view view = TrimView(text);
    if (!StripPlus(view)) return false;
    T parsed{};
    const char* end = view.data() + view.size();
    const auto [ptr, ec] = std::from_chars(view.data(), end, parsed);
    if (ec != std::errc() || ptr != end) return false;
    value = parsed;
    return true;
}

// Appends part to path with one '/' between them.
void AppendPathPart(std::string& path, const std::string& part) {
    if (part.empty()) return;
    if (path.empty()) {
        path = part;
        return;
    }
    const auto partStart = part.find_first_not_of('/');
    if (partStart == std::string::npos) return;  // part is only slashes
    const auto pathEnd = path.find_last_not_of('/');
    path.erase(pathEnd == std::string::npos ? 1 : pathEnd + 1);  // keep a lone root "/"
    if (path.back() != '/') path += '/';
    path.append(part, partStart);
}

}  // namespace

int StringCompare(const std::string& a, const std::string& b, bool ignoreCase) {
    const std::size_t n = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < n; ++i) {
        const char ca = ignoreCase ? LowerAscii(a[i]) : a[i];
        const char cb = ignoreCase ? LowerAscii(b[i]) : b[i];
        if (ca != cb) return static_cast<unsigned char>(ca) < static_cast<unsigned char>(cb) ? -1 : 1;
    }
    if (a.size() == b.size()) return 0;
    return a.size() < b.size() ? -1 : 1;
}

std::string tolower(const std::string& text) {
    std::string out(text);
    for (char& c : out) c = LowerAscii(c);
    return out;
}

std::string Trim(const std::string& text) { return std::string(TrimView(text)); }

std::vector<std::string> SplitString(const std::string& text, const std::string& separators) {
    std::vector<std::string> pieces;
    if (text.empty()) return pieces;
    std::size_t start = 0;
    while (true) {
        const auto pos = text.find_first_of(separators, start);
        const std::size_t end = pos == std::string::npos ? text.size() : pos;
        pieces.emplace_back(TrimView(std::string_view(text).substr(start, end - start)));
        if (pos == std::string::npos) break;
        start = pos + 1;
    }
    return pieces;
}

bool SplitString(const std::string& text, const std::string& separators, std::string& first,
                 std::string& second) {
    const auto pos = text.find_first_of(separators);
    if (pos == std::string::npos) {
        first = Trim(text);
        second.clear();
        return false;
    }
    const std::string_view view(text);
    first = std::string(TrimView(view.substr(0, pos)));
    second = std::string(TrimView(view.substr(pos + 1)));
    return true;
}

bool SplitBracket(const std::string& text, std::string& name, std::string& args) {
    const std::string_view view(text);
    const auto open = view.find('(');
    if (open == std::string_view::npos) {
        name = std::string(TrimView(view));
        args.clear();
        return false;
    }
    name = std::string(TrimView(view.substr(0, open)));
    const auto close = view.rfind(')');
    if (close == std::string_view::npos || close < open) {
        args = std::string(TrimView(view.substr(open + 1)));
        return false;
    }
    args = std::string(TrimView(view.substr(open + 1, close - open - 1)));
    return true;
}

std::map<std::string, std::string> ParseConfigString(const std::string& text) {
    std::map<std::string, std::string> result;
    auto addPiece = [&result](std::string_view piece, std::size_t split) {
        std::string key(TrimView(piece.substr(0, split)));
        if (key.empty()) return;
        std::string value;
        if (split != std::string_view::npos) value = TrimView(piece.substr(split + 1));
        result.insert_or_assign(std::move(key), std::move(value));
    };

    const std::string_view view(text);
    std::size_t depth = 0;
    std::size_t start = 0;
    std::size_t split = std::string_view::npos;  // first '=' or ':' at depth 0, relative to start
    for (std::size_t i = 0; i <= view.size(); ++i) {
        const char c = i < view.size() ? view[i] : ';';  // the end closes the last piece
        if (c == '(' || c == '[') {
            ++depth;
        } else if (c == ')' || c == ']') {
            if (depth > 0) --depth;
        } else if (depth == 0 && (c == '=' || c == ':')) {
            if (split == std::string_view::npos) split = i - start;
        } else if ((depth == 0 || i == view.size()) && (c == ',' || c == ';')) {
            addPiece(view.substr(start, i - start), split);
            start = i + 1;
            split = std::string_view::npos;
        }
    }
    return result;
}

std::pair<double, std::string> ReadNumberWithUnit(const std::string& text) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    double number = 0;
    if (!(stream >> number)) throw std::runtime_error("bad argument!!");
    std::string unit;
    stream >> unit;
    return {number, unit};
}

std::string MakePath(const std::string& base, const std::string& section, const std::string& key) {
    std::string path;
    AppendPathPart(path, base);
    AppendPathPart(path, section);
    AppendPathPart(path, key);
    return path;
}

std::string MakePath(const std::string& base, const std::string& key) {
    return MakePath(base, std::string(), key);
}

bool SysParseDouble(const std::string& text, double& value) { return ParseWhole(text, value); }

bool SysParseU64(const std::string& text, uint64_t& value) { return ParseWhole(text, value); }

bool SysParseI64(const std::string& text, int64_t& value) { return ParseWhole(text, value); }
