#pragma once
// IPartialExportable: a dataset that can write a time range of itself into an export
// package (the host's ExportDataPack), as the streams "Wave", "Index" and "Area".
//
// The order of calls: InitializeExport, then AddRange once per range, then
// FinalizeExport, which commits the package. The package's folder and the range come
// from the dataset item's children:
//   "ExportParam"  a text value "begin=<s>,end=<s>,path=<folder>[,shift=<s>]"; times in
//                  seconds on the dataset's time axis, shift subtracted from the times
//                  written (default 0). The package is made in path; the range is what
//                  the "Export" command adds;
//   "DataCH"       optional: the destination's name, a sub-folder of path. Its text
//                  value, or the channel name of the IDataChannel it stands for.

#include "host/var.h"

#include <string>

class IBaseCtr;

class IPartialExportable {
public:
    virtual ~IPartialExportable() = default;
    // Prepares an export: with_files, the package's streams are requested at once and
    // the data goes straight into them; without, the data is staged in cache files
    // and FinalizeExport requests the streams. False if no package can be made.
    virtual bool InitializeExport(bool with_files) = 0;
    // Adds the data of [begin, end] (seconds), times shifted back by shift (an empty
    // Var gives 0). False when no export is running or the range is not a range.
    virtual bool AddRange(const Vellum::Var& begin, const Vellum::Var& end, const Vellum::Var& shift) = 0;
    // Completes and commits the package; the export is over either way. False when
    // none was running or the package could not be written whole.
    virtual bool FinalizeExport() = 0;
};

struct ExportParameters {
    double begin = 0;
    double end = 0;
    double shift = 0;
    std::string folder;  // path, joined with the destination name when there is one
};

// Reads "ExportParam" and "DataCH" of item. False (logged) when item is null, or the
// text lacks a path, or (with_range) a number for begin or end.
bool ReadExportParameters(IBaseCtr* item, ExportParameters& out, bool with_range = true);
