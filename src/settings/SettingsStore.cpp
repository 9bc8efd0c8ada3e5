#include "settings/SettingsStore.h"

#include <array>

namespace talvo {
namespace {

// 100 / 65535 and 65535 / 100, written as the player has always computed them.
constexpr double kPercentPerLevel = 0.0015259021896696422;
constexpr double kLevelPerPercent = 655.35;

} // namespace

DWORD SettingsStore::PercentFromLevel(DWORD level)
{
    return static_cast<DWORD>(static_cast<double>(level) * kPercentPerLevel);
}

DWORD SettingsStore::LevelFromPercent(DWORD percent)
{
    return static_cast<DWORD>(static_cast<double>(percent) * kLevelPerPercent);
}

DWORD SettingsStore::GetVolumePercent() const
{
    return PercentFromLevel(GetVolume());
}

RegStatus SettingsStore::SetVolumePercent(DWORD percent)
{
    return SetVolume(LevelFromPercent(percent));
}

DWORD SettingsStore::GetDword(const SettingDef& setting) const
{
    DWORD result = setting.defaultValue;
    HKEY key = 0;
    if (registry_.OpenKey(HKEY_LOCAL_MACHINE, kSettingsKey, KEY_READ, &key) != ERROR_SUCCESS)
        return result;
    std::array<std::uint8_t, 4> data{};
    DWORD size = static_cast<DWORD>(data.size());
    RegStatus status = registry_.QueryValue(key, setting.name, nullptr, data.data(), &size);
    registry_.CloseKey(key);
    // Any four bytes are the number, whatever type they were stored with.
    if (status == ERROR_SUCCESS && size == data.size())
        result = DWORD(data[0]) | DWORD(data[1]) << 8 | DWORD(data[2]) << 16 | DWORD(data[3]) << 24;
    return result;
}

RegStatus SettingsStore::SetDword(const SettingDef& setting, DWORD value)
{
    HKEY key = 0;
    RegStatus status = registry_.CreateKey(HKEY_LOCAL_MACHINE, kSettingsKey, KEY_ALL_ACCESS, &key);
    if (status != ERROR_SUCCESS)
        return status;
    const std::array<std::uint8_t, 4> data{std::uint8_t(value), std::uint8_t(value >> 8),
                                           std::uint8_t(value >> 16), std::uint8_t(value >> 24)};
    status = registry_.SetValue(key, setting.name, REG_DWORD, data.data(), static_cast<DWORD>(data.size()));
    registry_.CloseKey(key);
    return status;
}

QString SettingsStore::GetLastProgram() const
{
    HKEY key = 0;
    if (registry_.OpenKey(HKEY_LOCAL_MACHINE, kSettingsKey, KEY_READ, &key) != ERROR_SUCCESS)
        return {};
    std::array<std::uint8_t, kLastProgramMaxChars * 2> data{};
    DWORD type = REG_NONE;
    DWORD size = static_cast<DWORD>(data.size());
    RegStatus status = registry_.QueryValue(key, Setting::LastProgram.name, &type, data.data(), &size);
    registry_.CloseKey(key);
    if (status != ERROR_SUCCESS || type != REG_SZ)
        return {};
    return QString::fromStdU16String(RegSzText(data.data(), size));
}

RegStatus SettingsStore::SetLastProgram(const QString& path)
{
    HKEY key = 0;
    RegStatus status = registry_.CreateKey(HKEY_LOCAL_MACHINE, kSettingsKey, KEY_ALL_ACCESS, &key);
    if (status != ERROR_SUCCESS)
        return status;
    std::vector<std::uint8_t> bytes = RegSzBytes(path.toStdU16String());
    status = registry_.SetValue(key, Setting::LastProgram.name, REG_SZ, bytes.data(),
                                static_cast<DWORD>(bytes.size()));
    registry_.CloseKey(key);
    return status;
}

} // namespace talvo
