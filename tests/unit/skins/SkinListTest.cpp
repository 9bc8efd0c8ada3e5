#include "skins/SkinList.h"

#include "skins/ScreenSizeOverride.h"
#include "tests/support/TestDevice.h"
#include "tests/unit/skins/SkinFiles.h"

#include <QFile>
#include <gtest/gtest.h>

namespace talvo {
namespace {

class SkinListTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        registry_ = OpenSqliteRegistry(device_.registryPath().toStdString());
        ASSERT_NE(registry_, nullptr);
        test::WriteBitmaps(Skins());
    }

    QString Skins() const { return device_.path(QStringLiteral("app/Skins")); }
    void Skin(const char* file, const QString& text)
    {
        test::WriteIni(Skins() + QLatin1Char('/') + file, text);
    }
    void Remember(std::u16string_view name)
    {
        HKEY key = 0;
        ASSERT_EQ(registry_->CreateKey(HKEY_LOCAL_MACHINE, u"SOFTWARE\\TALVO\\Skins", KEY_ALL_ACCESS, &key),
                  ERROR_SUCCESS);
        const std::vector<std::uint8_t> bytes = RegSzBytes(name);
        registry_->SetValue(key, u"active skin", REG_SZ, bytes.data(), DWORD(bytes.size()));
        registry_->CloseKey(key);
    }
    std::vector<std::u16string> Names(const SkinList& list) const
    {
        std::vector<std::u16string> names;
        for (const auto& skin : list.Skins())
            names.push_back(skin->name);
        return names;
    }
    SkinList Loaded(QSize screen = QSize(240, 320))
    {
        SkinList list(*registry_);
        EXPECT_TRUE(list.LoadSkins(device_.path(QStringLiteral("app")), screen));
        return list;
    }

    test::TestDevice device_;
    std::unique_ptr<Registry> registry_;
};

TEST_F(SkinListTest, KeepsUsableSkinsInFileNameOrderFirstNameWins)
{
    Skin("b.ini", test::SkinText(QStringLiteral("Blue")));
    Skin("a.ini", test::SkinText(QStringLiteral("Amber")));
    Skin("c.ini", test::SkinText(QStringLiteral("BLUE"))); // the same name: b.ini was first
    Skin("d.ini", test::SkinText(QString()));              // no name: not a skin
    Skin("e.ini", test::SkinText(QStringLiteral("Wide"), QStringLiteral("320X240")));
    Skin("f.txt", test::SkinText(QStringLiteral("Text")));
    test::WriteBytes(Skins() + QStringLiteral("/g.ini"), QByteArray(300, '\xFF'));

    SkinList list = Loaded();
    EXPECT_EQ(Names(list), (std::vector<std::u16string>{u"Amber", u"Blue"}));
    EXPECT_EQ(list.ActiveIndex(), 0);
    EXPECT_EQ(list.FindSkin(u"bLuE"), list.Skins()[1].get());
    EXPECT_EQ(list.FindSkin(u"Wide"), nullptr);
    EXPECT_EQ(list.Skins()[1]->iniPath, Skins() + QStringLiteral("/b.ini"));
    EXPECT_TRUE(device_.messages().isEmpty());

    // On a landscape screen only the landscape skin is left.
    SkinList landscape = Loaded(QSize(320, 240));
    EXPECT_EQ(Names(landscape), (std::vector<std::u16string>{u"Wide"}));
}

