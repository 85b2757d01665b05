// The client channel: files on the user's machine, read and written by the
// server while a statement runs.
//
// Reading (a pull) announces the client file in an INFO notice of its own
// code and then runs the copy-in sub-protocol: the client streams the file
// as CopyData messages and ends with CopyDone, or refuses with CopyFail.
// The client library can take a copy-in only in a statement that returns no
// rows, so a pull anywhere else is refused with an error that says so.
//
// Writing (a push) sends the file in INFO notices (begin, base64 data, end),
// which reach the client in any statement; it is allowed only in sessions
// that set document.client_channel = on, which docsql does when it connects.
//
// All functions raise dt::Error; call them inside dt::pg::Guard.
#pragma once

#include <cstddef>
#include <string>

namespace dt::pg {

// document.client_channel: the client serves client files.
extern bool client_channel_setting;

// Copies the client file `filename` into the new server file `outfilename`,
// which must be a name in the module's temporary directory (TempFileName).
// The file is created exclusively and registered as a temporary file: the
// caller removes it with TempFileRemove when done; an abort removes it too.
// If the pull fails, the file is already gone when the error is raised.
// Errors: 22T02 for a null or empty name, XD00M when the server file cannot
// be created, TL001 "Client file error" when the client refuses or the
// session cannot serve the pull, TL001 "Server file error" on a short write,
// 57014 when the client interrupts.
void GetClientFile(const char *filename, const char *outfilename);

// Pushes in three steps, for callers that produce the data themselves.
// PushBegin checks the session and announces the file and its size.
void PushBegin(const std::string &toname, long long size);
// Sends up to any number of bytes, in data messages of at most 8192 bytes.
void PushData(const char *data, size_t n);
void PushEnd(long long total);

// Sends the server file `fromname` to the client file `toname`.
// The caller checks the right to read server files (RequireServerFileRead).
void PutClientFile(const std::string &fromname, const std::string &toname);

// Superuser or a member of pg_read_server_files, else 42501.
void RequireServerFileRead(const std::string &path);

}  // namespace dt::pg
