#include "childprocess.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "interrupt.h"

namespace dt {

namespace {

int LandlockAbi() {
    static int abi = -2;
    if (abi == -2) {
        long r = syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
        abi = r < 0 ? -1 : (int)r;
    }
    return abi;
}

struct Fd {
    int fd = -1;
    Fd() = default;
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd() { reset(); }
    void reset() {
        if (fd >= 0) close(fd);
        fd = -1;
    }
};

uint64_t HandledAccess(int abi) {
    uint64_t a = LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_READ_FILE |
                 LANDLOCK_ACCESS_FS_READ_DIR | LANDLOCK_ACCESS_FS_REMOVE_DIR | LANDLOCK_ACCESS_FS_REMOVE_FILE |
                 LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
                 LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_BLOCK |
                 LANDLOCK_ACCESS_FS_MAKE_SYM;
#ifdef LANDLOCK_ACCESS_FS_REFER
    if (abi >= 2) a |= LANDLOCK_ACCESS_FS_REFER;
#endif
#ifdef LANDLOCK_ACCESS_FS_TRUNCATE
    if (abi >= 3) a |= LANDLOCK_ACCESS_FS_TRUNCATE;
#endif
    return a;
}

// Adds a rule for the file or directory at p; a path that does not exist
// is skipped (nothing to allow).
bool AddRule(int ruleset, const std::string &p, uint64_t access) {
    Fd f;
    f.fd = open(p.c_str(), O_PATH | O_CLOEXEC);
    if (f.fd < 0) return errno == ENOENT || errno == ENOTDIR || errno == EACCES;
    struct stat st;
    if (fstat(f.fd, &st) != 0) return false;
    // Directory-only rights may not be given for a file.
    if (!S_ISDIR(st.st_mode))
        access &= LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_READ_FILE
#ifdef LANDLOCK_ACCESS_FS_TRUNCATE
                  | LANDLOCK_ACCESS_FS_TRUNCATE
#endif
            ;
    struct landlock_path_beneath_attr rule;
    std::memset(&rule, 0, sizeof rule);
    rule.allowed_access = access;
    rule.parent_fd = f.fd;
    return syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
}

// The ruleset for the run, or -1 when the kernel has none (or it failed).
int MakeRuleset(const ChildRun &run) {
    int abi = LandlockAbi();
    if (abi < 1) return -1;
    uint64_t handled = HandledAccess(abi);
    struct landlock_ruleset_attr attr;
    std::memset(&attr, 0, sizeof attr);
    attr.handled_access_fs = handled;
    int rs = (int)syscall(SYS_landlock_create_ruleset, &attr, sizeof attr, 0);
    if (rs < 0) return -1;
    uint64_t read = LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
    bool ok = true;
    for (const std::string &p : run.readable) ok = ok && AddRule(rs, p, read);
    for (const std::string &p : run.writable) ok = ok && AddRule(rs, p, handled);
    // /dev/null is where programs throw away what they do not want.
    ok = ok && AddRule(rs, "/dev/null", LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE);
    if (!ok) {
        close(rs);
        return -1;
    }
    return rs;
}

// Moves a descriptor to 3 or above, so that the child's dup2 onto 0 and 1
// neither clobbers nor keeps it.
void AboveStandard(Fd &f) {
    if (f.fd >= 0 && f.fd < 3) {
        int n = fcntl(f.fd, F_DUPFD_CLOEXEC, 3);
        close(f.fd);
        f.fd = n;
    }
}

void Nap(long usec) {
    struct timespec ts;
    ts.tv_sec = usec / 1000000;
    ts.tv_nsec = (usec % 1000000) * 1000;
    nanosleep(&ts, nullptr);
}

// In the child: only async-signal-safe calls.  Reports errno and what
// failed through the pipe, then exits.
[[noreturn]] void ChildFail(int pipefd, int code, int err) {
    int msg[2] = {code, err};
    ssize_t w = write(pipefd, msg, sizeof msg);
    (void)w;
    _exit(127);
}

enum { FAIL_STDIN = 1, FAIL_DUP, FAIL_CHDIR, FAIL_SANDBOX, FAIL_EXEC };

const char *FailName(int code) {
    switch (code) {
        case FAIL_STDIN: return "open input";
        case FAIL_DUP: return "redirect";
        case FAIL_CHDIR: return "change directory";
        case FAIL_SANDBOX: return "sandbox";
        default: return "exec";
    }
}

}  // namespace

bool SandboxAvailable() { return LandlockAbi() >= 1; }

ChildResult RunChild(const ChildRun &run) {
    ChildResult res;
    if (run.argv.empty()) {
        res.error = EINVAL;
        res.failed = "arguments";
        return res;
    }
    std::vector<char *> argv;
    for (const std::string &a : run.argv) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    std::vector<char *> envp;
    for (const std::string &e : run.env) envp.push_back(const_cast<char *>(e.c_str()));
    envp.push_back(nullptr);

    struct stat st;
    bool existed = run.stdout_path.empty() || lstat(run.stdout_path.c_str(), &st) == 0;
    Fd out;
    if (run.stdout_path.empty())
        out.fd = fcntl(1, F_DUPFD_CLOEXEC, 3);
    else
        out.fd = open(run.stdout_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                      0666);
    if (out.fd < 0) {
        res.error = errno;
        res.failed = "open output";
        return res;
    }
    auto discard = [&] {
        if (!existed) unlink(run.stdout_path.c_str());
    };
    if (!run.stdout_path.empty() && (fstat(out.fd, &st) != 0 || !S_ISREG(st.st_mode))) {
        res.error = EINVAL;
        res.failed = "open output";
        out.reset();
        discard();
        return res;
    }
    Fd in;
    in.fd = open(run.stdin_path.empty() ? "/dev/null" : run.stdin_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (in.fd < 0 || fstat(in.fd, &st) != 0 || !(S_ISREG(st.st_mode) || S_ISCHR(st.st_mode))) {
        res.error = in.fd < 0 ? errno : EINVAL;
        res.failed = "open input";
        out.reset();
        discard();
        return res;
    }
    Fd err;
    if (!run.stderr_path.empty()) {
        err.fd = open(run.stderr_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (err.fd < 0) {
            res.error = errno;
            res.failed = "open error output";
            out.reset();
            discard();
            return res;
        }
    }
    AboveStandard(out);
    AboveStandard(in);
    AboveStandard(err);
    // Blocking reads from here on (a regular file never blocks anyway).
    fcntl(in.fd, F_SETFL, fcntl(in.fd, F_GETFL) & ~O_NONBLOCK);
    if (!run.stdout_path.empty()) fcntl(out.fd, F_SETFL, fcntl(out.fd, F_GETFL) & ~O_NONBLOCK);

    Fd rules;
    if (run.sandbox) rules.fd = MakeRuleset(run);
    res.sandboxed = rules.fd >= 0;

    int pipefd[2];
    if (pipe2(pipefd, O_CLOEXEC) != 0) {
        res.error = errno;
        res.failed = "pipe";
        out.reset();
        discard();
        return res;
    }
    Fd rd, wr;
    rd.fd = pipefd[0];
    wr.fd = pipefd[1];
    const char *dir = run.dir.empty() ? nullptr : run.dir.c_str();
    const char *prog = argv[0];
    long maxfd = sysconf(_SC_OPEN_MAX);
    if (maxfd <= 0) maxfd = 65536;

    // No signal handler of the caller may run in the child: signals are
    // blocked across the fork, and the child resets every handler before it
    // unblocks them.
    sigset_t all, old;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &old);
    pid_t pid = fork();
    if (pid != 0) sigprocmask(SIG_SETMASK, &old, nullptr);
    if (pid < 0) {
        res.error = errno;
        res.failed = "fork";
        out.reset();
        discard();
        return res;
    }
    if (pid == 0) {
        // The child.
        for (int s = 1; s < NSIG; s++) signal(s, SIG_DFL);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        if (dup2(in.fd, 0) < 0 || dup2(out.fd, 1) < 0 || (err.fd >= 0 && dup2(err.fd, 2) < 0))
            ChildFail(wr.fd, FAIL_DUP, errno);
        if (run.cpu_seconds > 0) {
            struct rlimit rl = {(rlim_t)run.cpu_seconds, (rlim_t)run.cpu_seconds + 1};
            setrlimit(RLIMIT_CPU, &rl);
        }
        if (run.max_file_bytes > 0) {
            struct rlimit rl = {(rlim_t)run.max_file_bytes, (rlim_t)run.max_file_bytes};
            setrlimit(RLIMIT_FSIZE, &rl);
        }
        if (dir && chdir(dir) != 0) ChildFail(wr.fd, FAIL_CHDIR, errno);
        if (rules.fd >= 0) {
            if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
                syscall(SYS_landlock_restrict_self, rules.fd, 0) != 0)
                ChildFail(wr.fd, FAIL_SANDBOX, errno);
        }
        // Nothing of the parent but standard input, output and error (and
        // the pipe, closed by exec).
        bool closed = syscall(SYS_close_range, (unsigned)wr.fd + 1, ~0u, 0u) == 0;
        if (closed && wr.fd > 3) closed = syscall(SYS_close_range, 3u, (unsigned)wr.fd - 1, 0u) == 0;
        if (!closed)  // kernels before 5.9: one by one
            for (long fd = 3; fd < maxfd; fd++)
                if (fd != wr.fd) close((int)fd);
        execve(prog, argv.data(), envp.data());
        ChildFail(wr.fd, FAIL_EXEC, errno);
    }
    wr.reset();
    in.reset();
    out.reset();
    err.reset();
    rules.reset();

    int status = 0;
    long nap = 200;
    for (;;) {
        pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid) break;
        if (r < 0 && errno != EINTR) {
            status = -1;
            break;
        }
        try {
            PollInterrupts();
        } catch (...) {
            kill(pid, SIGKILL);
            while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
            discard();
            throw;
        }
        Nap(nap);
        if (nap < 10000) nap *= 2;
    }
    int msg[2] = {0, 0};
    ssize_t n;
    do {
        n = read(rd.fd, msg, sizeof msg);
    } while (n < 0 && errno == EINTR);
    if (n == (ssize_t)sizeof msg) {
        res.error = msg[1];
        res.failed = FailName(msg[0]);
        discard();
        return res;
    }
    res.started = true;
    if (status == -1)
        res.status = -1;
    else if (WIFEXITED(status))
        res.status = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        res.status = 128 + WTERMSIG(status);
    if (res.status != 0 && run.max_file_bytes > 0 && !run.stdout_path.empty() &&
        stat(run.stdout_path.c_str(), &st) == 0 && (long long)st.st_size >= run.max_file_bytes)
        res.output_full = true;
    if (res.status != 0) discard();
    return res;
}

}  // namespace dt
