#pragma once
// One loaded skin: where each button and text area of the main screen lies,
// which command each button sends, the fonts and colours of the texts and the
// four full-screen bitmaps the screen is painted from.  Filled from the skin's
// INI file (format in docs/skins.md) for one screen resolution.
//
// Contract:
// - A plain record: the display reads every field and sets the buttons'
//   states; nothing here draws or needs a display (QImage, QFont and QColor
//   only).  UI thread, or any one thread at a time.
// - LoadLayout may be called again (another screen, a preview); it first
//   frees what the record holds.  name, iniPath and ini survive it.
// - Hostile values never reach the display as they are: every coordinate lies
//   within +-kSkinCoordinateLimit, a rectangle whose right or bottom lies
//   before its left or top is the empty rectangle, font heights and weights
//   lie in the ranges below, and bitmaps larger than kMaxSkinBitmapSide or
//   kMaxSkinBitmapPixels are not loaded.  None of this changes a skin whose
//   values are sane.
#include "skins/IniFile.h"
#include "skins/SkinElements.h"
#include "skins/SkinResolution.h"

#include <QColor>
#include <QFont>
#include <QImage>
#include <QRect>
#include <QSize>
#include <QString>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace talvo {

class DecodedBitmapCache;

// The handheld platform drew in 16-bit coordinates, so no real skin goes
// beyond them; within them widths and heights fit in 32 bits (squared
// distances of the round buttons need 64).
inline constexpr std::int32_t kSkinCoordinateLimit = 32767;
// Display names were held in buffers of 260 characters with their
// terminator.  Paths are not cut: Linux paths run longer.
inline constexpr std::size_t kMaxSkinNameChars = 259;
// Face names were held in 32 characters with their terminator.
inline constexpr std::size_t kMaxFontFaceChars = 31;
// Taller than any screen a skin is made for; beyond it text engines misbehave.
inline constexpr std::int32_t kMaxFontPixelHeight = 1024;
// The weight scale's top (900 is the heaviest named weight).
inline constexpr std::int32_t kMaxFontWeight = 1000;
// Twice the side of the largest screens; a skin bitmap is one screen.
inline constexpr int kMaxSkinBitmapSide = 8192;
// 64 MiB as 32-bit pixels: a 4K screen fits, a decompression bomb does not.
inline constexpr qint64 kMaxSkinBitmapPixels = qint64(4096) * 4096;

// Left, Top, Right, Bottom in pixels of the layout; right and bottom exclusive.
struct SkinRect {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;

    bool IsEmpty() const { return right <= left || bottom <= top; }
    bool Contains(int x, int y) const { return x >= left && x < right && y >= top && y < bottom; }
    QRect ToQRect() const { return IsEmpty() ? QRect() : QRect(left, top, right - left, bottom - top); }
    friend bool operator==(const SkinRect&, const SkinRect&) = default;
};

// A colour reference: red in the lowest byte, then green, then blue.
using SkinColor = std::uint32_t;
inline constexpr SkinColor kSkinColorNotGiven = 0xFFFFFFFFu;

// The colour, or an invalid QColor when not given.
inline QColor ToQColor(SkinColor color)
{
    if (color == kSkinColorNotGiven)
        return QColor();
    return QColor(int(color & 0xFF), int(color >> 8 & 0xFF), int(color >> 16 & 0xFF));
}

enum class SkinButtonState { Normal, Hot, Pressed };

struct SkinButton {
    std::uint16_t commandId = 0;
    SkinRect rect;
    // Hit-tested as a circle (see the display) instead of the rectangle.
    bool round = false;
    // Set by the display.
    SkinButtonState state = SkinButtonState::Normal;
};

// A font as the skin gives it; the display makes the QFont.
struct SkinFont {
    std::u16string face;
    // Character height in pixels, 1 to kMaxFontPixelHeight; 0: the face's own.
    std::int32_t pixelHeight = 0;
    // 1 to kMaxFontWeight, 400 normal, 700 bold; 0: normal.
    std::int32_t weight = 0;

    QFont ToQFont() const;
    friend bool operator==(const SkinFont&, const SkinFont&) = default;
};

struct SkinTextArea {
    // Empty: the area is not shown.
    SkinRect rect;
    SkinColor backgroundColor = kSkinColorNotGiven;
};

// A font with its text colour.  Several sections may fill one slot: a font
// from a section whose Name is empty, or a colour not given, leaves what an
// earlier section put there.
struct SkinFontSlot {
    std::optional<SkinFont> font;
    SkinColor textColor = kSkinColorNotGiven;
};

enum class SkinBitmapStatus {
    Loaded,
    // Named, present, and its header gives an accepted format and size; not
    // decoded yet (a skin that is only listed is never drawn).
    Checked,
    NotNamed,     // the Skin section has no file name for it
    NotFound,     // no such file
    NotDecodable, // not a BMP, PNG, JPEG or GIF that decodes
    TooLarge,     // beyond kMaxSkinBitmapSide or kMaxSkinBitmapPixels
};

