#include "LibraryTestSupport.h"
#include "base/StringTable.h"
#include "library/ProgramDeletion.h"
#include "library/ProgramRecordLayout.h"
#include "settings/SettingsStore.h"

#include <QtEndian>
#include <malloc.h>

namespace talvo::test {
namespace {

class ProgramLibraryTest : public LibraryTest {};

// A program whose cover picture is coverBytes long: a JPEG signature, then filler.
void MakeProgramWithCover(const QString& path, const std::string& id, std::size_t coverBytes)
{
    QDir().mkpath(QFileInfo(path).path());
    std::vector<std::uint8_t> cover = {0xFF, 0xD8, 0xFF, 0xE0};
    cover.resize(coverBytes, 0x5A);
    std::vector<std::int16_t> silence(8000);
    CZQXWriter writer;
    ASSERT_EQ(writer.Create(path.toStdString(), ZQX_TYPE_PCM16, 8000, 1), ZQX_OK);
    ASSERT_EQ(writer.SetProgramId(id), ZQX_OK);
    ASSERT_EQ(writer.AddPicture(0, 1, cover), ZQX_OK);
    ASSERT_EQ(writer.AddPcm16(silence.data(), silence.size()), ZQX_OK);
    ASSERT_EQ(writer.Finish(), ZQX_OK);
}

// Chunks in file order, after the 64-byte header; each has a 16-byte header
// whose last 8 bytes hold the payload length.
constexpr int kPictureChunk = 2;
constexpr int kIndexChunk = 3;

void FlipByte(const QString& path, qint64 offset)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    QByteArray bytes = file.readAll();
    ASSERT_LT(offset, bytes.size());
    bytes[offset] = static_cast<char>(bytes[offset] ^ 0x01);
    file.seek(0);
    file.write(bytes);
}

void DamageChunk(const QString& path, int chunk, qint64 intoPayload)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    qint64 at = 64;
    for (int i = 0; i < chunk; ++i)
        at += 16 + qFromLittleEndian<qint64>(bytes.constData() + at + 8);
    file.close();
    FlipByte(path, at + 16 + intoPayload);
}

QString DamagedBoxText(const QString& path)
{
    return QString::asprintf(qPrintable(LoadString(Str::ProgramDamaged)), path.toUtf8().constData());
}

// Bytes the C allocator has handed out; with sanitizers it may not see them at all.
std::size_t HeapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

bool HeapCountsAllocations()
{
    constexpr std::size_t kProbeBytes = 1 << 20;
    const std::size_t before = HeapInUse();
    std::vector<char> probe(kProbeBytes, 1);
    return HeapInUse() >= before + kProbeBytes;
}

TEST_F(ProgramLibraryTest, FindsProgramsInSearchOrderAndOnlyTwoLevelsBelowMusic)
{
    SetCards({QStringLiteral("cards/Storage Card")});
    const QString card = At(QStringLiteral("cards/Storage Card/"));
    MakeProgram(At(QStringLiteral("app/b.zq")), {.id = "B"});
    MakeProgram(At(QStringLiteral("app/a.zq")), {.id = "A"});
    WriteJunk(At(QStringLiteral("app/damaged.zq")));
    MakeProgram(At(QStringLiteral("app/notes.txt")), {.id = "TXT"});
    MakeProgram(At(QStringLiteral("music/direct.zq")), {.id = "D0"});
    MakeProgram(At(QStringLiteral("music/Author/one.zq")), {.id = "D1"});
    MakeProgram(At(QStringLiteral("music/Author/Title/two.ZQX")), {.id = "D2"});
    MakeProgram(At(QStringLiteral("music/Author/Title/deeper/three.zq")), {.id = "D3"});
    MakeProgram(At(QStringLiteral("music/Other/Copy/a.zq")), {.id = "A"});
    MakeProgram(card + QStringLiteral("root.zq"), {.id = "R"});
    MakeProgram(card + QStringLiteral("TalvoPlayer/own.zq"), {.id = "O"});
    MakeProgram(card + QStringLiteral("Program Files/TalvoPlayer/installed.zq"), {.id = "I"});
    MakeProgram(card + QStringLiteral("Music/Writer/Book/book.zq"), {.id = "M"});

    ASSERT_TRUE(library->RefreshAll());
    EXPECT_EQ(Paths(),
              (QStringList{At(QStringLiteral("app/a.zq")), At(QStringLiteral("app/b.zq")),
                           At(QStringLiteral("music/Author/Title/two.ZQX")),
                           At(QStringLiteral("music/Other/Copy/a.zq")), card + QStringLiteral("root.zq"),
                           card + QStringLiteral("TalvoPlayer/own.zq"),
                           card + QStringLiteral("Program Files/TalvoPlayer/installed.zq"),
                           card + QStringLiteral("Music/Writer/Book/book.zq")}));
    EXPECT_EQ(library->CardNames(), QStringList{QStringLiteral("Storage Card")});
    EXPECT_TRUE(library->At(3).inMainMemory);
    EXPECT_FALSE(library->At(4).inMainMemory);
    EXPECT_EQ(library->At(2).GetProgramId(), "D2");
    // Only the current program has its SDK file open.
    EXPECT_EQ(library->CurrentIndex(), 0);
    EXPECT_TRUE(library->At(0).IsOpen());
    EXPECT_FALSE(library->At(1).IsOpen());
    EXPECT_TRUE(device.messages().isEmpty());
}

