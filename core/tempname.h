// Names of temporary files and the module's random numbers.
#pragma once

#include <string>

namespace dt {

// rand(), seeded with the process id on the first call in the process.
int _dt_random();

// The longest base a temporary name keeps: room for "." and the number
// and for the suffixes added to temporary names of temporary files
// (".docinp", "fmtcnv"), twice over, within a file name of 255 bytes.
constexpr size_t kMaxTempBase = 200;

// directory + "/" + the part of fname after its last '/' (its first
// kMaxTempBase bytes) + "." + a random number below 100000.
std::string _dt_MakeTempName(const std::string &directory, const std::string &fname);

}  // namespace dt
