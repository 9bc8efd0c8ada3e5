#pragma once
// A program whose samples name their own time, and the reading of a captured
// run of it: what was heard, from when to when, and whether any of it was
// skipped or heard twice, without asking the player.
#include "zqx/zqxsdk.h"
#include "zqx/zqxwriter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>
#include <optional>
#include <vector>

namespace talvo::test {

inline constexpr std::uint32_t kTimeCodeRate = 1000; // one frame per millisecond
inline constexpr std::uint32_t kTimeCodePacketFrames = 20;

// Stereo frames whose left sample is the low 15 bits of their time and whose
// right sample the rest.
inline QString WriteTimeCodedProgram(const QString& path, std::uint32_t seconds)
{
    QDir().mkpath(QFileInfo(path).path());
    CZQXWriter writer;
    EXPECT_EQ(writer.Create(path.toStdString(), ZQX_TYPE_PCM16, kTimeCodeRate, 2), ZQX_OK);
    writer.SetProgramId("clock");
    writer.SetTitle("Clock");
    std::vector<std::int16_t> packet(kTimeCodePacketFrames * 2);
    for (std::uint32_t ms = 0; ms < seconds * 1000; ms += kTimeCodePacketFrames) {
        for (std::uint32_t i = 0; i < kTimeCodePacketFrames; ++i) {
            packet[2 * i] = static_cast<std::int16_t>((ms + i) & 0x7FFF);
            packet[2 * i + 1] = static_cast<std::int16_t>((ms + i) >> 15);
        }
        EXPECT_EQ(writer.AddPacket(reinterpret_cast<const std::uint8_t*>(packet.data()),
                                   static_cast<std::uint32_t>(packet.size() * 2), kTimeCodePacketFrames),
                  ZQX_OK);
    }
    EXPECT_EQ(writer.Finish(), ZQX_OK);
    return path;
}

// One run's capture: the first and last time heard, how many frames, and how
// many of them do not follow the one before (a skip, a repeat, a restart).
struct Heard {
    std::uint32_t firstMs;
    std::uint32_t lastMs;
    std::uint64_t frames;
    std::uint64_t jumps;
};

inline std::optional<Heard> ReadCapture(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    const qsizetype data = bytes.indexOf("data");
    if (data < 0)
        return std::nullopt;
    const qsizetype start = data + 8;
    const qsizetype frames = (bytes.size() - start) / 4;
    if (frames <= 0)
        return std::nullopt;
    const auto timeAt = [&](qsizetype frame) {
        const auto* sample = reinterpret_cast<const std::int16_t*>(bytes.constData() + start + frame * 4);
        return static_cast<std::uint32_t>(sample[0]) | static_cast<std::uint32_t>(sample[1]) << 15;
    };
    Heard heard{timeAt(0), timeAt(frames - 1), static_cast<std::uint64_t>(frames), 0};
    for (qsizetype frame = 1; frame < frames; ++frame)
        heard.jumps += timeAt(frame) != timeAt(frame - 1) + 1 ? 1 : 0;
    return heard;
}

} // namespace talvo::test
