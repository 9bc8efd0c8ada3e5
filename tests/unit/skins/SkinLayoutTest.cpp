#include "skins/SkinLayout.h"

#include "tests/unit/skins/SkinFiles.h"

#include <gtest/gtest.h>

namespace talvo {
namespace {

using test::Q;

IniFile Offers(const char* keys)
{
    IniFile ini;
    const QByteArray text = QByteArray("[Skin]\r") + keys;
    ini.LoadBytes({reinterpret_cast<const std::uint8_t*>(text.constData()), std::size_t(text.size())});
    return ini;
}

std::u16string Chosen(const IniFile& ini, int width, int height)
{
    const std::optional<SkinResolution> chosen = ChooseResolution(ini, QSize(width, height));
    return chosen ? chosen->suffix : u"none";
}

TEST(SkinResolutionChoice, ExactFitFirstThenTheFirstThatFitsInFileOrder)
{
    IniFile both = Offers("Background240X320=a\rBackground480X640=b\r");
    EXPECT_EQ(Chosen(both, 480, 640), u"480X640");
    EXPECT_EQ(Chosen(both, 320, 320), u"240X320");
    EXPECT_EQ(Chosen(both, 320, 240), u"none"); // no rotation is tried

    EXPECT_EQ(Chosen(Offers("Background480X640=b\rBackground240X320=a\r"), 480, 800), u"480X640");
    EXPECT_EQ(Chosen(Offers("Background240X320=a\rBackground480X640=b\r"), 480, 800), u"240X320");

    // Only "Background" keys of Skin count, split at an upper-case X; the
    // bitmap keys and nonsense sizes offer nothing.
    IniFile odd = Offers("Play Background100X100=p\rbackground100X100=l\rBackground100x100=x\r"
                         "Background0X0=z\rBackground-5X10=n\rBackground 200X 300=s\r");
    const std::vector<SkinResolution> offers = OfferedResolutions(odd);
    ASSERT_EQ(offers.size(), 1u);
    EXPECT_EQ(offers[0], (SkinResolution{200, 300, u"200X300"}));
}

class SkinLayoutTest : public ::testing::Test {
protected:
    SkinLoadResult Load(const QString& extra, QSize screen = QSize(240, 320))
    {
        const QString path = dir_.filePath(QStringLiteral("skin.ini"));
        test::WriteIni(path, test::SkinText(QStringLiteral("Test"), QStringLiteral("240X320"), extra));
        layout_ = SkinLayout(path);
        return layout_.LoadLayout(screen);
    }
    QString At(const char* name) const { return dir_.filePath(QLatin1String(name)); }

