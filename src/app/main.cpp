// The player's entry point: everything lives in the talvo library.
#include "app/DisplayChoice.h"
#include "app/InformationSwitches.h"
#include "app/Startup.h"

#include <QApplication>

int main(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    if (std::optional<int> answered = talvo::AnswerInformationSwitch(arguments))
        return *answered;
    if (!talvo::ChooseDisplayPlatform(arguments))
        return 1;
    QApplication app(argc, argv);
    arguments = QCoreApplication::arguments();
    arguments.removeFirst();
    return talvo::RunPlayer(arguments);
}
