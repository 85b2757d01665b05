#include "boundary.h"
#include "process.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "commandline.h"

extern "C" {
#include "catalog/pg_authid.h"
#include "utils/acl.h"
extern char **environ;
}

namespace dt::pg {

void RequireRole(Oid role, const char *rolename, const std::string &what) {
    bool ok = ServerCall([&] { return has_privs_of_role(GetUserId(), role); });
    if (!ok)
        throw dt::Error::User("permission denied to " + what, "42501",
                              std::string("Only superusers and members of ") + rolename + " may do this.");
}

int RunCommandOnFile(const std::string &format, const std::string &file,
                     const std::string &extra_env, const char *funcname) {
    RequireRole(ROLE_PG_EXECUTE_SERVER_PROGRAM, "pg_execute_server_program",
                std::string("run a program with ") + funcname);
    std::vector<std::string> words = dt::SplitCommand(format, file);
    std::vector<char *> argv;
    for (auto &w : words) argv.push_back(&w[0]);
    argv.push_back(nullptr);

    std::vector<std::string> envs;
    std::string key = extra_env.substr(0, extra_env.find('=') + 1);
    for (char **e = environ; *e; e++)
        if (key.size() <= 1 || std::strncmp(*e, key.c_str(), key.size()) != 0) envs.emplace_back(*e);
    if (!extra_env.empty()) envs.push_back(extra_env);
    std::vector<char *> envp;
    for (auto &e : envs) envp.push_back(&e[0]);
    envp.push_back(nullptr);

    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &all);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t pid;
    int rc = posix_spawnp(&pid, argv[0], nullptr, &attr, argv.data(), envp.data());
    posix_spawnattr_destroy(&attr);
    if (rc != 0)
        throw dt::Error::User(std::string("could not run \"") + words[0] + "\": " + std::strerror(rc),
                              "58P01");
    int status = 0;
    for (;;) {
        pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid) break;
        if (r < 0 && errno != EINTR)
            throw dt::Error::User(std::string("could not wait for \"") + words[0] + "\"", "58000");
        try {
            CheckInterrupts();
        } catch (...) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            throw;
        }
        ServerCall([] { pg_usleep(10000L); });
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

}  // namespace dt::pg
