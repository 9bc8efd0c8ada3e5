#pragma once
// The chapters of an MP3's ID3v2 tag as the tag itself states them: its table
// of contents (CTOC) and the titles and pictures inside each CHAP frame, which
// FFmpeg's libraries do not pass on. Pure functions of the tag's bytes, so they
// can be fuzzed on their own.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace zqxauthor {

struct Id3Chapter {
    std::uint32_t startMs = 0;
    std::uint32_t endMs = 0;
    std::string title;                 // UTF-8; empty when the CHAP has no TIT2
    std::vector<std::uint8_t> picture; // its APIC's bytes, as stored; empty when none
};

// The size of the whole tag (header included) that a file starting with these
// bytes holds, from its 10-byte header; 0 when it starts with no ID3v2.3 or
// ID3v2.4 tag.
std::size_t Id3TagSize(std::span<const std::uint8_t> head);

// The chapters of the tag at the start of `tag`: those the top-level CTOC
// lists, in its order (a listed CTOC is followed into, once), when the tag has
// one; else every CHAP in the tag's order. Compressed, encrypted and
// unsynchronised frames are skipped; a damaged frame ends the reading, keeping
// what came before.
std::vector<Id3Chapter> ReadId3Chapters(std::span<const std::uint8_t> tag);

} // namespace zqxauthor
