#include "platform/FileNames.h"

namespace talvo {
namespace {

constexpr char16_t kEscapeBase = 0xDC00;
constexpr char16_t kFirstEscape = 0xDC80;
constexpr char16_t kLastEscape = 0xDCFF;
constexpr char16_t kReplacement = 0xFFFD;

// The length of the valid UTF-8 sequence at bytes[i], or 0 when there is none
// (invalid, overlong, a surrogate, past U+10FFFF, or cut short).
qsizetype validSequenceLength(QByteArrayView bytes, qsizetype i)
{
    const auto lead = static_cast<std::uint8_t>(bytes[i]);
    qsizetype length = 0;
    char32_t c = 0;
    char32_t minimum = 0;
    if (lead < 0x80)
        return 1;
    if ((lead & 0xE0) == 0xC0)
        length = 2, c = lead & 0x1F, minimum = 0x80;
    else if ((lead & 0xF0) == 0xE0)
        length = 3, c = lead & 0x0F, minimum = 0x800;
    else if ((lead & 0xF8) == 0xF0)
        length = 4, c = lead & 0x07, minimum = 0x10000;
    else
        return 0;
    if (bytes.size() - i < length)
        return 0;
    for (qsizetype k = 1; k < length; ++k) {
        const auto next = static_cast<std::uint8_t>(bytes[i + k]);
        if ((next & 0xC0) != 0x80)
            return 0;
        c = (c << 6) | (next & 0x3F);
    }
    if (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
        return 0;
    return length;
}

bool isEscape(char16_t unit)
{
    return unit >= kFirstEscape && unit <= kLastEscape;
}

} // namespace

QString DecodeFileName(QByteArrayView bytes)
{
    QString name;
    name.reserve(bytes.size());
    qsizetype run = 0;
    qsizetype i = 0;
    const auto flushRun = [&] {
        name += QString::fromUtf8(bytes.sliced(run, i - run));
    };
    while (i < bytes.size()) {
        const qsizetype length = validSequenceLength(bytes, i);
        if (length > 0) {
            i += length;
            continue;
        }
        flushRun();
        name += QChar(char16_t(kEscapeBase + static_cast<std::uint8_t>(bytes[i])));
        run = ++i;
    }
    flushRun();
    return name;
}

QByteArray EncodeFileName(const QString& name)
{
    QByteArray bytes;
    bytes.reserve(name.size());
    qsizetype run = 0;
    const auto flushRun = [&](qsizetype end) {
        bytes += QStringView(name).sliced(run, end - run).toUtf8();
    };
    for (qsizetype i = 0; i < name.size(); ++i) {
        const char16_t unit = name[i].unicode();
        const bool paired =
            QChar::isHighSurrogate(unit) && i + 1 < name.size() && name[i + 1].isLowSurrogate();
        if (paired) {
            ++i;
            continue;
        }
        if (!QChar::isSurrogate(unit))
            continue;
        flushRun(i);
        if (isEscape(unit))
            bytes += char(unit - kEscapeBase);
        else
            bytes += QString(QChar(kReplacement)).toUtf8();
        run = i + 1;
    }
    flushRun(name.size());
    return bytes;
}

QString DisplayFileName(const QString& name)
{
    QString shown = name;
    for (QChar& unit : shown) {
        if (isEscape(unit.unicode()))
            unit = QChar(kReplacement);
    }
    return shown;
}

QStringList DecodeArguments(int argc, const char* const* argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << DecodeFileName(QByteArrayView(argv[i]));
    return arguments;
}

} // namespace talvo
