// A process that writes to the registry for the multi-process tests.
//   registry_writer DB count ID N   writes N REG_DWORD values "ID-i" = i
//   registry_writer DB generations  rewrites the generation values for ever,
//                                   and a small key tree every few generations
//   registry_writer DB first-open ID GATE
//                                   prints "waiting", waits for a shared lock
//                                   on the file GATE, whose exclusive lock the
//                                   test lets go to start them all at once,
//                                   then opens the store and writes the
//                                   REG_DWORD "ID-0" = 0
// It prints "ready" once the store is open, and exits 1 on any failure.
#include "RegistryWriter.h"
#include "platform/Registry.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using namespace talvo;
using namespace talvo::test;

namespace {

std::u16string Widen(const std::string& text)
{
    return std::u16string(text.begin(), text.end());
}

int Fail(const char* what, RegStatus status)
{
    std::fprintf(stderr, "%s failed with %d\n", what, int(status));
    return 1;
}

int WriteCount(Registry& registry, const std::string& id, int count)
{
    for (int i = 0; i < count; ++i) {
        // Open, write, close, as the player's settings setters do.
        HKEY key = 0;
        if (RegStatus status = registry.CreateKey(HKEY_LOCAL_MACHINE, kWriterKey, KEY_ALL_ACCESS, &key))
            return Fail("CreateKey", status);
        DWORD value = DWORD(i);
        std::u16string name = Widen(id + "-" + std::to_string(i));
        if (RegStatus status =
                registry.SetValue(key, name, REG_DWORD, reinterpret_cast<std::uint8_t*>(&value), 4))
            return Fail("SetValue", status);
        registry.CloseKey(key);
    }
    return 0;
}

int WriteGenerations(Registry& registry)
{
    HKEY key = 0;
    if (RegStatus status = registry.CreateKey(HKEY_LOCAL_MACHINE, kWriterKey, KEY_ALL_ACCESS, &key))
        return Fail("CreateKey", status);
    std::uint32_t generation = 0;
    std::vector<std::uint8_t> first(8192);
    DWORD size = DWORD(first.size());
    if (registry.QueryValue(key, u"v0", nullptr, first.data(), &size) == ERROR_SUCCESS) {
        first.resize(size);
        generation = PayloadGeneration(first, 0).value_or(0);
    }
    // The first round rewrites the generation v0 already holds, finishing a
    // round that a kill cut short, so that no two values ever differ by more
    // than one generation.
    for (;; ++generation) {
        for (int index = 0; index < kGenerationValues; ++index) {
            std::vector<std::uint8_t> payload = GenerationPayload(generation, std::uint32_t(index));
            std::u16string name = u"v" + Widen(std::to_string(index));
            if (RegStatus status =
                    registry.SetValue(key, name, REG_BINARY, payload.data(), DWORD(payload.size())))
                return Fail("SetValue", status);
        }
        if (generation % 4 == 0) {
            RegStatus status = registry.DeleteKey(key, u"Tree");
            if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND)
                return Fail("DeleteKey", status);
            HKEY leaf = 0;
            if ((status = registry.CreateKey(key, u"Tree\\A\\B", KEY_ALL_ACCESS, &leaf)))
                return Fail("CreateKey", status);
            std::vector<std::uint8_t> payload = GenerationPayload(generation, 99);
            if ((status =
                     registry.SetValue(leaf, u"leaf", REG_BINARY, payload.data(), DWORD(payload.size()))))
                return Fail("SetValue", status);
            registry.CloseKey(leaf);
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3)
        return 2;
    std::string mode = argv[2];
    if (mode == "first-open" && argc == 5) {
        int gate = open(argv[4], O_RDONLY | O_CLOEXEC);
        std::printf("waiting\n");
        std::fflush(stdout);
        if (gate < 0 || flock(gate, LOCK_SH) != 0)
            return Fail("flock", ERROR_ACCESS_DENIED);
    }
    RegStatus status = ERROR_SUCCESS;
    auto registry = OpenSqliteRegistry(argv[1], &status);
    if (!registry)
        return Fail("OpenSqliteRegistry", status);
    std::printf("ready\n");
    std::fflush(stdout);
    if (mode == "count" && argc == 5)
        return WriteCount(*registry, argv[3], std::atoi(argv[4]));
    if (mode == "first-open" && argc == 5)
        return WriteCount(*registry, argv[3], 1);
    if (mode == "generations")
        return WriteGenerations(*registry);
    return 2;
}
