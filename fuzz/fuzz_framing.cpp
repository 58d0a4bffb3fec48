// libFuzzer target "framing"; what one input does is QuenvarFuzz::framingInput in FuzzEntries.h.

#include "FuzzEntries.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    QuenvarFuzz::ensureApplication();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QuenvarFuzz::framingInput(data, size);
    return 0;
}
