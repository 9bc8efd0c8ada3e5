#include "base/CommandLine.h"

#include <gtest/gtest.h>

namespace talvo {
namespace {

TEST(SyncSwitchSearch, FindsEachCommandInEitherForm)
{
    EXPECT_EQ(FindSyncSwitch("-GetStorageInfo"), SyncCommand::GetStorageInfo);
    EXPECT_EQ(FindSyncSwitch("/GetAPVersion"), SyncCommand::GetAPVersion);
    EXPECT_EQ(FindSyncSwitch("-EnumFiles"), SyncCommand::EnumFiles);
    EXPECT_EQ(FindSyncSwitch("/GetDeviceManufacturer"), SyncCommand::GetDeviceManufacturer);
    EXPECT_EQ(FindSyncSwitch("-DeleteProgram"), SyncCommand::DeleteProgram);
    EXPECT_EQ(FindSyncSwitch("/AddProgram"), SyncCommand::AddProgram);
    EXPECT_EQ(FindSyncSwitch("-File:\"/home/a.zq\""), SyncCommand::None);
}

TEST(SyncSwitchSearch, MatchesInsideWordsCaseSensitivelyAndFirstInOrderWins)
{
    EXPECT_EQ(FindSyncSwitch("-AddProgramX"), SyncCommand::AddProgram);
    EXPECT_EQ(FindSyncSwitch("x-EnumFilesy"), SyncCommand::EnumFiles);
    EXPECT_EQ(FindSyncSwitch("-addprogram"), SyncCommand::None);
    EXPECT_EQ(FindSyncSwitch("AddProgram"), SyncCommand::None);
    EXPECT_EQ(FindSyncSwitch("-DeleteProgram -GetStorageInfo"), SyncCommand::GetStorageInfo);
    EXPECT_EQ(FindSyncSwitch("-AddProgram -EnumFiles"), SyncCommand::EnumFiles);
}

TEST(FileArgument, TakesThePathFromTheArgumentThatHoldsTheSwitch)
{
    auto all = [](const QString&) {
        return true;
    };
    EXPECT_EQ(ParseFileArgument({"-File:/My Documents/book.zq"}, all), "/My Documents/book.zq");
    // Quotes the shell did not remove: the opening one is skipped, the path ends before the next.
    EXPECT_EQ(ParseFileArgument({"-File:\"/a b.zq\" tail"}, all), "/a b.zq");
    // No closing quote: the path runs to the end of the argument.
    EXPECT_EQ(ParseFileArgument({"-File:\"/a b.zq"}, all), "/a b.zq");
    EXPECT_EQ(ParseFileArgument({"-x", "-File:/first.zq", "-File:/second.zq"}, all), "/first.zq");
}

TEST(FileArgument, IgnoresTheSlashFormAndMissingFiles)
{
    auto none = [](const QString&) {
        return false;
    };
    auto all = [](const QString&) {
        return true;
    };
    EXPECT_EQ(ParseFileArgument({"/File:/book.zq"}, all), "");
    EXPECT_EQ(ParseFileArgument({"-File:/gone.zq"}, none), "");
    EXPECT_EQ(ParseFileArgument({"-File:/does/not/exist.zq"}), "");
    EXPECT_EQ(ParseFileArgument({}), "");
}

} // namespace
} // namespace talvo
