#include "FileAccess.h"

#include "zqx/zqxsdk.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
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

int WriteAll(int fd, const void* data, size_t count)
{
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

// Exactly count bytes at offset; ZQX_ERR_DAMAGED when the file ends first.
int ReadAllAt(int fd, uint64_t offset, void* out, size_t count)
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

// A file without a name in folder; where O_TMPFILE is not supported, a named
// one that is unlinked at once.
int OpenNamelessFile(const std::string& folder)
{
    const int fd = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL))
        return fd;
    std::string name = folder + "/.zqx-spool-XXXXXX";
    const int named = ::mkostemp(name.data(), O_CLOEXEC);
    if (named >= 0)
        ::unlink(name.c_str());
    return named;
}

// Spooled bytes go to the file in pieces of this size, and come back in them.
constexpr size_t kSpoolPieceBytes = 256 * 1024;

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
    return ReadAllAt(fd, offset, out, count);
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
    return WriteAll(fd, data, count);
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

SpoolFile::~SpoolFile()
{
    Close();
}

int SpoolFile::Open(const std::string& besidePath)
{
    Close();
    fd = OpenNamelessFile(FolderOf(besidePath));
    if (fd < 0)
        return StatusFromErrno(errno);
    pending.reserve(kSpoolPieceBytes);
    return ZQX_OK;
}

int SpoolFile::Append(const void* data, size_t count)
{
    if (fd < 0)
        return ZQX_ERR_STATE;
    if (pending.size() + count > kSpoolPieceBytes)
        if (const int rc = Flush(); rc != ZQX_OK)
            return rc;
    const auto* p = static_cast<const uint8_t*>(data);
    if (count >= kSpoolPieceBytes) {
        if (const int rc = WriteAll(fd, p, count); rc != ZQX_OK)
            return rc;
    } else {
        pending.insert(pending.end(), p, p + count);
    }
    size += count;
    return ZQX_OK;
}

int SpoolFile::Flush()
{
    const int rc = WriteAll(fd, pending.data(), pending.size());
    pending.clear();
    return rc;
}

int SpoolFile::ReadBack(const std::function<int(const uint8_t*, size_t)>& sink)
{
    if (fd < 0)
        return ZQX_ERR_STATE;
    if (const int rc = Flush(); rc != ZQX_OK)
        return rc;
    std::vector<uint8_t> piece(kSpoolPieceBytes);
    int rc = ZQX_OK;
    for (uint64_t at = 0; at < size && rc == ZQX_OK; at += piece.size()) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(piece.size(), size - at));
        rc = ReadAllAt(fd, at, piece.data(), n);
        if (rc == ZQX_OK)
            rc = sink(piece.data(), n);
    }
    return rc;
}

void SpoolFile::Close()
{
    if (fd >= 0)
        ::close(fd);
    fd = -1;
    size = 0;
    pending.clear();
    pending.shrink_to_fit();
}

} // namespace zqx
