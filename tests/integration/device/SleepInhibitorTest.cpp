// The logind sleep inhibitor of a real main window: held exactly while the
// player plays, against dbusmock's logind on a private system bus.
#include "tests/integration/device/PrivateBus.h"
#include "tests/integration/playback/PlayerFixture.h"

#include <QDBusArgument>

namespace talvo::test {
namespace {

const QString kLogind = QStringLiteral("org.freedesktop.login1");

class SleepInhibitorTest : public PlayerFixture {
protected:
    void SetUp() override
    {
        PlayerFixture::SetUp();
        WritePcmProgram(musicPath("Reader/Book/book.zq"), "book", 600);
        ASSERT_TRUE(bus_.StartMock(kLogind, QStringLiteral("logind"), true));
        startPlayer();
    }

    // "what who mode" of every inhibitor logind holds.
    QStringList inhibitors()
    {
        QDBusMessage list = QDBusMessage::createMethodCall(kLogind, QStringLiteral("/org/freedesktop/login1"),
                                                           QStringLiteral("org.freedesktop.login1.Manager"),
                                                           QStringLiteral("ListInhibitors"));
        const QDBusMessage reply = bus_.Connection().call(list);
        QStringList held;
        const QDBusArgument entries = reply.arguments().value(0).value<QDBusArgument>();
        entries.beginArray();
        while (!entries.atEnd()) {
            QString what, who, why, mode;
            uint uid = 0, pid = 0;
            entries.beginStructure();
            entries >> what >> who >> why >> mode >> uid >> pid;
            entries.endStructure();
            held << QStringList{what, who, mode}.join(QLatin1Char(' '));
        }
        entries.endArray();
        return held;
    }

    void playStop() { frame_->SendCommand(Command::PlayStop); }

    PrivateBus bus_{"DBUS_SYSTEM_BUS_ADDRESS"};
    const QStringList sleepLock_{QStringLiteral("sleep TalvoPlayer block")};
};

TEST_F(SleepInhibitorTest, HeldWhilePlayingAndReleasedAtStop)
{
    EXPECT_TRUE(inhibitors().isEmpty());
    playStop();
    EXPECT_TRUE(pump([&] { return inhibitors() == sleepLock_; }));
    playStop();
    EXPECT_TRUE(pump([&] { return inhibitors().isEmpty(); }));
}

TEST_F(SleepInhibitorTest, ALockThatArrivesAfterStopIsClosed)
{
    playStop();
    playStop();
    // logind grants the lock while the window, busy here, has not yet heard
    // its answer.
    QElapsedTimer granted;
    granted.start();
    while (inhibitors().isEmpty() && granted.elapsed() < 10000)
        QThread::msleep(10);
    ASSERT_EQ(inhibitors(), sleepLock_);
    EXPECT_TRUE(pump([&] { return inhibitors().isEmpty(); }));
}

// A logind that takes every request for a lock and never answers.
class UnansweringLogindTest : public PlayerFixture {
protected:
    PrivateBus bus_{"DBUS_SYSTEM_BUS_ADDRESS"};
};

TEST_F(UnansweringLogindTest, PlaybackStartsStopsAndKeepsItsPace)
{
    WritePcmProgram(musicPath("Reader/Book/book.zq"), "book", 600);
    ASSERT_TRUE(bus_.StartService(
        kLogind, {QStringLiteral(TALVO_DEVICE_SCRIPTS "/unanswering_service.py"), QStringLiteral("logind")}));
    startPlayer(PacedWaveOut);
    for (int i = 0; i < 5; ++i) {
        frame_->SendCommand(Command::PlayStop);
        ASSERT_TRUE(frame_->Audio().IsPlaying());
        frame_->SendCommand(Command::PlayStop);
        ASSERT_FALSE(frame_->Audio().IsPlaying());
    }
    frame_->SendCommand(Command::PlayStop);
    EXPECT_GE(advanceOver(3000), 1500u);
    QElapsedTimer closing;
    closing.start();
    frame_.reset();
    EXPECT_LT(closing.elapsed(), 10000) << "the player waited for logind when it closed";
}

} // namespace
} // namespace talvo::test
