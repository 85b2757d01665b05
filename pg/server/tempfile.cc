#include "tempfile.h"

#include "boundary.h"
#include "module.h"
#include "tempname.h"

#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <vector>

extern "C" {
#include "access/xact.h"
#include "storage/ipc.h"
}

namespace dt::pg {

namespace {

struct Registered {
    std::string path;
    int level;  // transaction nesting level that made it
};

// One backend, one thread: a plain process-wide list.
std::vector<Registered> *registry = nullptr;

std::vector<Registered> &Registry() {
    if (!registry) registry = new std::vector<Registered>();
    return *registry;
}

// Removes every file made at `level` or deeper (all of them for level 0).
// Called from the server's transaction callbacks: must not throw.
void RemoveFrom(int level) noexcept {
    if (!registry) return;
    std::vector<Registered> &r = *registry;
    size_t keep = 0;
    for (size_t i = 0; i < r.size(); i++) {
        if (r[i].level >= level) {
            unlink(r[i].path.c_str());
        } else {
            if (keep != i) r[keep] = std::move(r[i]);
            keep++;
        }
    }
    r.resize(keep);
}

void OnXact(XactEvent event, void *) {
    switch (event) {
        case XACT_EVENT_ABORT:
        case XACT_EVENT_PARALLEL_ABORT:
        case XACT_EVENT_COMMIT:
        case XACT_EVENT_PARALLEL_COMMIT:
        case XACT_EVENT_PREPARE:
            RemoveFrom(0);
            break;
        default:
            break;
    }
}

void OnSubXact(SubXactEvent event, SubTransactionId, SubTransactionId, void *) {
    int level = GetCurrentTransactionNestLevel();
    if (event == SUBXACT_EVENT_ABORT_SUB) {
        RemoveFrom(level);
    } else if (event == SUBXACT_EVENT_COMMIT_SUB && registry) {
        // The parent now owns what the committed subtransaction made.
        for (Registered &f : *registry)
            if (f.level >= level) f.level = level - 1;
    }
}

// Directories this backend made (one per temporary directory it used).
std::set<std::string> *ownDirs = nullptr;
pid_t ownDirsPid = 0;  // the process the set belongs to

int RemoveEntry(const char *path, const struct stat *, int type, struct FTW *) {
    if (type == FTW_DP || type == FTW_D || type == FTW_DNR)
        rmdir(path);
    else
        unlink(path);
    return 0;  // carry on whatever happens to one entry
}

// Removes a directory and everything in it, following no symbolic links.
void RemoveTree(const std::string &dir) noexcept {
    nftw(dir.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
}

// Process id of a backend directory's name, or 0 when the name is not one.
pid_t BackendDirPid(const char *name) {
    size_t plen = std::strlen(kBackendDirPrefix);
    if (std::strncmp(name, kBackendDirPrefix, plen) != 0) return 0;
    const char *d = name + plen;
    if (*d == '\0' || *d == '0' || std::strlen(d) > 9) return 0;
    long pid = 0;
    for (; *d; d++) {
        if (*d < '0' || *d > '9') return 0;
        pid = pid * 10 + (*d - '0');
    }
    return (pid_t)pid;
}

// At the backend's exit: its directories go, with anything left in them.
void RemoveOwnDirs(int, Datum) {
    if (!ownDirs || ownDirsPid != getpid()) return;
    for (const std::string &d : *ownDirs) RemoveTree(d);
    ownDirs->clear();
}

}  // namespace

const char *const kBackendDirPrefix = "document.";

int SweepDeadBackendDirs(const std::string &dirArg) {
    try {
        std::string dir = dirArg.empty() ? TempBaseDir() : dirArg;
        DIR *d = opendir(dir.c_str());
        if (!d) return 0;
        std::vector<std::string> dead;
        uid_t me = geteuid();
        while (struct dirent *e = readdir(d)) {
            pid_t pid = BackendDirPid(e->d_name);
            if (pid <= 0 || pid == getpid()) continue;
            std::string path = dir + "/" + e->d_name;
            struct stat st;
            if (lstat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != me) continue;
            // Only a process that is gone: a live one (or one of another
            // user, EPERM) keeps its directory.
            if (kill(pid, 0) == 0 || errno != ESRCH) continue;
            dead.push_back(path);
        }
        closedir(d);
        for (const std::string &p : dead) RemoveTree(p);
        return (int)dead.size();
    } catch (...) {
        return 0;
    }
}

std::string TempDir() {
    std::string base = TempBaseDir();
    std::string dir = base + "/" + kBackendDirPrefix + std::to_string((long)getpid());
    if (!ownDirs || ownDirsPid != getpid()) {
        // First use in this process (a forked child starts afresh).
        ownDirs = new std::set<std::string>();
        ownDirsPid = getpid();
        ServerCall([] { on_proc_exit(RemoveOwnDirs, 0); });
    }
    bool known = ownDirs->count(dir) != 0;
    struct stat st;
    if (lstat(dir.c_str(), &st) == 0) {
        if (!S_ISDIR(st.st_mode) || st.st_uid != geteuid())
            ErrorRaiseVA("XD00M", "FILENAME%s", dir);
        if (known) return dir;
        // Left by an earlier process that had the same id: nothing in it
        // is this backend's.
        RemoveTree(dir);
    } else if (errno != ENOENT) {
        ErrorRaiseVA("XD00M", "FILENAME%s", dir);
    }
    SweepDeadBackendDirs(base);
    if (mkdir(dir.c_str(), 0700) != 0) ErrorRaiseVA("XD00M", "FILENAME%s", dir);
    ownDirs->insert(dir);
    return dir;
}

std::string TempFileName(const std::string &base) {
    std::string dir = TempDir();
    for (int attempt = 0; attempt < 1000; attempt++) {
        std::string name = dt::_dt_MakeTempName(dir, base);
        struct stat st;
        if (lstat(name.c_str(), &st) != 0 && errno == ENOENT) return name;
    }
    dt::ErrorRaiseVA("XD00M", "FILENAME%s", dt::_dt_MakeTempName(dir, base));
}

int TempFileCreate(const std::string &path) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) return -1;
    try {
        TempFileRegister(path);
    } catch (...) {
        close(fd);
        unlink(path.c_str());
        throw;
    }
    return fd;
}

