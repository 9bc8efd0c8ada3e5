#include "RegData.h"

#include <QStringList>

#include <limits>

namespace talvo::reg {
namespace {

std::vector<std::uint8_t> LittleEndian(std::uint64_t value, int bytes)
{
    std::vector<std::uint8_t> data;
    for (int i = 0; i < bytes; ++i)
        data.push_back(std::uint8_t(value >> (8 * i)));
    return data;
}

std::vector<std::uint8_t> Utf16(const QString& text)
{
    return RegSzBytes(text.toStdU16String());
}

// The strings of REG_MULTI_SZ data, each ended by a NUL, the list by another.
QStringList MultiStrings(const std::vector<std::uint8_t>& data)
{
    QStringList strings;
    QString current;
    for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
        char16_t c = char16_t(data[i] | (data[i + 1] << 8));
        if (c != 0) {
            current.append(QChar(c));
            continue;
        }
        if (current.isEmpty())
            break;
        strings << current;
        current.clear();
    }
    if (!current.isEmpty())
        strings << current;
    return strings;
}

} // namespace

std::optional<DWORD> TypeFromName(const QString& name)
{
    for (const TypeName& entry : kTypeNames) {
        if (name.compare(QLatin1String(entry.name), Qt::CaseInsensitive) == 0)
            return entry.type;
    }
    return std::nullopt;
}

QString TypeToName(DWORD type)
{
    for (const TypeName& entry : kTypeNames) {
        if (entry.type == type)
            return QLatin1String(entry.name);
    }
    return QStringLiteral("REG_UNKNOWN");
}

std::optional<std::vector<std::uint8_t>> ParseData(DWORD type, const QString& text, QString* error)
{
    switch (type) {
    case REG_SZ:
    case REG_EXPAND_SZ:
        return Utf16(text);
    case REG_MULTI_SZ: {
        std::vector<std::uint8_t> data;
        for (const QString& part : text.split(QStringLiteral("\\0"), Qt::SkipEmptyParts)) {
            std::vector<std::uint8_t> bytes = Utf16(part);
            data.insert(data.end(), bytes.begin(), bytes.end());
        }
        data.push_back(0);
        data.push_back(0);
        return data;
    }
    case REG_DWORD:
    case REG_QWORD: {
        const bool dword = type == REG_DWORD;
        const QString trimmed = text.trimmed();
        bool ok = false;
        qulonglong value = trimmed.startsWith(QStringLiteral("0x"), Qt::CaseInsensitive)
                               ? trimmed.mid(2).toULongLong(&ok, 16)
                               : trimmed.toULongLong(&ok, 10);
        // toULongLong accepts a sign; a number of the registry has none.
        if (trimmed.startsWith(QLatin1Char('-')) || trimmed.startsWith(QLatin1Char('+')))
            ok = false;
        if (!ok || (dword && value > std::numeric_limits<DWORD>::max())) {
            *error =
                QStringLiteral("Invalid %1 data \"%2\": give a number from 0 to %3, in decimal or as 0x hex.")
                    .arg(TypeToName(type), text,
                         dword ? QStringLiteral("4294967295") : QStringLiteral("18446744073709551615"));
            return std::nullopt;
        }
        return LittleEndian(value, dword ? 4 : 8);
    }
    default: {
        QString digits = text.trimmed();
        QByteArray bytes = QByteArray::fromHex(digits.toLatin1());
        bool valid = digits.size() % 2 == 0;
        for (QChar c : digits) {
            char16_t lower = c.toLower().unicode();
            valid = valid && ((lower >= u'0' && lower <= u'9') || (lower >= u'a' && lower <= u'f'));
        }
        if (!valid) {
            *error = QStringLiteral("Invalid %1 data \"%2\": give pairs of hex digits, such as 0A1B.")
                         .arg(TypeToName(type), text);
            return std::nullopt;
        }
        return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
    }
    }
}

QString HexString(const std::vector<std::uint8_t>& data)
{
    return QString::fromLatin1(
        QByteArray(reinterpret_cast<const char*>(data.data()), qsizetype(data.size())).toHex().toUpper());
}

std::optional<QString> CleanText(const std::vector<std::uint8_t>& data)
{
    if (data.size() < 2 || data.size() % 2 != 0 || data[data.size() - 1] != 0 || data[data.size() - 2] != 0)
        return std::nullopt;
    QString text = QString::fromStdU16String(RegSzText(data.data(), DWORD(data.size())));
    if (std::size_t(text.size() + 1) * 2 != data.size())
        return std::nullopt; // a NUL inside
    for (qsizetype i = 0; i < text.size(); ++i) {
        QChar c = text[i];
        if (c == QLatin1Char('\r') || c == QLatin1Char('\n'))
            return std::nullopt;
        if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            ++i;
            continue;
        }
        if (c.isSurrogate())
            return std::nullopt;
    }
    return text;
}

QString FormatData(DWORD type, const std::vector<std::uint8_t>& data)
{
    switch (type) {
    case REG_SZ:
    case REG_EXPAND_SZ:
        return QString::fromStdU16String(RegSzText(data.data(), DWORD(data.size())));
    case REG_MULTI_SZ:
        return MultiStrings(data).join(QStringLiteral("\\0"));
    case REG_DWORD:
    case REG_QWORD:
        if (data.size() == (type == REG_DWORD ? 4u : 8u)) {
            std::uint64_t value = 0;
            for (std::size_t i = data.size(); i-- > 0;)
                value = (value << 8) | data[i];
            return QStringLiteral("0x") + QString::number(value, 16);
        }
        return HexString(data);
    default:
        return HexString(data);
    }
}

} // namespace talvo::reg
