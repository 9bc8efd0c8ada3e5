// Transactions on the store: what another connection (another process) sees
// before and after the outermost end, nesting, and how other threads and
// other processes meet a transaction that is open.
#include "platform/RegistryTransaction.h"
#include "RegistryTestSupport.h"

#include <chrono>
#include <thread>

namespace talvo::test {
namespace {

constexpr std::u16string_view kScopeKey = u"Software\\Talvo\\ScopeTest";

HKEY CreateScopeKey(Registry& registry)
{
    HKEY key = 0;
    EXPECT_EQ(registry.CreateKey(HKEY_LOCAL_MACHINE, kScopeKey, KEY_ALL_ACCESS, &key), ERROR_SUCCESS);
    return key;
}

// The value as another process sees it: through its own connection and handle.
RegStatus ValueThrough(Registry& registry, std::u16string_view name,
                       std::vector<std::uint8_t>* data = nullptr)
{
    HKEY key = 0;
    RegStatus status = registry.OpenKey(HKEY_LOCAL_MACHINE, kScopeKey, KEY_READ, &key);
    if (status != ERROR_SUCCESS)
        return status;
    StoredValue value = ReadValue(registry, key, name);
    registry.CloseKey(key);
    if (data)
        *data = value.data;
    return value.status;
}

TEST(RegistryTransaction, OnlyTheOutermostCommitReachesTheStoreAndAnUncommittedScopeLeavesNothing)
{
    TempRegistry temp;
    auto registry = temp.Open();
    auto otherProcess = temp.Open();
    ASSERT_TRUE(registry && otherProcess);
    HKEY key = CreateScopeKey(*registry);
    {
        RegistryTransaction outer(*registry);
        ASSERT_EQ(outer.status(), ERROR_SUCCESS);
        ASSERT_EQ(WriteValue(*registry, key, u"outer", REG_DWORD, DwordBytes(1)), ERROR_SUCCESS);
        {
            RegistryTransaction inner(*registry);
            ASSERT_EQ(inner.status(), ERROR_SUCCESS);
            ASSERT_EQ(WriteValue(*registry, key, u"inner", REG_DWORD, DwordBytes(2)), ERROR_SUCCESS);
            ASSERT_EQ(inner.Commit(), ERROR_SUCCESS);
        }
        {
            RegistryTransaction dropped(*registry);
            ASSERT_EQ(WriteValue(*registry, key, u"dropped", REG_DWORD, DwordBytes(3)), ERROR_SUCCESS);
        }
        EXPECT_EQ(ValueThrough(*otherProcess, u"outer"), ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(ValueThrough(*otherProcess, u"inner"), ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(ValueThrough(*registry, u"inner"), ERROR_SUCCESS);
        EXPECT_EQ(ValueThrough(*registry, u"dropped"), ERROR_FILE_NOT_FOUND);
        ASSERT_EQ(outer.Commit(), ERROR_SUCCESS);
    }
    EXPECT_EQ(ValueThrough(*otherProcess, u"outer"), ERROR_SUCCESS);
    EXPECT_EQ(ValueThrough(*otherProcess, u"inner"), ERROR_SUCCESS);
    EXPECT_EQ(ValueThrough(*otherProcess, u"dropped"), ERROR_FILE_NOT_FOUND);

    {
        RegistryTransaction abandoned(*registry);
        ASSERT_EQ(registry->DeleteKey(HKEY_LOCAL_MACHINE, kScopeKey), ERROR_SUCCESS);
        EXPECT_EQ(ValueThrough(*registry, u"outer"), ERROR_FILE_NOT_FOUND);
    }
    EXPECT_EQ(ValueThrough(*otherProcess, u"outer"), ERROR_SUCCESS);
    EXPECT_EQ(ReadValue(*registry, key, u"inner").data, DwordBytes(2))
        << "the handle outlived the undone delete";
}

TEST(RegistryTransaction, AnotherThreadsWriteWaitsForTheTransactionAndOutlivesItsRollback)
{
    TempRegistry temp;
    auto registry = temp.Open();
    ASSERT_TRUE(registry);
    HKEY key = CreateScopeKey(*registry);
    RegStatus otherWrite = -1;
    RegStatus otherEnd = -1;
    std::thread other;
    {
        RegistryTransaction transaction(*registry);
        ASSERT_EQ(transaction.status(), ERROR_SUCCESS);
        ASSERT_EQ(WriteValue(*registry, key, u"undone", REG_DWORD, DwordBytes(1)), ERROR_SUCCESS);
        other = std::thread([&] {
            otherEnd = registry->EndTransaction(true);
            otherWrite = WriteValue(*registry, key, u"kept", REG_DWORD, DwordBytes(2));
        });
        // Gives the other thread time to reach the store while the transaction
        // is open; were it later, the outcome asserted below would be the same.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    other.join();
    EXPECT_EQ(otherEnd, ERROR_INVALID_PARAMETER) << "a thread ended a transaction it does not hold";
    EXPECT_EQ(otherWrite, ERROR_SUCCESS);
    EXPECT_EQ(ReadValue(*registry, key, u"kept").data, DwordBytes(2));
    EXPECT_EQ(ReadValue(*registry, key, u"undone").status, ERROR_FILE_NOT_FOUND);
}

// Read, then write what was read plus one, from two connections at once, as
// two processes would: every transaction gets through and no update is lost.
TEST(RegistryTransaction, ReadModifyWriteFromTwoConnectionsLosesNoUpdate)
{
    constexpr int kIncrements = 200;
    TempRegistry temp;
    auto first = temp.Open();
    auto second = temp.Open();
    ASSERT_TRUE(first && second);
    HKEY firstKey = CreateScopeKey(*first);
    ASSERT_EQ(WriteValue(*first, firstKey, u"counter", REG_DWORD, DwordBytes(0)), ERROR_SUCCESS);

    auto increment = [](Registry* registry) {
        HKEY key = CreateScopeKey(*registry);
        for (int i = 0; i < kIncrements; ++i) {
            RegistryTransaction transaction(*registry);
            ASSERT_EQ(transaction.status(), ERROR_SUCCESS);
            StoredValue value = ReadValue(*registry, key, u"counter");
            ASSERT_EQ(value.data.size(), 4u);
            DWORD counter =
                value.data[0] | (value.data[1] << 8) | (value.data[2] << 16) | (DWORD(value.data[3]) << 24);
            ASSERT_EQ(WriteValue(*registry, key, u"counter", REG_DWORD, DwordBytes(counter + 1)),
                      ERROR_SUCCESS);
            ASSERT_EQ(transaction.Commit(), ERROR_SUCCESS);
        }
        registry->CloseKey(key);
    };
    std::thread a(increment, first.get());
    std::thread b(increment, second.get());
    a.join();
    b.join();
    EXPECT_EQ(ReadValue(*first, firstKey, u"counter").data, DwordBytes(2 * kIncrements));
}

} // namespace
} // namespace talvo::test
