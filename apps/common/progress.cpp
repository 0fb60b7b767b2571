#include "common/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <algorithm>
#include <cstdio>

namespace {

double Now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

ProgressBar::ProgressBar(std::string label, std::string unit)
    : label_(std::move(label)), unit_(std::move(unit)), visible_(::isatty(STDOUT_FILENO) != 0), started_(Now()) {}

void ProgressBar::Update(double fraction, double amount) {
    if (!visible_ || finished_) return;
    const double now = Now();
    if (fraction < 1.0 && now - last_drawn_ < 0.1) return;  // at most ten redraws a second
    last_drawn_ = now;
    constexpr int kWidth = 40;
    const int filled = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * kWidth);
    const double elapsed = now - started_;
    fmt::print("\r  {} [{}{}] {:5.1f}%", label_, std::string(filled, '#'), std::string(kWidth - filled, '.'),
               fraction * 100);
    if (!unit_.empty()) fmt::print("  {:8.1f} {}/s", elapsed > 0 ? amount / elapsed : 0.0, unit_);
    std::fflush(stdout);
}

void ProgressBar::Finish(double amount) {
    if (!visible_ || finished_) return;
    last_drawn_ = -1;
    Update(1.0, amount);
    finished_ = true;
    fmt::print("\n");
}
