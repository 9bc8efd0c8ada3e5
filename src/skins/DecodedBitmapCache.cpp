#include "skins/DecodedBitmapCache.h"

#include "skins/SkinLayout.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cstring>

namespace talvo {
namespace {

constexpr char kMagic[8] = {'T', 'L', 'V', 'B', 'M', 'P', '0', '1'};
constexpr QImage::Format kFormat = QImage::Format_ARGB32_Premultiplied;
constexpr char kEntrySuffix[] = ".pixels";

// What the entry was made from and how its pixels are laid out.  Padded to
// 64 bytes so that the rows that follow start aligned.
struct EntryHeader {
    char magic[8];
    qint64 sourceSize;
    qint64 sourceModifiedMs;
    qint32 width;
    qint32 height;
    qint64 bytesPerLine;
    qint32 format;
    char reserved[20];
};
static_assert(sizeof(EntryHeader) == 64);

struct SourceStamp {
    qint64 size = -1;
    qint64 modifiedMs = -1;
};

std::optional<SourceStamp> StampOf(const QString& sourcePath)
{
    const QFileInfo info(sourcePath);
    if (!info.isFile())
        return std::nullopt;
    return SourceStamp{info.size(), info.lastModified().toMSecsSinceEpoch()};
}

bool IsUsable(const EntryHeader& header, const SourceStamp& stamp, qint64 entrySize)
{
    if (std::memcmp(header.magic, kMagic, sizeof kMagic) != 0 || header.format != kFormat ||
        header.sourceSize != stamp.size || header.sourceModifiedMs != stamp.modifiedMs)
        return false;
    if (header.width <= 0 || header.height <= 0 || header.width > kMaxSkinBitmapSide ||
        header.height > kMaxSkinBitmapSide || qint64(header.width) * header.height > kMaxSkinBitmapPixels)
        return false;
    return header.bytesPerLine == qint64(header.width) * 4 &&
           entrySize == qint64(sizeof(EntryHeader)) + header.bytesPerLine * header.height;
}

} // namespace

QString DecodedBitmapCache::EntryPath(const QString& sourcePath) const
{
    const QByteArray key = QFile::encodeName(QFileInfo(sourcePath).absoluteFilePath());
    const QByteArray name = QCryptographicHash::hash(key, QCryptographicHash::Sha1).toHex();
    return folder_ + QLatin1Char('/') + QString::fromLatin1(name) + QLatin1String(kEntrySuffix);
}

std::optional<QImage> DecodedBitmapCache::Find(const QString& sourcePath) const
{
    if (folder_.isEmpty())
        return std::nullopt;
    const std::optional<SourceStamp> stamp = StampOf(sourcePath);
    QFile entry(EntryPath(sourcePath));
    if (!stamp || !entry.open(QIODevice::ReadOnly))
        return std::nullopt;
    EntryHeader header{};
    if (entry.read(reinterpret_cast<char*>(&header), sizeof header) != qint64(sizeof header) ||
        !IsUsable(header, *stamp, entry.size()))
        return std::nullopt;
    QImage image(header.width, header.height, kFormat);
    if (image.isNull() || image.bytesPerLine() != header.bytesPerLine)
        return std::nullopt; // out of memory
    const qint64 bytes = header.bytesPerLine * header.height;
    if (entry.read(reinterpret_cast<char*>(image.bits()), bytes) != bytes)
        return std::nullopt;
    return image;
}

void DecodedBitmapCache::Keep(const QString& sourcePath, const QImage& image) const
{
    const std::optional<SourceStamp> stamp = StampOf(sourcePath);
    if (folder_.isEmpty() || !stamp || image.format() != kFormat ||
        image.bytesPerLine() != qint64(image.width()) * 4 || !QDir().mkpath(folder_))
        return;
    EntryHeader header{};
    std::memcpy(header.magic, kMagic, sizeof kMagic);
    header.sourceSize = stamp->size;
    header.sourceModifiedMs = stamp->modifiedMs;
    header.width = image.width();
    header.height = image.height();
    header.bytesPerLine = image.bytesPerLine();
    header.format = kFormat;
    QSaveFile entry(EntryPath(sourcePath));
    if (!entry.open(QIODevice::WriteOnly))
        return;
    entry.write(reinterpret_cast<const char*>(&header), sizeof header);
    entry.write(reinterpret_cast<const char*>(image.constBits()), image.sizeInBytes());
    entry.commit();
}

} // namespace talvo
