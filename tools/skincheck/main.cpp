// skincheck [--screen WxH] FILE.ini: checks a skin the way the player loads
// it and says line by line what is wrong.  Exit status 0 when the player would
// use the skin, 1 when it would skip it, 2 for a wrong command line.
#include "SkinCheck.h"

#include "TalvoVersion.h"
#include "skins/ScreenSizeOverride.h"

#include <QCoreApplication>
#include <QStringList>
#include <cstdio>

namespace {

constexpr int kUsable = 0;
constexpr int kSkipped = 1;
constexpr int kUsage = 2;

int Usage()
{
    std::fprintf(stderr, "usage: skincheck [--screen WxH] FILE.ini\n"
                         "  checks a skin for one screen size, or for each resolution it offers\n");
    return kUsage;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList arguments = app.arguments().mid(1);
    if (arguments == QStringList{QStringLiteral("--version")}) {
        std::puts("skincheck " TALVO_VERSION_TEXT);
        return kUsable;
    }
    std::optional<QSize> screen;
    QString file;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        if (argument == QLatin1String("--screen") && i + 1 < arguments.size()) {
            screen = talvo::ParseScreenSize(arguments[++i]);
            if (!screen)
                return Usage();
        } else if (argument.startsWith(QLatin1String("--screen="))) {
            screen = talvo::ParseScreenSize(QStringView(argument).mid(9));
            if (!screen)
                return Usage();
        } else if (argument.startsWith(QLatin1Char('-')) || !file.isEmpty()) {
            return Usage();
        } else {
            file = argument;
        }
    }
    if (file.isEmpty())
        return Usage();

    const std::optional<QStringList> fonts = talvo::skincheck::InstalledFontFamilies();
    const talvo::skincheck::SkinCheckReport report = talvo::skincheck::CheckSkin(file, screen, fonts);
    const QByteArray prefix = file.toLocal8Bit() + ": ";
    for (const QString& line : report.lines)
        std::printf("%s%s\n", prefix.constData(), line.toLocal8Bit().constData());
    if (!fonts)
        std::printf("%sfonts not checked: fc-list did not answer\n", prefix.constData());
    return report.usable ? kUsable : kSkipped;
}
