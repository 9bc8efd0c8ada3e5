// Opening a listener's settings store: 3,000 programs with a position and ten
// named bookmarks each (about 9 MB).  An open that checks every page, as after
// a killed player or a sync command's write, and an open of a store found
// sound at the last clean exit and untouched since, each beside a bare
// SQLite open of the same file that reads one row.  Their ratio is what the
// store's checks cost at each start.
#include "platform/Registry.h"
#include "platform/RegistryRecovery.h"
#include "platform/RegistryTransaction.h"

#include <QString>
#include <QTemporaryDir>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <vector>

using namespace talvo;

namespace {

constexpr int kPrograms = 3000;
constexpr int kBookmarks = 10;
constexpr int kOpens = 15; // per kind; the median is reported

bool SetDword(Registry& registry, HKEY key, std::u16string_view name, DWORD value)
{
    return registry.SetValue(key, name, REG_DWORD, reinterpret_cast<const std::uint8_t*>(&value), 4) ==
           ERROR_SUCCESS;
}

bool FillLikeAListener(Registry& registry)
{
    RegistryTransaction transaction(registry);
    for (int p = 0; p < kPrograms; ++p) {
        const std::u16string program =
            u"SOFTWARE\\Talvo\\AudioData\\program_" + QString::number(p).toStdU16String() + u"_zqx";
        HKEY key = 0;
        if (registry.CreateKey(HKEY_LOCAL_MACHINE, program, 0, &key) != ERROR_SUCCESS ||
            !SetDword(registry, key, u"play_pos", DWORD(p) * 7919))
            return false;
        registry.CloseKey(key);
        for (int b = 0; b < kBookmarks; ++b) {
            const std::u16string mark =
                program + u"\\Bookmarks\\Bookmark" + QString::number(b).toStdU16String();
            const std::vector<std::uint8_t> name =
                RegSzBytes(QStringLiteral("Chapter %1 of program %2").arg(b).arg(p).toStdU16String());
            if (registry.CreateKey(HKEY_LOCAL_MACHINE, mark, 0, &key) != ERROR_SUCCESS ||
                registry.SetValue(key, u"Name", REG_SZ, name.data(), DWORD(name.size())) != ERROR_SUCCESS ||
                !SetDword(registry, key, u"Time Offset", DWORD(b) * 60000))
                return false;
            registry.CloseKey(key);
        }
    }
    return transaction.Commit() == ERROR_SUCCESS;
}

double MedianMs(const std::function<bool()>& open)
{
    std::vector<double> times;
    for (int i = 0; i < kOpens; ++i) {
        const auto start = std::chrono::steady_clock::now();
        if (!open()) {
            std::fprintf(stderr, "store_open_bench: an open failed\n");
            std::exit(1);
        }
        times.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

} // namespace

int main()
{
    QTemporaryDir dir;
    const std::string path = dir.filePath(QStringLiteral("registry.db")).toStdString();
    {
        auto registry = OpenSqliteRegistry(path);
        if (!registry || !FillLikeAListener(*registry)) {
            std::fprintf(stderr, "store_open_bench: cannot fill the store\n");
            return 1;
        }
    }
    const std::string stamp = path + ".checked";
    auto bare = [&] {
        sqlite3* db = nullptr;
        sqlite3_stmt* row = nullptr;
        bool ok = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
                  sqlite3_prepare_v2(db, "SELECT id FROM keys LIMIT 1", -1, &row, nullptr) == SQLITE_OK &&
                  sqlite3_step(row) == SQLITE_ROW;
        sqlite3_finalize(row);
        sqlite3_close(db);
        return ok;
    };
    auto checked = [&] {
        std::filesystem::remove(stamp);
        return OpenSqliteRegistry(path) != nullptr;
    };
    auto stamped = [&] {
        return OpenSqliteRegistry(path) != nullptr;
    };

    const double bareMs = MedianMs(bare);
    const double checkedMs = MedianMs(checked);
    if (SaveLastGoodCopy(path, std::nullopt) != ERROR_SUCCESS || !std::filesystem::exists(stamp)) {
        std::fprintf(stderr, "store_open_bench: the clean exit's copy left no stamp\n");
        return 1;
    }
    const double stampedMs = MedianMs(stamped);
    std::printf("Opening a store of %d programs with %d bookmarks each (%.1f MB), median of %d:\n", kPrograms,
                kBookmarks, double(std::filesystem::file_size(path)) / 1e6, kOpens);
    std::printf("  bare SQLite open and one row   %7.2f ms\n", bareMs);
    std::printf("  checked whole                  %7.2f ms   %.2fx bare\n", checkedMs, checkedMs / bareMs);
    std::printf("  found sound at the last exit   %7.2f ms   %.2fx bare\n", stampedMs, stampedMs / bareMs);
    return 0;
}
