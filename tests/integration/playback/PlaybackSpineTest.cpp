// The playback spine end to end: the main window driven by its command ids on
// a simulated wave output, with real program files and the real registry.
#include "PlayerFixture.h"

#include "base/CommandIds.h"
#include "library/ProgramStateStore.h"
#include "zqxauthor/PacketEncoderFactory.h"

#include <cmath>

#include <QFile>
#include <QProcess>
#include <QTimer>

namespace talvo::test {
namespace {

using PlaybackSpine = PlayerFixture;

// Every byte of PCM the SDK decodes from a file, block after block.
std::vector<std::uint8_t> decodeWholeFile(const QString& path)
{
    std::vector<std::uint8_t> pcm;
    ZQXHANDLE handle = 0;
    std::u16string wide = path.toStdU16String();
    if (ZQXOpenFileWinW(&handle, wide.c_str()) != ZQX_OK)
        return pcm;
    ZQXSeek(handle, 0);
    std::vector<std::uint8_t> block(ZQX_MAX_BLOCK_BYTES), out(1 << 16);
    std::uint32_t length = 0;
    while (ZQXGetEncodedAudio(handle, block.data(), ZQX_MAX_BLOCK_BYTES, &length) == ZQX_OK) {
        std::uint32_t produced = 0;
        ZQXDecodePCMFrame(handle, block.data(), length, out.data(), static_cast<std::uint32_t>(out.size()),
                          &produced);
        pcm.insert(pcm.end(), out.begin(), out.begin() + produced);
    }
    ZQXCloseFile(handle);
    return pcm;
}

std::vector<std::uint8_t> wavData(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QByteArray bytes = file.readAll();
    // The capture writes a canonical 44-byte header.
    return std::vector<std::uint8_t>(bytes.begin() + std::min<qsizetype>(44, bytes.size()), bytes.end());
}

TEST_F(PlaybackSpine, PlaysAProgramToTheEndWithExactlyTheSdkPcmLessTheFinalPartialBuffer)
{
    // 11 s at 1000 Hz: buffers of two one-second blocks, so the last second is
    // the partial buffer that is dropped on purpose.
    const QString path = WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 11);
    const QString capture = device_.path("played.wav");
    // Full volume: the output scales samples in software below it.
    SettingsStore(*registry_).SetVolume(65535);
    startPlayer([&] { return CreateWaveOut(("capture:" + capture + ":max").toStdString()); });
    ASSERT_EQ(frame_->Library().Count(), 1);

    frame_->SendCommand(Command::PlayStop);
    ASSERT_TRUE(frame_->Audio().IsPlaying());
    ASSERT_TRUE(pump([&] { return frame_->Audio().QueuedCount() == 0; }));
    frame_->SendCommand(Command::PlayStop);

    std::vector<std::uint8_t> expected = decodeWholeFile(path);
    std::vector<std::uint8_t> played = wavData(capture);
    ASSERT_EQ(expected.size(), 22000u);
    ASSERT_EQ(played.size(), 20000u);
    EXPECT_TRUE(std::equal(played.begin(), played.end(), expected.begin()));
}

TEST_F(PlaybackSpine, TheEndOfAProgramMovesOnToTheNextAndPlaysIt)
{
    WritePcmProgram(musicPath("Author/A/a.zq"), "a", 20);
    WritePcmProgram(musicPath("Author/B/b.zq"), "b", 20);
    startPlayer();
    ASSERT_EQ(frame_->Library().Count(), 2);
    ASSERT_EQ(frame_->Library().CurrentIndex(), 0);

    // The device finishes a buffer every few milliseconds, also while the
    // title change lets the queued buffers play out in its own loop.
    QTimer device;
    QObject::connect(&device, &QTimer::timeout, [&] { manual_->CompleteNext(); });
    device.start(5);
    frame_->SendCommand(Command::PlayStop);
    EXPECT_TRUE(pump([&] { return frame_->Library().CurrentIndex() == 1 && frame_->Audio().IsPlaying(); }));
    device.stop();
    EXPECT_EQ(QFileInfo(current().path).fileName(), "b.zq");
}

TEST_F(PlaybackSpine, StopWithFourBuffersQueuedRewindsFourSeconds)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 60);
    startPlayer();
    frame_->SendCommand(Command::PlayStop);
    ASSERT_EQ(manual_->QueuedCount(), 4u);
    const std::uint32_t readPosition = current().Position();
    ASSERT_EQ(readPosition, 8000u);

    frame_->SendCommand(Command::PlayStop);
    EXPECT_FALSE(frame_->Audio().IsPlaying());
    EXPECT_EQ(current().Position(), readPosition - 4000);
}

TEST_F(PlaybackSpine, FastForwardHoldAcceleratesAndStopsItselfAtTheEnd)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 100);
    startPlayer();
    frame_->SendCommand(Command::FastForwardPressed);
    for (int step = 2; step <= 10; ++step)
        frame_->SendMessage(WM_TIMER, Timer::FastForwardHold);
    // 1+1+6+6+6+11+11+11+16+16 seconds.
    EXPECT_EQ(current().Position(), 85000u);
    EXPECT_TRUE(frame_->IsTimerRunning(Timer::FastForwardHold));

    frame_->SendMessage(WM_TIMER, Timer::FastForwardHold); // step 11 moves 16 s: past the end
    EXPECT_EQ(current().Position(), 100000u);
    EXPECT_FALSE(frame_->IsTimerRunning(Timer::FastForwardHold));
    EXPECT_EQ(frame_->Transport_().holdCounter, 0);
}

