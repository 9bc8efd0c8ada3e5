// Fuzz target over `talvoreg import`: a .reg file (UTF-16LE or UTF-8) parsed
// and, when it parses, applied to a temporary registry store.  What was
// imported must export to a file that imports again and exports the same, so
// an import never leaves the store in a state its own export cannot carry.

#include "RegFile.h"

#include <QString>
#include <array>
#include <cstdint>
#include <unistd.h>

namespace {

using namespace talvo;
using namespace talvo::reg;

constexpr std::array<HKEY, 2> kRoots{HKEY_LOCAL_MACHINE, HKEY_CLASSES_ROOT};

Registry& Store()
{
    static const std::unique_ptr<Registry> store = [] {
        const char* base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        const std::string path = std::string(base) + "/regfile-fuzz-" + std::to_string(getpid()) + ".db";
        unlink(path.c_str());
        std::unique_ptr<Registry> opened = OpenSqliteRegistry(path);
        if (!opened)
            __builtin_trap();
        return opened;
    }();
    return *store;
}

void Empty(Registry& registry)
{
    for (HKEY root : kRoots) {
        std::u16string name;
        while (registry.EnumKey(root, 0, &name) == ERROR_SUCCESS) {
            if (registry.DeleteKey(root, name) != ERROR_SUCCESS)
                __builtin_trap();
        }
    }
}

// The whole store as export files, one per root.
std::array<QByteArray, kRoots.size()> ExportAll(Registry& registry)
{
    std::array<QByteArray, kRoots.size()> files;
    for (std::size_t i = 0; i < kRoots.size(); ++i)
        ExportKeys(registry, KeyPath{kRoots[i], {}}, &files[i]);
    return files;
}

void Import(Registry& registry, const QByteArray& file)
{
    std::vector<RegFileOperation> operations;
    QString error;
    if (!ParseRegFile(file, &operations, &error) || ApplyOperations(registry, operations) != ERROR_SUCCESS)
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray file(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    std::vector<RegFileOperation> operations;
    QString error;
    if (!ParseRegFile(file, &operations, &error)) {
        if (!error.startsWith(QLatin1String("line ")))
            __builtin_trap();
        return 0;
    }
    Registry& registry = Store();
    if (ApplyOperations(registry, operations) == ERROR_SUCCESS) {
        const auto exported = ExportAll(registry);
        Empty(registry);
        for (const QByteArray& part : exported) {
            if (!part.isEmpty())
                Import(registry, part);
        }
        if (ExportAll(registry) != exported)
            __builtin_trap();
    }
    Empty(registry);
    return 0;
}
