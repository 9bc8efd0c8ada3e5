// A process that saves one program's state again and again, for the test that
// kills it in the middle of a save.
//   bookmark_saver DB PROGRAM FIRST
// Saves the bookmark lists of generations FIRST, FIRST + 1, ... for ever.  It
// prints "ready" once the program is read, and exits 1 on any failure.
#include "BookmarkSaver.h"
#include "library/ProgramStateStore.h"
#include "platform/Registry.h"

#include <cstdio>

using namespace talvo;
using namespace talvo::test;

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    RegStatus status = ERROR_SUCCESS;
    auto registry = OpenSqliteRegistry(argv[1], &status);
    if (!registry) {
        std::fprintf(stderr, "OpenSqliteRegistry failed with %d\n", int(status));
        return 1;
    }
    ProgramStateStore store(*registry);
    ProgramFile entry(QString::fromLocal8Bit(argv[2]));
    if (entry.ReadMetadata() != ZQX_OK) {
        std::fprintf(stderr, "cannot read %s\n", argv[2]);
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    for (std::uint32_t generation = QByteArray(argv[3]).toUInt();; ++generation) {
        entry.bookmarks = SaverBookmarks(generation);
        if (!store.SaveProgramState(entry)) {
            std::fprintf(stderr, "SaveProgramState failed in generation %u\n", generation);
            return 1;
        }
    }
}
