// Speed, the sleep timer, skipped silences and the smart rewind in a whole
// player: captured audio, positions in program time, and the program's record.
#include "PlayerFixture.h"

#include "base/CommandIds.h"
#include "library/ProgramRecordLayout.h"
#include "library/ProgramStateStore.h"
#include "skins/SkinnedDisplay.h"

#include <QDateTime>
#include <QFile>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <cmath>
#include <numbers>

namespace talvo::test {
namespace {

constexpr std::uint32_t kToneRate = 8000;

// A type-5 program from plain PCM: tone and silence stretches in order.
struct Stretch {
    double seconds;
    double hz; // 0: silence
};
QString WriteToneProgram(const QString& path, const std::vector<Stretch>& stretches)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    std::vector<std::int16_t> pcm;
    for (const Stretch& stretch : stretches) {
        const auto frames = static_cast<std::size_t>(stretch.seconds * kToneRate);
        for (std::size_t i = 0; i < frames; ++i)
            pcm.push_back(stretch.hz == 0
                              ? 0
                              : static_cast<std::int16_t>(
                                    8000 * std::sin(2 * std::numbers::pi * stretch.hz * i / kToneRate)));
    }
    CZQXWriter writer;
    EXPECT_EQ(writer.Create(path.toStdString(), ZQX_TYPE_PCM16, kToneRate, 1), ZQX_OK);
    writer.SetProgramId("tone");
    writer.SetTitle("Tone");
    EXPECT_EQ(writer.AddPcm16(pcm.data(), pcm.size()), ZQX_OK);
    EXPECT_EQ(writer.Finish(), ZQX_OK);
    return path;
}

std::vector<std::int16_t> capturedSamples(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll().mid(44); // the canonical header
    std::vector<std::int16_t> samples(static_cast<std::size_t>(bytes.size()) / 2);
    std::memcpy(samples.data(), bytes.constData(), samples.size() * 2);
    return samples;
}

double dominantHz(const std::vector<std::int16_t>& pcm, std::uint32_t rate)
{
    std::size_t crossings = 0;
    for (std::size_t i = 1; i < pcm.size(); ++i)
        crossings += (pcm[i - 1] < 0) != (pcm[i] < 0);
    return crossings / 2.0 / (double(pcm.size()) / rate);
}

DWORD recordValue(Registry& registry, const QString& key, std::u16string_view name)
{
    HKEY record = 0;
    if (registry.OpenKey(HKEY_LOCAL_MACHINE, ProgramRecord::ProgramKeyPath(key), KEY_READ, &record) != 0)
        return 0xDEADu;
    DWORD value = 0xDEADu;
    DWORD size = sizeof value;
    registry.QueryValue(record, name, nullptr, reinterpret_cast<std::uint8_t*>(&value), &size);
    registry.CloseKey(record);
    return value;
}

// Plays the whole program on an unpaced capture and returns what was played.

class ListeningAids : public PlayerFixture {
protected:
    // The manual device finishes buffers one at a time, each refilled before the next.
    void completeBuffers(int count)
    {
        for (int i = 0; i < count; ++i) {
            ASSERT_TRUE(manual_->CompleteNext());
            pump();
        }
    }

    // Plays the whole program on an unpaced capture and returns what was played.
    std::vector<std::int16_t> playToTheEnd(const QString& capture)
    {
        frame_->SendCommand(Command::PlayStop);
        EXPECT_TRUE(frame_->Audio().IsPlaying());
        EXPECT_TRUE(pump([&] { return frame_->Audio().QueuedCount() == 0; }));
        frame_->SendCommand(Command::PlayStop);
        return capturedSamples(capture);
    }
};

TEST_F(ListeningAids, TwiceTheSpeedPlaysHalfAsLongAtThePitchOfTheProgram)
{
    WriteToneProgram(musicPath("Author/Tone/tone.zq"), {{20, 200}});
    const QString capture = device_.path("played.wav");
    SettingsStore(*registry_).SetVolume(65535);
    startPlayer([&] { return CreateWaveOut(("capture:" + capture + ":max").toStdString()); });
    frame_->SendCommand(Command::SpeedBase + 20);
    EXPECT_EQ(recordValue(*registry_, current().Key(), ProgramRecord::kPlaySpeed), 20u);

    const std::vector<std::int16_t> played = playToTheEnd(capture);
    // The player drops the final partial buffer, as at normal speed.
    EXPECT_NEAR(double(played.size()) / kToneRate, 10.0, 1.3);
    EXPECT_LT(double(played.size()) / kToneRate, 10.2);
    EXPECT_NEAR(dominantHz(played, kToneRate), 200, 6);
    EXPECT_EQ(frame_->Display().ListeningText(), "2.0x");
}

TEST_F(ListeningAids, BackAtNormalSpeedThePlayedAudioIsTheProgramsToTheBit)
{
    // The sample pattern of a generated program: second s, sample i.
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 11);
    const QString capture = device_.path("played.wav");
    SettingsStore(*registry_).SetVolume(65535);
    startPlayer([&] { return CreateWaveOut(("capture:" + capture + ":max").toStdString()); });
    frame_->SendCommand(Command::SpeedBase + 20);
    frame_->SendCommand(Command::SpeedBase + 10);
    EXPECT_EQ(recordValue(*registry_, current().Key(), ProgramRecord::kPlaySpeed), 10u);

