// The player's entry point: everything lives in the talvo library.
#include "app/Startup.h"

#include <QApplication>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QStringList arguments = QCoreApplication::arguments();
    arguments.removeFirst();
    return talvo::RunPlayer(arguments);
}
