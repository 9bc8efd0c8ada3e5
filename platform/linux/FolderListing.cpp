#include "platform/FolderListing.h"

#include "platform/FileNames.h"

#include <dirent.h>

namespace talvo {

QStringList ListFolderNames(const QString& folder)
{
    QStringList names;
    DIR* dir = opendir(EncodeFileName(folder).constData());
    if (dir == nullptr)
        return names;
    while (const dirent* entry = readdir(dir)) {
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
            continue;
        names.append(DecodeFileName(QByteArrayView(name)));
    }
    closedir(dir);
    return names;
}

} // namespace talvo
