// Running programs on server files, without a shell.
#pragma once

#include <string>

extern "C" {
#include "postgres.h"
}

namespace dt::pg {

// Runs the command format with "%s" replaced by file (see SplitCommand),
// with extra environment entries such as "DISPLAY=:0", and returns its exit
// status (128 + the signal number when a signal ended it).  Needs superuser
// or pg_execute_server_program.  A cancel of the statement kills the command.
int RunCommandOnFile(const std::string &format, const std::string &file,
                     const std::string &extra_env, const char *funcname);

// Superuser or membership in the given predefined role, else 42501.
void RequireRole(Oid role, const char *rolename, const std::string &what);

// Whether path is a regular file the server may execute.
bool IsExecutableFile(const std::string &path);

// The server's $PATH (a default when it has none).
std::string ServerSearchPath();

}  // namespace dt::pg
