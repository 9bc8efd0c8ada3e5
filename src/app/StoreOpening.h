#pragma once
// The settings store at the player's start and at its clean exit: a damaged
// store is recovered and the listener told once what was done; any other
// failure is told in plain words and the player does not start.
#include "platform/Registry.h"

#include <QString>
#include <chrono>
#include <memory>
#include <optional>

namespace talvo {

// Opens the store at path, recovering it when it is damaged, and refreshes
// its last-good copy when that is older than a day.  Null after a box has
// said why the store cannot be used: the player then exits with 1.
std::unique_ptr<Registry> OpenSettingsStore(const std::string& path);

// Writes the last-good copy of the store (with maxAge: only when the one
// there is older); a failure is told in a box, the earlier copy being kept.
void KeepLastGoodCopy(const std::string& path, std::optional<std::chrono::seconds> maxAge);

// Tells the listener that a program's place and bookmarks could not be saved
// (a full disk), and why.
void TellProgramStateNotSaved(const QString& title, RegStatus status, int systemError);

// "40 minutes", "5 hours", "3 days": how old a copy is, in the unit a
// listener would use.
QString AgeText(std::chrono::seconds age);

} // namespace talvo
