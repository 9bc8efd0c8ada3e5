#pragma once
// The contract between the bookmark saver process and the test that kills it:
// what the list saved in generation g holds, so that a list read back after a
// kill can be told apart as one whole generation or a mix.
#include "playback/ProgramFile.h"

#include <QString>
#include <optional>
#include <vector>

namespace talvo::test {

// Many bookmarks, so that a save takes long enough to be killed inside it.
inline constexpr std::uint32_t kSaverBookmarks = 300;

inline std::vector<Bookmark> SaverBookmarks(std::uint32_t generation)
{
    std::vector<Bookmark> list;
    for (std::uint32_t i = 0; i < kSaverBookmarks; ++i) {
        list.push_back({QStringLiteral("Generation %1, mark %2").arg(generation).arg(i).toStdU16String(),
                        generation * 7 + i * 1000});
    }
    return list;
}

// The generation a whole list was saved in, or none when it is not exactly one.
inline std::optional<std::uint32_t> SaverGeneration(const std::vector<Bookmark>& list)
{
    if (list.empty())
        return std::nullopt;
    const QString first = QString::fromStdU16String(list.front().name);
    bool ok = false;
    const std::uint32_t generation = first.section(QLatin1Char(' '), 1, 1).chopped(1).toUInt(&ok);
    if (!ok || list != SaverBookmarks(generation))
        return std::nullopt;
    return generation;
}

} // namespace talvo::test
