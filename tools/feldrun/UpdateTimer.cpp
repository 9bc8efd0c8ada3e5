#include "UpdateTimer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSaveFile>

#include <cstdio>

namespace feldrun {
namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
// daemon-reload and enable answer at once when a user manager runs; without
// one, systemctl gives up on the bus well before this.
constexpr int kSystemctlTimeoutMs = 30000;

// What the timer keeps of the environment it was installed from, so that
// updates go to the Music folder and store the listener uses.
constexpr const char* kKeptVariables[] = {"TALVOPLAYER_MUSIC", "TALVOPLAYER_REGISTRY", "XDG_MUSIC_DIR"};

const char* const kInstallUsage =
    "usage: feldrun --install-timer [daily|weekly|HH:MM]\n"
    "       feldrun --remove-timer\n"
    "\n"
    "Installs (or removes) a systemd user timer that runs `feldrun update` daily (the\n"
    "default), weekly, or every day at the time given (24-hour HH:MM).\n";

struct SystemctlRun {
    bool started = false;
    int exitCode = -1;
    QString output;
};

SystemctlRun RunSystemctl(const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("systemctl"), QStringList{QStringLiteral("--user")} + arguments);
    SystemctlRun run;
    run.started = process.waitForStarted();
    if (!run.started)
        return run;
    if (!process.waitForFinished(kSystemctlTimeoutMs)) {
        process.kill();
        process.waitForFinished();
        run.output = QStringLiteral("no answer within %1 seconds").arg(kSystemctlTimeoutMs / 1000);
        return run;
    }
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.output = QString::fromLocal8Bit(process.readAll()).trimmed();
    return run;
}

// Why systemctl --user could not do what was asked, or nothing when it did.
std::optional<QString> FailureOf(const QStringList& arguments)
{
    const SystemctlRun run = RunSystemctl(arguments);
    const QString command = QStringLiteral("systemctl --user ") + arguments.join(QLatin1Char(' '));
    if (!run.started)
        return QStringLiteral("there is no systemctl on this system (%1 could not be started)").arg(command);
    if (run.exitCode != 0)
        return QStringLiteral("there is no user systemd to run the timer (%1: %2)")
            .arg(command,
                 run.output.isEmpty() ? QStringLiteral("exit status %1").arg(run.exitCode) : run.output);
    return std::nullopt;
}

// Text as one quoted word of a unit file, the characters systemd reads as
// escapes or specifiers escaped.
QString UnitWord(QString text)
{
    text.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    text.replace(QLatin1Char('"'), QLatin1String("\\\""));
    text.replace(QLatin1Char('%'), QLatin1String("%%"));
    return QLatin1Char('"') + text + QLatin1Char('"');
}

// A command line also expands $NAME, which a path must not start.
QString CommandWord(const QString& path)
{
    return UnitWord(path).replace(QLatin1Char('$'), QLatin1String("$$"));
}

bool WriteUnit(const QString& path, const QString& text, QString& error)
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) >= 0 && file.commit())
        return true;
    error = QStringLiteral("%1 cannot be written: %2").arg(path, file.errorString());
    return false;
}

void RemoveUnits(QDir folder)
{
    folder.remove(QLatin1String(kTimerUnitName));
    folder.remove(QLatin1String(kServiceUnitName));
}

int Fail(const QString& message)
{
    std::fprintf(stderr, "feldrun: %s\n", qPrintable(message));
    return kExitFailed;
}

} // namespace

std::optional<QString> CalendarFor(const QString& schedule)
{
    if (schedule == QLatin1String("daily") || schedule == QLatin1String("weekly"))
        return schedule;
    static const QRegularExpression timeOfDay(QStringLiteral("^([01][0-9]|2[0-3]):([0-5][0-9])$"));
    if (timeOfDay.match(schedule).hasMatch())
        return QStringLiteral("*-*-* %1:00").arg(schedule);
    return std::nullopt;
}

QString ServiceUnitText(const QString& feldrunPath, const QStringList& environment)
{
    QString text = QStringLiteral("[Unit]\n"
                                  "Description=Feldrun: new episodes of the subscribed programmes\n"
                                  "Wants=network-online.target\n"
                                  "After=network-online.target\n"
                                  "\n"
                                  "[Service]\n"
                                  "Type=oneshot\n");
    for (const QString& variable : environment)
        text += QStringLiteral("Environment=%1\n").arg(UnitWord(variable));
    return text + QStringLiteral("ExecStart=%1 update\n").arg(CommandWord(feldrunPath));
}

