#pragma once
// IMA ADPCM as the program files use it: self-contained blocks, so any block can
// be decoded after a seek without the ones before it.  The tables are shared by
// the SDK's decoder and the authoring tools' encoder; both must use exactly
// these, or the encoder's predictor drifts away from the decoder's.
//
// Block layout (n bytes, n >= kImaBlockHeaderBytes):
//   int16 LE  first sample, also the predictor's start value
//   uint8     step index, 0..88
//   uint8     0 (reserved)
//   then 4-bit codes, low nibble first, one per following sample.
// A block of n bytes holds ImaMaxSamples(n) = 1 + 2 * (n - 4) samples.

#include <array>
#include <cstddef>
#include <cstdint>

namespace zqx {

inline constexpr size_t kImaBlockHeaderBytes = 4;
inline constexpr int kImaMaxStepIndex = 88;

// Quantiser step sizes, indexed by the step index.
inline constexpr std::array<int16_t, 89> kImaStepTable = {
    7,    8,     9,     10,    11,    12,    13,    14,    16,    17,    19,    21,    23,    25,   28,
    31,   34,    37,    41,    45,    50,    55,    60,    66,    73,    80,    88,    97,    107,  118,
    130,  143,   157,   173,   190,   209,   230,   253,   279,   307,   337,   371,   408,   449,  494,
    544,  598,   658,   724,   796,   876,   963,   1060,  1166,  1282,  1411,  1552,  1707,  1878, 2066,
    2272, 2499,  2749,  3024,  3327,  3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845, 8630,
    9493, 10442, 11487, 12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};

// Change of the step index after each 4-bit code (the sign bit does not matter).
inline constexpr std::array<int8_t, 16> kImaIndexTable = {-1, -1, -1, -1, 2, 4, 6, 8,
                                                          -1, -1, -1, -1, 2, 4, 6, 8};

inline constexpr size_t ImaMaxSamples(size_t blockBytes)
{
    return blockBytes < kImaBlockHeaderBytes ? 0 : 1 + 2 * (blockBytes - kImaBlockHeaderBytes);
}

// Predictor state, shared by encoder and decoder so both step identically.
struct ImaState {
    int32_t predictor = 0;
    int32_t stepIndex = 0;
};

// Applies one 4-bit code to the state and returns the new sample.
inline int16_t ImaDecodeNibble(ImaState& state, uint8_t code)
{
    const int32_t step = kImaStepTable[static_cast<size_t>(state.stepIndex)];
    int32_t diff = step >> 3;
    if (code & 4)
        diff += step;
    if (code & 2)
        diff += step >> 1;
    if (code & 1)
        diff += step >> 2;
    state.predictor += (code & 8) ? -diff : diff;
    if (state.predictor > 32767)
        state.predictor = 32767;
    if (state.predictor < -32768)
        state.predictor = -32768;
    state.stepIndex += kImaIndexTable[code & 15];
    if (state.stepIndex < 0)
        state.stepIndex = 0;
    if (state.stepIndex > kImaMaxStepIndex)
        state.stepIndex = kImaMaxStepIndex;
    return static_cast<int16_t>(state.predictor);
}

// Decodes one block into out (at most maxSamples samples).  Returns the number of
// samples written, or -1 when the block is malformed (too short, bad step index,
// reserved byte set).
int ImaDecodeBlock(const uint8_t* block, size_t size, int16_t* out, size_t maxSamples);

} // namespace zqx
