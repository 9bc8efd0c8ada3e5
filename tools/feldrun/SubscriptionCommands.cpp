#include "SubscriptionCommands.h"

#include "ListenedCheck.h"
#include "Opml.h"
#include "SubscriptionStore.h"
#include "UpdateCommand.h"

#include "platform/FileNames.h"
#include "platform/SystemError.h"

#include <QFile>
#include <QSaveFile>

#include <array>
#include <charconv>
#include <cstdio>
#include <optional>

namespace feldrun {

const char* const kSubscribeUsage =
    "usage: feldrun subscribe [--keep N] [--no-update] URL\n"
    "\n"
    "Subscribes to the podcast or daily programme whose feed (RSS or Atom) is at URL,\n"
    "an http:// or https:// address, and brings its newest episodes into the Music\n"
    "folder at once, as feldrun update does. Subscribing again to a URL already\n"
    "subscribed to changes nothing.\n"
    "\n"
    "  --keep N      keep the newest N episodes on the device (default 3, at most 100)\n"
    "  --no-update   only subscribe; the next feldrun update fetches the feed\n"
    "  -h, --help    this text\n"
    "\n"
    "Environment: TALVOPLAYER_REGISTRY, the settings store subscriptions are kept in.\n"
    "Exit status: 0 when subscribed (and its episodes came in), 1 when the store could\n"
    "not be written or the first update failed (the subscription stays), 2 for a\n"
    "wrong command line (a URL that is not http or https among them).\n";

const char* const kUnsubscribeUsage =
    "usage: feldrun unsubscribe URL|TITLE\n"
    "\n"
    "Ends a subscription, named by its feed's URL or its title (in any case). Its\n"
    "episodes already in the Music folder stay there as programs of their own, with\n"
    "their places and bookmarks; delete them in the player like any program.\n"
    "\n"
    "  -h, --help    this text\n"
    "\n"
    "Exit status: 0 when unsubscribed, 1 when there is no such subscription or the\n"
    "store could not be written, 2 for a wrong command line.\n";

const char* const kListUsage =
    "usage: feldrun list\n"
    "\n"
    "Lists the subscriptions in the order they were made: the title, the feed's URL,\n"
    "how many episodes are new, downloading, ready, listened (the player played them\n"
    "to their end) and failed, with why each failed one failed, and how many are kept.\n"
    "\n"
    "  -h, --help    this text\n"
    "\n"
    "Exit status: 0, or 1 when the store cannot be read.\n";

const char* const kKeepUsage =
    "usage: feldrun keep URL|TITLE N\n"
    "\n"
    "Sets how many of a subscription's newest episodes stay on the device (1 to 100);\n"
    "older ones are removed at the next update, never the one the player is playing.\n"
    "\n"
    "  -h, --help    this text\n"
    "\n"
    "Exit status: 0 when set, 1 when there is no such subscription or the store could\n"
    "not be written, 2 for a wrong command line.\n";

const char* const kOpmlUsage =
    "usage: feldrun opml import FILE\n"
    "       feldrun opml export FILE\n"
    "\n"
    "import subscribes to every feed an OPML file lists (outlines with an xmlUrl, at\n"
    "any depth) that is not subscribed to already, and says what it added and what\n"
    "it skipped. export writes the subscriptions as OPML 2.0, which other podcast\n"
    "apps read; FILE - is standard output.\n"
    "\n"
    "  -h, --help    this text\n"
    "\n"
    "Exit status: 0 when done, 1 when the file cannot be read or written or is no\n"
    "OPML, or the store fails, 2 for a wrong command line.\n";

namespace {

constexpr const char* kOpmlTitle = "TalvoPlayer subscriptions";

struct CommandLine {
    std::vector<std::string> operands;
    std::optional<std::uint32_t> keep;
    bool noUpdate = false;
};

void PrintError(const char* command, const QString& message)
{
    std::fprintf(stderr, "feldrun %s: %s\n", command, message.toLocal8Bit().constData());
}

int UsageError(const char* command, const QString& message, const char* usage)
{
    PrintError(command, message);
    std::fputs(usage, stderr);
    return kExitUsage;
}

std::optional<std::uint32_t> KeepCount(const std::string& text)
{
    std::uint32_t n = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
    if (text.empty() || ec != std::errc() || end != text.data() + text.size() || n < 1 || n > kMaxKeep)
        return std::nullopt;
    return n;
}

// What each command takes: its name in messages, its help, and how many
// operands, named for a message when the count is wrong.
struct CommandForm {
    const char* name;
    const char* usage;
    std::size_t operands;
    const char* operandsWanted;
};
const CommandForm kSubscribeForm{"subscribe", kSubscribeUsage, 1, "give one feed URL"};
const CommandForm kUnsubscribeForm{"unsubscribe", kUnsubscribeUsage, 1,
                                   "give one subscription's URL or title"};
const CommandForm kListForm{"list", kListUsage, 0, "list takes no arguments"};
const CommandForm kKeepForm{"keep", kKeepUsage, 2, "give a subscription's URL or title and a number"};
const CommandForm kOpmlForm{"opml", kOpmlUsage, 2, "give import FILE or export FILE"};

// Reads options and operands; a help request or a wrong command line ends
// the command with its status.
std::optional<int> ReadCommandLine(const CommandForm& form, const std::vector<std::string>& args,
                                   CommandLine& line)
{
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "-h" || a == "--help") {
            std::fputs(form.usage, stdout);
            return kExitDone;
        }
        if (a == "--keep" && &form == &kSubscribeForm) {
            line.keep = i + 1 < args.size() ? KeepCount(args[++i]) : std::nullopt;
            if (!line.keep)
                return UsageError(form.name,
                                  QStringLiteral("--keep takes a number from 1 to %1").arg(kMaxKeep),
                                  form.usage);
        } else if (a == "--no-update" && &form == &kSubscribeForm)
            line.noUpdate = true;
        else if (a.size() > 1 && a[0] == '-')
            return UsageError(form.name, QStringLiteral("unknown option %1").arg(QString::fromStdString(a)),
                              form.usage);
        else
            line.operands.push_back(a);
    }
    if (line.operands.size() != form.operands)
        return UsageError(form.name, QString::fromLatin1(form.operandsWanted), form.usage);
    return std::nullopt;
}

