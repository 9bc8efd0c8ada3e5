#pragma once
// The feldrun the tests were built with, run as the listener runs it.
#include <QProcess>
#include <QString>
#include <QStringList>

namespace talvo::test {

// Runs feldrun with arguments in the test's environment; output gets what it
// wrote to either stream.  Returns its exit status, -1 when it did not exit.
inline int RunFeldrun(const QStringList& arguments, QString& output)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral(FELDRUN_PATH), arguments);
    process.waitForFinished(30000);
    output = QString::fromLocal8Bit(process.readAll());
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

} // namespace talvo::test
