// Program discovery beside a plain walk of the same tree that reads the first
// 4 KiB of every file, the least any search that looks into each file does.
//
// Three libraries, in the usual shape (author folders, title folders, one
// program each, below the music folder):
// - 10,000 small programs: the cost of discovery per file.
// - 100 one-hour programs (type 4, whose index is the largest): the cost must
//   not grow with a program's length.
// - 100 programs with a 1 KiB cover, then 100 with a 300 KiB cover: the heap a
//   library holds per entry must not grow with the cover.
// Discovery is a full RefreshAll (listing, the state lookup, the metadata read
// with its checks, the duplicate test, reopening the first program, which
// reads and checks that one program's index); the search alone leaves out the
// reopening.  Each program is a hard link to one model file, so building is
// quick; discovery tells files apart by path, and the page cache is warm for
// both sides either way.  Times are CPU times of this process (user and
// system), the best of seven rounds with the subjects taking turns.  The trees
// live in /dev/shm unless TMPDIR is set.
#include "CpuTiming.h"
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
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <malloc.h>
#include <string>
#include <unistd.h>
#include <vector>

using namespace talvo;

namespace {

constexpr int kRounds = 7;
// What the baseline reads of each file.
constexpr std::size_t kWalkReadBytes = 4096;
constexpr std::uint32_t kMp3FrameSamples = 576;
constexpr std::uint32_t kMp3Rate = 22050;
constexpr std::uint32_t kOneHourMs = 3600 * 1000;

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "library_discovery_bench: %s\n", what);
    std::exit(1);
}

// Small programs: 100 ms of silence, with a cover of coverBytes when asked.
void WriteSmallProgram(const QString& path, std::size_t coverBytes)
{
    CZQXWriter writer;
    std::vector<std::int16_t> silence(800);
    if (writer.Create(path.toStdString(), ZQX_TYPE_PCM16, 8000, 1) != ZQX_OK ||
        writer.SetProgramId("BENCH") != ZQX_OK || writer.SetTitle("A title") != ZQX_OK ||
        writer.SetAuthor("An author") != ZQX_OK)
        Fail("cannot start the model program");
    if (coverBytes > 0) {
        std::vector<std::uint8_t> cover = {0xFF, 0xD8, 0xFF, 0xE0};
        cover.resize(coverBytes, 0x5A);
        if (writer.AddPicture(0, 1, cover) != ZQX_OK)
            Fail("cannot add the cover");
    }
    if (writer.AddPcm16(silence.data(), silence.size()) != ZQX_OK || writer.Finish() != ZQX_OK)
        Fail("cannot write the model program");
}

// An hour of type-4 frames: the format with the most packets per hour.
void WriteOneHourProgram(const QString& path)
{
    CZQXWriter writer;
    if (writer.Create(path.toStdString(), ZQX_TYPE_MP3, kMp3Rate, 1) != ZQX_OK ||
        writer.SetProgramId("HOUR") != ZQX_OK || writer.SetTitle("An hour") != ZQX_OK)
        Fail("cannot start the one-hour program");
    std::array<std::uint8_t, ZQX_MP3_FRAME_BYTES> frame{};
    frame[0] = 0xFF;
    frame[1] = 0xF3;
    const std::uint64_t frames = std::uint64_t(kOneHourMs) * kMp3Rate / 1000 / kMp3FrameSamples;
    for (std::uint64_t i = 0; i < frames; ++i) {
        frame[4] = static_cast<std::uint8_t>(i);
        if (writer.AddPacket(frame.data(), ZQX_MP3_FRAME_BYTES, kMp3FrameSamples) != ZQX_OK)
            Fail("cannot add a frame");
    }
    if (writer.Finish() != ZQX_OK)
        Fail("cannot write the one-hour program");
}

// authors x titles title folders below root/music, each with a hard link to model.
void BuildTree(const QString& root, const QString& model, int authors, int titles)
{
    const std::filesystem::path source = QFile::encodeName(model).toStdString();
    for (int author = 0; author < authors; ++author) {
        for (int title = 0; title < titles; ++title) {
            const QString folder =
                QStringLiteral("%1/music/Author %2/Title %3").arg(root).arg(author).arg(title);
            if (!QDir().mkpath(folder))
                Fail("cannot build the tree");
            const std::filesystem::path target = QFile::encodeName(folder + "/program.zq").toStdString();
            std::error_code error;
            std::filesystem::create_hard_link(source, target, error);
            if (error && !std::filesystem::copy_file(source, target, error))
                Fail("cannot place a program");
        }
    }
}

// The baseline: every folder listed, every program file opened and its first 4 KiB read.
int WalkReading4K(const std::string& folder)
{
    DIR* dir = opendir(folder.c_str());
    if (!dir)
        return 0;
    int read = 0;
    std::array<char, kWalkReadBytes> head;
    while (const dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.')
            continue;
        const std::string path = folder + '/' + entry->d_name;
        if (entry->d_type == DT_DIR) {
            read += WalkReading4K(path);
        } else if (std::strstr(entry->d_name, ".zq")) {
            const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
            if (fd >= 0 && ::read(fd, head.data(), head.size()) > 0)
                ++read;
            if (fd >= 0)
                ::close(fd);
        }
    }
    closedir(dir);
    return read;
}

