#include "app/FileAssociation.h"

namespace talvo {
namespace {

// Whether the key's default value already holds exactly these bytes.
bool holdsDefaultValue(Registry& registry, std::u16string_view key, const std::vector<std::uint8_t>& bytes)
{
    HKEY handle = 0;
    if (registry.OpenKey(HKEY_CLASSES_ROOT, key, KEY_READ, &handle) != ERROR_SUCCESS)
        return false;
    std::vector<std::uint8_t> stored(bytes.size() + 2);
    DWORD type = REG_NONE;
    auto size = static_cast<DWORD>(stored.size());
    const RegStatus status = registry.QueryValue(handle, u"", &type, stored.data(), &size);
    registry.CloseKey(handle);
    stored.resize(size);
    return status == ERROR_SUCCESS && type == REG_SZ && stored == bytes;
}

// Every start registers the association; a write only when something differs
// keeps a start from committing (and syncing) the store for nothing.
bool writeDefaultValue(Registry& registry, std::u16string_view key, const QString& text)
{
    std::vector<std::uint8_t> bytes = RegSzBytes(text.toStdU16String());
    if (holdsDefaultValue(registry, key, bytes))
        return true;
    HKEY handle = 0;
    if (registry.CreateKey(HKEY_CLASSES_ROOT, key, KEY_ALL_ACCESS, &handle) != ERROR_SUCCESS)
        return false;
    registry.SetValue(handle, u"", REG_SZ, bytes.data(), static_cast<DWORD>(bytes.size()));
    registry.CloseKey(handle);
    return true;
}

} // namespace

bool RegisterFileAssociation(Registry& registry, const QString& executablePath, const QString& typeName)
{
    return writeDefaultValue(registry, u".zq", QStringLiteral("TalvoPlayer")) &&
           writeDefaultValue(registry, u"TalvoPlayer", typeName) &&
           writeDefaultValue(registry, u"TalvoPlayer\\DefaultIcon",
                             QStringLiteral("%1,0").arg(executablePath)) &&
           writeDefaultValue(registry, u"TalvoPlayer\\shell\\open\\command",
                             QStringLiteral("\"%1\" -File:\"%2\"").arg(executablePath, QStringLiteral("%1")));
}

} // namespace talvo
