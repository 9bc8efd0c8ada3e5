#pragma once
// Deleting program files from storage.  The library's own part (finding the
// entry and removing it) is ProgramLibrary::DeleteProgram.
#include <QString>

namespace talvo {

// The SDK's position side file of a program: every ".zq" replaced by ".pos",
// then every ".zqx" by ".pos".  In that order a ".zqx" program's side file ends
// in ".posx", which is the name the SDK has always used for it.
QString PositionSideFilePath(const QString& programPath);

// Deletes one file.  On failure shows "Failed to delete program file %s. %s."
// with the path and the system's text for the error, as an error box, and
// returns false.  A folder is not deleted (it counts as a failure).
bool DeleteFileReporting(const QString& path);

} // namespace talvo
