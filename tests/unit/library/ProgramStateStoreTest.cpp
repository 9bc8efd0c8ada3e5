#include "LibraryTestSupport.h"
#include "library/ProgramRecordLayout.h"
#include "playback/ProgramFile.h"

namespace talvo::test {
namespace {

using namespace ProgramRecord;

class ProgramStateStoreTest : public LibraryTest {
protected:
    // A read metadata, not opened for playback.
    std::unique_ptr<ProgramFile> Program(const ProgramShape& choice)
    {
        const QString path = At(QStringLiteral("files/%1.zq").arg(QString::fromStdString(choice.id)));
        MakeProgram(path, choice);
        auto entry = std::make_unique<ProgramFile>(path);
        EXPECT_EQ(entry->ReadMetadata(), ZQX_OK);
        return entry;
    }

    HKEY Create(const std::u16string& path)
    {
        HKEY key = 0;
        EXPECT_EQ(registry->CreateKey(HKEY_LOCAL_MACHINE, path, kCreateAccess, &key), ERROR_SUCCESS);
        return key;
    }
    void SetDword(HKEY key, std::u16string_view name, DWORD value)
    {
        ASSERT_EQ(registry->SetValue(key, name, REG_DWORD, reinterpret_cast<const std::uint8_t*>(&value), 4),
                  ERROR_SUCCESS);
    }
    void SetText(HKEY key, std::u16string_view name, std::u16string_view text)
    {
        std::vector<std::uint8_t> bytes = RegSzBytes(text);
        ASSERT_EQ(registry->SetValue(key, name, REG_SZ, bytes.data(), static_cast<DWORD>(bytes.size())),
                  ERROR_SUCCESS);
    }
    // Writes Bookmark<index> with a name and a stored offset.
    void WriteBookmark(const QString& programKey, std::uint32_t index, std::u16string_view name, DWORD stored)
    {
        HKEY key = Create(BookmarksKeyPath(programKey) + u'\\' + BookmarkKeyName(index));
        SetText(key, kName, name);
        SetDword(key, kTimeOffset, stored);
        registry->CloseKey(key);
    }
    void WriteCount(const QString& programKey, DWORD count)
    {
        HKEY key = Create(BookmarksKeyPath(programKey));
        SetDword(key, kCount, count);
        registry->CloseKey(key);
    }
    bool ReadDword(const std::u16string& path, std::u16string_view name, DWORD* value)
    {
        HKEY key = 0;
        if (registry->OpenKey(HKEY_LOCAL_MACHINE, path, KEY_READ, &key) != ERROR_SUCCESS)
            return false;
        DWORD type = 0, size = 4;
        RegStatus status =
            registry->QueryValue(key, name, &type, reinterpret_cast<std::uint8_t*>(value), &size);
        registry->CloseKey(key);
        return status == ERROR_SUCCESS && type == REG_DWORD;
    }
    std::u16string ReadText(const std::u16string& path, std::u16string_view name)
    {
        HKEY key = 0;
        if (registry->OpenKey(HKEY_LOCAL_MACHINE, path, KEY_READ, &key) != ERROR_SUCCESS)
            return u"<missing key>";
        std::uint8_t data[512];
        DWORD type = 0, size = sizeof data;
        RegStatus status = registry->QueryValue(key, name, &type, data, &size);
        registry->CloseKey(key);
        return status == ERROR_SUCCESS ? RegSzText(data, size) : u"<missing value>";
    }
    std::u16string BookmarkPath(const QString& programKey, std::uint32_t index)
    {
        return BookmarksKeyPath(programKey) + u'\\' + BookmarkKeyName(index);
    }
};

TEST_F(ProgramStateStoreTest, SavingAClosedPartFileWritesTheSpanStartAndAnEmptyList)
{
    auto entry = Program({.id = "PART", .spanFlag = true, .spanStart = 60000, .spanEnd = 62000});
    ASSERT_TRUE(store->SaveProgramState(*entry));

    DWORD value = 1;
    ASSERT_TRUE(ReadDword(ProgramKeyPath(QStringLiteral("PART")), kPlayPos, &value));
    EXPECT_EQ(value, 60000u);
    ASSERT_TRUE(ReadDword(BookmarksKeyPath(QStringLiteral("PART")), kCount, &value));
    EXPECT_EQ(value, 0u);
}

TEST_F(ProgramStateStoreTest, SaveWritesWholeProgramTimesAndLoadGivesTheSameListBack)
{
    const ProgramShape choice{.id = "ROUND", .spanFlag = true, .spanStart = 10000, .spanEnd = 12000};
    auto entry = Program(choice);
    entry->Open(*store);
    ASSERT_TRUE(entry->IsOpen());
    ASSERT_TRUE(entry->Seek(1000));
    const std::uint32_t position = entry->Position();
    ASSERT_GT(position, 0u);
    entry->bookmarks = {{u"Chapter one", 500}, {u"Chapter two", 1500}, {u"Chapter three", 1800}};
    ASSERT_TRUE(store->SaveProgramState(*entry));

    const QString key = QStringLiteral("ROUND");
    DWORD value = 0;
    ASSERT_TRUE(store->ReadPlayPosition(key, &value));
    EXPECT_EQ(value, position + 10000);
    ASSERT_TRUE(ReadDword(BookmarksKeyPath(key), kCount, &value));
    EXPECT_EQ(value, 3u);
    EXPECT_EQ(ReadText(BookmarkPath(key, 1), kName), u"Chapter two");
    ASSERT_TRUE(ReadDword(BookmarkPath(key, 1), kTimeOffset, &value));
    EXPECT_EQ(value, 11500u);

    // A shorter list leaves no stale bookmark behind.
    entry->bookmarks.pop_back();
    ASSERT_TRUE(store->SaveProgramState(*entry));
    EXPECT_EQ(ReadText(BookmarkPath(key, 2), kName), u"<missing key>");
    entry->Close();

    auto reread = Program(choice);
    ASSERT_TRUE(store->LoadProgramState(*reread));
    EXPECT_EQ(reread->bookmarks, (std::vector<Bookmark>{{u"Chapter one", 500}, {u"Chapter two", 1500}}));
}

TEST_F(ProgramStateStoreTest, APositionKeptWhilePlayingWinsOverTheSideFileUntilACleanSave)
{
    const ProgramShape choice{
        .id = "LIVE", .spanFlag = true, .spanStart = 10000, .spanEnd = 20000, .lengthMs = 10000};
    const QString key = QStringLiteral("LIVE");
    auto entry = Program(choice);
    entry->Open(*store);
    ASSERT_TRUE(entry->Seek(1000));
    entry->bookmarks = {{u"Kept", 500}};
    ASSERT_TRUE(store->SaveProgramState(*entry)); // side file and record at 1000

    // Playing on to 6000, then killed: only "play_pos" moves, and the list stays.
    ASSERT_TRUE(store->SavePlayingPosition(*entry, 6000));
    DWORD value = 0;
    ASSERT_TRUE(store->ReadPlayPosition(key, &value));
    EXPECT_EQ(value, 16000u);
    EXPECT_EQ(ReadText(BookmarkPath(key, 0), kName), u"Kept");
    entry.reset();

    auto restarted = Program(choice);
    restarted->Open(*store);
    // A seek lands on the start of the block holding the time.
    EXPECT_LE(restarted->Position(), 6000u);
    EXPECT_GT(restarted->Position(), 5000u);
    EXPECT_EQ(restarted->bookmarks, (std::vector<Bookmark>{{u"Kept", 500}}));

    // A clean save makes the side file current again and the mark goes.
    ASSERT_TRUE(restarted->Seek(3000));
    ASSERT_TRUE(store->SaveProgramState(*restarted));
    EXPECT_FALSE(ReadDword(ProgramKeyPath(key), kPlayPosLive, &value));
    restarted.reset();
    auto reopened = Program(choice);
    reopened->Open(*store);
    EXPECT_LE(reopened->Position(), 3000u);
    EXPECT_GT(reopened->Position(), 2000u);
}

TEST_F(ProgramStateStoreTest, LoadConvertsPartTimesAndDropsOnlyExactDuplicates)
{
    auto entry = Program({.id = "LOAD", .spanFlag = true, .spanStart = 10000, .spanEnd = 20000});
    const QString key = QStringLiteral("LOAD");
    WriteCount(key, 6);
    WriteBookmark(key, 0, u"Intro", 10500);
    WriteBookmark(key, 1, u"Intro", 10500); // exact duplicate
    WriteBookmark(key, 2, u"Intro", 11000); // same name, other time
    WriteBookmark(key, 3, u"intro", 10500); // names compare with case
    WriteBookmark(key, 4, u"Later part", 25000);
    WriteBookmark(key, 5, u"Earlier part", 4000);
    WriteBookmark(key, 6, u"Past Count", 12000);

    ASSERT_TRUE(store->LoadProgramState(*entry));
    EXPECT_EQ(
        entry->bookmarks,
        (std::vector<Bookmark>{
            {u"Intro", 500}, {u"Intro", 1000}, {u"intro", 500}, {u"Later part", 0}, {u"Earlier part", 0}}));
}

TEST_F(ProgramStateStoreTest, DamagedRecordsLoadWhatCanBeRead)
{
    auto whole = Program({.id = "GAPS"});
    WriteCount(QStringLiteral("GAPS"), 4);
    WriteBookmark(QStringLiteral("GAPS"), 0, u"First", 100);
    WriteBookmark(QStringLiteral("GAPS"), 2, u"Third", 300);
    HKEY broken = Create(BookmarkPath(QStringLiteral("GAPS"), 3));
    SetText(broken, kName, u"Offset as text");
    SetText(broken, kTimeOffset, u"400");
    registry->CloseKey(broken);
    ASSERT_TRUE(store->LoadProgramState(*whole));
    EXPECT_EQ(whole->bookmarks, (std::vector<Bookmark>{{u"First", 100}, {u"Third", 300}}));

    auto textCount = Program({.id = "TEXTCOUNT"});
    HKEY bookmarks = Create(BookmarksKeyPath(QStringLiteral("TEXTCOUNT")));
    SetText(bookmarks, kCount, u"1");
    registry->CloseKey(bookmarks);
    WriteBookmark(QStringLiteral("TEXTCOUNT"), 0, u"Unreachable", 100);
    EXPECT_TRUE(store->LoadProgramState(*textCount));
    EXPECT_TRUE(textCount->bookmarks.empty());

    // A Count far beyond the subkeys present still loads at once.
    auto huge = Program({.id = "HUGE"});
    WriteCount(QStringLiteral("HUGE"), 0xFFFFFFFFu);
    WriteBookmark(QStringLiteral("HUGE"), 7, u"Seventh", 700);
    ASSERT_TRUE(store->LoadProgramState(*huge));
    EXPECT_EQ(huge->bookmarks, (std::vector<Bookmark>{{u"Seventh", 700}}));

    auto unknown = Program({.id = "NORECORD"});
    unknown->bookmarks = {{u"Kept", 1}};
    EXPECT_FALSE(store->LoadProgramState(*unknown));
    EXPECT_EQ(unknown->bookmarks.size(), 1u);
}

TEST(SyncPositionTest, StaysBelowTheLength)
{
    EXPECT_EQ(SyncPositionSeconds(59999, 60), 59);
    EXPECT_EQ(SyncPositionSeconds(60000, 60), 59);
    EXPECT_EQ(SyncPositionSeconds(0, 0), -1);
}

} // namespace
} // namespace talvo::test
