#pragma once
// Automatic updates through a systemd user timer: `feldrun --install-timer`
// writes a service that runs `feldrun update` and a timer that starts it, and
// asks the user's service manager to start the timer; `--remove-timer` takes
// both away again.  Nothing is installed unless the listener asks.

#include <QString>
#include <QStringList>

#include <optional>
#include <string>
#include <vector>

namespace feldrun {

inline constexpr char kTimerUnitName[] = "feldrun-update.timer";
inline constexpr char kServiceUnitName[] = "feldrun-update.service";

// The timer's OnCalendar= for "daily", "weekly" or a time of day "HH:MM"
// (24-hour); none for anything else.
std::optional<QString> CalendarFor(const QString& schedule);

// The service's text: runs `feldrunPath update`, with environment lines
// ("NAME=value") that keep it on the listener's Music folder and store.
QString ServiceUnitText(const QString& feldrunPath, const QStringList& environment);
QString TimerUnitText(const QString& calendar, const QString& schedule);

// $XDG_CONFIG_HOME/systemd/user (an absolute XDG_CONFIG_HOME only), else
// ~/.config/systemd/user.
QString UserUnitFolder();

// `feldrun --install-timer [SCHEDULE]` and `feldrun --remove-timer`; the
// process exit status.
int RunInstallTimerCommand(const std::vector<std::string>& args, const std::string& playerPath);
int RunRemoveTimerCommand(const std::vector<std::string>& args, const std::string& playerPath);

} // namespace feldrun
