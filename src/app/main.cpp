// The player's entry point: everything lives in the talvo library.
#include "app/DisplayChoice.h"
#include "app/InformationSwitches.h"
#include "app/MenuBarStyle.h"
#include "app/Startup.h"
#include "platform/FileNames.h"

#include <QApplication>

int main(int argc, char** argv)
{
    // File names are bytes: QCoreApplication::arguments() would replace those
    // that are not UTF-8, and a -File: path would name no file.
    QStringList arguments = talvo::DecodeArguments(argc - 1, argv + 1);
    if (std::optional<int> answered = talvo::AnswerInformationSwitch(arguments))
        return *answered;
    if (!talvo::ChooseDisplayPlatform(arguments))
        return 1;
    QApplication app(argc, argv);
    talvo::UseMenuBarStyle();
    // QApplication took its own options out of argv.
    arguments = talvo::DecodeArguments(argc - 1, argv + 1);
    return talvo::RunPlayer(arguments);
}
