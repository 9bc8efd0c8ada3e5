// Start-up to the first painted frame: the real player in a temporary device
// whose Music folder holds 1,000 programs, beside a bare Qt window of the same
// size, the same window with a menu bar and a line of text (what any window
// showing a title and a time pays for fonts and menus), and the player on an
// empty library; each started several times
// in turn in the same run on the offscreen platform, after a first start that
// is not counted (it creates the settings store, as a listener's first does).  All time themselves
// through the first-paint probe (TALVOPLAYER_EXIT_AFTER_FIRST_PAINT), from the
// kernel's start of the process, so loading libraries counts too, and report
// the processor time they used until then, which a busy machine disturbs less
// than the elapsed time.  The two players differ only in their library, so
// their ratio is what the library adds before the window appears.
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

struct Start {
    double elapsedMs = -1;
    double processorMs = -1;
};

// A device of its own for one subject, kept over its starts: after the first
// start the settings store exists, as on every start but a listener's first.
class Device {
public:
    explicit Device(const QString& music = QString())
    {
        for (const char* sub : {"home", "music", "run"})
            QDir(dir_.path()).mkpath(sub);
        QFile::setPermissions(dir_.filePath("run"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        env_.insert("QT_QPA_PLATFORM", "offscreen");
        env_.insert("TALVOPLAYER_EXIT_AFTER_FIRST_PAINT", "1");
        env_.insert("TALVOPLAYER_AUDIO", "null");
        env_.insert("TALVOPLAYER_REGISTRY", dir_.filePath("registry.db"));
        env_.insert("TALVOPLAYER_HOME", dir_.filePath("home"));
        env_.insert("TALVOPLAYER_MUSIC", music.isEmpty() ? dir_.filePath("music") : music);
        env_.insert("TALVOPLAYER_MESSAGES", dir_.filePath("messages.log"));
        env_.insert("TALVOPLAYER_CARDS", "");
        // A player already running elsewhere would otherwise take the start over.
        env_.insert("XDG_RUNTIME_DIR", dir_.filePath("run"));
        env_.insert("XDG_CONFIG_HOME", dir_.filePath("home"));
        // Decoded skin bitmaps kept by the first, uncounted start serve the others.
        env_.insert("XDG_CACHE_HOME", dir_.filePath("cache"));
    }
    const QProcessEnvironment& Environment() const { return env_; }

private:
    QTemporaryDir dir_;
    QProcessEnvironment env_ = QProcessEnvironment::systemEnvironment();
};

// One start of `program` on device; negative times when it did not paint and quit.
Start StartOnce(const QString& program, const Device& device, const QStringList& arguments = {})
{
    QProcess process;
    process.setProcessEnvironment(device.Environment());
    process.start(program, arguments);
    if (!process.waitForFinished(kTimeoutMs)) {
        process.kill();
        process.waitForFinished();
    }
    const QStringList times =
        QString::fromUtf8(process.readAllStandardOutput()).trimmed().section('\n', -1).split(' ');
    bool elapsedOk = false;
    bool processorOk = false;
    Start start;
    if (times.size() == 2 && process.exitStatus() == QProcess::NormalExit) {
        start.elapsedMs = times[0].toDouble(&elapsedOk);
        start.processorMs = times[1].toDouble(&processorOk);
    }
    if (elapsedOk && processorOk)
        return start;
    // Only a failed start has anything worth showing on stderr.
    std::fputs(process.readAllStandardError().constData(), stderr);
    return {};
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
    const Device withLibrary(music);
    const Device withNone;
    const Device bareDevice;
    std::vector<Start> player, empty, bare, texted;
    // The first starts create the stores and are not counted.
    for (const Device* device : {&withLibrary, &withNone})
        StartOnce(QStringLiteral(TALVO_PLAYER_PATH), *device);
    // Alternate the subjects so that a busy moment of the machine hits them alike.
    for (int i = 0; i < kRuns; ++i) {
        const Start p = StartOnce(QStringLiteral(TALVO_PLAYER_PATH), withLibrary);
        const Start e = StartOnce(QStringLiteral(TALVO_PLAYER_PATH), withNone);
        const Start b = StartOnce(QStringLiteral(TALVO_BARE_WINDOW_PATH), bareDevice);
        const Start t = StartOnce(QStringLiteral(TALVO_BARE_WINDOW_PATH), bareDevice,
                                  {QStringLiteral("--menu-and-text")});
        if (p.elapsedMs < 0 || e.elapsedMs < 0 || b.elapsedMs < 0 || t.elapsedMs < 0) {
            std::fprintf(stderr, "startup_bench: %s did not paint and quit\n",
                         b.elapsedMs < 0 || t.elapsedMs < 0 ? "the bare window" : "the player");
            return 1;
        }
        player.push_back(p);
        empty.push_back(e);
        bare.push_back(b);
        texted.push_back(t);
    }
    for (auto [measure, title] :
         {std::pair{&Start::elapsedMs, "elapsed"}, {&Start::processorMs, "processor"}}) {
        auto times = [measure](const std::vector<Start>& starts) {
            std::vector<double> values;
            for (const Start& start : starts)
                values.push_back(start.*measure);
            return values;
        };
        std::printf("Start-up to the first painted frame, %s ms, %d starts each (offscreen).\n", title,
                    kRuns);
        std::printf("%-22s %10s %10s %10s\n", "", "median", "min", "max");
        PrintRow("player, 1,000 programs", times(player));
        PrintRow("player, no programs", times(empty));
        PrintRow("bare window", times(bare));
        PrintRow("menu bar and text", times(texted));
        std::printf("player with 1,000 programs / bare window: %.2f\n",
                    Median(times(player)) / Median(times(bare)));
        std::printf("player with 1,000 programs / window with a menu bar and text: %.2f\n",
                    Median(times(player)) / Median(times(texted)));
        std::printf("window with a menu bar and text / bare window: %.2f\n",
                    Median(times(texted)) / Median(times(bare)));
        std::printf("player with 1,000 programs / with none:   %.2f\n\n",
                    Median(times(player)) / Median(times(empty)));
    }
    return 0;
}
