#pragma once
// What every picture of talvo-screenshots takes: time for the screen to
// draw, and the picture written with a line saying so.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QWidget>

#include <cstdio>

namespace screenshots {

inline void settle(int ms = 150)
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
}

inline bool save(QWidget& widget, const QString& path)
{
    const bool saved = widget.grab().save(path);
    std::printf("%s %s\n", saved ? "wrote" : "could not write", qPrintable(path));
    return saved;
}

} // namespace screenshots
