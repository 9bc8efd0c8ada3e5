#include "platform/StorageCards.h"
#include "platform/linux/MountInfo.h"
#include "tests/support/TestDevice.h"

#include <gtest/gtest.h>
#include <mutex>

namespace talvo::test {
namespace {

TEST(StorageCardsTest, RemovableMountsAreTheFoldersDirectlyBelowTheUsersMediaFolders)
{
    const QByteArray table = "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
                             "40 22 8:17 / /media/alice/USB\\040STICK rw - vfat /dev/sdb1 rw\n"
                             "41 22 8:33 / /run/media/alice/SD rw - exfat /dev/sdc1 rw\n"
                             "42 22 8:49 / /media/bob/THEIRS rw - vfat /dev/sdd1 rw\n"
                             "43 22 0:50 / /media/alice rw - tmpfs tmpfs rw\n"
                             "44 40 0:51 / /media/alice/USB\\040STICK/inner rw - tmpfs tmpfs rw\n"
                             "45 22 8:18 / /media/alice/USB\\040STICK rw - vfat /dev/sdb1 rw\n"
                             "truncated line\n";
    const std::vector<StorageCard> cards = RemovableMounts(table, QStringLiteral("alice"));
    EXPECT_EQ(cards, (std::vector<StorageCard>{
                         {QStringLiteral("USB STICK"), QStringLiteral("/media/alice/USB STICK")},
                         {QStringLiteral("SD"), QStringLiteral("/run/media/alice/SD")}}));
}

TEST(StorageCardsTest, ListedCardsAreReadAtEachLookAndChangesAreReported)
{
    TestDevice device;
    QDir(device.path()).mkpath(QStringLiteral("a/Storage Card"));
    const QString a = device.path(QStringLiteral("a/Storage Card"));
    const QString b = device.path(QStringLiteral("b/SD"));
    device.set(kStorageCardsVariable, a);
    std::unique_ptr<StorageCards> cards = CreateStorageCards();
    ASSERT_EQ(cards->Enumerate(), (std::vector<StorageCard>{{QStringLiteral("Storage Card"), a}}));

    std::mutex lock;
    std::vector<std::pair<StorageChange, QString>> seen;
    StorageChangeWatcher watcher(*cards, [&](StorageChange change, const StorageCard& card) {
        std::lock_guard<std::mutex> guard(lock);
        seen.emplace_back(change, card.name);
    });
    watcher.Recheck();
    EXPECT_TRUE(seen.empty());

    device.set(kStorageCardsVariable, b + QStringLiteral(":") + a);
    watcher.Recheck();
    device.set(kStorageCardsVariable, QString());
    watcher.Recheck();
    std::lock_guard<std::mutex> guard(lock);
    EXPECT_EQ(seen, (std::vector<std::pair<StorageChange, QString>>{
                        {StorageChange::MediaInserted, QStringLiteral("SD")},
                        {StorageChange::MediaRemoved, QStringLiteral("SD")},
                        {StorageChange::MediaRemoved, QStringLiteral("Storage Card")}}));
}

TEST(StorageCardsTest, SpaceOfAFolderAndOfNothing)
{
    TestDevice device;
    StorageSpace space;
    ASSERT_TRUE(GetStorageSpace(device.path(), &space));
    EXPECT_GT(space.totalBytes, 0u);
    EXPECT_LE(space.availableBytes, space.freeBytes);
    EXPECT_LE(space.freeBytes, space.totalBytes);
    EXPECT_FALSE(GetStorageSpace(device.path(QStringLiteral("missing")), &space));
}

} // namespace
} // namespace talvo::test
