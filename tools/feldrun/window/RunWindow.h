#pragma once

namespace feldrun {

// `feldrun` with no command (and the player's Feldrun command): the window,
// one per listener; a second start brings the first one's window forward.
// Returns the process exit status.
int RunWindow(int& argc, char** argv);

// The name the running window listens under for a second start.
inline constexpr char kWindowInstanceName[] = "FeldrunWindow";

} // namespace feldrun
