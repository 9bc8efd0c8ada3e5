#pragma once
// The contract between the registry writer process and the tests that drive
// it: where it writes and what a value written in generation g looks like, so
// that a value read after a crash can be told apart as old, new or damaged.
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace talvo::test {

inline constexpr std::u16string_view kWriterKey = u"Software\\Talvo\\WriterTest";
// Values rewritten, in this order, in every generation of the crash writer.
inline constexpr int kGenerationValues = 6;

// Generation g of value index: 8 header bytes (g, index) and a body whose
// length and bytes both depend on g and index.
inline std::vector<std::uint8_t> GenerationPayload(std::uint32_t generation, std::uint32_t index)
{
    std::vector<std::uint8_t> bytes;
    for (std::uint32_t word : {generation, index}) {
        for (int shift = 0; shift < 32; shift += 8)
            bytes.push_back(std::uint8_t(word >> shift));
    }
    std::size_t body = (generation * 7 + index * 13) % 3000;
    for (std::size_t i = 0; i < body; ++i)
        bytes.push_back(std::uint8_t(generation * 31 + index * 17 + i));
    return bytes;
}

// The generation a payload was written in, or none when it is not exactly a payload.
inline std::optional<std::uint32_t> PayloadGeneration(const std::vector<std::uint8_t>& bytes,
                                                      std::uint32_t index)
{
    if (bytes.size() < 8)
        return std::nullopt;
    std::uint32_t generation =
        bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (std::uint32_t(bytes[3]) << 24);
    if (GenerationPayload(generation, index) != bytes)
        return std::nullopt;
    return generation;
}

} // namespace talvo::test
