#include "channel.h"

#include "clientproto.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace docsql {

volatile sig_atomic_t g_interrupted = 0;
volatile sig_atomic_t g_inPull = 0;

namespace {

void Trace(const Channel &ch, const std::string &line) {
    if (ch.trace) std::fprintf(stderr, "docsql: %s\n", line.c_str());
}

void Fail(Channel &ch, const std::string &message) {
    if (ch.error.empty()) ch.error = message;
}

// Stops the running statement: the push it sends cannot be written.
void CancelStatement(Channel &ch) {
    if (!ch.cancel) return;
    char err[256];
    PQcancel(ch.cancel, err, sizeof err);
}

void DiscardPush(Channel &ch) {
    PushState &p = ch.push;
    if (p.fd >= 0) close(p.fd);
    if (!p.temp.empty()) unlink(p.temp.c_str());
    ProgressEnd(p.progress);
    p = PushState();
}

void RefusePush(Channel &ch, const std::string &why) {
    Fail(ch, "cannot write client file \"" + ch.push.target + "\": " + why);
    Trace(ch, "push refused: " + why);
    std::string target = ch.push.target;
    DiscardPush(ch);
    ch.push.open = true;
    ch.push.failed = true;
    ch.push.target = target;
    CancelStatement(ch);
}

std::string DirOf(const std::string &path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string BaseOf(const std::string &path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

void PushBegin(Channel &ch, const std::string &target, long long size) {
    if (ch.push.open) DiscardPush(ch);
    PushState &p = ch.push;
    p.open = true;
    p.target = target;
    p.expected = size;
    Trace(ch, "push begin " + target + " (" + std::to_string(size) + " bytes)");
    if (target.empty() || target.back() == '/') return RefusePush(ch, "not a file name");
    struct stat st;
    mode_t mode;
    if (stat(target.c_str(), &st) == 0) {
        if (!S_ISREG(st.st_mode)) return RefusePush(ch, "it exists and is not a regular file");
        if (access(target.c_str(), W_OK) != 0) return RefusePush(ch, std::strerror(errno));
        mode = st.st_mode & 07777;
    } else if (errno == ENOENT) {
        mode_t mask = umask(0);
        umask(mask);
        mode = 0666 & ~mask;
    } else {
        return RefusePush(ch, std::strerror(errno));
    }
    // The new file goes beside the target; its directory must exist already.
    std::string dir = DirOf(target);
    struct stat dst;
    if (stat(dir.c_str(), &dst) != 0)
        return RefusePush(ch, "directory \"" + dir + "\": " + std::strerror(errno) + " (docsql creates no directories)");
    if (!S_ISDIR(dst.st_mode)) return RefusePush(ch, "\"" + dir + "\" is not a directory");
    std::string temp = dir + "/." + BaseOf(target) + ".docsql-XXXXXX";
    int fd = mkstemp(&temp[0]);
    if (fd < 0) return RefusePush(ch, std::strerror(errno));
    fchmod(fd, mode);
    p.fd = fd;
    p.temp = temp;
    ProgressStart(p.progress, target, size, ch.progressAllowed);
}

void PushData(Channel &ch, const char *text) {
    PushState &p = ch.push;
    if (!p.open) return Fail(ch, "the server sent client file data without naming the file");
    if (p.failed) return;
    std::string bytes;
    if (!dt::channel::Base64Decode(text, bytes)) return RefusePush(ch, "the server sent damaged data");
    Trace(ch, "push data " + std::to_string(bytes.size()) + " bytes");
    const char *q = bytes.data();
    size_t left = bytes.size();
    while (left > 0) {
        ssize_t w = write(p.fd, q, left);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return RefusePush(ch, std::strerror(w < 0 ? errno : ENOSPC));
        q += w;
        left -= (size_t)w;
    }
    p.received += (long long)bytes.size();
    ProgressUpdate(p.progress, p.received);
}

void PushEnd(Channel &ch, long long total) {
    PushState &p = ch.push;
    if (!p.open) return Fail(ch, "the server ended a client file it never began");
    if (p.failed) {
        p = PushState();
        return;
    }
    Trace(ch, "push end " + p.target + " (" + std::to_string(p.received) + " bytes)");
    if (total != p.received) return RefusePush(ch, "the server sent " + std::to_string(p.received) +
                                                       " bytes but announced " + std::to_string(total));
    if (fsync(p.fd) != 0 || close(p.fd) != 0) {
        p.fd = -1;
        return RefusePush(ch, std::strerror(errno));
    }
    p.fd = -1;
    if (rename(p.temp.c_str(), p.target.c_str()) != 0) return RefusePush(ch, std::strerror(errno));
    ProgressUpdate(p.progress, p.received);
    ProgressEnd(p.progress);
    p = PushState();
}

void PrintNotice(const PGresult *res) {
    const char *sev = PQresultErrorField(res, PG_DIAG_SEVERITY);
    const char *msg = PQresultErrorField(res, PG_DIAG_MESSAGE_PRIMARY);
    const char *detail = PQresultErrorField(res, PG_DIAG_MESSAGE_DETAIL);
    const char *hint = PQresultErrorField(res, PG_DIAG_MESSAGE_HINT);
    std::fprintf(stderr, "%s:  %s\n", sev ? sev : "NOTICE", msg ? msg : "");
    if (detail) std::fprintf(stderr, "DETAIL:  %s\n", detail);
    if (hint) std::fprintf(stderr, "HINT:  %s\n", hint);
}

}  // namespace

void NoticeReceiver(void *arg, const PGresult *res) {
    Channel &ch = *static_cast<Channel *>(arg);
    const char *code = PQresultErrorField(res, PG_DIAG_SQLSTATE);
    if (!dt::channel::IsChannelCode(code)) return PrintNotice(res);
    const char *msg = PQresultErrorField(res, PG_DIAG_MESSAGE_PRIMARY);
    std::string m = msg ? msg : "";
    if (std::strcmp(code, dt::channel::kPullNotice) == 0) {
        const char *detail = PQresultErrorField(res, PG_DIAG_MESSAGE_DETAIL);
        ch.pendingPull = m;
        ch.havePendingPull = true;
        ch.pendingPullLimit = detail && *detail ? std::atoll(detail) : -1;
    } else if (std::strcmp(code, dt::channel::kPushBegin) == 0) {
        const char *detail = PQresultErrorField(res, PG_DIAG_MESSAGE_DETAIL);
        PushBegin(ch, m, detail ? std::atoll(detail) : 0);
    } else if (std::strcmp(code, dt::channel::kPushData) == 0) {
        PushData(ch, m.c_str());
    } else {
        PushEnd(ch, std::atoll(m.c_str()));
    }
}

void ServeCopyIn(Channel &ch) {
    PGconn *conn = ch.conn;
    if (!ch.havePendingPull) {
        PQputCopyEnd(conn, "docsql sends no standard input to COPY FROM STDIN; use psql's \\copy or a server file");
        return;
    }
    std::string name = ch.pendingPull;
    long long limit = ch.pendingPullLimit;
    ch.havePendingPull = false;
    ch.pendingPull.clear();
    ch.pendingPullLimit = -1;
    Trace(ch, "pull " + name);

    auto refuse = [&](const char *word, const std::string &why) {
        std::string text = std::string(word) + ": " + why;
        Trace(ch, "pull refused: " + text);
        PQputCopyEnd(conn, text.c_str());
    };
    int fd = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return refuse(dt::channel::kRefuseOpen, std::strerror(errno));
    struct stat st;
    if (fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
        int err = S_ISDIR(st.st_mode) ? EISDIR : errno;
        close(fd);
        return refuse(dt::channel::kRefuseOpen, std::strerror(err));
    }
    Progress progress;
    ProgressStart(progress, name, (long long)st.st_size, ch.progressAllowed);
    g_inPull = 1;
    char buf[dt::channel::kChunkSize];
    long long sent = 0;
    for (;;) {
        if (g_interrupted) {
            refuse(dt::channel::kRefuseInterrupt, "the user interrupted the transfer");
            break;
        }
        ssize_t r = read(fd, buf, sizeof buf);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) {
            refuse(dt::channel::kRefuseRead, std::strerror(errno));
            break;
        }
        if (r == 0) {
            Trace(ch, "pull end " + name + " (" + std::to_string(sent) + " bytes)");
            PQputCopyEnd(conn, nullptr);
            break;
        }
        // The server takes no more than the limit and ignores what follows
        // its error, so a longer file (or an endless one, /dev/zero) is
        // refused here rather than sent on.
        if (limit >= 0 && sent + r > limit) {
            refuse(dt::channel::kRefuseLimit, "the file is longer than " + std::to_string(limit) + " bytes");
            break;
        }
        if (PQputCopyData(conn, buf, (int)r) != 1) break;  // the connection failed; PQgetResult reports it
        sent += r;
        ProgressUpdate(progress, sent);
    }
    g_inPull = 0;
    ProgressEnd(progress);
    close(fd);
}

void EndStatement(Channel &ch) {
    if (ch.push.open && !ch.push.failed) {
        Fail(ch, "transfer of client file \"" + ch.push.target + "\" was cut short; nothing was written");
        DiscardPush(ch);
    }
    ch.push = PushState();
    ch.havePendingPull = false;
    ch.pendingPull.clear();
    ch.pendingPullLimit = -1;
}

}  // namespace docsql
