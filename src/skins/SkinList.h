#pragma once
// The installed skins and the active one.
//
// LoadSkins reads every "*.ini" in the folder "Skins" of the program's own
// folder, in file-name order, and keeps each that is a skin (a non-empty Name
// in section Skin) and has a layout for the screen.  A skin whose bitmaps are
// missing is kept after message 57695: a damaged look is better than no skin.
// Of two skins with one name (compared without case) the first is kept.
// Only the active skin's bitmaps are decoded; the others' headers are read.  The
// active skin is the one named by "Active Skin" under
// HKEY_LOCAL_MACHINE\Software\Talvo\Skins, else the first; a stored name that
// matches no skin is left as it is.
//
// Contract:
// - UI thread only: LoadSkins may show a message box.
// - The main window owns the one list of the program and keeps it until
//   exit; the skin dialog and the display borrow it.  Skins keep their
//   addresses until the next LoadSkins.
// - No skin, or none active, after LoadSkins: the caller shows 57683 and
//   ends the program.
#include "platform/Registry.h"
#include "skins/SkinLayout.h"

#include <QSize>
#include <QString>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class QWidget;

namespace talvo {

class DecodedBitmapCache;

class SkinList {
public:
    static constexpr std::u16string_view kSkinsKey = u"Software\\Talvo\\Skins";
    static constexpr std::u16string_view kActiveSkinValue = u"Active Skin";
    // The folder of the skins inside the program's own folder.
    static constexpr char kSkinsFolder[] = "Skins";

    // Skins loaded later keep their decoded bitmaps in bitmapCache, when given.
    explicit SkinList(Registry& registry, const DecodedBitmapCache* bitmapCache = nullptr)
        : registry_(registry), bitmapCache_(bitmapCache)
    {
    }

    enum class ActiveSkinBitmaps {
        All,
        // Only the stopped screen's background, for a first frame that must
        // come quickly; DecodeActiveSkin decodes the rest.
        FirstFrame,
    };

    // Replaces the list with the skins found for screen (see above); owner
    // owns the 57695 box and may be null.  Returns true.
    bool LoadSkins(const QString& programFolder, QSize screen, QWidget* owner = nullptr,
                   ActiveSkinBitmaps which = ActiveSkinBitmaps::All);
    // Decodes what a FirstFrame load left of the active skin (57695 for data
    // found damaged only now).
    void DecodeActiveSkin(QWidget* owner);

    // Null when there is no active skin.
    SkinLayout* ActiveSkin();
    const SkinLayout* ActiveSkin() const;
    // -1 when there is none.
    int ActiveIndex() const { return activeIndex_; }

    // Makes the skin of that name active and stores its name as "Active
    // Skin", creating the key when needed.  ERROR_FILE_NOT_FOUND, changing
    // nothing, when no skin has that name; otherwise the registry's answer
    // (the skin is active even when the name could not be stored).
    RegStatus SetActiveSkin(std::u16string_view name);

    // The skin of that display name, compared without regard to case; null
    // when none.
    SkinLayout* FindSkin(std::u16string_view name);
    const SkinLayout* FindSkin(std::u16string_view name) const;

    // In list order.
    const std::vector<std::unique_ptr<SkinLayout>>& Skins() const { return skins_; }
    // The screen size of the last LoadSkins (for reloading a layout).
    QSize Screen() const { return screen_; }

    // "Active Skin" as stored, cut to kMaxSkinNameChars; empty when absent.
    std::u16string StoredActiveSkin() const;

private:
    int indexOf(std::u16string_view name) const;
    // The active skin is the one drawn: its bitmaps are decoded as soon as
    // it becomes active.
    void decodeActive(QWidget* owner, ActiveSkinBitmaps which);

    Registry& registry_;
    const DecodedBitmapCache* bitmapCache_;
    std::vector<std::unique_ptr<SkinLayout>> skins_;
    int activeIndex_ = -1;
    QSize screen_;
};

} // namespace talvo
