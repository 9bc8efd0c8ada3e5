#include "RegCommand.h"

#include "RegData.h"
#include "RegFile.h"

#include "TalvoVersion.h"
#include "platform/RegistryRecovery.h"
#include "platform/SystemError.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <istream>
#include <memory>
#include <ostream>
#include <string>

namespace talvo::reg {
namespace {

constexpr char kSuccess[] = "The operation completed successfully.";
constexpr char kCanceled[] = "The operation was canceled by the user.";
constexpr char kNotFound[] = "ERROR: The system was unable to find the specified registry key or value.";
constexpr char kHelpHint[] = "Type \"talvoreg --help\" for usage.";
// Indentation and column gap of query's value lines.
constexpr char kValueIndent[] = "    ";

constexpr char kHelp[] = R"(Usage: talvoreg [--registry PATH] COMMAND ...

Inspects and edits the TalvoPlayer registry store.

  talvoreg query KEY [/v NAME | /ve] [/s]
      Lists the values of KEY and its subkeys; /v shows one value, /ve the
      default (unnamed) value, /s every key below KEY as well.
  talvoreg add KEY [/v NAME | /ve] [/t TYPE] [/d DATA] [/f]
      Creates KEY (and every missing key above it) and, with /v or /ve, sets
      a value.  TYPE is REG_SZ (the default), REG_EXPAND_SZ, REG_MULTI_SZ,
      REG_DWORD, REG_QWORD, REG_BINARY or REG_NONE.  DATA is text for the
      string types (\0 separates the strings of REG_MULTI_SZ), a decimal or
      0x hex number for REG_DWORD and REG_QWORD, pairs of hex digits for
      REG_BINARY and REG_NONE.  /f overwrites an existing value without asking.
  talvoreg delete KEY [/v NAME | /ve | /va] [/f]
      Deletes KEY with everything below it, or one value (/v, /ve), or all of
      KEY's values (/va).  /f deletes without asking.
  talvoreg export KEY FILE [/y]
      Writes KEY and everything below it to FILE in the .reg format (UTF-16LE
      with a byte-order mark, CRLF).  /y overwrites FILE without asking.
  talvoreg import FILE
      Applies a .reg file (UTF-16LE or UTF-8, CRLF or LF), including [-KEY]
      and "name"=- deletions.  Nothing is written unless the whole file parses.
  talvoreg repair
      Recovers a damaged store as the player does at its start: keeps it
      aside in its folder as STORE.damaged-DATE and puts its last-good copy
      (STORE.last-good, refreshed by the player) in its place, or starts an
      empty store when there is none.  Says what it did; an intact store is
      left alone.  The other commands refuse a damaged store and change nothing.

KEY is ROOT\path\to\key with ROOT one of HKLM, HKEY_LOCAL_MACHINE, HKCR,
HKEY_CLASSES_ROOT.  Key and value names ignore case.  Without /f, the
questions are answered from standard input; no answer means No.

Options:
  --registry PATH   the store to use; default $TALVOPLAYER_REGISTRY, else
                    $XDG_CONFIG_HOME/talvoplayer/registry.db (~/.config when
                    XDG_CONFIG_HOME is unset)
  --help            this text
  --version         the version of talvoreg

Exit status: 0 on success, 1 on failure or when a question is answered No.
)";

void Line(std::ostream& stream, const QString& text)
{
    stream << text.toStdString() << '\n';
}

// The parsed command line of one run.
struct Invocation {
    QString command;
    QStringList positional;
    std::optional<QString> valueName; // set by /v NAME or /ve (empty name)
    bool allValues = false;           // /va
    bool recursive = false;           // /s
    bool force = false;               // /f, /y
    std::optional<QString> type;      // /t
    std::optional<QString> data;      // /d
    QString registryPath;
    bool help = false;
    bool version = false;
};

// The command's switches are a slash and one or two letters; anything longer
// (an absolute file path, say) is an argument.
bool IsSwitchLike(const QString& argument)
{
    if (!argument.startsWith(QLatin1Char('/')) || argument.size() < 2 || argument.size() > 3)
        return false;
    for (qsizetype i = 1; i < argument.size(); ++i) {
        if (!argument[i].isLetter())
            return false;
    }
    return true;
}

std::optional<Invocation> ParseArguments(const QStringList& arguments, QString* error)
{
    Invocation call;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        const QString lower = argument.toLower();
        auto next = [&](const char* what) -> std::optional<QString> {
            if (i + 1 >= arguments.size()) {
                *error = QStringLiteral("Invalid syntax: %1 needs %2.").arg(argument, QLatin1String(what));
                return std::nullopt;
            }
            return arguments[++i];
        };
        if (lower == QLatin1String("--help") || lower == QLatin1String("-h") ||
            lower == QLatin1String("/?")) {
            call.help = true;
        } else if (lower == QLatin1String("--version")) {
            call.version = true;
        } else if (lower == QLatin1String("--registry")) {
            auto path = next("a file path");
            if (!path)
                return std::nullopt;
            call.registryPath = *path;
        } else if (lower == QLatin1String("/v")) {
            if (!(call.valueName = next("a value name")))
                return std::nullopt;
        } else if (lower == QLatin1String("/ve")) {
            call.valueName = QString();
        } else if (lower == QLatin1String("/va")) {
            call.allValues = true;
        } else if (lower == QLatin1String("/s")) {
            call.recursive = true;
        } else if (lower == QLatin1String("/f") || lower == QLatin1String("/y")) {
            call.force = true;
        } else if (lower == QLatin1String("/t")) {
            if (!(call.type = next("a type")))
                return std::nullopt;
        } else if (lower == QLatin1String("/d")) {
            if (!(call.data = next("data")))
                return std::nullopt;
        } else if (IsSwitchLike(argument)) {
            *error = QStringLiteral("Invalid syntax: unknown switch %1.").arg(argument);
            return std::nullopt;
        } else if (call.command.isEmpty()) {
            call.command = lower;
        } else {
            call.positional << argument;
        }
    }
    return call;
}

