#include "FileAccess.h"

#include "zqx/zqxsdk.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zqx {
namespace {

int StatusFromErrno(int error)
{
    return (error == ENOENT || error == ENOTDIR) ? ZQX_ERR_NO_FILE : ZQX_ERR_IO;
}

std::string FolderOf(const std::string& path)
{
    const auto slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

} // namespace

ReadOnlyFile::~ReadOnlyFile()
{
    if (fd >= 0)
        ::close(fd);
}

int ReadOnlyFile::Open(const std::string& path)
{
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
    const int f = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (f < 0)
        return StatusFromErrno(errno);
    struct stat st {};
    if (::fstat(f, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(f);
        return ZQX_ERR_IO;
    }
    fd = f;
    size = static_cast<uint64_t>(st.st_size);
    return ZQX_OK;
}

int ReadOnlyFile::ReadAt(uint64_t offset, void* out, size_t count) const
{
    auto* p = static_cast<uint8_t*>(out);
    while (count > 0) {
        const ssize_t n = ::pread(fd, p, count, static_cast<off_t>(offset));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return ZQX_ERR_IO;
        }
        if (n == 0)
            return ZQX_ERR_DAMAGED;
        p += n;
        count -= static_cast<size_t>(n);
        offset += static_cast<uint64_t>(n);
    }
    return ZQX_OK;
}

AtomicFileWriter::~AtomicFileWriter()
{
    Abort();
}

int AtomicFileWriter::Begin(const std::string& path)
{
    Abort();
    target = path;
    temporary = path + ".tmp";
    fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    return fd < 0 ? StatusFromErrno(errno) : ZQX_OK;
}

int AtomicFileWriter::Write(const void* data, size_t count)
{
    if (fd < 0)
        return ZQX_ERR_STATE;
    const auto* p = static_cast<const uint8_t*>(data);
    while (count > 0) {
        const ssize_t n = ::write(fd, p, count);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return ZQX_ERR_IO;
        }
        p += n;
        count -= static_cast<size_t>(n);
    }
    return ZQX_OK;
}

int AtomicFileWriter::Commit()
{
    if (fd < 0)
        return ZQX_ERR_STATE;
    const bool synced = ::fsync(fd) == 0;
    const bool closed = ::close(fd) == 0;
    fd = -1;
    if (!synced || !closed || ::rename(temporary.c_str(), target.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return ZQX_ERR_IO;
    }
    // The rename is durable only once the folder entry is.
    const int dir = ::open(FolderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    temporary.clear();
    return ZQX_OK;
}

void AtomicFileWriter::Abort()
{
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
    if (!temporary.empty()) {
        ::unlink(temporary.c_str());
        temporary.clear();
    }
}

} // namespace zqx
