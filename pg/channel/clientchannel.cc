#include "clientchannel.h"

#include "boundary.h"
#include "clientproto.h"
#include "doclayout.h"
#include "regularfile.h"
#include "module.h"
#include "tempfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

extern "C" {
#include "catalog/pg_authid.h"
#include "utils/memutils.h"
#include "libpq/libpq.h"
#include "libpq/pqformat.h"
#include "nodes/parsenodes.h"
#include "nodes/plannodes.h"
#include "tcop/pquery.h"
#include "tcop/tcopprot.h"
#include "utils/acl.h"
#include "utils/guc.h"
#include "utils/portal.h"
}

namespace dt::pg {

bool client_channel_setting = false;

namespace {

constexpr int kSqlstatePull = MAKE_SQLSTATE('X', 'D', 'C', '0', '1');
constexpr int kSqlstatePushBegin = MAKE_SQLSTATE('X', 'D', 'C', '0', '2');
constexpr int kSqlstatePushData = MAKE_SQLSTATE('X', 'D', 'C', '0', '3');
constexpr int kSqlstatePushEnd = MAKE_SQLSTATE('X', 'D', 'C', '0', '4');

// A transfer that cannot start: TL001 with a message that says why and
// what to do, and the catalogue's parameters in the detail.
[[noreturn]] void RefuseOpen(const std::string &verb, const std::string &name, const std::string &why) {
    throw dt::Error::User("cannot " + verb + " client file \"" + name + "\": " + why, "TL001",
                          "NAME=Client file error, OPERATION=Open of file " + name);
}

bool ClientConnected() { return whereToSendOutput == DestRemote; }

// Why the running statement cannot take a copy-in now, or nullptr.
const char *PullObstacle() {
    Portal portal = ActivePortal;
    // No portal: the statement is being parsed or planned (a literal being
    // converted); nothing of its result has been sent yet, so the client can
    // take the copy-in before the rows.
    // With the extended protocol the client may have sent the messages that
    // follow (Bind, Execute), which a copy-in cannot get past.  A Sync alone
    // (docsql sends Parse and Sync first) is taken in the copy-in's stride.
    if (portal == nullptr) {
        if (pq_buffer_has_data() && pq_peekbyte() != 'S')
            return "the client sent more messages after this one (extended query protocol); enter "
                   "documents from client files with the simple query protocol, as docsql does, or "
                   "pass the literal in the statement text instead of as a parameter";
        return nullptr;
    }
    if (portal->tupDesc != nullptr)
        return "a statement that returns rows cannot read client files; read them in INSERT, UPDATE, "
               "INSERT ... SELECT or CREATE TABLE ... AS instead";
    if (portal->stmts != NIL && list_length(portal->stmts) == 1) {
        Node *n = (Node *)linitial(portal->stmts);
        if (IsA(n, PlannedStmt)) {
            PlannedStmt *ps = (PlannedStmt *)n;
            if (ps->commandType == CMD_UTILITY && ps->utilityStmt && IsA(ps->utilityStmt, CopyStmt) &&
                ((CopyStmt *)ps->utilityStmt)->filename == nullptr)
                return "COPY is moving data to or from the client; read client files in a statement of "
                       "their own";
        }
    }
    return nullptr;
}

void CheckPull(const std::string &filename) {
    if (!client_channel_setting)
        RefuseOpen("read", filename,
                   "this session does not serve client files; run the statement from docsql, which does "
                   "(document.client_channel is off)");
    if (!ClientConnected()) RefuseOpen("read", filename, "the session has no client connection");
    if (const char *why = ServerCall([] { return PullObstacle(); })) RefuseOpen("read", filename, why);
}

void CheckPush(const std::string &toname) {
    if (!client_channel_setting)
        RefuseOpen("write", toname,
                   "this session does not receive client files; run the statement from docsql, which "
                   "does (document.client_channel is off)");
    if (!ClientConnected()) RefuseOpen("write", toname, "the session has no client connection");
}

void SendNotice(int sqlstate, const char *message, const char *detail) {
    ServerCall([&] {
        ereport(INFO, (errcode(sqlstate), errmsg_internal("%s", message),
                       detail ? errdetail_internal("%s", detail) : 0));
    });
}

// Starts the copy-in: CopyInResponse, binary format, no columns.
void SendCopyInResponse() {
    ServerCall([] {
        StringInfoData buf;
        pq_beginmessage(&buf, 'G');
        pq_sendbyte(&buf, 1);
        pq_sendint16(&buf, 0);
        pq_endmessage(&buf);
        pq_flush();
    });
}

// Reads one client message into buf and returns its type.  Query cancels
// are held off while a message is half read, so that the connection never
// loses its place in the message stream.  A message of an unexpected type
// is read whole before the caller refuses it.
int ReadClientMessageC(StringInfo buf) {
    HOLD_CANCEL_INTERRUPTS();
    pq_startmsgread();
    int mtype = pq_getbyte();
    int rc = EOF;
    if (mtype != EOF) {
        resetStringInfo(buf);
        rc = pq_getmessage(buf, mtype == 'd' ? PQ_LARGE_MESSAGE_LIMIT : PQ_SMALL_MESSAGE_LIMIT);
    }
    RESUME_CANCEL_INTERRUPTS();
    if (mtype == EOF || rc != 0)
        ereport(ERROR, (errcode(ERRCODE_CONNECTION_FAILURE),
                        errmsg("unexpected EOF on client connection while reading a client file")));
    return mtype;
}

bool WriteAll(int fd, const char *p, size_t n) {
    while (n > 0) {
        ssize_t w = write(fd, p, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        p += w;
        n -= (size_t)w;
    }
    return true;
}

std::string StripSlashes(std::string s) {
    while (s.size() > 1 && s.back() == '/') s.pop_back();
    return s;
}

// The most bytes a pull takes: the document limit, and temp_file_limit
// (the received copy is a temporary file); which of them applies.
struct PullLimit {
    long long bytes;
    bool tempFileLimit;
};

PullLimit CurrentPullLimit() {
    PullLimit l{dt::kMaxDocumentBytes, false};
    int kb = temp_file_limit;
    if (kb >= 0 && (long long)kb * 1024 < l.bytes) l = {(long long)kb * 1024, true};
    return l;
}

[[noreturn]] void RaisePullLimit(const PullLimit &l, const std::string &filename) {
    if (l.tempFileLimit)
        throw dt::Error::User("temporary file size exceeds temp_file_limit (" + std::to_string(l.bytes / 1024) +
                                  "kB)",
                              "53400",
                              "Client file \"" + filename + "\" is longer than " + std::to_string(l.bytes) +
                                  " bytes; its copy on the server was removed.");
    throw dt::Error::User("client file \"" + filename + "\" is longer than the largest document (" +
                              std::to_string(l.bytes) + " bytes)",
                          "54000", "Nothing of it was kept on the server.");
}

// The copy-in loop: bytes go to fd until CopyDone, at most limit.bytes.
void ReceiveInto(int fd, const std::string &filename, const std::string &outfilename, const PullLimit &limit) {
    StringInfo msg = ServerCall([] { return makeStringInfo(); });
    long long total = 0;
    for (;;) {
        int mtype = ServerCall([&] { return ReadClientMessageC(msg); });
        switch (mtype) {
            case 'd':
                total += msg->len;
                if (total > limit.bytes) RaisePullLimit(limit, filename);
                if (!WriteAll(fd, msg->data, (size_t)msg->len)) {
                    int err = errno;
                    dt::ErrorRaiseVA("TL001", "NAME%s", "Server file error", "OPERATION%s",
                                     "write of " + std::to_string(msg->len) + " bytes to file " + outfilename,
                                     "REASON%s", std::strerror(err ? err : ENOSPC));
                }
                break;
            case 'c':
                return;
            case 'f': {
                std::string reason(msg->data, strnlen(msg->data, (size_t)msg->len));
                std::string word = reason.substr(0, reason.find(':'));
                if (word == dt::channel::kRefuseLimit) RaisePullLimit(limit, filename);
                if (word == dt::channel::kRefuseNotNamed)
                    throw dt::Error::User("the client refused to send client file \"" + filename +
                                              "\": the statement does not name it",
                                          "42501",
                                          "docsql sends only files named in the statement text, files under a "
                                          "directory the text names, or files under its --allow-dir "
                                          "directories; --trust-server sends any.");
                if (word == dt::channel::kRefuseInterrupt)
                    throw dt::Error::User("canceling statement due to user request", "57014",
                                          "The client interrupted the transfer of client file \"" + filename +
                                              "\".");
                std::string op = word == dt::channel::kRefuseOpen ? "Open of file " + filename
                                                                   : "Read of client file " + filename;
                size_t colon = reason.find(':');
                std::string why = colon == std::string::npos ? reason : reason.substr(colon + 1);
                while (!why.empty() && why[0] == ' ') why.erase(0, 1);
                dt::ErrorRaiseVA("TL001", "NAME%s", "Client file error", "OPERATION%s", op, "REASON%s", why);
            }
            case 'H':
            case 'S':
                // The client library sends these after an extended-protocol
                // Execute without knowing that a copy-in would follow.
                break;
            default:
                dt::ErrorRaiseVA("TL001", "NAME%s", "Client file error", "OPERATION%s",
                                 "Read of client file " + filename, "REASON%s",
                                 "unexpected message type " + std::to_string(mtype) + " from the client");
        }
        CheckInterrupts();
    }
}

}  // namespace

void GetClientFile(const char *filename, const char *outfilename) {
    if (filename == nullptr || *filename == '\0')
        dt::ErrorRaiseVA("22T02", "TYPE%s", "the client file transfer", "STRING%s", "\"\"", "SYNTAX%s",
                         "client file name");
    if (outfilename == nullptr || *outfilename == '\0')
        dt::ErrorRaiseVA("XD00M", "FILENAME%s", "\"\"", "REASON%s", "no server file named");
    std::string in = filename, out = outfilename;
    size_t slash = out.rfind('/');
    std::string outdir = slash == std::string::npos ? "." : out.substr(0, slash == 0 ? 1 : slash);
    if (StripSlashes(outdir) != StripSlashes(TempDir()))
        throw dt::Error::User("client files are read only into the document module's temporary directory \"" +
                                  TempDir() + "\", not into \"" + out + "\"",
                              "42501");
    CheckPull(in);

    int fd = TempFileCreate(out);
    if (fd < 0) dt::ErrorRaiseVA("XD00M", "FILENAME%s", out);
    try {
        PullLimit limit = CurrentPullLimit();
        SendNotice(kSqlstatePull, in.c_str(), std::to_string(limit.bytes).c_str());
        SendCopyInResponse();
        ReceiveInto(fd, in, out, limit);
    } catch (...) {
        close(fd);
        TempFileRemove(out);
        throw;
    }
    if (close(fd) != 0) {
        int err = errno;
        TempFileRemove(out);
        dt::ErrorRaiseVA("TL001", "NAME%s", "Server file error", "OPERATION%s", "close of file " + out,
                         "REASON%s", std::strerror(err));
    }
}

void PushBegin(const std::string &toname, long long size) {
    CheckPush(toname);
    std::string sz = std::to_string(size);
    SendNotice(kSqlstatePushBegin, toname.c_str(), sz.c_str());
}

void PushData(const char *data, size_t n) {
    while (n > 0) {
        CheckInterrupts();
        size_t k = n < dt::channel::kChunkSize ? n : dt::channel::kChunkSize;
        std::string text = dt::channel::Base64Encode(data, k);
        SendNotice(kSqlstatePushData, text.c_str(), nullptr);
        data += k;
        n -= k;
    }
}

void PushEnd(long long total) {
    std::string t = std::to_string(total);
    SendNotice(kSqlstatePushEnd, t.c_str(), nullptr);
}

void RequireServerFileRead(const std::string &path) {
    bool ok = ServerCall([] { return superuser() || has_privs_of_role(GetUserId(), ROLE_PG_READ_SERVER_FILES); });
    if (!ok)
        throw dt::Error::User("permission denied to read server file \"" + path + "\"", "42501",
                              "Only superusers and members of pg_read_server_files may read server files.");
}

void PutClientFile(const std::string &fromname, const std::string &toname) {
    CheckPush(toname);
    long long size = 0;
    std::string why;
    int fd = dt::OpenRegularFile(fromname, &size, &why);
    if (fd < 0) dt::ErrorRaiseVA("XD00M", "FILENAME%s", fromname, "REASON%s", why);
    try {
        PushBegin(toname, size);
        char buf[dt::channel::kChunkSize];
        long long total = 0;
        for (;;) {
            CheckInterrupts();
            ssize_t r = read(fd, buf, sizeof buf);
            if (r < 0 && errno == EINTR) continue;
            if (r < 0) {
                int err = errno;
                dt::ErrorRaiseVA("TL001", "NAME%s", "Server file error", "OPERATION%s",
                                 "read of " + std::to_string(sizeof buf) + " bytes from file " + fromname,
                                 "REASON%s", std::strerror(err));
            }
            if (r == 0) break;
            // A file that keeps growing is not sent without end.
            if (total + r > dt::kMaxDocumentBytes)
                throw dt::Error::User("server file \"" + fromname + "\" is longer than the largest document (" +
                                          std::to_string(dt::kMaxDocumentBytes) + " bytes)",
                                      "54000");
            PushData(buf, (size_t)r);
            total += r;
        }
        PushEnd(total);
    } catch (...) {
        close(fd);
        throw;
    }
    close(fd);
}

}  // namespace dt::pg
