#include "host/logger.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>

#include <atomic>
#include <map>
#include <mutex>

namespace {

spdlog::level::level_enum ToSpd(LogLevel level) {
    switch (level) {
    case LogLevel::Debug: return spdlog::level::debug;
    case LogLevel::Info: return spdlog::level::info;
    case LogLevel::Warning: return spdlog::level::warn;
    case LogLevel::Error: return spdlog::level::err;
    case LogLevel::Critical: return spdlog::level::critical;
    case LogLevel::Off: break;
    }
    return spdlog::level::off;
}

LogLevel FromSpd(spdlog::level::level_enum level) {
    switch (level) {
    case spdlog::level::trace:
    case spdlog::level::debug: return LogLevel::Debug;
    case spdlog::level::info: return LogLevel::Info;
    case spdlog::level::warn: return LogLevel::Warning;
    case spdlog::level::err: return LogLevel::Error;
    case spdlog::level::critical: return LogLevel::Critical;
    default: return LogLevel::Off;
    }
}

// Hands every message to the attached observers.
class ObserverSink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    std::size_t Add(CLogger::Observer observer) {
        std::lock_guard lock(mutex_);
        observers_.emplace(++last_id_, std::move(observer));
        return last_id_;
    }
    void Remove(std::size_t id) {
        std::lock_guard lock(mutex_);
        observers_.erase(id);
    }

protected:
    void sink_it_(const spdlog::details::log_msg& msg) override {
        const std::string_view text(msg.payload.data(), msg.payload.size());
        for (auto& [id, observer] : observers_) observer(FromSpd(msg.level), text);
    }
    void flush_() override {}

private:
    std::map<std::size_t, CLogger::Observer> observers_;
    std::size_t last_id_ = 0;
};

}  // namespace

struct CLogger::Impl {
    std::shared_ptr<spdlog::sinks::stderr_color_sink_mt> console = std::make_shared<spdlog::sinks::stderr_color_sink_mt>();
    std::shared_ptr<ObserverSink> observers = std::make_shared<ObserverSink>();
    spdlog::logger logger;
    std::atomic<LogLevel> level{LogLevel::Info};

    explicit Impl(const std::string& name) : logger(name, {console, observers}) {
        logger.set_level(spdlog::level::trace);
        logger.set_pattern("[%Y-%m-%d %H:%M:%S.%e] [%n] [%l] %v");
    }
};

CLogger::CLogger(const std::string& name) : impl_(std::make_unique<Impl>(name)) {}
CLogger::~CLogger() = default;

CLogger& CLogger::DefaultLogger() {
    static CLogger logger("wavestore");
    return logger;
}

void CLogger::Log(LogLevel level, std::string_view message) {
    if (!ShouldLog(level) || level == LogLevel::Off) return;
    impl_->logger.log(ToSpd(level), "{}", message);
}

void CLogger::SetLevel(LogLevel level) { impl_->level = level; }
LogLevel CLogger::Level() const { return impl_->level; }

void CLogger::SetConsoleEnabled(bool enabled) {
    impl_->console->set_level(enabled ? spdlog::level::trace : spdlog::level::off);
}

std::size_t CLogger::AddObserver(Observer observer) { return impl_->observers->Add(std::move(observer)); }
void CLogger::RemoveObserver(std::size_t id) { impl_->observers->Remove(id); }
