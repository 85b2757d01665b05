// Opening files that are read as documents.
//
// Only regular files (after following symbolic links) are documents.  A
// FIFO, a device such as /dev/zero, a directory or a socket is refused
// without blocking and without reading from it: the open itself does not
// wait for a FIFO's writer.
#pragma once

#include <string>

namespace dt {

// Opens path for reading.  Returns the descriptor and its size in *size;
// or -1 with *why set to the reason ("No such file or directory", "it is a
// FIFO, not a regular file", ...).
int OpenRegularFile(const std::string &path, long long *size, std::string *why);

// A descriptor that is closed when it goes out of scope.
struct ReadFd {
    int fd = -1;
    explicit ReadFd(int d) : fd(d) {}
    ReadFd(const ReadFd &) = delete;
    ReadFd &operator=(const ReadFd &) = delete;
    ~ReadFd();
};

}  // namespace dt