class Runner {
public:
    Runner(Invocation call, std::istream& in, std::ostream& out, std::ostream& err)
        : call_(std::move(call)), in_(in), out_(out), err_(err)
    {
    }

    int Run()
    {
        struct Command {
            const char* name;
            int positional;
            int (Runner::*run)();
            // Repair opens the store itself: the others refuse a damaged one.
            bool opensStore = true;
        };
        static constexpr Command kCommands[] = {
            {"query", 1, &Runner::Query},   {"add", 1, &Runner::Add},
            {"delete", 1, &Runner::Delete}, {"export", 2, &Runner::Export},
            {"import", 1, &Runner::Import}, {"repair", 0, &Runner::Repair, false},
        };
        for (const Command& command : kCommands) {
            if (call_.command != QLatin1String(command.name))
                continue;
            if (call_.positional.size() != command.positional)
                return Fail(QStringLiteral("Invalid syntax: %1 takes %2 argument%3. %4")
                                .arg(call_.command)
                                .arg(command.positional)
                                .arg(command.positional == 1 ? "" : "s")
                                .arg(QLatin1String(kHelpHint)));
            if (command.opensStore && !OpenStore())
                return kExitFailure;
            return (this->*command.run)();
        }
        return Fail(call_.command.isEmpty()
                        ? QStringLiteral("Invalid syntax: no command given. %1").arg(QLatin1String(kHelpHint))
                        : QStringLiteral("Invalid syntax: unknown command \"%1\". %2")
                              .arg(call_.command, QLatin1String(kHelpHint)));
    }

private:
    int Fail(const QString& message)
    {
        Line(err_,
             message.startsWith(QLatin1String("ERROR:")) ? message : QStringLiteral("ERROR: ") + message);
        return kExitFailure;
    }
    int FailStatus(RegStatus status)
    {
        switch (status) {
        case ERROR_FILE_NOT_FOUND:
            return Fail(QLatin1String(kNotFound));
        case ERROR_ACCESS_DENIED:
            return Fail(QStringLiteral("Access is denied."));
        case ERROR_INVALID_PARAMETER:
            return Fail(
                QStringLiteral("A key or value name is not valid (too long, or holding a character the "
                               "store cannot keep: a NUL, U+FFFE, U+FFFF, a lone surrogate or a "
                               "leading U+FEFF)."));
        default:
            return Fail(
                QStringLiteral("The registry store %1 failed with error %2.").arg(storePath_).arg(status));
        }
    }
    int Succeed()
    {
        Line(out_, QLatin1String(kSuccess));
        return kExitSuccess;
    }
    bool Confirm(const QString& question)
    {
        out_ << question.toStdString() << " (Yes/No)? " << std::flush;
        std::string answer;
        if (!std::getline(in_, answer)) {
            answer.clear();
            out_ << '\n'; // nobody typed the line end
        }
        bool yes = !answer.empty() && (answer[0] == 'y' || answer[0] == 'Y');
        if (!yes)
            Line(out_, QLatin1String(kCanceled));
        return yes;
    }

