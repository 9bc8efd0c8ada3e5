// The real player starting on a damaged settings store: one box says what was
// kept aside and how old the restored copy is, and the player starts with
// every value of that copy; a store that is not damaged is never moved.
#include "platform/RegistryRecovery.h"
#include "tests/support/TestDevice.h"

#include <QDir>
#include <QProcess>
#include <QStandardPaths>
#include <gtest/gtest.h>
#include <unistd.h>

namespace talvo::test {
namespace {

const QString kPlayer = QStringLiteral(TALVO_BUILD_DIR "/bin/talvoplayer");

std::vector<std::uint8_t> Dword(DWORD value)
{
    return {std::uint8_t(value), std::uint8_t(value >> 8), std::uint8_t(value >> 16),
            std::uint8_t(value >> 24)};
}

// The values a listener would lose: settings, a position, a bookmark.
const struct {
    const char16_t* key;
    const char16_t* name;
    DWORD value;
} kListenerValues[] = {
    {u"Software\\Talvo", u"Jump Back", 40},
    {u"Software\\Talvo", u"Power Off Time", 120},
    {u"SOFTWARE\\Talvo\\AudioData\\book_zqx", u"play_pos", 3723000},
    {u"SOFTWARE\\Talvo\\AudioData\\book_zqx\\Bookmarks", u"Where she leaves", 1800000},
};

QByteArray ReadAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

class StoreRecoveryProcess : public ::testing::Test {
protected:
    void SetUp() override
    {
        device_.UsePrivateRuntime();
        device_.set("TALVOPLAYER_AUDIO", QStringLiteral("null"));
        device_.set("TALVOPLAYER_EXIT_AFTER_FIRST_PAINT", QStringLiteral("1"));
        auto registry = OpenSqliteRegistry(store_.toStdString());
        ASSERT_TRUE(registry);
        for (const auto& v : kListenerValues) {
            HKEY key = 0;
            ASSERT_EQ(registry->CreateKey(HKEY_LOCAL_MACHINE, v.key, 0, &key), ERROR_SUCCESS);
            const auto data = Dword(v.value);
            ASSERT_EQ(registry->SetValue(key, v.name, REG_DWORD, data.data(), 4), ERROR_SUCCESS);
            registry->CloseKey(key);
        }
        ASSERT_EQ(SaveLastGoodCopy(store_.toStdString(), std::nullopt), ERROR_SUCCESS);
    }

    int runPlayer(const QStringList& prefix = {})
    {
        QProcess player;
        player.setProcessChannelMode(QProcess::ForwardedChannels);
        if (prefix.isEmpty())
            player.start(kPlayer, {});
        else
            player.start(prefix.first(), prefix.mid(1) + QStringList{kPlayer});
        EXPECT_TRUE(player.waitForFinished(60000));
        EXPECT_EQ(player.exitStatus(), QProcess::NormalExit);
        return player.exitCode();
    }

    void expectEveryListenerValue()
    {
        auto registry = OpenSqliteRegistry(store_.toStdString());
        ASSERT_TRUE(registry);
        for (const auto& v : kListenerValues) {
            HKEY key = 0;
            ASSERT_EQ(registry->OpenKey(HKEY_LOCAL_MACHINE, v.key, KEY_READ, &key), ERROR_SUCCESS);
            std::uint8_t data[4] = {};
            DWORD size = 4;
            EXPECT_EQ(registry->QueryValue(key, v.name, nullptr, data, &size), ERROR_SUCCESS);
            EXPECT_EQ(std::vector<std::uint8_t>(data, data + 4), Dword(v.value));
            registry->CloseKey(key);
        }
    }

    QStringList keptAside() const
    {
        return QDir(device_.path())
            .entryList({QStringLiteral("registry.db.damaged-*")}, QDir::Files | QDir::Dirs);
    }

    TestDevice device_;
    QString store_ = device_.registryPath();
};

TEST_F(StoreRecoveryProcess, ADamagedStoreIsKeptAsideTheCopyRestoredAndThePlayerStarts)
{
    const QByteArray whole = ReadAll(store_);
    for (const QByteArray& damaged : {QByteArray(6000, '\x5A'), whole.left(whole.size() - 1000)}) {
        {
            QFile file(store_);
            ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
            file.write(damaged);
        }
        QFile::remove(device_.messageLogPath());
        EXPECT_EQ(runPlayer(), 0);

        const QStringList boxes = device_.messages();
        ASSERT_EQ(boxes.size(), 1) << boxes.join('\n').toStdString();
        ASSERT_FALSE(keptAside().isEmpty());
        const QString aside = device_.path(keptAside().last());
        EXPECT_TRUE(boxes[0].startsWith(QLatin1String("TalvoPlayer Error\tThe settings store was damaged.")));
        EXPECT_TRUE(boxes[0].contains(aside)) << boxes[0].toStdString();
        EXPECT_TRUE(boxes[0].contains(QLatin1String("saved a minute ago"))) << boxes[0].toStdString();
        EXPECT_EQ(ReadAll(aside), damaged);
        expectEveryListenerValue();
    }
    EXPECT_EQ(keptAside().size(), 2);
}

TEST_F(StoreRecoveryProcess, WhatIsNotDamageIsToldInPlainWordsAndMovesNothing)
{
    // No permission to read the store: as a user without root's rights.
    const QByteArray before = ReadAll(store_);
    QStringList asUser;
    if (geteuid() == 0) {
        const QString setpriv = QStandardPaths::findExecutable(QStringLiteral("setpriv"));
        ASSERT_FALSE(setpriv.isEmpty()) << "setpriv (util-linux) drops root for this check";
        asUser = {setpriv, QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                  QStringLiteral("--clear-groups")};
        QFile::setPermissions(device_.path(), QFileDevice::Permissions(0x7777));
        QFile::setPermissions(device_.path(QStringLiteral("run")), QFileDevice::Permissions(0x7777));
        QFile log(device_.messageLogPath());
        ASSERT_TRUE(log.open(QIODevice::WriteOnly));
        log.setPermissions(QFileDevice::Permissions(0x6666));
    }
    ASSERT_TRUE(QFile::setPermissions(store_, QFileDevice::Permissions()));
    EXPECT_EQ(runPlayer(asUser), 1);
    QFile::setPermissions(store_, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    QStringList boxes = device_.messages();
    ASSERT_EQ(boxes.size(), 1);
    EXPECT_TRUE(boxes[0].contains(QLatin1String("cannot be opened: Permission denied")))
        << boxes[0].toStdString();
    EXPECT_EQ(ReadAll(store_), before);

    // A folder where the store should be.
    QFile::remove(device_.messageLogPath());
    ASSERT_TRUE(QFile::remove(store_));
    ASSERT_TRUE(QDir().mkpath(store_));
    EXPECT_EQ(runPlayer(), 1);
    boxes = device_.messages();
    ASSERT_EQ(boxes.size(), 1);
    EXPECT_TRUE(boxes[0].contains(QLatin1String("cannot be opened: Is a directory")))
        << boxes[0].toStdString();
    EXPECT_TRUE(QFileInfo(store_).isDir());
    EXPECT_TRUE(keptAside().isEmpty());
}

} // namespace
} // namespace talvo::test
