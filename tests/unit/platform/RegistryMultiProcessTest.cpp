// Several processes on one store: concurrent writers lose nothing, a new
// store opened by many processes at once opens for every one of them, and a
// writer killed at any moment leaves a store that opens and holds every value
// either as it was or as it was being written.
#include "RegistryTestSupport.h"
#include "RegistryWriter.h"

#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QThread>
#include <sqlite3.h>
#include <sys/file.h>

namespace talvo::test {
namespace {

// Two writers at once, each as many writes as a long listening session makes.
constexpr int kWritesPerWriter = 10000;
constexpr int kKills = 100;
// Long enough for the writer to be inside a write, short enough to hit every
// phase of a generation (values, tree deletion, tree creation, checkpoints).
constexpr int kMaxRunBeforeKillMs = 25;
// A player and a sync command on a new device, or a shell loop of talvoreg:
// more processes than cores, all opening one new file.  A round took one
// failure in three before the journal switch was retried.
constexpr int kFirstOpeners = 12;
constexpr int kFirstOpenRounds = 15;

QProcess* StartWriter(QObject* parent, const TempRegistry& temp, const QStringList& arguments)
{
    auto* process = new QProcess(parent);
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->start(QStringLiteral(TALVO_REGISTRY_WRITER),
                   QStringList{QString::fromStdString(temp.path())} + arguments);
    EXPECT_TRUE(process->waitForStarted(10000));
    return process;
}

TEST(RegistryMultiProcess, TwoWritersAtOnceLoseNoWrite)
{
    TempRegistry temp;
    QObject owner;
    QProcess* first = StartWriter(
        &owner, temp, {QStringLiteral("count"), QStringLiteral("A"), QString::number(kWritesPerWriter)});
    QProcess* second = StartWriter(
        &owner, temp, {QStringLiteral("count"), QStringLiteral("B"), QString::number(kWritesPerWriter)});
    for (QProcess* writer : {first, second}) {
        ASSERT_TRUE(writer->waitForFinished(50000));
        EXPECT_EQ(writer->exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(writer->exitCode(), 0);
    }

    auto registry = temp.Open();
    ASSERT_TRUE(registry);
    HKEY key = 0;
    ASSERT_EQ(registry->OpenKey(HKEY_LOCAL_MACHINE, kWriterKey, KEY_READ, &key), ERROR_SUCCESS);
    int values = 0;
    int wrong = 0;
    std::u16string name;
    std::vector<std::uint8_t> data;
    while (registry->EnumValue(key, DWORD(values), &name, nullptr, &data) == ERROR_SUCCESS) {
        ++values;
        int index = QString::fromStdU16String(name).mid(2).toInt();
        if (data != DwordBytes(DWORD(index)))
            ++wrong;
    }
    EXPECT_EQ(values, 2 * kWritesPerWriter);
    EXPECT_EQ(wrong, 0);
    for (std::u16string_view last : {u"A-9999", u"B-9999", u"a-0", u"b-0"})
        EXPECT_EQ(ReadValue(*registry, key, last).status, ERROR_SUCCESS);
}

std::string PragmaText(const std::string& path, const char* pragma)
{
    sqlite3* db = nullptr;
    std::string text;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v2(db, pragma, -1, &stmt, nullptr) == SQLITE_OK &&
            sqlite3_step(stmt) == SQLITE_ROW)
            text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
        sqlite3_finalize(stmt);
    }
    sqlite3_close(db);
    return text;
}

TEST(RegistryMultiProcess, ManyFirstOpensAtOnceAllSucceed)
{
    for (int round = 0; round < kFirstOpenRounds; ++round) {
        TempRegistry temp;
        // Every opener waits for a shared lock on the gate while the test holds
        // it exclusively; letting it go wakes them all at the same moment.
        QFile gate(temp.folder() + QStringLiteral("/gate"));
        ASSERT_TRUE(gate.open(QIODevice::WriteOnly));
        ASSERT_EQ(flock(gate.handle(), LOCK_EX), 0);
        QObject owner;
        std::vector<QProcess*> openers;
        for (int i = 0; i < kFirstOpeners; ++i) {
            openers.push_back(StartWriter(
                &owner, temp, {QStringLiteral("first-open"), QStringLiteral("P%1").arg(i), gate.fileName()}));
        }
        for (QProcess* opener : openers)
            ASSERT_TRUE(opener->waitForReadyRead(10000));
        ASSERT_EQ(flock(gate.handle(), LOCK_UN), 0);
        for (int i = 0; i < kFirstOpeners; ++i) {
            ASSERT_TRUE(openers[i]->waitForFinished(30000));
            EXPECT_EQ(openers[i]->exitStatus(), QProcess::NormalExit);
            EXPECT_EQ(openers[i]->exitCode(), 0) << "opener " << i << " in round " << round;
        }

        EXPECT_EQ(PragmaText(temp.path(), "PRAGMA integrity_check"), "ok");
        EXPECT_EQ(PragmaText(temp.path(), "PRAGMA journal_mode"), "wal");
        auto registry = temp.Open();
        ASSERT_TRUE(registry);
        HKEY key = 0;
        ASSERT_EQ(registry->OpenKey(HKEY_LOCAL_MACHINE, kWriterKey, KEY_READ, &key), ERROR_SUCCESS);
        for (int i = 0; i < kFirstOpeners; ++i) {
            std::u16string name = QStringLiteral("P%1-0").arg(i).toStdU16String();
            EXPECT_EQ(ReadValue(*registry, key, name).data, DwordBytes(0)) << "opener " << i;
        }
        if (HasFailure())
            break;
    }
}

TEST(RegistryMultiProcess, WriterKilledMidWriteLeavesOldOrNewValues)
{
    TempRegistry temp;
    QObject owner;
    std::vector<std::uint32_t> seen(kGenerationValues, 0);
    for (int kill = 0; kill < kKills; ++kill) {
        QProcess* writer = StartWriter(&owner, temp, {QStringLiteral("generations")});
        ASSERT_TRUE(writer->waitForReadyRead(10000)) << "writer never opened the store";
        QThread::msleep(QRandomGenerator::global()->bounded(kMaxRunBeforeKillMs));
        ASSERT_EQ(writer->state(), QProcess::Running) << "writer stopped on its own";
        writer->kill();
        ASSERT_TRUE(writer->waitForFinished(10000));
        delete writer;

        RegStatus status = -1;
        auto registry = OpenSqliteRegistry(temp.path(), &status);
        ASSERT_TRUE(registry) << "store did not open after kill " << kill << ", status " << status;
        HKEY key = 0;
        if (registry->OpenKey(HKEY_LOCAL_MACHINE, kWriterKey, KEY_READ, &key) != ERROR_SUCCESS)
            continue; // killed before the first write
        // Values are written v0 first, so generations read from v0 on can only
        // step down once, by one, where the kill interrupted the round.
        std::vector<std::uint32_t> generations;
        for (int index = 0; index < kGenerationValues; ++index) {
            std::u16string name = u"v" + QString::number(index).toStdU16String();
            StoredValue value = ReadValue(*registry, key, name);
            if (value.status == ERROR_FILE_NOT_FOUND && generations.size() == std::size_t(index) &&
                seen[std::size_t(index)] == 0)
                break; // the very first round was cut short
            ASSERT_EQ(value.status, ERROR_SUCCESS) << "after kill " << kill;
            std::optional<std::uint32_t> generation = PayloadGeneration(value.data, std::uint32_t(index));
            ASSERT_TRUE(generation) << "value " << index << " damaged after kill " << kill;
            EXPECT_GE(*generation, seen[std::size_t(index)]) << "value " << index << " went back in time";
            seen[std::size_t(index)] = *generation;
            generations.push_back(*generation);
        }
        for (std::size_t i = 1; i < generations.size(); ++i) {
            EXPECT_LE(generations[i], generations[i - 1]);
            EXPECT_LE(generations[0] - generations[i], 1u) << "after kill " << kill;
        }
        HKEY leaf = 0;
        if (registry->OpenKey(key, u"Tree\\A\\B", KEY_READ, &leaf) == ERROR_SUCCESS) {
            StoredValue value = ReadValue(*registry, leaf, u"leaf");
            if (value.status == ERROR_SUCCESS) {
                EXPECT_TRUE(PayloadGeneration(value.data, 99)) << "tree value damaged after kill " << kill;
            }
        }
    }
    EXPECT_GT(seen[0], 1u) << "the writer never got to write";
}

} // namespace
} // namespace talvo::test
