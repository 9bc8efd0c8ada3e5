#include "codec/ImaAdpcm.h"

namespace zqx {

int ImaDecodeBlock(const uint8_t* block, size_t size, int16_t* out, size_t maxSamples)
{
    if (size < kImaBlockHeaderBytes || block[2] > kImaMaxStepIndex || block[3] != 0)
        return -1;
    const size_t count = ImaMaxSamples(size);
    if (count > maxSamples)
        return -1;
    ImaState state;
    state.predictor = static_cast<int16_t>(block[0] | block[1] << 8);
    state.stepIndex = block[2];
    out[0] = static_cast<int16_t>(state.predictor);
    size_t n = 1;
    for (size_t i = kImaBlockHeaderBytes; i < size; ++i) {
        out[n++] = ImaDecodeNibble(state, block[i] & 0x0F);
        out[n++] = ImaDecodeNibble(state, block[i] >> 4);
    }
    return static_cast<int>(n);
}

} // namespace zqx
