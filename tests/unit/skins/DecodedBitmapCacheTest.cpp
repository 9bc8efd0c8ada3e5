#include "skins/DecodedBitmapCache.h"
#include "skins/SkinLayout.h"

#include "tests/unit/skins/SkinFiles.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace talvo {
namespace {

class DecodedBitmapCacheTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        test::WriteBitmaps(skinFolder());
        test::WriteIni(iniPath(), test::SkinText(QStringLiteral("Test"), QStringLiteral("240X320"), {}));
    }
    QString skinFolder() const { return dir_.filePath(QStringLiteral("skin")); }
    QString iniPath() const { return dir_.filePath(QStringLiteral("skin/skin.ini")); }
    QString background() const { return dir_.filePath(QStringLiteral("skin/bg.png")); }

    // The background as a skin load draws it, through the cache.
    QImage LoadedBackground()
    {
        SkinLayout layout(iniPath());
        layout.bitmapCache = &cache_;
        EXPECT_EQ(layout.LoadLayout(QSize(240, 320)), SkinLoadResult::Fits);
        return layout.Bitmap(SkinBitmap::Background);
    }
    static QImage Filled(QColor colour)
    {
        QImage image(240, 320, QImage::Format_ARGB32_Premultiplied);
        image.fill(colour);
        return image;
    }

    QTemporaryDir dir_;
    DecodedBitmapCache cache_{dir_.filePath(QStringLiteral("cache"))};
};

TEST_F(DecodedBitmapCacheTest, ALoadKeepsWhatItDecodedAndTheNextLoadDrawsTheKeptPixels)
{
    const QImage decoded = LoadedBackground();
    ASSERT_FALSE(decoded.isNull());
    const std::optional<QImage> kept = cache_.Find(background());
    ASSERT_TRUE(kept);
    EXPECT_EQ(*kept, decoded);

    // An entry for the unchanged file is drawn instead of the file itself.
    cache_.Keep(background(), Filled(Qt::red));
    EXPECT_EQ(LoadedBackground(), Filled(Qt::red));
}

TEST_F(DecodedBitmapCacheTest, AChangedBitmapFileIsDecodedAgain)
{
    cache_.Keep(background(), Filled(Qt::red));
    QImage green(240, 320, QImage::Format_RGB32);
    green.fill(Qt::green);
    ASSERT_TRUE(green.save(background()));
    // Same size on disk could happen; a new modification time must still miss.
    QFile file(background());
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(
        file.setFileTime(QDateTime::currentDateTime().addSecs(60), QFileDevice::FileModificationTime));
    file.close();
    EXPECT_FALSE(cache_.Find(background()));
    EXPECT_EQ(LoadedBackground().pixel(5, 5), QColor(Qt::green).rgb());
}

TEST_F(DecodedBitmapCacheTest, ADamagedEntryIsAMissAndIsWrittenAfresh)
{
    const QImage decoded = LoadedBackground();
    const QString entry = cache_.EntryPath(background());
    QFile whole(entry);
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    const QByteArray good = whole.readAll();
    whole.close();

    QByteArray hugeWidth = good;
    hugeWidth[24] = char(0x7f); // the width: its rows no longer fill the file
    QByteArray otherMagic = good;
    otherMagic[0] = 'X';
    for (const QByteArray& damaged :
         {QByteArray(), good.left(63), good.left(good.size() - 1), good + "x", hugeWidth, otherMagic}) {
        QFile out(entry);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(damaged);
        out.close();
        EXPECT_FALSE(cache_.Find(background())) << damaged.size();
        EXPECT_EQ(LoadedBackground(), decoded) << damaged.size();
        EXPECT_TRUE(cache_.Find(background())) << damaged.size();
    }
}

TEST_F(DecodedBitmapCacheTest, WithoutAFolderNothingIsKept)
{
    const DecodedBitmapCache none;
    none.Keep(background(), Filled(Qt::red));
    EXPECT_FALSE(none.Find(background()));
    EXPECT_FALSE(QFile::exists(dir_.filePath(QStringLiteral("cache"))));
}

} // namespace
} // namespace talvo
