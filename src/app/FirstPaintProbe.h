#pragma once
// A start-up timing aid, off unless TALVOPLAYER_EXIT_AFTER_FIRST_PAINT=1: on
// the window's first paint event it prints the milliseconds since the process
// started and the processor time it has used, as one line on stdout, and
// quits, so a benchmark can time start-up to the first painted frame from
// outside.  The start is the kernel's start time of the process, so loading
// the shared libraries before main counts too; the processor time stays
// meaningful on a machine busy with other work.
#include <QCoreApplication>
#include <QEvent>
#include <QFile>
#include <QObject>
#include <QWidget>

#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace talvo {

class FirstPaintProbe final : public QObject {
public:
    // Watches `window` when the variable asks for it; otherwise does nothing.
    static void InstallIfAsked(QWidget& window)
    {
        if (qEnvironmentVariable("TALVOPLAYER_EXIT_AFTER_FIRST_PAINT") == QStringLiteral("1"))
            window.installEventFilter(new FirstPaintProbe(&window));
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Paint && !done_) {
            done_ = true;
            std::printf("%.1f %.1f\n", msSinceProcessStart(), processorMs());
            std::fflush(stdout);
            QCoreApplication::exit(0);
        }
        return QObject::eventFilter(watched, event);
    }

private:
    explicit FirstPaintProbe(QObject* parent) : QObject(parent) {}

    // Field 22 of /proc/self/stat is the start time in clock ticks since boot,
    // on the clock CLOCK_BOOTTIME reads; -1 when it cannot be read.
    static double msSinceProcessStart()
    {
        QFile stat(QStringLiteral("/proc/self/stat"));
        if (!stat.open(QIODevice::ReadOnly))
            return -1;
        const QByteArray text = stat.readAll();
        // The command name in field 2 may hold spaces; count from its closing bracket.
        const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
        constexpr int kStartTimeField = 22 - 3;
        if (fields.size() <= kStartTimeField)
            return -1;
        const double startMs = fields[kStartTimeField].toDouble() * 1000.0 / double(sysconf(_SC_CLK_TCK));
        timespec now{};
        clock_gettime(CLOCK_BOOTTIME, &now);
        return double(now.tv_sec) * 1000.0 + double(now.tv_nsec) / 1e6 - startMs;
    }

    static double processorMs()
    {
        timespec used{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
        return double(used.tv_sec) * 1000.0 + double(used.tv_nsec) / 1e6;
    }

    bool done_ = false;
};

} // namespace talvo
