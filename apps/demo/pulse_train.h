#pragma once
// The synthetic acquisition of the demo: a noisy pulse train. Pulses of 1 ms every
// 2.5 ms rise over a baseline of 0.0 to a height that drifts slowly between 0.2 and 1.0
// (a period of 97 s), with noise of a few percent; the capture has a few gaps where the
// source was paused.

#include <cmath>
#include <cstdint>
#include <vector>

class PulseTrain {
public:
    static constexpr double kPeriod = 1e-6;  // 1 MS/s

    // The value of sample i, scaled for the element type (amplitude 1.0 for floating
    // types, 10000 for integers).
    template <class T>
    T Sample(uint64_t i) {
        state_ = state_ * 6364136223846793005ull + 1442695040888963407ull;
        const double noise = (static_cast<double>(state_ >> 40) / 16777216.0 - 0.5) * 0.08;
        const uint64_t phase = i % 2500;
        const double height = 0.6 + 0.4 * std::sin(2 * 3.141592653589793 * static_cast<double>(i) * kPeriod / 97.0);
        const double edge = phase < 1000 ? std::min(1.0, static_cast<double>(phase) / 20.0) * height : 0.0;
        const double value = edge + noise;
        if constexpr (std::is_floating_point_v<T>)
            return static_cast<T>(value);
        else
            return static_cast<T>(std::lround(value * 10000.0));
    }

    template <class T>
    void Fill(std::vector<T>& block, uint64_t first) {
        for (std::size_t i = 0; i < block.size(); ++i) block[i] = Sample<T>(first + i);
    }

private:
    uint64_t state_ = 0x853c49e6748fea9bull;
};
