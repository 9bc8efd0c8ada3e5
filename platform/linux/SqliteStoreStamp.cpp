// The stamp of a store found sound (see SqliteConsistency.h).
#include "platform/linux/SqliteConsistency.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>

namespace talvo {
namespace {

std::string StampPath(const std::string& storePath)
{
    return storePath + ".checked";
}

} // namespace

// Device, inode, size and the times of the last write and the last change of
// any kind; the second cannot be set back by hand the way the first can.
std::string CurrentStamp(const std::string& storePath)
{
    struct stat file {};
    if (::stat(storePath.c_str(), &file) != 0 || !S_ISREG(file.st_mode) || file.st_size == 0)
        return {};
    struct stat log {};
    if (::stat((storePath + "-wal").c_str(), &log) == 0 && log.st_size > 0)
        return {}; // the store's content is the file and the log together
    char text[160];
    std::snprintf(text, sizeof text, "1 %llu %llu %lld %lld.%09ld %lld.%09ld\n",
                  static_cast<unsigned long long>(file.st_dev), static_cast<unsigned long long>(file.st_ino),
                  static_cast<long long>(file.st_size), static_cast<long long>(file.st_mtim.tv_sec),
                  file.st_mtim.tv_nsec, static_cast<long long>(file.st_ctim.tv_sec), file.st_ctim.tv_nsec);
    return text;
}

bool IsStampedSound(const std::string& storePath)
{
    const std::string now = CurrentStamp(storePath);
    if (now.empty())
        return false;
    std::ifstream stamp(StampPath(storePath), std::ios::binary);
    const std::string kept((std::istreambuf_iterator<char>(stamp)), std::istreambuf_iterator<char>());
    return kept == now;
}

void KeepStamp(const std::string& storePath, const std::string& stamp)
{
    if (stamp.empty() || CurrentStamp(storePath) != stamp)
        return;
    // Written beside and renamed, so a reader never sees half a stamp; no
    // sync: a stamp lost to a power cut only costs one more check.
    const std::string temporary = StampPath(storePath) + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << stamp;
        if (!out.flush()) {
            ::unlink(temporary.c_str());
            return;
        }
    }
    if (std::rename(temporary.c_str(), StampPath(storePath).c_str()) != 0)
        ::unlink(temporary.c_str());
}

void RemoveStamp(const std::string& storePath)
{
    ::unlink(StampPath(storePath).c_str());
}

} // namespace talvo
