// Character classes of the current C locale, answered as std::isalpha and
// friends answer them.  With the GNU C library the locale's class table is
// read directly (what its C macros do), without a function call per
// character; elsewhere the standard functions are called.
#pragma once

#include <cctype>

namespace dt {

#if defined(__GLIBC__)
inline bool CharIs(unsigned char c, unsigned short cls) { return ((*__ctype_b_loc())[c] & cls) != 0; }
inline bool IsAlphaChar(unsigned char c) { return CharIs(c, (unsigned short)_ISalpha); }
inline bool IsAlnumChar(unsigned char c) { return CharIs(c, (unsigned short)_ISalnum); }
inline bool IsUpperChar(unsigned char c) { return CharIs(c, (unsigned short)_ISupper); }
inline bool IsSpaceChar(unsigned char c) { return CharIs(c, (unsigned short)_ISspace); }
inline char ToLowerChar(unsigned char c) { return (char)(*__ctype_tolower_loc())[c]; }
#else
inline bool IsAlphaChar(unsigned char c) { return std::isalpha(c) != 0; }
inline bool IsAlnumChar(unsigned char c) { return std::isalnum(c) != 0; }
inline bool IsUpperChar(unsigned char c) { return std::isupper(c) != 0; }
inline bool IsSpaceChar(unsigned char c) { return std::isspace(c) != 0; }
inline char ToLowerChar(unsigned char c) { return (char)std::tolower(c); }
#endif

}  // namespace dt
