// The registry in one SQLite database, shared by the running player and
// short-lived command processes (the desktop-sync commands, talvoreg).
//
// Schema (PRAGMA user_version = kSchemaVersion):
//   keys(id, parent, name, folded)           one row per key; the two roots are
//                                            fixed rows without a parent
//   vals(id, key, name, folded, type, data)  one row per value; id keeps the
//                                            order in which values were first set
// `folded` is the name upper-cased code unit by code unit, so lookups ignore
// case while `name` keeps the case the key or value was created with.
//
// Every call runs in its own transaction: reads in a deferred one (a
// consistent snapshot across the handle check and the read), writes in
// BEGIN IMMEDIATE so that two processes never both read and then both write.
// A caller's transaction (BeginTransaction) is BEGIN IMMEDIATE as well: it
// holds the write lock from its start, so no write of another process can
// slip between its reads and its writes, and a deferred snapshot never has to
// be upgraded (an upgrade that finds a newer commit fails at once, without
// waiting).  Inside it each call is a savepoint, so a failed call still
// leaves nothing half done, and a nested transaction is a savepoint too.
// With WAL and synchronous=NORMAL a committed write survives a crash of any
// process; FlushKey checkpoints the log so it also survives a power loss.
#include "platform/Registry.h"
#include "platform/RegistryRecovery.h"
#include "platform/Trace.h"
#include "platform/linux/SqliteConsistency.h"

#include <QChar>

#include <sqlite3.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>

namespace talvo {
namespace {

constexpr int kSchemaVersion = 1;
// Long enough to outwait any other process's single write, short enough that
// a wedged peer turns into an error rather than a hung player.
constexpr int kBusyTimeoutMs = 10000;
// How long a first open waits before it tries the journal switch again, when
// another process is switching the same new file at that moment.
constexpr int kJournalRetryMs = 2;
// The original platform's limit on one key name (a path component).
constexpr std::size_t kMaxKeyNameLength = 255;
// A write-ahead log starts with a 32-byte header whose first four bytes are
// this number, big-endian, its lowest bit telling the checksums' byte order.
constexpr std::size_t kWalHeaderSize = 32;
constexpr std::uint32_t kWalMagic = 0x377f0682;
// SQLite's smallest page: no database file is shorter than one page.
constexpr std::uintmax_t kSmallestDatabase = 512;

struct RootKey {
    HKEY handle;
    std::int64_t id;
    const char16_t* name;
};
// The roots are rows with fixed ids, created with the schema.
constexpr std::array<RootKey, 2> kRootKeys{{
    {HKEY_LOCAL_MACHINE, 1, u"HKEY_LOCAL_MACHINE"},
    {HKEY_CLASSES_ROOT, 2, u"HKEY_CLASSES_ROOT"},
}};
static_assert(kRootKeys[0].id != kRootKeys[1].id);

constexpr const char* kSchemaSql = R"sql(
CREATE TABLE keys(
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    parent INTEGER REFERENCES keys(id),
    name TEXT NOT NULL,
    folded TEXT NOT NULL,
    UNIQUE(parent, folded));
CREATE TABLE vals(
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    key INTEGER NOT NULL REFERENCES keys(id),
    name TEXT NOT NULL,
    folded TEXT NOT NULL,
    type INTEGER NOT NULL,
    data BLOB NOT NULL,
    UNIQUE(key, folded));
CREATE INDEX vals_order ON vals(key, id);
)sql";

// Case folding as the original platform did it: each UTF-16 code unit upper-cased
// on its own (simple mapping), so the folded name has the same length.
std::u16string Fold(std::u16string_view name)
{
    std::u16string folded(name);
    for (char16_t& c : folded) {
        if (QChar::isSurrogate(c))
            continue;
        char32_t upper = QChar::toUpper(char32_t(c));
        if (upper <= 0xFFFF)
            c = char16_t(upper);
    }
    return folded;
}

// Names go into TEXT columns as UTF-16; an embedded NUL or a lone surrogate would
// not come back unchanged, so such a name is refused.  So are U+FFFE and U+FFFF:
// SQLite reads them back as U+FFFD, and a key of that name could then be
// listed but never opened or deleted by the name it is listed under.  A name
// may not begin with U+FEFF either: SQLite takes a leading one for a byte-order
// mark and drops it, so "\uFEFF" would be stored as the empty name, which
// opens its parent again, and "\uFEFFa" as "a".
bool IsStorableName(std::u16string_view name)
{
    if (!name.empty() && name.front() == u'\uFEFF')
        return false;
    for (std::size_t i = 0; i < name.size(); ++i) {
        char16_t c = name[i];
        if (c == 0 || c == u'\uFFFE' || c == u'\uFFFF')
            return false;
        if (QChar::isHighSurrogate(c)) {
            if (i + 1 >= name.size() || !QChar::isLowSurrogate(name[i + 1]))
                return false;
            ++i;
        } else if (QChar::isLowSurrogate(c)) {
            return false;
        }
    }
    return true;
}

// Splits a backslash path into its names; empty components (a leading,
// trailing or doubled backslash) are skipped.
std::optional<std::vector<std::u16string_view>> SplitPath(std::u16string_view path)
{
    std::vector<std::u16string_view> parts;
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t end = path.find(u'\\', start);
        if (end == std::u16string_view::npos)
            end = path.size();
        std::u16string_view part = path.substr(start, end - start);
        if (!part.empty()) {
            if (part.size() > kMaxKeyNameLength || !IsStorableName(part))
                return std::nullopt;
            parts.push_back(part);
        }
        start = end + 1;
    }
    return parts;
}

