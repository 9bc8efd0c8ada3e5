#include "SyncAnswerText.h"

#include "platform/FileNames.h"
#include "platform/SystemError.h"
#include "sync/SyncProgramRecord.h"
#include "sync/SyncRunner.h"

#include <QtEndian>
#include <array>
#include <cstring>
#include <utility>

namespace talvo::sync {
namespace {

constexpr std::array<std::pair<SyncCommand, const char*>, 6> kSwitches{{
    {SyncCommand::GetStorageInfo, "GetStorageInfo"},
    {SyncCommand::GetAPVersion, "GetAPVersion"},
    {SyncCommand::EnumFiles, "EnumFiles"},
    {SyncCommand::GetDeviceManufacturer, "GetDeviceManufacturer"},
    {SyncCommand::DeleteProgram, "DeleteProgram"},
    {SyncCommand::AddProgram, "AddProgram"},
}};

constexpr auto kFail = static_cast<std::uint32_t>(E_FAIL);
constexpr auto kInvalidArgument = static_cast<std::uint32_t>(E_INVALIDARG);
// A system error carries its number in the low 16 bits.
constexpr std::uint32_t kSystemErrorMask = 0xFFFF0000u;
constexpr auto kSystemError = static_cast<std::uint32_t>(HResultFromError(1)) & kSystemErrorMask;

QString utf16Text(const QByteArray& bytes)
{
    QString text;
    for (qsizetype i = 0; i + 1 < bytes.size(); i += 2) {
        const char16_t unit = qFromLittleEndian<char16_t>(bytes.constData() + i);
        if (unit == 0)
            break;
        text.append(QChar(unit));
    }
    return text;
}

// An 8-bit field of a record: up to its terminator, never past the field.
QString fieldText(const char* field, std::size_t size)
{
    const std::size_t length = strnlen(field, size);
    return DecodeFileName(QByteArrayView(field, static_cast<qsizetype>(length)));
}

QStringList describeStorage(const QByteArray& answer)
{
    const QString text = QString::fromLocal8Bit(
        answer.constData(),
        static_cast<qsizetype>(strnlen(answer.constData(), static_cast<std::size_t>(answer.size()))));
    QStringList lines;
    // "\name|total|free|" parts; main memory has an empty name.
    const QStringList fields = text.split(QLatin1Char('|'));
    for (qsizetype i = 0; i + 2 < fields.size(); i += 3) {
        QString name = fields[i];
        if (!name.startsWith(QLatin1Char('\\')))
            return {QStringLiteral("malformed storage answer: %1").arg(text)};
        name.remove(0, 1);
        // The counts are the low 32 bits printed signed; shown here as the unsigned amount.
        const auto total = static_cast<std::uint32_t>(fields[i + 1].toInt());
        const auto free = static_cast<std::uint32_t>(fields[i + 2].toInt());
        lines << QStringLiteral("%1: %2 bytes, %3 free")
                     .arg(name.isEmpty() ? QStringLiteral("main memory") : name)
                     .arg(total)
                     .arg(free);
    }
    return lines;
}

QStringList describeRecords(const QByteArray& answer)
{
    using namespace SyncRecord;
    if (answer.size() % static_cast<qsizetype>(kSize) != 0)
        return {QStringLiteral("malformed program list: %1 bytes is not a whole number of records")
                    .arg(answer.size())};
    QStringList lines;
    for (qsizetype at = 0; at < answer.size(); at += static_cast<qsizetype>(kSize)) {
        const char* record = answer.constData() + at;
        auto u32 = [record](std::size_t offset) {
            return qFromLittleEndian<std::uint32_t>(record + offset);
        };
        const std::uint32_t flags = u32(kFlagsOffset);
        lines << QStringLiteral("%1\n  title: %2\n  author: %3\n  narrator: %4\n  provider: %5\n  key: %6\n"
                                "  length: %7 s, position: %8 s, type %9%10%11")
                     .arg(fieldText(record + kPathOffset, kPathSize),
                          fieldText(record + kTitleOffset, kTextSize),
                          fieldText(record + kAuthorOffset, kTextSize),
                          fieldText(record + kNarratorOffset, kTextSize),
                          fieldText(record + kProviderOffset, kTextSize),
                          fieldText(record + kProgramIdOffset, kTextSize))
                     .arg(u32(kDurationOffset))
                     .arg(static_cast<std::int32_t>(u32(kPositionOffset)))
                     .arg(static_cast<std::int32_t>(u32(kFileTypeOffset)))
                     .arg(flags & kFlagOnStorageCard ? QStringLiteral(", on a storage card") : QString())
                     .arg(flags & kFlagTimeSpan ? QStringLiteral(", part of a longer program") : QString());
        if (u32(kVersionOffset) != kVersion)
            lines.last() +=
                QStringLiteral("\n  (record version %1, expected %2)").arg(u32(kVersionOffset)).arg(kVersion);
    }
    return lines;
}

} // namespace

QString DescribeResult(std::uint32_t result)
{
    if (result == 0)
        return QStringLiteral("OK");
    if (result == kFail)
        return QStringLiteral("the command failed on the device (0x80004005)");
    if (result == kInvalidArgument)
        return QStringLiteral("the command needs a path as input (0x80070057)");
    if ((result & kSystemErrorMask) == kSystemError) {
        // The number is the platform's, not an errno.
        const auto code = static_cast<std::int32_t>(result & 0xFFFFu);
        QString text = SystemErrorTextForCode(code);
        if (text.isEmpty())
            text = QStringLiteral("no text known for it");
        return QStringLiteral("the device reported system error %1: %2 (0x%3)")
            .arg(code)
            .arg(text)
            .arg(result, 8, 16, QLatin1Char('0'));
    }
    return QStringLiteral("unexpected result 0x%1").arg(result, 8, 16, QLatin1Char('0'));
}

QStringList DescribeAnswer(SyncCommand command, const QByteArray& answer)
{
    switch (command) {
    case SyncCommand::GetStorageInfo:
        return describeStorage(answer);
    case SyncCommand::GetAPVersion: {
        const QStringList parts = utf16Text(answer).split(QLatin1Char(';'));
        if (parts.size() != 2)
            return {QStringLiteral("malformed version answer: %1").arg(utf16Text(answer))};
        return {QStringLiteral("version %1 on a %2")
                    .arg(QString(parts[0]).replace(QLatin1Char(','), QLatin1Char('.')),
                         parts[1] == QLatin1String("1") ? QStringLiteral("Smartphone")
                                                        : QStringLiteral("Pocket PC"))};
    }
    case SyncCommand::GetDeviceManufacturer:
        return {utf16Text(answer)};
    case SyncCommand::EnumFiles:
        return describeRecords(answer);
    case SyncCommand::DeleteProgram:
    case SyncCommand::AddProgram:
    case SyncCommand::None:
        break;
    }
    return {};
}

SyncCommand SyncCommandNamed(QString name)
{
    if (name.startsWith(QLatin1Char('-')) || name.startsWith(QLatin1Char('/')))
        name.remove(0, 1);
    for (const auto& [command, text] : kSwitches) {
        if (name.compare(QLatin1String(text), Qt::CaseInsensitive) == 0)
            return command;
    }
    return SyncCommand::None;
}

QString SyncSwitch(SyncCommand command)
{
    for (const auto& [known, text] : kSwitches) {
        if (known == command)
            return QLatin1Char('-') + QLatin1String(text);
    }
    return {};
}

} // namespace talvo::sync
