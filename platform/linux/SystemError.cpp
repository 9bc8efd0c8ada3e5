#include "platform/SystemError.h"

#include "platform/FileNames.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace talvo {
namespace {

struct ErrnoCode {
    int error;
    std::int32_t code;
};

// The first errno listed for a number is the one whose text describes it.
constexpr ErrnoCode kErrnoCodes[] = {
    {ENOENT, ERROR_FILE_NOT_FOUND},     {ENOTDIR, ERROR_PATH_NOT_FOUND},
    {EACCES, ERROR_ACCESS_DENIED},      {EPERM, ERROR_ACCESS_DENIED},
    {EROFS, ERROR_ACCESS_DENIED},       {EBUSY, ERROR_SHARING_VIOLATION},
    {ETXTBSY, ERROR_SHARING_VIOLATION}, {EEXIST, ERROR_FILE_EXISTS},
    {ENOSPC, ERROR_DISK_FULL},          {ENAMETOOLONG, ERROR_FILENAME_EXCED_RANGE},
};

QString errnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

} // namespace

std::int32_t ErrorCodeFromErrno(int error)
{
    if (error == 0)
        return ERROR_SUCCESS;
    for (const ErrnoCode& entry : kErrnoCodes) {
        if (entry.error == error)
            return entry.code;
    }
    return ERROR_GEN_FAILURE;
}

SystemError SystemErrorFromErrno(int error)
{
    if (error == 0)
        return {};
    return {ErrorCodeFromErrno(error), errnoText(error)};
}

QString SystemErrorTextForCode(std::int32_t code)
{
    if (code == ERROR_GEN_FAILURE)
        return QStringLiteral("general failure");
    for (const ErrnoCode& entry : kErrnoCodes) {
        if (entry.code == code)
            return errnoText(entry.error);
    }
    return QString();
}

SystemError DeleteFileOnly(const QString& path)
{
    // unlink, not remove(): remove() would also take an empty folder.
    if (::unlink(EncodeFileName(path).constData()) == 0)
        return {};
    return SystemErrorFromErrno(errno);
}

} // namespace talvo
