#include "SkinCheck.h"

#include "tests/unit/skins/SkinFiles.h"

#include <gtest/gtest.h>

namespace talvo::skincheck {
namespace {

bool Has(const SkinCheckReport& report, const QString& line)
{
    return report.lines.contains(line);
}

TEST(SkinCheck, SaysWhatTheMissingPiecesAreAndWhetherThePlayerSkipsTheSkin)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("skin.ini"));
    test::WriteBitmaps(dir.path());
    QFile::remove(dir.filePath(QStringLiteral("hot.png")));
    QString text =
        test::SkinText(QStringLiteral("Checked"), QStringLiteral("240X320"),
                       QStringLiteral("[Skin]\nBackground480X640=bg.png\n"
                                      "[Section Window240X320]\nLeft=200\nTop=0\nRight=260\nBottom=10\n"
                                      "[Elapsed Time Font240X320]\nName=Nowhere Sans\n"
                                      "[Volume240X320]\nName=Here Sans\n"));
    text.replace(QStringLiteral("Name=Checked\n"),
                 QStringLiteral("Name=Checked\nBackground480X640=bg.png\n"));
    test::WriteIni(path, text);
    const QStringList fonts{QStringLiteral("here sans")};

    // Usable on its own resolution, with the missing bitmap and the odd
    // placements reported.
    SkinCheckReport small = CheckSkin(path, QSize(240, 320), fonts);
    EXPECT_TRUE(small.usable);
    EXPECT_TRUE(Has(small, QStringLiteral("error: Hot240X320=hot.png: file not found")));
    EXPECT_TRUE(Has(small, QStringLiteral("warning: [Section Window240X320] 200,0-260,10 is not inside the "
                                          "240x320 layout")));
    EXPECT_TRUE(Has(small, QStringLiteral("warning: the elapsed-time font \"Nowhere Sans\" is not installed: "
                                          "a substitute is drawn")));
    EXPECT_EQ(small.lines.filter(QStringLiteral("Here Sans")).size(), 0);
    EXPECT_EQ(small.lines.last(),
              QStringLiteral("\"Checked\" is usable on 240X320 (errors: 1, warnings: 2)"));

    // Skipped: the second resolution has no buttons, and nothing fits 200 by 200.
    SkinCheckReport every = CheckSkin(path, std::nullopt, fonts);
    EXPECT_FALSE(every.usable);
    EXPECT_TRUE(Has(every, QStringLiteral("error: [Play Button480X640] has no Left, Top, Right, Bottom: "
                                          "the skin is skipped on 480X640 screens")));
    EXPECT_FALSE(CheckSkin(path, QSize(200, 200), fonts).usable);

    // Line feeds alone: the file reads as empty and has no name.
    test::WriteBytes(path, text.toUtf8());
    SkinCheckReport unix = CheckSkin(path, std::nullopt, std::nullopt);
    EXPECT_FALSE(unix.usable);
    EXPECT_TRUE(unix.lines.first().startsWith(QStringLiteral("error: [Skin] has no Name")));
}

} // namespace
} // namespace talvo::skincheck
