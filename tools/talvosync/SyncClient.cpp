#include "SyncClient.h"

#include "SyncAnswerText.h"
#include "sync/SyncRunner.h"

#include <QProcess>
#include <QRegularExpression>

namespace talvo::sync {
namespace {

const QString kKey =
    QStringLiteral("HKLM\\") + QString::fromStdU16String(std::u16string(SyncTransport::kKey));
const QString kInput = QString::fromStdU16String(std::u16string(SyncTransport::kInputValue));
const QString kOutput = QString::fromStdU16String(std::u16string(SyncTransport::kOutputValue));

struct Finished {
    bool started = false;
    int exitCode = -1;
    QByteArray output;
    QByteArray errors;
};

Finished runOnDevice(const SyncClientOptions& options, const QString& program, const QStringList& arguments)
{
    QProcess process;
    if (options.prefix.isEmpty()) {
        process.start(program, arguments);
    } else {
        QStringList words{ShellQuote(program)};
        for (const QString& argument : arguments)
            words << ShellQuote(argument);
        process.start(options.prefix.first(), options.prefix.mid(1) << words.join(QLatin1Char(' ')));
    }
    Finished finished;
    if (!process.waitForStarted())
        return finished;
    finished.started = true;
    process.waitForFinished(-1);
    finished.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    finished.output = process.readAllStandardOutput();
    finished.errors = process.readAllStandardError();
    return finished;
}

// The text as the player reads "_DataIn": UTF-16LE with its terminator.
QString utf16Hex(const QString& text)
{
    QByteArray bytes;
    for (const QChar unit : text + QChar(u'\0')) {
        bytes.append(char(unit.unicode() & 0xFF));
        bytes.append(char(unit.unicode() >> 8));
    }
    return QString::fromLatin1(bytes.toHex().toUpper());
}

bool hasAnswer(SyncCommand command)
{
    return command != SyncCommand::DeleteProgram && command != SyncCommand::AddProgram;
}

} // namespace

QString ShellQuote(const QString& word)
{
    QString quoted = word;
    quoted.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

SyncOutcome RunSyncCommandOnDevice(const SyncClientOptions& options, SyncCommand command,
                                   const std::optional<QString>& input)
{
    SyncOutcome outcome;
    // An answer left by an earlier run must not pass for this one's.
    runOnDevice(options, options.talvoreg, {"delete", kKey, "/v", kOutput, "/f"});
    // The input goes as the bytes of its UTF-16 text, in hex: a path whose name
    // is not UTF-8 would not survive a command line that QProcess encodes.
    const Finished written =
        input ? runOnDevice(options, options.talvoreg,
                            {"add", kKey, "/v", kInput, "/t", "REG_BINARY", "/d", utf16Hex(*input), "/f"})
              : runOnDevice(options, options.talvoreg, {"delete", kKey, "/v", kInput, "/f"});
    if (!written.started || (input && written.exitCode != 0)) {
        outcome.error = QStringLiteral("could not write the input with %1: %2")
                            .arg(options.talvoreg, QString::fromLocal8Bit(written.errors).trimmed());
        return outcome;
    }

    const Finished ran = runOnDevice(options, options.player, {SyncSwitch(command)});
    if (!ran.started || ran.exitCode < 0) {
        outcome.error = QStringLiteral("could not run %1").arg(options.player);
        return outcome;
    }
    // The whole result is the last "0x" line; the exit status keeps only its low 8 bits.
    static const QRegularExpression resultLine(QStringLiteral("^0x([0-9A-Fa-f]{8})$"),
                                               QRegularExpression::MultilineOption);
    QRegularExpressionMatchIterator matches = resultLine.globalMatch(QString::fromLocal8Bit(ran.output));
    QRegularExpressionMatch last;
    while (matches.hasNext())
        last = matches.next();
    if (!last.hasMatch()) {
        outcome.error =
            QStringLiteral("%1 printed no result (exit status %2); is it a player with sync commands?")
                .arg(options.player)
                .arg(ran.exitCode);
        return outcome;
    }
    outcome.result = last.captured(1).toUInt(nullptr, 16);
    if (outcome.result != 0 || !hasAnswer(command))
        return outcome;

    const Finished queried = runOnDevice(options, options.talvoreg, {"query", kKey, "/v", kOutput});
    if (queried.exitCode != 0)
        return outcome; // nothing to answer, e.g. no programs
    static const QRegularExpression valueLine(QStringLiteral("^\\s+%1 {4}(REG_\\w+) {4}(.*)$").arg(kOutput),
                                              QRegularExpression::MultilineOption);
    const QRegularExpressionMatch value = valueLine.match(QString::fromLocal8Bit(queried.output));
    if (!value.hasMatch()) {
        outcome.error = QStringLiteral("could not read the answer from %1").arg(options.talvoreg);
        return outcome;
    }
    QString data = value.captured(2);
    if (data.endsWith(QLatin1Char('\r')))
        data.chop(1);
    if (value.captured(1) == QLatin1String("REG_BINARY")) {
        outcome.answer = QByteArray::fromHex(data.toLatin1());
        return outcome;
    }
    const Finished file = runOnDevice(options, QStringLiteral("cat"), {data});
    if (file.exitCode != 0)
        outcome.error = QStringLiteral("could not read the data file %1").arg(data);
    outcome.answer = file.output;
    return outcome;
}

} // namespace talvo::sync
