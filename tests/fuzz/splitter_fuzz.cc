// libFuzzer target: see dtfuzz::Splitter in fuzz_targets.h for what it feeds and checks.
//
//   cmake --build build --target splitter_fuzz && build/fuzz/splitter_fuzz -max_total_time=60
#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    dtfuzz::Splitter(data, size);
    return 0;
}
