#include "ListenedCheck.h"

#include "library/ProgramStateStore.h"
#include "playback/ProgramFile.h"

#include <algorithm>

namespace feldrun {

namespace {

// Whether the player's stored position for the program at path is its end;
// the key and the length come from the program itself, as the player reads
// them, so a program of any file type is judged under the right record.
bool EndReached(talvo::Registry& registry, const QString& path)
{
    talvo::ProgramFile program(path);
    if (program.ReadMetadata() != ZQX_OK || program.durationMs == 0)
        return false;
    talvo::DWORD storedMs = 0;
    if (!talvo::ProgramStateStore(registry).ReadPlayPosition(program.Key(), &storedMs))
        return false;
    // Stored positions count from the start of the whole program.
    const std::uint64_t endMs = std::uint64_t(program.GetTimeSpanStart()) + program.durationMs;
    // A program shorter than a few margins needs more of it heard.
    const std::uint32_t margin = std::min(kEndReachedMarginMs, program.durationMs / kShortProgramMargins);
    return std::uint64_t(storedMs) + margin >= endMs;
}

} // namespace

int MarkListened(talvo::Registry& registry, Subscription& subscription)
{
    int marked = 0;
    for (EpisodeRecord& e : subscription.episodes) {
        if (e.state == EpisodeState::Ready && !e.programPath.isEmpty() &&
            EndReached(registry, e.programPath)) {
            e.state = EpisodeState::Listened;
            ++marked;
        }
    }
    return marked;
}

} // namespace feldrun
