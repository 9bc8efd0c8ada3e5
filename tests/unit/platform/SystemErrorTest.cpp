// Errno values in the handheld platform's numbers: the table, and real
// failures of a delete with the reason the system gives.
#include "platform/SystemError.h"
#include "tests/support/TestDevice.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <utility>

namespace talvo::test {
namespace {

QString textOf(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

TEST(SystemError, ErrnoValuesBecomeThePlatformsNumbers)
{
    const std::pair<int, std::int32_t> table[] = {
        {0, 0},     {ENOENT, 2},  {ENOTDIR, 3},  {EACCES, 5},        {EPERM, 5},
        {EROFS, 5}, {EBUSY, 32},  {ETXTBSY, 32}, {EEXIST, 80},       {ENOSPC, 112},
        {EIO, 31},  {EISDIR, 31}, {EINVAL, 31},  {ENAMETOOLONG, 206}};
    for (const auto& [error, code] : table)
        EXPECT_EQ(ErrorCodeFromErrno(error), code) << textOf(error).toStdString();

    // The desktop, holding only the number, names it by its errno's text.
    EXPECT_EQ(SystemErrorTextForCode(ERROR_ACCESS_DENIED), textOf(EACCES));
    EXPECT_EQ(SystemErrorTextForCode(ERROR_SHARING_VIOLATION), textOf(EBUSY));
    EXPECT_EQ(SystemErrorTextForCode(ERROR_GEN_FAILURE), "general failure");
    EXPECT_TRUE(SystemErrorTextForCode(13).isEmpty()) << "13 is no number this mapping gives";
}

TEST(SystemError, FailedDeletesReportTheirReasonInPlatformNumbers)
{
    TestDevice device;
    const QString file = device.path("file.zq");
    QFile created(file);
    ASSERT_TRUE(created.open(QIODevice::WriteOnly));
    created.close();
    QDir().mkpath(device.path("folder"));

    const struct {
        QString path;
        std::int32_t code;
        int error;
    } failures[] = {
        {device.path("missing.zq"), ERROR_FILE_NOT_FOUND, ENOENT},
        {file + "/child.zq", ERROR_PATH_NOT_FOUND, ENOTDIR},
        {device.path(QString(300, QLatin1Char('n'))), ERROR_FILENAME_EXCED_RANGE, ENAMETOOLONG},
        {device.path("folder"), ERROR_GEN_FAILURE, EISDIR},
    };
    for (const auto& failure : failures) {
        const SystemError error = DeleteFileOnly(failure.path);
        EXPECT_EQ(error.code, failure.code) << failure.path.toStdString();
        EXPECT_EQ(error.text, textOf(failure.error));
    }
    EXPECT_TRUE(QFileInfo(device.path("folder")).isDir()) << "a folder is never deleted";

    const SystemError done = DeleteFileOnly(file);
    EXPECT_EQ(done.code, ERROR_SUCCESS);
    EXPECT_TRUE(done.text.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(file));
}

} // namespace
} // namespace talvo::test
