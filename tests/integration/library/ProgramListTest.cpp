// The program list on a whole device: its rows, deleting from it, programs
// that change behind its back, and the main window playing what it chose.
#include "tests/integration/playback/PlayerFixture.h"

#include "base/CommandIds.h"
#include "library/ProgramDeletion.h"
#include "library/ProgramDetailsDialog.h"
#include "library/ProgramDetailsPage.h"
#include "library/ProgramList.h"
#include "library/ProgramListDialog.h"
#include "library/ProgramStateStore.h"
#include "platform/InstanceChannel.h"
#include "platform/MessageBox.h"

#include <QAbstractButton>
#include <QApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QLocalSocket>
#include <QMessageBox>
#include <QProcess>
#include <QTimer>
#include <QTreeWidget>
#include <csignal>
#include <sys/socket.h>

namespace talvo::test {
namespace {

// A short program with the title given, in Music/Author/<id>/.
QString WriteTitled(const QString& musicFolder, const std::string& id, const std::string& title)
{
    const QString path =
        musicFolder + "/Author/" + QString::fromStdString(id) + "/" + QString::fromStdString(id) + ".zq";
    QDir().mkpath(QFileInfo(path).absolutePath());
    CZQXWriter writer;
    EXPECT_EQ(writer.Create(path.toStdString(), ZQX_TYPE_PCM16, 1000, 1), ZQX_OK);
    writer.SetProgramId(id);
    writer.SetTitle(title);
    std::vector<std::int16_t> second(1000);
    EXPECT_EQ(writer.AddPacket(reinterpret_cast<const std::uint8_t*>(second.data()), 2000, 1000), ZQX_OK);
    EXPECT_EQ(writer.Finish(), ZQX_OK);
    return path;
}

class ProgramListTest : public PlayerFixture {
protected:
    // Long enough that four buffers never reach the end.
    static constexpr int kSeconds = 60;

    // Three programs, listed a, b, c; a is current after the first search.
    void WriteThree()
    {
        for (const char* id : {"a", "b", "c"})
            paths_.append(
                WritePcmProgram(musicPath(QStringLiteral("Author/%1/%1.zq").arg(id)), id, kSeconds));
    }

    static QStringList RowTexts(const ProgramListDialog& dialog)
    {
        auto* view = dialog.findChild<QTreeWidget*>(QStringLiteral("programList"));
        QStringList texts;
        for (int i = 0; view && i < view->topLevelItemCount(); ++i)
            texts.append(view->topLevelItem(i)->text(0));
        return texts;
    }

    // Runs action on the list once the main window has opened it with command.
    void WithOpenList(std::uint16_t command, const std::function<void(ProgramListDialog&)>& action)
    {
        bool ran = false;
        QTimer::singleShot(0, [&] {
            auto* dialog = qobject_cast<ProgramListDialog*>(QApplication::activeModalWidget());
            ASSERT_NE(dialog, nullptr);
            ran = true;
            action(*dialog);
        });
        frame_->SendCommand(command);
        EXPECT_TRUE(ran);
    }

    static void Press(QWidget* widget, int key)
    {
        QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
        QApplication::sendEvent(widget, &press);
    }

