// Names of temporary files and the module's random numbers.
#pragma once

#include <string>

namespace dt {

// rand(), seeded with the process id on the first call in the process.
int _dt_random();

// directory + "/" + the part of fname after its last '/' + "." + a random
// number below 100000.
std::string _dt_MakeTempName(const std::string &directory, const std::string &fname);

}  // namespace dt
