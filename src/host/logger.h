#pragma once
// CLogger: the process-wide message log of the host utilities.
//
// Messages are formatted with fmt's "{}" placeholders and written through spdlog to
// standard error. Levels are debug, info, warning, error and critical; the default
// threshold is info. Observers (tests, a host's own log window) can be attached and
// see every message at or above the threshold, already formatted.

#include <fmt/format.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

enum class LogLevel { Debug = 0, Info, Warning, Error, Critical, Off };

class CLogger {
public:
    using Observer = std::function<void(LogLevel, std::string_view)>;

    explicit CLogger(const std::string& name);
    ~CLogger();
    CLogger(const CLogger&) = delete;
    CLogger& operator=(const CLogger&) = delete;

    // The logger that the whole module writes to.
    static CLogger& DefaultLogger();

    template <class... Args>
    void Debug(fmt::format_string<Args...> format, Args&&... args) {
        LogFormatted(LogLevel::Debug, format, std::forward<Args>(args)...);
    }
    template <class... Args>
    void Info(fmt::format_string<Args...> format, Args&&... args) {
        LogFormatted(LogLevel::Info, format, std::forward<Args>(args)...);
    }
    template <class... Args>
    void Warning(fmt::format_string<Args...> format, Args&&... args) {
        LogFormatted(LogLevel::Warning, format, std::forward<Args>(args)...);
    }
    template <class... Args>
    void Error(fmt::format_string<Args...> format, Args&&... args) {
        LogFormatted(LogLevel::Error, format, std::forward<Args>(args)...);
    }
    template <class... Args>
    void Critical(fmt::format_string<Args...> format, Args&&... args) {
        LogFormatted(LogLevel::Critical, format, std::forward<Args>(args)...);
    }

    // Writes an already formatted message.
    void Log(LogLevel level, std::string_view message);

    void SetLevel(LogLevel level);
    LogLevel Level() const;
    bool ShouldLog(LogLevel level) const { return level >= Level(); }

    // Stops (or resumes) writing to standard error; observers still see messages.
    void SetConsoleEnabled(bool enabled);

    // Attaches an observer; the id detaches it again.
    std::size_t AddObserver(Observer observer);
    void RemoveObserver(std::size_t id);

private:
    template <class... Args>
    void LogFormatted(LogLevel level, fmt::format_string<Args...> format, Args&&... args) {
        if (!ShouldLog(level)) return;
        Log(level, fmt::format(format, std::forward<Args>(args)...));
    }

    struct Impl;
    std::unique_ptr<Impl> impl_;
};
