// Word-processor formats: the alias table that maps the format names of
// specifications to the short names of the word-processor conversion
// engine, and the engine's choice of converter programs for a pair of
// short names.
#pragma once

#include <string>
#include <vector>

namespace dt {

// One row of the alias table.
struct RavelAliases {
    const char *fa_name;   // the format name as written in specifications
    const char *fa_alias;  // the engine's short name
};

// The alias table, in search order, ending with a row whose fa_name is null.
extern const RavelAliases Falias[];

// Replaces name (NUL-terminated, writable) in place by its alias at the
// first row whose fa_name equals it exactly; 1 when found, 0 otherwise
// (name unchanged).
int fa_lookup(char *name);

// The same on a string.
bool fa_lookup(std::string &name);

// How a converter receives its input: as an argument (the path), on
// standard input (for a program that would take a path for a URL), or as
// the path of a link to the input made under a fixed, harmless name (for a
// program that hands its path to a shell; see kRavelLinkName).
enum class RavelInput { Argument, StandardInput, FixedName };

// The name of the link a FixedName converter reads.
extern const char *const kRavelLinkName;

// One converter program of the engine: argv[0] is a bare program name
// (looked up in the engine's directory, then on the search path), the other
// elements are fixed options; an input given as an argument comes after
// them, followed by the fixed arguments of `after`.  The text goes to
// standard output.
struct RavelConverter {
    std::vector<std::string> argv;
    RavelInput input = RavelInput::Argument;
    std::vector<std::string> after;
};

// The converters for a pair of short names, in the order they are tried
// (a later one is a fall-back when the earlier one fails); empty when the
// engine has none for the pair.  Names are compared exactly.
std::vector<RavelConverter> RavelConverters(const std::string &from, const std::string &to);

// The argument vector of a converter for an input path.
std::vector<std::string> RavelArgv(const RavelConverter &c, const std::string &inpath);

// Statuses of the engine: 0 converted; 10 converted with warnings (never
// produced by these converters, accepted by callers); 2 no converter for
// the pair; 3 every converter failed or none could be run.
enum RavelStatus { RAVEL_OK = 0, RAVEL_NO_CONVERTER = 2, RAVEL_FAILED = 3, RAVEL_WARNINGS = 10 };

// Whether a status of the engine means success.
inline bool RavelSucceeded(int status) { return status == RAVEL_OK || status == RAVEL_WARNINGS; }

}  // namespace dt
