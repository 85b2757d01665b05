#include "bulkload.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "channel.h"
#include "progress.h"

namespace docsql {

bool ParseLoad(const std::vector<std::string> &w, LoadRequest &req, std::string &error) {
    std::vector<std::string> pos;
    for (const std::string &a : w) {
        if (a == "--stop-on-error") req.stopOnError = true;
        else pos.push_back(a);
    }
    if (pos.size() < 3 || pos.size() > 4) {
        error = "usage: \\load TABLE COLUMN DIR [SPEC] [--stop-on-error]   (DIR \"-\": paths from standard input)";
        return false;
    }
    req.table = pos[0];
    req.column = pos[1];
    req.source = pos[2];
    if (pos.size() == 4) req.spec = pos[3];
    return true;
}

std::vector<std::string> LoadFiles(const LoadRequest &req, std::string &error) {
    std::vector<std::string> files;
    if (req.source == "-") {
        std::string line;
        while (std::getline(std::cin, line))
            if (!line.empty()) files.push_back(line);
        return files;
    }
    namespace fs = std::filesystem;
    std::error_code ec;
    if (!fs::is_directory(req.source, ec)) {
        error = "\"" + req.source + "\" is not a directory";
        return files;
    }
    fs::path root = fs::absolute(req.source, ec);
    for (fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied, ec), end;
         !ec && it != end; it.increment(ec)) {
        if (it->is_regular_file(ec)) files.push_back(it->path().string());
    }
    if (ec) error = "cannot read directory \"" + req.source + "\": " + ec.message();
    std::sort(files.begin(), files.end());
    return files;
}

LoadSummary RunLoad(const LoadRequest &req, const std::vector<std::string> &files,
                    const std::function<std::string(const std::string &)> &exec,
                    const std::function<std::string(const std::string &)> &quoteLiteral,
                    const std::function<std::string(const std::string &)> &quoteIdent, bool progress) {
    LoadSummary s;
    auto start = std::chrono::steady_clock::now();
    // TABLE may be schema-qualified: each part is quoted on its own.
    std::string table, part;
    for (size_t i = 0; i <= req.table.size(); i++) {
        if (i == req.table.size() || req.table[i] == '.') {
            table += (table.empty() ? "" : ".") + quoteIdent(part);
            part.clear();
        } else {
            part += req.table[i];
        }
    }
    std::string insert = "INSERT INTO " + table + " (" + quoteIdent(req.column) + ") VALUES (";
    long long total = 0;
    for (const std::string &f : files) {
        struct stat st;
        if (stat(f.c_str(), &st) == 0) total += st.st_size;
    }
    Progress bar;
    ProgressStart(bar, "loading " + std::to_string(files.size()) + " files", total, progress);
    std::string err = exec("BEGIN");
    long long done = 0;
    for (const std::string &f : files) {
        if (g_interrupted) {
            s.failures.push_back({f, "interrupted: the files from here on were not loaded"});
            break;
        }
        struct stat st;
        long long size = stat(f.c_str(), &st) == 0 ? st.st_size : 0;
        exec("SAVEPOINT docsql_load");
        std::string e = exec(insert + quoteLiteral(req.spec + ":" + f) + ")");
        if (e.empty()) {
            exec("RELEASE SAVEPOINT docsql_load");
            s.files++;
            s.bytes += size;
        } else {
            exec("ROLLBACK TO SAVEPOINT docsql_load");
            while (!e.empty() && e.back() == '\n') e.pop_back();
            s.failures.push_back({f, e});
            if (req.stopOnError) break;
        }
        done += size;
        ProgressUpdate(bar, done);
    }
    std::string c = exec("COMMIT");
    if (!c.empty()) s.failures.push_back({"(commit)", c});
    ProgressEnd(bar);
    s.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return s;
}

std::string FormatSummary(const LoadSummary &s) {
    char line[256];
    std::snprintf(line, sizeof line, "loaded %lld files, %lld bytes in %.2f s; %zu failed\n", s.files, s.bytes,
                  s.seconds, s.failures.size());
    std::string out = line;
    for (const auto &[path, why] : s.failures) {
        std::string w = why;
        for (auto &ch : w)
            if (ch == '\n') ch = ' ';
        out += "  " + path + ": " + w + "\n";
    }
    return out;
}

}  // namespace docsql
