// Start-up to the first painted frame: the real player in a temporary device
// whose Music folder holds 1,000 programs, beside a bare Qt window of the same
// size, and beside the player on an empty library; each started several times
// in turn in the same run on the offscreen platform.  All time themselves
// through the first-paint probe (TALVOPLAYER_EXIT_AFTER_FIRST_PAINT), from the
// kernel's start of the process, so loading libraries counts too.  The two
// players differ only in their library, so their ratio is what the library
// adds before the window appears.
#include "zqx/zqxwriter.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

namespace {

constexpr int kRuns = 7;          // per subject; the median is reported
constexpr int kTimeoutMs = 30000; // a start that never paints
constexpr int kAuthors = 100;
constexpr int kTitlesPerAuthor = 10;

// Music/Author/Title/program.zq for 1,000 programs, each a hard link to one
// small program; false when the library cannot be built.
bool BuildLibrary(const QString& root)
{
    const QString model = root + "/model.zq";
    CZQXWriter writer;
    std::vector<std::int16_t> silence(800); // 100 ms at 8000 Hz
    if (writer.Create(model.toStdString(), ZQX_TYPE_PCM16, 8000, 1) != ZQX_OK ||
        writer.SetProgramId("BENCH") != ZQX_OK || writer.SetTitle("A title") != ZQX_OK ||
        writer.AddPcm16(silence.data(), silence.size()) != ZQX_OK || writer.Finish() != ZQX_OK)
        return false;
    for (int author = 0; author < kAuthors; ++author) {
        for (int title = 0; title < kTitlesPerAuthor; ++title) {
            const QString folder =
                QStringLiteral("%1/music/Author %2/Title %3").arg(root).arg(author).arg(title);
            if (!QDir().mkpath(folder))
                return false;
            std::error_code error;
            std::filesystem::create_hard_link(QFile::encodeName(model).toStdString(),
                                              QFile::encodeName(folder + "/program.zq").toStdString(), error);
            if (error && !QFile::copy(model, folder + "/program.zq"))
                return false;
        }
    }
    return true;
}

// One start of `program` in a fresh device whose Music folder is music (its
// own empty one when music is empty); the printed milliseconds, or a negative
// number when it did not paint and quit.
double StartOnce(const QString& program, const QString& music = QString())
{
    QTemporaryDir device;
    for (const char* sub : {"home", "music", "run"})
        QDir(device.path()).mkpath(sub);
    QFile::setPermissions(device.filePath("run"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("QT_QPA_PLATFORM", "offscreen");
    env.insert("TALVOPLAYER_EXIT_AFTER_FIRST_PAINT", "1");
    env.insert("TALVOPLAYER_AUDIO", "null");
    env.insert("TALVOPLAYER_REGISTRY", device.filePath("registry.db"));
    env.insert("TALVOPLAYER_HOME", device.filePath("home"));
    env.insert("TALVOPLAYER_MUSIC", music.isEmpty() ? device.filePath("music") : music);
    env.insert("TALVOPLAYER_MESSAGES", device.filePath("messages.log"));
    env.insert("TALVOPLAYER_CARDS", "");
    // A player already running elsewhere would otherwise take the start over.
    env.insert("XDG_RUNTIME_DIR", device.filePath("run"));
    env.insert("XDG_CONFIG_HOME", device.filePath("home"));

    QProcess process;
    process.setProcessEnvironment(env);
    process.start(program, {});
    if (!process.waitForFinished(kTimeoutMs)) {
        process.kill();
        process.waitForFinished();
    }
    bool ok = false;
    const double ms =
        QString::fromUtf8(process.readAllStandardOutput()).trimmed().section('\n', -1).toDouble(&ok);
    if (ok && process.exitStatus() == QProcess::NormalExit)
        return ms;
    // Only a failed start has anything worth showing on stderr.
    std::fputs(process.readAllStandardError().constData(), stderr);
    return -1;
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void PrintRow(const char* label, const std::vector<double>& values)
{
    std::printf("%-22s %10.1f %10.1f %10.1f\n", label, Median(values),
                *std::min_element(values.begin(), values.end()),
                *std::max_element(values.begin(), values.end()));
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir library;
    if (!library.isValid() || !BuildLibrary(library.path())) {
        std::fprintf(stderr, "startup_bench: cannot build the library\n");
        return 1;
    }
    const QString music = library.filePath("music");
    std::vector<double> player, empty, bare;
    // Alternate the subjects so that a busy moment of the machine hits them alike.
    for (int i = 0; i < kRuns; ++i) {
        const double p = StartOnce(QStringLiteral(TALVO_PLAYER_PATH), music);
        const double e = StartOnce(QStringLiteral(TALVO_PLAYER_PATH));
        const double b = StartOnce(QStringLiteral(TALVO_BARE_WINDOW_PATH));
        if (p < 0 || e < 0 || b < 0) {
            std::fprintf(stderr, "startup_bench: %s did not paint and quit\n",
                         b < 0 ? "the bare window" : "the player");
            return 1;
        }
        player.push_back(p);
        empty.push_back(e);
        bare.push_back(b);
    }
    std::printf("Start-up to the first painted frame, ms, median of %d starts each (offscreen).\n", kRuns);
    std::printf("%-22s %10s %10s %10s\n", "", "median", "min", "max");
    PrintRow("player, 1,000 programs", player);
    PrintRow("player, no programs", empty);
    PrintRow("bare window", bare);
    std::printf("player with 1,000 programs / bare window: %.2f\n", Median(player) / Median(bare));
    std::printf("player with 1,000 programs / with none:   %.2f\n", Median(player) / Median(empty));
    return 0;
}
