#include "settings/SettingsStore.h"

#include "tests/support/TestDevice.h"

#include <gtest/gtest.h>

namespace talvo {
namespace {

class SettingsStoreTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        registry_ = OpenSqliteRegistry(device_.registryPath().toStdString());
        ASSERT_NE(registry_, nullptr);
        store_ = std::make_unique<SettingsStore>(*registry_);
    }

    // Writes a value of any type behind the store's back, as a desktop tool might.
    void Put(std::u16string_view name, DWORD type, std::vector<std::uint8_t> bytes)
    {
        HKEY key = 0;
        ASSERT_EQ(registry_->CreateKey(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Talvo", KEY_ALL_ACCESS, &key),
                  ERROR_SUCCESS);
        ASSERT_EQ(registry_->SetValue(key, name, type, bytes.data(), static_cast<DWORD>(bytes.size())),
                  ERROR_SUCCESS);
        registry_->CloseKey(key);
    }

    // The raw value as stored: its type and bytes, or type REG_NONE when absent.
    std::pair<DWORD, std::vector<std::uint8_t>> Raw(std::u16string_view name)
    {
        HKEY key = 0;
        if (registry_->OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Talvo", KEY_READ, &key) != ERROR_SUCCESS)
            return {REG_NONE, {}};
        std::vector<std::uint8_t> data(1024);
        DWORD type = REG_NONE;
        DWORD size = static_cast<DWORD>(data.size());
        if (registry_->QueryValue(key, name, &type, data.data(), &size) != ERROR_SUCCESS)
            type = REG_NONE, size = 0;
        registry_->CloseKey(key);
        data.resize(size);
        return {type, data};
    }

    test::TestDevice device_;
    std::unique_ptr<Registry> registry_;
    std::unique_ptr<SettingsStore> store_;
};

TEST_F(SettingsStoreTest, NoKeyGivesTheDefaults)
{
    EXPECT_EQ(store_->GetVolume(), 32767u);
    EXPECT_EQ(store_->GetVolumePercent(), 49u);
    EXPECT_EQ(store_->GetJumpBack(), 30u);
    EXPECT_EQ(store_->GetPowerOffTime(), 30u);
    EXPECT_EQ(store_->GetFirstTimeRun(), 0u);
    EXPECT_TRUE(store_->GetLastProgram().isEmpty());
    // Reading never creates the key.
    HKEY key = 0;
    EXPECT_EQ(registry_->OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Talvo", KEY_READ, &key),
              ERROR_FILE_NOT_FOUND);
}

TEST_F(SettingsStoreTest, VolumePercentTruncatesBothWays)
{
    ASSERT_EQ(store_->SetVolumePercent(100), ERROR_SUCCESS);
    EXPECT_EQ(store_->GetVolume(), 65535u);
    EXPECT_EQ(store_->GetVolumePercent(), 100u);

    store_->SetVolumePercent(33);
    EXPECT_EQ(store_->GetVolume(), 21626u);
    EXPECT_EQ(store_->GetVolumePercent(), 32u);

    store_->SetVolumePercent(50);
    EXPECT_EQ(store_->GetVolume(), 32767u);
    store_->SetVolumePercent(0);
    EXPECT_EQ(store_->GetVolumePercent(), 0u);
}

TEST_F(SettingsStoreTest, SettersWriteFourByteDwords)
{
    store_->SetPowerOffTime(kPowerOffNever);
    store_->SetJumpBack(50);
    store_->SetFirstTimeRun(2);
    EXPECT_EQ(Raw(u"Power Off Time"),
              std::make_pair(REG_DWORD, std::vector<std::uint8_t>{0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(Raw(u"Jump Back"), std::make_pair(REG_DWORD, std::vector<std::uint8_t>{50, 0, 0, 0}));
    EXPECT_EQ(store_->GetPowerOffTime(), kPowerOffNever);
    EXPECT_EQ(store_->GetJumpBack(), 50u);
    EXPECT_EQ(store_->GetFirstTimeRun(), 2u);
}

TEST_F(SettingsStoreTest, ValuesThatAreNotFourByteNumbersGiveTheDefault)
{
    Put(u"Volume", REG_SZ, RegSzBytes(u"65535"));
    Put(u"Power Off Time", REG_DWORD, {60, 0});
    Put(u"First Time Run", REG_BINARY, {1, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(store_->GetVolume(), 32767u);
    EXPECT_EQ(store_->GetPowerOffTime(), 30u);
    EXPECT_EQ(store_->GetFirstTimeRun(), 0u);

    // Four bytes are the number whatever the tag says, text included.
    Put(u"First Time Run", REG_BINARY, {1, 0, 0, 0});
    EXPECT_EQ(store_->GetFirstTimeRun(), 1u);
    Put(u"Jump Back", REG_SZ, RegSzBytes(u"5")); // '5', 0, 0, 0
    EXPECT_EQ(store_->GetJumpBack(), 0x35u);
    // An out-of-list value is passed on as stored; the dialog deals with it.
    Put(u"Power Off Time", REG_DWORD, {45, 0, 0, 0});
    EXPECT_EQ(store_->GetPowerOffTime(), 45u);
}

TEST_F(SettingsStoreTest, LastProgramIsAFullPathOfUpTo259Characters)
{
    QString path = QStringLiteral("/home/u/Music/Autor/Titel/Hörbuch.zq");
    ASSERT_EQ(store_->SetLastProgram(path), ERROR_SUCCESS);
    EXPECT_EQ(Raw(u"Last Program").first, REG_SZ);
    EXPECT_EQ(store_->GetLastProgram(), path);

    QString longest = QLatin1Char('/') + QString(258, QLatin1Char('a'));
    store_->SetLastProgram(longest);
    EXPECT_EQ(store_->GetLastProgram(), longest);
    store_->SetLastProgram(longest + QLatin1Char('b'));
    EXPECT_TRUE(store_->GetLastProgram().isEmpty());

    Put(u"Last Program", REG_DWORD, {1, 0, 0, 0});
    EXPECT_TRUE(store_->GetLastProgram().isEmpty());
}

TEST_F(SettingsStoreTest, EveryCallReadsTheRegistryAfresh)
{
    store_->SetJumpBack(20);
    // A second process (or talvoreg) changes the value: the next read sees it.
    auto other = OpenSqliteRegistry(device_.registryPath().toStdString());
    SettingsStore(*other).SetJumpBack(60);
    EXPECT_EQ(store_->GetJumpBack(), 60u);
}

} // namespace
} // namespace talvo
