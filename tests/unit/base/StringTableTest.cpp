#include "base/StringTable.h"

#include <gtest/gtest.h>

namespace talvo {
namespace {

TEST(StringTable, FindsEveryEntryAndNothingElse)
{
    for (const StringEntry& entry : kStringTable) {
        EXPECT_EQ(LoadString(entry.id), QString::fromUtf8(entry.text.data(), entry.text.size())) << entry.id;
    }
    EXPECT_TRUE(LoadString(0).isEmpty());
    EXPECT_TRUE(LoadString(57670).isEmpty());
    EXPECT_TRUE(LoadString(70000).isEmpty());
}

TEST(StringTable, KeepsTheTextsExactlyAsTheyWereWritten)
{
    EXPECT_EQ(LoadString(5003), QStringLiteral("TalvoPlayer Error"));
    EXPECT_EQ(LoadString(57677), QStringLiteral("Talvo Audio"));
    EXPECT_EQ(LoadString(131), QStringLiteral("Failed to launch Feldrun.  Please reinstall"));
    EXPECT_EQ(LoadString(500), QStringLiteral("On Device%s\r\n%s of %s"));
    EXPECT_EQ(
        LoadString(57680),
        QStringLiteral("Device audio playback error %d occured. You may need to soft reset your device."));
    EXPECT_TRUE(LoadString(57695).endsWith(QStringLiteral("graphical issues may result.  ")));
    EXPECT_EQ(LoadString(Str::MenuRightKey), QStringLiteral(" Menu"));
    EXPECT_EQ(LoadString(Str::MenuUpdatePosition), QStringLiteral("Update plyback position"));
    EXPECT_EQ(LoadString(Str::PowerOff90s), QStringLiteral("1.5 min"));
}

TEST(StringTable, FormatsLikePrintfWithUtf8Text)
{
    EXPECT_EQ(
        FormatString(Str::AudioDeviceError, 11),
        QStringLiteral("Device audio playback error 11 occured. You may need to soft reset your device."));
    QByteArray path = QStringLiteral("/Musik/Hörbuch.zq").toUtf8();
    EXPECT_EQ(FormatString(Str::ProgramOpenFailed, path.constData(), -3),
              QStringLiteral("Failed to open the program /Musik/Hörbuch.zq. Error -3."));
    EXPECT_EQ(FormatString(Str::TotalTime, 1, 2, 3), QStringLiteral("01:02:03 Total"));
    EXPECT_EQ(FormatString(Str::PrefsVolumePercent, 49), QStringLiteral("49%"));
}

} // namespace
} // namespace talvo
