#pragma once
// Turning the answers of the player's sync commands into lines a person reads.
#include "base/CommandLine.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <cstdint>

namespace talvo::sync {

// What a result means: "OK", or a sentence naming the failure and its code.
QString DescribeResult(std::uint32_t result);

// The answer of a command, decoded; malformed answers give a line saying so.
QStringList DescribeAnswer(SyncCommand command, const QByteArray& answer);

// The command a switch name names ("EnumFiles", "-EnumFiles" or "/EnumFiles"), or None.
SyncCommand SyncCommandNamed(QString name);
// "-EnumFiles" and so on.
QString SyncSwitch(SyncCommand command);

} // namespace talvo::sync
