// Real pointer events on a real X server: the player's window on Xvfb, taps and
// holds sent by xdotool.  X key auto-repeat is switched off (xset r off) and
// the test times its holds itself.
#include "app/CMainFrame.h"
#include "base/CommandIds.h"
#include "playback/ProgramFile.h"
#include "skins/SkinnedDisplay.h"
#include "tests/integration/playback/PlayerFixture.h"

#include <QApplication>
#include <QDialog>
#include <QLineEdit>
#include <QProcess>
#include <QThread>
#include <QTimer>
#include <QTreeWidget>
#include <cstring>
#include <gtest/gtest.h>
#include <unistd.h>

namespace talvo::test {
namespace {

// Where every cumulative sum of fast-forward hold steps lies (1, 1, 6, 6, 6,
// 11, ... seconds): the position after a hold of n steps from 0.
std::vector<std::uint32_t> holdPositions(int steps)
{
    std::vector<std::uint32_t> sums;
    std::uint32_t sum = 0;
    for (int n = 1; n <= steps; ++n) {
        sum += static_cast<std::uint32_t>(n / 3) * 5000 + 1000;
        sums.push_back(sum);
    }
    return sums;
}

// Runs xdotool while this thread keeps serving the window's events.
bool xdotool(const QStringList& arguments)
{
    QProcess tool;
    tool.start(QStringLiteral("xdotool"), arguments);
    if (!tool.waitForStarted())
        return false;
    while (tool.state() != QProcess::NotRunning)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    return tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0;
}

void serveFor(int ms)
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

class RealInput : public PlayerFixture {
protected:
    // The global screen point of a layout point of the display.
    QPoint onScreen(QPoint layoutPoint)
    {
        SkinnedDisplay& display = frame_->Display();
        return display.mapToGlobal(display.ToWidget(layoutPoint));
    }
    QPoint centreOf(std::uint16_t command)
    {
        const SkinLayout& skin = *frame_->Display().Skin();
        return skin.pausedButtons[SkinButtonIndex(command)].rect.ToQRect().center();
    }
    void moveTo(QPoint global)
    {
        ASSERT_TRUE(xdotool({"mousemove", QString::number(global.x()), QString::number(global.y())}));
    }

    void startVisiblePlayer()
    {
        startPlayer();
        frame_->resize(frame_->sizeHint());
        frame_->show();
        ASSERT_TRUE(pump([&] { return frame_->isVisible() && frame_->Library().Count() > 0; }));
        serveFor(300); // the window manager-less server maps it at once; let it settle
    }
};

TEST_F(RealInput, HoldingFastForwardMovesThePositionByTheHoldSteps)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 3600);
    startVisiblePlayer();
    ASSERT_EQ(current().Position(), 0u);
    moveTo(onScreen(centreOf(Command::FastForward1min)));
    ASSERT_TRUE(xdotool({"mousedown", "1"}));
    serveFor(1000); // about ten steps of 100 ms
    ASSERT_TRUE(xdotool({"mouseup", "1"}));
    serveFor(200);
    EXPECT_FALSE(frame_->IsTimerRunning(Timer::FastForwardHold));
    const std::vector<std::uint32_t> sums = holdPositions(30);
    const auto step = std::find(sums.begin(), sums.end(), current().Position());
    ASSERT_NE(step, sums.end()) << "not a sum of hold steps: " << current().Position();
    // Steps come every 100 ms; a loaded machine may lose a few.
    EXPECT_GE(step - sums.begin() + 1, 4);
    EXPECT_LE(step - sums.begin() + 1, 14);

    // A tap on rewind, released over it: the hold's first step and, stopped,
    // no closing step.
    const std::uint32_t before = current().Position();
    moveTo(onScreen(centreOf(Command::Rewind1min)));
    ASSERT_TRUE(xdotool({"click", "1"}));
    serveFor(300);
    EXPECT_EQ(current().Position(), before - 1000);
}

TEST_F(RealInput, ATitleTapEndsOnTheTitleOrSendsNothing)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 60);
    startVisiblePlayer();
    SkinnedDisplay& display = frame_->Display();
    const QRect title = display.Skin()->programTitle.rect.ToQRect();
    const QImage normal = display.Composed().copy(title);
    moveTo(onScreen(title.center()));
    ASSERT_TRUE(xdotool({"mousedown", "1"}));
    serveFor(100);
    // Held: the title shows its pressed look.
    EXPECT_NE(display.Composed().copy(title), normal);
    moveTo(onScreen(centreOf(Command::PlayStop)));
    ASSERT_TRUE(xdotool({"mouseup", "1"}));
    serveFor(200);
    EXPECT_EQ(display.Composed().copy(title), normal);
    // The stylus slid off: nothing was sent, so nothing started to play.
    EXPECT_FALSE(frame_->Audio().IsPlaying());

    // A tap on the play button plays.
    ASSERT_TRUE(xdotool({"click", "1"}));
    EXPECT_TRUE(pump([&] { return frame_->Audio().IsPlaying(); }, 5000));
}

