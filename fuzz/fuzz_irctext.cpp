// libFuzzer target "irctext"; what one input does is QuenvarFuzz::irctextInput in FuzzEntries.h.

#include "FuzzEntries.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    QuenvarFuzz::ensureApplication();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QuenvarFuzz::irctextInput(data, size);
    return 0;
}
