// The player as an MPRIS2 media player, with playerctl as the client, on a
// private session bus.
#include "device/DeviceEvents.h"
#include "device/MprisServer.h"
#include "library/ProgramStateStore.h"
#include "tests/integration/device/PrivateBus.h"
#include "tests/integration/playback/PlayerFixture.h"

#include <QBuffer>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QImage>
#include <QUrl>

namespace talvo::test {
namespace {

const QString kService = QString::fromLatin1(kMprisBusName);
const QString kPath = QStringLiteral("/org/mpris/MediaPlayer2");
const QString kPlayer = QStringLiteral("org.mpris.MediaPlayer2.Player");

// A ten-minute program by an author, in three sections, with a JPEG cover.
void WriteProgramWithCover(const QString& path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QImage image(8, 8, QImage::Format_RGB32);
    image.fill(Qt::darkRed);
    QBuffer jpeg;
    jpeg.open(QIODevice::WriteOnly);
    ASSERT_TRUE(image.save(&jpeg, "JPG"));
    CZQXWriter writer;
    ASSERT_EQ(writer.Create(path.toStdString(), ZQX_TYPE_PCM16, 1000, 1), ZQX_OK);
    writer.SetProgramId("book");
    writer.SetTitle("The Book");
    writer.SetAuthor("A. Writer");
    for (std::uint32_t start : {0, 60000, 120000})
        writer.AddSection(start, "Section");
    ASSERT_EQ(writer.AddPicture(0, 1, std::vector<std::uint8_t>(jpeg.data().begin(), jpeg.data().end())),
              ZQX_OK);
    const std::vector<std::int16_t> second(1000);
    for (int s = 0; s < 600; ++s)
        writer.AddPacket(reinterpret_cast<const std::uint8_t*>(second.data()), 2000, 1000);
    ASSERT_EQ(writer.Finish(), ZQX_OK);
}

// Collects the player's PropertiesChanged and Seeked signals.
class SignalLog : public QObject {
    Q_OBJECT
public:
    QStringList statuses;
    QList<qlonglong> seeks;
public slots:
    void onPropertiesChanged(const QString&, const QVariantMap& changed, const QStringList&)
    {
        if (changed.contains(QStringLiteral("PlaybackStatus")))
            statuses << changed.value(QStringLiteral("PlaybackStatus")).toString();
    }
    void onSeeked(qlonglong position) { seeks << position; }
};

class MprisTest : public PlayerFixture {
protected:
    void SetUp() override
    {
        PlayerFixture::SetUp();
        WriteProgramWithCover(musicPath("Reader/Book/book.zq"));
        SettingsStore(*registry_).SetLastProgram(musicPath("Reader/Book/book.zq"));
        // A second program, left at 42 s in an earlier session.
        ProgramFile other(WritePcmProgram(musicPath("Reader/Other/other.zq"), "other", 60));
        ProgramStateStore store(*registry_);
        ASSERT_EQ(other.ReadMetadata(), ZQX_OK);
        other.Open(store); // false: it has no record yet
        ASSERT_TRUE(other.IsOpen());
        ASSERT_TRUE(other.Seek(42000));
        ASSERT_TRUE(store.SaveProgramState(other));
        other.Close();
        makeDeviceServices_ = [] {
            DeviceServices services;
            services.mprisBusName = kService;
            return services;
        };
        startPlayer(makeWaveOut_);
        ASSERT_TRUE(frame_->Devices()->HasMediaPlayerService());
        ASSERT_TRUE(bus_.Connection().connect(kService, kPath,
                                              QStringLiteral("org.freedesktop.DBus.Properties"),
                                              QStringLiteral("PropertiesChanged"), &log_,
                                              SLOT(onPropertiesChanged(QString, QVariantMap, QStringList))));
        ASSERT_TRUE(bus_.Connection().connect(kService, kPath, kPlayer, QStringLiteral("Seeked"), &log_,
                                              SLOT(onSeeked(qlonglong))));
    }

    // Runs playerctl against the player while the window goes on handling events.
    QString playerctl(const QStringList& arguments)
    {
        QProcess process;
        process.start(QStringLiteral("playerctl"),
                      QStringList{QStringLiteral("--player=talvoplayer")} + arguments);
        EXPECT_TRUE(process.waitForStarted()) << "playerctl is missing (scripts/deps.sh installs it)";
        EXPECT_TRUE(pump([&] { return process.state() == QProcess::NotRunning; }));
        EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
        return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
    }

    void setPosition(const QString& track, qlonglong positionUs)
    {
        QDBusMessage call =
            QDBusMessage::createMethodCall(kService, kPath, kPlayer, QStringLiteral("SetPosition"));
        call << QVariant::fromValue(QDBusObjectPath(track)) << positionUs;
        QDBusPendingCall pending = bus_.Connection().asyncCall(call);
        EXPECT_TRUE(pump([&] { return pending.isFinished(); }));
    }

    bool playing() { return frame_->Audio().IsPlaying(); }
    std::uint32_t positionMs() { return current().Position(); }

