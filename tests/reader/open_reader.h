// Shared by the reader tests: the reader with its protected helpers opened.
#pragma once

#include "reader/basic_wave_reader.h"

#include <utility>

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

}  // namespace reader_tests
