#include "TextEncoding.h"

#include <cstdint>

namespace zqx {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
// A lone U+DC80 to U+DCFF in a path is one byte of a name that is not UTF-8.
constexpr char32_t kFirstByteEscape = 0xDC80;
constexpr char32_t kLastByteEscape = 0xDCFF;

void AppendUtf8(std::string& out, char32_t c)
{
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | (c >> 6));
        out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | (c >> 12));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | (c >> 18));
        out += char(0x80 | ((c >> 12) & 0x3F));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    }
}

// Decodes one code point at text[i], advancing i; nothing for an invalid,
// overlong or truncated sequence (i then moves past the first byte only).
std::optional<char32_t> NextUtf8(const std::string& text, size_t& i)
{
    const auto b0 = static_cast<uint8_t>(text[i++]);
    if (b0 < 0x80)
        return b0;
    int extra = 0;
    char32_t c = 0;
    char32_t minimum = 0;
    if ((b0 & 0xE0) == 0xC0) {
        extra = 1, c = b0 & 0x1F, minimum = 0x80;
    } else if ((b0 & 0xF0) == 0xE0) {
        extra = 2, c = b0 & 0x0F, minimum = 0x800;
    } else if ((b0 & 0xF8) == 0xF0) {
        extra = 3, c = b0 & 0x07, minimum = 0x10000;
    } else {
        return std::nullopt;
    }
    if (text.size() - i < size_t(extra))
        return std::nullopt;
    for (int k = 0; k < extra; ++k) {
        const auto b = static_cast<uint8_t>(text[i + k]);
        if ((b & 0xC0) != 0x80)
            return std::nullopt;
        c = (c << 6) | (b & 0x3F);
    }
    if (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
        return std::nullopt;
    i += extra;
    return c;
}

} // namespace

std::optional<std::string> PathBytesFromUtf16(const std::u16string& text)
{
    // Paths are mostly ASCII, and a library search converts one per file: the
    // ASCII run at the start is copied in one pass.
    size_t ascii = 0;
    while (ascii < text.size() && text[ascii] < 0x80)
        ++ascii;
    std::string out(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(ascii));
    if (ascii == text.size())
        return out;
    out.reserve(text.size() * 3);
    for (size_t i = ascii; i < text.size(); ++i) {
        char32_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF) {
            if (i + 1 >= text.size() || text[i + 1] < 0xDC00 || text[i + 1] > 0xDFFF)
                return std::nullopt;
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        } else if (c >= kFirstByteEscape && c <= kLastByteEscape) {
            out += char(c & 0xFF);
            continue;
        } else if (c >= 0xDC00 && c <= 0xDFFF) {
            return std::nullopt;
        }
        AppendUtf8(out, c);
    }
    return out;
}

std::u16string Utf8ToUtf16(const std::string& text)
{
    std::u16string out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        const char32_t c = NextUtf8(text, i).value_or(kReplacement);
        if (c >= 0x10000) {
            out += char16_t(0xD800 + ((c - 0x10000) >> 10));
            out += char16_t(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            out += char16_t(c);
        }
    }
    return out;
}

bool IsValidUtf8(const std::string& text)
{
    size_t i = 0;
    while (i < text.size())
        if (!NextUtf8(text, i))
            return false;
    return true;
}

} // namespace zqx