    const std::vector<std::int16_t> played = playToTheEnd(capture);
    // Whole buffers of two one-second blocks; the final partial one is dropped as always.
    ASSERT_EQ(played.size(), 10000u);
    for (std::size_t i = 0; i < played.size(); ++i)
        ASSERT_EQ(played[i], static_cast<std::int16_t>(i / 1000 * 7 + i % 5)) << i;
}

TEST_F(ListeningAids, TheSpeedIsKeptPerProgramAndAbsentMeansNormal)
{
    WritePcmProgram(musicPath("Author/A/a.zq"), "a", 20);
    WritePcmProgram(musicPath("Author/B/b.zq"), "b", 20);
    startPlayer();
    EXPECT_EQ(frame_->Audio().CurrentSpeedTenths(), 10);
    EXPECT_EQ(frame_->Display().ListeningText(), "");
    frame_->SendCommand(Command::SpeedBase + 15);
    const QString first = current().Key();
    frame_->SendCommand(Command::NextTitle);
    EXPECT_NE(current().Key(), first);
    EXPECT_EQ(frame_->Audio().CurrentSpeedTenths(), 10);
    EXPECT_EQ(recordValue(*registry_, current().Key(), ProgramRecord::kPlaySpeed), 0xDEADu);

    // A new player finds it again; a damaged value plays at normal speed.
    frame_.reset();
    startPlayer();
    frame_->Library().SelectProgram(frame_->Library().IndexOfPath(musicPath("Author/A/a.zq")));
    EXPECT_EQ(frame_->Audio().CurrentSpeedTenths(), 15);
    ProgramStateStore(*registry_).SavePlaySpeed(current(), 31);
    EXPECT_EQ(frame_->Audio().CurrentSpeedTenths(), 10);
}

TEST_F(ListeningAids, TheMenusEndWithSpeedAndSleepTimerAfterEveryDesignedItem)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 20);
    startPlayer();
    QMenu* softKeys = nullptr;
    for (QPushButton* key : frame_->findChildren<QPushButton*>())
        softKeys = key->menu() ? key->menu() : softKeys;
    ASSERT_TRUE(softKeys);
    const QList<QAction*> items = softKeys->actions();
    ASSERT_GE(items.size(), 3);
    EXPECT_EQ(items[items.size() - 3]->text(), "Exit");
    EXPECT_EQ(items[items.size() - 2]->text(), "Speed");
    EXPECT_EQ(items.back()->text(), "Sleep Timer");
    const QList<QAction*> popups = frame_->findChild<QMenuBar*>()->actions();
    EXPECT_EQ(popups[popups.size() - 2]->text(), "Help");
    EXPECT_EQ(popups.back()->text(), "Listening");

    QMenu* speeds = items[items.size() - 2]->menu();
    ASSERT_EQ(speeds->actions().size(), 26);
    EXPECT_EQ(speeds->actions().front()->text(), "0.5x");
    speeds->actions()[10]->trigger();
    EXPECT_EQ(frame_->Audio().CurrentSpeedTenths(), 15);
    QMenu* sleep = items.back()->menu();
    sleep->actions().back()->trigger();
    EXPECT_TRUE(frame_->Audio().SleepRemainingMs());
    sleep->actions().front()->trigger();
    EXPECT_FALSE(frame_->Audio().SleepRemainingMs());
}

TEST_F(ListeningAids, AStopAtTwiceTheSpeedRewindsInProgramTimeAndKeepsWhatWasHeard)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 120);
    startPlayer();
    frame_->SendCommand(Command::SpeedBase + 20);
    frame_->SendCommand(Command::PlayStop);
    ASSERT_EQ(manual_->QueuedCount(), 4u);
    completeBuffers(6);
    // Six buffers of 2.5 s played at 2x are 30 s of the program.
    const std::uint32_t heard = frame_->Audio().HeardPositionMs();
    EXPECT_NEAR(heard, 30000, 300);
    const std::uint32_t read = current().Position();

    frame_->SendCommand(Command::PlayStop);
    // One second of program time per queued buffer, and what the chain held.
    EXPECT_LE(current().Position(), read - 4000);
    EXPECT_GE(current().Position(), heard);
}

