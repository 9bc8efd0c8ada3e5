#pragma once
// Skin files written on the fly for the skin tests: INI text with the
// carriage returns skin files need, and small bitmaps made with QImage.
#include "skins/SkinElements.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QString>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace talvo::test {

inline QString Q(std::u16string_view text)
{
    return QString::fromStdU16String(std::u16string(text));
}

// Writes bytes to path, making its folder.
inline void WriteBytes(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(bytes);
}

// Lines written with "\n" in the source end with CR LF in the file.
inline void WriteIni(const QString& path, QString text)
{
    WriteBytes(path, text.replace(QLatin1Char('\n'), QLatin1String("\r\n")).toUtf8());
}

// A skin with a name, the four bitmap keys and all ten buttons (button i at
// x 20i to 20i+20, y 0 to 20) for one resolution; extra is appended.
inline QString SkinText(const QString& name, const QString& suffix = QStringLiteral("240X320"),
                        const QString& extra = QString())
{
    QString text = QStringLiteral("[Skin]\nName=%1\n").arg(name);
    const char* files[] = {"bg.png", "hot.png", "pbg.png", "phot.png"};
    for (std::size_t i = 0; i < kSkinBitmapCount; ++i)
        text += QStringLiteral("%1%2=%3\n").arg(Q(kSkinBitmapKeys[i]), suffix, QLatin1String(files[i]));
    for (std::size_t i = 0; i < kSkinButtonCount; ++i) {
        text += QStringLiteral("[%1%2]\nLeft=%3\nTop=0\nRight=%4\nBottom=20\n")
                    .arg(Q(kSkinButtons[i].element), suffix)
                    .arg(20 * i)
                    .arg(20 * i + 20);
    }
    return text + extra;
}

// The four bitmaps SkinText names, of the given size, in folder.
inline void WriteBitmaps(const QString& folder, QSize size = QSize(240, 320))
{
    ASSERT_TRUE(QDir().mkpath(folder));
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::darkBlue);
    for (const char* file : {"bg.png", "hot.png", "pbg.png", "phot.png"})
        ASSERT_TRUE(image.save(QDir(folder).filePath(QLatin1String(file))));
}

} // namespace talvo::test
