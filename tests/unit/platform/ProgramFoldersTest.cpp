// Where the player reads its own data and writes its own files.  Tests usually run as root, for whom
// every folder is writable, so the folders that cannot take a file here are
// missing ones and plain files; a folder whose mode forbids writing is tried
// end to end in tests/integration/sync (SyncClientTest.cpp).
#include "platform/ProgramFolders.h"
#include "tests/support/TestDevice.h"

#include <gtest/gtest.h>

namespace talvo::test {
namespace {

TEST(ProgramFolders, WrittenInTheProgramFolderOnlyWhenAFileCanBeCreatedThere)
{
    TestDevice device;
    const QString bin = device.path("bin");
    const QString data = device.path("xdg/talvoplayer");
    QDir().mkpath(bin);
    EXPECT_EQ(ProgramWriteFolder(bin, data), bin);
    EXPECT_FALSE(QFileInfo::exists(data)) << "the data folder is made only when used";

    EXPECT_EQ(ProgramWriteFolder(device.path("gone"), data), data);
    EXPECT_TRUE(QFileInfo(data).isDir());
    QFile plain(device.path("plain"));
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    EXPECT_EQ(ProgramWriteFolder(plain.fileName(), data), data);
}

TEST(ProgramFolders, DataFolderFollowsTheBaseDirectoryRules)
{
    TestDevice device;
    device.set("HOME", device.path("home"));
    device.set("XDG_DATA_HOME", device.path("xdg"));
    EXPECT_EQ(PlayerDataFolder(), device.path("xdg/talvoplayer"));
    device.set("XDG_DATA_HOME", "relative");
    EXPECT_EQ(PlayerDataFolder(), device.path("home/.local/share/talvoplayer"));
    device.set("XDG_DATA_HOME", "");
    EXPECT_EQ(PlayerDataFolder(), device.path("home/.local/share/talvoplayer"));
}

TEST(ProgramFolders, SkinsBesideTheExecutableMakeAProgramFolderElseTheInstalledOneServes)
{
    TestDevice device;
    const QString bin = device.path("prefix/bin");
    QDir().mkpath(bin);
    EXPECT_EQ(ProgramFolder(bin), device.path("prefix/share/talvoplayer"));
    QDir().mkpath(bin + "/Skins");
    EXPECT_EQ(ProgramFolder(bin), bin);
}

TEST(ProgramFolders, TheInstalledDataFolderIsNeverWrittenEvenWhenItCouldBe)
{
    TestDevice device;
    const QString data = device.path("xdg/talvoplayer");
    const QString installed = InstalledDataFolder();
    if (!QDir().mkpath(installed))
        GTEST_SKIP() << "cannot make " << installed.toStdString();
    EXPECT_EQ(ProgramWriteFolder(installed, data), data);
    QDir(installed).removeRecursively();
}

} // namespace
} // namespace talvo::test
