#pragma once
// Helpers shared by the registry store's tests: a store in a temporary folder
// and short forms of the calls the tests repeat.
#include "platform/Registry.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <string>

namespace talvo::test {

inline std::vector<std::uint8_t> DwordBytes(DWORD value)
{
    return {std::uint8_t(value), std::uint8_t(value >> 8), std::uint8_t(value >> 16),
            std::uint8_t(value >> 24)};
}

struct StoredValue {
    RegStatus status = ERROR_SUCCESS;
    DWORD type = REG_NONE;
    std::vector<std::uint8_t> data;
};

// Reads a whole value with the two-call size protocol every caller uses.
inline StoredValue ReadValue(Registry& registry, HKEY key, std::u16string_view name)
{
    StoredValue value;
    DWORD size = 0;
    value.status = registry.QueryValue(key, name, &value.type, nullptr, &size);
    if (value.status != ERROR_SUCCESS)
        return value;
    value.data.resize(size);
    value.status = registry.QueryValue(key, name, &value.type, value.data.data(), &size);
    value.data.resize(size);
    return value;
}

inline RegStatus WriteValue(Registry& registry, HKEY key, std::u16string_view name, DWORD type,
                            const std::vector<std::uint8_t>& data)
{
    return registry.SetValue(key, name, type, data.data(), DWORD(data.size()));
}

class TempRegistry {
public:
    TempRegistry() : path_(dir_.filePath(QStringLiteral("registry.db")).toStdString()) {}
    const std::string& path() const { return path_; }
    QString folder() const { return dir_.path(); }
    std::unique_ptr<Registry> Open() const
    {
        RegStatus status = -1;
        auto registry = OpenSqliteRegistry(path_, &status);
        EXPECT_EQ(status, ERROR_SUCCESS);
        return registry;
    }

private:
    QTemporaryDir dir_;
    std::string path_;
};

} // namespace talvo::test