struct SkinBitmapFile {
    // As written in the Skin section, and the path it was looked for at.
    std::u16string fileName;
    QString path;
    SkinBitmapStatus status = SkinBitmapStatus::NotNamed;
    // Null unless Loaded; ARGB32 premultiplied, ready to draw.
    QImage image;
};

enum class SkinLoadResult {
    Fits,
    // No offered resolution fits the screen, or a button rectangle is incomplete.
    Fails,
    // Fits, but one of the four bitmaps is missing or undecodable.
    GraphicsMissing,
};

enum class SkinBitmapLoading {
    Decode,
    // Only the files' headers are read; DecodeBitmaps decodes them later.
    HeaderOnly,
};

class SkinLayout {
public:
    SkinLayout() = default;
    explicit SkinLayout(QString iniPath) : iniPath(std::move(iniPath)) {}

    // Frees, then fills the record for the resolution chosen for screen,
    // loading ini from iniPath first if it is not loaded.  Stops with Fails at
    // the first button with a rectangle key not given.  With HeaderOnly a
    // bitmap whose header is sound counts as present until it is decoded.
    SkinLoadResult LoadLayout(QSize screen, SkinBitmapLoading loading = SkinBitmapLoading::Decode);
    // Decodes the bitmaps a HeaderOnly load left Checked and answers what a
    // load with Decode would have answered; DecodeBitmap decodes one of them.
    SkinLoadResult DecodeBitmaps();
    void DecodeBitmap(SkinBitmap which);
    // Drops the bitmaps and fonts and empties every rectangle.
    void FreeLayout();

    // Whether the bitmaps of a load are held (the record has been loaded and
    // not freed since).
    bool IsLayoutLoaded() const { return layoutLoaded_; }
    // Whether no bitmap is left Checked.
    bool AreBitmapsDecoded() const;
    // Whether a bitmap is missing or undecodable as far as it has been read.
    bool MissesBitmaps() const;
    const QImage& Bitmap(SkinBitmap which) const { return bitmaps[Index(which)].image; }
    bool HasBitmap(SkinBitmap which) const { return !Bitmap(which).isNull(); }

    // Name in section Skin, cut to kMaxSkinNameChars; empty: not a skin.
    static std::u16string ReadName(const IniFile& ini);
    // The rectangle keys of section that are not given, in the order Left,
    // Top, Right, Bottom; empty for a complete button.
    static std::vector<std::u16string_view> MissingRectangleKeys(const IniFile& ini,
                                                                 std::u16string_view section);

    std::u16string name;
    QString iniPath;
    IniFile ini;
    // Where decoded bitmaps are kept between starts; none when null.
    const DecodedBitmapCache* bitmapCache = nullptr;

    // The chosen resolution; width and height 0 until a load has chosen one.
    SkinResolution resolution;

    // Two sets that receive the same values: the display uses the second
    // while playing (when the skin has a "Play Background"), so each set
    // keeps its own button states.
    std::array<SkinButton, kSkinButtonCount> pausedButtons{};
    std::array<SkinButton, kSkinButtonCount> playingButtons{};

    SkinTextArea elapsedTime;    // "Elapsed Time Window"
    SkinTextArea currentTime;    // "Current Time"
    SkinTextArea totalTime;      // "Total Time"
    SkinTextArea programTitle;   // "Program Title Window"
    SkinTextArea section;        // "Section Window"
    SkinTextArea partialContent; // "Partial Content Window"
    SkinRect bookCover;          // "Book Cover"
    bool bookCoverDisplay = false;

    // "Elapsed Time Font" with "Elapsed Time Text Color".
    SkinFontSlot elapsedTimeFont;
    // Filled in turn by "Current Time", "Total Time" and "Elapsed Total Time
    // Font", with "Elapsed Total Time Text Color".
    SkinFontSlot totalTimeFont;
    // From "Program Title Font": Size at weight 700, and Size - 2 at weight
    // 500; its "Program Title Background Color" is the title's text colour.
    std::optional<SkinFont> programTitleFont;
    std::optional<SkinFont> programTitleSmallFont;
    SkinColor programTitleTextColor = kSkinColorNotGiven;

    // "Volume": the bar's colour, vertical position and tick height
    // (IniFile::kNotGiven each when the skin leaves them out), and the label font.
    SkinColor volumeBarColor = kSkinColorNotGiven;
    std::int32_t volumeVerticalPosition = IniFile::kNotGiven;
    std::int32_t volumeTickHeight = IniFile::kNotGiven;
    std::optional<SkinFont> volumeFont;

    // Indexed by SkinBitmap.
    std::array<SkinBitmapFile, kSkinBitmapCount> bitmaps{};

private:
    bool layoutLoaded_ = false;
};

} // namespace talvo
