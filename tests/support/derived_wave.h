#pragma once
// A wave dataset item for the tests of the derived readers: 1 ms samples, 10 samples
// per index column, runs written through the producer (one area each).

#include "support/test_wave.h"
#include "wave/wave_derived_readers.h"
#include "wave/wave_producer.h"

#include <memory>
#include <utility>
#include <vector>

template <class T>
struct DerivedWave : testing_support::TestWave<T> {
    explicit DerivedWave(const char* type = "WAVEDATASET[DOUBLE]") : testing_support::TestWave<T>(type, 1e-3, 10) {}

    DerivedWave& Runs(const std::vector<std::pair<double, std::vector<T>>>& runs) {
        WaveProducer<T> producer(*this->dataset, 1e-3, 1e-2);
        for (const auto& [start, values] : runs) producer.Append(start, values.data(), values.size());
        return *this;
    }

    std::unique_ptr<CEdgeDataReader<T>> Edges(double level, double hysteresis, unsigned int filter = 3) {
        std::unique_ptr<CEdgeDataReader<T>> reader(CreateEdgeReader(*this->dataset));
        EdgeSearchParam param{level, hysteresis, filter};
        reader->SetupParame(&param);
        return reader;
    }
    std::unique_ptr<CLogicDataReader<T>> Logic(double level, double hysteresis) {
        std::unique_ptr<CLogicDataReader<T>> reader(CreateLogicReader(*this->dataset));
        LogicSearchParam param{level, hysteresis, 0};
        reader->SetupParame(&param);
        return reader;
    }
    std::unique_ptr<CValidAreaDataReader> Areas() {
        return std::unique_ptr<CValidAreaDataReader>(CreateValidReader(*this->dataset));
    }
    std::unique_ptr<CBasicLevelInformation<T>> Levels() {
        return std::unique_ptr<CBasicLevelInformation<T>>(CreateLevelInformationReader(*this->dataset));
    }
    std::unique_ptr<CBasicEdgeInformation<T>> EdgeInfo() {
        return std::unique_ptr<CBasicEdgeInformation<T>>(CreateEdgeInformationReader(*this->dataset));
    }
};

// n samples of low, then n of high, repeated periods times.
inline std::vector<double> Square(std::size_t n, int periods, double low, double high) {
    std::vector<double> values;
    for (int p = 0; p < periods; ++p) {
        values.insert(values.end(), n, low);
        values.insert(values.end(), n, high);
    }
    return values;
}
