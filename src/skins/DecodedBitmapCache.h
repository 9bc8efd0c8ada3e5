#pragma once
// Skin bitmaps kept decoded between starts.  A skin's background is a PNG
// of the screen's size; inflating it is the largest single cost before the
// first frame, and on a phone's slower processor a large share of start-up.
// The decoded pixels (ARGB32 premultiplied, as the display draws them) are
// kept in a cache folder, one file per bitmap, and read back with one copy.
//
// An entry is found only for the same file with the same size and
// modification time; anything else, including a cache file that is short,
// damaged or of another layout, is a miss, and the caller decodes the bitmap
// as usual.  Entries are written whole under a temporary name and renamed
// into place, so processes starting together never read a partial one.
// Nothing here shows a box or fails a load: the cache only saves time.
#include <QImage>
#include <QString>

#include <optional>

namespace talvo {

class DecodedBitmapCache {
public:
    // No folder: every lookup misses and nothing is written.
    DecodedBitmapCache() = default;
    explicit DecodedBitmapCache(QString folder) : folder_(std::move(folder)) {}

    // The decoded image of the bitmap file at sourcePath, when a current
    // entry holds it.
    std::optional<QImage> Find(const QString& sourcePath) const;
    // Keeps image (ARGB32 premultiplied) as the decoded form of sourcePath;
    // a failure to write is ignored.
    void Keep(const QString& sourcePath, const QImage& image) const;

    // The file that holds (or would hold) sourcePath's entry.
    QString EntryPath(const QString& sourcePath) const;

private:
    QString folder_;
};

} // namespace talvo
