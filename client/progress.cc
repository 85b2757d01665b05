#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace docsql {

std::string ProgressLine(const std::string &label, long long done, long long total, int width) {
    if (total <= 0) total = 1;
    if (done > total) done = total;
    int filled = (int)(done * width / total);
    int pct = (int)(done * 100 / total);
    char tail[64];
    std::snprintf(tail, sizeof tail, "] %3d%% %.1f/%.1f MB", pct, done / 1048576.0, total / 1048576.0);
    std::string name = label;
    if (name.size() > 40) name = "..." + name.substr(name.size() - 37);
    return name + " [" + std::string((size_t)filled, '#') + std::string((size_t)(width - filled), ' ') + tail;
}

void ProgressStart(Progress &p, const std::string &label, long long total, bool allowed) {
    p.active = allowed && total > kProgressThreshold && isatty(STDERR_FILENO);
    p.label = label;
    p.total = total;
    p.shown = -1;
    if (p.active) ProgressUpdate(p, 0);
}

void ProgressUpdate(Progress &p, long long done) {
    if (!p.active) return;
    int permille = (int)(done * 1000 / (p.total > 0 ? p.total : 1));
    if (permille == p.shown) return;
    p.shown = permille;
    std::fprintf(stderr, "\r%s", ProgressLine(p.label, done, p.total, 30).c_str());
    std::fflush(stderr);
}

void ProgressEnd(Progress &p) {
    if (!p.active) return;
    std::fputc('\n', stderr);
    p.active = false;
}

}  // namespace docsql
