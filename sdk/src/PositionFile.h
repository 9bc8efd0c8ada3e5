#pragma once
// The ".pos" side file: the SDK's own copy of a program's read position,
// written atomically and checked on load.

#include <cstdint>
#include <optional>
#include <string>

namespace zqx {

// Every ".zq" becomes ".pos", then every ".zqx" becomes ".pos" - in that order,
// so "book.zqx" keeps a side file "book.posx", the name deletion looks for.
std::string SideFilePath(const std::string& programPath);

int SavePosition(const std::string& programPath, uint32_t positionMs);
// Nothing when the side file is missing, unreadable or damaged.
std::optional<uint32_t> LoadPosition(const std::string& programPath);

} // namespace zqx
