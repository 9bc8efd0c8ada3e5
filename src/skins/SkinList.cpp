#include "skins/SkinList.h"

#include "base/StringTable.h"
#include "platform/MessageBox.h"

#include <QDir>
#include <array>

namespace talvo {
namespace {

bool SameName(std::u16string_view a, std::u16string_view b)
{
    return QStringView(a).compare(QStringView(b), Qt::CaseInsensitive) == 0;
}

QString Text(int id)
{
    const std::string_view text = StringText(id);
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace

std::u16string SkinList::StoredActiveSkin() const
{
    HKEY key = 0;
    if (registry_.OpenKey(HKEY_LOCAL_MACHINE, kSkinsKey, KEY_READ, &key) != ERROR_SUCCESS)
        return {};
    // Room for the longest name and its terminator; a longer value reads as absent.
    std::array<std::uint8_t, (kMaxSkinNameChars + 1) * 2> data{};
    DWORD type = REG_NONE;
    DWORD size = static_cast<DWORD>(data.size());
    const RegStatus status = registry_.QueryValue(key, kActiveSkinValue, &type, data.data(), &size);
    registry_.CloseKey(key);
    if (status != ERROR_SUCCESS || type != REG_SZ)
        return {};
    return RegSzText(data.data(), size);
}

bool SkinList::LoadSkins(const QString& programFolder, QSize screen, QWidget* owner, ActiveSkinBitmaps which)
{
    skins_.clear();
    activeIndex_ = -1;
    screen_ = screen;
    const std::u16string remembered = StoredActiveSkin();

    const QDir folder(QDir(programFolder).filePath(QString::fromLatin1(kSkinsFolder)));
    // Sorted by file name, so every machine finds the same skin first.
    const QStringList files =
        folder.entryList({QStringLiteral("*.ini")}, QDir::Files | QDir::Readable, QDir::Name);
    for (const QString& file : files) {
        auto skin = std::make_unique<SkinLayout>(folder.filePath(file));
        skin->bitmapCache = bitmapCache_;
        if (!skin->ini.Load(skin->iniPath.toStdU16String()))
            continue;
        skin->name = SkinLayout::ReadName(skin->ini);
        if (skin->name.empty())
            continue;
        // Only the active skin is drawn: the others' bitmaps are checked from
        // their headers and decoded when one of them is chosen.
        const SkinLoadResult result = skin->LoadLayout(screen, SkinBitmapLoading::HeaderOnly);
        if (result == SkinLoadResult::Fails)
            continue;
        if (result == SkinLoadResult::GraphicsMissing)
            ShowMessageBox(owner, Text(Str::GraphicsMissing), Text(Str::ErrorCaption), kErrorBoxStyle);
        if (indexOf(skin->name) >= 0)
            continue;
        if (activeIndex_ < 0 && !remembered.empty() && SameName(skin->name, remembered))
            activeIndex_ = static_cast<int>(skins_.size());
        skins_.push_back(std::move(skin));
    }
    if (activeIndex_ < 0 && !skins_.empty())
        activeIndex_ = 0;
    decodeActive(owner, which);
    return true;
}

void SkinList::DecodeActiveSkin(QWidget* owner)
{
    decodeActive(owner, ActiveSkinBitmaps::All);
}

void SkinList::decodeActive(QWidget* owner, ActiveSkinBitmaps which)
{
    SkinLayout* skin = ActiveSkin();
    if (!skin || skin->AreBitmapsDecoded())
        return;
    // A bitmap whose header was sound but whose data is not gets the box now,
    // as it would have had when it was read whole.
    const bool lookedComplete = !skin->MissesBitmaps();
    if (which == ActiveSkinBitmaps::FirstFrame)
        skin->DecodeBitmap(SkinBitmap::Background);
    else
        skin->DecodeBitmaps();
    if (lookedComplete && skin->MissesBitmaps())
        ShowMessageBox(owner, Text(Str::GraphicsMissing), Text(Str::ErrorCaption), kErrorBoxStyle);
}

SkinLayout* SkinList::ActiveSkin()
{
    return activeIndex_ >= 0 ? skins_[static_cast<std::size_t>(activeIndex_)].get() : nullptr;
}

const SkinLayout* SkinList::ActiveSkin() const
{
    return activeIndex_ >= 0 ? skins_[static_cast<std::size_t>(activeIndex_)].get() : nullptr;
}

RegStatus SkinList::SetActiveSkin(std::u16string_view name)
{
    const int index = indexOf(name);
    if (index < 0)
        return ERROR_FILE_NOT_FOUND;
    activeIndex_ = index;
    decodeActive(nullptr, ActiveSkinBitmaps::All);
    HKEY key = 0;
    RegStatus status = registry_.CreateKey(HKEY_LOCAL_MACHINE, kSkinsKey, KEY_ALL_ACCESS, &key);
    if (status != ERROR_SUCCESS)
        return status;
    // The skin's own spelling, whatever case the caller used.
    const std::vector<std::uint8_t> bytes = RegSzBytes(skins_[static_cast<std::size_t>(index)]->name);
    status =
        registry_.SetValue(key, kActiveSkinValue, REG_SZ, bytes.data(), static_cast<DWORD>(bytes.size()));
    registry_.CloseKey(key);
    return status;
}

SkinLayout* SkinList::FindSkin(std::u16string_view name)
{
    const int index = indexOf(name);
    return index >= 0 ? skins_[static_cast<std::size_t>(index)].get() : nullptr;
}

const SkinLayout* SkinList::FindSkin(std::u16string_view name) const
{
    const int index = indexOf(name);
    return index >= 0 ? skins_[static_cast<std::size_t>(index)].get() : nullptr;
}

int SkinList::indexOf(std::u16string_view name) const
{
    for (std::size_t i = 0; i < skins_.size(); ++i) {
        if (SameName(skins_[i]->name, name))
            return static_cast<int>(i);
    }
    return -1;
}

} // namespace talvo
