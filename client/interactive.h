// docsql on a terminal: a prompt naming the database, line editing and
// history (GNU readline; ~/.docsql_history), each statement run when its
// semicolon is typed, backslash commands, and Ctrl-C clearing the line
// being typed (while a statement runs it cancels the statement instead).
#pragma once

#include <string>

#include "metacommand.h"

namespace docsql {

// Reads and runs statements until \q or end of input; returns docsql's
// exit status (0, or 3 when the last statement failed).
int RunInteractive(Session &s, const std::string &dbname, bool superuser, bool useHistory);

// Called by the SIGINT handler while no statement runs: true when the
// prompt took the interrupt (the line is cleared, docsql goes on).
bool InteractiveInterrupt();

}  // namespace docsql
