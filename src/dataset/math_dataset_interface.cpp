#include "dataset/math_dataset_interface.h"

#include "host/base_ctr.h"

#include <cmath>

Ctr<IMathDataSet> QueryMathDataSet(IBaseCtr* item) { return QueryInterface<IMathDataSet>(item); }

bool CalcRangeInsideLast(double start, double end, double last_start, double last_end) {
    return start > last_start && last_end > end && !(1e-12 > std::fabs(last_start - last_end));
}

bool CalcRangeUnlessInsideLast(IBaseCtr* item, IMathDataSet& math, double start, double end) {
    double last_start = 0, last_end = 0;
    math.GetLastRange(last_start, last_end);
    if (CalcRangeInsideLast(start, end, last_start, last_end)) return false;
    // The dataset answers "Clear" with false although it handled it.
    if (item != nullptr) item->OnCMD("Clear", nullptr);
    math.CalcRange(start, end);
    return true;
}
