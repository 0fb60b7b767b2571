#pragma once
// What the recording program (recorder/recorder_main.cpp) and the kill test share: the
// storages it records and the lines it reports on its standard output.
//
//   "files ID0 ID1 ID2"   the managed files, once they exist
//   "flushed S COUNT"     storage S has been synced with COUNT units in it
//
// Each line goes out in one write of less than PIPE_BUF bytes, so a reader of the pipe
// sees whole lines only, whenever the program dies.

#include <array>
#include <cstddef>

namespace reliability {

// Unit sizes of the three storages; 12 doesn't divide the atom, so its blocks don't lie
// back to back in the channel's units.
inline constexpr std::array<std::size_t, 3> kRecordedUnitSizes{4, 8, 12};
// Each storage stops growing at this many bytes and then only syncs.
inline constexpr std::size_t kRecordedBytesPerStorage = std::size_t{16} << 20;

}  // namespace reliability
