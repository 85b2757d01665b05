// The module's one error type.
//
// Core code never returns error codes: it throws dt::Error, which carries the
// five-character code (used as the SQLSTATE by the server layer) and the named
// parameters of the message.  Parameters are given the way the message
// catalogue names them, a name joined to a printf conversion ("FILENAME%s",
// "SIZE%d", "MODE%o"); "%t" and "%T" take text and are formatted like "%s".
//
//   dt::ErrorRaise("XD00L");
//   dt::ErrorRaiseVA("XD00M", "FILENAME%s", path);
//   dt::ErrorRaiseVA("XD00Q", "GOT_LEN%d", got, "EXPECT_LEN%d", expect);
//   dt::User_ErrorRaise("index not a dtree index");
//
// The server layer turns an Error into ereport(ERROR) at every SQL entry point
// (see pg/server/boundary.h); nothing else may catch it silently.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace dt {

struct ErrorParam {
    std::string name;    // "FILENAME"
    std::string value;   // already formatted by its conversion
};

class Error : public std::exception {
public:
    // A catalogue error: code plus named parameters.
    Error(std::string code, std::vector<ErrorParam> params);
    // A ready-text error (User_ErrorRaise).  sqlstate defaults to 22023.
    static Error User(std::string text, std::string sqlstate = "22023", std::string detail = "",
                      std::string hint = "");
    // An error of the server passed through the module: its hint and its
    // context (the server's "CONTEXT:" lines) are kept as the server gave
    // them, so that they reach the client unchanged.
    static Error Server(std::string sqlstate, std::string message, std::string detail, std::string hint,
                        std::string context);

    const std::string &code() const { return code_; }
    const std::vector<ErrorParam> &params() const { return params_; }
    // Value of a named parameter, or nullptr.
    const std::string *param(const std::string &name) const;
    bool isUser() const { return user_; }
    bool fromServer() const { return server_; }
    // The hint: a server error's own, else the HINT parameter ("" if none).
    std::string hint() const;
    // A server error's context lines ("" for the module's own errors).
    const std::string &context() const { return context_; }

    // The readable message: the catalogue text with parameters filled in,
    // or the ready text of a user error.
    const std::string &message() const { return message_; }
    // "NAME=value, NAME=value" (empty when there are no parameters); a
    // HINT parameter is left out (the server reports it as the hint), and so are
    // MODE and PERM (open flags and permission bits, kept for callers).
    // A user error's own detail text, if it has one.
    std::string detail() const;

    const char *what() const noexcept override { return message_.c_str(); }

private:
    Error() = default;
    std::string code_;
    std::vector<ErrorParam> params_;
    std::string message_;
    std::string userDetail_;
    std::string hint_;
    std::string context_;
    bool user_ = false;
    bool server_ = false;
};

// The longest prefix of text[0..len) of at most max bytes that does not end
// inside a UTF-8 character (a well-formed sequence is never split; a byte
// that starts no valid sequence counts as one character).  Error texts are
// cut with it when they must fit a fixed buffer.
size_t Utf8PrefixLength(const char *text, size_t len, size_t max);

// The message catalogue: the template text of a code, with {NAME} marking
// where a parameter goes; nullptr for an unknown code.
const char *CatalogueText(const std::string &code);
// Every code the module can raise, in catalogue order.
const std::vector<std::string> &CatalogueCodes();
// Fill a template's {NAME} places from the parameters.
std::string FillMessage(const std::string &templ, const std::vector<ErrorParam> &params);

namespace detail {
// Split "FILENAME%s" into the name and its conversion character.
std::pair<std::string, char> SplitParamSpec(const char *spec);
std::string FormatValue(char conv, long long v);
std::string FormatValue(char conv, const std::string &v);
std::string FormatValue(char conv, const char *v);

inline void Collect(std::vector<ErrorParam> &) {}

template <class V, class... Rest>
void Collect(std::vector<ErrorParam> &out, const char *spec, V &&value, Rest &&...rest) {
    auto [name, conv] = SplitParamSpec(spec);
    using D = std::decay_t<V>;
    if constexpr (std::is_integral_v<D>)
        out.push_back({name, FormatValue(conv, static_cast<long long>(value))});
    else
        out.push_back({name, FormatValue(conv, value)});
    Collect(out, std::forward<Rest>(rest)...);
}
}  // namespace detail

[[noreturn]] void ErrorRaise(const char *code);

template <class... Args>
[[noreturn]] void ErrorRaiseVA(const char *code, Args &&...args) {
    std::vector<ErrorParam> params;
    detail::Collect(params, std::forward<Args>(args)...);
    throw Error(code, std::move(params));
}

[[noreturn]] void User_ErrorRaise(const std::string &text, const char *sqlstate = "22023");

}  // namespace dt
