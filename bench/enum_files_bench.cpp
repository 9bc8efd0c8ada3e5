// The desktop's program listing: `talvoplayer -EnumFiles` over 1,000 programs
// on a card, beside a bare process start that walks the same tree (find), in
// the same run.  Both are whole processes started the way the desktop starts
// them; the figure is the median wall time of several starts.
#include "platform/Registry.h"
#include "zqx/zqxwriter.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr int kAuthors = 40;
constexpr int kTitlesPerAuthor = 25;
constexpr int kRuns = 7;

bool writeProgram(const QString& path, int number)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    CZQXWriter writer;
    if (writer.Create(path.toStdString(), ZQX_TYPE_PCM16, 1000, 1) != ZQX_OK)
        return false;
    writer.SetProgramId("bench-" + std::to_string(number));
    writer.SetTitle("Program " + std::to_string(number));
    std::vector<std::int16_t> second(1000, 0);
    writer.AddPcm16(second.data(), second.size());
    return writer.Finish() == ZQX_OK;
}

double medianMs(const QString& program, const QStringList& arguments, const QString& folder)
{
    std::vector<double> times;
    for (int i = 0; i < kRuns; ++i) {
        QProcess process;
        process.setWorkingDirectory(folder);
        process.setStandardOutputFile(QProcess::nullDevice());
        process.setStandardErrorFile(QProcess::nullDevice());
        QElapsedTimer clock;
        clock.start();
        process.start(program, arguments);
        process.waitForFinished(120000);
        times.push_back(static_cast<double>(clock.nsecsElapsed()) / 1e6);
        if (process.exitCode() != 0) {
            std::fprintf(stderr, "%s exited with %d\n", qPrintable(program), process.exitCode());
            return -1;
        }
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir device;
    const QString root = device.path();
    const QString card = root + "/cards/Storage Card";
    for (const char* folder : {"home", "music", "bin", "run"})
        QDir(root).mkpath(folder);
    QFile::setPermissions(root + "/run", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("TALVOPLAYER_REGISTRY", (root + "/registry.db").toUtf8());
    qputenv("TALVOPLAYER_HOME", (root + "/home").toUtf8());
    qputenv("TALVOPLAYER_MUSIC", (root + "/music").toUtf8());
    qputenv("TALVOPLAYER_MESSAGES", (root + "/messages.log").toUtf8());
    qputenv("TALVOPLAYER_CARDS", card.toUtf8());
    qputenv("XDG_RUNTIME_DIR", (root + "/run").toUtf8());
    qputenv("QT_QPA_PLATFORM", "offscreen");

    int number = 0;
    for (int a = 0; a < kAuthors; ++a) {
        for (int t = 0; t < kTitlesPerAuthor; ++t, ++number) {
            QString path = QStringLiteral("%1/Music/Author %2/Title %3/program.zq").arg(card).arg(a).arg(t);
            if (!writeProgram(path, number)) {
                std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
                return 1;
            }
        }
    }
    // The executable writes its data file beside itself: give it a copy of its own.
    const QString player = root + "/bin/talvoplayer";
    QFile::copy(QStringLiteral(TALVO_PLAYER_PATH), player);

    auto registry = talvo::OpenSqliteRegistry((root + "/registry.db").toStdString());
    talvo::HKEY key = 0;
    registry->CreateKey(talvo::HKEY_LOCAL_MACHINE, u"Software\\Talvo", talvo::KEY_ALL_ACCESS, &key);
    std::vector<std::uint8_t> input = talvo::RegSzBytes(card.toStdU16String());
    registry->SetValue(key, u"_DataIn", talvo::REG_SZ, input.data(), static_cast<talvo::DWORD>(input.size()));
    registry->CloseKey(key);
    registry.reset();

    const double enumerate = medianMs(player, {QStringLiteral("-EnumFiles")}, root);
    const double walk = medianMs(QStringLiteral("/usr/bin/find"),
                                 {card, QStringLiteral("-type"), QStringLiteral("f"), QStringLiteral("-name"),
                                  QStringLiteral("*.zq*")},
                                 root);
    if (enumerate < 0 || walk < 0)
        return 1;
    QFileInfo answer(root + "/bin/_Data.tmp");
    std::printf("-EnumFiles over %d programs on a card, median of %d process starts (ms)\n", number, kRuns);
    std::printf("  talvoplayer -EnumFiles   %8.1f   (answer %lld bytes)\n", enumerate,
                static_cast<long long>(answer.size()));
    std::printf("  find over the same tree  %8.1f\n", walk);
    std::printf("  ratio                    %8.2f\n", enumerate / walk);
    return 0;
}