TEST_F(ListeningAids, ASpeedChangeWhilePlayingGoesOnFromThePositionHeard)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 120);
    startPlayer();
    frame_->SendCommand(Command::PlayStop);
    // Three 2-second buffers heard at 1.0x, read 8 s ahead of them.
    completeBuffers(3);
    ASSERT_EQ(current().Position(), 14000u);
    ASSERT_NEAR(frame_->Audio().HeardPositionMs(), 6000, 50);

    frame_->SendCommand(Command::SpeedBase + 20);
    EXPECT_TRUE(frame_->Audio().IsPlaying());
    EXPECT_NEAR(frame_->Audio().HeardPositionMs(), 6000, 50);
    // Two buffers of 2.5 s at 2.0x are 10 s of the program.
    completeBuffers(2);
    EXPECT_NEAR(frame_->Audio().HeardPositionMs(), 16000, 300);
    frame_->SendCommand(Command::SpeedBase + 10);
    EXPECT_NEAR(frame_->Audio().HeardPositionMs(), 16000, 300);
    completeBuffers(1);
    EXPECT_NEAR(frame_->Audio().HeardPositionMs(), 18000, 300);
}

TEST_F(ListeningAids, TheSleepTimerFadesTheLastTenSecondsThenStopsAsStopDoes)
{
    // A constant level at 1000 Hz, long enough for the shortest timer.
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 330, {}, {1000, 1, 10000});
    const QString capture = device_.path("played.wav");
    SettingsStore(*registry_).SetVolume(65535);
    startPlayer([&] { return CreateWaveOut(("capture:" + capture + ":max").toStdString()); });
    frame_->SendCommand(Command::SleepBase + 5);
    EXPECT_EQ(frame_->Display().ListeningText(), "Sleep 05:00");
    frame_->SendCommand(Command::PlayStop);
    ASSERT_TRUE(pump([&] { return !frame_->Audio().IsPlaying(); }, 60000));

    const std::vector<std::int16_t> played = capturedSamples(capture);
    ASSERT_GE(played.size(), 300000u);
    EXPECT_NEAR(played[289000], 10000 + 289 * 7, 5);       // before the fade
    EXPECT_NEAR(played[295000], (10000 + 295 * 7) / 2, 5); // half way down
    EXPECT_LT(std::abs(played[299900]), 200);              // nearly silent
    EXPECT_TRUE(std::all_of(played.begin() + 300000, played.end(), [](std::int16_t s) { return s == 0; }));
    EXPECT_FALSE(frame_->Audio().SleepRemainingMs());
    // Stopped as Stop stops: 2-second buffers, the one that reached the end
    // came back with three more queued and nothing more was read, so the read
    // position 306 s goes back a second for each still queued at the stop;
    // the listener's volume untouched; the position kept at closing.
    EXPECT_GE(current().Position(), 303000u);
    EXPECT_LE(current().Position(), 306000u);
    EXPECT_EQ(SettingsStore(*registry_).GetVolume(), 65535u);
    const QString key = current().Key();
    const std::uint32_t stopped = current().Position();
    frame_.reset();
    DWORD kept = 0;
    ASSERT_TRUE(ProgramStateStore(*registry_).ReadPlayPosition(key, &kept));
    EXPECT_EQ(kept, stopped);
}

TEST_F(ListeningAids, TheEndOfTheSectionFadesAndStopsAtTheSectionsEnd)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 90, {0, 40000}, {1000, 1, 10000});
    const QString capture = device_.path("played.wav");
    SettingsStore(*registry_).SetVolume(65535);
    startPlayer([&] { return CreateWaveOut(("capture:" + capture + ":max").toStdString()); });
    current().Seek(10000);
    frame_->SendCommand(Command::SleepEndOfSection);
    EXPECT_EQ(frame_->Display().ListeningText(), "Sleep 00:30");
    frame_->SendCommand(Command::PlayStop);
    ASSERT_TRUE(pump([&] { return !frame_->Audio().IsPlaying(); }, 60000));

    // From 10 s: 20 s at full level, the ramp to 40 s, then nothing.
    const std::vector<std::int16_t> played = capturedSamples(capture);
    ASSERT_GE(played.size(), 30000u);
    EXPECT_NEAR(played[19000], 10000 + 29 * 7, 5);
    EXPECT_NEAR(played[25000], (10000 + 35 * 7) / 2, 5);
    EXPECT_TRUE(std::all_of(played.begin() + 30000, played.end(), [](std::int16_t s) { return s == 0; }));
}

