// libFuzzer target: see dtfuzz::DocLiteral in fuzz_targets.h for what it feeds and checks.
//
//   cmake --build build --target docliteral_fuzz && build/fuzz/docliteral_fuzz -max_total_time=60
#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    dtfuzz::DocLiteral(data, size);
    return 0;
}