RegStatus StatusOf(int sqliteCode)
{
    switch (sqliteCode & 0xFF) {
    case SQLITE_OK:
    case SQLITE_DONE:
    case SQLITE_ROW:
        return ERROR_SUCCESS;
    case SQLITE_NOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return ERROR_ACCESS_DENIED;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return ERROR_BADDB;
    case SQLITE_FULL:
        return ERROR_DISK_FULL; // SQLite keeps no errno for it
    default:
        return ERROR_REGISTRY_IO_FAILED;
    }
}

// A prepared statement kept for the life of the connection; Use() hands it out
// reset and with its bindings cleared.
class Statement {
public:
    Statement() = default;
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement() { sqlite3_finalize(stmt_); }

    int Prepare(sqlite3* db, const char* sql)
    {
        return sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt_, nullptr);
    }
    sqlite3_stmt* Use()
    {
        sqlite3_reset(stmt_);
        sqlite3_clear_bindings(stmt_);
        return stmt_;
    }

private:
    sqlite3_stmt* stmt_ = nullptr;
};

void BindText(sqlite3_stmt* stmt, int index, std::u16string_view text)
{
    sqlite3_bind_text16(stmt, index, text.data(), int(text.size() * sizeof(char16_t)), SQLITE_TRANSIENT);
}

std::u16string ColumnText(sqlite3_stmt* stmt, int column)
{
    auto text = static_cast<const char16_t*>(sqlite3_column_text16(stmt, column));
    int bytes = sqlite3_column_bytes16(stmt, column);
    return text ? std::u16string(text, std::size_t(bytes) / sizeof(char16_t)) : std::u16string();
}

class SqliteRegistry final : public Registry {
public:
    explicit SqliteRegistry(sqlite3* db) : db_(db) {}
    ~SqliteRegistry() override
    {
        statements_.reset();
        sqlite3_close_v2(db_);
    }

    int LastSystemError() const override { return sqlite3_system_errno(db_); }

    // Prepares the statements; fails when the tables are not the registry's.
    RegStatus Prepare()
    {
        statements_ = std::make_unique<Statements>();
        Statements& s = *statements_;
        const std::pair<Statement*, const char*> sql[] = {
            {&s.keyExists, "SELECT 1 FROM keys WHERE id = ?1"},
            {&s.findChild, "SELECT id FROM keys WHERE parent = ?1 AND folded = ?2"},
            {&s.insertKey, "INSERT INTO keys(parent, name, folded) VALUES(?1, ?2, ?3)"},
            {&s.findValue, "SELECT type, data FROM vals WHERE key = ?1 AND folded = ?2"},
            {&s.setValue,
             "INSERT INTO vals(key, name, folded, type, data) VALUES(?1, ?2, ?3, ?4, ?5) "
             "ON CONFLICT(key, folded) DO UPDATE SET type = excluded.type, data = excluded.data"},
            {&s.deleteValue, "DELETE FROM vals WHERE key = ?1 AND folded = ?2"},
            {&s.deleteTreeValues, "WITH RECURSIVE tree(id) AS (SELECT ?1 UNION ALL "
                                  "SELECT keys.id FROM keys JOIN tree ON keys.parent = tree.id) "
                                  "DELETE FROM vals WHERE key IN tree"},
            {&s.deleteTreeKeys, "WITH RECURSIVE tree(id) AS (SELECT ?1 UNION ALL "
                                "SELECT keys.id FROM keys JOIN tree ON keys.parent = tree.id) "
                                "DELETE FROM keys WHERE id IN tree"},
            {&s.enumKey, "SELECT name, folded FROM keys WHERE parent = ?1 ORDER BY folded LIMIT 1 OFFSET ?2"},
            {&s.enumKeyAfter, "SELECT name, folded FROM keys WHERE parent = ?1 AND folded > ?2 "
                              "ORDER BY folded LIMIT 1"},
            {&s.enumValue,
             "SELECT name, type, data, id FROM vals WHERE key = ?1 ORDER BY id LIMIT 1 OFFSET ?2"},
            {&s.enumValueAfter, "SELECT name, type, data, id FROM vals WHERE key = ?1 AND id > ?2 "
                                "ORDER BY id LIMIT 1"},
            {&s.dataVersion, "PRAGMA data_version"},
            {&s.begin, "BEGIN"},
            {&s.beginImmediate, "BEGIN IMMEDIATE"},
            {&s.commit, "COMMIT"},
            {&s.rollback, "ROLLBACK"},
            {&s.callSavepoint, "SAVEPOINT call"},
            {&s.callRelease, "RELEASE call"},
            {&s.callRollback, "ROLLBACK TO call"},
            {&s.scopeSavepoint, "SAVEPOINT scope"},
            {&s.scopeRelease, "RELEASE scope"},
            {&s.scopeRollback, "ROLLBACK TO scope"},
        };
        for (auto [statement, text] : sql) {
            // A plain error is a table or column the statement cannot find;
            // anything else (a busy or unreadable file) says nothing about the schema.
            if (int rc = statement->Prepare(db_, text); rc != SQLITE_OK)
                return rc == SQLITE_ERROR ? ERROR_NOT_REGISTRY_FILE : StatusOf(rc);
        }
        return ERROR_SUCCESS;
    }