TEST_F(ProgramLibraryTest, NothingFoundSelectsNothing)
{
    SetCards({QStringLiteral("cards/Empty")});
    ASSERT_TRUE(library->RefreshAll());
    EXPECT_EQ(library->Count(), 0);
    EXPECT_EQ(library->Current(), nullptr);
}

TEST_F(ProgramLibraryTest, AnInstallOnTheCardIsSearchedTwiceWithoutDuplicates)
{
    SetCards({QStringLiteral("cards/SD")});
    const QString installed = At(QStringLiteral("cards/SD/TalvoPlayer"));
    MakeProgram(installed + QStringLiteral("/p.zq"));
    ProgramLibrary onCard(*registry, *store, *cards, {installed, At(QStringLiteral("music")), QString()});
    onCard.RefreshAll();
    ASSERT_EQ(onCard.Count(), 1);
    EXPECT_EQ(onCard.At(0).path, installed + QStringLiteral("/p.zq"));
}

TEST_F(ProgramLibraryTest, ReopensTheLastProgramOrTheFirst)
{
    MakeProgram(At(QStringLiteral("app/1.zq")), {.id = "ONE"});
    MakeProgram(At(QStringLiteral("app/2.zq")), {.id = "TWO"});
    SettingsStore settings(*registry);

    settings.SetLastProgram(At(QStringLiteral("app/gone.zq")));
    library->RefreshAll();
    EXPECT_EQ(library->CurrentIndex(), 0);

    // Selecting releases the previous program, whose state is saved; a program
    // with a saved record opens fully and becomes the last program.
    library->SelectProgram(1);
    EXPECT_FALSE(library->At(0).IsOpen());
    library->SelectProgram(0);
    library->SelectProgram(1);
    EXPECT_EQ(settings.GetLastProgram(), At(QStringLiteral("app/2.zq")));
    library->SelectProgram(5);
    EXPECT_EQ(library->CurrentIndex(), 1);

    library->Clear();
    library->RefreshAll();
    EXPECT_EQ(library->CurrentIndex(), 1);
    EXPECT_TRUE(library->Current()->IsOpen());
}

TEST_F(ProgramLibraryTest, SyncScansTheCardsOrTheInstallationAndSelectsNothing)
{
    SetCards({QStringLiteral("cards/SD")});
    const QString card = At(QStringLiteral("cards/SD/"));
    MakeProgram(card + QStringLiteral("root.zq"));
    MakeProgram(card + QStringLiteral("books/asked.zq"));
    MakeProgram(card + QStringLiteral("TalvoPlayer/own.zq"));
    MakeProgram(card + QStringLiteral("Music/A/B/deep.zq"));
    MakeProgram(At(QStringLiteral("app/main.zq")));
    MakeProgram(At(QStringLiteral("prefix/TalvoPlayer/installed.zq")));
    MakeProgram(At(QStringLiteral("prefix/Music/A/B/music.zq")));

    library->ScanForSync(card + QStringLiteral("books"));
    EXPECT_EQ(Paths(), (QStringList{card + QStringLiteral("books/asked.zq"),
                                    card + QStringLiteral("TalvoPlayer/own.zq"),
                                    card + QStringLiteral("Music/A/B/deep.zq")}));
    EXPECT_EQ(library->Current(), nullptr);

    // A folder on main memory is not searched; the cards' folders are.
    library->Clear();
    library->ScanForSync(At(QStringLiteral("app")));
    EXPECT_EQ(library->Count(), 2);

    library->Clear();
    library->ScanForSync(std::nullopt);
    EXPECT_EQ(Paths(), (QStringList{At(QStringLiteral("prefix/TalvoPlayer/installed.zq")),
                                    At(QStringLiteral("prefix/Music/A/B/music.zq"))}));

    EXPECT_TRUE(library->DeletePrograms(At(QStringLiteral("prefix/Music"))));
    EXPECT_EQ(Paths(), QStringList{At(QStringLiteral("prefix/TalvoPlayer/installed.zq"))});
    EXPECT_FALSE(QFileInfo::exists(At(QStringLiteral("prefix/Music/A/B/music.zq"))));
}

