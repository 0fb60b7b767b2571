#pragma once
// Writes min/max columns as a PNG picture: one pixel column per data column, a vertical
// stroke from its minimum to its maximum; columns without data stay blank.

#include "dataset/records.h"

#include <string>
#include <vector>

// False (with errno-style text in error) when the file can't be written.
bool WriteColumnPicture(const std::string& path, const std::vector<MinMaxData<double>>& columns, unsigned height,
                        std::string& error);