    RegStatus CreateKey(HKEY parent, std::u16string_view subKey, REGSAM, HKEY* result,
                        DWORD* disposition) override
    {
        if (!result)
            return ERROR_INVALID_PARAMETER;
        auto parts = SplitPath(subKey);
        if (!parts)
            return ERROR_INVALID_PARAMETER;
        auto lock = Enter();
        if (!lock)
            return ERROR_REGISTRY_IO_FAILED;
        std::int64_t id = 0;
        RegStatus status = KeyOf(parent, &id);
        if (status != ERROR_SUCCESS)
            return status;
        // Most calls open a key that exists (every settings setter does); a
        // read transaction finds it without queueing behind other writers.
        {
            Transaction lookup(*this, false);
            if ((status = lookup.Begin()) != ERROR_SUCCESS || (status = CheckAlive(id)) != ERROR_SUCCESS)
                return status;
            std::int64_t found = id;
            for (std::u16string_view part : *parts) {
                std::optional<std::int64_t> child;
                if ((status = FindChild(found, Fold(part), &child)) != ERROR_SUCCESS)
                    return status;
                if (!child) {
                    found = 0;
                    break;
                }
                found = *child;
            }
            if (found != 0) {
                if ((status = lookup.Commit()) != ERROR_SUCCESS)
                    return status;
                *result = NewHandle(found);
                if (disposition)
                    *disposition = REG_OPENED_EXISTING_KEY;
                return ERROR_SUCCESS;
            }
        }
        Transaction txn(*this, true);
        if ((status = txn.Begin()) != ERROR_SUCCESS || (status = CheckAlive(id)) != ERROR_SUCCESS)
            return status;
        bool created = false;
        for (std::u16string_view part : *parts) {
            std::u16string folded = Fold(part);
            std::optional<std::int64_t> child;
            if ((status = FindChild(id, folded, &child)) != ERROR_SUCCESS)
                return status;
            if (!child) {
                sqlite3_stmt* insert = statements_->insertKey.Use();
                sqlite3_bind_int64(insert, 1, id);
                BindText(insert, 2, part);
                BindText(insert, 3, folded);
                if (int rc = sqlite3_step(insert); rc != SQLITE_DONE)
                    return StatusOf(rc);
                child = sqlite3_last_insert_rowid(db_);
                created = true;
            }
            id = *child;
        }
        if ((status = txn.Commit()) != ERROR_SUCCESS)
            return status;
        *result = NewHandle(id);
        if (disposition)
            *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
        return ERROR_SUCCESS;
    }

    RegStatus OpenKey(HKEY parent, std::u16string_view subKey, REGSAM, HKEY* result) override
    {
        if (!result)
            return ERROR_INVALID_PARAMETER;
        auto parts = SplitPath(subKey);
        if (!parts)
            return ERROR_FILE_NOT_FOUND;
        auto lock = Enter();
        if (!lock)
            return ERROR_REGISTRY_IO_FAILED;
        std::int64_t id = 0;
        RegStatus status = KeyOf(parent, &id);
        if (status != ERROR_SUCCESS)
            return status;
        Transaction txn(*this, false);
        if ((status = txn.Begin()) != ERROR_SUCCESS || (status = CheckAlive(id)) != ERROR_SUCCESS)
            return status;
        for (std::u16string_view part : *parts) {
            std::optional<std::int64_t> child;
            if ((status = FindChild(id, Fold(part), &child)) != ERROR_SUCCESS)
                return status;
            if (!child)
                return ERROR_FILE_NOT_FOUND;
            id = *child;
        }
        if ((status = txn.Commit()) != ERROR_SUCCESS)
            return status;
        *result = NewHandle(id);
        return ERROR_SUCCESS;
    }

    RegStatus CloseKey(HKEY key) override
    {
        auto lock = Enter();
        if (!lock)
            return ERROR_REGISTRY_IO_FAILED;
        if (IsRoot(key))
            return ERROR_SUCCESS;
        return handles_.erase(key) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
    }

    RegStatus QueryValue(HKEY key, std::u16string_view name, DWORD* type, std::uint8_t* data,
                         DWORD* size) override
    {
        if (data && !size)
            return ERROR_INVALID_PARAMETER;
        if (!IsStorableName(name))
            return ERROR_FILE_NOT_FOUND;
        auto lock = Enter();
        if (!lock)
            return ERROR_REGISTRY_IO_FAILED;
        std::int64_t id = 0;
        RegStatus status = KeyOf(key, &id);
        if (status != ERROR_SUCCESS)
            return status;
        Transaction txn(*this, false);
        if ((status = txn.Begin()) != ERROR_SUCCESS || (status = CheckAlive(id)) != ERROR_SUCCESS)
            return status;
        sqlite3_stmt* find = statements_->findValue.Use();
        sqlite3_bind_int64(find, 1, id);
        BindText(find, 2, Fold(name));
        int rc = sqlite3_step(find);
        if (rc == SQLITE_DONE)
            return ERROR_FILE_NOT_FOUND;
        if (rc != SQLITE_ROW)
            return StatusOf(rc);
        DWORD needed = DWORD(sqlite3_column_bytes(find, 1));
        if (type)
            *type = DWORD(sqlite3_column_int64(find, 0));
        if (data) {
            if (*size < needed) {
                *size = needed;
                return ERROR_MORE_DATA;
            }
            if (needed > 0)
                std::memcpy(data, sqlite3_column_blob(find, 1), needed);
        }
        if (size)
            *size = needed;
        return ERROR_SUCCESS;
    }

