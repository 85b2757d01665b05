// The plan of a shell filter step: an external program that reads the
// input file named as its argument and writes the converted text to its
// standard output, run in the input file's directory.  No shell is
// involved: the paths are single elements of the argument vector.
#pragma once

#include <string>
#include <vector>

namespace dt {

struct ShellFilterRun {
    std::string dir;                // where the program runs
    std::vector<std::string> argv;  // program file, then the input path
    std::string outpath;            // the file that becomes standard output
};

// The run of `programFile` (a path to the program, see FindProgram) that
// converts a file described by the format string ifspec into one described
// by ofspec.  The directory is the input path's directory (path(), "/" for
// a file directly under the root; the whole input path when it has no '/').
// A relative output path is taken from that directory, as the program sees
// it.
ShellFilterRun ShellFilterPlan(const std::string &ifspec, const std::string &ofspec,
                               const std::string &programFile);

}  // namespace dt
