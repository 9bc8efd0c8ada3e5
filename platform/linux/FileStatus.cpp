#include "platform/FileNames.h"

#include <sys/stat.h>

namespace talvo {

PathStatus StatusOfPath(const QString& path)
{
    struct stat info {};
    if (path.isEmpty() || ::stat(EncodeFileName(path).constData(), &info) != 0)
        return {};
    return {true, S_ISDIR(info.st_mode), static_cast<std::uint64_t>(info.st_size)};
}

} // namespace talvo
