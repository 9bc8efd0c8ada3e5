#include "SkinCheck.h"

#include "skins/SkinLayout.h"

#include <QProcess>
#include <QRect>
#include <algorithm>

namespace talvo::skincheck {
namespace {

// fc-list answers in well under a second; a hung one must not hang the check.
constexpr int kFontListTimeoutMs = 10000;

QString Q(std::u16string_view text)
{
    return QString::fromStdU16String(std::u16string(text));
}

QString Rect(const SkinRect& rect)
{
    return QStringLiteral("%1,%2-%3,%4").arg(rect.left).arg(rect.top).arg(rect.right).arg(rect.bottom);
}

QString StatusText(SkinBitmapStatus status)
{
    switch (status) {
    case SkinBitmapStatus::Loaded:
        return QStringLiteral("loaded");
    case SkinBitmapStatus::Checked:
        return QStringLiteral("header read, not decoded");
    case SkinBitmapStatus::NotNamed:
        return QStringLiteral("no file named");
    case SkinBitmapStatus::NotFound:
        return QStringLiteral("file not found");
    case SkinBitmapStatus::NotDecodable:
        return QStringLiteral("not a BMP, PNG, JPEG or GIF that can be decoded");
    case SkinBitmapStatus::TooLarge:
        return QStringLiteral("larger than %1 pixels a side or %2 pixels in all")
            .arg(kMaxSkinBitmapSide)
            .arg(kMaxSkinBitmapPixels);
    }
    return {};
}

class Checker {
public:
    Checker(SkinCheckReport& report, const std::optional<QStringList>& fonts) : report_(report), fonts_(fonts)
    {
    }

    void Error(const QString& text) { report_.lines << QStringLiteral("error: ") + text, ++errors_; }
    void Warning(const QString& text) { report_.lines << QStringLiteral("warning: ") + text, ++warnings_; }

    // One resolution: false when the player would skip the skin on it.
    bool CheckLayout(SkinLayout& layout, QSize screen)
    {
        const SkinLoadResult result = layout.LoadLayout(screen);
        const std::optional<SkinResolution> chosen = ChooseResolution(layout.ini, screen);
        if (!chosen) {
            Error(QStringLiteral("no resolution the skin offers fits a %1x%2 screen")
                      .arg(screen.width())
                      .arg(screen.height()));
            return false;
        }
        const QString suffix = Q(chosen->suffix);
        if (result == SkinLoadResult::Fails) {
            const int before = errors_;
            for (const SkinButtonDef& button : kSkinButtons) {
                const std::u16string section = std::u16string(button.element) + chosen->suffix;
                const auto missing = SkinLayout::MissingRectangleKeys(layout.ini, section);
                QStringList keys;
                for (std::u16string_view key : missing)
                    keys << Q(key);
                if (!keys.isEmpty())
                    Error(QStringLiteral("[%1] has no %2: the skin is skipped on %3 screens")
                              .arg(Q(section), keys.join(QStringLiteral(", ")), suffix));
            }
            if (errors_ == before)
                Error(QStringLiteral("the %1 bitmaps cannot be prepared for drawing (out of memory?)")
                          .arg(suffix));
            return false;
        }
        const QRect screenArea(0, 0, chosen->width, chosen->height);
        for (std::size_t i = 0; i < kSkinBitmapCount; ++i) {
            const SkinBitmapFile& bitmap = layout.bitmaps[i];
            const QString key = Q(kSkinBitmapKeys[i]) + suffix;
            if (bitmap.status != SkinBitmapStatus::Loaded)
                Error(QStringLiteral("%1=%2: %3").arg(key, Q(bitmap.fileName), StatusText(bitmap.status)));
            else if (bitmap.image.size() != screenArea.size())
                Warning(QStringLiteral("%1=%2 is %3x%4, not the layout's %5x%6")
                            .arg(key, Q(bitmap.fileName))
                            .arg(bitmap.image.width())
                            .arg(bitmap.image.height())
                            .arg(chosen->width)
                            .arg(chosen->height));
        }
        for (std::size_t i = 0; i < kSkinButtonCount; ++i) {
            CheckArea(Q(kSkinButtons[i].element) + suffix, layout.pausedButtons[i].rect, screenArea, true);
        }
        const std::pair<std::u16string_view, const SkinRect*> areas[] = {
            {SkinElement::ElapsedTimeWindow, &layout.elapsedTime.rect},
            {SkinElement::CurrentTime, &layout.currentTime.rect},
            {SkinElement::TotalTime, &layout.totalTime.rect},
            {SkinElement::ProgramTitleWindow, &layout.programTitle.rect},
            {SkinElement::SectionWindow, &layout.section.rect},
            {SkinElement::PartialContentWindow, &layout.partialContent.rect},
            {SkinElement::BookCover, &layout.bookCover},
        };
        for (const auto& [element, rect] : areas)
            CheckArea(Q(element) + suffix, *rect, screenArea, false);
        const std::pair<const char*, const std::optional<SkinFont>*> fonts[] = {
            {"elapsed-time font", &layout.elapsedTimeFont.font},
            {"total-time font", &layout.totalTimeFont.font},
            {"program title font", &layout.programTitleFont},
            {"volume label font", &layout.volumeFont},
        };
        for (const auto& [what, font] : fonts)
            CheckFont(QLatin1String(what), *font);
        const std::u16string volume = std::u16string(SkinElement::Volume) + chosen->suffix;
        if (layout.volumeFont &&
            layout.ini.GetString(volume, SkinKey::Name, IniFile::kDefaultMarker) == IniFile::kDefaultMarker)
            report_.lines << QStringLiteral("note: [%1] has no Name: the volume label uses \"%2\"")
                                 .arg(Q(volume), Q(layout.volumeFont->face));
        return true;
    }

