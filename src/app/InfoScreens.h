#pragma once
// The three screens of the shell beside the player itself: About, the help
// page and the welcome screen of the first run.  Each is modal, opened on the
// UI thread, and changes no playback state.
#include <QString>

class QDialog;
class QWidget;

namespace talvo {

// The help page beside the program.
inline constexpr char kHelpPageName[] = "TalvoPlayerHlp.htm";
// The welcome screen's texts beside the program: section Welcome, keys Title and Text.
inline constexpr char kWelcomeIniName[] = "zqserver.ini";

void ShowAbout(QWidget* parent);
// Shows the help page of programFolder; a page that cannot be read is said so.
void ShowHelp(const QString& programFolder, QWidget* parent);
// The welcome texts from programFolder's welcome file, or the built-in ones;
// opened without waiting for it to close.  Deletes itself when closed.
QDialog* ShowWelcome(const QString& programFolder, QWidget* parent);

} // namespace talvo
