#pragma once
// Export of a wave dataset to an HDF5 file that plain HDF5 users (h5py, numpy, MATLAB)
// open without knowing this library:
//
//   /samples  1-D, the element type of the wave (long double as 64-bit float), chunked
//             and compressed (shuffle + deflate); the samples of all exported runs, one
//             after the other
//   /areas    one compound record per unbroken run: start_time and end_time (int64, ns),
//             index_id, first_count, wave_beg_pos, wave_end_pos (uint64), positions into
//             /samples and /index of this file
//   /index    one compound record {min, max} per min/max column, element type
//
// Attributes of /samples: sample_period (s), start_time (s, of the first exported
// sample), index_period (s), samples_per_index, time_unit ("s"), value_unit ("raw"),
// data_scale and data_offset (raw x scale + offset gives the data axis' units, when the
// dataset has a data axis), element_type (the short name, e.g. "f32"), dataset (the item
// name).
//
// The samples stream through a buffer of 1 Mi elements: memory stays bounded whatever
// the length of the wave. The file is written under a temporary name beside the target
// and renamed at the end; a failed export leaves no file under the target name.

#include <cstdint>
#include <functional>
#include <string>

class IBaseCtr;

struct ExportSpan {
    bool whole = true;  // the whole wave; otherwise the samples whose time lies in [begin, end]
    double begin = 0;
    double end = 0;
};

struct ExportSummary {
    uint64_t samples = 0;
    uint64_t areas = 0;
    uint64_t index_entries = 0;
};

struct ExportOptions {
    ExportSpan span;
    int compression = 1;  // deflate level 0 (none) .. 9
    std::function<void(double fraction)> progress;  // called now and then with the share done
};

// Writes the wave dataset item (any registered WAVEDATASET element type) to path. False
// with a reason in error: an item that is no wave dataset, an empty span, a file that
// can't be written.
bool ExportWaveToHdf5(IBaseCtr* item, const std::string& path, const ExportOptions& options, ExportSummary& summary,
                      std::string& error);
