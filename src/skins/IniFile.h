#pragma once
// The player's reader of small INI files (the skin files, the welcome texts).
// It reads a whole file once, keeps its sections and keys in file order and
// answers look-ups with a caller's default.  It never writes.
//
// The file syntax is the one skins have always been written in, quirks
// included, because existing skin files depend on them:
// - A line ends only at a carriage return; a line feed right after it is
//   skipped, anywhere else it is part of the line.  Text after the last
//   carriage return is not read, so a file written with line feeds alone reads
//   as one unfinished line and yields nothing.
// - A file starting with the little-endian byte-order mark is UTF-16LE; any
//   other file is read byte by byte, each byte widened with its sign: 0x00-0x7F
//   stay as they are, 0x80-0xFF become U+FF80-U+FFFF.  Only 7-bit text
//   survives an 8-bit file unchanged; no code page is consulted.
// - A line is kept only when it holds "[" or "=".  Anything before a "[" that
//   comes before every "=" is dropped (so a byte-order mark before the first
//   section header does no harm), then the line is trimmed.
// - A section header is a kept line starting with "[" that holds a "]"
//   anywhere; its name is the line without its first and last characters,
//   whatever the last one is.  A "[" line without "]" is ignored, as are key
//   lines before the first header and sections whose name is empty.
// - A key line splits at its first "="; key and value are not trimmed again,
//   so "Name = x" defines the key "Name " with the value " x".
// - Look-ups compare exactly (case-sensitive) and take the first match: the
//   first section of a name first, then later sections of the same name.
//
// Not thread-safe; an object is loaded once and then only read.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace talvo {

class IniFile {
public:
    struct Entry {
        std::u16string key;
        std::u16string value;
    };
    struct Section {
        std::u16string name;
        std::vector<Entry> entries;
    };

    // GetString's default inside GetNumber: a value equal to it counts as absent.
    static constexpr std::u16string_view kDefaultMarker = u"<Default string>";
    // Skin files are a few kilobytes; anything far larger is not one, and is
    // refused before a buffer of its size is allocated.  A megabyte of short
    // key lines already holds tens of megabytes once split into entries.
    static constexpr std::size_t kMaxFileBytes = 1024 * 1024;
    // The number callers use for "not given": eight F digits or -1.
    static constexpr std::int32_t kNotGiven = -1;

    // Reads the whole file at path (UTF-16 text) in one read and appends its
    // sections to those already held.  False, keeping nothing of the file,
    // when it cannot be opened (traced as "Failed to open INI file '%s'.
    // Error %d" with the platform's error number), is larger than
    // kMaxFileBytes (traced the same way, error 8, not enough memory), is
    // empty, or cannot be read whole (silently).
    bool Load(std::u16string_view path);
    // The same for a file already in memory (the fuzzer, tests).  False only
    // for no bytes or more than kMaxFileBytes.
    bool LoadBytes(std::span<const std::uint8_t> bytes);

    // True once a Load or LoadBytes has succeeded.
    bool IsLoaded() const { return loaded_; }

    // The value of the first matching key (see above), or defaultText.
    std::u16string GetString(std::u16string_view section, std::u16string_view key,
                             std::u16string_view defaultText) const;
    // The value read as a 32-bit number, or defaultNumber when the key is
    // missing, its value empty or equal to kDefaultMarker.  "0x" (lower-case x
    // only) starts hexadecimal digits, read as scanf's "%x" reads them and
    // wrapping to 32 bits; anything else is a decimal read as wcstol reads it
    // (leading blanks, a sign, digits up to the first other character; no
    // digit gives 0, not the default; out of range saturates at the 32-bit
    // limits).  "0xFFFFFFFF" and "-1" both give kNotGiven.
    std::int32_t GetNumber(std::u16string_view section, std::u16string_view key,
                           std::int32_t defaultNumber) const;
    // The entries of the first section named section, in file order; empty
    // when there is none.  Valid until the next Load.
    std::span<const Entry> GetKeys(std::u16string_view section) const;

    // Every section in file order, duplicates included.
    const std::vector<Section>& Sections() const { return sections_; }

    // The number GetNumber reads from a value text (exposed for the
    // resolution keys, whose parts are read the same way).
    static std::int32_t ParseNumber(std::u16string_view text);
    // The decimal read alone, as wcstol reads it, saturating at 32 bits.
    static std::int32_t ParseDecimal(std::u16string_view text);

private:
    std::vector<Section> sections_;
    bool loaded_ = false;
};

} // namespace talvo
