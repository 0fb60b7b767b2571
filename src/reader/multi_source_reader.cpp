#include "reader/multi_source_reader.h"

#include "host/base_ctr.h"
#include "host/logger.h"
#include "reader/single_data_reader.h"
#include "storage/time_index.h"

#include <algorithm>
#include <utility>

struct CMultiSourceReader::Source {
    Ctr<IReader> reader;
    Ctr<IStructDataSetReader> struct_reader;
    Ctr<ITimeIndexOperator> time_index;
    IStructDataSetReader::SortKeyGen sort_key;
    std::vector<unsigned char> record;
};

namespace {

// (sort key, (position << 8) | source index): the merge order of one record.
using MergeKey = std::pair<uint64_t, uint64_t>;

MergeKey KeyOf(uint64_t sort_key, uint64_t position, std::size_t source) {
    return {sort_key, (position << 8) | (source & 0xFF)};
}

}  // namespace

CMultiSourceReader::CMultiSourceReader() = default;
CMultiSourceReader::~CMultiSourceReader() = default;

uint64_t CMultiSourceReader::Count() {
    uint64_t total = 0;
    for (const auto& source : sources) total += source->struct_reader->GetCount();
    return total;
}

uint64_t CMultiSourceReader::Total() {
    uint64_t total = 0;
    for (const auto& source : sources) total += source->reader->Count();
    return total;
}

bool CMultiSourceReader::AddSource(IBaseCtr* item) {
    if (item == nullptr) return false;
    IBaseCtr* base = item->GetChildItem("__base");
    if (known_items.count(base) != 0) return false;

    auto source = std::make_unique<Source>();
    source->reader = QueryInterface<IReader>(item);
    source->struct_reader = QueryInterface<IStructDataSetReader>(item);
    source->time_index = QueryInterface<ITimeIndexOperator>(item);
    // A record of unknown size cannot be read into a buffer safely: such a source is
    // left out like one without its interfaces.
    const uint64_t record_size = source->struct_reader ? source->struct_reader->RecordSize() : 0;
    if (source->reader && source->struct_reader && source->time_index && record_size != 0) {
        source->sort_key = source->struct_reader->GetSortKeyGen();
        source->record.assign(record_size, 0);
        sources.push_back(std::move(source));
    }
    known_items.insert(base);
    return true;
}

void CMultiSourceReader::Clear() {
    sources.clear();
    known_items.clear();
    positions.clear();
    current_index = kNone;
}

void CMultiSourceReader::ResetPositions() {
    if (sources.empty()) return;
    positions.assign(sources.size(), kNone);
}

uint64_t CMultiSourceReader::SourceSize(unsigned char id) {
    if (id == 0 || id > sources.size()) return 0;
    return sources[id - 1]->reader->Count();
}

bool CMultiSourceReader::ReadRecord(std::size_t i, uint64_t position) {
    Source& source = *sources[i];
    return source.reader->Read(position, source.record.data(), 1) == 1;
}

int CMultiSourceReader::MinIndexOf(const std::set<int>& excluded) {
    int best = -1;
    MergeKey best_key{};
    for (std::size_t i = 0; i < sources.size(); ++i) {
        if (excluded.count(static_cast<int>(i)) != 0 || !ReadRecord(i, positions[i])) continue;
        const uint64_t sort_key = sources[i]->sort_key ? sources[i]->sort_key(sources[i]->record.data()) : 0;
        const MergeKey key = KeyOf(sort_key, positions[i], i);
        if (best < 0 || key < best_key) {
            best = static_cast<int>(i);
            best_key = key;
        }
    }
    if (best < 0) {
        auto& log = CLogger::DefaultLogger();
        log.Info("MinIndexOf positions.size = {}", sources.size());
        for (uint64_t position : positions) log.Info("positions.value = {}", position);
    }
    return best;
}

int CMultiSourceReader::MaxIndexOf(const std::set<int>& excluded) {
    int best = -1;
    MergeKey best_key{};
    for (std::size_t i = 0; i < sources.size(); ++i) {
        const uint64_t position = positions[i] - 1;
        if (excluded.count(static_cast<int>(i)) != 0 || !ReadRecord(i, position)) continue;
        const uint64_t sort_key = sources[i]->sort_key ? sources[i]->sort_key(sources[i]->record.data()) : 0;
        const MergeKey key = KeyOf(sort_key, position, i);
        if (best < 0 || best_key < key) {
            best = static_cast<int>(i);
            best_key = key;
        }
    }
    if (best < 0) {
        auto& log = CLogger::DefaultLogger();
        log.Info("MaxIndexOf positions.size = {}", sources.size());
        for (uint64_t position : positions) log.Info("positions.value = {}", position);
    }
    return best;
}

bool CMultiSourceReader::Next(int64_t count) {
    if (count < 0 || count > 10000) CLogger::DefaultLogger().Info("Next count = {}", count);
    for (int64_t step = 0; current_source != -1 && step < count; ++step) {
        const int s = MinIndexOf();
        if (s < 0) {
            current_source = -1;
            break;
        }
        positions[s] += 1;
        current_source = s;
        current_index += 1;
    }
    return current_source != -1;
}

