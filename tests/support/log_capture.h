#pragma once
// Records what the default logger writes while the object lives.

#include "host/logger.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace testing_support {

class LogCapture {
public:
    explicit LogCapture(LogLevel threshold = LogLevel::Debug);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::pair<LogLevel, std::string>> Lines() const;
    // True if some captured line at the given level equals the text.
    bool Contains(LogLevel level, const std::string& text) const;
    // True if some captured line holds the text as a substring.
    bool ContainsSubstring(const std::string& text) const;

private:
    // One mutex for all captures, at a fixed address: a mutex on the stack would share its
    // address with the locks of later tests, and ThreadSanitizer would join their orders.
    static std::mutex& Mutex();

    std::vector<std::pair<LogLevel, std::string>> lines_;
    std::size_t observer_id_;
    LogLevel previous_level_;
};

}  // namespace testing_support
