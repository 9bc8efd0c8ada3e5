#include "skins/SkinLayout.h"

#include "skins/DecodedBitmapCache.h"

#include <QByteArrayList>
#include <QFileInfo>
#include <QImageReader>
#include <algorithm>

namespace talvo {
namespace {

// The formats skin bitmaps have always come in.  Anything else QImageReader
// could decode (SVG, TIFF, ...) is refused, so a skin looks the same wherever
// it is installed.
const QByteArrayList& SkinBitmapFormats()
{
    static const QByteArrayList formats = {"bmp", "png", "jpeg", "jpg", "gif"};
    return formats;
}

// Opens a skin bitmap for reading.  Qt guesses a format by asking every
// installed image plugin, which loads them all; a PNG or BMP file is read by
// Qt's own decoder without that, and only a file its name misnames is guessed.
void OpenBitmap(QImageReader& reader, const QString& path)
{
    const QByteArray suffix = QFileInfo(path).suffix().toLower().toLatin1();
    if (suffix == "png" || suffix == "bmp") {
        reader.setFileName(path);
        reader.setFormat(suffix);
        reader.setAutoDetectImageFormat(false);
        if (reader.canRead())
            return;
    }
    reader.setFileName(path); // starts over, with no decoder chosen
    reader.setFormat(QByteArray());
    reader.setAutoDetectImageFormat(true);
}

std::u16string SectionName(std::u16string_view element, const SkinResolution& resolution)
{
    return std::u16string(element) + resolution.suffix;
}

std::int32_t ClampCoordinate(std::int32_t value)
{
    return std::clamp(value, -kSkinCoordinateLimit, kSkinCoordinateLimit);
}

// A rectangle turned inside out holds no point and draws nothing: it is made
// the empty rectangle, so no one downstream computes a negative size.
SkinRect Sanitised(SkinRect rect)
{
    rect = {ClampCoordinate(rect.left), ClampCoordinate(rect.top), ClampCoordinate(rect.right),
            ClampCoordinate(rect.bottom)};
    if (rect.right < rect.left || rect.bottom < rect.top)
        return SkinRect();
    return rect;
}

SkinColor ReadColor(const IniFile& ini, std::u16string_view section, std::u16string_view key)
{
    return static_cast<SkinColor>(ini.GetNumber(section, key, IniFile::kNotGiven));
}

// All four keys are required: false when one is not given.
bool ReadButton(const IniFile& ini, std::u16string_view section, SkinButton& button)
{
    std::array<std::int32_t, 4> values{};
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = ini.GetNumber(section, SkinKey::RectangleKeys[i], IniFile::kNotGiven);
        if (values[i] == IniFile::kNotGiven)
            return false;
    }
    button.rect = Sanitised({values[0], values[1], values[2], values[3]});
    button.round = ini.GetNumber(section, SkinKey::Round, 0) != 0;
    return true;
}

// Text areas: a coordinate the section leaves out keeps the one held before.
void ReadArea(const IniFile& ini, std::u16string_view section, SkinRect& rect)
{
    rect = Sanitised({ini.GetNumber(section, SkinKey::Left, rect.left),
                      ini.GetNumber(section, SkinKey::Top, rect.top),
                      ini.GetNumber(section, SkinKey::Right, rect.right),
                      ini.GetNumber(section, SkinKey::Bottom, rect.bottom)});
}

std::int32_t SanitisedHeight(std::int64_t height)
{
    return height < 1 ? 0 : std::int32_t(std::min<std::int64_t>(height, kMaxFontPixelHeight));
}

// No font is made for an empty face name.
std::optional<SkinFont> MakeFont(std::u16string face, std::int64_t height, std::int32_t weight)
{
    if (face.empty())
        return std::nullopt;
    if (face.size() > kMaxFontFaceChars)
        face.resize(kMaxFontFaceChars);
    return SkinFont{std::move(face), SanitisedHeight(height),
                    weight < 1 ? 0 : std::min(weight, kMaxFontWeight)};
}

void ReadFontSlot(const IniFile& ini, std::u16string_view section, std::u16string_view colorKey,
                  SkinFontSlot& slot)
{
    std::optional<SkinFont> font =
        MakeFont(ini.GetString(section, SkinKey::Name, u""), ini.GetNumber(section, SkinKey::Size, 0),
                 ini.GetNumber(section, SkinKey::Weight, 0));
    if (font)
        slot.font = std::move(font);
    const SkinColor color = ReadColor(ini, section, colorKey);
    if (color != kSkinColorNotGiven)
        slot.textColor = color;
}

bool TooLarge(QSize size)
{
    return size.width() > kMaxSkinBitmapSide || size.height() > kMaxSkinBitmapSide ||
           qint64(size.width()) * size.height() > kMaxSkinBitmapPixels;
}

// Finds the file and reads its header: Checked, or why it cannot be drawn.
SkinBitmapFile CheckBitmap(const QString& folder, std::u16string fileName)
{
    SkinBitmapFile file;
    file.fileName = std::move(fileName);
    if (file.fileName.empty())
        return file;
    file.status = SkinBitmapStatus::NotFound;
    // A NUL would cut the path short and name another file.
    if (file.fileName.find(u'\0') != std::u16string::npos)
        return file;
    // Names are relative to the skin's folder, written with either slash;
    // an absolute-looking name stays inside the folder too.
    file.path = folder + QLatin1Char('/') + QString::fromStdU16String(file.fileName).replace(u'\\', u'/');
    if (!QFileInfo(file.path).isFile())
        return file;

    file.status = SkinBitmapStatus::NotDecodable;
    QImageReader reader;
    OpenBitmap(reader, file.path);
    if (!SkinBitmapFormats().contains(reader.format()))
        return file;
    // Refused before decoding when the header tells the size.
    if (reader.size().isValid() && TooLarge(reader.size())) {
        file.status = SkinBitmapStatus::TooLarge;
        return file;
    }
    file.status = SkinBitmapStatus::Checked;
    return file;
}

// Decodes a Checked bitmap, ready to draw: Loaded, or why its data cannot be
// drawn.  The display paints these often and never converts them.
void DecodeCheckedBitmap(SkinBitmapFile& file, const DecodedBitmapCache* cache)
{
    if (cache) {
        if (std::optional<QImage> kept = cache->Find(file.path)) {
            file.image = std::move(*kept);
            file.status = SkinBitmapStatus::Loaded;
            return;
        }
    }
    file.status = SkinBitmapStatus::NotDecodable;
    QImageReader reader;
    OpenBitmap(reader, file.path);
    QImage image;
    if (!SkinBitmapFormats().contains(reader.format()) || !reader.read(&image) || image.isNull())
        return;
    if (TooLarge(image.size())) {
        file.status = SkinBitmapStatus::TooLarge;
        return;
    }
    image.convertTo(QImage::Format_ARGB32_Premultiplied);
    if (image.isNull() || image.format() != QImage::Format_ARGB32_Premultiplied)
        return; // out of memory
    file.image = std::move(image);
    file.status = SkinBitmapStatus::Loaded;
    if (cache)
        cache->Keep(file.path, file.image);
}

} // namespace

