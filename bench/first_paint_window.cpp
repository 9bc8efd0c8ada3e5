// The baselines for startup_bench: a bare Qt window of the player's size with
// the same first-paint probe, so the difference is the player's own start-up;
// with --menu-and-text, the same window with a one-menu menu bar and a line
// of text, the least a window that shows a title and a time must do.
#include "app/FirstPaintProbe.h"

#include <QApplication>
#include <QLabel>
#include <QMenuBar>
#include <QVBoxLayout>
#include <QWidget>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QWidget window;
    window.resize(480, 640);
    if (QApplication::arguments().contains(QStringLiteral("--menu-and-text"))) {
        auto* layout = new QVBoxLayout(&window);
        auto* bar = new QMenuBar(&window);
        bar->addMenu(QStringLiteral("Menu"))->addAction(QStringLiteral("Item"));
        layout->setMenuBar(bar);
        layout->addWidget(new QLabel(QStringLiteral("A title  0:00:00 / 1:00:00"), &window));
    }
    talvo::FirstPaintProbe::InstallIfAsked(window);
    window.show();
    return QApplication::exec();
}
