#include "RegFile.h"

#include "RegData.h"

#include <QStringDecoder>
#include <QStringList>

#include <array>

namespace talvo::reg {
namespace {

struct RootName {
    HKEY root;
    const char* full;
    const char* brief;
};
inline constexpr std::array<RootName, 2> kRootNames{{
    {HKEY_LOCAL_MACHINE, "HKEY_LOCAL_MACHINE", "HKLM"},
    {HKEY_CLASSES_ROOT, "HKEY_CLASSES_ROOT", "HKCR"},
}};

// Bytes per exported hex line, about what fits in 80 columns.
constexpr int kHexBytesPerLine = 25;

QString Escape(const QString& text)
{
    QString escaped = text;
    escaped.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
    escaped.replace(QLatin1Char('"'), QStringLiteral("\\\""));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

QString HexList(const QString& prefix, const std::vector<std::uint8_t>& data)
{
    QString line = prefix;
    for (std::size_t i = 0; i < data.size(); ++i) {
        if (i > 0) {
            line += QLatin1Char(',');
            if (i % kHexBytesPerLine == 0)
                line += QStringLiteral("\\\r\n  ");
        }
        line += QStringLiteral("%1").arg(data[i], 2, 16, QLatin1Char('0'));
    }
    return line;
}

QString ValueLine(const QString& name, DWORD type, const std::vector<std::uint8_t>& data)
{
    QString line = (name.isEmpty() ? QStringLiteral("@") : Escape(name)) + QLatin1Char('=');
    if (type == REG_SZ) {
        if (std::optional<QString> text = CleanText(data))
            return line + Escape(*text);
    }
    if (type == REG_DWORD && data.size() == 4) {
        DWORD value = data[0] | (data[1] << 8) | (data[2] << 16) | (DWORD(data[3]) << 24);
        return line + QStringLiteral("dword:%1").arg(value, 8, 16, QLatin1Char('0'));
    }
    if (type == REG_BINARY)
        return HexList(line + QStringLiteral("hex:"), data);
    return HexList(line + QStringLiteral("hex(%1):").arg(type, 0, 16), data);
}

RegStatus ExportTree(Registry& registry, HKEY key, const QString& name, QString* text)
{
    *text += QLatin1Char('[') + name + QStringLiteral("]\r\n");
    std::u16string valueName;
    DWORD type = 0;
    std::vector<std::uint8_t> data;
    RegStatus status = ERROR_SUCCESS;
    for (DWORD i = 0; (status = registry.EnumValue(key, i, &valueName, &type, &data)) == ERROR_SUCCESS; ++i)
        *text += ValueLine(QString::fromStdU16String(valueName), type, data) + QStringLiteral("\r\n");
    if (status != ERROR_NO_MORE_ITEMS)
        return status;
    *text += QStringLiteral("\r\n");
    std::u16string childName;
    for (DWORD i = 0; (status = registry.EnumKey(key, i, &childName)) == ERROR_SUCCESS; ++i) {
        HKEY child = 0;
        if ((status = registry.OpenKey(key, childName, KEY_READ, &child)) != ERROR_SUCCESS)
            return status;
        status = ExportTree(registry, child, name + QLatin1Char('\\') + QString::fromStdU16String(childName),
                            text);
        registry.CloseKey(child);
        if (status != ERROR_SUCCESS)
            return status;
    }
    return status == ERROR_NO_MORE_ITEMS ? ERROR_SUCCESS : status;
}

QString Decode(const QByteArray& file)
{
    if (file.startsWith("\xFF\xFE")) {
        QStringDecoder decoder(QStringDecoder::Utf16LE);
        return decoder(file.mid(2));
    }
    QStringDecoder decoder(QStringDecoder::Utf8);
    return decoder(file.startsWith("\xEF\xBB\xBF") ? file.mid(3) : file);
}

// Reads a quoted string with \\ and \" escapes starting at text[*pos] == '"'.
std::optional<QString> ReadQuoted(const QString& text, qsizetype* pos)
{
    QString result;
    for (qsizetype i = *pos + 1; i < text.size(); ++i) {
        QChar c = text[i];
        if (c == QLatin1Char('"')) {
            *pos = i + 1;
            return result;
        }
        if (c == QLatin1Char('\\') && i + 1 < text.size())
            c = text[++i];
        result += c;
    }
    return std::nullopt;
}

std::optional<std::vector<std::uint8_t>> ReadHexList(const QString& text)
{
    std::vector<std::uint8_t> data;
    QString compact = text;
    compact.remove(QLatin1Char(' ')).remove(QLatin1Char('\t'));
    if (compact.isEmpty())
        return data;
    for (const QString& pair : compact.split(QLatin1Char(','))) {
        bool ok = false;
        uint value = pair.toUInt(&ok, 16);
        if (!ok || pair.size() > 2 || value > 0xFF)
            return std::nullopt;
        data.push_back(std::uint8_t(value));
    }
    return data;
}

} // namespace

std::optional<KeyPath> ParseKeyPath(const QString& text)
{
    qsizetype slash = text.indexOf(QLatin1Char('\\'));
    QString rootName = slash < 0 ? text : text.left(slash);
    for (const RootName& root : kRootNames) {
        if (rootName.compare(QLatin1String(root.full), Qt::CaseInsensitive) == 0 ||
            rootName.compare(QLatin1String(root.brief), Qt::CaseInsensitive) == 0) {
            QStringList parts =
                (slash < 0 ? QString() : text.mid(slash + 1)).split(QLatin1Char('\\'), Qt::SkipEmptyParts);
            return KeyPath{root.root, parts.join(QLatin1Char('\\'))};
        }
    }
    return std::nullopt;
}

QString FullKeyName(const KeyPath& key)
{
    QString root;
    for (const RootName& entry : kRootNames) {
        if (entry.root == key.root)
            root = QLatin1String(entry.full);
    }
    return key.path.isEmpty() ? root : root + QLatin1Char('\\') + key.path;
}

RegStatus ExportKeys(Registry& registry, const KeyPath& key, QByteArray* file)
{
    HKEY handle = 0;
    RegStatus status = registry.OpenKey(key.root, key.path.toStdU16String(), KEY_READ, &handle);
    if (status != ERROR_SUCCESS)
        return status;
    QString text = QLatin1String(kRegFileHeader) + QStringLiteral("\r\n\r\n");
    status = ExportTree(registry, handle, FullKeyName(key), &text);
    registry.CloseKey(handle);
    if (status != ERROR_SUCCESS)
        return status;
    file->clear();
    file->append("\xFF\xFE", 2);
    std::u16string units = text.toStdU16String();
    for (char16_t c : units) {
        file->append(char(c & 0xFF));
        file->append(char(c >> 8));
    }
    return ERROR_SUCCESS;
}

bool ParseRegFile(const QByteArray& file, std::vector<RegFileOperation>* operations, QString* error)
{
    QStringList lines = Decode(file).split(QLatin1Char('\n'));
    for (QString& line : lines) {
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
    }
    if (lines.isEmpty() || lines[0].trimmed() != QLatin1String(kRegFileHeader)) {
        *error =
            QStringLiteral("line 1: the file must begin with \"%1\".").arg(QLatin1String(kRegFileHeader));
        return false;
    }
    std::optional<KeyPath> current;
    for (qsizetype n = 1; n < lines.size(); ++n) {
        const qsizetype lineNumber = n + 1;
        QString line = lines[n].trimmed();
        auto fail = [&](const QString& reason) {
            *error = QStringLiteral("line %1: %2").arg(lineNumber).arg(reason);
            return false;
        };
        if (line.isEmpty() || line.startsWith(QLatin1Char(';')))
            continue;
        if (line.startsWith(QLatin1Char('['))) {
            if (!line.endsWith(QLatin1Char(']')))
                return fail(QStringLiteral("a key line must end with ']'."));
            QString name = line.mid(1, line.size() - 2);
            const bool remove = name.startsWith(QLatin1Char('-'));
            std::optional<KeyPath> key = ParseKeyPath(remove ? name.mid(1) : name);
            if (!key)
                return fail(
                    QStringLiteral("\"%1\" is not under HKEY_LOCAL_MACHINE or HKEY_CLASSES_ROOT.").arg(name));
            operations->push_back(
                {remove ? RegFileOperation::DeleteKey : RegFileOperation::CreateKey, *key, {}, 0, {}});
            current = remove ? std::nullopt : key;
            continue;
        }
        if (!current)
            return fail(QStringLiteral("a value line must follow a key line."));
        RegFileOperation op{RegFileOperation::SetValue, *current, {}, REG_SZ, {}};
        qsizetype pos = 0;
        if (line.startsWith(QLatin1Char('@'))) {
            pos = 1;
        } else if (line.startsWith(QLatin1Char('"'))) {
            std::optional<QString> name = ReadQuoted(line, &pos);
            if (!name)
                return fail(QStringLiteral("the value name has no closing quote."));
            op.name = *name;
        } else {
            return fail(QStringLiteral("expected a key in [brackets], a \"value name\" or @."));
        }
        if (pos >= line.size() || line[pos] != QLatin1Char('='))
            return fail(QStringLiteral("expected '=' after the value name."));
        QString data = line.mid(pos + 1).trimmed();
        if (data == QLatin1String("-")) {
            op.kind = RegFileOperation::DeleteValue;
        } else if (data.startsWith(QLatin1Char('"'))) {
            qsizetype end = 0;
            std::optional<QString> text = ReadQuoted(data, &end);
            if (!text || end != data.size())
                return fail(QStringLiteral("the string has no closing quote or text after it."));
            op.data = RegSzBytes(text->toStdU16String());
        } else if (data.startsWith(QLatin1String("dword:"), Qt::CaseInsensitive)) {
            QString digits = data.mid(6);
            bool ok = false;
            DWORD value = digits.toUInt(&ok, 16);
            if (!ok || digits.isEmpty() || digits.size() > 8)
                return fail(QStringLiteral("dword: needs 1 to 8 hex digits."));
            op.type = REG_DWORD;
            op.data = {std::uint8_t(value), std::uint8_t(value >> 8), std::uint8_t(value >> 16),
                       std::uint8_t(value >> 24)};
        } else if (data.startsWith(QLatin1String("hex"), Qt::CaseInsensitive)) {
            qsizetype colon = data.indexOf(QLatin1Char(':'));
            QString kind = data.left(colon).toLower();
            bool ok = true;
            if (kind == QLatin1String("hex")) {
                op.type = REG_BINARY;
            } else if (kind.startsWith(QLatin1String("hex(")) && kind.endsWith(QLatin1Char(')'))) {
                op.type = kind.mid(4, kind.size() - 5).toUInt(&ok, 16);
            } else {
                ok = false;
            }
            if (colon < 0 || !ok)
                return fail(QStringLiteral("expected hex: or hex(type): before the bytes."));
            QString bytes = data.mid(colon + 1);
            // A trailing backslash continues the byte list on the next line.
            while (bytes.endsWith(QLatin1Char('\\')) && n + 1 < lines.size()) {
                bytes.chop(1);
                bytes += lines[++n].trimmed();
            }
            std::optional<std::vector<std::uint8_t>> parsed = ReadHexList(bytes);
            if (!parsed)
                return fail(QStringLiteral("hex data must be pairs of hex digits separated by commas."));
            op.data = std::move(*parsed);
        } else {
            return fail(QStringLiteral("unknown data \"%1\": expected \"text\", dword:, hex: or hex(type):.")
                            .arg(data.left(20)));
        }
        operations->push_back(std::move(op));
    }
    return true;
}

RegStatus ApplyOperations(Registry& registry, const std::vector<RegFileOperation>& operations)
{
    for (const RegFileOperation& op : operations) {
        std::u16string path = op.key.path.toStdU16String();
        RegStatus status = ERROR_SUCCESS;
        if (op.kind == RegFileOperation::DeleteKey) {
            status = registry.DeleteKey(op.key.root, path);
            if (status == ERROR_FILE_NOT_FOUND)
                status = ERROR_SUCCESS;
        } else {
            HKEY key = 0;
            status = registry.CreateKey(op.key.root, path, KEY_ALL_ACCESS, &key);
            if (status != ERROR_SUCCESS)
                return status;
            std::u16string name = op.name.toStdU16String();
            if (op.kind == RegFileOperation::SetValue)
                status = registry.SetValue(key, name, op.type, op.data.data(), DWORD(op.data.size()));
            else if (op.kind == RegFileOperation::DeleteValue)
                status = registry.DeleteValue(key, name);
            if (status == ERROR_FILE_NOT_FOUND && op.kind == RegFileOperation::DeleteValue)
                status = ERROR_SUCCESS;
            registry.CloseKey(key);
        }
        if (status != ERROR_SUCCESS)
            return status;
    }
    return ERROR_SUCCESS;
}

} // namespace talvo::reg
