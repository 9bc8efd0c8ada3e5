#pragma once
#include "platform/Registry.h"

#include <QString>

namespace talvo {

// Writes the ".zq" association under HKEY_CLASSES_ROOT: the extension's type,
// the type's display name, its icon and its open command naming this
// executable.  ".zqx" is played but deliberately not associated.  True when
// every key could be created; stops at the first that could not.
bool RegisterFileAssociation(Registry& registry, const QString& executablePath, const QString& typeName);

} // namespace talvo
