#pragma once
// Reading the kernel's mount table (/proc/self/mountinfo) for the volumes a
// desktop mounts for removable media.
#include "platform/StorageCards.h"

#include <QByteArray>
#include <QString>
#include <vector>

namespace talvo {

// The mounts directly below /media/<user>/ or /run/media/<user>/, in the
// table's order, each mount point once (the first mount of it wins).
std::vector<StorageCard> RemovableMounts(const QByteArray& mountInfo, const QString& user);

} // namespace talvo
