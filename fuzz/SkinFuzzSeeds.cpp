// Writes the seed skins of the skin fuzz target into a folder: a complete
// two-resolution skin with every element, its UTF-16 twin, a line-feed-only
// copy, one with hostile numbers, and skins naming "input.img" followed by a
// bitmap in each decodable format.

#include "skins/SkinElements.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QImage>
#include <cstdio>

namespace {

constexpr char kImageSeparator[] = "\0IMAGE\0";

QString Q(std::u16string_view text)
{
    return QString::fromStdU16String(std::u16string(text));
}

QString SkinText(const QString& background, const char* numbers)
{
    QString text = QStringLiteral("[Skin]\r\nName=Seed\r\n");
    for (const char* suffix : {"240X320", "480X640"}) {
        for (std::u16string_view key : talvo::kSkinBitmapKeys)
            text += QStringLiteral("%1%2=%3\r\n").arg(Q(key), QLatin1String(suffix), background);
    }
    for (const char* suffix : {"240X320", "480X640"}) {
        for (const talvo::SkinButtonDef& button : talvo::kSkinButtons)
            text += QStringLiteral("[%1%2]\r\nLeft=1\r\nTop=%3\r\nRight=0x20\r\nBottom=40\r\nRound=1\r\n")
                        .arg(Q(button.element), QLatin1String(suffix), QLatin1String(numbers));
        for (std::u16string_view area :
             {talvo::SkinElement::ElapsedTimeWindow, talvo::SkinElement::CurrentTime,
              talvo::SkinElement::TotalTime, talvo::SkinElement::ProgramTitleWindow,
              talvo::SkinElement::SectionWindow, talvo::SkinElement::PartialContentWindow,
              talvo::SkinElement::BookCover})
            text += QStringLiteral("[%1%2]\r\nLeft=%3\r\nRight=200\r\nBottom=300\r\n"
                                   "Program Title Background Color=0xFF\r\nDisplay=1\r\n")
                        .arg(Q(area), QLatin1String(suffix), QLatin1String(numbers));
        for (std::u16string_view font :
             {talvo::SkinElement::ElapsedTimeFont, talvo::SkinElement::ElapsedTotalTimeFont,
              talvo::SkinElement::ProgramTitleFont, talvo::SkinElement::Volume})
            text += QStringLiteral("[%1%2]\r\nName=Sans\r\nSize=%3\r\nWeight=700\r\n"
                                   "Vertical Color=255\r\nVertical Position=85\r\nTick Height=8\r\n")
                        .arg(Q(font), QLatin1String(suffix), QLatin1String(numbers));
    }
    return text;
}

bool Write(const QDir& folder, const char* name, const QByteArray& bytes)
{
    QFile file(folder.filePath(QLatin1String(name)));
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    QDir folder(QString::fromLocal8Bit(argv[1]));
    folder.mkpath(QStringLiteral("."));
    const QString good = SkinText(QStringLiteral("ok.png"), "12");
    QByteArray utf16("\xFF\xFE", 2);
    utf16.append(reinterpret_cast<const char*>(good.utf16()), good.size() * 2);
    bool ok =
        Write(folder, "skin.ini", good.toLatin1()) && Write(folder, "skin-utf16.ini", utf16) &&
        Write(folder, "skin-lf.ini", QString(good).remove(QLatin1Char('\r')).toLatin1()) &&
        Write(folder, "skin-hostile.ini", SkinText(QStringLiteral("ok.png"), "-99999999999").toLatin1());

    QImage image(24, 32, QImage::Format_ARGB32);
    image.fill(QColor(10, 20, 30, 128));
    for (const char* format : {"bmp", "png", "jpeg"}) {
        QByteArray encoded;
        QBuffer buffer(&encoded);
        buffer.open(QIODevice::WriteOnly);
        image.save(&buffer, format);
        QByteArray seed = SkinText(QStringLiteral("input.img"), "3").toLatin1();
        seed.append(kImageSeparator, sizeof kImageSeparator - 1);
        seed.append(encoded);
        ok = ok && Write(folder, (QByteArray("skin-image-") + format).constData(), seed);
    }
    // Qt writes no GIF: the smallest one, a single transparent pixel.
    QByteArray gif = SkinText(QStringLiteral("input.img"), "3").toLatin1();
    gif.append(kImageSeparator, sizeof kImageSeparator - 1);
    gif.append(QByteArray::fromHex(
        "47494638396101000100800000000000ffffff21f90401000000002c00000000010001000002024401003b"));
    ok = ok && Write(folder, "skin-image-gif", gif);
    return ok ? 0 : 1;
}