QString TimerUnitText(const QString& calendar, const QString& schedule)
{
    // A missed run (the machine was off) runs at the next start; the
    // random delay spreads daily and weekly updates over the hour, so that
    // listeners' machines do not all ask a feed's server at midnight.
    const bool atFixedTime = calendar != schedule;
    return QStringLiteral("[Unit]\n"
                          "Description=Feldrun: update the subscriptions (%1)\n"
                          "\n"
                          "[Timer]\n"
                          "OnCalendar=%2\n"
                          "Persistent=true\n"
                          "%3"
                          "\n"
                          "[Install]\n"
                          "WantedBy=timers.target\n")
        .arg(schedule, calendar, atFixedTime ? QString() : QStringLiteral("RandomizedDelaySec=1h\n"));
}

QString UserUnitFolder()
{
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!QDir::isAbsolutePath(config))
        config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/systemd/user");
}

int RunInstallTimerCommand(const std::vector<std::string>& args, const std::string&)
{
    if (args.size() > 1 || (args.size() == 1 && (args[0] == "-h" || args[0] == "--help"))) {
        std::fputs(kInstallUsage, args.size() == 1 ? stdout : stderr);
        return args.size() == 1 ? 0 : kExitUsage;
    }
    const QString schedule = args.empty() ? QStringLiteral("daily") : QString::fromStdString(args[0]);
    const std::optional<QString> calendar = CalendarFor(schedule);
    if (!calendar) {
        std::fprintf(stderr,
                     "feldrun: --install-timer takes daily, weekly or a time of day HH:MM, not '%s'\n",
                     qPrintable(schedule));
        return kExitUsage;
    }
    QStringList environment;
    for (const char* name : kKeptVariables)
        if (qEnvironmentVariableIsSet(name))
            environment << QStringLiteral("%1=%2").arg(QLatin1String(name), qEnvironmentVariable(name));

    const QDir folder(UserUnitFolder());
    if (!QDir().mkpath(folder.path()))
        return Fail(QStringLiteral("the folder %1 cannot be made").arg(folder.path()));
    QString error;
    if (!WriteUnit(folder.filePath(kServiceUnitName),
                   ServiceUnitText(QCoreApplication::applicationFilePath(), environment), error) ||
        !WriteUnit(folder.filePath(kTimerUnitName), TimerUnitText(*calendar, schedule), error)) {
        RemoveUnits(folder);
        return Fail(error);
    }
    for (const QStringList& step :
         {QStringList{"daemon-reload"}, QStringList{"enable", "--now", kTimerUnitName}}) {
        if (const std::optional<QString> failure = FailureOf(step)) {
            // Units the service manager never took would only confuse a later
            // install; the listener is told what to do instead.
            RemoveUnits(folder);
            return Fail(*failure + QStringLiteral("; nothing was installed"));
        }
    }
    std::printf("feldrun update runs %s (%s in %s)\n",
                qPrintable(calendar == schedule ? schedule : QStringLiteral("daily at ") + schedule),
                kTimerUnitName, qPrintable(folder.path()));
    return 0;
}

int RunRemoveTimerCommand(const std::vector<std::string>& args, const std::string&)
{
    if (!args.empty()) {
        std::fputs(kInstallUsage, stderr);
        return kExitUsage;
    }
    const QDir folder(UserUnitFolder());
    if (!folder.exists(QLatin1String(kTimerUnitName)) && !folder.exists(QLatin1String(kServiceUnitName))) {
        std::puts("feldrun: no timer is installed");
        return 0;
    }
    // The files go in any case; a manager that cannot be told keeps nothing
    // of them after its next start.
    const std::optional<QString> failure = FailureOf({"disable", "--now", kTimerUnitName});
    RemoveUnits(folder);
    if (failure)
        return Fail(*failure + QStringLiteral("; the timer's files were removed"));
    if (const std::optional<QString> reload = FailureOf({"daemon-reload"}))
        return Fail(*reload + QStringLiteral("; the timer's files were removed"));
    std::printf("feldrun: the timer is removed\n");
    return 0;
}

} // namespace feldrun
