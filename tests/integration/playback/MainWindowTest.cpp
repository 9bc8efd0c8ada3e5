// The main window's handling of messages from devices and other processes.
#include "PlayerFixture.h"

#include "app/FileAssociation.h"
#include "app/InfoScreens.h"
#include "base/CommandIds.h"
#include "skins/SkinnedDisplay.h"

#include <QApplication>
#include <QDialog>
#include <QKeyEvent>
#include <QLabel>
#include <QSlider>
#include <QTextBrowser>
#include <QTimer>
#include <sqlite3.h>

namespace talvo::test {
namespace {

using MainWindow = PlayerFixture;

// Counts the programs listed when the window is first drawn.
class FirstPaintWatcher final : public QObject {
public:
    explicit FirstPaintWatcher(CMainFrame& frame) : frame_(frame) { frame.installEventFilter(this); }
    int listedAtFirstPaint = -1;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Paint && listedAtFirstPaint < 0)
            listedAtFirstPaint = frame_.Library().Count();
        return QObject::eventFilter(watched, event);
    }

private:
    CMainFrame& frame_;
};

TEST_F(MainWindow, AShownWindowIsDrawnBeforeItsInitialLoadScansTheLibrary)
{
    WritePcmProgram(musicPath("Author/A/a.zq"), "a", 10);
    WritePcmProgram(musicPath("Author/B/b.zq"), "b", 10);
    frame_ = std::make_unique<CMainFrame>(
        CMainFrame::Environment{*registry_, device_.path("app"), QString(), [] {
                                    return std::unique_ptr<WaveOut>(new ManualWaveOut);
                                }});
    FirstPaintWatcher watcher(*frame_);
    frame_->resize(480, 640);
    frame_->show();
    ASSERT_TRUE(pump([&] { return frame_->Library().Count() == 2; }));
    EXPECT_EQ(watcher.listedAtFirstPaint, 0);
    frame_->hide();
}

TEST_F(MainWindow, StorageCardsComingAndGoingWhilePlayingRescanAndPlayOn)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 60);
    const QString card = device_.path("Storage Card");
    WritePcmProgram(card + "/card.zq", "card", 60);
    startPlayer();
    frame_->SendCommand(Command::PlayStop);
    ASSERT_TRUE(frame_->Audio().IsPlaying());

    device_.set("TALVOPLAYER_CARDS", card);
    frame_->SendMessage(Message::StorageChange, 32);
    ASSERT_TRUE(pump([&] { return frame_->Audio().IsPlaying(); }));
    EXPECT_EQ(frame_->Library().Count(), 2);
    EXPECT_EQ(QFileInfo(current().path).fileName(), "book.zq");

    device_.set("TALVOPLAYER_CARDS", "");
    frame_->SendMessage(Message::StorageChange, 64);
    ASSERT_TRUE(pump([&] { return frame_->Audio().IsPlaying(); }));
    EXPECT_EQ(frame_->Library().Count(), 1);

    // Other notices are not about storage.
    frame_->SendMessage(Message::StorageChange, 1);
    EXPECT_TRUE(frame_->Audio().IsPlaying());
}

TEST_F(MainWindow, CopyDataCarriesOnlyTheThreeHandOverMessages)
{
    WritePcmProgram(musicPath("Author/A/a.zq"), "a", 30);
    const QString b = WritePcmProgram(musicPath("Author/B/b.zq"), "b", 30);
    startPlayer();
    std::u16string path = b.toStdU16String();
    COPYDATASTRUCT other{1234, static_cast<std::uint32_t>((path.size() + 1) * 2), path.c_str()};
    EXPECT_EQ(frame_->SendMessage(WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&other)), 0);
    EXPECT_EQ(frame_->Library().CurrentIndex(), 0);
    EXPECT_FALSE(frame_->Audio().IsPlaying());

    COPYDATASTRUCT open{Message::OpenProgramFile, other.cbData, path.c_str()};
    EXPECT_EQ(frame_->SendMessage(WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&open)), 1);
    EXPECT_EQ(current().path, b);
    EXPECT_TRUE(frame_->Audio().IsPlaying());
}

