// Registry store throughput beside bare SQLite on the same database file.
//
// A store write is what a settings setter does: open the key, set a REG_DWORD
// and a REG_SZ value, close.  A store read is what a getter does: open, query
// both (the string with the two-call size protocol), close.  The baseline does
// the equivalent work with bare prepared statements: two single-row upserts in
// their own transactions, or two single-row selects.  The ratio is the cost of
// the store's paths, case folding, handle table and key checks.
#include "platform/Registry.h"

#include <QTemporaryDir>
#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>

using namespace talvo;

namespace {

constexpr int kRounds = 10;
constexpr int kPerRound = 2000;
constexpr int kOperations = kRounds * kPerRound;
// Values cycle through this many names, as a settings key holds a few dozen.
constexpr int kNames = 50;

// Seconds spent on operations first..first+count-1.
double Seconds(int first, int count, const std::function<bool(int)>& operation)
{
    auto start = std::chrono::steady_clock::now();
    for (int i = first; i < first + count; ++i) {
        if (!operation(i)) {
            std::fprintf(stderr, "operation %d failed\n", i);
            std::exit(1);
        }
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Store and baseline take turns in short rounds, so that a change in the
// machine's load during the run weighs on both figures alike.
void Compare(const char* what, const std::function<bool(int)>& store, const std::function<bool(int)>& bare)
{
    double storeSeconds = 0;
    double bareSeconds = 0;
    for (int round = 0; round < kRounds; ++round) {
        bareSeconds += Seconds(round * kPerRound, kPerRound, bare);
        storeSeconds += Seconds(round * kPerRound, kPerRound, store);
    }
    double storeRate = kOperations / storeSeconds;
    double bareRate = kOperations / bareSeconds;
    std::printf("%-7s store %10.0f ops/s   bare SQLite %10.0f ops/s   store/bare %.3f\n", what, storeRate,
                bareRate, storeRate / bareRate);
}

std::u16string Name(const char16_t* prefix, int i)
{
    std::string digits = std::to_string(i % kNames);
    return prefix + std::u16string(digits.begin(), digits.end());
}

// The baseline: its own connection to the store's file, set up as the store sets itself up.
class BareSqlite {
public:
    explicit BareSqlite(const std::string& path)
    {
        sqlite3_open(path.c_str(), &db_);
        sqlite3_busy_timeout(db_, 10000);
        sqlite3_exec(
            db_,
            "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
            "CREATE TABLE IF NOT EXISTS bench_baseline(name TEXT PRIMARY KEY, type INTEGER, data BLOB)",
            nullptr, nullptr, nullptr);
        sqlite3_prepare_v2(db_,
                           "INSERT INTO bench_baseline VALUES(?1, ?2, ?3) ON CONFLICT(name) DO UPDATE SET "
                           "type = excluded.type, data = excluded.data",
                           -1, &insert_, nullptr);
        sqlite3_prepare_v2(db_, "SELECT type, data FROM bench_baseline WHERE name = ?1", -1, &select_,
                           nullptr);
    }
    ~BareSqlite()
    {
        sqlite3_finalize(insert_);
        sqlite3_finalize(select_);
        sqlite3_close(db_);
    }
    bool Write(const std::u16string& name, DWORD type, const std::vector<std::uint8_t>& data)
    {
        sqlite3_reset(insert_);
        sqlite3_bind_text16(insert_, 1, name.data(), int(name.size() * 2), SQLITE_STATIC);
        sqlite3_bind_int64(insert_, 2, type);
        sqlite3_bind_blob(insert_, 3, data.data(), int(data.size()), SQLITE_STATIC);
        return sqlite3_step(insert_) == SQLITE_DONE;
    }
    bool Read(const std::u16string& name, std::vector<std::uint8_t>* data)
    {
        sqlite3_reset(select_);
        sqlite3_bind_text16(select_, 1, name.data(), int(name.size() * 2), SQLITE_STATIC);
        if (sqlite3_step(select_) != SQLITE_ROW)
            return false;
        auto bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(select_, 1));
        data->assign(bytes, bytes + sqlite3_column_bytes(select_, 1));
        sqlite3_reset(select_);
        return true;
    }

private:
    sqlite3* db_ = nullptr;
    sqlite3_stmt* insert_ = nullptr;
    sqlite3_stmt* select_ = nullptr;
};

} // namespace

int main()
{
    QTemporaryDir dir;
    const std::string path = dir.filePath(QStringLiteral("registry.db")).toStdString();
    RegStatus status = ERROR_SUCCESS;
    auto registry = OpenSqliteRegistry(path, &status);
    if (!registry) {
        std::fprintf(stderr, "cannot open the store: %d\n", int(status));
        return 1;
    }
    BareSqlite bare(path);
    const std::u16string keyPath = u"Software\\Talvo\\Bench";
    const std::vector<std::uint8_t> text = RegSzBytes(u"\\Storage Card\\Programs\\A long program title.zq");

    auto storeWrite = [&](int i) {
        HKEY key = 0;
        DWORD value = DWORD(i);
        bool ok = registry->CreateKey(HKEY_LOCAL_MACHINE, keyPath, KEY_ALL_ACCESS, &key) == ERROR_SUCCESS &&
                  registry->SetValue(key, Name(u"Number ", i), REG_DWORD,
                                     reinterpret_cast<std::uint8_t*>(&value), 4) == ERROR_SUCCESS &&
                  registry->SetValue(key, Name(u"Text ", i), REG_SZ, text.data(), DWORD(text.size())) ==
                      ERROR_SUCCESS;
        registry->CloseKey(key);
        return ok;
    };
    auto bareWrite = [&](int i) {
        DWORD value = DWORD(i);
        std::vector<std::uint8_t> number(reinterpret_cast<std::uint8_t*>(&value),
                                         reinterpret_cast<std::uint8_t*>(&value) + 4);
        return bare.Write(Name(u"Number ", i), REG_DWORD, number) &&
               bare.Write(Name(u"Text ", i), REG_SZ, text);
    };
    auto storeRead = [&](int i) {
        HKEY key = 0;
        if (registry->OpenKey(HKEY_LOCAL_MACHINE, keyPath, KEY_READ, &key) != ERROR_SUCCESS)
            return false;
        DWORD type = 0;
        DWORD number = 0;
        DWORD size = sizeof number;
        bool ok = registry->QueryValue(key, Name(u"Number ", i), &type,
                                       reinterpret_cast<std::uint8_t*>(&number), &size) == ERROR_SUCCESS;
        std::vector<std::uint8_t> data;
        size = 0;
        ok = ok && registry->QueryValue(key, Name(u"Text ", i), &type, nullptr, &size) == ERROR_SUCCESS;
        data.resize(size);
        ok = ok && registry->QueryValue(key, Name(u"Text ", i), &type, data.data(), &size) == ERROR_SUCCESS;
        registry->CloseKey(key);
        return ok;
    };
    auto bareRead = [&](int i) {
        std::vector<std::uint8_t> data;
        return bare.Read(Name(u"Number ", i), &data) && bare.Read(Name(u"Text ", i), &data);
    };

    // A first pass creates every row, so the measured passes replace and read
    // rows that exist, as a running player does.
    Seconds(0, kNames, storeWrite);
    Seconds(0, kNames, bareWrite);
    std::printf("registry store vs bare SQLite, %d operations each (one operation = open key, "
                "DWORD + REG_SZ value, close)\n",
                kOperations);
    Compare("writes", storeWrite, bareWrite);
    Compare("reads", storeRead, bareRead);
    return 0;
}
