#include "clientproto.h"

#include <cstring>

namespace dt::channel {

namespace {
const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int Value(unsigned char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}
}  // namespace

bool IsChannelCode(const char *sqlstate) {
    return sqlstate && (std::strcmp(sqlstate, kPullNotice) == 0 || std::strcmp(sqlstate, kPushBegin) == 0 ||
                        std::strcmp(sqlstate, kPushData) == 0 || std::strcmp(sqlstate, kPushEnd) == 0);
}

std::string Base64Encode(const void *data, size_t n) {
    const unsigned char *p = static_cast<const unsigned char *>(data);
    std::string out;
    out.reserve((n + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 3 <= n; i += 3) {
        unsigned v = (p[i] << 16) | (p[i + 1] << 8) | p[i + 2];
        out += kAlphabet[(v >> 18) & 63];
        out += kAlphabet[(v >> 12) & 63];
        out += kAlphabet[(v >> 6) & 63];
        out += kAlphabet[v & 63];
    }
    if (n - i == 1) {
        unsigned v = p[i] << 16;
        out += kAlphabet[(v >> 18) & 63];
        out += kAlphabet[(v >> 12) & 63];
        out += "==";
    } else if (n - i == 2) {
        unsigned v = (p[i] << 16) | (p[i + 1] << 8);
        out += kAlphabet[(v >> 18) & 63];
        out += kAlphabet[(v >> 12) & 63];
        out += kAlphabet[(v >> 6) & 63];
        out += '=';
    }
    return out;
}

bool Base64Decode(const std::string &text, std::string &out) {
    out.clear();
    if (text.size() % 4 != 0) return false;
    out.reserve(text.size() / 4 * 3);
    for (size_t i = 0; i < text.size(); i += 4) {
        int a = Value(text[i]), b = Value(text[i + 1]);
        if (a < 0 || b < 0) return false;
        bool last = i + 4 == text.size();
        char c3 = text[i + 2], c4 = text[i + 3];
        if (last && c3 == '=' && c4 == '=') {
            if (b & 15) return false;
            out += static_cast<char>((a << 2) | (b >> 4));
            break;
        }
        int c = Value(c3);
        if (c < 0) return false;
        if (last && c4 == '=') {
            if (c & 3) return false;
            out += static_cast<char>((a << 2) | (b >> 4));
            out += static_cast<char>(((b & 15) << 4) | (c >> 2));
            break;
        }
        int d = Value(c4);
        if (d < 0) return false;
        unsigned v = (a << 18) | (b << 12) | (c << 6) | d;
        out += static_cast<char>((v >> 16) & 255);
        out += static_cast<char>((v >> 8) & 255);
        out += static_cast<char>(v & 255);
    }
    return true;
}

}  // namespace dt::channel
