#include "boundary.h"
#include "process.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "childprocess.h"
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

bool IsExecutableFile(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0;
}

std::string ServerSearchPath() {
    const char *p = getenv("PATH");
    return p && *p ? p : "/usr/local/bin:/usr/bin:/bin";
}

int RunCommandOnFile(const std::string &format, const std::string &file,
                     const std::string &extra_env, const char *funcname) {
    RequireRole(ROLE_PG_EXECUTE_SERVER_PROGRAM, "pg_execute_server_program",
                std::string("run a program with ") + funcname);
    std::vector<std::string> words = dt::SplitCommand(format, file);
    dt::ChildRun run;
    run.argv = words;
    run.argv[0] = dt::FindProgram(words[0], "", ServerSearchPath(), IsExecutableFile);
    if (run.argv[0].empty())
        throw dt::Error::User("could not run \"" + words[0] + "\": " + std::strerror(ENOENT), "58P01");
    // The user's own command: the server's environment (with the extra
    // entry in place of one of the same name), no sandbox, and the server's
    // standard output.
    std::string key = extra_env.substr(0, extra_env.find('=') + 1);
    for (char **e = environ; *e; e++)
        if (key.size() <= 1 || std::strncmp(*e, key.c_str(), key.size()) != 0) run.env.emplace_back(*e);
    if (!extra_env.empty()) run.env.push_back(extra_env);
    run.sandbox = false;
    dt::ChildResult res = dt::RunChild(run);
    if (!res.started)
        throw dt::Error::User("could not run \"" + words[0] + "\" (" + res.failed + "): " +
                                  std::strerror(res.error),
                              "58P01");
    return res.status;
}

}  // namespace dt::pg