    PrivateBus bus_{"DBUS_SESSION_BUS_ADDRESS"};
    SignalLog log_;
    std::function<std::unique_ptr<WaveOut>()> makeWaveOut_; // the manual device unless set
};

class MprisFloodTest : public MprisTest {
protected:
    MprisFloodTest() { makeWaveOut_ = PacedWaveOut; }
};

// Resident memory of this process, in kB.
long ResidentKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return 0;
}

TEST_F(MprisTest, PlayPauseTogglesAndPlayPauseStopNeverToggleTheWrongWay)
{
    playerctl({QStringLiteral("play-pause")});
    EXPECT_TRUE(playing());
    EXPECT_EQ(playerctl({QStringLiteral("status")}), QStringLiteral("Playing"));
    playerctl({QStringLiteral("play")});
    EXPECT_TRUE(playing());
    playerctl({QStringLiteral("pause")});
    EXPECT_FALSE(playing());
    playerctl({QStringLiteral("pause")});
    playerctl({QStringLiteral("stop")});
    EXPECT_FALSE(playing());
    EXPECT_EQ(playerctl({QStringLiteral("status")}), QStringLiteral("Paused"));
    playerctl({QStringLiteral("play-pause")});
    EXPECT_TRUE(playing());
    pump();
    EXPECT_EQ(log_.statuses,
              (QStringList{QStringLiteral("Playing"), QStringLiteral("Paused"), QStringLiteral("Playing")}));
}

TEST_F(MprisTest, NextAndPreviousMoveOneSectionAndPositionRoundTrips)
{
    playerctl({QStringLiteral("next")});
    EXPECT_EQ(positionMs(), 60000u);
    playerctl({QStringLiteral("previous")});
    EXPECT_EQ(positionMs(), 0u);

    playerctl({QStringLiteral("position"), QStringLiteral("30")});
    EXPECT_EQ(positionMs(), 30000u);
    playerctl({QStringLiteral("position"), QStringLiteral("10+")});
    EXPECT_EQ(positionMs(), 40000u);
    EXPECT_EQ(playerctl({QStringLiteral("position")}).toDouble(), 40.0);
    pump();
    EXPECT_EQ(log_.seeks, (QList<qlonglong>{60000000, 0, 30000000, 40000000}));
}

TEST_F(MprisTest, EveryJumpFromTheSkinOrTheKeysIsAnnouncedOnceAndPlayingOnIsNot)
{
    // Signals cross the bus: a moment more shows whether another one follows.
    const auto settle = [&] {
        pump([] { return false; }, 300);
    };
    const auto seekedOnceAtPosition = [&](const char* what) {
        pump([&] { return !log_.seeks.isEmpty(); }, 5000);
        settle();
        ASSERT_EQ(log_.seeks.size(), 1) << what;
        EXPECT_EQ(log_.seeks.takeFirst(), qlonglong{positionMs()} * 1000) << what;
    };
    // The 10 s step: a step, then the hold that the step's own press starts.
    frame_->SendCommand(Command::FastForward10s);
    seekedOnceAtPosition("fast-forward step");
    EXPECT_EQ(positionMs(), 10000u);

    // A hold of fast-forward, four steps: announced where it ended.
    frame_->SendCommand(Command::FastForwardPressed);
    for (WPARAM step = 2; step <= 4; ++step)
        frame_->SendMessage(WM_TIMER, Timer::FastForwardHold);
    settle();
    EXPECT_TRUE(log_.seeks.isEmpty()) << "a hold is announced at its end";
    frame_->SendCommand(Command::FastForwardReleased);
    seekedOnceAtPosition("fast-forward hold");

    // A tap on next section moves one section.
    frame_->SendCommand(Command::NextSectionPressed);
    frame_->SendCommand(Command::NextSectionReleased);
    seekedOnceAtPosition("next section");
    EXPECT_EQ(positionMs(), 60000u);

    current().bookmarks.push_back({u"later", 90000});
    frame_->SendCommand(Command::BookmarkFirst);
    seekedOnceAtPosition("bookmark");
    EXPECT_EQ(positionMs(), 90000u);

    // Playing on moves the position by what is heard, which is no jump.
    frame_->SendCommand(Command::PlayStop);
    for (int i = 0; i < 8; ++i) {
        ASSERT_TRUE(manual_->CompleteNext());
        pump(); // the refill queues the buffer again
    }
    settle();
    EXPECT_GT(positionMs(), 90000u);
    EXPECT_TRUE(log_.seeks.isEmpty());

    // Another program, which starts where it was left.
    frame_->SendCommand(Command::PlayStop);
    log_.seeks.clear();
    frame_->SendCommand(Command::NextTitle);
    seekedOnceAtPosition("another program");
    EXPECT_EQ(positionMs(), 42000u);
}

TEST_F(MprisTest, SetPositionWithAStaleTrackOrOutsideTheProgramIsIgnored)
{
    // playerctl prints an object path in quotes.
    const QString track = playerctl({QStringLiteral("metadata"), QStringLiteral("--format"),
                                     QStringLiteral("{{mpris:trackid}}")})
                              .remove(QLatin1Char('\''));
    setPosition(QStringLiteral("/org/talvoplayer/program/gone"), 5000000);
    setPosition(track, 600000001);
    setPosition(track, -1);
    EXPECT_EQ(positionMs(), 0u);
    setPosition(track, 5000000);
    EXPECT_EQ(positionMs(), 5000u);
}

TEST_F(MprisTest, MetadataDescribesTheProgramAndVolumeRoundTrips)
{
    const QStringList metadata =
        playerctl({QStringLiteral("metadata"), QStringLiteral("--format"),
                   QStringLiteral("{{xesam:title}}|{{xesam:artist}}|{{mpris:length}}|{{mpris:artUrl}}")})
            .split(QLatin1Char('|'));
    ASSERT_EQ(metadata.size(), 4);
    EXPECT_EQ(metadata[0], QStringLiteral("The Book"));
    EXPECT_EQ(metadata[1], QStringLiteral("A. Writer"));
    EXPECT_EQ(metadata[2], QStringLiteral("600000000"));
    const QImage cover(QUrl(metadata[3]).toLocalFile());
    EXPECT_EQ(cover.size(), QSize(8, 8));

    playerctl({QStringLiteral("volume"), QStringLiteral("0.25")});
    EXPECT_NEAR(SettingsStore(*registry_).GetVolume(), 16384, 1);
    EXPECT_NEAR(playerctl({QStringLiteral("volume")}).toDouble(), 0.25, 0.001);
}

TEST_F(MprisTest, RateIsTheProgramsSpeedWithinItsRange)
{
    const QString properties = QStringLiteral("org.freedesktop.DBus.Properties");
    auto get = [&](const QString& name) {
        QDBusMessage call =
            QDBusMessage::createMethodCall(kService, kPath, properties, QStringLiteral("Get"));
        call << kPlayer << name;
        QDBusPendingCall pending = bus_.Connection().asyncCall(call);
        EXPECT_TRUE(pump([&] { return pending.isFinished(); }));
        return pending.reply().arguments().value(0).value<QDBusVariant>().variant().toDouble();
    };
    auto set = [&](double rate) {
        QDBusMessage call =
            QDBusMessage::createMethodCall(kService, kPath, properties, QStringLiteral("Set"));
        call << kPlayer << QStringLiteral("Rate") << QVariant::fromValue(QDBusVariant(rate));
        QDBusPendingCall pending = bus_.Connection().asyncCall(call);
        EXPECT_TRUE(pump([&] { return pending.isFinished(); }));
    };
    EXPECT_DOUBLE_EQ(get(QStringLiteral("Rate")), 1.0);
    EXPECT_DOUBLE_EQ(get(QStringLiteral("MinimumRate")), 0.5);
    EXPECT_DOUBLE_EQ(get(QStringLiteral("MaximumRate")), 3.0);
    set(1.46);
    EXPECT_EQ(frame_->Audio().CurrentSpeedTenths(), 15);
    EXPECT_DOUBLE_EQ(get(QStringLiteral("Rate")), 1.5);
    set(9.0);
    EXPECT_DOUBLE_EQ(get(QStringLiteral("Rate")), 3.0);
}

TEST_F(MprisFloodTest, AClientThatFloodsThePlayerIsAnsweredWhilePlaybackKeepsItsPace)
{
    // A flood that outlasts the time measured, however fast the machine.
    constexpr int kFloodSeconds = 10;
    frame_->SendCommand(Command::PlayStop);
    ASSERT_TRUE(playing());
    const long residentBefore = ResidentKb();
    QProcess client;
    client.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    client.start(QStringLiteral("/usr/bin/python3"),
                 {QStringLiteral(TALVO_DEVICE_SCRIPTS "/mpris_flood.py"), QString::number(kFloodSeconds)});
    ASSERT_TRUE(client.waitForStarted());
    // Buffers of two seconds: the position moves in steps of that, four ahead.
    EXPECT_GE(advanceOver(6000), 3000u);
    EXPECT_EQ(client.state(), QProcess::Running) << "the flood ended before the time measured";
    ASSERT_TRUE(pump([&] { return client.state() == QProcess::NotRunning; }, 120000));
    const QStringList answer = QString::fromUtf8(client.readAllStandardOutput()).trimmed().split(u' ');
    ASSERT_EQ(answer.size(), 4) << answer.join(u' ').toStdString();
    EXPECT_EQ(answer[1], answer[3]) << "calls left unanswered";
    EXPECT_GE(answer[3].toInt(), 1000) << "too few calls to call it a flood";
    EXPECT_TRUE(playing());
#if !defined(__SANITIZE_ADDRESS__)
    // AddressSanitizer holds freed memory back in quarantine (256 MB), so the
    // resident size says nothing there; every call answered still does.
    EXPECT_LT(ResidentKb() - residentBefore, 64 * 1024) << "the calls were kept, not answered";
#endif
}

} // namespace
} // namespace talvo::test

#include "MprisTest.moc"
