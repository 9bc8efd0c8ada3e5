// Fuzz target over the skin parsers: the INI reader and the layout load for
// a few screens, with the input as a skin file beside a valid bitmap.  Bytes
// after kImageSeparator are written beside it too, as "input.img", so that
// skin files naming that file feed the bitmap decoders.  Besides crashes and
// sanitizer reports it traps on broken promises of the layout record.

#include "skins/SkinLayout.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <algorithm>
#include <cstdint>
#include <string_view>
#include <unistd.h>

namespace {

constexpr std::string_view kImageSeparator{"\0IMAGE\0", 7};
constexpr QSize kScreens[] = {{240, 320}, {480, 640}, {320, 240}, {1, 1}, {32767, 32767}};

const QString& ScratchFolder()
{
    static const QString folder = [] {
        // Decoders complain about every broken picture; a fatal message still aborts.
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        const char* base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        const QString path = QStringLiteral("%1/skin-fuzz-%2").arg(QLatin1String(base)).arg(getpid());
        QDir().mkpath(path);
        // A bitmap that decodes, so that a mutated skin can still fit.
        QImage valid(240, 320, QImage::Format_RGB32);
        valid.fill(Qt::gray);
        valid.save(path + QStringLiteral("/ok.png"));
        return path;
    }();
    return folder;
}

void Write(const QString& path, const std::uint8_t* data, std::size_t size)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(reinterpret_cast<const char*>(data), qint64(size));
}

void Check(bool promise)
{
    if (!promise)
        __builtin_trap();
}

void CheckRect(const talvo::SkinRect& rect)
{
    for (std::int32_t value : {rect.left, rect.top, rect.right, rect.bottom})
        Check(value >= -talvo::kSkinCoordinateLimit && value <= talvo::kSkinCoordinateLimit);
    Check(rect.right >= rect.left && rect.bottom >= rect.top);
}

void CheckFont(const std::optional<talvo::SkinFont>& font)
{
    if (!font)
        return;
    Check(!font->face.empty() && font->face.size() <= talvo::kMaxFontFaceChars);
    Check(font->pixelHeight >= 0 && font->pixelHeight <= talvo::kMaxFontPixelHeight);
    Check(font->weight >= 0 && font->weight <= talvo::kMaxFontWeight);
}

void CheckLayout(const talvo::SkinLayout& layout, talvo::SkinLoadResult result)
{
    using talvo::SkinLoadResult;
    Check(layout.IsLayoutLoaded() == (result != SkinLoadResult::Fails));
    for (const auto* set : {&layout.pausedButtons, &layout.playingButtons})
        for (const talvo::SkinButton& button : *set)
            CheckRect(button.rect);
    for (const talvo::SkinTextArea* area : {&layout.elapsedTime, &layout.currentTime, &layout.totalTime,
                                            &layout.programTitle, &layout.section, &layout.partialContent})
        CheckRect(area->rect);
    CheckRect(layout.bookCover);
    for (const auto* font : {&layout.elapsedTimeFont.font, &layout.totalTimeFont.font,
                             &layout.programTitleFont, &layout.programTitleSmallFont, &layout.volumeFont})
        CheckFont(*font);
    for (const talvo::SkinBitmapFile& bitmap : layout.bitmaps) {
        const bool loaded = bitmap.status == talvo::SkinBitmapStatus::Loaded;
        Check(loaded == !bitmap.image.isNull());
        if (loaded) {
            Check(bitmap.image.width() <= talvo::kMaxSkinBitmapSide);
            Check(bitmap.image.height() <= talvo::kMaxSkinBitmapSide);
            Check(bitmap.image.format() == QImage::Format_ARGB32_Premultiplied);
        }
        if (result == SkinLoadResult::Fits)
            Check(loaded);
    }
}

// The first section of each name answers for each of its keys with the
// first entry of that key.
void CheckLookUps(const talvo::IniFile& ini)
{
    for (const talvo::IniFile::Section& section : ini.Sections()) {
        const auto keys = ini.GetKeys(section.name);
        if (keys.data() != section.entries.data())
            continue;
        for (const talvo::IniFile::Entry& entry : keys) {
            const auto first = std::find_if(
                keys.begin(), keys.end(), [&](const talvo::IniFile::Entry& e) { return e.key == entry.key; });
            Check(ini.GetString(section.name, entry.key, u"") == first->value);
            (void)ini.GetNumber(section.name, entry.key, 0);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t cut = std::min(input.find(kImageSeparator), size);
    const QString folder = ScratchFolder();
    const QString iniPath = folder + QStringLiteral("/skin.ini");
    Write(iniPath, data, cut);
    const std::size_t image = std::min(size, cut + kImageSeparator.size());
    Write(folder + QStringLiteral("/input.img"), data + image, size - image);

    talvo::IniFile fromBytes;
    const bool parsed = fromBytes.LoadBytes({data, cut});
    CheckLookUps(fromBytes);

    talvo::SkinLayout layout(iniPath);
    for (QSize screen : kScreens) {
        const talvo::SkinLoadResult result = layout.LoadLayout(screen);
        CheckLayout(layout, result);
    }
    // The file and the bytes read alike.
    Check(layout.ini.IsLoaded() == parsed);
    Check(layout.ini.Sections().size() == fromBytes.Sections().size());
    (void)talvo::SkinLayout::ReadName(layout.ini);
    return 0;
}
