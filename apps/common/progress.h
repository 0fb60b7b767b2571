#pragma once
// A progress bar that redraws itself on one line of a terminal; silent when the output is
// not a terminal, so that logs and pipes stay clean.

#include <string>

class ProgressBar {
public:
    // label: what is in progress, e.g. "export"; unit: what the rate counts, e.g. "MiB";
    // empty: no rate.
    ProgressBar(std::string label, std::string unit);
    // fraction: the share done, 0 .. 1; amount: how much of unit is done so far.
    void Update(double fraction, double amount);
    // Draws the full bar and ends its line; only once.
    void Finish(double amount);
    bool Visible() const { return visible_; }

private:
    std::string label_;
    std::string unit_;
    bool visible_;
    bool finished_ = false;
    double started_;
    double last_drawn_ = -1;
};
