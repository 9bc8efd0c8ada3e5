// The last-good copy of the registry store and recovery from a damaged store.
// The copy is written by SQLite's online backup from a connection of its own,
// so it is a consistent snapshot even while the player or a sync command
// writes; it is checked before it replaces the earlier copy.
#include "platform/RegistryRecovery.h"
#include "platform/linux/SqliteConsistency.h"

#include <sqlite3.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>

namespace talvo {
namespace {

namespace fs = std::filesystem;

// The files SQLite keeps beside a database, which travel with it when it is
// moved aside.
constexpr const char* kCompanionSuffixes[] = {"-wal", "-shm", "-journal"};
// Room for "-YYYY-MM-DD-HHMMSS" and its terminator.
constexpr std::size_t kStampSize = 32;
// As long as the store itself waits for another process's write.
constexpr int kBusyTimeoutMs = 10000;

RegStatus StatusOfErrno(int error)
{
    switch (error) {
    case 0:
        return ERROR_SUCCESS;
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
        return ERROR_ACCESS_DENIED;
    case ENOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    case ENOSPC:
        return ERROR_DISK_FULL;
    default:
        return ERROR_REGISTRY_IO_FAILED;
    }
}

// Makes a rename or a new file in folder survive a loss of power.
void SyncFolder(const fs::path& folder)
{
    int fd = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

int SyncFile(const fs::path& file)
{
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return errno;
    const int error = ::fsync(fd) == 0 ? 0 : errno;
    ::close(fd);
    return error;
}

void RemoveWithCompanions(const std::string& path)
{
    std::error_code ignored;
    fs::remove(path, ignored);
    for (const char* suffix : kCompanionSuffixes)
        fs::remove(path + suffix, ignored);
}

// "registry.db.damaged-2026-11-23-172000", with "-2", "-3" ... when a store
// was already kept aside in the same second.
std::string AsideName(const std::string& path)
{
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char stamp[kStampSize];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d-%H%M%S", &local);
    const std::string base = path + ".damaged-" + stamp;
    std::string name = base;
    std::error_code ignored;
    for (int n = 2; fs::exists(name, ignored); ++n)
        name = base + "-" + std::to_string(n);
    return name;
}

// Renames the store and its companions; the store itself first, so that a
// failure leaves it where it was.
int MoveAside(const std::string& path, std::string* aside)
{
    *aside = AsideName(path);
    std::error_code error;
    fs::rename(path, *aside, error);
    if (error)
        return error.value();
    for (const char* suffix : kCompanionSuffixes) {
        if (fs::exists(path + suffix, error))
            fs::rename(path + suffix, *aside + suffix, error);
        if (error)
            return error.value();
    }
    SyncFolder(fs::path(path).parent_path());
    return 0;
}

// Copies from into to's place through a temporary file and a rename, so that
// to is either missing or whole.
int CopyIntoPlace(const std::string& from, const std::string& to)
{
    const std::string temporary = to + ".restoring";
    std::error_code error;
    fs::copy_file(from, temporary, fs::copy_options::overwrite_existing, error);
    int failure = error ? error.value() : SyncFile(temporary);
    if (!failure) {
        fs::rename(temporary, to, error);
        failure = error.value();
    }
    if (failure) {
        fs::remove(temporary, error);
        return failure;
    }
    SyncFolder(fs::path(to).parent_path());
    return 0;
}

std::chrono::seconds AgeOf(const std::string& path)
{
    std::error_code error;
    const fs::file_time_type written = fs::last_write_time(path, error);
    if (error)
        return std::chrono::seconds(0);
    const auto age = fs::file_time_type::clock::now() - written;
    return std::max(std::chrono::seconds(0), std::chrono::duration_cast<std::chrono::seconds>(age));
}

// One SQLite connection, closed when it goes.
struct Connection {
    sqlite3* db = nullptr;
    ~Connection() { sqlite3_close_v2(db); }
};

// Backs the store up into temporary and checks what arrived.
RegStatus BackUp(const std::string& storePath, const std::string& temporary, int* systemError)
{
    Connection source;
    Connection copy;
    int rc =
        sqlite3_open_v2(storePath.c_str(), &source.db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc != SQLITE_OK) {
        *systemError = source.db ? sqlite3_system_errno(source.db) : 0;
        return ERROR_FILE_NOT_FOUND;
    }
    sqlite3_busy_timeout(source.db, kBusyTimeoutMs);
    rc = sqlite3_open_v2(temporary.c_str(), &copy.db,
                         SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc == SQLITE_OK) {
        sqlite3_backup* backup = sqlite3_backup_init(copy.db, "main", source.db, "main");
        if (!backup)
            rc = sqlite3_errcode(copy.db);
        else {
            rc = sqlite3_backup_step(backup, -1);
            const int finished = sqlite3_backup_finish(backup);
            rc = rc == SQLITE_DONE ? finished : rc;
        }
    }
    if (rc != SQLITE_OK) {
        *systemError = copy.db ? sqlite3_system_errno(copy.db) : 0;
        return (rc & 0xFF) == SQLITE_FULL ? ERROR_DISK_FULL : StatusOfErrno(*systemError);
    }
    return CheckSqliteConsistency(copy.db);
}

} // namespace

std::string LastGoodCopyPath(const std::string& storePath)
{
    return storePath + ".last-good";
}

RegStatus SaveLastGoodCopy(const std::string& storePath, std::optional<std::chrono::seconds> maxAge,
                           int* systemError)
{
    int ignored = 0;
    int& error = systemError ? *systemError : ignored;
    error = 0;
    const std::string copyPath = LastGoodCopyPath(storePath);
    std::error_code missing;
    if (maxAge && fs::exists(copyPath, missing) && AgeOf(copyPath) < *maxAge)
        return ERROR_SUCCESS;
    const std::string temporary = copyPath + ".tmp";
    RemoveWithCompanions(temporary);
    // The copy is page for page what the store held, so the check of the
    // copy finds the store sound or damaged too.
    const std::string stamp = CurrentStamp(storePath);
    RegStatus status = BackUp(storePath, temporary, &error);
    if (status == ERROR_SUCCESS)
        KeepStamp(storePath, stamp);
    else if (status == ERROR_BADDB)
        RemoveStamp(storePath);
    if (status == ERROR_SUCCESS && (error = SyncFile(temporary)) != 0)
        status = StatusOfErrno(error);
    if (status == ERROR_SUCCESS) {
        std::error_code renamed;
        fs::rename(temporary, copyPath, renamed);
        if ((error = renamed.value()) != 0)
            status = StatusOfErrno(error);
    }
    RemoveWithCompanions(temporary);
    if (status == ERROR_SUCCESS)
        SyncFolder(fs::path(copyPath).parent_path());
    return status;
}

OpenedStore OpenOrRecoverSqliteRegistry(const std::string& path)
{
    OpenedStore opened;
    opened.registry = OpenSqliteRegistry(path, &opened.status, &opened.systemError);
    if (opened.registry || opened.status != ERROR_BADDB)
        return opened;

    StoreRecovery& recovery = opened.recovery.emplace();
    if ((opened.systemError = MoveAside(path, &recovery.keptAsidePath)) != 0) {
        opened.status = StatusOfErrno(opened.systemError);
        opened.recovery.reset(); // nothing, or not all of it, was moved
        return opened;
    }
    const std::string copyPath = LastGoodCopyPath(path);
    std::error_code missing;
    if (fs::exists(copyPath, missing)) {
        recovery.restoredAge = AgeOf(copyPath);
        if ((opened.systemError = CopyIntoPlace(copyPath, path)) != 0) {
            opened.status = StatusOfErrno(opened.systemError);
            return opened;
        }
        recovery.restored = true;
    }
    opened.registry = OpenSqliteRegistry(path, &opened.status, &opened.systemError);
    if (!opened.registry && opened.status == ERROR_BADDB && recovery.restored) {
        // The copy was checked when it was taken; should it have been damaged
        // since, the listener starts empty and the copy stays beside.
        RemoveWithCompanions(path);
        recovery.restored = false;
        opened.registry = OpenSqliteRegistry(path, &opened.status, &opened.systemError);
    }
    return opened;
}

} // namespace talvo
