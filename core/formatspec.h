// Format specifications: "[param-list:]path", param-list = name[(value)],...
//
// findparam searches a parameter list (or a whole specification: the walk
// stops at the ':' and never reads the path); deleteparam removes an element
// in place.  Names compare exactly; values keep their white space and nest
// parentheses.
#pragma once

#include <optional>
#include <string>

namespace dt {

// Length of the value copied to retbuf when found and retbufsize >= 1;
// 0 when found and retbufsize < 1 (retbuf untouched, may be null); -1 when
// absent or the list is malformed.  An empty param is a syntax check: a
// malformed list then writes "Syntax error: LIST @ INDEX" to standard error.
int findparam(const char *param, const char *list, char *retbuf, int retbufsize);

// Removes the element named param from list (in place).  1 when the list
// was changed or the parameter was absent; 0 when it could not be removed.
int deleteparam(const char *param, char *list);

// Convenience over findparam: the value, or nullopt when absent.
std::optional<std::string> FindParamValue(const std::string &param, const std::string &list);

// The parameter list of a specification: the text before its first ':';
// "format(ascii)" when there is no ':'.
std::string SpecParams(const std::string &spec);
// The path of a specification: the text after its first ':', or all of it.
std::string SpecPath(const std::string &spec);

}  // namespace dt
