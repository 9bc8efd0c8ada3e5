// Fuzz target over the reading of an ID3v2 tag's chapters (CTOC, CHAP and
// their TIT2 and APIC sub-frames). The input is the start of a file. Besides
// crashes and sanitizer reports it traps on a broken promise of the reader:
// each chapter is listed once, so the pictures together are never larger than
// the input, and every chapter took a CHAP frame of its own.

#include "../tools/zqxauthor/Id3Chapters.h"

#include <cstdint>
#include <span>

namespace {

// A CHAP frame's header, an empty element id and its four times.
constexpr std::size_t kSmallestChapterBytes = 10 + 1 + 16;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::span<const std::uint8_t> input(data, size);
    const auto chapters = zqxauthor::ReadId3Chapters(input);
    std::size_t pictureBytes = 0;
    for (const auto& c : chapters)
        pictureBytes += c.picture.size();
    if (pictureBytes > size || chapters.size() > size / kSmallestChapterBytes)
        __builtin_trap();
    if (zqxauthor::Id3TagSize(input) == 0 && !chapters.empty())
        __builtin_trap();
    return 0;
}