    QStringList paths_;
};

TEST_F(ProgramListTest, RowsFollowTheLibraryInEveryLayout)
{
    WriteThree();
    startPlayer();
    SettingsStore(*registry_).SetLastProgram(paths_[1]);
    for (int templateId : {kListTemplatePocketPc, kListTemplatePocketPcWide, kListTemplateSmartphone}) {
        ProgramListDialog dialog(frame_->Library(), device_.path("app"), templateId);
        EXPECT_EQ(dialog.windowTitle(), QStringLiteral("Local Library"));
        EXPECT_EQ(RowTexts(dialog), (QStringList{"Program a", "Program b", "Program c"}));
        auto* view = dialog.findChild<QTreeWidget*>(QStringLiteral("programList"));
        // The reopened "Last Program" is the selected row.
        EXPECT_EQ(dialog.SelectedRow(), 1);
        EXPECT_TRUE(dialog.IsDeleteEnabled());
        const QString header = dialog.findChild<QLabel*>(QStringLiteral("freeSpaceHeader"))->text();
        EXPECT_TRUE(header.startsWith(QStringLiteral("On Device\n"))) << header.toStdString();
        EXPECT_TRUE(header.contains(QStringLiteral(" of "))) << header.toStdString();
        for (QWidget* widget : dialog.findChildren<QWidget*>()) {
            if (qobject_cast<QAbstractButton*>(widget) || widget == view) {
                EXPECT_FALSE(widget->accessibleName().isEmpty()) << widget->objectName().toStdString();
            }
        }
        const bool smartphone = templateId == kListTemplateSmartphone;
        EXPECT_EQ(dialog.findChild<QWidget*>(QStringLiteral("menuButton")) != nullptr, smartphone);
        EXPECT_EQ(dialog.findChild<QWidget*>(QStringLiteral("refreshButton")) != nullptr, !smartphone);
    }
}

TEST_F(ProgramListTest, AnEmptyLibraryShowsNoProgramsAndNothingActs)
{
    startPlayer();
    ProgramListDialog dialog(frame_->Library(), device_.path("app"), kListTemplateSmartphone);
    EXPECT_EQ(RowTexts(dialog), QStringList{"<< No Programs >>"});
    auto* view = dialog.findChild<QTreeWidget*>(QStringLiteral("programList"));
    dialog.SelectRow(0);
    view->topLevelItem(0)->setSelected(true);
    EXPECT_EQ(dialog.SelectedRow(), -1);
    EXPECT_FALSE(dialog.IsDeleteEnabled());
    dialog.DeleteSelected();
    dialog.Listen();
    Press(view, Qt::Key_Return);
    EXPECT_EQ(dialog.result(), 0);
    EXPECT_TRUE(device_.messages().isEmpty());
    Press(view, Qt::Key_Escape);
    EXPECT_EQ(dialog.result(), IDCANCEL);
}

TEST_F(ProgramListTest, DeleteAsksThenRemovesFileSideFileEntryAndRow)
{
    WriteThree();
    for (const QString& path : paths_) {
        QFile side(PositionSideFilePath(path));
        ASSERT_TRUE(side.open(QIODevice::WriteOnly));
    }
    startPlayer();
    ProgramListDialog dialog(frame_->Library(), device_.path("app"), kListTemplatePocketPc);
    dialog.SelectRow(1);

    // A real box answered with Cancel deletes nothing.
    qunsetenv("TALVOPLAYER_MESSAGES");
    QTimer::singleShot(0, [] {
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible())
                box->button(QMessageBox::Cancel)->click();
        }
    });
    dialog.DeleteSelected();
    device_.set("TALVOPLAYER_MESSAGES", device_.messageLogPath());
    EXPECT_TRUE(QFile::exists(paths_[1]));
    EXPECT_EQ(RowTexts(dialog).size(), 3);
    EXPECT_TRUE(dialog.IsDeleteEnabled());

    // The Delete key runs the same command as the button.
    Press(dialog.findChild<QTreeWidget*>(QStringLiteral("programList")), Qt::Key_Delete);

    ASSERT_EQ(device_.messages().size(), 1);
    EXPECT_EQ(device_.messages().front(),
              QStringLiteral("TalvoPlayer\tAre you sure you want to delete the program 'Program b'?\t0x21"));
    EXPECT_FALSE(QFile::exists(paths_[1]));
    EXPECT_FALSE(QFile::exists(PositionSideFilePath(paths_[1])));
    EXPECT_EQ(frame_->Library().Count(), 2);
    EXPECT_EQ(frame_->Library().IndexOfPath(paths_[1]), -1);
    EXPECT_EQ(RowTexts(dialog), (QStringList{"Program a", "Program c"}));
    // Row 0 is selected for the listener, who must still choose before Delete.
    EXPECT_EQ(dialog.SelectedRow(), 0);
    EXPECT_FALSE(dialog.IsDeleteEnabled());
    dialog.DeleteSelected();
    EXPECT_EQ(frame_->Library().Count(), 2);

    dialog.SelectRow(1);
    EXPECT_TRUE(dialog.IsDeleteEnabled());
    dialog.DeleteSelected();
    // The one row left is selected by the list; Space chooses it.
    ASSERT_EQ(dialog.SelectedRow(), 0);
    EXPECT_FALSE(dialog.IsDeleteEnabled());
    Press(dialog.findChild<QTreeWidget*>(QStringLiteral("programList")), Qt::Key_Space);
    dialog.DeleteSelected();
    EXPECT_EQ(RowTexts(dialog), QStringList{"<< No Programs >>"});
    EXPECT_FALSE(dialog.IsDeleteEnabled());
    EXPECT_EQ(frame_->Library().Count(), 0);
    for (const QString& path : paths_)
        EXPECT_FALSE(QFile::exists(path));
    EXPECT_EQ(device_.messages().size(), 3);
}