QString Argument(const std::string& bytes)
{
    return QString::fromLocal8Bit(bytes).trimmed();
}

QString NameOf(const Subscription& s)
{
    return s.title.isEmpty() ? s.url.toString() : QStringLiteral("'%1'").arg(s.title);
}

void PrintSkipped(const char* command, const SubscriptionStore& store)
{
    for (const QString& what : store.skipped())
        PrintError(command, QStringLiteral("warning: a damaged record was passed over: %1").arg(what));
}

// One subscription, found by URL or title, for the commands that change one.
std::optional<Subscription> FindOne(const char* command, SubscriptionStore& store, const QString& urlOrTitle)
{
    std::optional<Subscription> found = store.Find(urlOrTitle);
    if (!found)
        PrintError(
            command,
            store.error().isEmpty()
                ? QStringLiteral("no subscription matches '%1' (feldrun list shows them)").arg(urlOrTitle)
                : store.error());
    return found;
}

int Subscribe(SubscriptionStore& store, const QUrl& url, std::optional<std::uint32_t> keep)
{
    if (const std::optional<Subscription> existing = store.Find(url.toString())) {
        std::printf("already subscribed to %s\n", NameOf(*existing).toLocal8Bit().constData());
        return kExitDone;
    }
    Subscription s;
    s.url = url;
    s.keep = keep.value_or(kDefaultKeep);
    if (!store.Save(s)) {
        PrintError("subscribe", store.error());
        return kExitFailed;
    }
    std::printf("subscribed to %s\n", url.toString().toLocal8Bit().constData());
    return kExitDone;
}

QString EpisodeCounts(const Subscription& s)
{
    constexpr const char* kStateNames[] = {"new", "downloading", "ready", "listened", "failed"};
    static_assert(std::size(kStateNames) == std::size_t(EpisodeState::Failed) + 1);
    std::array<int, std::size(kStateNames)> counts{};
    for (const EpisodeRecord& e : s.episodes)
        ++counts[std::size_t(e.state)];
    QStringList parts;
    for (std::size_t i = 0; i < counts.size(); ++i)
        parts.append(QStringLiteral("%1 %2").arg(kStateNames[i]).arg(counts[i]));
    return parts.join(QStringLiteral(", "));
}

void PrintSubscription(const Subscription& s)
{
    const QString title = s.title.isEmpty() ? QStringLiteral("(not fetched yet)") : s.title;
    std::printf("%s\n  %s\n  %s; keeps the newest %u\n", title.toLocal8Bit().constData(),
                s.url.toString().toLocal8Bit().constData(), EpisodeCounts(s).toLocal8Bit().constData(),
                s.keep);
    for (const EpisodeRecord& e : s.episodes) {
        if (e.state == EpisodeState::Failed)
            std::printf("  failed: %s: %s\n",
                        (e.title.isEmpty() ? e.guid : e.title).toLocal8Bit().constData(),
                        e.error.toLocal8Bit().constData());
    }
}

bool WriteOutput(const QString& path, const QByteArray& bytes, QString& error)
{
    if (path == u"-")
        return std::fwrite(bytes.constData(), 1, std::size_t(bytes.size()), stdout) ==
               std::size_t(bytes.size());
    // Written beside and renamed over, so a full disk leaves an older export whole.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        error = QStringLiteral("cannot write %1: %2").arg(talvo::DisplayFileName(path), file.errorString());
        return false;
    }
    return true;
}

