#pragma once
// Runs talvoreg in-process against a store in a temporary folder.
#include "RegCommand.h"

#include <QTemporaryDir>

#include <sstream>
#include <string>

namespace talvo::test {

struct RegRun {
    int exitCode = -1;
    std::string out;
    std::string err;
};

inline RegRun Talvoreg(const QString& store, QStringList arguments, const std::string& input = {})
{
    std::istringstream in(input);
    std::ostringstream out;
    std::ostringstream err;
    RegRun run;
    run.exitCode =
        reg::RunRegCommand(QStringList{QStringLiteral("--registry"), store} + arguments, in, out, err);
    run.out = out.str();
    run.err = err.str();
    return run;
}

} // namespace talvo::test
