#pragma once
// skincheck's verdict on one skin file: the lines it prints and whether the
// player would keep the skin.  It loads the skin exactly as the player does
// (talvo_skins) and then looks at what the player would quietly put up with.
#include <QSize>
#include <QString>
#include <QStringList>
#include <optional>

namespace talvo::skincheck {

struct SkinCheckReport {
    // "error: ..." for what makes the player skip the skin or lose a bitmap,
    // "warning: ..." for what it would show oddly; then one summary line.
    QStringList lines;
    // False when the player would skip the skin (for the given screen, or
    // for any resolution the skin offers when none is given).
    bool usable = false;
};

// installedFonts: the font families of the machine, compared without case;
// nullopt leaves fonts unchecked.
SkinCheckReport CheckSkin(const QString& iniPath, std::optional<QSize> screen,
                          const std::optional<QStringList>& installedFonts);

// The families fontconfig knows (fc-list), nullopt when it cannot be asked.
std::optional<QStringList> InstalledFontFamilies();

} // namespace talvo::skincheck