    void Summarise(const SkinLayout& layout, const QStringList& fitting)
    {
        QString text = report_.usable ? QStringLiteral("\"%1\" is usable on %2")
                                            .arg(Q(layout.name), fitting.join(QStringLiteral(", ")))
                                      : QStringLiteral("the player skips this skin");
        text += QStringLiteral(" (errors: %1, warnings: %2)").arg(errors_).arg(warnings_);
        report_.lines << text;
    }

private:
    void CheckArea(const QString& section, const SkinRect& rect, const QRect& screenArea, bool isButton)
    {
        if (rect.IsEmpty()) {
            if (isButton)
                Warning(QStringLiteral("[%1] has an empty rectangle: the button can never be pressed")
                            .arg(section));
            return;
        }
        if (!screenArea.contains(rect.ToQRect()))
            Warning(QStringLiteral("[%1] %2 is not inside the %3x%4 layout")
                        .arg(section, Rect(rect))
                        .arg(screenArea.width())
                        .arg(screenArea.height()));
    }

    void CheckFont(const QString& what, const std::optional<SkinFont>& font)
    {
        if (!font || !fonts_)
            return;
        const QString face = Q(font->face);
        if (!fonts_->contains(face, Qt::CaseInsensitive))
            Warning(QStringLiteral("the %1 \"%2\" is not installed: a substitute is drawn").arg(what, face));
    }

    SkinCheckReport& report_;
    const std::optional<QStringList>& fonts_;
    int errors_ = 0;
    int warnings_ = 0;
};

} // namespace

SkinCheckReport CheckSkin(const QString& iniPath, std::optional<QSize> screen,
                          const std::optional<QStringList>& installedFonts)
{
    SkinCheckReport report;
    Checker check(report, installedFonts);
    SkinLayout layout(iniPath);
    if (!layout.ini.Load(iniPath.toStdU16String())) {
        check.Error(QStringLiteral("cannot be read (missing, empty, unreadable or larger than %1 bytes)")
                        .arg(IniFile::kMaxFileBytes));
        check.Summarise(layout, {});
        return report;
    }
    layout.name = SkinLayout::ReadName(layout.ini);
    if (layout.name.empty()) {
        check.Error(QStringLiteral("[Skin] has no Name (is every line ended with a carriage return?)"));
        check.Summarise(layout, {});
        return report;
    }
    std::vector<QSize> screens;
    if (screen) {
        screens.push_back(*screen);
    } else {
        for (const SkinResolution& offer : OfferedResolutions(layout.ini)) {
            const QSize size(offer.width, offer.height);
            if (std::find(screens.begin(), screens.end(), size) == screens.end())
                screens.push_back(size);
        }
        if (screens.empty())
            check.Error(QStringLiteral("[Skin] offers no resolution (no key like Background240X320)"));
    }
    QStringList fitting;
    bool all = !screens.empty();
    for (QSize size : screens) {
        if (check.CheckLayout(layout, size))
            fitting << Q(layout.resolution.suffix);
        else
            all = false;
    }
    report.usable = all;
    check.Summarise(layout, fitting);
    return report;
}

std::optional<QStringList> InstalledFontFamilies()
{
    QProcess list;
    list.start(QStringLiteral("fc-list"), {QStringLiteral(":"), QStringLiteral("family")});
    if (!list.waitForFinished(kFontListTimeoutMs) || list.exitStatus() != QProcess::NormalExit ||
        list.exitCode() != 0)
        return std::nullopt;
    // One font per line; a font with several names lists them comma-separated.
    QStringList families;
    for (const QString& line : QString::fromUtf8(list.readAllStandardOutput()).split(QLatin1Char('\n')))
        for (const QString& family : line.split(QLatin1Char(',')))
            if (!family.trimmed().isEmpty())
                families << family.trimmed();
    families.removeDuplicates();
    return families;
}

} // namespace talvo::skincheck
