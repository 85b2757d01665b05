// libFuzzer target: see dtfuzz::FormatSpec in fuzz_targets.h for what it feeds and checks.
//
//   cmake --build build --target formatspec_fuzz && build/fuzz/formatspec_fuzz -max_total_time=60
#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    dtfuzz::FormatSpec(data, size);
    return 0;
}