TEST_F(MainWindow, SyncAddAndDeleteKeepTheListenerOnTheirProgram)
{
    const QString a = WritePcmProgram(musicPath("Author/A/a.zq"), "a", 60);
    startPlayer();
    frame_->SendCommand(Command::PlayStop);

    // A program copied to the device while the player runs is found and selected.
    const QString b = WritePcmProgram(musicPath("Author/B/b.zq"), "b", 60);
    std::u16string added = b.toStdU16String();
    frame_->SendMessage(Message::SyncAddProgram, 0, reinterpret_cast<LPARAM>(added.c_str()));
    EXPECT_EQ(frame_->Library().Count(), 2);
    EXPECT_EQ(current().path, b);
    EXPECT_FALSE(frame_->Audio().IsPlaying());

    // Deleting another program keeps the current one playing.
    frame_->SendCommand(Command::PlayStop);
    std::u16string removed = a.toStdU16String();
    frame_->SendMessage(Message::SyncDeleteProgram, 0, reinterpret_cast<LPARAM>(removed.c_str()));
    EXPECT_FALSE(QFile::exists(a));
    EXPECT_EQ(frame_->Library().IndexOfPath(a), -1);
    EXPECT_EQ(current().path, b);
    EXPECT_TRUE(frame_->Audio().IsPlaying());

    // Deleting the current program stops it.
    std::u16string current = b.toStdU16String();
    frame_->SendMessage(Message::SyncDeleteProgram, 0, reinterpret_cast<LPARAM>(current.c_str()));
    EXPECT_FALSE(QFile::exists(b));
    EXPECT_EQ(frame_->Library().Count(), 0);
    EXPECT_FALSE(frame_->Audio().IsPlaying());
}

TEST_F(MainWindow, IgnoresBookmarksBeyondTheListAndReservedCommands)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 60);
    startPlayer();
    current().bookmarks = {{u"Here", 30000}};
    frame_->SendCommand(Command::BookmarkFirst + 1);
    EXPECT_EQ(current().Position(), 0u);
    frame_->SendCommand(Command::BookmarkFirst);
    EXPECT_EQ(current().Position(), 30000u);

    frame_->SendCommand(Command::PlayStopReleased);
    frame_->SendCommand(Command::Reserved);
    pump();
    EXPECT_FALSE(frame_->Audio().IsPlaying());
    frame_->SendCommand(Command::PlayStopPressed);
    pump();
    EXPECT_TRUE(frame_->Audio().IsPlaying());
}

TEST_F(MainWindow, RemoteControlRewindCodeStartsTheForwardScan)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 60);
    startPlayer();
    std::uint8_t record[24] = {};
    record[4] = 72;
    frame_->SendMessage(Message::RemoteControlKey, 0, reinterpret_cast<LPARAM>(record));
    EXPECT_TRUE(frame_->IsTimerRunning(Timer::FastForwardHold));
    EXPECT_EQ(current().Position(), 1000u);
    record[4] = 203;
    frame_->SendMessage(Message::RemoteControlKey, 0, reinterpret_cast<LPARAM>(record));
    EXPECT_FALSE(frame_->IsTimerRunning(Timer::FastForwardHold));
}

TEST_F(MainWindow, EachVolumeSliderMoveInPreferencesAppliesTheVolumeOnce)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 60);
    startPlayer();
    frame_->SendCommand(Command::PlayStop);
    const int before = manual_->VolumeSetCount();
    QTimer::singleShot(0, [] {
        QWidget* dialog = QApplication::activeModalWidget();
        ASSERT_NE(dialog, nullptr);
        dialog->findChild<QSlider*>("volumeSlider")->setValue(70);
        QCoreApplication::processEvents();
        dialog->close();
    });
    frame_->SendCommand(Command::Preferences);
    pump();
    EXPECT_EQ(manual_->VolumeSetCount() - before, 1);
    DWORD volume = 0;
    manual_->GetVolume(&volume);
    EXPECT_EQ(volume, 45874u * 0x10001u);
}

TEST_F(MainWindow, APositionUpdateRecomposesOnlyTheTimesAndTheSection)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 60, {0, 30000});
    startPlayer();
    SkinnedDisplay& display = frame_->Display();
    const SkinLayout& skin = *display.Skin();
    const QRect times =
        skin.elapsedTime.rect.ToQRect() | skin.currentTime.rect.ToQRect() | skin.totalTime.rect.ToQRect();
    const QRect section = skin.section.rect.ToQRect();
    const QImage before = display.Composed().copy();
    display.TakeComposedRegion();

    frame_->SendCommand(Command::UpdatePosition); // same position and section: nothing to draw
    EXPECT_TRUE(display.TakeComposedRegion().isEmpty());
    current().Seek(31000);
    frame_->SendCommand(Command::UpdatePosition);
    EXPECT_EQ(display.TakeComposedRegion(), QRegion(times) + section);

    // Everything else on the screen is as it was.
    const QImage after = display.Composed();
    const QRegion unchanged = QRegion(0, 0, after.width(), after.height()) - times - section;
    for (const QRect& r : unchanged)
        EXPECT_EQ(after.copy(r), before.copy(r));
    EXPECT_NE(after.copy(times), before.copy(times));
}

