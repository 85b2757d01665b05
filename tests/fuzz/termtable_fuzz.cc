// libFuzzer target: see dtfuzz::TermTable in fuzz_targets.h for what it feeds and checks.
//
//   cmake --build build --target termtable_fuzz && build/fuzz/termtable_fuzz -max_total_time=60
#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    dtfuzz::TermTable(data, size);
    return 0;
}
