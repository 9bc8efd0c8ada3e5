#pragma once
// The input of a sync command as the desktop leaves it in "_DataIn": bytes of
// any length, meant as UTF-16 text with its terminator.  Reading it is a pure
// function of the bytes, shared by the commands and the fuzzer.
#include <QByteArray>
#include <QString>
#include <cstdint>
#include <optional>
#include <vector>

namespace talvo {

// The path a path-taking command was given; an empty text counts as none.
std::optional<QString> SyncPathFromInput(const std::optional<std::vector<std::uint8_t>>& input);

// The add command's bytes as they go to the running player, with a terminator
// after the last whole UTF-16 unit when they had none.
QByteArray AddProgramPayload(const std::vector<std::uint8_t>& input);

} // namespace talvo
