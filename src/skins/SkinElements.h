#pragma once
// The names a skin file is written with, and the numbers that go with them,
// each written once: the skin's buttons with their command identifiers, the
// text areas, the font sections, the four screen bitmaps and the keys read in
// each section.  The loader, the display, skincheck and the skin format
// document all go by these.
//
// A layout's sections are named by the element name followed directly by the
// resolution suffix ("Play Button" + "240X320"); only the Skin section has no
// suffix.
#include "base/CommandIds.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace talvo {

namespace SkinKey {
inline constexpr std::u16string_view SkinSection = u"Skin";
inline constexpr std::u16string_view Name = u"Name";
// Key prefix in Skin whose keys list the resolutions a skin offers.
inline constexpr std::u16string_view ResolutionPrefix = u"Background";

inline constexpr std::u16string_view Left = u"Left";
inline constexpr std::u16string_view Top = u"Top";
inline constexpr std::u16string_view Right = u"Right";
inline constexpr std::u16string_view Bottom = u"Bottom";
inline constexpr std::u16string_view Round = u"Round";
inline constexpr std::u16string_view Size = u"Size";
inline constexpr std::u16string_view Weight = u"Weight";
inline constexpr std::u16string_view Display = u"Display";

inline constexpr std::u16string_view ElapsedTimeBackgroundColor = u"Elapsed Time Background Color";
inline constexpr std::u16string_view ElapsedTimeTextColor = u"Elapsed Time Text Color";
inline constexpr std::u16string_view ElapsedTotalTimeTextColor = u"Elapsed Total Time Text Color";
// Also the program title's text colour when read in "Program Title Font".
inline constexpr std::u16string_view ProgramTitleBackgroundColor = u"Program Title Background Color";

inline constexpr std::u16string_view VerticalColor = u"Vertical Color";
inline constexpr std::u16string_view VerticalPosition = u"Vertical Position";
inline constexpr std::u16string_view TickHeight = u"Tick Height";

// The four rectangle keys in the order they are reported.
inline constexpr std::array<std::u16string_view, 4> RectangleKeys = {Left, Top, Right, Bottom};
} // namespace SkinKey

namespace SkinElement {
inline constexpr std::u16string_view ElapsedTimeWindow = u"Elapsed Time Window";
inline constexpr std::u16string_view CurrentTime = u"Current Time";
inline constexpr std::u16string_view TotalTime = u"Total Time";
inline constexpr std::u16string_view ProgramTitleWindow = u"Program Title Window";
inline constexpr std::u16string_view SectionWindow = u"Section Window";
inline constexpr std::u16string_view PartialContentWindow = u"Partial Content Window";
inline constexpr std::u16string_view BookCover = u"Book Cover";
inline constexpr std::u16string_view ElapsedTimeFont = u"Elapsed Time Font";
inline constexpr std::u16string_view ElapsedTotalTimeFont = u"Elapsed Total Time Font";
inline constexpr std::u16string_view ProgramTitleFont = u"Program Title Font";
inline constexpr std::u16string_view Volume = u"Volume";
} // namespace SkinElement

// "List Program Button": its press (21012) opens the program list; the
// identifier has no menu command of its own.
inline constexpr std::uint16_t kListProgramButtonId = 20012;

struct SkinButtonDef {
    std::u16string_view element;
    std::uint16_t commandId;
};

// In this order buttons are read and hit-tested: the first that holds a
// point wins.
inline constexpr std::array<SkinButtonDef, 10> kSkinButtons = {{
    {u"Jump Back Button", Command::JumpBack},
    {u"Rewind Button", Command::Rewind1min},
    {u"Play Button", Command::PlayStop},
    {u"FastForward Button", Command::FastForward1min},
    {u"List Program Button", kListProgramButtonId},
    {u"Previous Section Button", Command::PreviousSection},
    {u"Next Section Button", Command::NextSection},
    {u"Logo Button", Command::About},
    {u"Volume Down Button", Command::VolumeDown},
    {u"Volume Up Button", Command::VolumeUp},
}};
inline constexpr std::size_t kSkinButtonCount = kSkinButtons.size();

static_assert(kSkinButtons[0].commandId == 40035 && kSkinButtons[1].commandId == 20027);
static_assert(kSkinButtons[2].commandId == 20015 && kSkinButtons[3].commandId == 20023);
static_assert(kSkinButtons[5].commandId == 20030 && kSkinButtons[6].commandId == 20031);
static_assert(kSkinButtons[7].commandId == 57664);
static_assert(kSkinButtons[8].commandId == 20035 && kSkinButtons[9].commandId == 20034);

// The index of a command's button in kSkinButtons, or kSkinButtonCount.
constexpr std::size_t SkinButtonIndex(std::uint16_t commandId)
{
    for (std::size_t i = 0; i < kSkinButtonCount; ++i) {
        if (kSkinButtons[i].commandId == commandId)
            return i;
    }
    return kSkinButtonCount;
}

// The four full-screen bitmaps, each named in the Skin section by its key
// followed by the resolution suffix.
enum class SkinBitmap : std::size_t { Background, Hot, PlayBackground, PlayHot };
inline constexpr std::size_t kSkinBitmapCount = 4;
inline constexpr std::array<std::u16string_view, kSkinBitmapCount> kSkinBitmapKeys = {
    u"Background", u"Hot", u"Play Background", u"Play Hot"};

constexpr std::size_t Index(SkinBitmap bitmap)
{
    return static_cast<std::size_t>(bitmap);
}

} // namespace talvo
