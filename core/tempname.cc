#include "tempname.h"

#include <cstdlib>
#include <unistd.h>

#include "error.h"

namespace dt {

int _dt_random() {
    static bool seeded = false;
    if (!seeded) {
        std::srand((unsigned)getpid());
        seeded = true;
    }
    return std::rand();
}

std::string _dt_MakeTempName(const std::string &directory, const std::string &fname) {
    size_t slash = fname.rfind('/');
    std::string base = slash == std::string::npos ? fname : fname.substr(slash + 1);
    if (base.size() > kMaxTempBase) {
        // A file name can be no longer than 255 bytes: keep the start of a
        // long base, cut on a character boundary of UTF-8 text.
        base.resize(Utf8PrefixLength(base.data(), base.size(), kMaxTempBase));
    }
    return directory + "/" + base + "." + std::to_string(_dt_random() % 100000);
}

}  // namespace dt
