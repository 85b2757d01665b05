#include "interactive.h"

#include <readline/history.h>
#include <readline/readline.h>
#include <setjmp.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "splitter.h"

namespace docsql {

namespace {
sigjmp_buf g_promptJump;
volatile sig_atomic_t g_atPrompt = 0;

std::string HistoryFile() {
    const char *home = std::getenv("HOME");
    return home && *home ? std::string(home) + "/.docsql_history" : "";
}
}  // namespace

bool InteractiveInterrupt() {
    if (!g_atPrompt) return false;
    g_atPrompt = 0;
    siglongjmp(g_promptJump, 1);
}

int RunInteractive(Session &s, const std::string &dbname, bool superuser, bool useHistory) {
    rl_catch_signals = 0;
    std::string history = useHistory ? HistoryFile() : "";
    if (!history.empty()) read_history(history.c_str());
    stifle_history(1000);
    std::printf("docsql (document module client). Type \\? for help, \\q to quit.\n\n");
    std::fflush(stdout);
    std::string buffer;
    volatile bool lastOk = true;
    for (;;) {
        if (sigsetjmp(g_promptJump, 1) != 0) {
            // Ctrl-C at the prompt: the line and the statement being typed go.
            rl_free_line_state();
            rl_cleanup_after_signal();
            (void)!write(STDOUT_FILENO, "\n", 1);
            buffer.clear();
        }
        std::string prompt = dbname + (buffer.empty() ? "=" : "-") + (superuser ? "# " : "> ");
        g_atPrompt = 1;
        char *raw = readline(prompt.c_str());
        g_atPrompt = 0;
        if (!raw) {  // end of input (Ctrl-D)
            std::printf("\n");
            break;
        }
        std::string line = raw;
        std::free(raw);
        if (line.find_first_not_of(" \t") != std::string::npos) add_history(line.c_str());
        buffer += buffer.empty() ? line : "\n" + line;
        std::string rest;
        bool quit = false;
        for (const Statement &st : SplitStatements(buffer)) {
            if (quit) break;
            if (st.meta) {
                MetaResult r = RunMetaCommand(s, st.text);
                if (r == MetaResult::Quit) quit = true;
                lastOk = r != MetaResult::Failed;
                continue;
            }
            if (!st.complete) {
                rest = st.text;
                continue;
            }
            lastOk = s.runSql(Interpolate(st.text, s.vars));
        }
        std::fflush(stdout);
        if (quit) break;
        buffer = rest;
    }
    if (!history.empty()) write_history(history.c_str());
    return lastOk ? 0 : 3;
}

}  // namespace docsql
