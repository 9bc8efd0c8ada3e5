#include "Crc32.h"

#include <array>

namespace zqx {
namespace {

constexpr uint32_t kPolynomial = 0xEDB88320u;

// Eight tables: slicing by eight bytes keeps the open-time check of a large
// file well below the cost of reading it.
constexpr std::array<std::array<uint32_t, 256>, 8> MakeTables()
{
    std::array<std::array<uint32_t, 256>, 8> t{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int k = 0; k < 8; ++k)
            c = (c & 1) ? (c >> 1) ^ kPolynomial : c >> 1;
        t[0][i] = c;
    }
    for (uint32_t i = 0; i < 256; ++i)
        for (size_t s = 1; s < 8; ++s)
            t[s][i] = (t[s - 1][i] >> 8) ^ t[0][t[s - 1][i] & 0xFF];
    return t;
}

constexpr auto kTables = MakeTables();
static_assert(kTables[0][1] == 0x77073096u, "CRC-32 table must match zlib's");

} // namespace

uint32_t Crc32(uint32_t crc, const void* data, size_t size)
{
    const auto* p = static_cast<const uint8_t*>(data);
    crc = ~crc;
    while (size >= 8) {
        const uint32_t lo =
            crc ^ (uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24);
        const uint32_t hi =
            uint32_t(p[4]) | uint32_t(p[5]) << 8 | uint32_t(p[6]) << 16 | uint32_t(p[7]) << 24;
        crc = kTables[7][lo & 0xFF] ^ kTables[6][(lo >> 8) & 0xFF] ^ kTables[5][(lo >> 16) & 0xFF] ^
              kTables[4][lo >> 24] ^ kTables[3][hi & 0xFF] ^ kTables[2][(hi >> 8) & 0xFF] ^
              kTables[1][(hi >> 16) & 0xFF] ^ kTables[0][hi >> 24];
        p += 8;
        size -= 8;
    }
    while (size--)
        crc = kTables[0][(crc ^ *p++) & 0xFF] ^ (crc >> 8);
    return ~crc;
}

} // namespace zqx
