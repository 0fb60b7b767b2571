#pragma once
// What the translation units of CBasicWaveReader<T> share: the all-ones position, the
// truncation of seconds to nanoseconds, and the range treatment of the reading
// operations as a scope. Included only by the reader's own sources.

#include "dataset/axis.h"
#include "dataset/time_rules.h"
#include "reader/basic_wave_reader.h"

#include <cstdint>
#include <utility>

namespace reader_detail {

constexpr uint64_t kAllOnes = ~uint64_t{0};

inline int64_t Ns(double seconds) { return SecondsToNs(seconds); }

}  // namespace reader_detail

// Subtracts the data offset and maps piece time to base time at construction; maps
// back and adds the offset again when it goes, on every way out.
template <class T>
class CBasicWaveReader<T>::RangeScope {
public:
    RangeScope(CBasicWaveReader& reader, double& begin, double& end)
        : offset_(&begin, &end, reader.tools_ ? reader.tools_->SizeAxis() : nullptr),
          piece_(reader.piece_),
          begin_(begin),
          end_(end),
          request_(piece_.TransformToBase(begin_, end_)) {}
    ~RangeScope() { piece_.TransformToPiece(begin_, end_); }
    // The request in base time before the base range clipped it.
    const std::pair<double, double>& Request() const { return request_; }
    RangeScope(const RangeScope&) = delete;
    RangeScope& operator=(const RangeScope&) = delete;

private:
    DataOffsetUtility offset_;
    PieceTool& piece_;
    double& begin_;
    double& end_;
    std::pair<double, double> request_;
};
