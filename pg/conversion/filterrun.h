// Running the programs of conversion steps (the shell filters and the
// word-processor engine's converters): found in the module's filter
// directory or on the server's search path, run without a shell in a
// sandbox that lets them read the system's programs and data, the module's
// home and the input's directory, and write only a scratch directory of
// their own (removed afterwards) and their standard output.
#pragma once

#include <string>
#include <vector>

#include "childprocess.h"

namespace dt::pg {

// Defines document.filter_max_output; called once when the library loads.
void DefineFilterSettings();

// The filter program directory: the module's home + "/extend/document/bin",
// computed once per process.
const std::string &GetDocBinPath();

// The program file for a program name (see dt::FindProgram): dir first,
// then the server's search path; "" when there is none.
std::string FindFilterProgram(const std::string &program, const std::string &dir);

// A scratch directory for one run of a program (its $HOME and $TMPDIR, the
// only place it may write), removed with its contents when this goes.
struct FilterScratch {
    std::string dir;
    FilterScratch();  // makes it under the backend's temporary directory
    ~FilterScratch();
    FilterScratch(const FilterScratch &) = delete;
    FilterScratch &operator=(const FilterScratch &) = delete;
};

struct FilterProgramRun {
    std::vector<std::string> argv;  // argv[0]: the program file
    std::string dir;                // working directory ("" keeps the server's)
    std::string stdin_path;         // "" for /dev/null
    std::string stdout_path;
    std::string input_path;         // the file the program reads (its directory becomes readable)
};

// Runs it; see dt::RunChild.  A statement cancel kills the program.
dt::ChildResult RunFilterProgram(const FilterProgramRun &run, const FilterScratch &scratch);

// Emits a WARNING that a conversion program could not be run (why the step
// gives null).
void WarnFilterNotRun(const std::string &program, const dt::ChildResult &res);
void WarnFilterMissing(const std::string &program, const std::string &dir);

}  // namespace dt::pg
