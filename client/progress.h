// A progress bar on standard error for long client file transfers.
#pragma once

#include <string>

namespace docsql {

struct Progress {
    bool active = false;
    std::string label;
    long long total = 0;
    int shown = -1;  // last permille drawn
};

// Transfers above this size show a bar, when standard error is a terminal.
constexpr long long kProgressThreshold = 1024 * 1024;

void ProgressStart(Progress &p, const std::string &label, long long total, bool allowed);
void ProgressUpdate(Progress &p, long long done);
void ProgressEnd(Progress &p);

// The bar's text for done of total bytes in a field of `width` cells.
std::string ProgressLine(const std::string &label, long long done, long long total, int width);

}  // namespace docsql
