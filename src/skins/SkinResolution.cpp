#include "skins/SkinResolution.h"

#include "skins/SkinElements.h"

#include <string>

namespace talvo {
namespace {

std::u16string Suffix(std::int32_t width, std::int32_t height)
{
    const std::string text = std::to_string(width) + "X" + std::to_string(height);
    return std::u16string(text.begin(), text.end());
}

} // namespace

std::vector<SkinResolution> OfferedResolutions(const IniFile& ini)
{
    std::vector<SkinResolution> offers;
    for (const IniFile::Entry& entry : ini.GetKeys(SkinKey::SkinSection)) {
        if (!entry.key.starts_with(SkinKey::ResolutionPrefix))
            continue;
        const std::u16string_view rest =
            std::u16string_view(entry.key).substr(SkinKey::ResolutionPrefix.size());
        const std::size_t x = rest.find(u'X');
        if (x == std::u16string_view::npos)
            continue;
        const std::int32_t width = IniFile::ParseDecimal(rest.substr(0, x));
        const std::int32_t height = IniFile::ParseDecimal(rest.substr(x + 1));
        if (width <= 0 || height <= 0)
            continue;
        offers.push_back({width, height, Suffix(width, height)});
    }
    return offers;
}

std::optional<SkinResolution> ChooseResolution(const IniFile& ini, QSize screen)
{
    const std::vector<SkinResolution> offers = OfferedResolutions(ini);
    for (const SkinResolution& offer : offers) {
        if (offer.width == screen.width() && offer.height == screen.height())
            return offer;
    }
    for (const SkinResolution& offer : offers) {
        if (offer.width <= screen.width() && offer.height <= screen.height())
            return offer;
    }
    return std::nullopt;
}

} // namespace talvo
