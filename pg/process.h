// Running a user-supplied command on a server file, without a shell.
#pragma once

#include <string>

namespace dt::pg {

// Runs the command format with "%s" replaced by file (see SplitCommand),
// with extra environment entries such as "DISPLAY=:0", and returns its exit
// status (128 + the signal number when a signal ended it).  Needs superuser
// or pg_execute_server_program.  A cancel of the statement kills the command.
int RunCommandOnFile(const std::string &format, const std::string &file,
                     const std::string &extra_env, const char *funcname);

// Superuser or membership in the given predefined role, else 42501.
void RequireRole(Oid role, const char *rolename, const std::string &what);

}  // namespace dt::pg
