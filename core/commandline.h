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

}  // namespace dt
