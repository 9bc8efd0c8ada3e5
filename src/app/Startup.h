#pragma once
#include <QStringList>

namespace talvo {

// The whole start-up: file association, the command line, handing a file to a
// running player or running the main window.  Returns the exit code.
int RunPlayer(const QStringList& arguments);

} // namespace talvo