TEST_F(MainWindow, ARotatedScreenChoosesTheLayoutAgain)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 60);
    startPlayer();
    ASSERT_EQ(frame_->Display().Skin()->resolution.suffix, u"480X640");
    device_.set("TALVOPLAYER_SCREEN", "800x480");
    frame_->SendMessage(WM_SETTINGCHANGE);
    EXPECT_EQ(frame_->Display().Skin()->resolution.suffix, u"800X480");
    EXPECT_EQ(frame_->Display().Composed().size(), QSize(800, 480));
    // A screen no skin fits keeps the layout it has.
    device_.set("TALVOPLAYER_SCREEN", "100x100");
    frame_->SendMessage(WM_SETTINGCHANGE);
    EXPECT_EQ(frame_->Display().Skin()->resolution.suffix, u"800X480");
}

TEST_F(MainWindow, WithoutASkinThatFitsItSaysSoAndCloses)
{
    QDir().mkpath(device_.path("bare"));
    CMainFrame frame({*registry_, device_.path("bare"), QString(), nullptr});
    EXPECT_FALSE(frame.HasSkin());
    const QStringList boxes = device_.messages();
    ASSERT_EQ(boxes.size(), 1);
    EXPECT_TRUE(boxes[0].contains("unable to load a skin that fits your device resolution"));
}

TEST_F(MainWindow, TheFirstRunWelcomesOnceWithoutTouchingPlaybackAndAboutAndHelpOpen)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 60);
    SettingsStore(*registry_).SetFirstTimeRun(0);
    QFile welcome(device_.path("app/zqserver.ini"));
    ASSERT_TRUE(welcome.open(QIODevice::WriteOnly));
    welcome.write("[Welcome]\r\nTitle=Hello listener\r\nText=Programs arrive every morning.\r\n");
    welcome.close();
    startPlayer();
    auto* shown = frame_->findChild<QDialog*>("welcome");
    ASSERT_NE(shown, nullptr);
    EXPECT_TRUE(shown->isModal());
    EXPECT_EQ(shown->windowTitle(), "Hello listener");
    EXPECT_EQ(shown->findChild<QLabel*>("welcomeText")->text(), "Programs arrive every morning.");
    EXPECT_FALSE(frame_->Audio().IsPlaying());
    EXPECT_EQ(SettingsStore(*registry_).GetFirstTimeRun(), 2u);
    shown->accept();
    pump();
    frame_.reset();
    startPlayer();
    EXPECT_EQ(frame_->findChild<QDialog*>("welcome"), nullptr);

    QString about;
    QTimer::singleShot(0, [&] {
        QWidget* dialog = QApplication::activeModalWidget();
        ASSERT_NE(dialog, nullptr);
        about = dialog->findChild<QLabel*>("aboutVersion")->text();
        static_cast<QDialog*>(dialog)->accept();
    });
    frame_->SendCommand(Command::AboutLogo);
    EXPECT_EQ(about, "About TalvoPlayer 5.5.0.10(Linux)");

    // The help page lies beside the program; without it the player says so.
    frame_->SendMessage(WM_HELP);
    ASSERT_EQ(device_.messages().size(), 1);
    EXPECT_TRUE(device_.messages()[0].contains("TalvoPlayerHlp.htm cannot be opened"));
    ASSERT_TRUE(QFile::copy(QStringLiteral(TALVO_BUILD_DIR "/bin/TalvoPlayerHlp.htm"),
                            device_.path("app/TalvoPlayerHlp.htm")));
    QString help;
    QTimer::singleShot(0, [&] {
        QWidget* dialog = QApplication::activeModalWidget();
        ASSERT_NE(dialog, nullptr);
        help = dialog->findChild<QTextBrowser*>("helpPage")->toPlainText();
        static_cast<QDialog*>(dialog)->accept();
    });
    frame_->SendCommand(Command::Help);
    EXPECT_TRUE(help.contains("Bookmarks"));

    // The texts that ship beside the player (lines that end in a carriage
    // return, or the reader finds none) tell what Feldrun does.
    QDialog* shipped = ShowWelcome(QStringLiteral(TALVO_BUILD_DIR "/bin"), nullptr);
    EXPECT_EQ(shipped->windowTitle(), "Welcome to TalvoPlayer");
    EXPECT_TRUE(shipped->findChild<QLabel*>("welcomeText")->text().contains("subscribes to podcasts"));
    shipped->close();
}

