// Writes a PNG of the main screen for every shipped skin at each of its
// layouts (stopped, playing, a button held, the volume shown) and of the skin
// dialog in both layouts, of a program's details page with and without its
// cover and of the program list, full and empty, in both layouts, and of the
// feldrun window with a download under way and its subscribe dialog, so that
// a person can look at what listeners see.
//
//     talvo-screenshots OUTPUT-FOLDER MUSIC-FOLDER
//
// Runs offscreen on a private device in a temporary folder; MUSIC-FOLDER holds
// the programs to show (the demo library).
#include "FeldrunScreens.h"
#include "ScreenCapture.h"
#include "TalvoVersion.h"
#include "app/CMainFrame.h"
#include "app/InfoScreens.h"
#include "base/CommandIds.h"
#include "base/StringTable.h"
#include "library/BookmarkDialogs.h"
#include "library/ProgramDetailsDialog.h"
#include "library/ProgramDetailsPage.h"
#include "library/ProgramListDialog.h"
#include "platform/Registry.h"
#include "playback/ProgramFile.h"
#include "settings/PreferencesDialog.h"
#include "settings/SettingsStore.h"
#include "skins/SkinDialog.h"
#include "skins/SkinResolution.h"
#include "skins/SkinnedDisplay.h"

#include <QApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QMenu>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>
#include <cstring>

using namespace talvo;