TEST_F(ProgramListTest, ProgramsChangedBehindTheListsBack)
{
    WriteThree();
    startPlayer();
    ProgramListDialog dialog(frame_->Library(), device_.path("app"), kListTemplatePocketPc);

    // A file gone from storage: the deletion fails with its box and the row stays.
    QFile::remove(paths_[2]);
    dialog.SelectRow(2);
    dialog.DeleteSelected();
    ASSERT_EQ(device_.messages().size(), 2);
    EXPECT_TRUE(device_.messages().back().contains(QStringLiteral("Failed to delete program file")));
    EXPECT_EQ(RowTexts(dialog).size(), 3);
    dialog.Refresh();
    EXPECT_EQ(RowTexts(dialog), (QStringList{"Program a", "Program b"}));

    // An entry removed from the library while the list shows it (a desktop
    // deletion): row 1 now stands for entry 0, and deleting it deletes b, not a.
    ASSERT_TRUE(frame_->Library().DeleteProgram(frame_->Library().At(0)));
    ASSERT_EQ(frame_->Library().Count(), 1);
    dialog.SelectRow(1);
    dialog.DeleteSelected();
    EXPECT_FALSE(QFile::exists(paths_[1]));
    EXPECT_EQ(frame_->Library().Count(), 0);
    EXPECT_EQ(RowTexts(dialog), QStringList{"<< No Programs >>"});

    // Listen on a row whose program has gone: nothing is taken, the list is read again.
    paths_.append(WritePcmProgram(musicPath("Author/d/d.zq"), "d", 5));
    dialog.Refresh();
    dialog.SelectRow(0);
    frame_->Library().Clear();
    dialog.Listen();
    EXPECT_NE(dialog.result(), IDOK);
    EXPECT_EQ(RowTexts(dialog), QStringList{"<< No Programs >>"});
}

TEST_F(ProgramListTest, TitlesAreShownAsPlainBoundedText)
{
    WriteTitled(musicPath(""), "m", "<b>Bold</b>\nnext\x01line");
    WriteTitled(musicPath(""), "n", std::string(5000, 'x'));
    const QString untitled = WriteTitled(musicPath(""), "o", "");
    WriteTitled(musicPath(""), "p", "broken \xff\xfe utf8");
    startPlayer();
    ProgramListDialog dialog(frame_->Library(), device_.path("app"), kListTemplatePocketPc);
    const QStringList rows = RowTexts(dialog);
    ASSERT_EQ(rows.size(), 4);
    EXPECT_EQ(rows[0], QStringLiteral("<b>Bold</b> next line"));
    EXPECT_EQ(rows[1].size(), kMaxRowTextLength);
    EXPECT_TRUE(rows[1].endsWith(QChar(0x2026)));
    EXPECT_EQ(rows[2], QStringLiteral("o.zq"));
    // Text that is not UTF-8 is either mended or not read at all; either way the row says something.
    EXPECT_TRUE(rows[3] == QStringLiteral("p.zq") || rows[3].startsWith(QStringLiteral("broken ")))
        << rows[3].toStdString();

    dialog.SelectRow(0);
    dialog.DeleteSelected();
    ASSERT_EQ(device_.messages().size(), 1);
    EXPECT_TRUE(device_.messages().front().contains(QStringLiteral("'<b>Bold</b> next line'")));
    EXPECT_TRUE(QFile::exists(untitled));
}

TEST_F(ProgramListTest, ListenPlaysTheChosenProgram)
{
    WriteThree();
    startPlayer();
    ASSERT_EQ(QFileInfo(current().path).fileName(), QStringLiteral("a.zq"));

    WithOpenList(Command::ProgramList, [](ProgramListDialog& dialog) {
        dialog.SelectRow(2);
        dialog.Listen();
    });
    EXPECT_EQ(QFileInfo(current().path).fileName(), QStringLiteral("c.zq"));
    EXPECT_TRUE(frame_->Audio().IsPlaying());

    // The skin's list button while playing: Enter takes the row.
    WithOpenList(Command::ProgramListPressed, [this](ProgramListDialog& dialog) {
        dialog.SelectRow(1);
        Press(dialog.findChild<QTreeWidget*>(QStringLiteral("programList")), Qt::Key_Return);
    });
    EXPECT_EQ(QFileInfo(current().path).fileName(), QStringLiteral("b.zq"));
    EXPECT_TRUE(frame_->Audio().IsPlaying());

    // Closed without a choice, the same program plays on.
    WithOpenList(Command::ProgramList, [](ProgramListDialog& dialog) { dialog.reject(); });
    EXPECT_EQ(QFileInfo(current().path).fileName(), QStringLiteral("b.zq"));
    EXPECT_TRUE(frame_->Audio().IsPlaying());

    // Deleting the program that played leaves the player stopped on another.
    WithOpenList(Command::ProgramList, [](ProgramListDialog& dialog) {
        dialog.DeleteSelected();
        dialog.reject();
    });
    EXPECT_FALSE(frame_->Audio().IsPlaying());
    EXPECT_EQ(QFileInfo(current().path).fileName(), QStringLiteral("a.zq"));
    EXPECT_FALSE(QFile::exists(paths_[1]));
    EXPECT_EQ(frame_->Library().Count(), 2);
}

