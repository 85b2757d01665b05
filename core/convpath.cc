#include "convpath.h"

#include <cstring>
#include <map>

#include "formatspec.h"
#include "tempname.h"

namespace dt {

std::string getformat(const std::string &spec) {
    const char *s = spec.c_str();  // the search stops at a NUL, as in a C string
    const char *colon = std::strchr(s, ':');
    if (!colon) return "ascii";
    size_t n = colon - s;
    // The buffer holds the parameter list; the format value is never longer.
    std::vector<char> fmt(s, s + n);
    fmt.push_back('\0');
    int len = findparam("format", s, fmt.data(), (int)std::strlen(fmt.data()));
    if (len < 0) return std::string(s, n);  // no "format": the list is the name
    return std::string(fmt.data());
}

std::string path(const std::string &p) {
    size_t slash = p.rfind('/');
    if (slash == std::string::npos) return p;
    return p.substr(0, slash);
}

// The recursive search, written with an explicit stack so that a long
// chain of rows cannot exhaust the machine stack, and over two indexes of
// the rows (first row per edge, rows per source format, both in table
// order) so that its cost grows with n log n rather than n squared.  A
// frame is one level of the recursion: the rows from its format and the
// next of them to consider.
std::optional<Funclist> _formatlookup(ConvTable &cvttab, const std::string &infmt,
                                      const std::string &outfmt) {
    std::map<std::string, size_t> direct;  // source format -> first row to outfmt
    std::map<std::string, std::vector<size_t>> from;
    for (size_t i = 0; i < cvttab.size(); i++) {
        if (cvttab[i].cv_to == outfmt) direct.emplace(cvttab[i].cv_from, i);
        from[cvttab[i].cv_from].push_back(i);
    }
    auto directEdge = [&](const std::string &fmt) -> long {
        auto it = direct.find(fmt);
        return it == direct.end() ? -1 : (long)it->second;
    };
    static const std::vector<size_t> none;
    auto rowsFrom = [&](const std::string &fmt) -> const std::vector<size_t> & {
        auto it = from.find(fmt);
        return it == from.end() ? none : it->second;
    };

    long d = directEdge(infmt);
    if (d >= 0) return Funclist{cvttab[d].cv_conv};
    if (cvttab.empty()) return std::nullopt;
    struct Frame {
        const std::vector<size_t> *rows;
        size_t next;
    };
    std::vector<Frame> frames{{&rowsFrom(infmt), 0}};
    std::vector<size_t> taken;  // the row expanded at each level
    while (!frames.empty()) {
        Frame &top = frames.back();
        const std::vector<size_t> &rows = *top.rows;
        size_t k = top.next;
        while (k < rows.size() && cvttab[rows[k]].cv_visited) k++;
        if (k == rows.size()) {
            frames.pop_back();  // no row from here leads on
            if (!taken.empty()) taken.pop_back();
            continue;
        }
        top.next = k + 1;
        size_t i = rows[k];
        cvttab[i].cv_visited = 1;
        taken.push_back(i);
        long e = directEdge(cvttab[i].cv_to);
        if (e >= 0) {
            Funclist fl;
            for (size_t r : taken) fl.push_back(cvttab[r].cv_conv);
            fl.push_back(cvttab[e].cv_conv);
            return fl;
        }
        frames.push_back(Frame{&rowsFrom(cvttab[i].cv_to), 0});
    }
    return std::nullopt;
}

std::string _gettemptextname(const std::string &directory, const std::string &outspec) {
    std::string name = _dt_MakeTempName(directory, SpecPath(outspec)) + "fmtcnv";
    // The directory part is the caller's; only the copied component may
    // carry a ':' that would make the name look like a parameter list.
    for (size_t i = directory.size(); i < name.size(); i++)
        if (name[i] == ':') name[i] = '_';
    return name;
}

std::optional<std::string> _flexec(const std::optional<Funclist> &fl, const std::string &inspec,
                                   const std::string &outspec, const FlexecOps &ops) {
    if (!fl || fl->empty()) return std::nullopt;
    // The temporary file of the previous step, still to be removed.
    std::optional<std::string> pending;
    std::optional<std::string> result;
    for (size_t i = 0; i < fl->size(); i++) {
        bool last = i + 1 == fl->size();
        std::optional<std::string> target;
        try {
            target = last ? outspec : ops.tempname(outspec);
            result = ops.engage((*fl)[i], inspec, *target);
        } catch (...) {
            if (pending) ops.remove(*pending);
            if (target && !last) ops.remove(*target);
            throw;
        }
        if (pending) {
            ops.remove(*pending);
            pending.reset();
        }
        if (!result) {
            if (!last) ops.remove(*target);
            return std::nullopt;
        }
        // The step's own output is the name it was asked to write; a result
        // naming some other file never makes the module remove that file.
        if (!last) pending = *target;
    }
    return result;
}

std::optional<std::string> formatconvert(const std::string &inspec, const std::string &outspec,
                                         const ConvertOps &ops) {
    std::string infmt = getformat(inspec);
    std::string outfmt = getformat(outspec);
    if (infmt == outfmt) {
        if (!ops.copyFile(SpecPath(inspec), SpecPath(outspec))) return std::nullopt;
        return outspec;
    }
    ConvTable tab = ops.readTable();
    std::optional<Funclist> fl = _formatlookup(tab, infmt, outfmt);
    return _flexec(fl, inspec, outspec, ops.flexec);
}

bool IsConvertible(const std::string &docparams, const std::string &format,
                   const std::function<ConvTable()> &readTable) {
    std::optional<std::string> infmt = FindParamValue("format", docparams);
    if (!infmt) return false;
    std::string outfmt = FindParamValue("format", format).value_or(format);
    if (*infmt == outfmt) return true;
    ConvTable tab = readTable();
    return _formatlookup(tab, *infmt, outfmt).has_value();
}

std::string DocFormatName(const std::string &docparams) {
    return FindParamValue("format", docparams).value_or(docparams);
}

std::optional<std::string> GetPathText(const std::string &spec) {
    size_t colon = spec.find(':');
    if (colon == std::string::npos) return std::nullopt;
    return spec.substr(colon + 1);
}

}  // namespace dt