TEST_F(RealInput, TheTitleOpensTheListAndItsKeysPlayTheChosenProgram)
{
    WritePcmProgram(musicPath("Author/A/a.zq"), "a", 120);
    const QString b = WritePcmProgram(musicPath("Author/B/b.zq"), "b", 120);
    startVisiblePlayer();
    ASSERT_EQ(frame_->Library().Count(), 2);

    // A tap on the title opens the list; Down and Enter listen to the second program.
    QProcess keys;
    keys.start(QStringLiteral("xdotool"),
               {"sleep", "0.8", "search", "--sync", "--onlyvisible", "--name", "^Local Library$",
                "windowfocus", "--sync", "key", "Down", "sleep", "0.2", "key", "Return"});
    // Keys that never reach the list fail the test rather than hold it.
    QTimer::singleShot(15000, frame_.get(), [] {
        if (auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget()))
            dialog->reject();
    });
    moveTo(onScreen(frame_->Display().Skin()->programTitle.rect.ToQRect().center()));
    ASSERT_TRUE(xdotool({"click", "1"}));
    ASSERT_TRUE(pump([&] { return keys.state() == QProcess::NotRunning; }, 20000));
    ASSERT_TRUE(pump([&] { return current().path == b && frame_->Audio().IsPlaying(); }, 10000));
}

TEST_F(RealInput, ATapOnTheDarkScreenWakesItAndPlaybackGoesOn)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 600);
    SettingsStore(*registry_).SetPowerOffTime(1);
    startVisiblePlayer();
    frame_->activateWindow();
    ASSERT_TRUE(pump([&] { return QApplication::activeWindow() == frame_.get(); }, 5000));
    moveTo(onScreen(centreOf(Command::PlayStop)));
    ASSERT_TRUE(xdotool({"click", "1"}));
    ASSERT_TRUE(pump([&] { return frame_->Audio().IsPlaying(); }, 5000));
    // The recording display stands in for DPMS, which Xvfb lacks.
    ASSERT_TRUE(pump([&] { return device_.screenSwitches() == QStringList{"off"}; }));

    ASSERT_TRUE(xdotool({"click", "1"}));
    ASSERT_TRUE(pump([&] { return device_.screenSwitches() == QStringList({"off", "on"}); }, 5000));
    serveFor(300);
    EXPECT_TRUE(frame_->Audio().IsPlaying());
    // Awake, the same tap on Play stops.
    ASSERT_TRUE(xdotool({"click", "1"}));
    EXPECT_TRUE(pump([&] { return !frame_->Audio().IsPlaying(); }, 5000));
}

} // namespace
} // namespace talvo::test

namespace {

int runQuietly(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (!process.waitForFinished(10000))
        return -1;
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

bool listingOnly(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--gtest_list_tests") == 0)
            return true;
    }
    return false;
}

} // namespace

// A private X server for the whole run, with key auto-repeat off.
int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (listingOnly(argc, argv))
        return RUN_ALL_TESTS();
    int display = 150 + getpid() % 100;
    while (QFile::exists(QStringLiteral("/tmp/.X%1-lock").arg(display)))
        ++display;
    QProcess xvfb;
    xvfb.start(QStringLiteral("Xvfb"),
               {QStringLiteral(":%1").arg(display), "-screen", "0", "1024x900x24", "-nolisten", "tcp"});
    if (!xvfb.waitForStarted()) {
        std::fprintf(stderr, "Xvfb could not be started\n");
        return 1;
    }
    qputenv("DISPLAY", QStringLiteral(":%1").arg(display).toLatin1());
    for (int i = 0; i < 100 && runQuietly(QStringLiteral("xdpyinfo"), {}) != 0; ++i)
        QThread::msleep(100);
    runQuietly(QStringLiteral("xset"), {"r", "off"});
    qputenv("QT_QPA_PLATFORM", "xcb");
    int result = 1;
    {
        QApplication app(argc, argv);
        result = RUN_ALL_TESTS();
    }
    xvfb.terminate();
    xvfb.waitForFinished();
    return result;
}
