// libFuzzer's entry to the target that the program is built for.
#include "fuzz/targets.h"

#include <stddef.h>
#include <stdint.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const fuzz_target *target = find_fuzz_target(FUZZ_TARGET);
    target->take(std::string(reinterpret_cast<const char *>(data), size));
    return 0;
}
