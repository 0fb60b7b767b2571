#include "support/log_capture.h"

namespace testing_support {

LogCapture::LogCapture(LogLevel threshold) : previous_level_(CLogger::DefaultLogger().Level()) {
    auto& logger = CLogger::DefaultLogger();
    logger.SetLevel(threshold);
    observer_id_ = logger.AddObserver([this](LogLevel level, std::string_view text) {
        std::lock_guard lock(Mutex());
        lines_.emplace_back(level, std::string(text));
    });
}

std::mutex& LogCapture::Mutex() {
    static std::mutex mutex;
    return mutex;
}

LogCapture::~LogCapture() {
    auto& logger = CLogger::DefaultLogger();
    logger.RemoveObserver(observer_id_);
    logger.SetLevel(previous_level_);
}

std::vector<std::pair<LogLevel, std::string>> LogCapture::Lines() const {
    std::lock_guard lock(Mutex());
    return lines_;
}

bool LogCapture::Contains(LogLevel level, const std::string& text) const {
    std::lock_guard lock(Mutex());
    for (const auto& [l, t] : lines_)
        if (l == level && t == text) return true;
    return false;
}

bool LogCapture::ContainsSubstring(const std::string& text) const {
    std::lock_guard lock(Mutex());
    for (const auto& line : lines_)
        if (line.second.find(text) != std::string::npos) return true;
    return false;
}

}  // namespace testing_support
