#include "reader/piece_tool.h"

#include "dataset/axis.h"

#include <algorithm>

double PieceTool::B2P(double base) const {
    if (axis == nullptr) return base;
    return axis->GetTrigPos() + (base - zero);
}

double PieceTool::P2B(double piece) const {
    if (axis == nullptr) return piece;
    return (piece - axis->GetTrigPos()) + zero;
}

void PieceTool::TransformToPiece(double& begin, double& end) const {
    if (axis == nullptr) return;
    const double shift = axis->GetTrigPos() - zero;
    begin += shift;
    end += shift;
}

std::pair<double, double> PieceTool::TransformToBase(double& begin, double& end) const {
    if (axis == nullptr) return {begin, end};
    const double shift = zero - axis->GetTrigPos();
    const double tb = begin + shift;
    const double te = end + shift;

    // Intersection with the base range; stays 0, 0 (empty) unless both spans are
    // non-empty and overlap. NaN anywhere fails the comparisons and gives empty too.
    double lo = 0.0;
    double hi = 0.0;
    const bool overlaps = (tb >= base_begin && base_end > tb) || (base_begin >= tb && te > base_begin);
    if (te > tb && base_end > base_begin && overlaps) {
        lo = std::max(base_begin, tb);
        hi = std::min(base_end, te);
    }

    if (hi > lo) {
        begin = lo;
        end = hi;
    } else {
        // Empty span, still in piece time: begin stays, end joins it.
        end = begin;
    }
    return {tb, te};
}
