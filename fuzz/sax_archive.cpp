// libFuzzer target: KelSAX documents as ZIP archives. Inputs without the archive signature are
// left to the XML target.
#include "SaxFuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 4 || data[0] != 'P' || data[1] != 'K')
        return 0;
    KelSaxFuzz::ReadEverything(data, size);
    return 0;
}