QFont SkinFont::ToQFont() const
{
    QFont font(QString::fromStdU16String(face));
    if (pixelHeight > 0)
        font.setPixelSize(pixelHeight);
    font.setWeight(static_cast<QFont::Weight>(weight > 0 ? weight : int(QFont::Normal)));
    return font;
}

std::u16string SkinLayout::ReadName(const IniFile& ini)
{
    std::u16string name = ini.GetString(SkinKey::SkinSection, SkinKey::Name, u"");
    if (name.size() > kMaxSkinNameChars)
        name.resize(kMaxSkinNameChars);
    return name;
}

std::vector<std::u16string_view> SkinLayout::MissingRectangleKeys(const IniFile& ini,
                                                                  std::u16string_view section)
{
    std::vector<std::u16string_view> missing;
    for (std::u16string_view key : SkinKey::RectangleKeys) {
        if (ini.GetNumber(section, key, IniFile::kNotGiven) == IniFile::kNotGiven)
            missing.push_back(key);
    }
    return missing;
}

void SkinLayout::FreeLayout()
{
    resolution = SkinResolution();
    for (std::size_t i = 0; i < kSkinButtonCount; ++i) {
        pausedButtons[i] = playingButtons[i] = SkinButton();
        pausedButtons[i].commandId = playingButtons[i].commandId = kSkinButtons[i].commandId;
    }
    elapsedTime = currentTime = totalTime = programTitle = section = partialContent = SkinTextArea();
    bookCover = SkinRect();
    bookCoverDisplay = false;
    elapsedTimeFont = totalTimeFont = SkinFontSlot();
    programTitleFont.reset();
    programTitleSmallFont.reset();
    programTitleTextColor = kSkinColorNotGiven;
    volumeBarColor = kSkinColorNotGiven;
    volumeVerticalPosition = volumeTickHeight = IniFile::kNotGiven;
    volumeFont.reset();
    bitmaps = {};
    layoutLoaded_ = false;
}