TEST_F(MainWindow, HeldKeysRunTheirHoldOnceAndTheirReleaseEndsIt)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 100);
    startPlayer();
    current().Seek(50000);
    auto key = [&](QEvent::Type type, int code, bool repeat = false) {
        QKeyEvent event(type, code, Qt::NoModifier, QString(), repeat);
        QCoreApplication::sendEvent(frame_.get(), &event);
    };
    key(QEvent::KeyPress, Qt::Key_Right);
    EXPECT_EQ(current().Position(), 51000u);
    key(QEvent::KeyPress, Qt::Key_Right, true); // the auto-repeat starts nothing again
    EXPECT_EQ(current().Position(), 51000u);
    EXPECT_TRUE(frame_->IsTimerRunning(Timer::FastForwardHold));
    key(QEvent::KeyRelease, Qt::Key_Right);
    EXPECT_FALSE(frame_->IsTimerRunning(Timer::FastForwardHold));

    // Rewind released while playing takes its closing step of six seconds.
    frame_->SendCommand(Command::PlayStop);
    const std::uint32_t before = current().Position();
    key(QEvent::KeyPress, Qt::Key_4);
    key(QEvent::KeyRelease, Qt::Key_4);
    // The first step takes 1 s, the closing step 6 s; then four fresh buffers are decoded.
    EXPECT_EQ(current().Position(), before - 7000 + 8000);
    EXPECT_FALSE(frame_->IsTimerRunning(Timer::RewindHold));
}

TEST_F(MainWindow, APhoneCallPausesPlaybackAndItsEndResumesIt)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 100);
    startPlayer();
    frame_->SendMessage(Message::CallEvent, 1, 1);
    pump();
    EXPECT_FALSE(frame_->Audio().IsPlaying()); // nothing played, nothing to pause
    frame_->SendMessage(Message::CallEvent, 0, 0);
    pump();
    EXPECT_FALSE(frame_->Audio().IsPlaying()); // and nothing is resumed

    frame_->SendCommand(Command::PlayStop);
    frame_->SendMessage(Message::CallEvent, 1, 1);
    pump();
    EXPECT_FALSE(frame_->Audio().IsPlaying());
    frame_->SendMessage(Message::CallEvent, 0, 0);
    pump();
    EXPECT_TRUE(frame_->Audio().IsPlaying());

    frame_->SendMessage(Message::StopIfPlaying);
    EXPECT_FALSE(frame_->Audio().IsPlaying());
}

TEST_F(MainWindow, FileAssociationNamesThisExecutable)
{
    ASSERT_TRUE(RegisterFileAssociation(*registry_, "/opt/talvo/bin/talvoplayer", "Talvo Audio"));
    auto text = [&](std::u16string_view key) {
        HKEY handle = 0;
        registry_->OpenKey(HKEY_CLASSES_ROOT, key, KEY_READ, &handle);
        std::vector<std::uint8_t> data(1024);
        DWORD size = static_cast<DWORD>(data.size());
        registry_->QueryValue(handle, u"", nullptr, data.data(), &size);
        registry_->CloseKey(handle);
        return QString::fromStdU16String(RegSzText(data.data(), size));
    };
    EXPECT_EQ(text(u".zq"), "TalvoPlayer");
    EXPECT_EQ(text(u"TalvoPlayer"), "Talvo Audio");
    EXPECT_EQ(text(u"TalvoPlayer\\DefaultIcon"), "/opt/talvo/bin/talvoplayer,0");
    EXPECT_EQ(text(u"TalvoPlayer\\shell\\open\\command"), "\"/opt/talvo/bin/talvoplayer\" -File:\"%1\"");

    // A moved player is registered anew; an unchanged one commits nothing, so
    // an everyday start never syncs the store.
    ASSERT_TRUE(RegisterFileAssociation(*registry_, "/usr/bin/talvoplayer", "Talvo Audio"));
    EXPECT_EQ(text(u"TalvoPlayer\\DefaultIcon"), "/usr/bin/talvoplayer,0");
    sqlite3* watcher = nullptr;
    ASSERT_EQ(
        sqlite3_open_v2(device_.registryPath().toUtf8().constData(), &watcher, SQLITE_OPEN_READONLY, nullptr),
        SQLITE_OK);
    auto commits = [watcher] {
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(watcher, "PRAGMA data_version", -1, &statement, nullptr);
        sqlite3_step(statement);
        const int version = sqlite3_column_int(statement, 0);
        sqlite3_finalize(statement);
        return version;
    };
    const int before = commits();
    ASSERT_TRUE(RegisterFileAssociation(*registry_, "/usr/bin/talvoplayer", "Talvo Audio"));
    EXPECT_EQ(commits(), before);
    ASSERT_TRUE(RegisterFileAssociation(*registry_, "/usr/bin/talvoplayer", "Other Name"));
    EXPECT_NE(commits(), before);
    sqlite3_close(watcher);
}

} // namespace
} // namespace talvo::test
