#pragma once
// IMathDataSet: a dataset whose samples are calculated from other datasets, asked to
// calculate a time range and to tell the range it calculated last.

class IMathDataSet {
public:
    virtual ~IMathDataSet() = default;
    // Calculates the samples of [start, end] (seconds).
    virtual void CalcRange(double start, double end) = 0;
    // The range of the last calculation.
    virtual void GetLastRange(double& start, double& end) = 0;
};
