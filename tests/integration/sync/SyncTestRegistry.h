#pragma once
// Reading and writing the desktop-sync transport values of a test device.
#include "platform/Registry.h"
#include "sync/SyncRunner.h"

#include <QString>
#include <gtest/gtest.h>
#include <optional>
#include <vector>

namespace talvo::test {

struct StoredValue {
    DWORD type = REG_NONE;
    std::vector<std::uint8_t> bytes;
};

inline std::optional<StoredValue> ReadSyncValue(Registry& registry, std::u16string_view name)
{
    HKEY key = 0;
    if (registry.OpenKey(HKEY_LOCAL_MACHINE, SyncTransport::kKey, KEY_READ, &key) != ERROR_SUCCESS)
        return std::nullopt;
    StoredValue value;
    DWORD size = 0;
    RegStatus status = registry.QueryValue(key, name, &value.type, nullptr, &size);
    if (status == ERROR_SUCCESS) {
        value.bytes.resize(size);
        status = registry.QueryValue(key, name, &value.type, value.bytes.data(), &size);
    }
    registry.CloseKey(key);
    if (status != ERROR_SUCCESS)
        return std::nullopt;
    return value;
}

inline void WriteSyncValue(Registry& registry, std::u16string_view name, DWORD type,
                           const std::vector<std::uint8_t>& bytes)
{
    HKEY key = 0;
    ASSERT_EQ(registry.CreateKey(HKEY_LOCAL_MACHINE, SyncTransport::kKey, KEY_ALL_ACCESS, &key),
              ERROR_SUCCESS);
    ASSERT_EQ(registry.SetValue(key, name, type, bytes.data(), static_cast<DWORD>(bytes.size())),
              ERROR_SUCCESS);
    registry.CloseKey(key);
}

inline QString Utf16Text(const StoredValue& value)
{
    return QString::fromStdU16String(RegSzText(value.bytes.data(), static_cast<DWORD>(value.bytes.size())));
}

} // namespace talvo::test
