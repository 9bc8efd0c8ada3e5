// CPU time the whole player spends playing a program from start to end, beside
// the SDK's bare decode of the same file, both in CPU seconds per hour of
// audio.  The player runs as it does on the device: a real main window, the
// registry, the library scan, the transport and the output refill path, on the
// simulated output unpaced so that only the work is measured and not the wait.
// The ratio is what everything around the decoder costs.
#include "SdkDecodeLoop.h"
#include "app/CMainFrame.h"
#include "base/CommandIds.h"
#include "platform/WaveOut.h"
#include "settings/SettingsStore.h"
#include "zqx/zqxsdk.h"
#include "zqx/zqxwriter.h"
#include "zqxauthor/PacketEncoderFactory.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <mpg123.h>

#include <cmath>
#include <cstdio>
#include <ctime>

namespace {

constexpr double kSeconds = 600; // audio per program: long enough that the short decodes measure steadily
constexpr int kPlayTimeoutMs = 120000;       // a player that never reaches the end
constexpr int kPollMs = 5;                   // how often the end is looked for
constexpr talvo::DWORD kFullVolume = 0xFFFF; // volume scaling is part of the work

double CpuSeconds()
{
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

// Voiced stretches of a gliding tone with harmonics, and pauses between them.
std::vector<std::int16_t> Speechlike(std::uint32_t rate, std::uint32_t channels)
{
    std::vector<std::int16_t> pcm(std::size_t(kSeconds * rate) * channels);
    double phase = 0;
    for (std::size_t i = 0; i < pcm.size() / channels; ++i) {
        const double t = double(i) / rate;
        phase += 2 * M_PI * (140 + 60 * std::sin(t * 2.3)) / rate;
        const double v = (0.5 * std::sin(phase) + 0.25 * std::sin(3 * phase)) * (std::fmod(t, 1.0) < 0.7);
        for (std::uint32_t c = 0; c < channels; ++c)
            pcm[i * channels + c] = std::int16_t(v * 20000);
    }
    return pcm;
}

// Writes the program; answers its length in seconds, or 0 on failure.
double WriteProgram(const QString& path, const zqxauthor::EncoderRequest& request, const char* label)
{
    std::string error;
    auto enc = zqxauthor::CreatePacketEncoder(request, error);
    if (!enc) {
        std::fprintf(stderr, "%s: %s\n", label, error.c_str());
        return 0;
    }
    std::vector<zqxauthor::EncodedPacket> packets;
    enc->Encode(Speechlike(enc->SampleRate(), enc->Channels()), packets);
    enc->Finish(packets);

    QDir().mkpath(QFileInfo(path).absolutePath());
    CZQXWriter writer;
    writer.Create(path.toStdString(), request.fileType, enc->SampleRate(), enc->Channels());
    writer.SetProgramId("bench");
    writer.SetTitle(label);
    if (enc->PreSkip())
        writer.SetPreSkip(enc->PreSkip());
    std::uint64_t samples = 0;
    for (const auto& p : packets) {
        writer.AddPacket(p.bytes.data(), std::uint32_t(p.bytes.size()), p.skip + p.samples);
        samples += p.samples;
    }
    if (const int st = writer.Finish(); st != ZQX_OK) {
        std::fprintf(stderr, "%s: writing the program failed: %s\n", label, ZQXStatusName(st));
        return 0;
    }
    return double(samples) / enc->SampleRate();
}

// Runs the event loop, sleeping while idle, until the condition holds or the
// time runs out.
bool RunUntil(const std::function<bool()>& done, int timeoutMs)
{
    QEventLoop loop;
    QElapsedTimer clock;
    clock.start();
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (done() || clock.elapsed() > timeoutMs)
            loop.quit();
    });
    poll.start(kPollMs);
    loop.exec();
    return done();
}