bool SkinLayout::MissesBitmaps() const
{
    return std::any_of(bitmaps.begin(), bitmaps.end(), [](const SkinBitmapFile& bitmap) {
        return bitmap.status != SkinBitmapStatus::Loaded && bitmap.status != SkinBitmapStatus::Checked;
    });
}

bool SkinLayout::AreBitmapsDecoded() const
{
    return std::none_of(bitmaps.begin(), bitmaps.end(), [](const SkinBitmapFile& bitmap) {
        return bitmap.status == SkinBitmapStatus::Checked;
    });
}

void SkinLayout::DecodeBitmap(SkinBitmap which)
{
    SkinBitmapFile& bitmap = bitmaps[Index(which)];
    if (bitmap.status == SkinBitmapStatus::Checked)
        DecodeCheckedBitmap(bitmap, bitmapCache);
}

SkinLoadResult SkinLayout::DecodeBitmaps()
{
    for (SkinBitmapFile& bitmap : bitmaps) {
        if (bitmap.status == SkinBitmapStatus::Checked)
            DecodeCheckedBitmap(bitmap, bitmapCache);
    }
    return MissesBitmaps() ? SkinLoadResult::GraphicsMissing : SkinLoadResult::Fits;
}

SkinLoadResult SkinLayout::LoadLayout(QSize screen, SkinBitmapLoading loading)
{
    FreeLayout();
    if (!ini.IsLoaded())
        ini.Load(iniPath.toStdU16String());
    const std::optional<SkinResolution> chosen = ChooseResolution(ini, screen);
    if (!chosen)
        return SkinLoadResult::Fails;
    resolution = *chosen;
    auto in = [&](std::u16string_view element) {
        return SectionName(element, resolution);
    };

    // Both sets read the same sections: the display keeps a state per set.
    for (std::size_t i = 0; i < kSkinButtonCount; ++i) {
        const std::u16string button = in(kSkinButtons[i].element);
        if (!ReadButton(ini, button, pausedButtons[i]) || !ReadButton(ini, button, playingButtons[i])) {
            FreeLayout();
            return SkinLoadResult::Fails;
        }
    }

    // In the order skins have always been read: it decides which of "Current
    // Time", "Total Time" and "Elapsed Total Time Font" gives the total-time
    // font.  Sections read twice give the same values twice.
    const std::u16string elapsedWindow = in(SkinElement::ElapsedTimeWindow);
    ReadArea(ini, elapsedWindow, elapsedTime.rect);
    elapsedTime.backgroundColor = ReadColor(ini, elapsedWindow, SkinKey::ElapsedTimeBackgroundColor);

    auto readTitleWindow = [&] {
        const std::u16string title = in(SkinElement::ProgramTitleWindow);
        ReadArea(ini, title, programTitle.rect);
        programTitle.backgroundColor = ReadColor(ini, title, SkinKey::ProgramTitleBackgroundColor);
    };
    readTitleWindow();

    auto readElapsedFont = [&] {
        ReadFontSlot(ini, in(SkinElement::ElapsedTimeFont), SkinKey::ElapsedTimeTextColor, elapsedTimeFont);
    };
    readElapsedFont();

    const std::u16string current = in(SkinElement::CurrentTime);
    ReadArea(ini, current, currentTime.rect);
    ReadFontSlot(ini, current, SkinKey::ElapsedTotalTimeTextColor, totalTimeFont);
    currentTime.backgroundColor = ReadColor(ini, current, SkinKey::ElapsedTimeBackgroundColor);

    const std::u16string total = in(SkinElement::TotalTime);
    ReadArea(ini, total, totalTime.rect);
    ReadFontSlot(ini, total, SkinKey::ElapsedTotalTimeTextColor, totalTimeFont);
    totalTime.backgroundColor = ReadColor(ini, total, SkinKey::ProgramTitleBackgroundColor);

    const std::u16string partial = in(SkinElement::PartialContentWindow);
    ReadArea(ini, partial, partialContent.rect);
    partialContent.backgroundColor = ReadColor(ini, partial, SkinKey::ProgramTitleBackgroundColor);

    readTitleWindow();

    const std::u16string sectionWindow = in(SkinElement::SectionWindow);
    ReadArea(ini, sectionWindow, section.rect);
    section.backgroundColor = ReadColor(ini, sectionWindow, SkinKey::ProgramTitleBackgroundColor);

    readElapsedFont();
    ReadFontSlot(ini, in(SkinElement::ElapsedTotalTimeFont), SkinKey::ElapsedTotalTimeTextColor,
                 totalTimeFont);

    // Two fonts from Size and Name; the section's Weight is not read.
    const std::u16string titleFont = in(SkinElement::ProgramTitleFont);
    const std::u16string titleFace = ini.GetString(titleFont, SkinKey::Name, u"");
    const std::int64_t titleSize = ini.GetNumber(titleFont, SkinKey::Size, 0);
    programTitleFont = MakeFont(titleFace, titleSize, 700);
    programTitleSmallFont = MakeFont(titleFace, titleSize - 2, 500);
    // The title's text colour is read under the background colour's key.
    programTitleTextColor = ReadColor(ini, titleFont, SkinKey::ProgramTitleBackgroundColor);

    const std::u16string cover = in(SkinElement::BookCover);
    ReadArea(ini, cover, bookCover);
    bookCoverDisplay = ini.GetNumber(cover, SkinKey::Display, 0) != 0;

    // The bar's keys are read with defaults first and then again without,
    // and the second reading is the one kept: a skin that leaves them out has
    // no bar geometry, and skins are written knowing it.
    const std::u16string volume = in(SkinElement::Volume);
    volumeBarColor = static_cast<SkinColor>(ini.GetNumber(volume, SkinKey::VerticalColor, 0));
    volumeVerticalPosition = ini.GetNumber(volume, SkinKey::VerticalPosition, 85);
    volumeTickHeight = ini.GetNumber(volume, SkinKey::TickHeight, 8);
    volumeBarColor = ReadColor(ini, volume, SkinKey::VerticalColor);
    volumeVerticalPosition = ini.GetNumber(volume, SkinKey::VerticalPosition, IniFile::kNotGiven);
    volumeTickHeight = ini.GetNumber(volume, SkinKey::TickHeight, IniFile::kNotGiven);
    if (volumeVerticalPosition != IniFile::kNotGiven)
        volumeVerticalPosition = ClampCoordinate(volumeVerticalPosition);
    if (volumeTickHeight != IniFile::kNotGiven)
        volumeTickHeight = ClampCoordinate(volumeTickHeight);
    volumeFont =
        MakeFont(ini.GetString(volume, SkinKey::Name, u"MS Sans Serif"),
                 ini.GetNumber(volume, SkinKey::Size, 12), ini.GetNumber(volume, SkinKey::Weight, 800));

    const QString folder = QFileInfo(iniPath).absolutePath();
    for (std::size_t i = 0; i < kSkinBitmapCount; ++i)
        bitmaps[i] = CheckBitmap(folder, ini.GetString(SkinKey::SkinSection, in(kSkinBitmapKeys[i]), u""));
    layoutLoaded_ = true;
    if (loading == SkinBitmapLoading::Decode)
        return DecodeBitmaps();
    return MissesBitmaps() ? SkinLoadResult::GraphicsMissing : SkinLoadResult::Fits;
}

} // namespace talvo
