#include "RegCommand.h"

#include <iostream>

int main(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    return talvo::reg::RunRegCommand(arguments, std::cin, std::cout, std::cerr);
}