TEST_F(ProgramLibraryTest, SyncDeletionWithoutAFolderTakesOnlyTheInstallationsPrograms)
{
    SetCards({QStringLiteral("cards/SD")});
    const QString card = At(QStringLiteral("cards/SD/"));
    const QStringList kept{At(QStringLiteral("app/main.zq")), At(QStringLiteral("music/A/B/m.zq")),
                           card + QStringLiteral("root.zq"), card + QStringLiteral("TalvoPlayer/own.zq"),
                           card + QStringLiteral("Music/A/B/deep.zq")};
    const QString installed = At(QStringLiteral("prefix/TalvoPlayer/installed.zq"));
    const QString prefixMusic = At(QStringLiteral("prefix/Music/A/B/pm.zq"));
    for (const QString& path : kept + QStringList{installed, prefixMusic})
        MakeProgram(path);
    library->RefreshAll(); // what a running player lists

    // The installation's folders, which the player does not even list; never Music or the cards.
    EXPECT_TRUE(library->DeletePrograms(std::nullopt));
    EXPECT_FALSE(QFileInfo::exists(installed));
    EXPECT_FALSE(QFileInfo::exists(prefixMusic));
    for (const QString& path : kept)
        EXPECT_TRUE(QFileInfo::exists(path)) << path.toStdString();
    EXPECT_EQ(Paths(), kept);

    // Installed in the home folder or on a card, the installation's folders are
    // the listener's: a request without a folder leaves them alone.
    MakeProgram(prefixMusic);
    ProgramLibrary atHome(
        *registry, *store, *cards,
        {At(QStringLiteral("app")), At(QStringLiteral("prefix/Music")), At(QStringLiteral("prefix"))});
    EXPECT_TRUE(atHome.DeletePrograms(std::nullopt));
    EXPECT_TRUE(QFileInfo::exists(prefixMusic));
    ProgramLibrary onCard(
        *registry, *store, *cards,
        {At(QStringLiteral("app")), At(QStringLiteral("music")), At(QStringLiteral("cards/SD"))});
    EXPECT_TRUE(onCard.DeletePrograms(std::nullopt));
    EXPECT_TRUE(QFileInfo::exists(card + QStringLiteral("TalvoPlayer/own.zq")));
}

TEST_F(ProgramLibraryTest, DeletingRemovesFileSideFileAndEntryButKeepsTheRecord)
{
    const QString first = At(QStringLiteral("app/first.zq"));
    const QString second = At(QStringLiteral("app/second.zq"));
    const QString third = At(QStringLiteral("app/third.zq"));
    MakeProgram(first, {.id = "FIRST"});
    MakeProgram(second, {.id = "SECOND"});
    MakeProgram(third, {.id = "THIRD"});
    library->RefreshAll();
    library->Current()->bookmarks = {{u"Mark", 700}};
    library->SelectProgram(2); // saves the first program: its side file and its record
    ASSERT_TRUE(QFileInfo::exists(PositionSideFilePath(first)));

    ASSERT_TRUE(library->DeleteProgram(library->At(0)));
    EXPECT_FALSE(QFileInfo::exists(first));
    EXPECT_FALSE(QFileInfo::exists(PositionSideFilePath(first)));
    EXPECT_EQ(Paths(), (QStringList{second, third}));
    EXPECT_EQ(library->CurrentIndex(), 1); // still the third program
    EXPECT_TRUE(device.messages().isEmpty());

    // The second program never saved a position: one box for its side file.
    ASSERT_TRUE(library->DeleteProgram(library->At(0)));
    EXPECT_EQ(Paths(), QStringList{third});
    const QStringList boxes = device.messages();
    ASSERT_EQ(boxes.size(), 1);
    EXPECT_EQ(boxes[0], QStringLiteral("TalvoPlayer Error\tFailed to delete program file %1. No such file or "
                                       "directory.\t0x50010")
                            .arg(PositionSideFilePath(second)));

    // Copied back, the program finds its bookmarks again.
    MakeProgram(first, {.id = "FIRST"});
    library->RefreshAll();
    library->SelectProgram(library->IndexOfPath(first));
    EXPECT_EQ(library->Current()->bookmarks, (std::vector<Bookmark>{{u"Mark", 700}}));
}

TEST_F(ProgramLibraryTest, DeletionThatCannotHappenChangesNothing)
{
    const QString path = At(QStringLiteral("app/p.zq"));
    MakeProgram(path);
    library->RefreshAll();

    ProgramFile stranger(At(QStringLiteral("app/other.zq")));
    EXPECT_FALSE(library->DeleteProgram(stranger));
    EXPECT_TRUE(device.messages().isEmpty());

    QFile::remove(path);
    EXPECT_FALSE(library->DeleteProgram(library->At(0)));
    EXPECT_EQ(library->Count(), 1);
    EXPECT_EQ(device.messages().size(), 1);
    EXPECT_FALSE(library->RemoveEntryAt(1));
}

