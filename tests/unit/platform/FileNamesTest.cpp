// File names are bytes: every byte string must come back from its QString
// exactly, and names that are UTF-8 must read as Qt reads them.
#include "platform/FileNames.h"

#include <QFile>
#include <QTemporaryDir>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>

namespace talvo {
namespace {

TEST(FileNames, AnyBytesComeBackExactlyAndUtf8ReadsAsQtReadsIt)
{
    std::mt19937 random(7);
    std::uniform_int_distribution<int> byte(1, 255);
    std::uniform_int_distribution<int> length(0, 24);
    for (int round = 0; round < 20000; ++round) {
        QByteArray bytes;
        for (int i = length(random); i > 0; --i)
            bytes.append(char(byte(random)));
        ASSERT_EQ(EncodeFileName(DecodeFileName(bytes)), bytes) << bytes.toHex().constData();
    }
    for (const char* utf8 : {"Caf\xc3\xa9", "\xf0\x9f\x8e\xa7 book", "plain.zq"})
        EXPECT_EQ(DecodeFileName(utf8), QString::fromUtf8(utf8));
    // Latin-1, a UTF-8 surrogate, an overlong slash and a cut sequence.
    for (const char* foreign : {"Caf\xe9", "\xed\xb2\x80", "\xc0\xaf", "ab\xe2\x82"}) {
        const QString name = DecodeFileName(foreign);
        EXPECT_EQ(EncodeFileName(name), QByteArray(foreign));
        EXPECT_NE(name, QString::fromUtf8(foreign)) << "the lossy reading is not the lossless one";
    }
    EXPECT_EQ(DecodeFileName("Caf\xe9"), QString::fromUtf16(u"Caf\xDCE9"));
    EXPECT_EQ(DisplayFileName(DecodeFileName("Caf\xe9/b")), QString::fromUtf16(u"Caf\uFFFD/b"));
    // A lone surrogate that stands for no byte names no file at all.
    EXPECT_EQ(EncodeFileName(QString::fromUtf16(u"a\xD800")), QByteArray("a\xef\xbf\xbd"));
}

TEST(FileNames, StatusOfAPathWhoseNameIsNotUtf8)
{
    QTemporaryDir dir;
    const QByteArray folder = QFile::encodeName(dir.path()) + "/Caf\xe9";
    ASSERT_TRUE(std::filesystem::create_directory(folder.toStdString()));
    const PathStatus status = StatusOfPath(DecodeFileName(folder));
    EXPECT_TRUE(status.exists);
    EXPECT_TRUE(status.isFolder);
    EXPECT_FALSE(StatusOfPath(QString::fromUtf8(folder)).exists);
    EXPECT_FALSE(StatusOfPath(QString()).exists);
}

} // namespace
} // namespace talvo
