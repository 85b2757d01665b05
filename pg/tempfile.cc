#include "tempfile.h"

#include "boundary.h"
#include "module.h"
#include "tempname.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

extern "C" {
#include "access/xact.h"
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

}  // namespace

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

int TempFileCount() { return registry ? (int)registry->size() : 0; }

void TempFileInit() {
    RegisterXactCallback(OnXact, nullptr);
    RegisterSubXactCallback(OnSubXact, nullptr);
}

}  // namespace dt::pg
