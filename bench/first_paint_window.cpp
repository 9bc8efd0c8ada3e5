// The baseline for startup_bench: a bare Qt window of the player's size with
// the same first-paint probe, so the difference is the player's own start-up.
#include "app/FirstPaintProbe.h"

#include <QApplication>
#include <QWidget>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QWidget window;
    window.resize(480, 640);
    talvo::FirstPaintProbe::InstallIfAsked(window);
    window.show();
    return QApplication::exec();
}
