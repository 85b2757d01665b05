#include <gtest/gtest.h>

#include <cctype>
#include <clocale>

#include "ctypefast.h"

namespace {

void ExpectSameAsStd() {
    for (int c = 0; c < 256; c++) {
        unsigned char u = (unsigned char)c;
        EXPECT_EQ(dt::IsAlphaChar(u), std::isalpha(u) != 0) << c;
        EXPECT_EQ(dt::IsAlnumChar(u), std::isalnum(u) != 0) << c;
        EXPECT_EQ(dt::IsUpperChar(u), std::isupper(u) != 0) << c;
        EXPECT_EQ(dt::IsSpaceChar(u), std::isspace(u) != 0) << c;
        EXPECT_EQ(dt::ToLowerChar(u), (char)std::tolower(u)) << c;
    }
}

}  // namespace

// The fast classes answer exactly as the standard functions, in the "C"
// locale and in whatever other locale the machine offers.
TEST(CharClass, SameAsStandardFunctions) {
    ExpectSameAsStd();
    for (const char *name : {"C.UTF-8", "en_US.UTF-8", "en_US.ISO-8859-1", "de_DE.ISO-8859-1"}) {
        if (!std::setlocale(LC_CTYPE, name)) continue;
        ExpectSameAsStd();
    }
    std::setlocale(LC_CTYPE, "C");
}