TEST_F(PlaybackSpine, RewindHoldStopsItselfAtTheStart)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 30);
    startPlayer();
    current().Seek(3000);
    frame_->SendCommand(Command::RewindPressed);
    EXPECT_EQ(current().Position(), 2000u);
    frame_->SendMessage(WM_TIMER, Timer::RewindHold);
    EXPECT_EQ(current().Position(), 1000u);
    EXPECT_TRUE(frame_->IsTimerRunning(Timer::RewindHold));
    frame_->SendMessage(WM_TIMER, Timer::RewindHold); // step 3 moves 6 s back
    EXPECT_EQ(current().Position(), 0u);
    EXPECT_FALSE(frame_->IsTimerRunning(Timer::RewindHold));
}

TEST_F(PlaybackSpine, MenuStepsAddTheHoldsFirstAndClosingSteps)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 100);
    startPlayer();
    current().Seek(20000);
    frame_->SendCommand(Command::FastForward10s);
    pump();
    // 9 s of the step and 1 s of the hold's first step, while stopped.
    EXPECT_EQ(current().Position(), 30000u);
    EXPECT_FALSE(frame_->IsTimerRunning(Timer::FastForwardHold));

    frame_->SendCommand(Command::Rewind10s);
    pump();
    // 3 s and the hold's first step of 1 s; no closing step while stopped.
    EXPECT_EQ(current().Position(), 26000u);
}

TEST_F(PlaybackSpine, MenuNextSectionMovesTwoSections)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 50, {0, 10000, 20000, 30000, 40000});
    startPlayer();
    ASSERT_EQ(current().CurrentSection(), 0);
    frame_->SendCommand(Command::NextSection);
    pump();
    EXPECT_EQ(current().CurrentSection(), 2);
    EXPECT_EQ(current().Position(), 20000u);
    EXPECT_FALSE(frame_->IsTimerRunning(Timer::NextSectionHold));
}

TEST_F(PlaybackSpine, VolumeStepsMoveTenShownPoints)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 5);
    startPlayer();
    frame_->SendCommand(Command::VolumeUp);
    SettingsStore settings(*registry_);
    EXPECT_EQ(settings.GetVolume(), 39321u); // 49 % + 11 = 60 %
    EXPECT_EQ(settings.GetVolumePercent(), 60u);
    frame_->SendCommand(Command::VolumeDown);
    // 60 - 9 = 51 % stores 33422, which reads back as 50 %.
    EXPECT_EQ(settings.GetVolume(), 33422u);
    EXPECT_EQ(settings.GetVolumePercent(), 50u);
}

TEST_F(PlaybackSpine, AnMp3ProgramPlaysInBlocksOfExactlyFiveFrames)
{
    // Ten seconds of a tone, encoded into 104-byte frames.
    std::string error;
    auto encoder = zqxauthor::CreatePacketEncoder({ZQX_TYPE_MP3, 22050, 1}, error);
    ASSERT_TRUE(encoder) << error;
    std::vector<std::int16_t> tone(22050 * 10);
    for (std::size_t i = 0; i < tone.size(); ++i)
        tone[i] = static_cast<std::int16_t>(8000 * std::sin(static_cast<double>(i) * 0.05));
    std::vector<zqxauthor::EncodedPacket> packets;
    ASSERT_TRUE(encoder->Encode(tone, packets) && encoder->Finish(packets)) << encoder->Error();
    const QString path = musicPath("Author/Tone/tone.zq");
    QDir().mkpath(QFileInfo(path).absolutePath());
    CZQXWriter writer;
    ASSERT_EQ(writer.Create(path.toStdString(), ZQX_TYPE_MP3, 22050, 1), ZQX_OK);
    writer.SetProgramId("tone");
    for (const auto& packet : packets)
        ASSERT_EQ(writer.AddPacket(packet.bytes.data(), static_cast<std::uint32_t>(packet.bytes.size()),
                                   packet.skip + packet.samples),
                  ZQX_OK);
    ASSERT_EQ(writer.Finish(), ZQX_OK);

    ProgramFile program(path);
    ASSERT_EQ(program.ReadMetadata(), ZQX_OK);
    ProgramStateStore store(*registry_);
    program.Open(store);
    ASSERT_TRUE(program.IsOpen());
    EXPECT_EQ(program.DecodeUnit(), 1152u);
    std::vector<std::uint8_t> block(5 * 1152);
    std::uint32_t length = 0;
    int blocks = 0;
    while (program.DecodeBlock(block.data(), static_cast<std::uint32_t>(block.size()), &length)) {
        ASSERT_EQ(length, 5760u);
        ++blocks;
    }
    // The frames that do not fill a last block of five end the program.
    EXPECT_EQ(blocks, static_cast<int>(packets.size()) / 5 - (packets.size() % 5 == 0 ? 1 : 0));
    EXPECT_EQ(length, 0u);
}

} // namespace
} // namespace talvo::test
