#include "skins/IniFile.h"

#include "platform/SystemError.h"
#include "platform/Trace.h"

#include <QFile>
#include <QFileInfo>
#include <QString>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <memory>

namespace talvo {
namespace {

constexpr char16_t kByteOrderMark = 0xFEFF;
constexpr char16_t kCarriageReturn = 0x0D;
constexpr char16_t kLineFeed = 0x0A;

// The blanks the handheld platform's wide-character tests call space: the
// ASCII ones.  Characters widened from 8-bit bytes (U+FF80 and up) are not.
bool IsBlank(char16_t c)
{
    return c == u' ' || (c >= 0x09 && c <= 0x0D);
}

std::u16string Trimmed(const std::u16string& line)
{
    std::size_t begin = 0;
    std::size_t end = line.size();
    while (begin < end && IsBlank(line[begin]))
        ++begin;
    while (end > begin && IsBlank(line[end - 1]))
        --end;
    return line.substr(begin, end - begin);
}

// Step one of splitting: a line survives only when it holds "[" or "="; what
// stands before a leading "[" goes.
bool KeepLine(std::u16string& line)
{
    const std::size_t first = line.find_first_of(u"[=");
    if (first == std::u16string::npos)
        return false;
    if (line[first] == u'[')
        line.erase(0, first);
    line = Trimmed(line);
    return true;
}

// Hands each line that survives to use, in order, as the text is widened to
// 16-bit characters; only one line is held at a time.
template <typename Use> void ForEachLine(std::span<const std::uint8_t> bytes, Use use)
{
    const bool wide = bytes.size() >= 2 && (bytes[0] | bytes[1] << 8) == kByteOrderMark;
    const std::size_t count = wide ? bytes.size() / 2 : bytes.size();
    auto at = [&](std::size_t i) -> char16_t {
        if (wide)
            return char16_t(bytes[2 * i] | bytes[2 * i + 1] << 8);
        // Sign extension of a char: 0x80-0xFF become U+FF80-U+FFFF.
        return char16_t(std::int16_t(std::int8_t(bytes[i])));
    };

    std::u16string line;
    for (std::size_t i = 0; i < count; ++i) {
        const char16_t c = at(i);
        if (c != kCarriageReturn) {
            line.push_back(c);
            continue;
        }
        if (i + 1 < count && at(i + 1) == kLineFeed)
            ++i;
        if (KeepLine(line))
            use(line);
        line.clear();
    }
    // Whatever follows the last carriage return is never committed.
}

bool IsHexDigit(char16_t c)
{
    return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

unsigned HexValue(char16_t c)
{
    if (c <= u'9')
        return unsigned(c - u'0');
    if (c <= u'F')
        return unsigned(c - u'A' + 10);
    return unsigned(c - u'a' + 10);
}

// Where a number's digits begin: after leading blanks and a sign, which both
// "%x" and wcstol accept.
std::size_t SkipBlanksAndSign(std::u16string_view text, bool* negative)
{
    std::size_t i = 0;
    while (i < text.size() && IsBlank(text[i]))
        ++i;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-'))
        *negative = text[i++] == u'-';
    return i;
}

// As "%x" reads: blanks, a sign, an optional 0x or 0X, hexadecimal digits;
// the value wraps to 32 bits.  No digit gives 0.
std::int32_t ParseHex(std::u16string_view text)
{
    bool negative = false;
    std::size_t i = SkipBlanksAndSign(text, &negative);
    if (i + 2 < text.size() && text[i] == u'0' && (text[i + 1] == u'x' || text[i + 1] == u'X') &&
        IsHexDigit(text[i + 2]))
        i += 2;
    std::uint32_t value = 0;
    for (; i < text.size() && IsHexDigit(text[i]); ++i)
        value = value << 4 | HexValue(text[i]);
    if (negative)
        value = 0u - value;
    return std::int32_t(value);
}

} // namespace

std::int32_t IniFile::ParseDecimal(std::u16string_view text)
{
    bool negative = false;
    std::size_t i = SkipBlanksAndSign(text, &negative);
    // Accumulated as a magnitude with room for one more digit; saturates as
    // wcstol does with a 32-bit long.
    constexpr std::int64_t kLimit = std::int64_t(std::numeric_limits<std::int32_t>::max()) + 1;
    std::int64_t magnitude = 0;
    for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
        magnitude = magnitude * 10 + (text[i] - u'0');
        if (magnitude > kLimit)
            magnitude = kLimit;
    }
    if (negative)
        return std::int32_t(-magnitude);
    return std::int32_t(std::min<std::int64_t>(magnitude, kLimit - 1));
}

std::int32_t IniFile::ParseNumber(std::u16string_view text)
{
    // Only the lower-case prefix means hexadecimal; "0X1F" reads as the decimal 0.
    if (text.starts_with(u"0x"))
        return ParseHex(text.substr(2));
    return ParseDecimal(text);
}

bool IniFile::LoadBytes(std::span<const std::uint8_t> bytes)
{
    if (bytes.empty() || bytes.size() > kMaxFileBytes)
        return false;
    Section current;
    auto commit = [&] {
        if (!current.name.empty())
            sections_.push_back(std::move(current));
        current = Section();
    };
    ForEachLine(bytes, [&](const std::u16string& line) {
        if (line.front() == u'[') {
            if (line.find(u']') == std::u16string::npos)
                return;
            commit();
            // The last character is taken for the "]" whatever it is.
            current.name = line.substr(1, line.size() - 2);
            return;
        }
        const std::size_t equals = line.find(u'=');
        // Before the first header there is no section to hold the key.
        if (equals == std::u16string::npos || current.name.empty())
            return;
        current.entries.push_back({line.substr(0, equals), line.substr(equals + 1)});
    });
    commit();
    loaded_ = true;
    return true;
}

bool IniFile::Load(std::u16string_view path)
{
    const QString name = QString::fromStdU16String(std::u16string(path));
    const QByteArray encoded = QFile::encodeName(name);
    auto traceFailure = [&](std::int32_t code) {
        Trace("Failed to open INI file '%s'. Error %d\n", name.toUtf8().constData(), code);
    };
    // A folder opens for reading here, and a pipe would wait for a writer;
    // neither ever opened as a file where skins come from.
    const QFileInfo info(name);
    if (info.exists() && !info.isFile()) {
        traceFailure(ERROR_ACCESS_DENIED);
        return false;
    }
    errno = 0;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(encoded.constData(), "rb"), std::fclose);
    if (!file) {
        traceFailure(ErrorCodeFromErrno(errno));
        return false;
    }
    if (std::fseek(file.get(), 0, SEEK_END) != 0)
        return false;
    const long size = std::ftell(file.get());
    if (size <= 0 || std::fseek(file.get(), 0, SEEK_SET) != 0)
        return false;
    if (static_cast<unsigned long>(size) > kMaxFileBytes) {
        traceFailure(ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
    std::vector<std::uint8_t> buffer(static_cast<std::size_t>(size));
    if (std::fread(buffer.data(), 1, buffer.size(), file.get()) != buffer.size())
        return false;
    return LoadBytes(buffer);
}

std::u16string IniFile::GetString(std::u16string_view section, std::u16string_view key,
                                  std::u16string_view defaultText) const
{
    for (const Section& candidate : sections_) {
        if (candidate.name != section)
            continue;
        for (const Entry& entry : candidate.entries) {
            if (entry.key == key)
                return entry.value;
        }
    }
    return std::u16string(defaultText);
}

std::int32_t IniFile::GetNumber(std::u16string_view section, std::u16string_view key,
                                std::int32_t defaultNumber) const
{
    const std::u16string text = GetString(section, key, kDefaultMarker);
    if (text.empty() || text == kDefaultMarker)
        return defaultNumber;
    return ParseNumber(text);
}

std::span<const IniFile::Entry> IniFile::GetKeys(std::u16string_view section) const
{
    for (const Section& candidate : sections_) {
        if (candidate.name == section)
            return candidate.entries;
    }
    return {};
}

} // namespace talvo
