// Program discovery beside a plain directory walk of the same tree.
//
// The tree is the usual shape of a large library: 10,000 small programs, one
// per title folder, 100 titles under each of 100 author folders, below the
// music folder.  Discovery is a full RefreshAll (listing, the state lookup,
// the metadata read with its checks, the duplicate test, reopening the first
// program).  The baseline walks the same tree recursively, opens each file
// and reads its header.  Both run on a warm page cache; each is timed three
// times and the best run counts.  The tree lives in /dev/shm unless TMPDIR is set.  The ratio is what
// discovery costs over the least any search that looks into every file must do.
#include "library/ProgramLibrary.h"
#include "library/ProgramStateStore.h"
#include "platform/Registry.h"
#include "platform/StorageCards.h"
#include "zqx/zqxwriter.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <vector>

using namespace talvo;

namespace {

constexpr int kAuthors = 100;
constexpr int kTitlesPerAuthor = 100;
constexpr int kPrograms = kAuthors * kTitlesPerAuthor;
// Enough to cover the fixed header and the first chunk headers of a file.
constexpr std::size_t kHeaderBytes = 512;
constexpr int kRounds = 3;

double BestMilliseconds(const std::function<void()>& run)
{
    double best = 1e300;
    for (int round = 0; round < kRounds; ++round) {
        auto start = std::chrono::steady_clock::now();
        run();
        std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
        best = std::min(best, elapsed.count());
    }
    return best;
}

double BestOf1(const std::function<void()>& run)
{
    auto start = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

void Fail(const char* what)
{
    std::fprintf(stderr, "library_discovery_bench: %s\n", what);
    std::exit(1);
}

// One program written through the SDK, copied into every title folder (a
// copy per folder keeps generation fast; discovery tells files apart by path).
void BuildTree(const QString& root)
{
    const QString model = root + QStringLiteral("/model.zq");
    CZQXWriter writer;
    std::vector<std::int16_t> silence(800); // 100 ms at 8000 Hz
    if (writer.Create(model.toStdString(), ZQX_TYPE_PCM16, 8000, 1) != ZQX_OK ||
        writer.SetProgramId("BENCH") != ZQX_OK || writer.SetTitle("A title") != ZQX_OK ||
        writer.AddPcm16(silence.data(), silence.size()) != ZQX_OK || writer.Finish() != ZQX_OK)
        Fail("cannot write the model program");
    for (int author = 0; author < kAuthors; ++author) {
        for (int title = 0; title < kTitlesPerAuthor; ++title) {
            const QString folder =
                QStringLiteral("%1/music/Author %2/Title %3").arg(root).arg(author).arg(title);
            if (!QDir().mkpath(folder) || !QFile::copy(model, folder + QStringLiteral("/program.zq")))
                Fail("cannot build the tree");
        }
    }
}

int WalkAndReadHeaders(const std::filesystem::path& root)
{
    int read = 0;
    std::vector<char> header(kHeaderBytes);
    for (const auto& item : std::filesystem::recursive_directory_iterator(root)) {
        if (!item.is_regular_file() || item.path().extension() != ".zq")
            continue;
        std::ifstream file(item.path(), std::ios::binary);
        if (file.read(header.data(), static_cast<std::streamsize>(header.size())) || file.gcount() > 0)
            ++read;
    }
    return read;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // Memory-backed by default, so the figures are the cost of the work and not
    // of the disk under it; TMPDIR chooses another place.
    const bool inMemory =
        qEnvironmentVariableIsEmpty("TMPDIR") && QFileInfo(QStringLiteral("/dev/shm")).isWritable();
    QTemporaryDir dir(inMemory ? QStringLiteral("/dev/shm/library_discovery_bench-XXXXXX")
                               : QDir::tempPath() + QStringLiteral("/library_discovery_bench-XXXXXX"));
    if (!dir.isValid())
        Fail("no temporary folder");
    const double building = BestOf1([&] { BuildTree(dir.path()); });
    std::printf("building the tree:                   %9.1f ms\n", building);
    qputenv(kStorageCardsVariable, QByteArray());
    std::unique_ptr<Registry> registry =
        OpenSqliteRegistry((dir.path() + QStringLiteral("/registry.db")).toStdString());
    if (!registry)
        Fail("cannot open the registry");
    ProgramStateStore store(*registry);
    std::unique_ptr<StorageCards> cards = CreateStorageCards();
    const QString appFolder = dir.path() + QStringLiteral("/app");
    QDir().mkpath(appFolder);

    const std::filesystem::path music =
        QFile::encodeName(dir.path() + QStringLiteral("/music")).toStdString();
    int walked = WalkAndReadHeaders(music); // warms the page cache for both
    int found = 0;
    const double discovery = BestMilliseconds([&] {
        ProgramLibrary library(*registry, store, *cards,
                               {appFolder, dir.path() + QStringLiteral("/music"), {}});
        library.RefreshAll();
        found = library.Count();
    });
    const double walk = BestMilliseconds([&] { walked = WalkAndReadHeaders(music); });
    if (found != kPrograms || walked != kPrograms) {
        std::fprintf(stderr, "found %d, walked %d\n", found, walked);
        Fail("the tree was not found whole");
    }

    std::printf("discovery of %d programs:          %9.1f ms (%.1f us each)\n", found, discovery,
                discovery * 1000 / found);
    std::printf("plain walk reading every header:     %9.1f ms (%.1f us each)\n", walk, walk * 1000 / walked);
    std::printf("discovery / walk:                    %9.2f\n", discovery / walk);
    return 0;
}