    QString StorePath() const
    {
        return call_.registryPath.isEmpty() ? QString::fromStdString(DefaultRegistryPath())
                                            : call_.registryPath;
    }

    // A damaged store is refused and left exactly as it is: repairing it is
    // for the player's start or `talvoreg repair`.
    bool OpenStore()
    {
        storePath_ = StorePath();
        RegStatus status = ERROR_SUCCESS;
        int systemError = 0;
        registry_ = OpenSqliteRegistry(storePath_.toStdString(), &status, &systemError);
        if (registry_)
            return true;
        if (status == ERROR_BADDB)
            Fail(QStringLiteral("The registry store %1 is damaged; nothing was changed. \"talvoreg repair\" "
                                "keeps it aside and restores its last good copy.")
                     .arg(storePath_));
        else if (status == ERROR_NOT_REGISTRY_FILE)
            Fail(QStringLiteral("%1 is not a registry store (another kind of database, or a later version).")
                     .arg(storePath_));
        else
            Fail(QStringLiteral("Cannot open the registry store %1: %2 (error %3).")
                     .arg(storePath_, CauseOf(systemError))
                     .arg(status));
        return false;
    }

    static QString CauseOf(int systemError)
    {
        return systemError ? SystemErrorFromErrno(systemError).text : QStringLiteral("the store refused it");
    }

