// The desktop-sync runner in-process, with handlers of the test's own: where
// answers of each size end up, what a failing or empty answer leaves behind,
// and the boxes when the registry refuses.
#include "sync/SyncRunner.h"
#include "tests/integration/sync/SyncTestRegistry.h"
#include "tests/support/TestDevice.h"

#include <QFile>
#include <gtest/gtest.h>

namespace talvo::test {
namespace {

// The real store with one operation made to fail, as a full or damaged store would.
class RefusingRegistry : public Registry {
public:
    explicit RefusingRegistry(Registry& inner) : inner_(inner) {}
    RegStatus createKeyStatus = ERROR_SUCCESS;
    RegStatus setValueStatus = ERROR_SUCCESS;

    RegStatus CreateKey(HKEY parent, std::u16string_view subKey, REGSAM access, HKEY* result,
                        DWORD* disposition) override
    {
        if (createKeyStatus != ERROR_SUCCESS)
            return createKeyStatus;
        return inner_.CreateKey(parent, subKey, access, result, disposition);
    }
    RegStatus OpenKey(HKEY parent, std::u16string_view subKey, REGSAM access, HKEY* result) override
    {
        return inner_.OpenKey(parent, subKey, access, result);
    }
    RegStatus CloseKey(HKEY key) override { return inner_.CloseKey(key); }
    RegStatus QueryValue(HKEY key, std::u16string_view name, DWORD* type, std::uint8_t* data,
                         DWORD* size) override
    {
        return inner_.QueryValue(key, name, type, data, size);
    }
    RegStatus SetValue(HKEY key, std::u16string_view name, DWORD type, const std::uint8_t* data,
                       DWORD size) override
    {
        if (setValueStatus != ERROR_SUCCESS)
            return setValueStatus;
        return inner_.SetValue(key, name, type, data, size);
    }
    RegStatus DeleteValue(HKEY key, std::u16string_view name) override
    {
        return inner_.DeleteValue(key, name);
    }
    RegStatus DeleteKey(HKEY key, std::u16string_view subKey) override
    {
        return inner_.DeleteKey(key, subKey);
    }
    RegStatus EnumKey(HKEY key, DWORD index, std::u16string* name) override
    {
        return inner_.EnumKey(key, index, name);
    }
    RegStatus EnumValue(HKEY key, DWORD index, std::u16string* name, DWORD* type,
                        std::vector<std::uint8_t>* data) override
    {
        return inner_.EnumValue(key, index, name, type, data);
    }
    RegStatus FlushKey(HKEY key) override { return inner_.FlushKey(key); }

private:
    Registry& inner_;
};

class SyncRunner : public ::testing::Test {
protected:
    void SetUp() override
    {
        registry_ = OpenSqliteRegistry(device_.registryPath().toStdString());
        ASSERT_TRUE(registry_);
        // A program folder of its own, as a build tree is: skins beside the executable.
        QDir().mkpath(device_.path(QStringLiteral("Skins")));
    }

    QString executable() const { return device_.path(QStringLiteral("talvoplayer")); }
    QString dataFile() const { return device_.path(QStringLiteral("_Data.tmp")); }

    static SyncHandler answering(std::size_t size, HRESULT result = S_OK)
    {
        return [size, result](const auto&) {
            SyncAnswer answer{result, std::vector<std::uint8_t>(size)};
            for (std::size_t i = 0; i < size; ++i)
                answer.output[i] = static_cast<std::uint8_t>(i * 7 + 3);
            return answer;
        };
    }

    std::vector<std::uint8_t> dataFileBytes() const
    {
        QFile file(dataFile());
        if (!file.open(QIODevice::ReadOnly))
            return {};
        const QByteArray bytes = file.readAll();
        return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
    }