// Plays the device's only program from its start to its end; answers the CPU
// seconds spent, or a negative number when playback did not run to the end.
double PlayerSeconds(const QString& devicePath)
{
    std::unique_ptr<talvo::Registry> registry =
        talvo::OpenSqliteRegistry((devicePath + "/registry.db").toStdString());
    if (!registry)
        return -1;
    talvo::SettingsStore(*registry).SetVolume(kFullVolume);
    talvo::CMainFrame frame({*registry, devicePath + "/app", QString(), [] {
                                 return talvo::CreateWaveOut("null:max");
                             }});
    frame.resize(480, 640);
    frame.show();
    RunUntil([] { return false; }, 200); // the initial load and first paint settle

    const double start = CpuSeconds();
    frame.SendCommand(talvo::Command::PlayStop);
    if (!frame.Audio().IsPlaying())
        return -1;
    // At the end the refill stops; the last queued buffers then play out.
    const bool ended = RunUntil([&] { return frame.Audio().QueuedCount() == 0; }, kPlayTimeoutMs);
    const double spent = CpuSeconds() - start;
    return ended ? spent : -1;
}

struct Subject {
    const char* label;
    zqxauthor::EncoderRequest request;
};

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir root;
    // No player elsewhere on the machine can be reached or disturbed.
    qputenv("XDG_RUNTIME_DIR", root.path().toUtf8());
    QApplication app(argc, argv);

    const Subject subjects[] = {
        {"type 1 IMA ADPCM 8 kHz", {.fileType = 1}},
        {"type 2 IMA ADPCM 16 kHz", {.fileType = 2}},
        {"type 3 Opus 48 kHz mono", {.fileType = 3, .sampleRate = 48000, .channels = 1}},
        {"type 4 MP3 22050 Hz", {.fileType = 4}},
        {"type 5 PCM 22050 Hz stereo", {.fileType = 5, .sampleRate = 22050, .channels = 2}},
    };
    std::printf("CPU seconds per hour of audio, playing %.0f s programs from start to end.\n"
                "player: a whole main window on the unpaced null output; bare: the SDK's decode\n"
                "of the same file; the last column is player / bare.\n",
                kSeconds);
    std::printf("%-28s %10s %10s %8s\n", "", "player", "bare", "ratio");
    int status = 0;
    for (const Subject& s : subjects) {
        // A device of its own per program, so the library holds only this one.
        const QString device = root.filePath(QString("device%1").arg(&s - subjects));
        for (const char* sub : {"home", "music", "app"})
            QDir().mkpath(device + "/" + sub);
        // The player draws its screen from the skins the build made.
        QFile::link(QStringLiteral(TALVO_SKINS_PARENT "/Skins"), device + "/app/Skins");
        qputenv("TALVOPLAYER_REGISTRY", (device + "/registry.db").toUtf8());
        qputenv("TALVOPLAYER_HOME", (device + "/home").toUtf8());
        qputenv("TALVOPLAYER_MUSIC", (device + "/music").toUtf8());
        qputenv("TALVOPLAYER_MESSAGES", (device + "/messages.log").toUtf8());
        qputenv("TALVOPLAYER_CARDS", "");

        const QString path = device + "/music/Bench/Program/bench.zq";
        const double seconds = WriteProgram(path, s.request, s.label);
        if (seconds <= 0) {
            status = 1;
            continue;
        }
        const double bareStart = CpuSeconds();
        const std::uint64_t decoded = bench::DecodeThroughSdk(path.toStdU16String(), s.request.fileType);
        const double bare = CpuSeconds() - bareStart;
        const double player = PlayerSeconds(device);
        if (decoded == 0 || player < 0) {
            std::fprintf(stderr, "%s: %s\n", s.label,
                         decoded == 0 ? "the SDK decoded nothing" : "the player did not play to the end");
            status = 1;
            continue;
        }
        const double hours = seconds / 3600;
        std::printf("%-28s %10.3f %10.3f %8.2f\n", s.label, player / hours, bare / hours, player / bare);
        std::fflush(stdout);
    }
    return status;
}