    RegStatus SetValue(HKEY key, std::u16string_view name, DWORD type, const std::uint8_t* data,
                       DWORD size) override
    {
        if ((!data && size > 0) || !IsStorableName(name))
            return ERROR_INVALID_PARAMETER;
        auto lock = Enter();
        if (!lock)
            return ERROR_REGISTRY_IO_FAILED;
        std::int64_t id = 0;
        RegStatus status = KeyOf(key, &id);
        if (status != ERROR_SUCCESS)
            return status;
        Transaction txn(*this, true);
        if ((status = txn.Begin()) != ERROR_SUCCESS || (status = CheckAlive(id)) != ERROR_SUCCESS)
            return status;
        sqlite3_stmt* set = statements_->setValue.Use();
        sqlite3_bind_int64(set, 1, id);
        BindText(set, 2, name);
        BindText(set, 3, Fold(name));
        sqlite3_bind_int64(set, 4, type);
        // A null pointer would bind SQL NULL; the column holds an empty blob instead.
        static const std::uint8_t kEmpty = 0;
        sqlite3_bind_blob(set, 5, size > 0 ? data : &kEmpty, int(size), SQLITE_STATIC);
        if (int rc = sqlite3_step(set); rc != SQLITE_DONE)
            return StatusOf(rc);
        return txn.Commit();
    }

    RegStatus DeleteValue(HKEY key, std::u16string_view name) override
    {
        if (!IsStorableName(name))
            return ERROR_FILE_NOT_FOUND;
        auto lock = Enter();
        if (!lock)
            return ERROR_REGISTRY_IO_FAILED;
        std::int64_t id = 0;
        RegStatus status = KeyOf(key, &id);
        if (status != ERROR_SUCCESS)
            return status;
        Transaction txn(*this, true);
        if ((status = txn.Begin()) != ERROR_SUCCESS || (status = CheckAlive(id)) != ERROR_SUCCESS)
            return status;
        sqlite3_stmt* erase = statements_->deleteValue.Use();
        sqlite3_bind_int64(erase, 1, id);
        BindText(erase, 2, Fold(name));
        if (int rc = sqlite3_step(erase); rc != SQLITE_DONE)
            return StatusOf(rc);
        if (sqlite3_changes(db_) == 0)
            return ERROR_FILE_NOT_FOUND;
        return txn.Commit();
    }

    RegStatus DeleteKey(HKEY key, std::u16string_view subKey) override
    {
        auto parts = SplitPath(subKey);
        if (!parts)
            return ERROR_FILE_NOT_FOUND;
        auto lock = Enter();
        if (!lock)
            return ERROR_REGISTRY_IO_FAILED;
        std::int64_t id = 0;
        RegStatus status = KeyOf(key, &id);
        if (status != ERROR_SUCCESS)
            return status;
        Transaction txn(*this, true);
        if ((status = txn.Begin()) != ERROR_SUCCESS || (status = CheckAlive(id)) != ERROR_SUCCESS)
            return status;
        for (std::u16string_view part : *parts) {
            std::optional<std::int64_t> child;
            if ((status = FindChild(id, Fold(part), &child)) != ERROR_SUCCESS)
                return status;
            if (!child)
                return ERROR_FILE_NOT_FOUND;
            id = *child;
        }
        if (RootOfId(id))
            return ERROR_ACCESS_DENIED;
        for (Statement* statement : {&statements_->deleteTreeValues, &statements_->deleteTreeKeys}) {
            sqlite3_stmt* erase = statement->Use();
            sqlite3_bind_int64(erase, 1, id);
            if (int rc = sqlite3_step(erase); rc != SQLITE_DONE)
                return StatusOf(rc);
        }
        return txn.Commit();
    }

    RegStatus EnumKey(HKEY key, DWORD index, std::u16string* name) override
    {
        if (!name)
            return ERROR_INVALID_PARAMETER;
        auto lock = Enter();
        if (!lock)
            return ERROR_REGISTRY_IO_FAILED;
        std::int64_t id = 0;
        RegStatus status = KeyOf(key, &id);
        if (status != ERROR_SUCCESS)
            return status;
        Transaction txn(*this, false);
        if ((status = txn.Begin()) != ERROR_SUCCESS || (status = CheckAlive(id)) != ERROR_SUCCESS)
            return status;
        std::int64_t version = DataVersion();
        sqlite3_stmt* enumerate = nullptr;
        if (keyCursor_.Continues(id, index, version)) {
            enumerate = statements_->enumKeyAfter.Use();
            BindText(enumerate, 2, keyCursor_.lastFolded);
        } else {
            enumerate = statements_->enumKey.Use();
            sqlite3_bind_int64(enumerate, 2, index);
        }
        sqlite3_bind_int64(enumerate, 1, id);
        int rc = sqlite3_step(enumerate);
        if (rc == SQLITE_DONE)
            return ERROR_NO_MORE_ITEMS;
        if (rc != SQLITE_ROW)
            return StatusOf(rc);
        *name = ColumnText(enumerate, 0);
        keyCursor_.Remember(id, index, version);
        keyCursor_.lastFolded = ColumnText(enumerate, 1);
        return ERROR_SUCCESS;
    }