int ExportOpml(SubscriptionStore& store, const QString& path)
{
    std::vector<Subscription> all;
    if (!store.Load(all)) {
        PrintError("opml export", store.error());
        return kExitFailed;
    }
    std::vector<OpmlOutline> outlines;
    for (const Subscription& s : all)
        outlines.push_back({s.url, s.title});
    QString error;
    if (!WriteOutput(path, WriteOpml(outlines, QString::fromLatin1(kOpmlTitle)), error)) {
        PrintError("opml export", error);
        return kExitFailed;
    }
    if (path != u"-")
        std::printf("%zu subscription(s) written to %s\n", outlines.size(),
                    talvo::DisplayFileName(path).toLocal8Bit().constData());
    return kExitDone;
}

int ImportOpml(SubscriptionStore& store, const QString& path)
{
    std::vector<OpmlEntry> entries;
    QString error;
    const bool done = ImportOpmlFile(store, path, entries, error);
    std::size_t skipped = 0;
    for (const auto& [o, why] : entries) {
        const QByteArray name = (o.title.isEmpty() ? o.url.toString() : o.title).toLocal8Bit();
        const QByteArray url = o.url.toString().toLocal8Bit();
        if (why.isEmpty())
            std::printf("added %s <%s>\n", name.constData(), url.constData());
        else
            std::printf("skipped %s <%s>: %s\n", name.constData(), url.constData(),
                        why.toLocal8Bit().constData());
        skipped += !why.isEmpty();
    }
    if (!done) {
        PrintError("opml import", error);
        return kExitFailed;
    }
    std::printf("%zu added, %zu skipped\n", entries.size() - skipped, skipped);
    return kExitDone;
}

} // namespace

std::optional<QUrl> FeedUrl(const QString& text, QString& error)
{
    const QUrl url(text, QUrl::TolerantMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.isRelative() || (scheme != u"http" && scheme != u"https")) {
        error = QStringLiteral("'%1' is not a feed's address: give its http:// or https:// URL").arg(text);
        return std::nullopt;
    }
    if (url.host().isEmpty()) {
        error = QStringLiteral("'%1' names no server").arg(text);
        return std::nullopt;
    }
    return url;
}

bool ImportOpmlFile(SubscriptionStore& store, const QString& path, std::vector<OpmlEntry>& entries,
                    QString& error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("cannot read %1: %2").arg(talvo::DisplayFileName(path), file.errorString());
        return false;
    }
    std::vector<OpmlOutline> outlines;
    if (!ParseOpml(file.readAll(), outlines, error)) {
        error = QStringLiteral("%1: %2").arg(talvo::DisplayFileName(path), error);
        return false;
    }
    std::vector<Subscription> all;
    if (!store.Load(all)) {
        error = store.error();
        return false;
    }
    const auto subscribed = [&all](const QUrl& url) {
        return std::any_of(all.begin(), all.end(), [&url](const Subscription& s) {
            return s.url.matches(url, QUrl::StripTrailingSlash | QUrl::NormalizePathSegments);
        });
    };
    for (const OpmlOutline& o : outlines) {
        QString why;
        if (!FeedUrl(o.url.toString(), why))
            why = QStringLiteral("not an http or https feed");
        else if (subscribed(o.url))
            why = QStringLiteral("already subscribed");
        if (!why.isEmpty()) {
            entries.push_back({o, why});
            continue;
        }
        Subscription s;
        s.url = o.url;
        s.title = o.title;
        if (!store.Save(s)) {
            error = store.error();
            return false;
        }
        all.push_back(s);
        entries.push_back({o, {}});
    }
    return true;
}

std::unique_ptr<talvo::Registry> OpenSettingsStore(const char* command)
{
    const std::string path = talvo::DefaultRegistryPath();
    const QString shown = talvo::DisplayFileName(talvo::DecodeFileName(path));
    talvo::RegStatus status = talvo::ERROR_SUCCESS;
    int systemError = 0;
    std::unique_ptr<talvo::Registry> registry = talvo::OpenSqliteRegistry(path, &status, &systemError);
    if (registry)
        return registry;
    if (status == talvo::ERROR_BADDB)
        PrintError(command,
                   QStringLiteral("the settings store %1 is damaged; nothing was changed. Starting the "
                                  "player or \"talvoreg repair\" restores its last good copy.")
                       .arg(shown));
    else if (status == talvo::ERROR_NOT_REGISTRY_FILE)
        PrintError(command, QStringLiteral("%1 is not a settings store of this player").arg(shown));
    else
        PrintError(command, QStringLiteral("cannot open the settings store %1: %2 (error %3)")
                                .arg(shown, systemError ? talvo::SystemErrorFromErrno(systemError).text
                                                        : QStringLiteral("the store refused it"))
                                .arg(status));
    return nullptr;
}