void TempFileRegister(const std::string &path) {
    int level = ServerCall([] { return GetCurrentTransactionNestLevel(); });
    Registry().push_back({path, level});
}

void TempFileRemove(const std::string &path) {
    unlink(path.c_str());
    if (!registry) return;
    std::vector<Registered> &r = *registry;
    for (size_t i = 0; i < r.size(); i++)
        if (r[i].path == path) {
            r.erase(r.begin() + i);
            break;
        }
}

bool IsOwnTempFile(const std::string &path) {
    try {
        if (path.empty() || !ownDirs || ownDirsPid != getpid()) return false;
        std::string dir = TempBaseDir() + "/" + kBackendDirPrefix + std::to_string((long)getpid());
        if (!ownDirs->count(dir)) return false;
        char *rdir = realpath(dir.c_str(), nullptr);
        char *rfile = realpath(path.c_str(), nullptr);
        bool ok = false;
        if (rdir && rfile) {
            std::string d(rdir), f(rfile);
            size_t slash = f.rfind('/');
            struct stat st;
            ok = slash != std::string::npos && f.substr(0, slash) == d && lstat(rfile, &st) == 0 &&
                 S_ISREG(st.st_mode);
        }
        free(rdir);
        free(rfile);
        return ok;
    } catch (...) {
        return false;
    }
}

int TempFileCount() { return registry ? (int)registry->size() : 0; }

void TempFileInit() {
    RegisterXactCallback(OnXact, nullptr);
    RegisterSubXactCallback(OnSubXact, nullptr);
}

}  // namespace dt::pg
