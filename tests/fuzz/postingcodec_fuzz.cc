// libFuzzer target: see dtfuzz::PostingList in fuzz_targets.h for what it feeds and checks.
//
//   cmake --build build --target postingcodec_fuzz && build/fuzz/postingcodec_fuzz -max_total_time=60
#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    dtfuzz::PostingList(data, size);
    return 0;
}
