#pragma once
// PieceTool: the time arithmetic of a reader placed on a piece of a time axis.
//
// A piece shows part of a dataset (its base range) shifted so that the dataset time
// `zero` appears at the zero position of the axis that shows it. With `az` the axis's
// zero position (IDatasetAxis::GetTrigPos, read at every call):
//   piece time = az + (base time - zero)
// Without an axis (the default) every operation passes its values through.
//
// A reader keeps one PieceTool, filled by its IPieceReader setters. It is plain data:
// copying it copies the range, the zero and the (non-owned) axis pointer.

#include <utility>

class IDatasetAxis;

class PieceTool {
public:
    PieceTool() = default;

    // Base time -> piece time.
    double B2P(double base) const;
    // Piece time -> base time.
    double P2B(double piece) const;

    // Moves [begin, end] from piece time to base time and clips it to the base range.
    // Returns the unclipped span in base time. When the span misses the base range (or
    // either span is empty), begin is left as it was and end = begin: an empty span that
    // callers treat as nothing to do. Without an axis: returns (begin, end) untouched.
    std::pair<double, double> TransformToBase(double& begin, double& end) const;
    // Moves [begin, end] from base time to piece time, in place.
    void TransformToPiece(double& begin, double& end) const;

    void SetBaseRange(double begin, double end) {
        base_begin = begin;
        base_end = end;
    }
    void SetZero(double value) { zero = value; }
    void SetAxis(IDatasetAxis* value) { axis = value; }

    double BaseBegin() const { return base_begin; }
    double BaseEnd() const { return base_end; }
    double Zero() const { return zero; }
    IDatasetAxis* Axis() const { return axis; }

private:
    double base_begin = 0.0;
    double base_end = 0.0;
    double zero = 0.0;
    IDatasetAxis* axis = nullptr;  // not owned; null: no transform
};
