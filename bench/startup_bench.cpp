// Start-up to the first painted frame: the real player on an empty library in
// a temporary device, beside a bare Qt window of the same size, each started
// several times in turn in the same run on the offscreen platform.  Both time
// themselves through the first-paint probe (TALVOPLAYER_EXIT_AFTER_FIRST_PAINT),
// from the kernel's start of the process, so loading libraries counts too.
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr int kRuns = 7;          // per subject; the median is reported
constexpr int kTimeoutMs = 30000; // a start that never paints

// One start of `program` in a fresh device; the printed milliseconds, or a
// negative number when it did not paint and quit.
double StartOnce(const QString& program)
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
    env.insert("TALVOPLAYER_MUSIC", device.filePath("music"));
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

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    std::vector<double> player, bare;
    // Alternate the two so that a busy moment of the machine hits both alike.
    for (int i = 0; i < kRuns; ++i) {
        const double p = StartOnce(QStringLiteral(TALVO_PLAYER_PATH));
        const double b = StartOnce(QStringLiteral(TALVO_BARE_WINDOW_PATH));
        if (p < 0 || b < 0) {
            std::fprintf(stderr, "startup_bench: %s did not paint and quit\n",
                         p < 0 ? "the player" : "the bare window");
            return 1;
        }
        player.push_back(p);
        bare.push_back(b);
    }
    std::printf(
        "Start-up to the first painted frame, ms, median of %d starts each (offscreen, empty library).\n",
        kRuns);
    std::printf("%-12s %10s %10s %10s\n", "", "median", "min", "max");
    std::printf("%-12s %10.1f %10.1f %10.1f\n", "player", Median(player),
                *std::min_element(player.begin(), player.end()),
                *std::max_element(player.begin(), player.end()));
    std::printf("%-12s %10.1f %10.1f %10.1f\n", "bare window", Median(bare),
                *std::min_element(bare.begin(), bare.end()), *std::max_element(bare.begin(), bare.end()));
    std::printf("player / bare window: %.2f\n", Median(player) / Median(bare));
    return 0;
}
