#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "childprocess.h"
#include "error.h"
#include "interrupt.h"

using namespace dt;

namespace {

std::string Slurp(const std::string &p) {
    std::ifstream f(p, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}
void Put(const std::string &p, const std::string &text) {
    std::ofstream f(p, std::ios::binary);
    f << text;
}
bool Exists(const std::string &p) {
    struct stat st;
    return lstat(p.c_str(), &st) == 0;
}

class ChildProcess : public ::testing::Test {
  protected:
    std::string dir;
    void SetUp() override {
        char tmpl[] = "/tmp/childproc.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir = tmpl;
    }
    void TearDown() override {
        std::string cmd = "rm -rf '" + dir + "'";
        ASSERT_EQ(std::system(cmd.c_str()), 0);
        SetInterruptPoll(nullptr);
    }
    ChildRun Run(std::vector<std::string> argv) {
        ChildRun r;
        r.argv = std::move(argv);
        r.env = {"PATH=/usr/bin:/bin", "LANG=C"};
        r.stdout_path = dir + "/out";
        r.readable = {"/usr", "/bin", "/lib", "/lib64", "/etc", dir};
        return r;
    }
};

}  // namespace

TEST_F(ChildProcess, StandardInputToStandardOutput) {
    Put(dir + "/in", "some text\nand more\n");
    ChildRun r = Run({"/bin/cat"});
    r.stdin_path = dir + "/in";
    ChildResult res = RunChild(r);
    ASSERT_TRUE(res.started) << res.failed;
    EXPECT_EQ(res.status, 0);
    EXPECT_EQ(Slurp(dir + "/out"), "some text\nand more\n");
}

TEST_F(ChildProcess, ArgumentsAreNeverReadByAShell) {
    std::string nasty = "a b 'c' \"d\"; $(touch " + dir + "/pwned) `id` \n e > f";
    ChildResult res = RunChild(Run({"/bin/echo", nasty}));
    ASSERT_TRUE(res.started);
    EXPECT_EQ(res.status, 0);
    EXPECT_EQ(Slurp(dir + "/out"), nasty + "\n");
    EXPECT_FALSE(Exists(dir + "/pwned"));
}

TEST_F(ChildProcess, RunsInTheGivenDirectoryWithTheGivenEnvironment) {
    ChildRun r = Run({"/bin/pwd"});
    r.dir = dir;
    ASSERT_EQ(RunChild(r).status, 0);
    EXPECT_EQ(Slurp(dir + "/out"), dir + "\n");
    ASSERT_EQ(RunChild(Run({"/usr/bin/env"})).status, 0);
    EXPECT_EQ(Slurp(dir + "/out"), "PATH=/usr/bin:/bin\nLANG=C\n");
}

TEST_F(ChildProcess, MissingProgramIsReportedAndLeavesNothing) {
    ChildResult res = RunChild(Run({dir + "/no-such-program", "x"}));
    EXPECT_FALSE(res.started);
    EXPECT_EQ(res.failed, "exec");
    EXPECT_EQ(res.error, ENOENT);
    EXPECT_FALSE(Exists(dir + "/out"));
    ChildRun r = Run({"/bin/pwd"});
    r.dir = dir + "/no-such-dir";
    res = RunChild(r);
    EXPECT_FALSE(res.started);
    EXPECT_EQ(res.failed, "change directory");
    EXPECT_FALSE(Exists(dir + "/out"));
    r = Run({"/bin/cat"});
    r.stdin_path = dir + "/no-such-input";
    res = RunChild(r);
    EXPECT_FALSE(res.started);
    EXPECT_EQ(res.failed, "open input");
    EXPECT_FALSE(Exists(dir + "/out"));
}

TEST_F(ChildProcess, FailureRemovesTheOutputItMade) {
    ChildResult res = RunChild(Run({"/bin/false"}));
    ASSERT_TRUE(res.started);
    EXPECT_EQ(res.status, 1);
    EXPECT_FALSE(Exists(dir + "/out"));
    // An output that existed before is not removed.
    Put(dir + "/out", "old");
    res = RunChild(Run({"/bin/false"}));
    EXPECT_EQ(res.status, 1);
    EXPECT_TRUE(Exists(dir + "/out"));
}

TEST_F(ChildProcess, OutputIsNeverASymbolicLink) {
    ASSERT_EQ(symlink((dir + "/target").c_str(), (dir + "/out").c_str()), 0);
    ChildResult res = RunChild(Run({"/bin/echo", "x"}));
    EXPECT_FALSE(res.started);
    EXPECT_EQ(res.failed, "open output");
    EXPECT_FALSE(Exists(dir + "/target"));
}

TEST_F(ChildProcess, NoDescriptorOfTheParent) {
    int fd = open((dir + "/held").c_str(), O_WRONLY | O_CREAT, 0600);  // no O_CLOEXEC
    ASSERT_GE(fd, 0);
    ChildRun r = Run({"/bin/ls", "/proc/self/fd"});
    r.sandbox = false;
    ChildResult res = RunChild(r);
    close(fd);
    ASSERT_EQ(res.status, 0);
    // 0, 1, 2 and the directory ls itself opens.
    EXPECT_EQ(Slurp(dir + "/out"), "0\n1\n2\n3\n");
}

TEST_F(ChildProcess, SandboxLimitsWhatTheProgramReads) {
    if (!SandboxAvailable()) GTEST_SKIP() << "no Landlock in this kernel";
    char tmpl[] = "/tmp/childsecret.XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    std::string secret = std::string(tmpl) + "/secret";
    Put(secret, "top secret\n");
    Put(dir + "/open", "open text\n");
    ChildRun r = Run({"/bin/cat", secret});
    ChildResult res = RunChild(r);
    EXPECT_TRUE(res.sandboxed);
    EXPECT_TRUE(res.started);
    EXPECT_NE(res.status, 0);
    EXPECT_FALSE(Exists(dir + "/out"));
    r = Run({"/bin/cat", dir + "/open"});
    res = RunChild(r);
    EXPECT_EQ(res.status, 0);
    EXPECT_EQ(Slurp(dir + "/out"), "open text\n");
    // Writing is allowed only beneath the writable paths.
    r = Run({"/bin/cp", dir + "/open", dir + "/copy"});
    EXPECT_NE(RunChild(r).status, 0);
    EXPECT_FALSE(Exists(dir + "/copy"));
    r.writable = {dir};
    EXPECT_EQ(RunChild(r).status, 0);
    EXPECT_TRUE(Exists(dir + "/copy"));
    // Without the sandbox the same program reads the file.
    r = Run({"/bin/cat", secret});
    r.sandbox = false;
    res = RunChild(r);
    EXPECT_FALSE(res.sandboxed);
    EXPECT_EQ(res.status, 0);
    std::string cmd = std::string("rm -rf '") + tmpl + "'";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
}

namespace {
int polls = 0;
void CancelAfterSomePolls() {
    if (++polls > 5) throw Error::User("canceling statement due to user request", "57014");
}
}  // namespace

TEST_F(ChildProcess, InterruptKillsAndReapsTheChild) {
    polls = 0;
    SetInterruptPoll(&CancelAfterSomePolls);
    auto t0 = std::chrono::steady_clock::now();
    try {
        RunChild(Run({"/bin/sleep", "30"}));
        FAIL() << "no interrupt";
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "57014");
    }
    SetInterruptPoll(nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5));
    EXPECT_FALSE(Exists(dir + "/out"));
    // No child is left, not even a zombie.
    errno = 0;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(ChildProcess, ErrorOutputAndLimits) {
    ChildRun r = Run({"/bin/ls", dir + "/no-such-file"});
    r.stderr_path = dir + "/errors";
    ChildResult res = RunChild(r);
    ASSERT_TRUE(res.started);
    EXPECT_EQ(res.status, 2);
    EXPECT_NE(Slurp(dir + "/errors").find("no-such-file"), std::string::npos);
    // A program writing without end is stopped at the file size limit.
    r = Run({"/usr/bin/yes", "endless"});
    r.max_file_bytes = 100000;
    res = RunChild(r);
    ASSERT_TRUE(res.started);
    EXPECT_EQ(res.status, 128 + SIGXFSZ);
    EXPECT_FALSE(Exists(dir + "/out"));
}