TEST_F(ListeningAids, AControlActionDuringTheFadeCancelsItAndPlaysAtFullLevelAgain)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 330, {}, {1000, 1, 10000});
    startPlayer();
    frame_->SendCommand(Command::SleepBase + 5);
    frame_->SendCommand(Command::PlayStop);
    // 2-second buffers: after 148 the fade is heard.
    completeBuffers(148);
    ASSERT_TRUE(frame_->Audio().SleepRemainingMs());
    frame_->SendCommand(Command::VolumeUp);
    EXPECT_FALSE(frame_->Audio().SleepRemainingMs());
    EXPECT_TRUE(frame_->Audio().IsPlaying());
    completeBuffers(8);
    EXPECT_TRUE(frame_->Audio().IsPlaying());
    EXPECT_GT(current().Position(), 310000u);
    EXPECT_EQ(frame_->Display().ListeningText(), "");
}

TEST_F(ListeningAids, SkippingSilencePlaysShorterByTheGapsAndKeepsProgramTime)
{
    // 3 s of silence after 2 s of tone, then 0.3 s (kept), then more tone.
    WriteToneProgram(musicPath("Author/Tone/tone.zq"), {{2, 200}, {3, 0}, {2, 200}, {0.3, 0}, {10, 200}});
    const QString capture = device_.path("played.wav");
    SettingsStore(*registry_).SetVolume(65535);
    SettingsStore(*registry_).SetSkipSilence(1);
    startPlayer([&] { return CreateWaveOut(("capture:" + capture + ":max").toStdString()); });
    const std::vector<std::int16_t> played = playToTheEnd(capture);
    // 17.3 s less 2.75 s skipped, less the final partial buffer (under 2.5 s).
    const double seconds = double(played.size()) / kToneRate;
    EXPECT_LE(seconds, 14.55 + 0.02);
    EXPECT_GE(seconds, 14.55 - 2.5);
    // The tone after the gap follows a quarter second of silence.
    EXPECT_GT(std::abs(played[static_cast<std::size_t>(2.2713 * kToneRate)]), 4000);
}

TEST_F(ListeningAids, ThePositionHeardAfterASkippedGapIsItsProgramTime)
{
    WriteToneProgram(musicPath("Author/Tone/tone.zq"), {{2, 200}, {10, 0}, {20, 200}});
    SettingsStore(*registry_).SetSkipSilence(1);
    startPlayer();
    frame_->SendCommand(Command::PlayStop);
    // Buffers of 2.5 s played: the second starts at 2.5 s played, which is
    // 12 s into the program (2 s tone, 0.25 s kept of 10 s of silence).
    ASSERT_TRUE(manual_->CompleteNext());
    pump();
    EXPECT_NEAR(frame_->Audio().HeardPositionMs(), 12250, 30);
}

TEST_F(ListeningAids, SmartRewindGoesBackByThePauseStoredAcrossARestart)
{
    // Each start reads four blocks of 2 s ahead of where it starts.
    constexpr std::uint32_t kPrimed = 8000;
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 600);
    SettingsStore(*registry_).SetSmartRewind(1);
    startPlayer();
    current().Seek(300000);
    frame_->SendCommand(Command::PlayStop);
    frame_->SendCommand(Command::PlayStop);
    const std::uint32_t stopped = current().Position();
    const DWORD stoppedAt = recordValue(*registry_, current().Key(), ProgramRecord::kStoppedAt);
    EXPECT_NEAR(double(stoppedAt), double(QDateTime::currentSecsSinceEpoch()), 5);

    // A short pause in the same run: no rewind.
    frame_->SendCommand(Command::PlayStop);
    EXPECT_EQ(current().Position(), stopped + kPrimed);
    frame_->SendCommand(Command::PlayStop);

    // Two hours ago, by the record, in a new player: 30 s earlier.
    ProgramStateStore(*registry_).SaveStoppedAt(current(), static_cast<DWORD>(stoppedAt - 7200));
    frame_.reset();
    startPlayer();
    const std::uint32_t restored = current().Position();
    frame_->SendCommand(Command::PlayStop);
    EXPECT_EQ(current().Position(), restored - 30000 + kPrimed);

    // Off: the same pause resumes where it stopped.
    frame_->SendCommand(Command::PlayStop);
    SettingsStore(*registry_).SetSmartRewind(0);
    ProgramStateStore(*registry_).SaveStoppedAt(current(), static_cast<DWORD>(stoppedAt - 7200));
    frame_.reset();
    startPlayer();
    const std::uint32_t again = current().Position();
    frame_->SendCommand(Command::PlayStop);
    EXPECT_EQ(current().Position(), again + kPrimed);
}

} // namespace
} // namespace talvo::test