    TestDevice device_;
    std::unique_ptr<Registry> registry_;
};

TEST_F(SyncRunner, AnswerUpToTheValueLimitTravelsInTheValueAndOneMoreByteInTheFile)
{
    const std::vector<std::uint8_t> input = RegSzBytes(u"/cards/Card1/");
    WriteSyncValue(*registry_, SyncTransport::kInputValue, REG_SZ, input);
    std::optional<std::vector<std::uint8_t>> seen;
    SyncHandler handler = answering(SyncTransport::kMaxValueBytes);
    EXPECT_EQ(RunSyncCommand(*registry_, executable(),
                             [&](const auto& in) {
                                 seen = in;
                                 return handler(in);
                             }),
              S_OK);
    EXPECT_EQ(seen, input);
    std::optional<StoredValue> data = ReadSyncValue(*registry_, SyncTransport::kOutputValue);
    ASSERT_TRUE(data);
    EXPECT_EQ(data->type, REG_BINARY);
    EXPECT_EQ(data->bytes, handler({}).output);
    // The small answer is in the file as well, and the input is left for the desktop to remove.
    EXPECT_EQ(dataFileBytes(), handler({}).output);
    EXPECT_TRUE(ReadSyncValue(*registry_, SyncTransport::kInputValue));

    const SyncHandler large = answering(SyncTransport::kMaxValueBytes + 1);
    EXPECT_EQ(RunSyncCommand(*registry_, executable(), large), S_OK);
    data = ReadSyncValue(*registry_, SyncTransport::kOutputValue);
    ASSERT_TRUE(data);
    EXPECT_EQ(data->type, REG_SZ);
    EXPECT_EQ(Utf16Text(*data), dataFile());
    EXPECT_EQ(dataFileBytes(), large({}).output);
    EXPECT_TRUE(device_.messages().isEmpty());
}

TEST_F(SyncRunner, FailedOrEmptyAnswerRemovesTheInputAndLeavesNoAnswerOfItsOwn)
{
    const std::vector<std::uint8_t> earlier{1, 2, 3};
    for (const SyncHandler& handler : {answering(10, E_INVALIDARG), answering(0)}) {
        WriteSyncValue(*registry_, SyncTransport::kOutputValue, REG_BINARY, earlier);
        WriteSyncValue(*registry_, SyncTransport::kInputValue, REG_BINARY, earlier);
        QFile stale(dataFile());
        ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
        stale.write("stale");
        stale.close();
        stale.setPermissions(QFile::ReadOwner);

        const HRESULT expected = handler({}).result;
        EXPECT_EQ(RunSyncCommand(*registry_, executable(), handler), expected);
        EXPECT_FALSE(ReadSyncValue(*registry_, SyncTransport::kInputValue));
        EXPECT_FALSE(QFile::exists(dataFile())) << "a stale answer survived";
        // An earlier run's answer is not the runner's to remove.
        ASSERT_TRUE(ReadSyncValue(*registry_, SyncTransport::kOutputValue));
        EXPECT_EQ(ReadSyncValue(*registry_, SyncTransport::kOutputValue)->bytes, earlier);
    }
}

TEST_F(SyncRunner, RefusingRegistryIsReportedInEachOfItsWordings)
{
    RefusingRegistry refusing(*registry_);
    refusing.createKeyStatus = ERROR_ACCESS_DENIED;
    bool called = false;
    EXPECT_EQ(RunSyncCommand(refusing, executable(),
                             [&](const auto&) {
                                 called = true;
                                 return SyncAnswer{};
                             }),
              E_FAIL);
    EXPECT_FALSE(called);

    refusing.createKeyStatus = ERROR_SUCCESS;
    refusing.setValueStatus = ERROR_ACCESS_DENIED;
    EXPECT_EQ(RunSyncCommand(refusing, executable(), answering(4000)), E_FAIL);
    EXPECT_EQ(RunSyncCommand(refusing, executable(), answering(40)), E_FAIL);
    refusing.setValueStatus = 9999; // a code the system has no text for
    EXPECT_EQ(RunSyncCommand(refusing, executable(), answering(4000)), E_FAIL);
    EXPECT_EQ(RunSyncCommand(refusing, executable(), answering(40)), E_FAIL);

    EXPECT_EQ(device_.messages(),
              QStringList({"TalvoPlayer\tRegCreateKeyEx failed. Error 5\t0x50010",
                           "TalvoPlayer\tRegSetValueEx failed. Error 5. Access is denied..\t0x50010",
                           "TalvoPlayer\tRegSetValueEx failed. Error Access is denied..\t0x50010",
                           "TalvoPlayer\tRegSetValueEx failed. Error 270f.\t0x50010",
                           "TalvoPlayer\tRegSetValueEx failed. Error 270f.\t0x50010"}));
}

TEST_F(SyncRunner, DataFileThatCannotBeCreatedFailsAfterItsRetries)
{
    // An executable in a folder that is gone, and a data folder below a plain
    // file: the file can be created in neither.
    const QString missing = device_.path(QStringLiteral("gone/talvoplayer"));
    QFile blocker(device_.path(QStringLiteral("blocker")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    device_.set("XDG_DATA_HOME", blocker.fileName());
    WriteSyncValue(*registry_, SyncTransport::kInputValue, REG_BINARY, {7});
    EXPECT_EQ(RunSyncCommand(*registry_, missing, answering(SyncTransport::kMaxValueBytes + 1)), E_FAIL);
    EXPECT_FALSE(ReadSyncValue(*registry_, SyncTransport::kOutputValue));
    EXPECT_TRUE(ReadSyncValue(*registry_, SyncTransport::kInputValue));
    const QStringList boxes = device_.messages();
    ASSERT_EQ(boxes.size(), 1);
    EXPECT_TRUE(boxes[0].startsWith("TalvoPlayer Error\tFailed to create data file " + blocker.fileName() +
                                    "/talvoplayer/_Data.tmp. "))
        << boxes[0].toStdString();
    EXPECT_TRUE(boxes[0].endsWith("\t0x50010"));
}

} // namespace
} // namespace talvo::test