TEST_F(SkinListTest, ActiveSkinComesFromTheRegistryElseTheFirst)
{
    Skin("a.ini", test::SkinText(QStringLiteral("Amber")));
    Skin("b.ini", test::SkinText(QStringLiteral("Blue")));
    Skin("c.ini", test::SkinText(QStringLiteral("Cyan")));

    Remember(u"cyan");
    EXPECT_EQ(Loaded().ActiveSkin()->name, u"Cyan");

    Remember(u"Gone");
    SkinList list = Loaded();
    EXPECT_EQ(list.ActiveIndex(), 0);
    EXPECT_EQ(list.StoredActiveSkin(), u"Gone"); // left as it is

    EXPECT_EQ(list.SetActiveSkin(u"Nothing"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(list.ActiveIndex(), 0);
    EXPECT_EQ(list.SetActiveSkin(u"BLUE"), ERROR_SUCCESS);
    EXPECT_EQ(list.ActiveSkin()->name, u"Blue");
    EXPECT_EQ(list.StoredActiveSkin(), u"Blue");
    EXPECT_EQ(Loaded().ActiveIndex(), 1);
}

TEST_F(SkinListTest, MissingGraphicsAreReportedAndTheSkinKept)
{
    QString text = test::SkinText(QStringLiteral("Patchy"));
    Skin("a.ini", text.replace(QStringLiteral("=hot.png"), QStringLiteral("=nowhere.png")));
    SkinList list = Loaded();
    ASSERT_EQ(Names(list), (std::vector<std::u16string>{u"Patchy"}));
    EXPECT_FALSE(list.ActiveSkin()->HasBitmap(SkinBitmap::Hot));
    EXPECT_TRUE(list.ActiveSkin()->HasBitmap(SkinBitmap::Background));
    ASSERT_EQ(device_.messages().size(), 1);
    EXPECT_TRUE(device_.messages()[0].startsWith(
        QStringLiteral("TalvoPlayer Error\tTalvoPlayer was unable to load required graphics.  ")));
    EXPECT_TRUE(device_.messages()[0].endsWith(QStringLiteral("\t0x50010")));
}

// Start-up decodes only what it draws; a skin chosen later whose bitmap has a
// sound header but broken data still gets the box, when it is decoded.
TEST_F(SkinListTest, OnlyTheActiveSkinIsDecodedAndAChosenSkinIsCheckedWhole)
{
    QByteArray png;
    {
        QFile file(Skins() + QStringLiteral("/hot.png"));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        png = file.readAll();
    }
    test::WriteBytes(Skins() + QStringLiteral("/cut.png"), png.left(png.size() / 2));
    Skin("a.ini", test::SkinText(QStringLiteral("Amber")));
    QString text = test::SkinText(QStringLiteral("Blue"));
    Skin("b.ini", text.replace(QStringLiteral("=hot.png"), QStringLiteral("=cut.png")));

    SkinList list = Loaded();
    EXPECT_TRUE(device_.messages().isEmpty());
    const SkinLayout& amber = *list.Skins()[0];
    const SkinLayout& blue = *list.Skins()[1];
    EXPECT_TRUE(amber.AreBitmapsDecoded());
    EXPECT_TRUE(amber.HasBitmap(SkinBitmap::Hot));
    EXPECT_FALSE(blue.AreBitmapsDecoded());
    EXPECT_FALSE(blue.HasBitmap(SkinBitmap::Background));

    ASSERT_EQ(list.SetActiveSkin(u"Blue"), ERROR_SUCCESS);
    EXPECT_TRUE(blue.AreBitmapsDecoded());
    EXPECT_TRUE(blue.HasBitmap(SkinBitmap::Background));
    EXPECT_FALSE(blue.HasBitmap(SkinBitmap::Hot));
    ASSERT_EQ(device_.messages().size(), 1);
    EXPECT_TRUE(device_.messages()[0].contains(QStringLiteral("unable to load required graphics")));

    // A first frame needs only the background; the rest follows on request.
    Remember(u"Blue");
    SkinList quick(*registry_);
    quick.LoadSkins(device_.path(QStringLiteral("app")), QSize(240, 320), nullptr,
                    SkinList::ActiveSkinBitmaps::FirstFrame);
    EXPECT_TRUE(quick.ActiveSkin()->HasBitmap(SkinBitmap::Background));
    EXPECT_FALSE(quick.ActiveSkin()->HasBitmap(SkinBitmap::PlayBackground));
    EXPECT_EQ(device_.messages().size(), 1);
    quick.DecodeActiveSkin(nullptr);
    EXPECT_TRUE(quick.ActiveSkin()->HasBitmap(SkinBitmap::PlayBackground));
    EXPECT_EQ(device_.messages().size(), 2);
}

TEST_F(SkinListTest, NoSkinsMeansNoneActive)
{
    SkinList list = Loaded();
    EXPECT_TRUE(list.Skins().empty());
    EXPECT_EQ(list.ActiveIndex(), -1);
    EXPECT_EQ(list.ActiveSkin(), nullptr);
    SkinList nowhere(*registry_);
    EXPECT_TRUE(nowhere.LoadSkins(device_.path(QStringLiteral("missing")), QSize(240, 320)));
    EXPECT_EQ(nowhere.ActiveSkin(), nullptr);
}

TEST(ScreenSizeOverride, ParsesWidthByHeightOnly)
{
    EXPECT_EQ(ParseScreenSize(u"240x320"), QSize(240, 320));
    EXPECT_EQ(ParseScreenSize(u"480X640"), QSize(480, 640));
    for (const char16_t* bad : {u"", u"240", u"x320", u"240x", u"240x320x2", u"-240x320", u" 240x320",
                                u"0x320", u"240x99999", u"24ax320", u"240*320"})
        EXPECT_EQ(ParseScreenSize(bad), std::nullopt) << QString::fromUtf16(bad).toStdString();

    test::TestDevice device;
    device.set("TALVOPLAYER_SCREEN", QStringLiteral("320x240"));
    EXPECT_EQ(ScreenSizeFromEnvironment(), QSize(320, 240));
    device.set("TALVOPLAYER_SCREEN", QStringLiteral("big"));
    EXPECT_EQ(ScreenSizeFromEnvironment(), std::nullopt);
}

} // namespace
} // namespace talvo
