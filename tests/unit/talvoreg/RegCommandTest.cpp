// talvoreg's commands as a user meets them: the query layout, the questions
// before overwriting or deleting, and a clear error with exit 1 for each
// kind of mistake, with nothing written.
#include "TalvoregRun.h"
#include "platform/RegistryRecovery.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

namespace talvo::test {
namespace {

constexpr char kNotFound[] = "ERROR: The system was unable to find the specified registry key or value.\n";
constexpr char kDone[] = "The operation completed successfully.\n";

class RegCommand : public ::testing::Test {
protected:
    RegRun Run(QStringList arguments, const std::string& input = {})
    {
        return Talvoreg(dir.filePath(QStringLiteral("r.db")), std::move(arguments), input);
    }
    void Add(const QString& key, const QString& name, const QString& type, const QString& data)
    {
        RegRun run = Run({QStringLiteral("add"), key, QStringLiteral("/v"), name, QStringLiteral("/t"), type,
                          QStringLiteral("/d"), data, QStringLiteral("/f")});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        ASSERT_EQ(run.out, kDone);
    }

    QTemporaryDir dir;
};

TEST_F(RegCommand, QueryPrintsKeysAndValuesInTheClassicLayout)
{
    Add(QStringLiteral("HKLM\\Software\\Talvo"), QStringLiteral("Volume"), QStringLiteral("REG_DWORD"),
        QStringLiteral("0x1E"));
    Add(QStringLiteral("HKLM\\Software\\Talvo"), QStringLiteral("Last Program"), QStringLiteral("REG_SZ"),
        QStringLiteral("C:\\x"));
    Add(QStringLiteral("hkey_local_machine\\software\\talvo\\Skins"), QStringLiteral("Blob"),
        QStringLiteral("reg_binary"), QStringLiteral("00ff0a"));
    ASSERT_EQ(Run({QStringLiteral("add"), QStringLiteral("HKLM\\Software\\Talvo"), QStringLiteral("/ve"),
                   QStringLiteral("/d"), QStringLiteral("x")})
                  .exitCode,
              0);
    ASSERT_EQ(Run({QStringLiteral("add"), QStringLiteral("HKLM\\Software\\Talvo\\AudioData")}).exitCode, 0);

    RegRun query = Run({QStringLiteral("query"), QStringLiteral("HKLM\\Software\\Talvo")});
    EXPECT_EQ(query.exitCode, 0);
    EXPECT_EQ(query.out, "HKEY_LOCAL_MACHINE\\Software\\Talvo\n"
                         "    Volume    REG_DWORD    0x1e\n"
                         "    Last Program    REG_SZ    C:\\x\n"
                         "    (Default)    REG_SZ    x\n"
                         "\n"
                         "HKEY_LOCAL_MACHINE\\Software\\Talvo\\AudioData\n"
                         "HKEY_LOCAL_MACHINE\\Software\\Talvo\\Skins\n");

    query = Run({QStringLiteral("query"), QStringLiteral("HKLM\\Software\\Talvo\\"), QStringLiteral("/s")});
    EXPECT_EQ(query.out, "HKEY_LOCAL_MACHINE\\Software\\Talvo\n"
                         "    Volume    REG_DWORD    0x1e\n"
                         "    Last Program    REG_SZ    C:\\x\n"
                         "    (Default)    REG_SZ    x\n"
                         "\n"
                         "HKEY_LOCAL_MACHINE\\Software\\Talvo\\AudioData\n"
                         "\n"
                         "HKEY_LOCAL_MACHINE\\Software\\Talvo\\Skins\n"
                         "    Blob    REG_BINARY    00FF0A\n"
                         "\n");

    query = Run({QStringLiteral("query"), QStringLiteral("HKLM\\Software\\Talvo"), QStringLiteral("/v"),
                 QStringLiteral("VOLUME")});
    EXPECT_EQ(query.out, "HKEY_LOCAL_MACHINE\\Software\\Talvo\n    VOLUME    REG_DWORD    0x1e\n");
}

TEST_F(RegCommand, QuestionsGuardOverwritingAndDeletingAndNoAnswerMeansNo)
{
    const QString key = QStringLiteral("HKLM\\Software\\Talvo");
    Add(key, QStringLiteral("Volume"), QStringLiteral("REG_DWORD"), QStringLiteral("5"));
    const QStringList overwrite{QStringLiteral("add"), key,
                                QStringLiteral("/v"),  QStringLiteral("Volume"),
                                QStringLiteral("/t"),  QStringLiteral("REG_DWORD"),
                                QStringLiteral("/d"),  QStringLiteral("9")};
    const QStringList queryVolume{QStringLiteral("query"), key, QStringLiteral("/v"),
                                  QStringLiteral("Volume")};

    RegRun declined = Run(overwrite); // standard input at its end
    EXPECT_EQ(declined.exitCode, 1);
    EXPECT_NE(declined.out.find("(Yes/No)?"), std::string::npos);
    EXPECT_NE(Run(queryVolume).out.find("0x5"), std::string::npos);
    EXPECT_EQ(Run(overwrite, "no\n").exitCode, 1);
    EXPECT_EQ(Run(overwrite, "yes\n").exitCode, 0);
    EXPECT_NE(Run(queryVolume).out.find("0x9"), std::string::npos);

    const QStringList deleteKey{QStringLiteral("delete"), QStringLiteral("HKLM\\Software")};
    EXPECT_EQ(Run(deleteKey).exitCode, 1);
    EXPECT_EQ(Run(queryVolume).exitCode, 0);
    EXPECT_EQ(Run(deleteKey, "y\n").exitCode, 0);
    EXPECT_EQ(Run(queryVolume).err, kNotFound);
}

TEST_F(RegCommand, MistakesFailWithAClearMessageAndWriteNothing)
{
    const QString key = QStringLiteral("HKLM\\Software\\Talvo");
    Add(key, QStringLiteral("Volume"), QStringLiteral("REG_DWORD"), QStringLiteral("5"));

    struct Case {
        QStringList arguments;
        std::string message;
    };
    const Case cases[] = {
        {{QStringLiteral("query"), QStringLiteral("HKLM\\Software\\Nothing")}, kNotFound},
        {{QStringLiteral("query"), key, QStringLiteral("/v"), QStringLiteral("Nothing")}, kNotFound},
        {{QStringLiteral("delete"), key, QStringLiteral("/v"), QStringLiteral("Nothing"),
          QStringLiteral("/f")},
         kNotFound},
        {{QStringLiteral("add"), key, QStringLiteral("/v"), QStringLiteral("V"), QStringLiteral("/t"),
          QStringLiteral("REG_FOO")},
         "ERROR: Invalid value type \"REG_FOO\": use REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ, REG_DWORD, "
         "REG_QWORD, "
         "REG_BINARY or REG_NONE.\n"},
        {{QStringLiteral("add"), key, QStringLiteral("/v"), QStringLiteral("V"), QStringLiteral("/t"),
          QStringLiteral("REG_DWORD"), QStringLiteral("/d"), QStringLiteral("12abc")},
         "ERROR: Invalid REG_DWORD data \"12abc\": give a number from 0 to 4294967295, in decimal or as 0x "
         "hex.\n"},
        {{QStringLiteral("add"), key, QStringLiteral("/v"), QStringLiteral("V"), QStringLiteral("/t"),
          QStringLiteral("REG_DWORD"), QStringLiteral("/d"), QStringLiteral("0x100000000")},
         "ERROR: Invalid REG_DWORD data \"0x100000000\": give a number from 0 to 4294967295, in decimal or "
         "as 0x "
         "hex.\n"},
        {{QStringLiteral("add"), key, QStringLiteral("/v"), QStringLiteral("V"), QStringLiteral("/t"),
          QStringLiteral("REG_BINARY"), QStringLiteral("/d"), QStringLiteral("0g")},
         "ERROR: Invalid REG_BINARY data \"0g\": give pairs of hex digits, such as 0A1B.\n"},
        {{QStringLiteral("add"), QStringLiteral("HKCU\\Software")},
         "ERROR: Invalid key name \"HKCU\\Software\": it must begin with HKLM, HKEY_LOCAL_MACHINE, HKCR or "
         "HKEY_CLASSES_ROOT.\n"},
        {{QStringLiteral("delete"), QStringLiteral("HKLM"), QStringLiteral("/f")},
         "ERROR: HKEY_LOCAL_MACHINE is a root key and cannot be deleted.\n"},
        {{QStringLiteral("query"), key, QStringLiteral("/x")},
         "ERROR: Invalid syntax: unknown switch /x. Type \"talvoreg --help\" for usage.\n"},
        {{QStringLiteral("frobnicate")},
         "ERROR: Invalid syntax: unknown command \"frobnicate\". Type \"talvoreg --help\" for usage.\n"},
    };
    for (const Case& c : cases) {
        RegRun run = Run(c.arguments);
        EXPECT_EQ(run.exitCode, 1) << c.arguments.join(QLatin1Char(' ')).toStdString();
        EXPECT_EQ(run.err, c.message);
        EXPECT_TRUE(run.out.empty()) << run.out;
    }
    RegRun query = Run({QStringLiteral("query"), key});
    EXPECT_EQ(query.out, "HKEY_LOCAL_MACHINE\\Software\\Talvo\n    Volume    REG_DWORD    0x5\n\n");

    // A store file that is not a registry is named, not overwritten.
    QString notStore = dir.filePath(QStringLiteral("notes.txt"));
    QFile file(notStore);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(4096, 'x'));
    file.close();
    RegRun damaged = Talvoreg(notStore, {QStringLiteral("query"), QStringLiteral("HKLM")});
    EXPECT_EQ(damaged.exitCode, 1);
    EXPECT_EQ(damaged.err, "ERROR: The registry store " + notStore.toStdString() +
                               " is damaged; nothing was changed. \"talvoreg repair\" keeps it aside and "
                               "restores its last good copy.\n");
}

TEST_F(RegCommand, ADamagedStoreIsRefusedUntouchedAndRepairRestoresItsCopy)
{
    const QString store = dir.filePath(QStringLiteral("r.db"));
    Add(QStringLiteral("HKLM\\Software\\Talvo"), QStringLiteral("Volume"), QStringLiteral("REG_DWORD"),
        QStringLiteral("0x1E"));
    ASSERT_EQ(SaveLastGoodCopy(store.toStdString(), std::nullopt), ERROR_SUCCESS);
    QFile file(store);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    const QByteArray damaged = file.read(1000) + QByteArray(3000, '\0');
    file.resize(0);
    file.write(damaged);
    file.close();

    for (const char* command : {"query", "delete"}) {
        RegRun run =
            Run({QLatin1String(command), QStringLiteral("HKLM\\Software\\Talvo"), QStringLiteral("/f")});
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_NE(run.err.find(store.toStdString() + " is damaged; nothing was changed."), std::string::npos)
            << run.err;
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_EQ(file.readAll(), damaged);
        file.close();
    }

    RegRun repair = Run({QStringLiteral("repair")});
    EXPECT_EQ(repair.exitCode, 0) << repair.err;
    const QStringList aside = QDir(dir.path()).entryList({QStringLiteral("r.db.damaged-*")});
    ASSERT_EQ(aside.size(), 1);
    EXPECT_NE(repair.out.find("was damaged; it has been kept as " + dir.filePath(aside[0]).toStdString()),
              std::string::npos)
        << repair.out;
    EXPECT_NE(repair.out.find("Its last good copy, written "), std::string::npos) << repair.out;
    EXPECT_EQ(Run({QStringLiteral("query"), QStringLiteral("HKLM\\Software\\Talvo"), QStringLiteral("/v"),
                   QStringLiteral("Volume")})
                  .out,
              "HKEY_LOCAL_MACHINE\\Software\\Talvo\n    Volume    REG_DWORD    0x1e\n");
    // An intact store is left alone.
    repair = Run({QStringLiteral("repair")});
    EXPECT_EQ(repair.exitCode, 0);
    EXPECT_NE(repair.out.find("is intact; nothing was changed."), std::string::npos);
    EXPECT_EQ(QDir(dir.path()).entryList({QStringLiteral("r.db.damaged-*")}).size(), 1);
}

} // namespace
} // namespace talvo::test
