#include "filterrun.h"

#include <fcntl.h>
#include <ftw.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cerrno>
#include <cstring>

#include "boundary.h"
#include "commandline.h"
#include "convpath.h"
#include "module.h"
#include "process.h"

extern "C" {
#include "utils/guc.h"
}

namespace dt::pg {

namespace {

int RemoveEntry(const char *p, const struct stat *, int, struct FTW *) {
    remove(p);
    return 0;
}


// What every filter may read besides its input's directory: programs,
// libraries and the system's data under /usr, and the few files of /etc
// that the dynamic loader, the locale, groff, perl, the SGML tools and TeX
// read.  Not the rest of /etc, not the server's data directory, not /proc.
const char *const kSystemReadable[] = {
    "/usr",           "/bin",          "/sbin",         "/lib",           "/lib64",
    "/etc/ld.so.cache", "/etc/ld.so.conf", "/etc/ld.so.conf.d", "/etc/alternatives",
    "/etc/groff",     "/etc/papersize", "/etc/paperspecs", "/etc/perl",    "/etc/sgml",
    "/etc/xml",       "/etc/texmf",    "/etc/localtime", "/etc/locale.alias", "/etc/mime.types",
    "/etc/unrtf",
};

std::string AbsoluteSearchPath() {
    std::string in = ServerSearchPath(), out;
    size_t start = 0;
    while (start <= in.size()) {
        size_t end = in.find(':', start);
        if (end == std::string::npos) end = in.size();
        std::string d = in.substr(start, end - start);
        if (!d.empty() && d[0] == '/') out += (out.empty() ? "" : ":") + d;
        start = end + 1;
    }
    return out.empty() ? "/usr/local/bin:/usr/bin:/bin" : out;
}

// Limits of one filter run: CPU time, and the size of any file it writes
// (its output included), in kB, set by document.filter_max_output.
const long kFilterCpuSeconds = 600;
int filterMaxOutputKb = 64 * 1024;

// The start of what a failed program wrote to its standard error, into the
// server's log.
void LogFilterErrors(const std::string &program, const dt::ChildResult &res, const std::string &errpath) {
    std::string text;
    int fd = open(errpath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        char buf[1000];
        ssize_t n = read(fd, buf, sizeof buf);
        if (n > 0) text.assign(buf, n);
        close(fd);
    }
    std::string status = res.started ? "exit status " + std::to_string(res.status) : "not started";
    std::string msg = "conversion program " + program + " failed (" + status + ")";
    const char *m = msg.c_str();
    const char *t = text.c_str();
    ServerCall([&] {
        ereport(LOG, (errmsg("%s", m), text[0] ? errdetail("%s", t) : 0));
    });
}

}  // namespace

void DefineFilterSettings() {
    DefineCustomIntVariable(
        "document.filter_max_output", "Largest file a conversion program may write.",
        "A program that writes more (its output or a file of its scratch directory) is "
        "stopped and the conversion fails with 54000.",
        &filterMaxOutputKb, 64 * 1024, 64, 2097151, PGC_SUSET, GUC_UNIT_KB,
        nullptr, nullptr, nullptr);
}

const std::string &GetDocBinPath() {
    static std::string binPath;
    if (binPath.empty()) binPath = HomeDir() + "/extend/document/bin";
    return binPath;
}

std::string FindFilterProgram(const std::string &program, const std::string &dir) {
    return dt::FindProgram(program, dir, ServerSearchPath(), IsExecutableFile);
}

FilterScratch::FilterScratch() {
    std::string tmpl = TempDir() + "/filter.XXXXXX";
    std::vector<char> buf(tmpl.begin(), tmpl.end());
    buf.push_back('\0');
    if (!mkdtemp(buf.data()))
        throw dt::Error::User("could not make a directory for a conversion program in " + TempDir() +
                                  ": " + strerror(errno),
                              "58000");
    dir = buf.data();
}

FilterScratch::~FilterScratch() {
    if (!dir.empty()) nftw(dir.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
}

dt::ChildResult RunFilterProgram(const FilterProgramRun &fr, const FilterScratch &scratch) {
    dt::ChildRun run;
    run.argv = fr.argv;
    run.dir = fr.dir;
    run.stdin_path = fr.stdin_path;
    run.stdout_path = fr.stdout_path;
    run.env = {"PATH=" + AbsoluteSearchPath(), "LANG=C.UTF-8", "LC_ALL=C.UTF-8",
               "HOME=" + scratch.dir, "TMPDIR=" + scratch.dir};
    for (const char *p : kSystemReadable) run.readable.push_back(p);
    run.readable.push_back(HomeDir());
    run.readable.push_back(dt::path(fr.argv[0]));
    if (!fr.input_path.empty()) {
        run.readable.push_back(fr.input_path);
        std::string d = dt::path(fr.input_path);
        run.readable.push_back(d.empty() ? "/" : d);
    }
    if (!fr.dir.empty()) run.readable.push_back(fr.dir);
    run.writable = {scratch.dir};
    // What the program says goes to a file of its own (shown in the server's
    // log when it fails); a runaway program is stopped by its CPU time or by
    // the size of what it writes.
    run.stderr_path = scratch.dir + "/errors";
    run.cpu_seconds = kFilterCpuSeconds;
    run.max_file_bytes = (long long)filterMaxOutputKb * 1024;
    dt::ChildResult res = dt::RunChild(run);
    if (!res.started || res.status != 0) LogFilterErrors(fr.argv[0], res, run.stderr_path);
    // Stopped for the size of what it wrote, its output or a file of its
    // scratch directory (the output it made is gone).
    struct stat es;
    bool full = res.output_full ||
                (stat(run.stderr_path.c_str(), &es) == 0 && (long long)es.st_size >= run.max_file_bytes);
    if (res.started && res.status != 0 && (full || res.status == 128 + SIGXFSZ))
        throw dt::Error::User("conversion program " + fr.argv[0] + " wrote more than " +
                                  std::to_string(filterMaxOutputKb) + " kB",
                              "54000",
                              "The limit is the setting document.filter_max_output (superusers "
                              "may change it).");
    return res;
}

void WarnFilterNotRun(const std::string &program, const dt::ChildResult &res) {
    std::string msg = "conversion program \"" + program + "\" could not be run (" + res.failed +
                      "): " + strerror(res.error);
    const char *m = msg.c_str();
    ServerCall([&] { ereport(WARNING, (errcode(ERRCODE_UNDEFINED_FILE), errmsg("%s", m))); });
}

void WarnFilterMissing(const std::string &program, const std::string &dir) {
    std::string msg = "conversion program \"" + program + "\" is neither in " + dir +
                      " nor on the server's search path";
    const char *m = msg.c_str();
    ServerCall([&] { ereport(WARNING, (errcode(ERRCODE_UNDEFINED_FILE), errmsg("%s", m))); });
}

}  // namespace dt::pg
