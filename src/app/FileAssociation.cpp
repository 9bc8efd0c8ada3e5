#include "app/FileAssociation.h"

namespace talvo {
namespace {

bool writeDefaultValue(Registry& registry, std::u16string_view key, const QString& text)
{
    HKEY handle = 0;
    if (registry.CreateKey(HKEY_CLASSES_ROOT, key, KEY_ALL_ACCESS, &handle) != ERROR_SUCCESS)
        return false;
    std::vector<std::uint8_t> bytes = RegSzBytes(text.toStdU16String());
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
