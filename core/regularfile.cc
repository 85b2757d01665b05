#include "regularfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace dt {

namespace {
const char *KindOf(mode_t mode) {
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode)) return "a character device";
    if (S_ISBLK(mode)) return "a block device";
    if (S_ISDIR(mode)) return "a directory";
    if (S_ISSOCK(mode)) return "a socket";
    return "a special file";
}
}  // namespace

ReadFd::~ReadFd() {
    if (fd >= 0) ::close(fd);
}

int OpenRegularFile(const std::string &path, long long *size, std::string *why) {
    // O_NONBLOCK: opening a FIFO without a writer returns at once instead
    // of waiting; it changes nothing for the regular files that are kept.
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        *why = std::strerror(errno);
        return -1;
    }
    struct stat st;
    if (fstat(fd, &st) != 0) {
        *why = std::strerror(errno);
        ::close(fd);
        return -1;
    }
    if (!S_ISREG(st.st_mode)) {
        *why = std::string("it is ") + KindOf(st.st_mode) + ", not a regular file";
        ::close(fd);
        return -1;
    }
    int flags = fcntl(fd, F_GETFL);
    if (flags >= 0) fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    *size = (long long)st.st_size;
    return fd;
}

}  // namespace dt