TEST_F(ProgramListTest, DetailsShowsThePageOfTheSelectedRow)
{
    WritePcmProgram(musicPath("Author/a/a.zq"), "a", 60);
    WritePcmProgram(musicPath("Author/b/b.zq"), "b", 120);
    startPlayer();
    ProgramListDialog dialog(frame_->Library(), device_.path("app"), kListTemplatePocketPc);
    dialog.SelectRow(1);
    QString shown;
    QTimer::singleShot(0, [&] {
        if (auto* details = qobject_cast<ProgramDetailsDialog*>(QApplication::activeModalWidget())) {
            shown = details->Browser()->toPlainText();
            details->reject();
        }
    });
    dialog.ShowDetails();
    EXPECT_TRUE(shown.contains(QStringLiteral("00:02:00"))) << shown.toStdString();
}

TEST_F(ProgramListTest, FeldrunStartsBesideThePlayerOrSaysWhy)
{
    EXPECT_EQ(FeldrunPath(QStringLiteral("/opt/app/")), QStringLiteral("/opt/app/Feldrun"));
    EXPECT_EQ(FeldrunPath(QStringLiteral("/opt/app")), QStringLiteral("/opt/app/Feldrun"));
    startPlayer();
    frame_->SendCommand(Command::LaunchFeldrun);
    ASSERT_EQ(device_.messages().size(), 1);
    EXPECT_EQ(device_.messages().front(),
              QStringLiteral("TalvoPlayer Error\tFailed to launch Feldrun.  Please reinstall\t0x50010"));

    // A Feldrun that leaves a mark when it runs.
    const QString mark = device_.path("ran");
    QFile script(device_.path("app/Feldrun"));
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write(QStringLiteral("#!/bin/sh\ntouch '%1'\n").arg(mark).toUtf8());
    script.close();
    script.setPermissions(script.permissions() | QFile::ExeOwner);
    frame_->SendCommand(Command::LaunchFeldrunOld);
    EXPECT_TRUE(pump([&] { return QFile::exists(mark); }));
    EXPECT_EQ(device_.messages().size(), 1);
    EXPECT_FALSE(LaunchFeldrun(QString(), nullptr));
    EXPECT_EQ(device_.messages().size(), 2);

    // The Feldrun the build puts beside the player opens its window, which
    // listens for a second start under its own name.
    device_.UsePrivateRuntime();
    ASSERT_TRUE(LaunchFeldrun(QStringLiteral(TALVO_BUILD_DIR "/bin/"), nullptr));
    QLocalSocket window;
    ASSERT_TRUE(pump([&] {
        window.connectToServer(InstanceSocketPath(QStringLiteral("FeldrunWindow")));
        return window.waitForConnected(100);
    }));
    // A second start brings that window forward and ends.
    QProcess second;
    second.start(QStringLiteral(TALVO_BUILD_DIR "/bin/feldrun"), {});
    ASSERT_TRUE(second.waitForFinished(20000));
    EXPECT_EQ(second.exitCode(), 0);
    // Closed again by its process id, which its end of the socket tells.
    ucred peer{};
    socklen_t size = sizeof peer;
    ASSERT_EQ(
        ::getsockopt(static_cast<int>(window.socketDescriptor()), SOL_SOCKET, SO_PEERCRED, &peer, &size), 0);
    ASSERT_GT(peer.pid, 0);
    EXPECT_EQ(::kill(peer.pid, SIGTERM), 0);
    EXPECT_TRUE(pump([&] { return ::kill(peer.pid, 0) != 0; }));
    EXPECT_EQ(device_.messages().size(), 2);

    // Two started at once (a double click): one window, the other start ends.
    QProcess starts[2];
    for (QProcess& start : starts)
        start.start(QStringLiteral(TALVO_BUILD_DIR "/bin/feldrun"), {});
    ASSERT_TRUE(pump([&] {
        return starts[0].state() == QProcess::NotRunning || starts[1].state() == QProcess::NotRunning;
    }));
    QProcess& ended = starts[0].state() == QProcess::NotRunning ? starts[0] : starts[1];
    QProcess& open = &ended == &starts[0] ? starts[1] : starts[0];
    EXPECT_EQ(ended.exitCode(), 0);
    EXPECT_FALSE(open.waitForFinished(1000));
    open.terminate();
    EXPECT_TRUE(open.waitForFinished(20000));
    EXPECT_EQ(device_.messages().size(), 2);
}

// The details page's size rule, over storage beyond 4 GB, which a 32-bit
// count would wrap.
TEST(SizeText, StorageSizesBeyondFourGigabytes)
{
    EXPECT_EQ(SizeText(5ull << 30), QStringLiteral("5120.0 MB"));
}

} // namespace
} // namespace talvo::test