bool CMultiSourceReader::Prev(int64_t count) {
    for (int64_t step = 0; current_source != -1 && step < count; ++step) {
        const int s = MaxIndexOf();
        if (s < 0) {
            current_source = -1;
            break;
        }
        positions[s] -= 1;
        current_index -= 1;
        current_source = MaxIndexOf();
    }
    return current_source != -1;
}

bool CMultiSourceReader::Rewind() {
    std::fill(positions.begin(), positions.end(), 0);
    const int s = MinIndexOf();
    current_source = s;
    if (s < 0) return false;
    current_index = 0;
    positions[s] += 1;
    return true;
}

uint64_t CMultiSourceReader::CountAt(std::size_t i, uint64_t t) {
    bool clamped = false;
    const uint32_t position = sources[i]->time_index->Find(t, &clamped);
    return clamped ? sources[i]->reader->Count() : position;
}

uint64_t CMultiSourceReader::PositionAll(uint64_t t) {
    uint64_t sum = 0;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        positions[i] = CountAt(i, t);
        sum += positions[i];
    }
    return sum;
}

bool CMultiSourceReader::GotoPosition(uint64_t index) {
    // Positions are only valid once ResetPositions has sized them to the sources.
    if (!Positioned()) return false;
    if (index >= Total()) return false;
    if (sources.size() == 1) {
        positions[0] = index + 1;
        current_source = 0;
        current_index = index;
        return true;
    }
    if (index == 0) return Rewind();
    if (index >= current_index && index - current_index < kStepLimit)
        return Next(static_cast<int64_t>(index - current_index));
    if (index < current_index && current_index - index < kStepLimit)
        return Prev(static_cast<int64_t>(current_index - index));
    return FarJump(index);
}

bool CMultiSourceReader::FarJump(uint64_t index) {
    uint64_t lo = kNone, hi = 0;
    for (const auto& source : sources) {
        uint64_t begin = 0, end = 0;
        source->time_index->Range(&begin, &end);
        lo = std::min(lo, begin);
        hi = std::max(hi, end);
    }
    auto count = [&](uint64_t t) {
        uint64_t sum = 0;
        for (std::size_t i = 0; i < sources.size(); ++i) sum += CountAt(i, t);
        return sum;
    };
    // The midpoint as lo + (hi - lo) / 2: the same value as (lo + hi) / 2 without the
    // overflow of the sum near the end of the 64-bit range.
    uint64_t mid = lo == hi ? lo : lo + (hi - lo) / 2;
    bool exact = false;
    while (lo < mid) {
        const uint64_t at = count(mid);
        if (at == index + 1) {
            exact = true;
            break;
        }
        if (at < index + 1)
            lo = mid;
        else
            hi = mid;
        mid = lo + (hi - lo) / 2;
    }
    const uint64_t sum = PositionAll(mid);
    if (sum == 0) {
        if (!Rewind()) return false;
        return Next(static_cast<int64_t>(index));
    }
    current_source = MaxIndexOf();
    if (exact) {
        current_index = index;
        return true;
    }
    current_index = sum - 1;
    if (index <= current_index) {
        current_index = kNone;
        return false;
    }
    return Next(static_cast<int64_t>(index - current_index));
}

bool CMultiSourceReader::Seek(uint64_t index, unsigned int* source, uint64_t* position) {
    if (!GotoPosition(index)) return false;
    current_index = index;
    if (source != nullptr) *source = static_cast<unsigned int>(current_source);
    if (position != nullptr) *position = positions[current_source] - 1;
    return true;
}

uint64_t CMultiSourceReader::IndexAtTime(double time) {
    // Without sources or records the answer is false, that is 0.
    if (!Positioned() || Total() == 0) return 0;
    const uint64_t t = static_cast<uint64_t>(std::max(time, 0.0) * 1e9);
    const uint64_t sum = PositionAll(t);
    current_source = MaxIndexOf();
    current_index = sum - 1;
    return current_index;
}

uint64_t CMultiSourceReader::IndexOfRecord(unsigned int source_id, uint64_t position) {
    if (!Positioned()) return kNone;
    int wanted = -1;
    for (std::size_t i = 0; i < sources.size() && wanted < 0; ++i) {
        if (!ReadRecord(i, position)) continue;
        IStructDataSetReader::SourceIdGen id = sources[i]->struct_reader->GetSourceId();
        if (id && id(sources[i]->record.data()) == source_id) wanted = static_cast<int>(i);
    }
    if (wanted < 0) return kNone;
    Source& source = *sources[wanted];
    const uint64_t key = source.sort_key ? source.sort_key(source.record.data()) : 0;
    if (key == 0 || position >= source.reader->Count()) return kNone;
    if (sources.size() == 1) {
        GotoPosition(position);
        return current_index;
    }
    const uint64_t sum = PositionAll(key);
    if (sum != 0) {
        current_source = MaxIndexOf();
        current_index = sum - 1;
    } else {
        current_source = MinIndexOf();
        // The record was read a moment ago; a source that lost it since leaves no
        // next record, and the walk below would have nothing to step over.
        if (current_source < 0) return kNone;
        positions[current_source] += 1;
        current_index = 0;
    }
    while (current_source != wanted || positions[wanted] < position + 1) {
        // Stepping past the end would never reach the record.
        if (!Next(1)) return kNone;
    }
    return current_index;
}

IMultiSourceReader* CreateMultiSourceReader() { return new CMultiSourceReader(); }