    int Repair()
    {
        storePath_ = StorePath();
        const OpenedStore opened = OpenOrRecoverSqliteRegistry(storePath_.toStdString());
        if (!opened.recovery) {
            if (!opened.registry)
                return Fail(
                    QStringLiteral("Cannot open the registry store %1: %2 (error %3). Nothing was changed.")
                        .arg(storePath_, CauseOf(opened.systemError))
                        .arg(opened.status));
            Line(out_,
                 QStringLiteral("The registry store %1 is intact; nothing was changed.").arg(storePath_));
            return kExitSuccess;
        }
        const StoreRecovery& recovery = *opened.recovery;
        const QString aside = QString::fromStdString(recovery.keptAsidePath);
        Line(out_, QStringLiteral("The registry store %1 was damaged; it has been kept as %2.")
                       .arg(storePath_, aside));
        if (!opened.registry)
            return Fail(QStringLiteral("Its last good copy could not be put in its place: %1 (error %2).")
                            .arg(CauseOf(opened.systemError))
                            .arg(opened.status));
        if (recovery.restored) {
            const QDateTime written = QDateTime::currentDateTime().addSecs(-recovery.restoredAge.count());
            Line(out_, QStringLiteral("Its last good copy, written %1, has been put in its place.")
                           .arg(written.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))));
        } else {
            Line(out_, QStringLiteral("There was no good copy of it; the store starts empty."));
        }
        return kExitSuccess;
    }

    std::optional<KeyPath> Key(const QString& text)
    {
        std::optional<KeyPath> key = ParseKeyPath(text);
        if (!key)
            Fail(QStringLiteral(
                     "Invalid key name \"%1\": it must begin with HKLM, HKEY_LOCAL_MACHINE, HKCR or "
                     "HKEY_CLASSES_ROOT.")
                     .arg(text));
        return key;
    }

    QString ValueLine(const std::u16string& name, DWORD type, const std::vector<std::uint8_t>& data)
    {
        QString shown = name.empty() ? QStringLiteral("(Default)") : QString::fromStdU16String(name);
        return QLatin1String(kValueIndent) + shown + QLatin1String(kValueIndent) + TypeToName(type) +
               QLatin1String(kValueIndent) + FormatData(type, data);
    }

    // Prints one key's block; returns the number of values shown.
    RegStatus PrintKey(HKEY key, const QString& name, int* shown)
    {
        std::u16string valueName;
        DWORD type = 0;
        std::vector<std::uint8_t> data;
        QStringList lines;
        RegStatus status = ERROR_SUCCESS;
        if (call_.valueName) {
            DWORD size = 0;
            status = registry_->QueryValue(key, call_.valueName->toStdU16String(), &type, nullptr, &size);
            if (status == ERROR_SUCCESS) {
                data.resize(size);
                status =
                    registry_->QueryValue(key, call_.valueName->toStdU16String(), &type, data.data(), &size);
                data.resize(size);
            }
            if (status == ERROR_SUCCESS)
                lines << ValueLine(call_.valueName->toStdU16String(), type, data);
            else if (status != ERROR_FILE_NOT_FOUND)
                return status;
        } else {
            for (DWORD i = 0;
                 (status = registry_->EnumValue(key, i, &valueName, &type, &data)) == ERROR_SUCCESS; ++i)
                lines << ValueLine(valueName, type, data);
            if (status != ERROR_NO_MORE_ITEMS)
                return status;
        }
        *shown += int(lines.size());
        if (!call_.valueName || !lines.isEmpty()) {
            Line(out_, name);
            for (const QString& line : lines)
                Line(out_, line);
        }
        return ERROR_SUCCESS;
    }

    RegStatus QueryTree(HKEY key, const QString& name, int* shown)
    {
        RegStatus status = PrintKey(key, name, shown);
        if (status != ERROR_SUCCESS)
            return status;
        if (!call_.valueName || call_.recursive)
            out_ << '\n';
        std::u16string child;
        for (DWORD i = 0; (status = registry_->EnumKey(key, i, &child)) == ERROR_SUCCESS; ++i) {
            QString childName = name + QLatin1Char('\\') + QString::fromStdU16String(child);
            if (!call_.recursive) {
                if (!call_.valueName)
                    Line(out_, childName);
                continue;
            }
            HKEY handle = 0;
            if ((status = registry_->OpenKey(key, child, KEY_READ, &handle)) != ERROR_SUCCESS)
                return status;
            status = QueryTree(handle, childName, shown);
            registry_->CloseKey(handle);
            if (status != ERROR_SUCCESS)
                return status;
        }
        return status == ERROR_NO_MORE_ITEMS ? ERROR_SUCCESS : status;
    }

    int Query()
    {
        std::optional<KeyPath> path = Key(call_.positional[0]);
        if (!path)
            return kExitFailure;
        HKEY key = 0;
        RegStatus status = registry_->OpenKey(path->root, path->path.toStdU16String(), KEY_READ, &key);
        if (status != ERROR_SUCCESS)
            return FailStatus(status);
        int shown = 0;
        status = QueryTree(key, FullKeyName(*path), &shown);
        registry_->CloseKey(key);
        if (status != ERROR_SUCCESS)
            return FailStatus(status);
        if (call_.valueName && shown == 0)
            return FailStatus(ERROR_FILE_NOT_FOUND);
        return kExitSuccess;
    }

    int Add()
    {
        std::optional<KeyPath> path = Key(call_.positional[0]);
        if (!path)
            return kExitFailure;
        DWORD type = REG_SZ;
        if (call_.type) {
            std::optional<DWORD> named = TypeFromName(*call_.type);
            if (!named)
                return Fail(
                    QStringLiteral("Invalid value type \"%1\": use REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ, "
                                   "REG_DWORD, REG_QWORD, REG_BINARY or REG_NONE.")
                        .arg(*call_.type));
            type = *named;
        }
        // Data or a type without /v is meant for the default value.
        std::optional<QString> name = call_.valueName;
        if (!name && (call_.type || call_.data))
            name = QString();
        std::vector<std::uint8_t> data;
        if (name) {
            QString error;
            auto parsed = ParseData(type, call_.data.value_or(QString()), &error);
            if (!parsed)
                return Fail(error);
            data = std::move(*parsed);
        }
        HKEY key = 0;
        RegStatus status =
            registry_->CreateKey(path->root, path->path.toStdU16String(), KEY_ALL_ACCESS, &key);
        if (status != ERROR_SUCCESS)
            return FailStatus(status);
        if (name) {
            std::u16string valueName = name->toStdU16String();
            DWORD size = 0;
            bool exists = registry_->QueryValue(key, valueName, nullptr, nullptr, &size) == ERROR_SUCCESS;
            if (exists && !call_.force &&
                !Confirm(
                    QStringLiteral("Overwrite the value %1 of %2")
                        .arg(name->isEmpty() ? QStringLiteral("(Default)") : *name, FullKeyName(*path)))) {
                registry_->CloseKey(key);
                return kExitFailure;
            }
            status = registry_->SetValue(key, valueName, type, data.data(), DWORD(data.size()));
        }
        registry_->CloseKey(key);
        return status == ERROR_SUCCESS ? Succeed() : FailStatus(status);
    }

    int Delete()
    {
        std::optional<KeyPath> path = Key(call_.positional[0]);
        if (!path)
            return kExitFailure;
        HKEY key = 0;
        RegStatus status = registry_->OpenKey(path->root, path->path.toStdU16String(), KEY_ALL_ACCESS, &key);
        if (status != ERROR_SUCCESS)
            return FailStatus(status);
        const QString keyName = FullKeyName(*path);
        if (call_.valueName) {
            std::u16string valueName = call_.valueName->toStdU16String();
            DWORD size = 0;
            status = registry_->QueryValue(key, valueName, nullptr, nullptr, &size);
            if (status == ERROR_SUCCESS && !call_.force &&
                !Confirm(QStringLiteral("Delete the value %1 of %2")
                             .arg(call_.valueName->isEmpty() ? QStringLiteral("(Default)") : *call_.valueName,
                                  keyName))) {
                registry_->CloseKey(key);
                return kExitFailure;
            }
            if (status == ERROR_SUCCESS)
                status = registry_->DeleteValue(key, valueName);
        } else if (call_.allValues) {
            if (!call_.force && !Confirm(QStringLiteral("Delete all values of %1").arg(keyName))) {
                registry_->CloseKey(key);
                return kExitFailure;
            }
            std::u16string valueName;
            // Deleting shifts the rest down, so index 0 until none is left.
            while ((status = registry_->EnumValue(key, 0, &valueName, nullptr, nullptr)) == ERROR_SUCCESS) {
                if ((status = registry_->DeleteValue(key, valueName)) != ERROR_SUCCESS)
                    break;
            }
            if (status == ERROR_NO_MORE_ITEMS)
                status = ERROR_SUCCESS;
        } else {
            if (path->path.isEmpty()) {
                registry_->CloseKey(key);
                return Fail(QStringLiteral("%1 is a root key and cannot be deleted.").arg(keyName));
            }
            if (!call_.force &&
                !Confirm(QStringLiteral("Delete the registry key %1 and everything below it").arg(keyName))) {
                registry_->CloseKey(key);
                return kExitFailure;
            }
            status = registry_->DeleteKey(path->root, path->path.toStdU16String());
        }
        registry_->CloseKey(key);
        return status == ERROR_SUCCESS ? Succeed() : FailStatus(status);
    }

    int Export()
    {
        std::optional<KeyPath> path = Key(call_.positional[0]);
        if (!path)
            return kExitFailure;
        const QString fileName = call_.positional[1];
        QByteArray file;
        RegStatus status = ExportKeys(*registry_, *path, &file);
        if (status != ERROR_SUCCESS)
            return FailStatus(status);
        if (QFileInfo::exists(fileName) && !call_.force &&
            !Confirm(QStringLiteral("Overwrite the file %1").arg(fileName)))
            return kExitFailure;
        QFile out(fileName);
        if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate) || out.write(file) != file.size() ||
            !out.flush())
            return Fail(QStringLiteral("Cannot write %1: %2.").arg(fileName, out.errorString()));
        return Succeed();
    }

    int Import()
    {
        const QString fileName = call_.positional[0];
        QFile in(fileName);
        if (!in.open(QIODevice::ReadOnly))
            return Fail(QStringLiteral("Cannot read %1: %2.").arg(fileName, in.errorString()));
        std::vector<RegFileOperation> operations;
        QString error;
        if (!ParseRegFile(in.readAll(), &operations, &error))
            return Fail(QStringLiteral("%1 is not a valid registry file: %2 Nothing was imported.")
                            .arg(fileName, error));
        RegStatus status = ApplyOperations(*registry_, operations);
        return status == ERROR_SUCCESS ? Succeed() : FailStatus(status);
    }

    Invocation call_;
    std::istream& in_;
    std::ostream& out_;
    std::ostream& err_;
    QString storePath_;
    std::unique_ptr<Registry> registry_;
};

} // namespace

int RunRegCommand(const QStringList& arguments, std::istream& in, std::ostream& out, std::ostream& err)
{
    QString error;
    std::optional<Invocation> call = ParseArguments(arguments, &error);
    if (!call) {
        Line(err, QStringLiteral("ERROR: %1 %2").arg(error, QLatin1String(kHelpHint)));
        return kExitFailure;
    }
    if (call->help) {
        out << kHelp;
        return kExitSuccess;
    }
    if (call->version) {
        out << "talvoreg " TALVO_VERSION_TEXT "\n";
        return kExitSuccess;
    }
    return Runner(std::move(*call), in, out, err).Run();
}

} // namespace talvo::reg
