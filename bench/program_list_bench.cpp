// Opening the program list with 1,000 and 10,000 programs, beside a baseline
// of the same run: the library's own search (Clear and RefreshAll, which the
// list runs at every opening) followed by filling a bare QListWidget with the
// same titles.  The ratio is what the list adds to the search it cannot skip:
// its rows, the view, the selection and the free-space header.
//
// Programs are hard links to one small model file in Author/Title folders
// below the music folder.  Times are CPU times of this process, the best of
// five rounds with the subjects taking turns.  Runs offscreen; the trees live
// in /dev/shm unless TMPDIR is set.
#include "CpuTiming.h"
#include "library/ProgramLibrary.h"
#include "library/ProgramListDialog.h"
#include "library/ProgramStateStore.h"
#include "platform/Registry.h"
#include "platform/StorageCards.h"
#include "playback/ProgramFile.h"
#include "zqx/zqxwriter.h"

#include <QApplication>
#include <QDir>
#include <QListWidget>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <vector>

using namespace talvo;

namespace {

constexpr int kRounds = 5;
constexpr int kTitlesPerAuthor = 100;

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "program_list_bench: %s\n", what);
    std::exit(1);
}

void WriteModel(const QString& path)
{
    CZQXWriter writer;
    std::vector<std::int16_t> silence(800);
    if (writer.Create(path.toStdString(), ZQX_TYPE_PCM16, 8000, 1) != ZQX_OK ||
        writer.SetProgramId("LIST") != ZQX_OK || writer.SetTitle("A program of the library") != ZQX_OK ||
        writer.AddPcm16(silence.data(), silence.size()) != ZQX_OK || writer.Finish() != ZQX_OK)
        Fail("cannot write the model program");
}

void BuildTree(const QString& music, const QString& model, int programs)
{
    for (int i = 0; i < programs; ++i) {
        const QString folder = QStringLiteral("%1/Author %2/Title %3")
                                   .arg(music)
                                   .arg(i / kTitlesPerAuthor)
                                   .arg(i % kTitlesPerAuthor);
        if (!QDir().mkpath(folder))
            Fail("cannot build the tree");
        std::error_code error;
        std::filesystem::create_hard_link(QFile::encodeName(model).toStdString(),
                                          QFile::encodeName(folder + "/program.zq").toStdString(), error);
        if (error)
            Fail("cannot place a program");
    }
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const QString base = qEnvironmentVariableIsSet("TMPDIR") ? QDir::tempPath() : QStringLiteral("/dev/shm");
    std::printf("%-10s %14s %14s %8s\n", "programs", "list open ms", "baseline ms", "ratio");
    for (int programs : {1000, 10000}) {
        QTemporaryDir root(base + QStringLiteral("/program-list-bench-XXXXXX"));
        if (!root.isValid())
            Fail("cannot make a temporary folder");
        qputenv("TALVOPLAYER_REGISTRY", QFile::encodeName(root.filePath("registry.db")));
        qputenv("TALVOPLAYER_HOME", QFile::encodeName(root.path()));
        qputenv("TALVOPLAYER_CARDS", "");
        qputenv("TALVOPLAYER_MESSAGES", QFile::encodeName(root.filePath("messages.log")));
        WriteModel(root.filePath("model.zq"));
        BuildTree(root.filePath("music"), root.filePath("model.zq"), programs);

        std::unique_ptr<Registry> registry = OpenSqliteRegistry(root.filePath("registry.db").toStdString());
        if (!registry)
            Fail("cannot open the registry");
        ProgramStateStore store(*registry);
        std::unique_ptr<StorageCards> cards = CreateStorageCards();
        ProgramLibrary library(*registry, store, *cards,
                               LibraryFolders{root.filePath("app"), root.filePath("music"), {}});
        library.RefreshAll();
        if (library.Count() != programs)
            Fail("the library does not hold every program");

        const std::vector<double> best = bench::BestMilliseconds(
            {
                [&] {
                    ProgramListDialog dialog(library, root.filePath("app"), kListTemplatePocketPc);
                    if (dialog.SelectedRow() < 0)
                        Fail("the list selected nothing");
                },
                [&] {
                    library.Clear();
                    library.RefreshAll();
                    QListWidget bare;
                    QStringList titles;
                    titles.reserve(library.Count());
                    for (std::int32_t i = 0; i < library.Count(); ++i)
                        titles.append(QString::fromStdU16String(library.At(i).GetTitle()));
                    bare.addItems(titles);
                    if (bare.count() != programs)
                        Fail("the bare list is short");
                },
            },
            kRounds);
        std::printf("%-10d %14.1f %14.1f %8.2f\n", programs, best[0], best[1], best[0] / best[1]);
    }
    return 0;
}
