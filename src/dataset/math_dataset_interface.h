#pragma once
// IMathDataSet: a dataset whose samples are calculated from other datasets, asked to
// calculate a time range and to tell the range it calculated last; and the rule of the
// script command "setCalcRange" on top of it.
//
// A math dataset item answers GetExtendCtr(VellumTypeOf<IMathDataSet>()) with a handle
// that points to the dataset without owning it; any other dataset has no such face.

#include "host/ctr_var.h"

class IBaseCtr;

class IMathDataSet {
public:
    virtual ~IMathDataSet() = default;
    // Calculates the samples of [start, end] (seconds), appending to the dataset's
    // storages. It does not clear: a caller that wants a fresh result sends "Clear" first.
    virtual void CalcRange(double start, double end) = 0;
    // The range of the last calculation, as it was requested; 0, 0 before the first one
    // and after "Clear".
    virtual void GetLastRange(double& start, double& end) = 0;
};

// The math face of a dataset item; empty for a null item or a dataset that has none.
Ctr<IMathDataSet> QueryMathDataSet(IBaseCtr* item);

// True when [start, end] lies strictly inside the non-empty range [last_start, last_end]
// that was calculated last: such a request is skipped. The comparisons are strict, so a
// range that shares an endpoint with the last one is calculated again.
bool CalcRangeInsideLast(double start, double end, double last_start, double last_end);

// The work of "setCalcRange" once its two values are read: unless the range lies inside
// the last one, sends "Clear" to item (through its OnCMD) and calls CalcRange. True when
// it calculated, false when the range was skipped.
bool CalcRangeUnlessInsideLast(IBaseCtr* item, IMathDataSet& math, double start, double end);
