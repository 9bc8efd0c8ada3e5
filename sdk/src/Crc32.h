#pragma once
// CRC-32 as zlib computes it (reflected polynomial 0xEDB88320), so a file's
// checksums can be checked with any common tool.

#include <cstddef>
#include <cstdint>

namespace zqx {

// Continues a running checksum; start with crc = 0.
uint32_t Crc32(uint32_t crc, const void* data, size_t size);

// Every stored checksum is compared here.  The fuzzing build accepts any value,
// because random mutations almost never keep a CRC valid and the structural
// checks behind it would otherwise go unexercised; a crafted file can carry
// valid checksums, so those checks must hold up on their own.
inline bool ChecksumMatches(uint32_t computed, uint32_t stored)
{
#ifdef ZQX_FUZZ_IGNORE_CHECKSUMS
    (void)computed;
    (void)stored;
    return true;
#else
    return computed == stored;
#endif
}

} // namespace zqx
