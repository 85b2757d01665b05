// Turning a command format such as "lpr -P office %s" into an argument
// vector, without a shell: words are separated by blanks, single or double
// quotes group a word (no other shell syntax has meaning), and every "%s"
// is replaced by the file name as it stands, inside one word.
#pragma once

#include <string>
#include <vector>

namespace dt {

// Raises 22T02 for an empty command or an unterminated quote.
std::vector<std::string> SplitCommand(const std::string &format, const std::string &file);

// The program file to run for `program`: a name beginning with '/' as it
// stands; otherwise dir + "/" + program when that is executable
// (isExecutable decides), else the first executable program in the
// directories of searchPath (colon-separated, as $PATH).  Only absolute
// directories of searchPath are used: an empty or relative entry would find
// programs in whatever directory the program runs in.  Empty when nothing
// is found.
std::string FindProgram(const std::string &program, const std::string &dir,
                        const std::string &searchPath,
                        bool (*isExecutable)(const std::string &path));

// A path as a program argument that cannot be taken for an option: a path
// beginning with '-' gets "./" in front.
std::string PathArgument(const std::string &path);

}  // namespace dt
