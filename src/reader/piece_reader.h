#pragma once
// IPieceReader: the root interface of readers that can be placed on a piece of a time
// axis (a base range that clips the data, a zero position that shifts it, and the axis
// that shows the piece). A reader keeps these in its PieceTool.

class IDatasetAxis;

class IPieceReader {
public:
    // How a zero position is meant; readers accept it and do not use it.
    enum TimeMode : int { kTimeModeAbsolute = 0, kTimeModeRelative = 1, kTimeModePiece = 2 };

    virtual ~IPieceReader() = default;
    virtual void SetBaseRange(double begin, double end) = 0;
    virtual void SetZeroPosition(double position, TimeMode mode) = 0;
    virtual void SetAxis(IDatasetAxis* axis) = 0;
};