    RegStatus EnumValue(HKEY key, DWORD index, std::u16string* name, DWORD* type,
                        std::vector<std::uint8_t>* data) override
    {
        auto lock = Enter();
        if (!lock)
            return ERROR_REGISTRY_IO_FAILED;
        std::int64_t id = 0;
        RegStatus status = KeyOf(key, &id);
        if (status != ERROR_SUCCESS)
            return status;
        Transaction txn(*this, false);
        if ((status = txn.Begin()) != ERROR_SUCCESS || (status = CheckAlive(id)) != ERROR_SUCCESS)
            return status;
        std::int64_t version = DataVersion();
        sqlite3_stmt* enumerate = nullptr;
        if (valueCursor_.Continues(id, index, version)) {
            enumerate = statements_->enumValueAfter.Use();
            sqlite3_bind_int64(enumerate, 2, valueCursor_.lastId);
        } else {
            enumerate = statements_->enumValue.Use();
            sqlite3_bind_int64(enumerate, 2, index);
        }
        sqlite3_bind_int64(enumerate, 1, id);
        int rc = sqlite3_step(enumerate);
        if (rc == SQLITE_DONE)
            return ERROR_NO_MORE_ITEMS;
        if (rc != SQLITE_ROW)
            return StatusOf(rc);
        valueCursor_.Remember(id, index, version);
        valueCursor_.lastId = sqlite3_column_int64(enumerate, 3);
        if (name)
            *name = ColumnText(enumerate, 0);
        if (type)
            *type = DWORD(sqlite3_column_int64(enumerate, 1));
        if (data) {
            auto bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(enumerate, 2));
            data->assign(bytes, bytes + sqlite3_column_bytes(enumerate, 2));
        }
        return ERROR_SUCCESS;
    }

    RegStatus FlushKey(HKEY key) override
    {
        auto lock = Enter();
        if (!lock)
            return ERROR_REGISTRY_IO_FAILED;
        std::int64_t id = 0;
        RegStatus status = KeyOf(key, &id);
        if (status != ERROR_SUCCESS)
            return status;
        {
            Transaction txn(*this, false);
            if ((status = txn.Begin()) != ERROR_SUCCESS || (status = CheckAlive(id)) != ERROR_SUCCESS)
                return status;
        }
        // What is written inside a transaction can only be made durable once
        // it is committed, and a checkpoint cannot run inside one anyway.
        if (scopeDepth_ > 0) {
            flushPending_ = true;
            return ERROR_SUCCESS;
        }
        return Checkpoint();
    }

    RegStatus BeginTransaction() override
    {
        if (!mutex_.try_lock_until(LockDeadline()))
            return ERROR_REGISTRY_IO_FAILED;
        // The lock taken here is held until the matching EndTransaction, which
        // keeps every other thread's calls out of this transaction.
        int rc = SQLITE_OK;
        if (scopeDepth_ == 0) {
            rc = sqlite3_step(statements_->beginImmediate.Use());
        } else if (sqlite3_get_autocommit(db_)) {
            // The outer transaction was already undone by a failure; a savepoint
            // now would open a transaction of its own outside it.
            rc = SQLITE_ABORT;
        } else {
            rc = sqlite3_step(statements_->scopeSavepoint.Use());
        }
        if (rc != SQLITE_DONE) {
            mutex_.unlock();
            return StatusOf(rc);
        }
        if (scopeDepth_++ == 0) {
            scopeOwner_ = std::this_thread::get_id();
            flushPending_ = false;
        }
        return ERROR_SUCCESS;
    }

    RegStatus EndTransaction(bool commit) override
    {
        // Only the thread holding the transaction holds the lock; any other
        // thread is refused before it touches the connection.
        if (scopeOwner_.load() != std::this_thread::get_id() || scopeDepth_ == 0)
            return ERROR_INVALID_PARAMETER;
        std::unique_lock lock(mutex_, std::adopt_lock);
        ResetStatements();
        keyCursor_.valid = valueCursor_.valid = false;
        // SQLite undoes the whole transaction by itself after some failures
        // (a full disk, an I/O error); then there is nothing left to end.
        const bool lost = sqlite3_get_autocommit(db_) != 0;
        RegStatus status = lost ? ERROR_REGISTRY_IO_FAILED : ERROR_SUCCESS;
        if (--scopeDepth_ > 0) {
            if (!lost && commit) {
                status = StatusOf(sqlite3_step(statements_->scopeRelease.Use()));
                if (status == ERROR_SUCCESS)
                    return status;
            }
            if (!lost) {
                sqlite3_step(statements_->scopeRollback.Use());
                sqlite3_step(statements_->scopeRelease.Use());
            }
            return commit ? status : ERROR_SUCCESS;
        }
        scopeOwner_ = std::thread::id();
        if (lost)
            return commit ? status : ERROR_SUCCESS;
        if (commit) {
            status = StatusOf(sqlite3_step(statements_->commit.Use()));
            if (status == ERROR_SUCCESS)
                return flushPending_ ? Checkpoint() : ERROR_SUCCESS;
        }
        ResetStatements();
        sqlite3_step(statements_->rollback.Use());
        return status;
    }

