#pragma once
// The SDK's only contact with the operating system: reading a file at offsets
// and publishing a file atomically.  Paths are UTF-8.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace zqx {

class ReadOnlyFile {
public:
    ReadOnlyFile() = default;
    ~ReadOnlyFile();
    ReadOnlyFile(const ReadOnlyFile&) = delete;
    ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;

    // ZQX_OK, ZQX_ERR_NO_FILE or ZQX_ERR_IO (a folder is ZQX_ERR_IO too).
    int Open(const std::string& path);
    // Reads exactly size bytes at offset: ZQX_OK, ZQX_ERR_IO, or ZQX_ERR_DAMAGED
    // when the file is shorter than that (it shrank after open).
    int ReadAt(uint64_t offset, void* out, size_t size) const;
    uint64_t Size() const { return size; }

private:
    int fd = -1;
    uint64_t size = 0;
};

// Writes a file next to its final name and renames it into place only when all
// bytes and the file's metadata are on disk, so a crash leaves the old file or
// the new one, never a mix.
class AtomicFileWriter {
public:
    AtomicFileWriter() = default;
    ~AtomicFileWriter();
    AtomicFileWriter(const AtomicFileWriter&) = delete;
    AtomicFileWriter& operator=(const AtomicFileWriter&) = delete;

    int Begin(const std::string& path);
    int Write(const void* data, size_t size);
    // fsync, rename over the target, fsync of the folder.
    int Commit();
    void Abort();

private:
    std::string target;
    std::string temporary;
    int fd = -1;
};

// A nameless scratch file in the folder of a given path: it takes bytes in order
// and gives them back from the start, so data as long as a program need not sit
// in memory.  It has no name from the start (or loses it at once where the file
// system cannot make nameless files), so nothing is left behind by a crash.
class SpoolFile {
public:
    SpoolFile() = default;
    ~SpoolFile();
    SpoolFile(const SpoolFile&) = delete;
    SpoolFile& operator=(const SpoolFile&) = delete;

    // Opens an empty spool beside path: ZQX_OK, ZQX_ERR_NO_FILE or ZQX_ERR_IO.
    int Open(const std::string& besidePath);
    int Append(const void* data, size_t size);
    uint64_t Size() const { return size; }
    // Hands everything appended to sink, in order, in pieces; the first status
    // other than ZQX_OK (from sink or a read) ends it and is returned.
    int ReadBack(const std::function<int(const uint8_t*, size_t)>& sink);
    void Close();

private:
    int Flush();

    int fd = -1;
    uint64_t size = 0;
    std::vector<uint8_t> pending;
};

} // namespace zqx
