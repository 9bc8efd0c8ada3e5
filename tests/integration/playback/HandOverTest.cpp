// Playback across the moments where one program gives way to another: a file
// handed over while one plays, the end of a program reached by a device that
// delivers its completions late and all at once, and a device that cannot be
// opened.
#include "PlayerFixture.h"

#include "base/CommandIds.h"
#include "settings/SettingsStore.h"

#include <QFile>

namespace talvo::test {
namespace {

std::vector<std::int16_t> capturedSamples(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll().mid(44); // the capture's canonical header
    std::vector<std::int16_t> samples(static_cast<std::size_t>(bytes.size()) / 2);
    if (!samples.empty())
        std::memcpy(samples.data(), bytes.constData(), samples.size() * 2);
    return samples;
}

qint64 capturedBytes(const QString& path)
{
    return QFileInfo(path).size() - 44;
}

// The samples a program written by WritePcmProgram holds, from its start.
std::vector<std::int16_t> programSamples(int seconds, PcmShape shape)
{
    std::vector<std::int16_t> samples;
    for (int s = 0; s < seconds; ++s)
        for (std::uint32_t i = 0; i < shape.rate * shape.channels; ++i)
            samples.push_back(
                static_cast<std::int16_t>(shape.base + s * 7 + static_cast<int>(i / shape.channels % 5)));
    return samples;
}

class HandOver : public PlayerFixture {
protected:
    // Opens b with a hand-over while a plays, lets b play a few seconds, and
    // checks that what was heard of b is b from its start, in order.
    void expectHandOverPlaysTheNewProgramInOrder(PcmShape bShape)
    {
        constexpr int kSeconds = 40;
        const PcmShape aShape{1000, 1, 0};
        WritePcmProgram(musicPath("Author/A/a.zq"), "a", kSeconds, {}, aShape);
        const QString b = WritePcmProgram(musicPath("Author/B/b.zq"), "b", kSeconds, {}, bShape);
        const QString capture = device_.path("played.wav");
        SettingsStore(*registry_).SetVolume(65535); // samples pass unscaled
        startPlayer([&] { return CreateWaveOut(("capture:" + capture + ":16").toStdString()); });
        frame_->SendCommand(Command::PlayStop);
        ASSERT_TRUE(frame_->Audio().IsPlaying());
        ASSERT_TRUE(pump([&] { return capturedBytes(capture) >= 2000; }));

        std::u16string path = b.toStdU16String();
        frame_->SendMessage(Message::OpenProgramFile, 0, reinterpret_cast<LPARAM>(path.c_str()));
        ASSERT_EQ(frame_->Library().Current()->path, b);
        const qint64 bBytesPerSecond = qint64{bShape.rate} * bShape.channels * 2;
        ASSERT_TRUE(pump([&] { return capturedBytes(capture) >= 12 * bBytesPerSecond; }));
        frame_->SendCommand(Command::PlayStop);

        // The capture starts afresh when the format changes; else a's part comes first.
        std::vector<std::int16_t> heard = capturedSamples(capture);
        const auto bStart =
            std::find_if(heard.begin(), heard.end(), [&](std::int16_t v) { return v >= bShape.base; });
        ASSERT_NE(bStart, heard.end());
        const std::vector<std::int16_t> heardOfB(bStart, heard.end());
        const std::vector<std::int16_t> expected = programSamples(kSeconds, bShape);
        ASSERT_GE(heardOfB.size(), static_cast<std::size_t>(8 * bShape.rate * bShape.channels));
        ASSERT_LE(heardOfB.size(), expected.size());
        const auto mismatch = std::mismatch(heardOfB.begin(), heardOfB.end(), expected.begin());
        EXPECT_EQ(mismatch.first, heardOfB.end())
            << "b's audio goes wrong at sample " << (mismatch.first - heardOfB.begin());
    }
};

TEST_F(HandOver, AFileHandedOverWhilePlayingIsHeardFromItsStartInOrder)
{
    expectHandOverPlaysTheNewProgramInOrder(PcmShape{1000, 1, 1000});
}

TEST_F(HandOver, AFileOfAHigherRateHandedOverWhilePlayingIsHeardFromItsStartInOrder)
{
    // Larger buffers: the block is allocated anew.
    expectHandOverPlaysTheNewProgramInOrder(PcmShape{2000, 1, 1000});
}

TEST_F(HandOver, TheEndOfAProgramAdvancesExactlyOneProgramWhenCompletionsComeInABurst)
{
    constexpr int kPrograms = 6;
    for (int i = 0; i < kPrograms; ++i) {
        const std::string id = "p" + std::to_string(i);
        WritePcmProgram(musicPath(QStringLiteral("Author/%1/%1.zq").arg(QString::fromStdString(id))), id, 9,
                        {}, PcmShape{1000, 1, static_cast<std::int16_t>(1000 * i)});
    }
    const QString capture = device_.path("played.wav");
    SettingsStore(*registry_).SetVolume(65535);
    // Unpaced, with every completion held back until four are due: at each
    // end several refills find the program exhausted at once.
    startPlayer([&] { return CreateWaveOut(("capture:" + capture + ":max,burst=4").toStdString()); });
    ASSERT_EQ(frame_->Library().Count(), kPrograms);
    frame_->SendCommand(Command::PlayStop);
    ASSERT_TRUE(pump([&] {
        const std::vector<std::int16_t> heard = capturedSamples(capture);
        return !heard.empty() && heard.back() / 1000 == kPrograms - 1;
    }));
    frame_->SendCommand(Command::PlayStop);

    // The programs heard, in the order heard.
    std::vector<int> order;
    for (std::int16_t sample : capturedSamples(capture)) {
        const int program = sample / 1000;
        if (order.empty() || order.back() != program)
            order.push_back(program);
    }
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4, 5}));
}

TEST_F(HandOver, AWaveOutputThatCannotOpenSaysSoAndLeavesPlaybackStopped)
{
    WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 60);
    startPlayer([] {
        auto wave = std::make_unique<ManualWaveOut>();
        wave->FailNextOpen(MMSYSERR_BADDEVICEID);
        return std::unique_ptr<WaveOut>(std::move(wave));
    });
    current().Seek(20000);
    frame_->SendCommand(Command::PlayStop);
    EXPECT_FALSE(frame_->Audio().IsPlaying());
    pump();
    EXPECT_EQ(current().Position(), 20000u);
    const QStringList boxes = device_.messages();
    ASSERT_EQ(boxes.size(), 1);
    EXPECT_TRUE(boxes[0].contains("Device audio playback error 2 occured."));
}

} // namespace
} // namespace talvo::test
