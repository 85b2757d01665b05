#include "error.h"

#include <cstdio>
#include <cstring>
#include <map>

namespace dt {

namespace {

struct CatalogueEntry {
    const char *code;
    const char *text;
};

// One readable message per code.  {NAME} is replaced by the parameter of
// that name; a parameter that was not given leaves "?" in its place.  A part
// in [brackets] is shown only when every parameter named inside it was
// given (REASON: the operating system's reason; ACCESS: what the file was
// opened for).
const CatalogueEntry kCatalogue[] = {
    {"XD001", "a dtree index must have exactly one column, not {NKEY}"},
    {"XD002", "partial dtree indexes are not supported"},
    {"XD003", "dtree index scans take only Contains, ContainsWords or DocLike conditions"},
    {"XD004", "index entry has a missing or invalid heap row identifier"},
    {"XD005", "index entry not found in the term tree"},
    {"XD006", "index entry has a missing or invalid index row identifier"},
    {"XD007", "index relation \"{TABLE_NAME}\" already has blocks; its meta page cannot be initialised"},
    {"XD008", "no dtree operator class found for the indexed column"},
    {"XD009", "composite type \"{COMP}\" does not exist"},
    {"XD00A", "access method \"{AM}\" does not exist"},
    {"XD00B", "unexpected query expression node of kind {OP}"},
    {"XD00C", "could not open WordNet index \"{TABNAME}\""},
    {"XD00D", "could not open WordNet index \"{TABNAME}\""},
    {"XD00E", "could not start a scan of WordNet index \"{TABNAME}\""},
    {"XD00F", "WordNet exception index entry has an invalid row identifier"},
    {"XD00G", "WordNet exception row could not be fetched"},
    {"XD00H", "could not open document \"{FILENAME}\"[: {REASON}]"},
    {"XD00I", "query ends where a word or \"(\" was expected"},
    {"XD00J", "unbalanced parentheses in query"},
    {"XD00K", "unknown query operator \"{OP}\" (expected and, or, andnot)"},
    {"XD00L", "word longer than 1024 characters[ in document \"{FILENAME}\"]"},
    {"XD00M", "could not create, open or examine server file \"{FILENAME}\"[: {REASON}]"},
    {"XD00N", "could not convert document \"{FILENAME}\" from \"{IN}\" to ASCII text[: {REASON}]"},
    {"XD00O", "could not open file \"{FILENAME}\"[ for {ACCESS}][: {REASON}]"},
    {"XD00P", "could not read {SIZE} bytes of file \"{FILENAME}\"[: {REASON}]"},
    {"XD00Q", "term table string area has {GOT_LEN} bytes, expected {EXPECT_LEN}"},
    {"XD00R", "term table entry count does not match (string area {GOT_LEN} bytes, expected {EXPECT_LEN})"},
    {"XD00S", "could not write {SIZE} bytes to file \"{FILENAME}\"[: {REASON}]"},
    {"XD00T", "no conversion from \"{IN}\" to \"{OUT}\" (no path, or a step failed)"},
    {"XD00U", "format specification has no \"format\" parameter"},
    {"22T02", "invalid argument to {TYPE}: {STRING} is not a valid {SYNTAX}"},
    {"TL001", "{NAME}: {OPERATION} failed[: {REASON}]"},
    {"L0002", "{OBJECT} \"{OBJ_NAME}\" does not exist"},
    {"LI003", "relation \"{TABLE_NAME}\" is not an index"},
    {"M0001", "could not get a new buffer for relation \"{TABLE_NAME}\""},
    {"U0001", "{ERRMSG}"},
    {"Z0002", "{NAME}: could not open table \"{TABLE_NAME}\""},
    {"Z0005", "could not open {CLASS} with identifier {VALUE}"},
    {"P0016", "function \"{NAME}\"(text, text) does not exist"},
};

}  // namespace

const char *CatalogueText(const std::string &code) {
    for (const auto &e : kCatalogue)
        if (code == e.code) return e.text;
    return nullptr;
}

const std::vector<std::string> &CatalogueCodes() {
    static const std::vector<std::string> codes = [] {
        std::vector<std::string> v;
        for (const auto &e : kCatalogue) v.emplace_back(e.code);
        return v;
    }();
    return codes;
}

namespace {

const std::string *FindParam(const std::vector<ErrorParam> &params, const std::string &name) {
    for (const auto &p : params)
        if (p.name == name) return &p.value;
    return nullptr;
}

// Fills templ[from, to) and tells whether every parameter it names was given.
bool FillRange(const std::string &templ, size_t from, size_t to, const std::vector<ErrorParam> &params,
               std::string &out) {
    bool all = true;
    for (size_t i = from; i < to; ++i) {
        if (templ[i] == '[') {
            size_t end = templ.find(']', i);
            if (end != std::string::npos && end < to) {
                std::string part;
                if (FillRange(templ, i + 1, end, params, part)) out += part;
                i = end;
                continue;
            }
        }
        if (templ[i] == '{') {
            size_t end = templ.find('}', i);
            if (end != std::string::npos && end < to) {
                const std::string *val = FindParam(params, templ.substr(i + 1, end - i - 1));
                if (!val) all = false;
                out += val ? *val : "?";
                i = end;
                continue;
            }
        }
        out += templ[i];
    }
    return all;
}

}  // namespace

std::string FillMessage(const std::string &templ, const std::vector<ErrorParam> &params) {
    std::string out;
    FillRange(templ, 0, templ.size(), params, out);
    return out;
}

Error::Error(std::string code, std::vector<ErrorParam> params)
    : code_(std::move(code)), params_(std::move(params)) {
    const char *t = CatalogueText(code_);
    if (t)
        message_ = FillMessage(t, params_);
    else
        message_ = "error " + code_;
}

Error Error::User(std::string text, std::string sqlstate, std::string detail, std::string hint) {
    Error e;
    e.hint_ = std::move(hint);
    e.userDetail_ = std::move(detail);
    e.code_ = std::move(sqlstate);
    e.message_ = std::move(text);
    e.user_ = true;
    return e;
}

Error Error::Server(std::string sqlstate, std::string message, std::string detail, std::string hint,
                    std::string context) {
    Error e = User(std::move(message), std::move(sqlstate), std::move(detail));
    e.hint_ = std::move(hint);
    e.context_ = std::move(context);
    e.server_ = true;
    return e;
}

std::string Error::hint() const {
    if (!hint_.empty()) return hint_;
    const std::string *h = param("HINT");
    return h ? *h : std::string();
}

const std::string *Error::param(const std::string &name) const {
    for (const auto &p : params_)
        if (p.name == name) return &p.value;
    return nullptr;
}

std::string Error::detail() const {
    if (user_) return userDetail_;
    std::string d;
    for (const auto &p : params_) {
        if (p.name == "HINT") continue;  // reported as the hint
        // Open flags and permission bits in octal mean nothing to a user;
        // the message says what the file was opened for instead.
        if (p.name == "MODE" || p.name == "PERM") continue;
        if (!d.empty()) d += ", ";
        d += p.name + "=" + p.value;
    }
    return d;
}

size_t Utf8PrefixLength(const char *text, size_t len, size_t max) {
    if (len <= max) return len;
    // Walk whole characters from the start; stop before the one that would
    // pass max.
    const unsigned char *s = reinterpret_cast<const unsigned char *>(text);
    size_t i = 0;
    while (i < max) {
        unsigned char c = s[i];
        size_t n = c < 0x80 ? 1 : (c & 0xE0) == 0xC0 ? 2 : (c & 0xF0) == 0xE0 ? 3 : (c & 0xF8) == 0xF0 ? 4 : 1;
        // A sequence cut short by the end of the text, or with a byte that
        // does not continue it, is taken one byte at a time.
        if (n > 1) {
            if (i + n > len) n = 1;
            for (size_t k = 1; k < n; k++)
                if ((s[i + k] & 0xC0) != 0x80) {
                    n = 1;
                    break;
                }
        }
        if (i + n > max) break;
        i += n;
    }
    return i;
}

namespace detail {

std::pair<std::string, char> SplitParamSpec(const char *spec) {
    const char *pct = std::strchr(spec, '%');
    if (!pct) return {spec, 's'};
    return {std::string(spec, pct - spec), pct[1] ? pct[1] : 's'};
}

std::string FormatValue(char conv, long long v) {
    char buf[32];
    if (conv == 'o')
        std::snprintf(buf, sizeof buf, "%llo", v);
    else if (conv == 'x')
        std::snprintf(buf, sizeof buf, "%llx", v);
    else
        std::snprintf(buf, sizeof buf, "%lld", v);
    return buf;
}

std::string FormatValue(char, const std::string &v) { return v; }
std::string FormatValue(char, const char *v) { return v ? v : "(null)"; }

}  // namespace detail

void ErrorRaise(const char *code) { throw Error(code, {}); }

void User_ErrorRaise(const std::string &text, const char *sqlstate) {
    throw Error::User(text, sqlstate);
}

}  // namespace dt
