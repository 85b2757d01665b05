#include "tempname.h"

#include <cstdlib>
#include <unistd.h>

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
    return directory + "/" + base + "." + std::to_string(_dt_random() % 100000);
}

}  // namespace dt