private:
    struct Statements {
        Statement keyExists, findChild, insertKey, findValue, setValue, deleteValue, deleteTreeValues,
            deleteTreeKeys, enumKey, enumKeyAfter, enumValue, enumValueAfter, dataVersion, begin,
            beginImmediate, commit, rollback, callSavepoint, callRelease, callRollback, scopeSavepoint,
            scopeRelease, scopeRollback;
    };

    // Waits for the connection: for another thread's call, or for another
    // thread's whole transaction, as long as the store waits for another
    // process's write.  The transaction's own thread gets in at once.
    std::unique_lock<std::recursive_timed_mutex> Enter() { return std::unique_lock(mutex_, LockDeadline()); }

    // A deadline on the system clock makes the wait a pthread_mutex_timedlock,
    // which ThreadSanitizer follows; a relative or steady-clock wait is a
    // pthread_mutex_clocklock, which it does not know, so it would take every
    // later unlock for the unlock of a mutex that was never locked.
    static std::chrono::system_clock::time_point LockDeadline()
    {
        return std::chrono::system_clock::now() + std::chrono::milliseconds(kBusyTimeoutMs);
    }

    RegStatus Checkpoint()
    {
        ResetStatements();
        // A full checkpoint syncs the log, copies it into the database and syncs that.
        int rc = sqlite3_wal_checkpoint_v2(db_, nullptr, SQLITE_CHECKPOINT_FULL, nullptr, nullptr);
        return StatusOf(rc);
    }

    // One call's transaction, or its savepoint inside a caller's transaction.
    // Rolls back unless committed, so every early return leaves nothing open.
    class Transaction {
    public:
        Transaction(SqliteRegistry& owner, bool write)
            : owner_(owner), write_(write), nested_(owner.scopeDepth_ > 0)
        {
        }
        ~Transaction()
        {
            if (!open_)
                return;
            owner_.ResetStatements();
            Statements& s = *owner_.statements_;
            if (!nested_) {
                sqlite3_step(s.rollback.Use());
            } else if (!sqlite3_get_autocommit(owner_.db_)) {
                sqlite3_step(s.callRollback.Use());
                sqlite3_step(s.callRelease.Use());
            }
        }
        RegStatus Begin()
        {
            Statements& s = *owner_.statements_;
            int rc = SQLITE_OK;
            if (!nested_)
                rc = sqlite3_step((write_ ? s.beginImmediate : s.begin).Use());
            else if (sqlite3_get_autocommit(owner_.db_))
                rc = SQLITE_ABORT; // the caller's transaction is gone; see EndTransaction
            else
                rc = sqlite3_step(s.callSavepoint.Use());
            open_ = rc == SQLITE_DONE;
            return StatusOf(rc);
        }
        RegStatus Commit()
        {
            owner_.ResetStatements();
            Statements& s = *owner_.statements_;
            int rc = sqlite3_step((nested_ ? s.callRelease : s.commit).Use());
            if (rc == SQLITE_DONE) {
                open_ = false;
                // This connection's own writes do not move data_version.
                if (write_)
                    owner_.keyCursor_.valid = owner_.valueCursor_.valid = false;
            }
            return StatusOf(rc);
        }

    private:
        SqliteRegistry& owner_;
        bool write_;
        bool nested_;
        bool open_ = false;
    };

    // Where the last enumeration stopped.  Callers enumerate index after index,
    // and picking up after the last row instead of skipping `index` rows keeps
    // a whole enumeration linear rather than quadratic in the number of items.
    struct EnumCursor {
        bool valid = false;
        std::int64_t key = 0;
        DWORD index = 0;
        std::int64_t dataVersion = 0;
        std::u16string lastFolded;
        std::int64_t lastId = 0;

        bool Continues(std::int64_t k, DWORD i, std::int64_t version) const
        {
            return valid && key == k && i == index + 1 && dataVersion == version;
        }
        void Remember(std::int64_t k, DWORD i, std::int64_t version)
        {
            valid = true;
            key = k;
            index = i;
            dataVersion = version;
        }
    };

    // Changes whenever another connection commits.
    std::int64_t DataVersion()
    {
        sqlite3_stmt* version = statements_->dataVersion.Use();
        return sqlite3_step(version) == SQLITE_ROW ? sqlite3_column_int64(version, 0) : -1;
    }

    static bool IsRoot(HKEY key)
    {
        for (const RootKey& root : kRootKeys) {
            if (root.handle == key)
                return true;
        }
        return false;
    }
    static bool RootOfId(std::int64_t id)
    {
        for (const RootKey& root : kRootKeys) {
            if (root.id == id)
                return true;
        }
        return false;
    }

    // The key row of a handle; the caller holds mutex_.
    RegStatus KeyOf(HKEY key, std::int64_t* id) const
    {
        for (const RootKey& root : kRootKeys) {
            if (root.handle == key) {
                *id = root.id;
                return ERROR_SUCCESS;
            }
        }
        auto found = handles_.find(key);
        if (found == handles_.end())
            return ERROR_INVALID_HANDLE;
        *id = found->second;
        return ERROR_SUCCESS;
    }

    // A statement left on a row holds its read snapshot open, which would keep
    // COMMIT from ending the transaction and a checkpoint from finishing.
    void ResetStatements()
    {
        for (sqlite3_stmt* stmt = sqlite3_next_stmt(db_, nullptr); stmt;
             stmt = sqlite3_next_stmt(db_, stmt)) {
            if (sqlite3_stmt_busy(stmt))
                sqlite3_reset(stmt);
        }
    }

    // Key rows are never reused (AUTOINCREMENT), so a missing row means this
    // handle's key was deleted, whoever deleted it.
    RegStatus CheckAlive(std::int64_t id)
    {
        sqlite3_stmt* exists = statements_->keyExists.Use();
        sqlite3_bind_int64(exists, 1, id);
        int rc = sqlite3_step(exists);
        if (rc == SQLITE_ROW)
            return ERROR_SUCCESS;
        return rc == SQLITE_DONE ? ERROR_KEY_DELETED : StatusOf(rc);
    }

    RegStatus FindChild(std::int64_t parent, std::u16string_view folded, std::optional<std::int64_t>* child)
    {
        sqlite3_stmt* find = statements_->findChild.Use();
        sqlite3_bind_int64(find, 1, parent);
        BindText(find, 2, folded);
        int rc = sqlite3_step(find);
        if (rc == SQLITE_ROW)
            *child = sqlite3_column_int64(find, 0);
        else if (rc != SQLITE_DONE)
            return StatusOf(rc);
        return ERROR_SUCCESS;
    }

    HKEY NewHandle(std::int64_t id)
    {
        HKEY handle = nextHandle_++;
        handles_.emplace(handle, id);
        return handle;
    }

    sqlite3* db_;
    std::unique_ptr<Statements> statements_;
    // Recursive because a caller's transaction holds it across its calls.
    std::recursive_timed_mutex mutex_;
    // The thread whose transaction is open; read without the lock by
    // EndTransaction to refuse any other thread.
    std::atomic<std::thread::id> scopeOwner_;
    // Guarded by mutex_: how deep the caller's transactions are nested, and
    // whether FlushKey was asked for inside them.
    int scopeDepth_ = 0;
    bool flushPending_ = false;
    // Handles are small integers counting up from 1, far below the roots' values.
    std::unordered_map<HKEY, std::int64_t> handles_;
    HKEY nextHandle_ = 1;
    EnumCursor keyCursor_;
    EnumCursor valueCursor_;
};

