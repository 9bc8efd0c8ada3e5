#include "sync/SyncProgramRecord.h"

#include "platform/FileNames.h"
#include "playback/ProgramFile.h"

#include <QtEndian>
#include <cstring>

namespace talvo {
namespace {

void putU32(SyncRecordBytes& record, std::size_t offset, std::uint32_t value)
{
    qToLittleEndian(value, record.data() + offset);
}

} // namespace

// The 8-bit fields hold file-system bytes, so a path whose name is not UTF-8
// comes back to the desktop as the very bytes that name the file.
void PutAnsiText(std::uint8_t* field, std::size_t size, const QString& text)
{
    QString cut = text;
    QByteArray bytes = EncodeFileName(cut);
    while (static_cast<std::size_t>(bytes.size()) >= size && !cut.isEmpty()) {
        cut.chop(cut.size() >= 2 && cut.at(cut.size() - 1).isLowSurrogate() &&
                         cut.at(cut.size() - 2).isHighSurrogate()
                     ? 2
                     : 1);
        bytes = EncodeFileName(cut);
    }
    std::memcpy(field, bytes.constData(), static_cast<std::size_t>(bytes.size()));
    field[bytes.size()] = 0;
}

SyncRecordBytes MakeSyncRecord(const ProgramFile& entry, std::int32_t positionSeconds)
{
    using namespace SyncRecord;
    SyncRecordBytes record{};
    putU32(record, kVersionOffset, kVersion);
    PutAnsiText(record.data() + kPathOffset, kPathSize, entry.path);
    PutAnsiText(record.data() + kTitleOffset, kTextSize, QString::fromStdU16String(entry.GetTitle()));
    PutAnsiText(record.data() + kAuthorOffset, kTextSize, QString::fromStdU16String(entry.GetAuthor()));
    PutAnsiText(record.data() + kNarratorOffset, kTextSize, QString::fromStdU16String(entry.GetNarrator()));
    PutAnsiText(record.data() + kProviderOffset, kTextSize, QString::fromStdU16String(entry.GetProvider()));
    PutAnsiText(record.data() + kProgramIdOffset, kTextSize, entry.Key());
    putU32(record, kDurationOffset, entry.durationMs / 1000);
    putU32(record, kPositionOffset, static_cast<std::uint32_t>(positionSeconds));
    putU32(record, kFileTypeOffset, static_cast<std::uint32_t>(entry.fileType));
    std::uint32_t flags = 0;
    if (!entry.inMainMemory)
        flags |= kFlagOnStorageCard;
    if (entry.GetTimeSpanFlag())
        flags |= kFlagTimeSpan;
    putU32(record, kFlagsOffset, flags);
    return record;
}

} // namespace talvo
