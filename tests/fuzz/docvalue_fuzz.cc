// libFuzzer target: see dtfuzz::DocValue in fuzz_targets.h for what it feeds and checks.
//
//   cmake --build build --target docvalue_fuzz && build/fuzz/docvalue_fuzz -max_total_time=60
#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    dtfuzz::DocValue(data, size);
    return 0;
}
