// A player killed while it saves a program's state leaves that program's
// bookmarks as they were before the save or as the save wrote them, whole:
// the count and every bookmark of one list, never a mix of two.
#include "BookmarkSaver.h"
#include "LibraryTestSupport.h"
#include "library/ProgramRecordLayout.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QThread>

namespace talvo::test {
namespace {

using namespace ProgramRecord;

constexpr int kKills = 30;
// Reaches past the first few saves while landing inside one most of the time:
// a save of the whole list takes a few milliseconds when it is one transaction.
constexpr int kMaxRunBeforeKillMs = 60;
// Each saver's generations start here times its number, so no two savers
// ever write the same list.
constexpr std::uint32_t kGenerationsPerSaver = 1000000;

class ProgramStateKillTest : public LibraryTest {
protected:
    // The stored "Count", or none when the Bookmarks key or the value is missing.
    std::optional<DWORD> StoredCount(const QString& programKey)
    {
        HKEY key = 0;
        if (registry->OpenKey(HKEY_LOCAL_MACHINE, BookmarksKeyPath(programKey), KEY_READ, &key) !=
            ERROR_SUCCESS)
            return std::nullopt;
        DWORD count = 0, type = REG_NONE, size = sizeof count;
        RegStatus status =
            registry->QueryValue(key, kCount, &type, reinterpret_cast<std::uint8_t*>(&count), &size);
        registry->CloseKey(key);
        if (status != ERROR_SUCCESS || type != REG_DWORD)
            return std::nullopt;
        return count;
    }
};

TEST_F(ProgramStateKillTest, KilledSaveLeavesTheOldOrTheNewListWhole)
{
    const QString path = At(QStringLiteral("music/Saved/Program.zq"));
    MakeProgram(path, {.id = "KILLED"});
    const QString programKey = QStringLiteral("KILLED");
    {
        ProgramFile first(path);
        ASSERT_EQ(first.ReadMetadata(), ZQX_OK);
        first.bookmarks = SaverBookmarks(0);
        ASSERT_TRUE(store->SaveProgramState(first));
    }

    std::uint32_t lastGeneration = 0;
    int newerLists = 0;
    for (int kill = 1; kill <= kKills; ++kill) {
        QProcess saver;
        saver.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        saver.start(QStringLiteral(TALVO_BOOKMARK_SAVER),
                    {device.registryPath(), path, QString::number(kill * kGenerationsPerSaver)});
        ASSERT_TRUE(saver.waitForReadyRead(10000)) << "saver never read the program";
        QThread::msleep(QRandomGenerator::global()->bounded(kMaxRunBeforeKillMs));
        ASSERT_EQ(saver.state(), QProcess::Running) << "saver stopped on its own";
        saver.kill();
        ASSERT_TRUE(saver.waitForFinished(10000));

        EXPECT_EQ(StoredCount(programKey), std::optional<DWORD>(kSaverBookmarks)) << "after kill " << kill;
        ProgramFile reread(path);
        ASSERT_EQ(reread.ReadMetadata(), ZQX_OK);
        ASSERT_TRUE(store->LoadProgramState(reread)) << "after kill " << kill;
        std::optional<std::uint32_t> generation = SaverGeneration(reread.bookmarks);
        ASSERT_TRUE(generation) << "after kill " << kill << " the list holds " << reread.bookmarks.size()
                                << " bookmarks, not one whole list";
        EXPECT_GE(*generation, lastGeneration) << "the list went back in time";
        if (*generation != lastGeneration)
            ++newerLists;
        lastGeneration = *generation;
    }
    if (newerLists == 0) {
        // On a loaded machine every kill may have come before a first save
        // ended; one saver left running long enough must get a save through.
        QProcess saver;
        saver.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        saver.start(QStringLiteral(TALVO_BOOKMARK_SAVER),
                    {device.registryPath(), path, QString::number((kKills + 1) * kGenerationsPerSaver)});
        ASSERT_TRUE(saver.waitForReadyRead(10000)) << "saver never read the program";
        for (int wait = 0; wait < 200 && newerLists == 0; ++wait) {
            QThread::msleep(50);
            ProgramFile reread(path);
            ASSERT_EQ(reread.ReadMetadata(), ZQX_OK);
            if (store->LoadProgramState(reread) &&
                SaverGeneration(reread.bookmarks).value_or(0) > lastGeneration)
                ++newerLists;
        }
        saver.kill();
        saver.waitForFinished(10000);
    }
    EXPECT_GT(newerLists, 0) << "no saver ever finished a save";
}

} // namespace
} // namespace talvo::test