// Discovery reads each file's head only: a program whose cover or index is
// damaged is listed, and refused as damaged when it is opened to play; one
// whose header is damaged is skipped, as before.
TEST_F(ProgramLibraryTest, DamageBeyondTheHeadIsFoundWhenTheProgramIsOpened)
{
    const QString cover = At(QStringLiteral("app/a-cover.zq"));
    const QString header = At(QStringLiteral("app/b-header.zq"));
    const QString index = At(QStringLiteral("app/c-index.zq"));
    MakeProgramWithCover(cover, "COVER", 1000);
    MakeProgramWithCover(header, "HEADER", 1000);
    MakeProgramWithCover(index, "INDEX", 1000);
    DamageChunk(cover, kPictureChunk, 100);
    FlipByte(header, 20); // the channel count, under the header's checksum
    DamageChunk(index, kIndexChunk, 6);

    ASSERT_TRUE(library->RefreshAll());
    ASSERT_EQ(Paths(), (QStringList{cover, index}));
    EXPECT_EQ(library->At(0).GetPictureCount(), 1);
    EXPECT_TRUE(library->At(0).GetCoverPicture().empty());
    EXPECT_FALSE(library->At(0).IsOpen());
    library->SelectProgram(1);
    EXPECT_FALSE(library->At(1).IsOpen());
    const QStringList boxes = device.messages();
    ASSERT_EQ(boxes.size(), 2);
    EXPECT_TRUE(boxes[0].contains(DamagedBoxText(cover))) << boxes[0].toStdString();
    EXPECT_TRUE(boxes[1].contains(DamagedBoxText(index))) << boxes[1].toStdString();
}

// The library counts a program's pictures but does not keep them: a cover is
// read from its file when it is shown.
TEST_F(ProgramLibraryTest, EntriesHoldNoPictureBytes)
{
    constexpr std::size_t kCoverBytes = 2 << 20;
    constexpr int kPrograms = 8;
    for (int i = 0; i < kPrograms; ++i)
        MakeProgramWithCover(At(QStringLiteral("music/Author/Title %1/p.zq").arg(i)), "P" + std::to_string(i),
                             kCoverBytes);
    if (!HeapCountsAllocations())
        GTEST_SKIP() << "the C allocator's counters do not see this build's allocations";
    const std::size_t before = HeapInUse();
    ASSERT_TRUE(library->RefreshAll());
    const std::size_t after = HeapInUse();
    ASSERT_EQ(library->Count(), kPrograms);
    EXPECT_EQ(library->At(kPrograms - 1).GetPictureCount(), 1);
    EXPECT_EQ(library->At(kPrograms - 1).GetCoverPicture().size(), kCoverBytes);
    // The whole list, the open first program included, takes less than one cover.
    EXPECT_LT(after, before + kCoverBytes);
}

// A found program loads its stored state before its metadata, while its key is
// still empty, so every entry starts with what is stored under the empty key.
TEST_F(ProgramLibraryTest, FoundProgramsStartWithTheStateStoredUnderTheEmptyKey)
{
    ProgramFile unkeyed{QString()};
    unkeyed.bookmarks = {{u"Stored", 1500}};
    ASSERT_TRUE(store->SaveProgramState(unkeyed));
    MakeProgram(At(QStringLiteral("app/a.zq")), {.id = "A"});
    MakeProgram(At(QStringLiteral("app/b.zq")), {.id = "B"});

    ASSERT_TRUE(library->RefreshAll());
    ASSERT_EQ(library->Count(), 2);
    EXPECT_EQ(library->At(1).bookmarks, unkeyed.bookmarks);
    library->Clear();
    library->ScanFolderFlat(At(QStringLiteral("app")));
    ASSERT_EQ(library->Count(), 2);
    EXPECT_EQ(library->At(1).bookmarks, unkeyed.bookmarks);
}

TEST(PositionSideFileTest, ReplacesZqBeforeZqx)
{
    EXPECT_EQ(PositionSideFilePath(QStringLiteral("/m/book.zq")), QStringLiteral("/m/book.pos"));
    EXPECT_EQ(PositionSideFilePath(QStringLiteral("/m/book.zqx")), QStringLiteral("/m/book.posx"));
    EXPECT_EQ(PositionSideFilePath(QStringLiteral("/m.zq/a.zq")), QStringLiteral("/m.pos/a.pos"));
}

} // namespace
} // namespace talvo::test
