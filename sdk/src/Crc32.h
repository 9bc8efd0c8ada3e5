#pragma once
// CRC-32 as zlib computes it (reflected polynomial 0xEDB88320), so a file's
// checksums can be checked with any common tool.

#include <cstddef>
#include <cstdint>

namespace zqx {

// Continues a running checksum; start with crc = 0.
uint32_t Crc32(uint32_t crc, const void* data, size_t size);

} // namespace zqx