    QTemporaryDir dir_;
    SkinLayout layout_;
};

TEST_F(SkinLayoutTest, ReadsBothButtonSetsInTableOrder)
{
    test::WriteBitmaps(dir_.path());
    ASSERT_EQ(Load(QStringLiteral("[Play Button240X320]\nRound=1\n")), SkinLoadResult::Fits);
    EXPECT_EQ(layout_.resolution, (SkinResolution{240, 320, u"240X320"}));
    for (std::size_t i = 0; i < kSkinButtonCount; ++i) {
        const SkinRect expected{std::int32_t(20 * i), 0, std::int32_t(20 * i + 20), 20};
        for (const auto* set : {&layout_.pausedButtons, &layout_.playingButtons}) {
            EXPECT_EQ((*set)[i].commandId, kSkinButtons[i].commandId);
            EXPECT_EQ((*set)[i].rect, expected) << i;
        }
    }
    // A later section of the same name completes an earlier one.
    EXPECT_TRUE(layout_.pausedButtons[SkinButtonIndex(Command::PlayStop)].round);
    EXPECT_FALSE(layout_.pausedButtons[0].round);
    for (std::size_t i = 0; i < kSkinBitmapCount; ++i) {
        EXPECT_EQ(layout_.bitmaps[i].status, SkinBitmapStatus::Loaded);
        EXPECT_EQ(layout_.bitmaps[i].image.format(), QImage::Format_ARGB32_Premultiplied);
    }
}

TEST_F(SkinLayoutTest, AnIncompleteButtonFailsWhileATextAreaKeepsItsPreviousValue)
{
    const QString path = At("skin.ini");
    QString text = test::SkinText(QStringLiteral("Test"), QStringLiteral("240X320"),
                                  QStringLiteral("[Total Time240X320]\nLeft=5\nTop=6\nRight=50\n"));
    text.replace(QStringLiteral("[Play Button240X320]\nLeft=40\nTop=0\nRight=60\nBottom=20\n"),
                 QStringLiteral("[Play Button240X320]\nLeft=40\nTop=0\nRight=60\n"));
    test::WriteIni(path, text);
    SkinLayout layout(path);
    EXPECT_EQ(layout.LoadLayout(QSize(240, 320)), SkinLoadResult::Fails);
    EXPECT_FALSE(layout.IsLayoutLoaded());
    EXPECT_EQ(SkinLayout::MissingRectangleKeys(layout.ini, u"Play Button240X320"),
              std::vector<std::u16string_view>{u"Bottom"});

    // Without Bottom the area keeps the fresh record's 0: above its top, so empty.
    ASSERT_EQ(Load(QStringLiteral("[Total Time240X320]\nLeft=5\nTop=0\nRight=50\n")),
              SkinLoadResult::GraphicsMissing);
    EXPECT_EQ(layout_.totalTime.rect, (SkinRect{5, 0, 50, 0}));
    EXPECT_TRUE(layout_.totalTime.rect.IsEmpty());
    EXPECT_EQ(Load(QString(), QSize(200, 320)), SkinLoadResult::Fails);
}

TEST_F(SkinLayoutTest, TextAreasColoursAndTheVolumeKeys)
{
    ASSERT_EQ(Load(QStringLiteral("[Elapsed Time Window240X320]\nLeft=1\nTop=2\nRight=3\nBottom=4\n"
                                  "Elapsed Time Background Color=0xFF\n"
                                  "[Section Window240X320]\nLeft=0\nTop=0\nRight=10\nBottom=10\n"
                                  "Program Title Background Color=255\n"
                                  "[Program Title Window240X320]\nProgram Title Background Color=0x00FF00\n"
                                  "[Book Cover240X320]\nLeft=10\nTop=10\nRight=90\nBottom=90\nDisplay=0\n"
                                  "[Volume240X320]\nVertical Color=0x123456\nTick Height=4\n")),
              SkinLoadResult::GraphicsMissing);
    EXPECT_EQ(layout_.elapsedTime.rect, (SkinRect{1, 2, 3, 4}));
    // 0xFF and 255 are the same pure red.
    EXPECT_EQ(layout_.elapsedTime.backgroundColor, 0xFFu);
    EXPECT_EQ(layout_.section.backgroundColor, 0xFFu);
    EXPECT_EQ(ToQColor(layout_.section.backgroundColor), QColor(255, 0, 0));
    EXPECT_EQ(layout_.programTitle.backgroundColor, 0xFF00u);
    EXPECT_TRUE(layout_.programTitle.rect.IsEmpty());
    EXPECT_EQ(layout_.currentTime.backgroundColor, kSkinColorNotGiven);
    EXPECT_FALSE(ToQColor(kSkinColorNotGiven).isValid());
    EXPECT_EQ(layout_.bookCover, (SkinRect{10, 10, 90, 90}));
    EXPECT_FALSE(layout_.bookCoverDisplay);
    // The defaults 0, 85 and 8 are read over with "not given".
    EXPECT_EQ(layout_.volumeBarColor, 0x123456u);
    EXPECT_EQ(layout_.volumeVerticalPosition, IniFile::kNotGiven);
    EXPECT_EQ(layout_.volumeTickHeight, 4);
    EXPECT_EQ(layout_.volumeFont, (SkinFont{u"MS Sans Serif", 12, 800}));
}

TEST_F(SkinLayoutTest, FontSlots)
{
    ASSERT_NE(
        Load(QStringLiteral("[Elapsed Time Font240X320]\nName=Sans\nSize=20\nWeight=600\n"
                            "Elapsed Time Text Color=0x0000FF\n"
                            "[Current Time240X320]\nName=Current\nSize=9\nElapsed Total Time Text Color=1\n"
                            "[Total Time240X320]\nName=Total\nSize=10\n"
                            "[Elapsed Total Time Font240X320]\nName=\nSize=30\n"
                            "[Program Title Font240X320]\nName=Serif\nSize=16\nWeight=100\n"
                            "Program Title Background Color=0x00FFFF\n"
                            "[Volume240X320]\nName=\n")),
        SkinLoadResult::Fails);
    EXPECT_EQ(layout_.elapsedTimeFont.font, (SkinFont{u"Sans", 20, 600}));
    EXPECT_EQ(layout_.elapsedTimeFont.textColor, 0xFFu);
    // The last section with a Name fills the total-time slot; a colour not
    // given later leaves the earlier one.
    EXPECT_EQ(layout_.totalTimeFont.font, (SkinFont{u"Total", 10, 0}));
    EXPECT_EQ(layout_.totalTimeFont.textColor, 1u);
    // Weight is not read for the title: 700 and 500, the second 2 pixels smaller.
    EXPECT_EQ(layout_.programTitleFont, (SkinFont{u"Serif", 16, 700}));
    EXPECT_EQ(layout_.programTitleSmallFont, (SkinFont{u"Serif", 14, 500}));
    EXPECT_EQ(layout_.programTitleTextColor, 0xFFFFu);
    EXPECT_FALSE(layout_.volumeFont);
    const QFont font = layout_.programTitleFont->ToQFont();
    EXPECT_EQ(font.pixelSize(), 16);
    EXPECT_EQ(font.weight(), QFont::Bold);
}

TEST_F(SkinLayoutTest, HostileValuesAreTamed)
{
    QString text =
        test::SkinText(QStringLiteral("Test"), QStringLiteral("240X320"),
                       QStringLiteral("[Section Window240X320]\nLeft=0\nTop=9\nRight=10\nBottom=8\n"
                                      "[Elapsed Time Font240X320]\nName=%1\nSize=100000\nWeight=-5\n"
                                      "[Program Title Font240X320]\nName=T\nSize=-2147483648\n")
                           .arg(QString(40, QLatin1Char('F'))));
    text.replace(QStringLiteral("Left=0\nTop=0\nRight=20\n"), QStringLiteral("Left=50\nTop=0\nRight=10\n"));
    text.replace(QStringLiteral("Left=20\nTop=0\nRight=40\n"),
                 QStringLiteral("Left=-99999999999\nTop=0\nRight=0x7FFFFFFF\n"));
    test::WriteIni(At("skin.ini"), text);
    SkinLayout layout(At("skin.ini"));
    ASSERT_EQ(layout.LoadLayout(QSize(240, 320)), SkinLoadResult::GraphicsMissing);

    EXPECT_EQ(layout.pausedButtons[0].rect, SkinRect());
    EXPECT_EQ(layout.playingButtons[0].rect, SkinRect());
    EXPECT_EQ(layout.pausedButtons[1].rect, (SkinRect{-kSkinCoordinateLimit, 0, kSkinCoordinateLimit, 20}));
    EXPECT_EQ(layout.section.rect, SkinRect());
    ASSERT_TRUE(layout.elapsedTimeFont.font);
    EXPECT_EQ(layout.elapsedTimeFont.font->face.size(), kMaxFontFaceChars);
    EXPECT_EQ(layout.elapsedTimeFont.font->pixelHeight, kMaxFontPixelHeight);
    EXPECT_EQ(layout.elapsedTimeFont.font->weight, 0);
    ASSERT_TRUE(layout.programTitleSmallFont);
    EXPECT_EQ(layout.programTitleSmallFont->pixelHeight, 0);
}

TEST_F(SkinLayoutTest, BitmapsMissingUndecodableHugeOrOfAnotherFormat)
{
    QImage small(8, 8, QImage::Format_RGB32);
    small.fill(Qt::red);
    ASSERT_TRUE(QDir().mkpath(At("sub")));
    ASSERT_TRUE(small.save(At("sub/bg.bmp")));
    ASSERT_TRUE(small.save(At("hot.jpg")));
    // A BMP header claiming 8193 by 8193 pixels, and nothing behind it.
    QByteArray header = QByteArray::fromHex("424d"
                                            "36000000"
                                            "00000000"
                                            "36000000"
                                            "28000000"
                                            "01200000"
                                            "01200000"
                                            "0100"
                                            "1800");
    header.append(QByteArray(24, '\0'));
    test::WriteBytes(At("huge.bmp"), header);
    ASSERT_TRUE(small.save(At("picture.ppm")));

    const QString path = At("skin.ini");
    QString text = test::SkinText(QStringLiteral("Test"));
    text.replace(QStringLiteral("=bg.png"), QStringLiteral("=sub\\bg.bmp"));
    text.replace(QStringLiteral("=hot.png"), QStringLiteral("=hot.jpg"));
    text.replace(QStringLiteral("=pbg.png"), QStringLiteral("=huge.bmp"));
    text.replace(QStringLiteral("=phot.png"), QStringLiteral("=picture.ppm"));
    test::WriteIni(path, text);
    SkinLayout layout(path);
    EXPECT_EQ(layout.LoadLayout(QSize(240, 320)), SkinLoadResult::GraphicsMissing);
    EXPECT_TRUE(layout.IsLayoutLoaded());
    EXPECT_EQ(layout.bitmaps[Index(SkinBitmap::Background)].status, SkinBitmapStatus::Loaded);
    EXPECT_EQ(layout.Bitmap(SkinBitmap::Background).size(), QSize(8, 8));
    EXPECT_EQ(layout.bitmaps[Index(SkinBitmap::Hot)].status, SkinBitmapStatus::Loaded);
    EXPECT_EQ(layout.bitmaps[Index(SkinBitmap::PlayBackground)].status, SkinBitmapStatus::TooLarge);
    EXPECT_EQ(layout.bitmaps[Index(SkinBitmap::PlayHot)].status, SkinBitmapStatus::NotDecodable);

    test::WriteBytes(At("hot.jpg"), "GIF89a but not really");
    QFile::remove(At("sub/bg.bmp"));
    EXPECT_EQ(layout.LoadLayout(QSize(240, 320)), SkinLoadResult::GraphicsMissing);
    EXPECT_EQ(layout.bitmaps[Index(SkinBitmap::Background)].status, SkinBitmapStatus::NotFound);
    EXPECT_EQ(layout.bitmaps[Index(SkinBitmap::Hot)].status, SkinBitmapStatus::NotDecodable);
    EXPECT_FALSE(layout.HasBitmap(SkinBitmap::Hot));

    layout.FreeLayout();
    EXPECT_FALSE(layout.IsLayoutLoaded());
    EXPECT_EQ(layout.pausedButtons[2].commandId, Command::PlayStop);
    EXPECT_TRUE(layout.pausedButtons[2].rect.IsEmpty());
}

// PNG and BMP files are read by their names' format first; a name that
// misnames its file still gets the file read by its content, and content of
// a format skins do not use is refused whatever the name says.
TEST_F(SkinLayoutTest, ABitmapItsNameMisnamesIsReadByWhatItHolds)
{
    QImage small(8, 8, QImage::Format_RGB32);
    small.fill(Qt::blue);
    ASSERT_TRUE(small.save(At("bg.bmp"), "PNG"));
    ASSERT_TRUE(small.save(At("hot.png"), "JPEG"));
    ASSERT_TRUE(small.save(At("pbg.png"), "BMP"));
    ASSERT_TRUE(small.save(At("phot.png"), "PPM"));
    const QString path = At("skin.ini");
    QString text = test::SkinText(QStringLiteral("Test"));
    text.replace(QStringLiteral("=bg.png"), QStringLiteral("=bg.bmp"));
    test::WriteIni(path, text);
    SkinLayout layout(path);
    EXPECT_EQ(layout.LoadLayout(QSize(240, 320)), SkinLoadResult::GraphicsMissing);
    for (SkinBitmap held : {SkinBitmap::Background, SkinBitmap::Hot, SkinBitmap::PlayBackground}) {
        EXPECT_EQ(layout.bitmaps[Index(held)].status, SkinBitmapStatus::Loaded) << Index(held);
        EXPECT_EQ(layout.Bitmap(held).size(), QSize(8, 8));
    }
    EXPECT_EQ(layout.bitmaps[Index(SkinBitmap::PlayHot)].status, SkinBitmapStatus::NotDecodable);
}

} // namespace
} // namespace talvo
