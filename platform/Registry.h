#pragma once
// The registry: a hierarchical store of named, typed values under two roots,
// with the operations and error codes of the handheld platform the player was
// designed for.  The player's settings, per-program positions and bookmarks,
// the file association and the desktop-sync transport all live here.
//
// Contract:
// - Key paths use backslashes ("Software\Talvo\AudioData"); key and value names
//   compare without regard to case and keep the case they were created with.
// - Every operation returns a RegStatus: ERROR_SUCCESS (0) or one of the error
//   codes below, with the platform's numbers, because callers pass them on
//   (message boxes, HRESULTs of the desktop-sync commands).
// - REG_SZ data is UTF-16LE including its terminating NUL; REG_DWORD is 4 bytes
//   little-endian; every other type is stored and returned as raw bytes.
// - An HKEY returned by CreateKey/OpenKey stays valid until CloseKey.  A key
//   deleted by someone else makes later operations on its handle answer
//   ERROR_KEY_DELETED.
// - Implementations are safe to call from several threads, and several
//   processes may share one store: a write is atomic and survives a crash of
//   any process once the call returns; after FlushKey it also survives a loss
//   of power.
// - BeginTransaction/EndTransaction (used through RegistryTransaction) make the
//   calls between them one write: another process sees all of them or none,
//   and a crash before the end leaves none.  A transaction belongs to the
//   thread that began it; other threads' calls wait until it ends (as long as
//   a store waits for another process, then they fail), so their writes never
//   join it.  Transactions nest; only the outermost end commits.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace talvo {

using RegStatus = std::int32_t;
using DWORD = std::uint32_t;
using HKEY = std::uintptr_t;
using REGSAM = std::uint32_t;

inline constexpr HKEY HKEY_CLASSES_ROOT = 0x80000000u;
inline constexpr HKEY HKEY_LOCAL_MACHINE = 0x80000002u;

inline constexpr RegStatus ERROR_SUCCESS = 0;
inline constexpr RegStatus ERROR_FILE_NOT_FOUND = 2;
inline constexpr RegStatus ERROR_ACCESS_DENIED = 5;
inline constexpr RegStatus ERROR_INVALID_HANDLE = 6;
inline constexpr RegStatus ERROR_NOT_ENOUGH_MEMORY = 8;
// The file system holding the store is full; the write changed nothing.
inline constexpr RegStatus ERROR_DISK_FULL = 112;
inline constexpr RegStatus ERROR_INVALID_PARAMETER = 87;
inline constexpr RegStatus ERROR_MORE_DATA = 234;
inline constexpr RegStatus ERROR_NO_MORE_ITEMS = 259;
// The store's file is damaged: not a database at all, or one that fails its
// own consistency check, or whose write-ahead log is garbage.
inline constexpr RegStatus ERROR_BADDB = 1009;
inline constexpr RegStatus ERROR_REGISTRY_IO_FAILED = 1016;
// The store's file is an intact database, but not a registry of this
// version: someone else's tables, or a store written by a later version.
inline constexpr RegStatus ERROR_NOT_REGISTRY_FILE = 1017;
inline constexpr RegStatus ERROR_KEY_DELETED = 1018;

inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_MULTI_SZ = 7;
inline constexpr DWORD REG_QWORD = 11;

// Access masks are accepted and ignored: every caller of the store is trusted.
inline constexpr REGSAM KEY_READ = 0x20019;
inline constexpr REGSAM KEY_ALL_ACCESS = 0xF003F;

// What CreateKey did.
inline constexpr DWORD REG_CREATED_NEW_KEY = 1;
inline constexpr DWORD REG_OPENED_EXISTING_KEY = 2;

class Registry {
public:
    virtual ~Registry() = default;

    // Opens subKey below parent, creating every missing key on the way.
    virtual RegStatus CreateKey(HKEY parent, std::u16string_view subKey, REGSAM access, HKEY* result,
                                DWORD* disposition = nullptr) = 0;
    // Opens an existing key; ERROR_FILE_NOT_FOUND when it is missing.  An empty
    // subKey opens parent itself again.
    virtual RegStatus OpenKey(HKEY parent, std::u16string_view subKey, REGSAM access, HKEY* result) = 0;
    virtual RegStatus CloseKey(HKEY key) = 0;

    // Reads a value.  type and data may be null.  *size is the room in data on
    // entry and the value's size on return; with data null it only reports the
    // size; with too little room it answers ERROR_MORE_DATA and copies nothing.
    // An empty name is the key's default value.
    virtual RegStatus QueryValue(HKEY key, std::u16string_view name, DWORD* type, std::uint8_t* data,
                                 DWORD* size) = 0;
    virtual RegStatus SetValue(HKEY key, std::u16string_view name, DWORD type, const std::uint8_t* data,
                               DWORD size) = 0;
    virtual RegStatus DeleteValue(HKEY key, std::u16string_view name) = 0;
    // Deletes subKey of key together with everything below it.
    virtual RegStatus DeleteKey(HKEY key, std::u16string_view subKey) = 0;

    // Enumeration by index, from 0 until ERROR_NO_MORE_ITEMS.  Subkeys come in
    // the order of their names compared without case, values in the order they
    // were first set.
    virtual RegStatus EnumKey(HKEY key, DWORD index, std::u16string* name) = 0;
    virtual RegStatus EnumValue(HKEY key, DWORD index, std::u16string* name, DWORD* type,
                                std::vector<std::uint8_t>* data) = 0;

    // Makes everything written so far durable.  Inside a transaction it takes
    // effect when the outermost transaction commits.
    virtual RegStatus FlushKey(HKEY key) = 0;

    // Starts a transaction, or a nested one inside the caller's own.  Only after
    // ERROR_SUCCESS must it be ended, by the same thread.  A store without
    // transactions applies every call at once, as these defaults do.
    virtual RegStatus BeginTransaction() { return ERROR_SUCCESS; }
    // Ends the innermost transaction: commit keeps its calls (an inner one
    // hands them to the outer, which alone commits them to the store); false
    // undoes them.  A commit that fails undoes them as well.
    virtual RegStatus EndTransaction(bool commit)
    {
        static_cast<void>(commit);
        return ERROR_SUCCESS;
    }
    // The errno behind the last call that failed (ENOSPC for a full disk), or
    // 0 when none is known; read right after the failure.
    virtual int LastSystemError() const { return 0; }
};

// REG_SZ conversions: UTF-16LE bytes with the terminator, and back (a missing
// terminator is tolerated; the text ends at the first NUL).
std::vector<std::uint8_t> RegSzBytes(std::u16string_view text);
std::u16string RegSzText(const std::uint8_t* data, DWORD size);

// Where the store lives: $TALVOPLAYER_REGISTRY, else
// $XDG_CONFIG_HOME/talvoplayer/registry.db (XDG_CONFIG_HOME defaulting to ~/.config).
std::string DefaultRegistryPath();

// Opens (creating when needed) the store in the SQLite database at path.
// Returns null and sets *status when the database cannot be opened
// (ERROR_BADDB when it is damaged, ERROR_NOT_REGISTRY_FILE when it is another
// kind of database) and *systemError to the errno behind the failure, or 0.
// A store that is refused is left exactly as it was.
std::unique_ptr<Registry> OpenSqliteRegistry(const std::string& path, RegStatus* status = nullptr,
                                             int* systemError = nullptr);

} // namespace talvo
