// The screen power-off while playing, on the whole main window with the
// recording display: the screen goes dark after the stored power-off time, and
// the tap or key that wakes it does nothing else.
#include "app/CMainFrame.h"
#include "base/CommandIds.h"
#include "skins/SkinnedDisplay.h"
#include "tests/integration/playback/PlayerFixture.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <gtest/gtest.h>

namespace talvo::test {
namespace {

const QStringList kOff{"off"};
const QStringList kOffOn{"off", "on"};

class ScreenPowerTest : public PlayerFixture {
protected:
    void SetUp() override
    {
        PlayerFixture::SetUp();
        WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 600);
    }

    // The player in front and playing, with the power-off time given.
    void playInFront(DWORD powerOffSeconds)
    {
        SettingsStore(*registry_).SetPowerOffTime(powerOffSeconds);
        startPlayer();
        frame_->resize(frame_->sizeHint());
        frame_->show();
        frame_->activateWindow();
        ASSERT_TRUE(pump([&] { return QApplication::activeWindow() == frame_.get(); }));
        ASSERT_TRUE(pump([&] { return frame_->Library().Count() == 1; }));
        frame_->SendCommand(Command::PlayStop);
        ASSERT_TRUE(frame_->Audio().IsPlaying());
    }

    bool waitForSwitches(const QStringList& expected)
    {
        return pump([&] { return device_.screenSwitches() == expected; });
    }

    void tap(std::uint16_t button)
    {
        SkinnedDisplay& display = frame_->Display();
        const QPoint layout = display.Skin()->pausedButtons[SkinButtonIndex(button)].rect.ToQRect().center();
        const QPoint at = display.ToWidget(layout);
        QMouseEvent press(QEvent::MouseButtonPress, at, display.mapToGlobal(at), Qt::LeftButton,
                          Qt::LeftButton, Qt::NoModifier);
        QMouseEvent release(QEvent::MouseButtonRelease, at, display.mapToGlobal(at), Qt::LeftButton,
                            Qt::NoButton, Qt::NoModifier);
        QApplication::sendEvent(&display, &press);
        QApplication::sendEvent(&display, &release);
        pump();
    }

    void pressKey(Qt::Key key)
    {
        QKeyEvent down(QEvent::KeyPress, key, Qt::NoModifier);
        QKeyEvent up(QEvent::KeyRelease, key, Qt::NoModifier);
        QApplication::sendEvent(frame_.get(), &down);
        QApplication::sendEvent(frame_.get(), &up);
        pump();
    }
};

TEST_F(ScreenPowerTest, GoesDarkAfterThePowerOffTimeAndTheWakingTapDoesNothingElse)
{
    playInFront(1);
    EXPECT_TRUE(device_.screenSwitches().isEmpty());
    ASSERT_TRUE(waitForSwitches(kOff));
    EXPECT_TRUE(frame_->Audio().IsPlaying());

    // The tap lands on Play: it wakes the screen and does not stop playback.
    tap(Command::PlayStop);
    EXPECT_EQ(device_.screenSwitches(), kOffOn);
    EXPECT_TRUE(frame_->Audio().IsPlaying());
    EXPECT_TRUE(frame_->IsTimerRunning(Timer::ScreenPowerOff)) << "the waking tap re-arms the timer";

    // With the screen on, the same tap stops; stopping disarms the timer.
    tap(Command::PlayStop);
    ASSERT_TRUE(pump([&] { return !frame_->Audio().IsPlaying(); }));
    EXPECT_FALSE(frame_->IsTimerRunning(Timer::ScreenPowerOff));
    EXPECT_EQ(device_.screenSwitches(), kOffOn);
}

TEST_F(ScreenPowerTest, AWakingKeyIsSwallowedWithItsRelease)
{
    playInFront(1);
    ASSERT_TRUE(waitForSwitches(kOff));
    const std::uint32_t position = current().Position();
    // Left starts the rewind hold on key down and steps back on key up.
    pressKey(Qt::Key_Left);
    EXPECT_EQ(device_.screenSwitches(), kOffOn);
    EXPECT_EQ(current().Position(), position);
    EXPECT_FALSE(frame_->IsTimerRunning(Timer::RewindHold));
    // Dark again after the re-armed time.
    EXPECT_TRUE(waitForSwitches(QStringList{"off", "on", "off"}));
}

TEST_F(ScreenPowerTest, AScreenWokenBySomethingElseLetsTheNextTapAct)
{
    playInFront(1);
    ASSERT_TRUE(waitForSwitches(kOff));
    // A notification lights the screen through the compositor, not the player.
    QFile log(device_.screenPowerLogPath());
    ASSERT_TRUE(log.open(QIODevice::Append));
    log.write("on\n");
    log.close();

    tap(Command::PlayStop);
    EXPECT_TRUE(pump([&] { return !frame_->Audio().IsPlaying(); })) << "the tap was swallowed";
    EXPECT_EQ(device_.screenSwitches(), kOffOn) << "the player switched a lit screen on";
}

TEST_F(ScreenPowerTest, StoppingOrLosingTheFocusBringsTheScreenBack)
{
    playInFront(1);
    ASSERT_TRUE(waitForSwitches(kOff));
    QWidget other;
    other.show();
    other.activateWindow();
    ASSERT_TRUE(waitForSwitches(kOffOn));

    // Back in front, the pointer moving re-arms the timer; a stop from
    // anywhere (here the remote's own command) brings the screen back.
    frame_->activateWindow();
    ASSERT_TRUE(pump([&] { return QApplication::activeWindow() == frame_.get(); }));
    QMouseEvent move(QEvent::MouseMove, QPointF(5, 5), QPointF(5, 5), Qt::NoButton, Qt::NoButton,
                     Qt::NoModifier);
    QApplication::sendEvent(&frame_->Display(), &move);
    ASSERT_TRUE(waitForSwitches(QStringList{"off", "on", "off"}));
    frame_->SendCommand(Command::PlayStop);
    EXPECT_FALSE(frame_->Audio().IsPlaying());
    EXPECT_EQ(device_.screenSwitches(), QStringList({"off", "on", "off", "on"}));
}

TEST_F(ScreenPowerTest, NeverMeansNoTimerAndTheScreenStaysOn)
{
    playInFront(kPowerOffNever);
    EXPECT_FALSE(frame_->IsTimerRunning(Timer::ScreenPowerOff));
    // Even a timer message that arrives anyway switches nothing.
    frame_->SendMessage(WM_TIMER, Timer::ScreenPowerOff);
    EXPECT_TRUE(device_.screenSwitches().isEmpty());
}

TEST_F(ScreenPowerTest, ADisplayNothingCanSwitchStaysOnAndTapsAct)
{
    device_.set("TALVOPLAYER_SCREEN_POWER", "none");
    playInFront(1);
    // The one-shot timer has fired once it is no longer running.
    ASSERT_TRUE(pump([&] { return !frame_->IsTimerRunning(Timer::ScreenPowerOff); }));
    tap(Command::PlayStop);
    EXPECT_TRUE(pump([&] { return !frame_->Audio().IsPlaying(); }));
}

TEST_F(ScreenPowerTest, APlayerThatIsNotInFrontLeavesTheScreenOn)
{
    playInFront(1);
    QWidget other;
    other.show();
    other.activateWindow();
    ASSERT_TRUE(pump([&] { return QApplication::activeWindow() == &other; }));
    ASSERT_TRUE(pump([&] { return !frame_->IsTimerRunning(Timer::ScreenPowerOff); }));
    EXPECT_TRUE(device_.screenSwitches().isEmpty());
}

} // namespace
} // namespace talvo::test
