// Where the player writes its own files.  Tests usually run as root, for whom
// every folder is writable, so the folders that cannot take a file here are
// missing ones and plain files; a folder whose mode forbids writing is tried
// end to end in tests/integration/sync (SyncClientTest.cpp).
#include "platform/ProgramWriteFolder.h"
#include "tests/support/TestDevice.h"

#include <gtest/gtest.h>

namespace talvo::test {
namespace {

TEST(ProgramWriteFolder, BesideTheExecutableOnlyWhenAFileCanBeCreatedThere)
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

TEST(ProgramWriteFolder, DataFolderFollowsTheBaseDirectoryRules)
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

} // namespace
} // namespace talvo::test