std::size_t HeapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// One device: its registry, state store, cards and folders, around one tree.
class Device {
public:
    explicit Device(const QString& root) : root_(root)
    {
        QDir().mkpath(root + QStringLiteral("/app"));
        registry_ = OpenSqliteRegistry((root + QStringLiteral("/registry.db")).toStdString());
        if (!registry_)
            Fail("cannot open the registry");
        store_ = std::make_unique<ProgramStateStore>(*registry_);
        cards_ = CreateStorageCards();
    }
    std::unique_ptr<ProgramLibrary> Discover() const
    {
        auto library = std::make_unique<ProgramLibrary>(
            *registry_, *store_, *cards_,
            LibraryFolders{root_ + QStringLiteral("/app"), root_ + QStringLiteral("/music"), {}});
        library->RefreshAll();
        return library;
    }
    // The search alone: every file's metadata, without reopening a program.
    int Search() const
    {
        ProgramLibrary library(*registry_, *store_, *cards_, LibraryFolders{});
        library.ScanFolderTwoLevel(root_ + QStringLiteral("/music"));
        return library.Count();
    }
    std::string Music() const { return QFile::encodeName(root_ + QStringLiteral("/music")).toStdString(); }

private:
    QString root_;
    std::unique_ptr<Registry> registry_;
    std::unique_ptr<ProgramStateStore> store_;
    std::unique_ptr<StorageCards> cards_;
};

// Discovery of a tree beside the 4 KiB walk of it; prints both and their ratio.
void CompareWithWalk(const char* label, const QString& root, int expected)
{
    const Device device(root);
    int walked = WalkReading4K(device.Music()); // warms the page cache for both
    int found = 0;
    int searched = 0;
    const std::vector<double> best = bench::BestMilliseconds({[&] { found = device.Discover()->Count(); },
                                                              [&] { searched = device.Search(); },
                                                              [&] {
                                                                  walked = WalkReading4K(device.Music());
                                                              }},
                                                             kRounds);
    const double discovery = best[0];
    const double search = best[1];
    const double walk = best[2];
    if (found != expected || searched != expected || walked != expected) {
        std::fprintf(stderr, "%s: found %d, searched %d, walked %d of %d\n", label, found, searched, walked,
                     expected);
        Fail("the tree was not found whole");
    }
    std::printf("%s\n", label);
    std::printf("  discovery (RefreshAll):        %9.1f ms (%.1f us a program)\n", discovery,
                discovery * 1000 / found);
    std::printf("  the search alone:              %9.1f ms (%.1f us a program)\n", search,
                search * 1000 / found);
    std::printf("  walk reading 4 KiB a file:     %9.1f ms (%.1f us a program)\n", walk,
                walk * 1000 / walked);
    std::printf("  discovery / walk:              %9.2f\n", discovery / walk);
    std::printf("  search / walk:                 %9.2f\n", search / walk);
}

// Heap held by a discovered library, per entry.
double HeapPerEntry(const QString& root, int expected)
{
    const Device device(root);
    device.Discover(); // the registry's and the SDK's first-use allocations
    const std::size_t before = HeapInUse();
    const auto library = device.Discover();
    const std::size_t after = HeapInUse();
    if (library->Count() != expected)
        Fail("the cover tree was not found whole");
    return after > before ? double(after - before) / expected : 0.0;
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
    qputenv(kStorageCardsVariable, QByteArray());
    const QString root = dir.path();
    const QString models = root + QStringLiteral("/models");
    QDir().mkpath(models);

    constexpr int kManyAuthors = 100;
    constexpr int kManyTitles = 100;
    WriteSmallProgram(models + QStringLiteral("/small.zq"), 0);
    BuildTree(root + QStringLiteral("/many"), models + QStringLiteral("/small.zq"), kManyAuthors,
              kManyTitles);
    CompareWithWalk("10,000 small programs", root + QStringLiteral("/many"), kManyAuthors * kManyTitles);

    constexpr int kHourAuthors = 10;
    constexpr int kHourTitles = 10;
    WriteOneHourProgram(models + QStringLiteral("/hour.zq"));
    BuildTree(root + QStringLiteral("/hours"), models + QStringLiteral("/hour.zq"), kHourAuthors,
              kHourTitles);
    CompareWithWalk("100 one-hour programs", root + QStringLiteral("/hours"), kHourAuthors * kHourTitles);

    constexpr std::size_t kSmallCover = 1024;
    constexpr std::size_t kLargeCover = 300 * 1024;
    WriteSmallProgram(models + QStringLiteral("/small-cover.zq"), kSmallCover);
    WriteSmallProgram(models + QStringLiteral("/large-cover.zq"), kLargeCover);
    BuildTree(root + QStringLiteral("/small-covers"), models + QStringLiteral("/small-cover.zq"),
              kHourAuthors, kHourTitles);
    BuildTree(root + QStringLiteral("/large-covers"), models + QStringLiteral("/large-cover.zq"),
              kHourAuthors, kHourTitles);
    const double small = HeapPerEntry(root + QStringLiteral("/small-covers"), kHourAuthors * kHourTitles);
    const double large = HeapPerEntry(root + QStringLiteral("/large-covers"), kHourAuthors * kHourTitles);
    std::printf("heap a library entry holds, 100 programs\n");
    std::printf("  with a 1 KiB cover:            %9.0f bytes\n", small);
    std::printf("  with a 300 KiB cover:          %9.0f bytes\n", large);
    std::printf("  300 KiB / 1 KiB cover:         %9.2f\n", small > 0 ? large / small : 0.0);
    return 0;
}
