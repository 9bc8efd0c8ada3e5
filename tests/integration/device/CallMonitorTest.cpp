// Phone calls pausing and resuming a real main window: ModemManager is a
// dbusmock service on a private bus standing in for the system bus.
#include "device/DeviceEvents.h"
#include "platform/EventQueueHandOff.h"
#include "tests/integration/device/PrivateBus.h"
#include "tests/integration/playback/PlayerFixture.h"

#include <QDBusObjectPath>

namespace talvo::test {
namespace {

const QString kModemManager = QStringLiteral("org.freedesktop.ModemManager1");
const QString kManagerPath = QStringLiteral("/org/freedesktop/ModemManager1");
// ModemManager's call directions and states.
constexpr unsigned kIncoming = 1, kOutgoing = 2;
constexpr int kDialing = 1, kRingingOut = 2, kRingingIn = 3, kActive = 4, kTerminated = 7;

class CallMonitorTest : public PlayerFixture {
protected:
    void SetUp() override
    {
        PlayerFixture::SetUp();
        WritePcmProgram(musicPath("Reader/Book/book.zq"), "book", 600);
        makeDeviceServices_ = CreateDeviceServices;
    }

    void startModemManager()
    {
        ASSERT_TRUE(bus_.StartMock(kModemManager, QStringLiteral(TALVO_MODEMMANAGER_TEMPLATE), true));
        modem_ = bus_.CallMock(kModemManager, kManagerPath, QStringLiteral("AddModem"))
                     .arguments()
                     .value(0)
                     .value<QDBusObjectPath>();
    }

    // The arguments of these calls are built here and freed on QtDBus's own
    // thread, handed over through its queue.
    QDBusObjectPath addCall(unsigned direction, int state)
    {
        QDBusMessage reply;
        PostThroughEventQueue([&] {
            reply = bus_.CallMock(kModemManager, kManagerPath, QStringLiteral("AddCall"),
                                  {QVariant::fromValue(modem_), direction, state});
        });
        return reply.arguments().value(0).value<QDBusObjectPath>();
    }

    void setCallState(const QDBusObjectPath& call, int state)
    {
        PostThroughEventQueue([&] {
            bus_.CallMock(kModemManager, kManagerPath, QStringLiteral("SetCallState"),
                          {QVariant::fromValue(call), state});
        });
    }

    void play()
    {
        frame_->SendCommand(Command::PlayStop);
        ASSERT_TRUE(frame_->Audio().IsPlaying());
    }

    bool playing() { return frame_->Audio().IsPlaying(); }

    PrivateBus bus_{"DBUS_SYSTEM_BUS_ADDRESS"};
    QDBusObjectPath modem_;
};

TEST_F(CallMonitorTest, IncomingCallPausesAndResumesFiveSecondsAfterHangUpOnAModemThatCameLater)
{
    // The player starts on a bus without ModemManager and plays regardless.
    startPlayer();
    ASSERT_TRUE(frame_->Devices()->HasCallMonitor());
    play();
    startModemManager();

    const QDBusObjectPath call = addCall(kIncoming, kRingingIn);
    EXPECT_TRUE(pump([&] { return !playing(); }));
    setCallState(call, kActive);
    setCallState(call, kTerminated);
    QElapsedTimer sinceHangUp;
    sinceHangUp.start();
    EXPECT_TRUE(pump([&] { return playing(); }));
    // The resume waits on the call line's thread; the window went on meanwhile.
    EXPECT_GE(sinceHangUp.elapsed(), 5000 - 100);
}

TEST_F(CallMonitorTest, OutgoingCallThroughDialingAndRingingOutPausesOnceAndResumes)
{
    startPlayer();
    startModemManager();
    play();
    const QDBusObjectPath call = addCall(kOutgoing, 0);
    setCallState(call, kDialing);
    EXPECT_TRUE(pump([&] { return !playing(); }));
    // Ringing-out is the same dialling state, not a second call beginning
    // (which would find playback stopped and forget that the call paused it).
    setCallState(call, kRingingOut);
    setCallState(call, kActive);
    setCallState(call, kTerminated);
    EXPECT_TRUE(pump([&] { return playing(); }));
}

TEST_F(CallMonitorTest, PausedPlayerIsNotResumedAfterACall)
{
    startPlayer();
    startModemManager();
    const QDBusObjectPath call = addCall(kIncoming, kRingingIn);
    setCallState(call, kTerminated);
    ASSERT_TRUE(pump([&] { return frame_->Audio().callEnded; }));
    pump();
    EXPECT_FALSE(playing());
}

TEST_F(CallMonitorTest, AModemManagerThatVanishesMidCallIsHeardAgainWhenItReturns)
{
    startPlayer();
    startModemManager();
    play();
    addCall(kIncoming, kRingingIn);
    ASSERT_TRUE(pump([&] { return !playing(); }));
    // ModemManager dies in the middle of the call; the listener plays on by hand.
    bus_.KillServices();
    play();
    // Back again, it numbers its calls afresh: the new call has the old one's path.
    startModemManager();
    addCall(kIncoming, kRingingIn);
    EXPECT_TRUE(pump([&] { return !playing(); }, 10000)) << "the new call was taken for the old one";
}

TEST_F(CallMonitorTest, AModemManagerThatNeverAnswersOrDiesMidReadNeverStallsPlayback)
{
    startPlayer(PacedWaveOut);
    play();
    ASSERT_TRUE(
        bus_.StartService(kModemManager, {QStringLiteral(TALVO_DEVICE_SCRIPTS "/unanswering_service.py"),
                                          QStringLiteral("modemmanager")}));
    // Every read of its calls waits out the whole timeout on the call line's thread.
    EXPECT_GE(advanceOver(3000), 1500u);
    bus_.KillServices(); // mid-read: a read is always under way by now
    EXPECT_GE(advanceOver(3000), 1500u);

    startModemManager();
    addCall(kIncoming, kRingingIn);
    EXPECT_TRUE(pump([&] { return !playing(); }, 10000));
}

TEST_F(CallMonitorTest, NoSystemBusMeansNoCallMonitorAndPlaybackAsUsual)
{
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/talvo-test-bus");
    startPlayer();
    EXPECT_FALSE(frame_->Devices()->HasCallMonitor());
    play();
}

} // namespace
} // namespace talvo::test