int Exec(sqlite3* db, const char* sql)
{
    return sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
}

int QueryInt(sqlite3* db, const char* sql, std::int64_t* value)
{
    sqlite3_stmt* stmt = nullptr;
    int rc = sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr);
    if (rc == SQLITE_OK) {
        rc = sqlite3_step(stmt);
        if (rc == SQLITE_ROW) {
            *value = sqlite3_column_int64(stmt, 0);
            rc = SQLITE_OK;
        }
    }
    sqlite3_finalize(stmt);
    return rc;
}

// Puts the database into WAL mode, which needs the file to itself for a
// moment.  When several processes open a new file at once, each may hold the
// shared lock the others wait on; SQLite then answers SQLITE_BUSY at once
// rather than calling the busy handler (that wait could never end), so the
// switch is tried again, the others' locks being gone by then, for as long as
// any other wait for the store.
int SwitchToWal(sqlite3* db)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kBusyTimeoutMs);
    for (;;) {
        int rc = Exec(db, "PRAGMA journal_mode = WAL");
        if ((rc & 0xFF) != SQLITE_BUSY || std::chrono::steady_clock::now() >= deadline)
            return rc;
        std::this_thread::sleep_for(std::chrono::milliseconds(kJournalRetryMs));
    }
}

// Damage SQLite would not report: a write-ahead log whose header is not one
// (SQLite would take it for an empty log and throw away what it held), a file
// shorter than any database, and a store emptied to nothing while a last-good
// copy shows it had contents.
RegStatus CheckStoreFiles(const std::string& path)
{
    std::error_code error;
    const std::uintmax_t storeSize = std::filesystem::file_size(path, error);
    if (!error && storeSize > 0 && storeSize < kSmallestDatabase)
        return ERROR_BADDB; // SQLite would take it for a new, empty database
    if (!error && storeSize == 0 && std::filesystem::exists(LastGoodCopyPath(path), error))
        return ERROR_BADDB;
    std::FILE* log = std::fopen((path + "-wal").c_str(), "rb");
    if (!log)
        return ERROR_SUCCESS;
    std::array<unsigned char, kWalHeaderSize> header{};
    const std::size_t read = std::fread(header.data(), 1, header.size(), log);
    std::fclose(log);
    if (read < header.size())
        return ERROR_SUCCESS; // a log being started, or one cut before its first frame
    const std::uint32_t magic = std::uint32_t(header[0]) << 24 | std::uint32_t(header[1]) << 16 |
                                std::uint32_t(header[2]) << 8 | header[3];
    return (magic & ~1u) == kWalMagic ? ERROR_SUCCESS : ERROR_BADDB;
}

