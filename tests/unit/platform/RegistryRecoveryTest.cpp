// A damaged store is kept aside and its last-good copy put back; a store that
// is not damaged is never moved; the copy survives a save that fails as on a
// full disk.
#include "platform/RegistryRecovery.h"
#include "RegistryTestSupport.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>

namespace talvo::test {
namespace {

using Dump = std::map<std::u16string, std::pair<DWORD, std::vector<std::uint8_t>>>;

// Every key and value below key, by full path, so that two stores compare whole.
void DumpKey(Registry& registry, HKEY key, const std::u16string& path, Dump* dump)
{
    std::u16string name;
    DWORD type = 0;
    std::vector<std::uint8_t> data;
    for (DWORD i = 0; registry.EnumValue(key, i, &name, &type, &data) == ERROR_SUCCESS; ++i)
        (*dump)[path + u"=" + name] = {type, data};
    for (DWORD i = 0; registry.EnumKey(key, i, &name) == ERROR_SUCCESS; ++i) {
        HKEY child = 0;
        ASSERT_EQ(registry.OpenKey(key, name, KEY_READ, &child), ERROR_SUCCESS);
        (*dump)[path + u"\\" + name] = {};
        DumpKey(registry, child, path + u"\\" + name, dump);
        registry.CloseKey(child);
    }
}

Dump DumpStore(Registry& registry)
{
    Dump dump;
    DumpKey(registry, HKEY_LOCAL_MACHINE, u"HKLM", &dump);
    DumpKey(registry, HKEY_CLASSES_ROOT, u"HKCR", &dump);
    return dump;
}

// A listener's store: settings and a few hundred programs with positions and
// bookmarks, several pages of the database.
void FillLikeAListener(Registry& registry, int programs)
{
    HKEY talvo = 0;
    ASSERT_EQ(registry.CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Talvo", 0, &talvo), ERROR_SUCCESS);
    ASSERT_EQ(WriteValue(registry, talvo, u"Volume", REG_DWORD, DwordBytes(0x80008000)), ERROR_SUCCESS);
    ASSERT_EQ(WriteValue(registry, talvo, u"Last Program", REG_SZ, RegSzBytes(u"/music/Book/one.zq")),
              ERROR_SUCCESS);
    for (int i = 0; i < programs; ++i) {
        HKEY program = 0;
        const std::u16string key =
            u"SOFTWARE\\Talvo\\AudioData\\program" + QString::number(i).toStdU16String();
        ASSERT_EQ(registry.CreateKey(HKEY_LOCAL_MACHINE, key + u"\\Bookmarks", 0, &program), ERROR_SUCCESS);
        ASSERT_EQ(WriteValue(registry, program, u"Chapter one", REG_DWORD, DwordBytes(DWORD(i) * 1000)),
                  ERROR_SUCCESS);
        registry.CloseKey(program);
        ASSERT_EQ(registry.OpenKey(HKEY_LOCAL_MACHINE, key, 0, &program), ERROR_SUCCESS);
        ASSERT_EQ(WriteValue(registry, program, u"play_pos", REG_DWORD, DwordBytes(DWORD(i) * 7919)),
                  ERROR_SUCCESS);
        registry.CloseKey(program);
    }
}

QByteArray ReadAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void WriteAll(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

QStringList KeptAside(const QString& folder)
{
    return QDir(folder).entryList({QStringLiteral("*.damaged-*")}, QDir::Files | QDir::Dirs);
}

// Whether an open in fn skipped reading the store whole, as its trace says.
std::vector<QString> traced;

void Capture(QtMsgType, const QMessageLogContext&, const QString& message)
{
    traced.push_back(message);
}

template <typename Fn> bool SkipsTheWholeRead(Fn fn)
{
    traced.clear();
    QtMessageHandler previous = qInstallMessageHandler(Capture);
    QLoggingCategory::setFilterRules(QStringLiteral("talvo.trace.debug=true"));
    fn();
    QLoggingCategory::setFilterRules(QString());
    qInstallMessageHandler(previous);
    return std::any_of(traced.begin(), traced.end(),
                       [](const QString& line) { return line.contains(QStringLiteral("not read whole")); });
}

// A store with its last-good copy beside it, and what that copy holds.
class RecoveryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto registry = OpenSqliteRegistry(store_);
        ASSERT_TRUE(registry);
        FillLikeAListener(*registry, 300);
        ASSERT_EQ(SaveLastGoodCopy(store_, std::nullopt), ERROR_SUCCESS);
        lastGood_ = DumpStore(*registry);
        ASSERT_GT(lastGood_.size(), 900u);
    }

    // The damaged store is aside, byte for byte as it was, and the store
    // holds every value of the last-good copy.
    void ExpectRecovered(const QByteArray& damaged)
    {
        OpenedStore opened = OpenOrRecoverSqliteRegistry(store_);
        ASSERT_TRUE(opened.registry) << opened.status;
        ASSERT_TRUE(opened.recovery);
        EXPECT_TRUE(opened.recovery->restored);
        EXPECT_EQ(ReadAll(QString::fromStdString(opened.recovery->keptAsidePath)), damaged);
        EXPECT_TRUE(opened.recovery->keptAsidePath.starts_with(store_ + ".damaged-"));
        EXPECT_EQ(DumpStore(*opened.registry), lastGood_);
    }

    QTemporaryDir dir_;
    std::string store_ = dir_.filePath(QStringLiteral("registry.db")).toStdString();
    QString storePath_ = QString::fromStdString(store_);
    Dump lastGood_;
};

TEST_F(RecoveryTest, AStoreCutAtAnyPointIsRefusedUntouchedThenRecovered)
{
    const QByteArray whole = ReadAll(storePath_);
    const QByteArray copy = ReadAll(QString::fromStdString(LastGoodCopyPath(store_)));
    ASSERT_GT(whole.size(), 8 * 4096);
    std::vector<qsizetype> cuts{0, 1, 16, 99, 100, 101, 1000};
    for (qsizetype page = 4096; page < whole.size(); page += 4096)
        cuts.insert(cuts.end(), {page - 1, page, page + 1, page + 2048});
    for (qsizetype cut : cuts) {
        SCOPED_TRACE(cut);
        for (const QString& aside : KeptAside(dir_.path()))
            QFile::remove(dir_.filePath(aside));
        WriteAll(QString::fromStdString(LastGoodCopyPath(store_)), copy);
        const QByteArray damaged = whole.left(cut);
        WriteAll(storePath_, damaged);

        RegStatus status = ERROR_SUCCESS;
        EXPECT_EQ(OpenSqliteRegistry(store_, &status), nullptr);
        EXPECT_EQ(status, ERROR_BADDB);
        EXPECT_EQ(ReadAll(storePath_), damaged) << "a refused store must be left as it was";
        ExpectRecovered(damaged);
    }
}

TEST_F(RecoveryTest, GarbageIsKeptAsideAndTheStoreStartsEmptyWithoutACopy)
{
    QByteArray garbage;
    for (int i = 0; i < 20000; ++i)
        garbage.append(char((i * 131 + 7) & 0xFF));
    WriteAll(storePath_, garbage);
    ExpectRecovered(garbage);

    // Damaged again, and this time there is no copy.
    ASSERT_TRUE(QFile::remove(QString::fromStdString(LastGoodCopyPath(store_))));
    WriteAll(storePath_, garbage);
    OpenedStore opened = OpenOrRecoverSqliteRegistry(store_);
    ASSERT_TRUE(opened.registry);
    ASSERT_TRUE(opened.recovery);
    EXPECT_FALSE(opened.recovery->restored);
    EXPECT_EQ(KeptAside(dir_.path()).size(), 2);
    HKEY key = 0;
    EXPECT_EQ(opened.registry->OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Talvo", KEY_READ, &key),
              ERROR_FILE_NOT_FOUND);
}

// The player killed with its last writes still in the write-ahead log, and the
// log then garbled: SQLite alone would drop the log and open an older store.
TEST_F(RecoveryTest, AGarbageWriteAheadLogIsDamageAndTheNewerCopyComesBack)
{
    {
        auto registry = OpenSqliteRegistry(store_);
        HKEY key = 0;
        ASSERT_EQ(registry->CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Talvo", 0, &key), ERROR_SUCCESS);
        ASSERT_EQ(WriteValue(*registry, key, u"Jump Back", REG_DWORD, DwordBytes(30)), ERROR_SUCCESS);
        ASSERT_EQ(SaveLastGoodCopy(store_, std::nullopt), ERROR_SUCCESS);
        lastGood_ = DumpStore(*registry);
        // Copies of the files as a crash would leave them: the log unmerged.
        ASSERT_TRUE(QFile::copy(storePath_, storePath_ + ".crashed"));
        ASSERT_TRUE(QFile::copy(storePath_ + "-wal", storePath_ + ".crashed-wal"));
    }
    ASSERT_TRUE(QFile::remove(storePath_));
    ASSERT_TRUE(QFile::rename(storePath_ + ".crashed", storePath_));
    QByteArray log = ReadAll(storePath_ + ".crashed-wal");
    ASSERT_GT(log.size(), 32);
    for (qsizetype i = 0; i < log.size(); ++i)
        log[i] = char(log[i] ^ 0x5A);
    WriteAll(storePath_ + "-wal", log);
    const QByteArray store = ReadAll(storePath_);

    RegStatus status = ERROR_SUCCESS;
    EXPECT_EQ(OpenSqliteRegistry(store_, &status), nullptr);
    EXPECT_EQ(status, ERROR_BADDB);
    EXPECT_EQ(ReadAll(storePath_ + "-wal"), log);
    ExpectRecovered(store);
    const QStringList aside = KeptAside(dir_.path());
    EXPECT_TRUE(aside.filter(QStringLiteral("-wal")).size() == 1) << aside.join(' ').toStdString();
}

// A rollback journal beside a sound store: one left by a process that died
// while the store was not in WAL mode, or a stray file under that name.  A
// journal whose header is not one holds nothing to roll back, in either mode.
TEST_F(RecoveryTest, AGarbageRollbackJournalIsNotDamageAndNothingIsLost)
{
    QByteArray garbage;
    for (int i = 0; i < 3 * 4096 + 100; ++i)
        garbage.append(char((i * 131 + 7) & 0xFF));
    for (const char* mode : {"DELETE", "WAL"}) {
        SCOPED_TRACE(mode);
        {
            sqlite3* db = nullptr;
            ASSERT_EQ(sqlite3_open(store_.c_str(), &db), SQLITE_OK);
            const std::string pragma = std::string("PRAGMA journal_mode = ") + mode;
            EXPECT_EQ(sqlite3_exec(db, pragma.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
            sqlite3_close(db);
        }
        WriteAll(storePath_ + "-journal", garbage);
        OpenedStore opened = OpenOrRecoverSqliteRegistry(store_);
        ASSERT_TRUE(opened.registry) << opened.status;
        EXPECT_FALSE(opened.recovery);
        EXPECT_EQ(DumpStore(*opened.registry), lastGood_);
        EXPECT_TRUE(KeptAside(dir_.path()).isEmpty());
    }

    // A real one: a process in rollback mode dies mid-transaction, after its
    // cache spilled changed pages into the store.  They are rolled back.
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(store_.c_str(), &db), SQLITE_OK);
    for (const char* sql : {"PRAGMA journal_mode = DELETE", "PRAGMA cache_size = 10", "BEGIN",
                            "UPDATE vals SET data = zeroblob(200)"})
        ASSERT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql;
    const QByteArray crashed = ReadAll(storePath_);
    const QByteArray journal = ReadAll(storePath_ + "-journal");
    sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    ASSERT_NE(crashed, ReadAll(storePath_)) << "nothing reached the store before the crash";
    WriteAll(storePath_, crashed);
    WriteAll(storePath_ + "-journal", journal);
    OpenedStore opened = OpenOrRecoverSqliteRegistry(store_);
    ASSERT_TRUE(opened.registry) << opened.status;
    EXPECT_FALSE(opened.recovery);
    EXPECT_EQ(DumpStore(*opened.registry), lastGood_);
}

TEST_F(RecoveryTest, WhatIsNotDamageMovesNothing)
{
    // A folder where the store should be.
    const std::string folderStore = dir_.filePath(QStringLiteral("folder.db")).toStdString();
    ASSERT_TRUE(QDir().mkpath(QString::fromStdString(folderStore)));
    OpenedStore opened = OpenOrRecoverSqliteRegistry(folderStore);
    EXPECT_FALSE(opened.registry);
    EXPECT_NE(opened.status, ERROR_BADDB);
    EXPECT_FALSE(opened.recovery);
    EXPECT_TRUE(QFileInfo(QString::fromStdString(folderStore)).isDir());

    // Someone else's database, and a store of a later version.
    const std::string foreign = dir_.filePath(QStringLiteral("foreign.db")).toStdString();
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(foreign.c_str(), &db), SQLITE_OK);
    sqlite3_exec(db, "CREATE TABLE songs(title TEXT)", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    opened = OpenOrRecoverSqliteRegistry(foreign);
    EXPECT_EQ(opened.status, ERROR_NOT_REGISTRY_FILE);
    EXPECT_FALSE(opened.recovery);
    EXPECT_TRUE(KeptAside(dir_.path()).isEmpty());

    // No permission: checked as a user without root's right to read anything.
    const QByteArray before = ReadAll(storePath_);
    ASSERT_TRUE(QFile::setPermissions(storePath_, QFileDevice::Permissions()));
    ASSERT_TRUE(QFile::setPermissions(dir_.path(), QFileDevice::Permissions(0x7777)));
    const pid_t child = fork();
    if (child == 0) {
        if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0)
            _exit(100);
        OpenedStore refused = OpenOrRecoverSqliteRegistry(store_);
        _exit(refused.registry                        ? 101
              : refused.recovery                      ? 102
              : refused.status == ERROR_ACCESS_DENIED ? 0
                                                      : 103);
    }
    int waited = 0;
    ASSERT_EQ(waitpid(child, &waited, 0), child);
    EXPECT_TRUE(WIFEXITED(waited));
    EXPECT_EQ(WEXITSTATUS(waited), 0);
    QFile::setPermissions(storePath_, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    EXPECT_EQ(ReadAll(storePath_), before);
    EXPECT_TRUE(KeptAside(dir_.path()).isEmpty());
}

// A disk that fills up: SQLite's own file layer answers every write with
// "full" while diskFull is set, as a full file system would.
std::atomic<bool> diskFull{false};
sqlite3_vfs fullDiskVfs;
// SQLite gives the database and its log different method tables; each gets
// a copy whose write fails while the disk is full, mapped back to the real one.
std::map<const sqlite3_io_methods*, const sqlite3_io_methods*> realOfCopy;
std::map<const sqlite3_io_methods*, std::unique_ptr<sqlite3_io_methods>> copyOfReal;

int FullWrite(sqlite3_file* file, const void* data, int amount, sqlite3_int64 offset)
{
    return diskFull ? SQLITE_FULL : realOfCopy.at(file->pMethods)->xWrite(file, data, amount, offset);
}

int FullOpen(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* outFlags)
{
    sqlite3_vfs* real = static_cast<sqlite3_vfs*>(vfs->pAppData);
    int rc = real->xOpen(real, name, file, flags, outFlags);
    if (rc == SQLITE_OK && file->pMethods) {
        std::unique_ptr<sqlite3_io_methods>& copy = copyOfReal[file->pMethods];
        if (!copy) {
            copy = std::make_unique<sqlite3_io_methods>(*file->pMethods);
            copy->xWrite = FullWrite;
            realOfCopy[copy.get()] = file->pMethods;
        }
        file->pMethods = copy.get();
    }
    return rc;
}

void InstallFullDiskLayer()
{
    static bool installed = false;
    if (installed)
        return;
    sqlite3_vfs* real = sqlite3_vfs_find(nullptr);
    fullDiskVfs = *real;
    fullDiskVfs.zName = "fulldisk";
    fullDiskVfs.pAppData = real;
    fullDiskVfs.xOpen = FullOpen;
    sqlite3_vfs_register(&fullDiskVfs, 1);
    installed = true;
}

TEST_F(RecoveryTest, ASaveOnAFullDiskKeepsTheStoreAndItsCopyAsTheyWere)
{
    InstallFullDiskLayer();
    const QString copyPath = QString::fromStdString(LastGoodCopyPath(store_));
    const QByteArray copy = ReadAll(copyPath);
    {
        auto registry = OpenSqliteRegistry(store_);
        ASSERT_TRUE(registry);
        HKEY key = 0;
        ASSERT_EQ(registry->OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Talvo", 0, &key), ERROR_SUCCESS);
        diskFull = true;
        EXPECT_NE(WriteValue(*registry, key, u"Volume", REG_DWORD, DwordBytes(1)), ERROR_SUCCESS);
        EXPECT_NE(SaveLastGoodCopy(store_, std::nullopt), ERROR_SUCCESS);
        diskFull = false;
    }
    EXPECT_EQ(ReadAll(copyPath), copy);
    EXPECT_EQ(QDir(dir_.path()).entryList({QStringLiteral("*.tmp*")}, QDir::Files), QStringList());
    auto reopened = OpenSqliteRegistry(store_);
    ASSERT_TRUE(reopened);
    EXPECT_EQ(DumpStore(*reopened), lastGood_);
    EXPECT_TRUE(KeptAside(dir_.path()).isEmpty());
}

// The check of a clean exit's copy vouches for the store: the next open does
// not read it whole while nothing has touched it.  A write since, a log left
// holding frames (a process killed after a write) or damage from outside
// brings the check back, and damage is then found and recovered as ever.
TEST_F(RecoveryTest, AStoreFoundSoundIsReadWholeAgainOnceAnythingTouchedIt)
{
    auto openAndClose = [this] {
        EXPECT_TRUE(OpenSqliteRegistry(store_));
    };
    // Writes what the store already holds: the last-good copy stays its equal.
    auto writeOnce = [](Registry& registry) {
        HKEY talvo = 0;
        ASSERT_EQ(registry.OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Talvo", 0, &talvo), ERROR_SUCCESS);
        ASSERT_EQ(WriteValue(registry, talvo, u"Volume", REG_DWORD, DwordBytes(0x80008000)), ERROR_SUCCESS);
        registry.CloseKey(talvo);
    };
    // SetUp's copy was taken while its connection held the store open.
    EXPECT_FALSE(SkipsTheWholeRead(openAndClose));
    ASSERT_EQ(SaveLastGoodCopy(store_, std::nullopt), ERROR_SUCCESS);
    EXPECT_TRUE(SkipsTheWholeRead(openAndClose));
    EXPECT_TRUE(SkipsTheWholeRead(openAndClose));

    writeOnce(*OpenSqliteRegistry(store_));
    EXPECT_FALSE(SkipsTheWholeRead(openAndClose));

    ASSERT_EQ(SaveLastGoodCopy(store_, std::nullopt), ERROR_SUCCESS);
    std::unique_ptr<Registry> killedLater = OpenSqliteRegistry(store_);
    writeOnce(*killedLater);
    EXPECT_FALSE(SkipsTheWholeRead(openAndClose));
    killedLater.reset();

    ASSERT_EQ(SaveLastGoodCopy(store_, std::nullopt), ERROR_SUCCESS);
    QByteArray damaged = ReadAll(storePath_);
    damaged.replace(2 * 4096, 2 * 4096, QByteArray(2 * 4096, '\x55'));
    WriteAll(storePath_, damaged);
    RegStatus status = ERROR_SUCCESS;
    EXPECT_FALSE(OpenSqliteRegistry(store_, &status));
    EXPECT_EQ(status, ERROR_BADDB);
    ExpectRecovered(damaged);
}

} // namespace
} // namespace talvo::test
