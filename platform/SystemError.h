#pragma once
// System errors in the numbers of the handheld platform the player was
// designed for.  The desktop reads them in 0x8007xxxx results and the boxes
// show them, so an errno value is never passed on as it is: EACCES (13) would
// read as "the data is invalid" there.  The text shown beside a number is the
// Linux system text of the errno itself.
//
// This is the one place where errno values become numbers; the registry
// answers in the same numbering (platform/Registry.h holds the ones it shares).
#include "platform/Registry.h"

#include <QString>
#include <cstdint>

namespace talvo {

inline constexpr std::int32_t ERROR_PATH_NOT_FOUND = 3;
// Every errno without a number of its own.
inline constexpr std::int32_t ERROR_GEN_FAILURE = 31;
inline constexpr std::int32_t ERROR_SHARING_VIOLATION = 32;
inline constexpr std::int32_t ERROR_FILE_EXISTS = 80;
inline constexpr std::int32_t ERROR_FILENAME_EXCED_RANGE = 206;

struct SystemError {
    // The platform's number; ERROR_SUCCESS when the call succeeded.
    std::int32_t code = ERROR_SUCCESS;
    // The system's text for the errno; empty on success.
    QString text;
};

// The platform's number for an errno value (0 stays 0).
std::int32_t ErrorCodeFromErrno(int error);
SystemError SystemErrorFromErrno(int error);

// A text for a number whose errno is gone (the desktop side only has the
// number): the system text of the first errno that becomes it, "general
// failure" for ERROR_GEN_FAILURE, empty for a number this mapping never gives.
QString SystemErrorTextForCode(std::int32_t code);

// Deletes one file and tells how it went.  A folder is refused (EISDIR), never
// removed, even when empty; a symbolic link is removed, not its target.
SystemError DeleteFileOnly(const QString& path);

} // namespace talvo