// Creates the schema in an empty database, or checks that a filled one is a
// registry of this version.  Runs inside BEGIN IMMEDIATE so that two processes
// opening a new store at once create it only once.
RegStatus EnsureSchema(sqlite3* db)
{
    std::int64_t version = 0;
    std::int64_t objects = 0;
    if (int rc = QueryInt(db, "PRAGMA user_version", &version); rc != SQLITE_OK)
        return StatusOf(rc);
    if (version == kSchemaVersion)
        return ERROR_SUCCESS;
    if (version != 0)
        return ERROR_NOT_REGISTRY_FILE;
    if (int rc = QueryInt(db, "SELECT count(*) FROM sqlite_master", &objects); rc != SQLITE_OK)
        return StatusOf(rc);
    if (objects != 0)
        return ERROR_NOT_REGISTRY_FILE;
    if (int rc = Exec(db, kSchemaSql); rc != SQLITE_OK)
        return StatusOf(rc);
    for (const RootKey& root : kRootKeys) {
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(db, "INSERT INTO keys(id, parent, name, folded) VALUES(?1, NULL, ?2, ?2)", -1,
                           &insert, nullptr);
        sqlite3_bind_int64(insert, 1, root.id);
        BindText(insert, 2, root.name);
        int rc = sqlite3_step(insert);
        sqlite3_finalize(insert);
        if (rc != SQLITE_DONE)
            return StatusOf(rc);
    }
    std::string setVersion = "PRAGMA user_version = " + std::to_string(kSchemaVersion);
    return StatusOf(Exec(db, setVersion.c_str()));
}

} // namespace

RegStatus CheckSqliteConsistency(sqlite3* db)
{
    sqlite3_stmt* check = nullptr;
    int rc = sqlite3_prepare_v2(db, "PRAGMA quick_check(1)", -1, &check, nullptr);
    if (rc == SQLITE_OK)
        rc = sqlite3_step(check);
    RegStatus status = StatusOf(rc);
    if (rc == SQLITE_ROW) {
        auto text = reinterpret_cast<const char*>(sqlite3_column_text(check, 0));
        status = text && std::strcmp(text, "ok") == 0 ? ERROR_SUCCESS : ERROR_BADDB;
    }
    sqlite3_finalize(check);
    return status;
}

std::unique_ptr<Registry> OpenSqliteRegistry(const std::string& path, RegStatus* status, int* systemError)
{
    RegStatus ignored = ERROR_SUCCESS;
    RegStatus& result = status ? *status : ignored;
    int ignoredErrno = 0;
    int& osError = systemError ? *systemError : ignoredErrno;
    osError = 0;
    std::error_code error;
    std::filesystem::path folder = std::filesystem::path(path).parent_path();
    if (!folder.empty())
        std::filesystem::create_directories(folder, error);
    // Checked before SQLite sees the files: opening would reset a garbage log.
    if ((result = CheckStoreFiles(path)) != ERROR_SUCCESS)
        return nullptr;
    // Looked at before SQLite opens the store and starts its log.
    const bool stampedSound = IsStampedSound(path);

    sqlite3* db = nullptr;
    int rc = sqlite3_open_v2(path.c_str(), &db,
                             SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc != SQLITE_OK) {
        osError = db ? sqlite3_system_errno(db) : 0;
        sqlite3_close_v2(db);
        result = rc == SQLITE_CANTOPEN ? ERROR_ACCESS_DENIED : StatusOf(rc);
        return nullptr;
    }
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    auto registry = std::make_unique<SqliteRegistry>(db);
    // Whatever fails below, the errno of it (a full disk, a permission) is kept.
    struct KeepErrno {
        sqlite3* db;
        const RegStatus& result;
        int& osError;
        ~KeepErrno()
        {
            if (result != ERROR_SUCCESS)
                osError = sqlite3_system_errno(db);
        }
    } keepErrno{db, result, osError};
    // Garbage in the file shows up here as SQLITE_NOTADB, a damaged page
    // (a cut file, a torn write) as a failed check; both before anything is
    // written, so a damaged store is left as it was.
    if (stampedSound) {
        Trace("The settings store is unchanged since it was found sound; not read whole.");
    } else if ((result = CheckSqliteConsistency(db)) != ERROR_SUCCESS) {
        return nullptr;
    }
    rc = SwitchToWal(db);
    if (rc == SQLITE_OK)
        rc = Exec(db, "PRAGMA synchronous = NORMAL");
    if (rc != SQLITE_OK) {
        result = StatusOf(rc);
        return nullptr;
    }
    if ((rc = Exec(db, "BEGIN IMMEDIATE")) != SQLITE_OK) {
        result = StatusOf(rc);
        return nullptr;
    }
    result = EnsureSchema(db);
    if (result != ERROR_SUCCESS) {
        Exec(db, "ROLLBACK");
        return nullptr;
    }
    if ((rc = Exec(db, "COMMIT")) != SQLITE_OK) {
        result = StatusOf(rc);
        return nullptr;
    }
    if ((result = registry->Prepare()) != ERROR_SUCCESS)
        return nullptr;
    return registry;
}

} // namespace talvo