int RunSubscribeCommand(const std::vector<std::string>& args, const std::string& playerPath)
{
    CommandLine line;
    if (const auto status = ReadCommandLine(kSubscribeForm, args, line))
        return *status;
    QString error;
    const std::optional<QUrl> url = FeedUrl(Argument(line.operands[0]), error);
    if (!url)
        return UsageError(kSubscribeForm.name, error, kSubscribeForm.usage);
    const auto registry = OpenSettingsStore("subscribe");
    if (!registry)
        return kExitFailed;
    SubscriptionStore store(*registry);
    const bool known = store.Find(url->toString()).has_value();
    const int status = Subscribe(store, *url, line.keep);
    if (status != kExitDone || known || line.noUpdate)
        return status;
    return UpdateSubscriptions(*registry, url->toString(), playerPath, false, "subscribe");
}

int RunUnsubscribeCommand(const std::vector<std::string>& args, const std::string&)
{
    CommandLine line;
    if (const auto status = ReadCommandLine(kUnsubscribeForm, args, line))
        return *status;
    const auto registry = OpenSettingsStore("unsubscribe");
    if (!registry)
        return kExitFailed;
    SubscriptionStore store(*registry);
    const std::optional<Subscription> found = FindOne("unsubscribe", store, Argument(line.operands[0]));
    if (!found)
        return kExitFailed;
    if (!store.Remove(found->url)) {
        PrintError("unsubscribe", store.error());
        return kExitFailed;
    }
    long onDevice = 0;
    for (const EpisodeRecord& e : found->episodes)
        onDevice += e.state == EpisodeState::Ready || e.state == EpisodeState::Listened ? 1 : 0;
    std::printf("unsubscribed from %s; %ld episode(s) in the Music folder stay\n",
                NameOf(*found).toLocal8Bit().constData(), onDevice);
    return kExitDone;
}

int RunListCommand(const std::vector<std::string>& args, const std::string&)
{
    CommandLine line;
    if (const auto status = ReadCommandLine(kListForm, args, line))
        return *status;
    const auto registry = OpenSettingsStore("list");
    if (!registry)
        return kExitFailed;
    SubscriptionStore store(*registry);
    std::vector<Subscription> all;
    if (!store.Load(all)) {
        PrintError("list", store.error());
        return kExitFailed;
    }
    PrintSkipped("list", store);
    if (all.empty())
        std::puts("no subscriptions (feldrun subscribe URL makes one)");
    for (Subscription& s : all) {
        // What the listener has heard since the last look is shown as heard.
        if (MarkListened(*registry, s) > 0 && !store.Save(s))
            PrintError("list", QStringLiteral("warning: %1").arg(store.error()));
        PrintSubscription(s);
    }
    return kExitDone;
}

int RunKeepCommand(const std::vector<std::string>& args, const std::string&)
{
    CommandLine line;
    if (const auto status = ReadCommandLine(kKeepForm, args, line))
        return *status;
    const std::optional<std::uint32_t> keep = KeepCount(line.operands[1]);
    if (!keep)
        return UsageError(kKeepForm.name,
                          QStringLiteral("keep a number of episodes from 1 to %1").arg(kMaxKeep),
                          kKeepForm.usage);
    const auto registry = OpenSettingsStore("keep");
    if (!registry)
        return kExitFailed;
    SubscriptionStore store(*registry);
    std::optional<Subscription> found = FindOne("keep", store, Argument(line.operands[0]));
    if (!found)
        return kExitFailed;
    found->keep = *keep;
    if (!store.Save(*found)) {
        PrintError("keep", store.error());
        return kExitFailed;
    }
    std::printf("%s keeps the newest %u episode(s)\n", NameOf(*found).toLocal8Bit().constData(), *keep);
    return kExitDone;
}

int RunOpmlCommand(const std::vector<std::string>& args, const std::string&)
{
    CommandLine line;
    if (const auto status = ReadCommandLine(kOpmlForm, args, line))
        return *status;
    const bool import = line.operands[0] == "import";
    if (!import && line.operands[0] != "export")
        return UsageError(kOpmlForm.name, QString::fromLatin1(kOpmlForm.operandsWanted), kOpmlForm.usage);
    const auto registry = OpenSettingsStore(import ? "opml import" : "opml export");
    if (!registry)
        return kExitFailed;
    SubscriptionStore store(*registry);
    const QString path = talvo::DecodeFileName(line.operands[1]);
    return import ? ImportOpml(store, path) : ExportOpml(store, path);
}

} // namespace feldrun
