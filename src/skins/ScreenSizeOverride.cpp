#include "skins/ScreenSizeOverride.h"

#include <QString>

namespace talvo {
namespace {

// A positive decimal without sign or blanks, at most kMaxScreenSide.
std::optional<int> ParseSide(QStringView text)
{
    if (text.isEmpty() || text.size() > 5)
        return std::nullopt;
    int value = 0;
    for (QChar c : text) {
        if (c < u'0' || c > u'9')
            return std::nullopt;
        value = value * 10 + (c.unicode() - u'0');
    }
    if (value <= 0 || value > kMaxScreenSide)
        return std::nullopt;
    return value;
}

} // namespace

std::optional<QSize> ParseScreenSize(QStringView text)
{
    qsizetype x = text.indexOf(u'x');
    if (x < 0)
        x = text.indexOf(u'X');
    if (x < 0)
        return std::nullopt;
    const std::optional<int> width = ParseSide(text.left(x));
    const std::optional<int> height = ParseSide(text.mid(x + 1));
    if (!width || !height)
        return std::nullopt;
    return QSize(*width, *height);
}

std::optional<QSize> ScreenSizeFromEnvironment()
{
    const QString value = qEnvironmentVariable("TALVOPLAYER_SCREEN");
    if (value.isEmpty())
        return std::nullopt;
    return ParseScreenSize(value);
}

} // namespace talvo
