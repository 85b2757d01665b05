// libFuzzer target: see dtfuzz::DocBuffer in fuzz_targets.h for what it feeds and checks.
//
//   cmake --build build --target docbuffer_fuzz && build/fuzz/docbuffer_fuzz -max_total_time=60
#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    dtfuzz::DocBuffer(data, size);
    return 0;
}
