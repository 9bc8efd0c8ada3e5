#include "skins/IniFile.h"

#include "platform/Trace.h"
#include "tests/unit/skins/SkinFiles.h"

#include <QLoggingCategory>
#include <gtest/gtest.h>

namespace talvo {
namespace {

IniFile Parse(std::string_view text)
{
    IniFile ini;
    ini.LoadBytes({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    return ini;
}

IniFile ParseUtf16(std::u16string_view text)
{
    std::vector<std::uint8_t> bytes;
    for (char16_t c : text) {
        bytes.push_back(std::uint8_t(c & 0xFF));
        bytes.push_back(std::uint8_t(c >> 8));
    }
    bytes.push_back('x'); // an odd last byte is half a character and is not read
    IniFile ini;
    ini.LoadBytes(bytes);
    return ini;
}

TEST(IniFileLines, EndOnlyAtCarriageReturns)
{
    // CR alone and CR LF end lines; a line feed elsewhere is part of the line.
    IniFile ini = Parse("[Skin]\rA=1\r\nB=2\nC=3\r\n\nD=4\rLast=5");
    EXPECT_EQ(ini.GetString(u"Skin", u"A", u"-"), u"1");
    EXPECT_EQ(ini.GetString(u"Skin", u"B", u"-"), u"2\nC=3");
    EXPECT_EQ(ini.GetString(u"Skin", u"C", u"-"), u"-");
    // The blank line's line feed is trimmed off the next line.
    EXPECT_EQ(ini.GetString(u"Skin", u"D", u"-"), u"4");
    // Never committed: no carriage return after it.
    EXPECT_EQ(ini.GetString(u"Skin", u"Last", u"-"), u"-");

    // Line feeds alone: one unfinished line, nothing at all.
    IniFile unix = Parse("[Skin]\nName=x\n");
    EXPECT_TRUE(unix.IsLoaded());
    EXPECT_TRUE(unix.Sections().empty());
}

TEST(IniFileLines, WidenBytesWithTheirSignAndReadUtf16AfterItsMark)
{
    IniFile ini = Parse("[Skin]\rName=Caf\xE9\r");
    EXPECT_EQ(ini.GetString(u"Skin", u"Name", u""), std::u16string(u"Caf") + char16_t(0xFFE9));

    // The mark is the first character of the header line and is dropped with
    // whatever else stands before the bracket.
    IniFile wide = ParseUtf16(u"\uFEFF[Skin]\r\nName=\u00E9t\u00E9\r\n");
    EXPECT_EQ(wide.GetString(u"Skin", u"Name", u""), u"\u00E9t\u00E9");

    // A UTF-8 mark in an 8-bit file is junk before the bracket too.
    IniFile utf8 = Parse("\xEF\xBB\xBF[Skin]\rName=x\r");
    EXPECT_EQ(utf8.GetString(u"Skin", u"Name", u""), u"x");
}

TEST(IniFileSections, NamesAreCutAndOnlyNamedSectionsCount)
{
    IniFile ini = Parse("Orphan=1\r"
                        "[Skin] x\r"
                        "A=1\r"
                        "[Broken\r"
                        "B=2\r"
                        "[]\r"
                        "C=3\r"
                        "junk [Tail]\r"
                        "D=4\r"
                        "[skin]\r"
                        "E=5\r");
    // The last character is cut whatever it is: the bracket and blank stay.
    EXPECT_EQ(ini.GetString(u"Skin] ", u"A", u"-"), u"1");
    // "[Broken" has no "]": ignored, its keys stay with the section before.
    EXPECT_EQ(ini.GetString(u"Skin] ", u"B", u"-"), u"2");
    EXPECT_EQ(ini.GetString(u"Tail", u"D", u"-"), u"4");
    EXPECT_EQ(ini.GetString(u"Skin", u"E", u"-"), u"-");
    ASSERT_EQ(ini.Sections().size(), 3u); // "Skin] ", "Tail", "skin"; the empty one is dropped
    for (const IniFile::Section& section : ini.Sections()) {
        for (const IniFile::Entry& entry : section.entries) {
            EXPECT_NE(entry.key, u"Orphan");
            EXPECT_NE(entry.key, u"C");
        }
    }
}

TEST(IniFileSections, FirstMatchFirstThenLaterSectionsOfTheSameName)
{
    IniFile ini = Parse("[S]\rA=first\r[T]\rA=other\r[S]\rA=second\rB=later\r");
    EXPECT_EQ(ini.GetString(u"S", u"A", u""), u"first");
    EXPECT_EQ(ini.GetString(u"S", u"B", u""), u"later");
    // GetKeys lists the first section of the name only.
    auto keys = ini.GetKeys(u"S");
    ASSERT_EQ(keys.size(), 1u);
    EXPECT_EQ(keys[0].value, u"first");
    EXPECT_TRUE(ini.GetKeys(u"s").empty());
}

TEST(IniFileKeys, SplitAtTheFirstEqualsWithoutTrimmingAgain)
{
    IniFile ini = Parse("[Skin]\r  Name = padded  \rTitle=a=b\r;Comment=yes\r");
    EXPECT_EQ(ini.GetString(u"Skin", u"Name", u"-"), u"-");
    EXPECT_EQ(ini.GetString(u"Skin", u"Name ", u"-"), u" padded");
    EXPECT_EQ(ini.GetString(u"Skin", u"Title", u""), u"a=b");
    EXPECT_EQ(ini.GetString(u"Skin", u";Comment", u""), u"yes");
}

TEST(IniFileNumbers, HexOnlyAfterLowerCaseXDecimalAsWcstol)
{
    IniFile ini = Parse("[N]\rHex=0x1F\rUpper=0X1F\rEmpty=\rWord=abc\rMarker=<Default string>\r"
                        "Signed= -12px\rPlus=+7\rAllF=0xFFFFFFFF\rMinus=-1\rWrap=0x123456789\r"
                        "Big=99999999999\rSmall=-99999999999\rMixed=0xaBc\r");
    auto number = [&](std::u16string_view key) {
        return ini.GetNumber(u"N", key, 77);
    };
    EXPECT_EQ(number(u"Hex"), 31);
    EXPECT_EQ(number(u"Upper"), 0);
    EXPECT_EQ(number(u"Empty"), 77);
    EXPECT_EQ(number(u"Word"), 0);
    EXPECT_EQ(number(u"Marker"), 77);
    EXPECT_EQ(number(u"Missing"), 77);
    EXPECT_EQ(number(u"Signed"), -12);
    EXPECT_EQ(number(u"Plus"), 7);
    EXPECT_EQ(number(u"AllF"), IniFile::kNotGiven);
    EXPECT_EQ(number(u"Minus"), IniFile::kNotGiven);
    EXPECT_EQ(number(u"Wrap"), 0x23456789);
    EXPECT_EQ(number(u"Big"), 2147483647);
    EXPECT_EQ(number(u"Small"), -2147483647 - 1);
    EXPECT_EQ(number(u"Mixed"), 0xABC);
}

QStringList traced;

void Capture(QtMsgType, const QMessageLogContext& context, const QString& text)
{
    if (QLatin1String(context.category) == QLatin1String("talvo.trace"))
        traced.append(text.trimmed());
}

TEST(IniFileLoad, RefusesWhatIsNotASmallReadableFile)
{
    QTemporaryDir dir;
    const QString missing = dir.filePath(QStringLiteral("missing.ini"));
    const QString empty = dir.filePath(QStringLiteral("empty.ini"));
    const QString huge = dir.filePath(QStringLiteral("huge.ini"));
    test::WriteBytes(empty, {});
    {
        QFile file(huge);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_TRUE(file.resize(qint64(IniFile::kMaxFileBytes) + 1)); // sparse: costs no disk
    }

    traced.clear();
    QtMessageHandler previous = qInstallMessageHandler(Capture);
    QLoggingCategory::setFilterRules(QStringLiteral("talvo.trace.debug=true"));
    IniFile ini;
    EXPECT_FALSE(ini.Load(missing.toStdU16String()));
    EXPECT_FALSE(ini.Load(empty.toStdU16String()));
    EXPECT_FALSE(ini.Load(huge.toStdU16String()));
    EXPECT_FALSE(ini.Load(dir.path().toStdU16String()));
    QLoggingCategory::setFilterRules(QString());
    qInstallMessageHandler(previous);

    EXPECT_FALSE(ini.IsLoaded());
    // The empty file fails without a word.
    ASSERT_EQ(traced.size(), 3);
    EXPECT_EQ(traced[0], QStringLiteral("Failed to open INI file '%1'. Error 2").arg(missing));
    EXPECT_EQ(traced[1], QStringLiteral("Failed to open INI file '%1'. Error 8").arg(huge));
    EXPECT_EQ(traced[2], QStringLiteral("Failed to open INI file '%1'. Error 5").arg(dir.path()));
}

TEST(IniFileLoad, AppendsASecondFileAndSurvivesGarbage)
{
    QTemporaryDir dir;
    const QString first = dir.filePath(QStringLiteral("a.ini"));
    const QString second = dir.filePath(QStringLiteral("b.ini"));
    test::WriteBytes(first, "[A]\rK=1\r");
    test::WriteBytes(second, "[B]\rK=2\r[A]\rL=3\r");
    IniFile ini;
    ASSERT_TRUE(ini.Load(first.toStdU16String()));
    ASSERT_TRUE(ini.Load(second.toStdU16String()));
    EXPECT_EQ(ini.GetNumber(u"B", u"K", 0), 2);
    EXPECT_EQ(ini.GetNumber(u"A", u"L", 0), 3);

    std::vector<std::uint8_t> garbage(1 << 16);
    std::uint32_t state = 12345;
    for (std::uint8_t& byte : garbage) {
        state = state * 1103515245u + 12345u;
        byte = std::uint8_t(state >> 24);
    }
    garbage[0] = 0xFF, garbage[1] = 0xFE; // read as UTF-16
    IniFile noise;
    EXPECT_TRUE(noise.LoadBytes(garbage));
    garbage[0] = '[';
    EXPECT_TRUE(noise.LoadBytes(garbage));
}

} // namespace
} // namespace talvo