namespace {

constexpr std::uint32_t kShownPositionMs = 12000;

using screenshots::save;
using screenshots::settle;

QString slug(const std::u16string& name)
{
    return QString::fromStdU16String(name).toLower().replace(QLatin1Char(' '), QLatin1Char('-'));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::puts("talvo-screenshots " TALVO_VERSION_TEXT);
        return 0;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    if (argc != 3) {
        std::fprintf(stderr, "usage: talvo-screenshots OUTPUT-FOLDER MUSIC-FOLDER\n");
        return 2;
    }
    const QString out = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(out);
    QTemporaryDir device;
    qputenv("TALVOPLAYER_REGISTRY", QFile::encodeName(device.filePath("registry.db")));
    qputenv("TALVOPLAYER_HOME", QFile::encodeName(device.path()));
    qputenv("TALVOPLAYER_MUSIC", argv[2]);
    qputenv("TALVOPLAYER_CARDS", "");
    qputenv("TALVOPLAYER_MESSAGES", QFile::encodeName(device.filePath("messages.log")));
    std::unique_ptr<Registry> registry = OpenSqliteRegistry(device.filePath("registry.db").toStdString());
    if (!registry)
        return 1;
    const QString programFolder = QCoreApplication::applicationDirPath();
    const auto makeWaveOut = [] {
        return CreateWaveOut("null");
    };
    int failures = 0;

    // Each skin, at each layout it offers.
    SkinList skins(*registry);
    skins.LoadSkins(programFolder, QSize(100000, 100000));
    for (const auto& skin : skins.Skins()) {
        for (const SkinResolution& resolution : OfferedResolutions(skin->ini)) {
            const QString size = QStringLiteral("%1x%2").arg(resolution.width).arg(resolution.height);
            qputenv("TALVOPLAYER_SCREEN", size.toLatin1());
            CMainFrame frame({*registry, programFolder, QString(), makeWaveOut});
            if (!frame.HasSkin() || frame.Skins().SetActiveSkin(skin->name) != ERROR_SUCCESS)
                continue;
            frame.SendCommand(Command::ResetSkin);
            frame.show();
            settle(300);
            // A program part way through, the same in every picture.
            if (ProgramFile* program = frame.Library().Current()) {
                program->Seek(kShownPositionMs);
                frame.RedrawPosition();
            }
            SkinnedDisplay& display = frame.Display();
            display.resize(display.sizeHint());
            const QString base = out + QLatin1Char('/') + slug(skin->name) + QLatin1Char('-') + size;
            failures += !save(display, base + "-stopped.png");
            frame.SendCommand(Command::PlayStop);
            settle();
            failures += !save(display, base + "-playing.png");
            frame.DrawButton(Command::FastForward1min, true);
            failures += !save(display, base + "-pressed.png");
            frame.DrawButton(Command::FastForward1min, false);
            frame.ShowVolumeIndicator(true);
            failures += !save(display, base + "-volume.png");
            frame.SendCommand(Command::PlayStop);
            frame.close();
        }
    }

    // The listening aids: the display with a speed and a sleep timer, the
    // menus that set them, and Preferences in both layouts.
    {
        qputenv("TALVOPLAYER_SCREEN", "480x640");
        CMainFrame frame({*registry, programFolder, QString(), makeWaveOut});
        frame.show();
        settle(300);
        if (ProgramFile* program = frame.Library().Current()) {
            program->Seek(kShownPositionMs);
            frame.RedrawPosition();
        }
        frame.SendCommand(Command::SpeedBase + 15);
        frame.SendCommand(Command::SleepBase + 30);
        frame.SendCommand(Command::PlayStop);
        settle();
        SkinnedDisplay& display = frame.Display();
        display.resize(display.sizeHint());
        failures += !save(display, out + "/listening-playing.png");
        frame.SendCommand(Command::PlayStop);
        frame.SendCommand(Command::SleepOff);
        frame.SendCommand(Command::SpeedBase + 10);
        const auto saveMenu = [&](QMenu* menu, const QString& name) {
            menu->popup(QPoint(0, 0));
            settle();
            failures += !save(*menu, out + "/" + name);
            menu->hide();
        };
        for (QPushButton* key : frame.findChildren<QPushButton*>()) {
            if (key->menu())
                saveMenu(key->menu(), QStringLiteral("menu-softkey.png"));
        }
        // The soft-key menu and the full menu share their listening submenus' look.
        const std::pair<int, const char*> submenus[] = {{Str::MenuListening, "menu-listening.png"},
                                                        {Str::MenuSpeed, "menu-speed.png"},
                                                        {Str::MenuSleepTimer, "menu-sleep-timer.png"}};
        for (auto [title, name] : submenus) {
            for (QMenu* menu : frame.findChildren<QMenu*>()) {
                if (menu->title() == LoadString(title)) {
                    saveMenu(menu, QString::fromLatin1(name));
                    break;
                }
            }
        }
        frame.close();
        SettingsStore settings(*registry);
        for (int platform : {0, 1}) {
            PreferencesDialog dialog(settings, platform, 5);
            dialog.setWindowState(Qt::WindowNoState);
            dialog.resize(platform == 1 ? QSize(240, 320) : QSize(480, 640));
            dialog.show();
            settle();
            failures +=
                !save(dialog, out + (platform == 1 ? "/preferences-smartphone.png" : "/preferences.png"));
            dialog.reject();
        }
    }

    // The skin dialog in both layouts.
    qputenv("TALVOPLAYER_SCREEN", "480x640");
    skins.LoadSkins(programFolder, QSize(480, 640));
    MessageWindow window;
    for (bool keyLayout : {false, true}) {
        SkinDialog dialog(skins, window, keyLayout);
        dialog.resize(keyLayout ? QSize(240, 320) : QSize(480, 640));
        dialog.Select(1);
        dialog.show();
        settle();
        failures += !save(dialog, out + (keyLayout ? "/skin-dialog-smartphone.png" : "/skin-dialog.png"));
        dialog.reject();
    }

    // A program's details page, with its cover and without one.
    QDirIterator found(QString::fromLocal8Bit(argv[2]), {"*.zq", "*.zqx"}, QDir::Files,
                       QDirIterator::Subdirectories);
    if (found.hasNext()) {
        ProgramFile program(found.next());
        if (program.ReadMetadata() == ZQX_OK) {
            ProgramDetails details = GatherProgramDetails(program);
            for (bool withCover : {true, false}) {
                if (!withCover)
                    details.cover.clear();
                DetailsPageFiles files;
                failures += !WriteDetailsPage(details, program.Key(), device.path(), &files);
                ProgramDetailsDialog dialog(files.page);
                dialog.show();
                settle();
                failures += !save(dialog, out + (withCover ? "/details.png" : "/details-no-cover.png"));
            }
        }
    }

    // The program list with the demo library and with none, Pocket PC (tall and
    // wide) and Smartphone.
    for (bool empty : {false, true}) {
        QTemporaryDir nothing;
        qputenv("TALVOPLAYER_MUSIC", empty ? QFile::encodeName(nothing.path()) : QByteArray(argv[2]));
        CMainFrame frame({*registry, programFolder, QString(), makeWaveOut});
        const std::pair<int, const char*> layouts[] = {{kListTemplatePocketPc, ""},
                                                       {kListTemplatePocketPcWide, "-wide"},
                                                       {kListTemplateSmartphone, "-smartphone"}};
        for (auto [layout, suffix] : layouts) {
            ProgramListDialog dialog(frame.Library(), programFolder, layout);
            dialog.setWindowState(Qt::WindowNoState);
            dialog.resize(layout == kListTemplateSmartphone     ? QSize(240, 320)
                          : layout == kListTemplatePocketPcWide ? QSize(640, 480)
                                                                : QSize(480, 640));
            dialog.show();
            settle();
            failures += !save(dialog, out + QStringLiteral("/program-list%1%2.png")
                                                .arg(QLatin1String(suffix))
                                                .arg(empty ? "-empty" : ""));
            dialog.reject();
        }
        frame.close();
    }
    // The shell's own screens: welcome, About, help and the bookmark dialogs.
    {
        QDialog* welcome = ShowWelcome(programFolder, nullptr);
        settle();
        failures += !save(*welcome, out + "/welcome.png");
        welcome->close();
        const auto grabModal = [&](const QString& name) {
            QTimer::singleShot(200, [&failures, name, out] {
                if (auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget())) {
                    failures += !save(*dialog, out + "/" + name);
                    dialog->accept();
                }
            });
        };
        grabModal(QStringLiteral("about.png"));
        ShowAbout(nullptr);
        grabModal(QStringLiteral("help.png"));
        ShowHelp(programFolder, nullptr);
        for (bool keyLayout : {false, true}) {
            BookmarkListDialog list({{u"Opening", 5000}, {u"The storm", 61000}, {u"Chapter 3", 1832000}},
                                    keyLayout);
            list.SelectRow(1);
            list.show();
            settle();
            failures += !save(list, out + (keyLayout ? "/bookmarks-smartphone.png" : "/bookmarks.png"));
        }
        BookmarkNameDialog name(Str::AddBookmarkCaption, LoadString(Str::NewBookmark), 61000, false);
        name.show();
        settle();
        failures += !save(name, out + "/bookmark-name.png");
    }
    failures += SaveFeldrunScreens(*registry, device.path(), out);
    return failures == 0 ? 0 : 1;
}
