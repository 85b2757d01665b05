// docsql's side of the client channel.
//
// Pulls: the server names a client file in an INFO notice and then starts a
// copy-in; docsql answers with the file's bytes from the local file system,
// or refuses (CopyFail) when the file cannot be opened or read, or when the
// user presses Ctrl-C.
// Pushes: the server sends a client file in INFO notices (begin, data, end).
// docsql writes it to a new file beside the target and renames it into
// place at the end, so that a failed transfer leaves nothing behind and an
// existing file is replaced only by a complete one.  It writes only where
// the user may write and never creates directories; a refused push cancels
// the running statement.
#pragma once

#include <libpq-fe.h>

#include <csignal>
#include <string>

#include "progress.h"

namespace docsql {

struct PushState {
    bool open = false;
    bool failed = false;   // refused or broken; rest of its data ignored
    std::string target;    // client file name as the server gave it
    std::string temp;      // file being written
    int fd = -1;
    long long expected = 0, received = 0;
    Progress progress;
};

struct Channel {
    PGconn *conn = nullptr;
    PGcancel *cancel = nullptr;
    bool trace = false;
    bool progressAllowed = true;
    std::string pendingPull;   // named by the last pull notice
    bool havePendingPull = false;
    long long pendingPullLimit = -1;  // most bytes the server takes (-1: not given)
    PushState push;
    std::string error;         // a client-side failure of this statement
};

// Set by the SIGINT handler: the user wants the statement stopped.
extern volatile sig_atomic_t g_interrupted;
// True while docsql streams a pull (Ctrl-C then refuses the copy-in rather
// than sending a cancel request).
extern volatile sig_atomic_t g_inPull;

// The notice receiver: takes the channel's notices, prints the others.
void NoticeReceiver(void *arg, const PGresult *res);

// Answers a copy-in.  A copy-in that no pull notice announced (COPY FROM
// STDIN) is refused.
void ServeCopyIn(Channel &ch);

// Called when a statement is over: an unfinished push is discarded.
void EndStatement(Channel &ch);

}  // namespace docsql
