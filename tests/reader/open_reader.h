// Shared by the reader tests: the reader with its protected helpers opened, and a wave
// dataset item whose runs go in through the producer (exact index columns, one area each).
#pragma once

#include "reader/basic_wave_reader.h"
#include "support/test_wave.h"
#include "wave/wave_producer.h"

#include <memory>
#include <utility>
#include <vector>

namespace reader_tests {

using Position = unsigned long long;
using Hit = std::pair<Position, Position>;

template <class T>
class OpenReader : public CBasicWaveReader<T> {
public:
    using CBasicWaveReader<T>::CBasicWaveReader;
    using CBasicWaveReader<T>::ComposeValidArea;
    using CBasicWaveReader<T>::CalcBoundary;
    using CBasicWaveReader<T>::GetArea;
    using CBasicWaveReader<T>::GetIndexId;
    using CBasicWaveReader<T>::FindNextIndex;
    using CBasicWaveReader<T>::FindPreIndex;
};

// samples holds every sample of the runs, in storage order.
template <class T>
struct Wave : testing_support::TestWave<T> {
    std::vector<double> samples;

    explicit Wave(const char* type, double period = 1e-3, uint64_t index_step = 10)
        : testing_support::TestWave<T>(type, period, index_step) {}
    Wave& Runs(const std::vector<std::pair<double, std::vector<T>>>& runs) {
        const double period = this->axis->GetRatio();
        WaveProducer<T> producer(*this->dataset, period, period * static_cast<double>(this->axis->GetIndexStep()));
        for (const auto& [start, values] : runs) {
            producer.Append(start, values.data(), values.size());
            samples.insert(samples.end(), values.begin(), values.end());
        }
        return *this;
    }
    template <class R>
    void Push(const std::vector<R>& records) {
        this->dataset->Push(records.data(), records.size());
    }
    std::unique_ptr<OpenReader<T>> Reader(bool with_index = true) {
        return this->template MakeReader<OpenReader<T>>(with_index);
    }
    // The reader the dataset hands out, with its index summary.
    std::unique_ptr<CBasicWaveReader<T>> Created() {
        return std::unique_ptr<CBasicWaveReader<T>>(this->dataset->CreateBasicWaveReader());
    }
};

}  // namespace reader_tests
