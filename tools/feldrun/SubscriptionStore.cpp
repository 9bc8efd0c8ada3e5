// The layout (docs/feldrun.md, "Where feldrun keeps its state"):
//
//   HKEY_LOCAL_MACHINE\Software\Talvo\Feldrun\Subscriptions
//     \<key>                  "URL" REG_SZ, "Title", "Author", "Picture", "ETag",
//                             "Last Modified" REG_SZ; "Keep", "Order" REG_DWORD
//       \Episodes             "Count" REG_DWORD
//         \Episode<i>         "GUID", "Title", "Enclosure", "Program", "Program Id",
//                             "Error" REG_SZ; "Published", "State" REG_DWORD
//
// <key> is a hash of the URL the subscription was made with, so any URL makes
// a key name and a later change of URL keeps the key.  Episodes are numbered
// newest first, as the player numbers bookmarks.
#include "SubscriptionStore.h"

#include "platform/RegistryTransaction.h"
#include "platform/SystemError.h"

#include <QCryptographicHash>

#include <algorithm>
#include <array>
#include <limits>

namespace feldrun {

using namespace talvo;

namespace {

constexpr std::u16string_view kSubscriptionsKey = u"Software\\Talvo\\Feldrun\\Subscriptions";
constexpr std::u16string_view kEpisodesKey = u"Episodes";
constexpr std::u16string_view kEpisodePrefix = u"Episode";
constexpr std::u16string_view kCount = u"Count";

// Subscription values.
constexpr std::u16string_view kUrl = u"URL";
constexpr std::u16string_view kTitle = u"Title";
constexpr std::u16string_view kAuthor = u"Author";
constexpr std::u16string_view kPicture = u"Picture";
constexpr std::u16string_view kEtag = u"ETag";
constexpr std::u16string_view kLastModified = u"Last Modified";
constexpr std::u16string_view kKeep = u"Keep";
// Subscriptions are listed in the order they were made: each takes the
// subscriptions key's "Next Order" when it is first saved.
constexpr std::u16string_view kOrder = u"Order";
constexpr std::u16string_view kNextOrder = u"Next Order";

// Episode values.
constexpr std::u16string_view kGuid = u"GUID";
constexpr std::u16string_view kEnclosure = u"Enclosure";
// Seconds since 1970, UTC, as the player keeps "stopped_at".
constexpr std::u16string_view kPublished = u"Published";
constexpr std::u16string_view kState = u"State";
constexpr std::u16string_view kProgram = u"Program";
constexpr std::u16string_view kProgramId = u"Program Id";
constexpr std::u16string_view kError = u"Error";

// Hex digits of the URL's SHA-1 that name its key: 64 bits, enough that two
// subscriptions of one listener never meet.
constexpr int kKeyHexDigits = 16;
constexpr std::size_t kDwordBytes = 4;

// A key handle closed when it goes out of scope.
class OpenedKey {
public:
    explicit OpenedKey(Registry& registry) : registry_(registry) {}
    ~OpenedKey()
    {
        if (key_ != 0)
            registry_.CloseKey(key_);
    }
    OpenedKey(const OpenedKey&) = delete;
    OpenedKey& operator=(const OpenedKey&) = delete;

    RegStatus Open(HKEY parent, std::u16string_view path)
    {
        return registry_.OpenKey(parent, path, KEY_READ, &key_);
    }
    RegStatus Create(HKEY parent, std::u16string_view path, DWORD* disposition = nullptr)
    {
        return registry_.CreateKey(parent, path, KEY_ALL_ACCESS, &key_, disposition);
    }
    HKEY get() const { return key_; }

private:
    Registry& registry_;
    HKEY key_ = 0;
};

std::optional<QString> ReadText(Registry& registry, HKEY key, std::u16string_view name)
{
    DWORD type = REG_NONE;
    std::vector<std::uint8_t> data;
    DWORD size = 0;
    if (registry.QueryValue(key, name, &type, nullptr, &size) != ERROR_SUCCESS || type != REG_SZ)
        return std::nullopt;
    data.resize(size);
    if (registry.QueryValue(key, name, &type, data.data(), &size) != ERROR_SUCCESS || type != REG_SZ)
        return std::nullopt;
    return QString::fromStdU16String(RegSzText(data.data(), size));
}

std::optional<DWORD> ReadDword(Registry& registry, HKEY key, std::u16string_view name)
{
    DWORD type = REG_NONE;
    std::array<std::uint8_t, kDwordBytes> data{};
    DWORD size = DWORD(data.size());
    if (registry.QueryValue(key, name, &type, data.data(), &size) != ERROR_SUCCESS || type != REG_DWORD ||
        size != data.size())
        return std::nullopt;
    return DWORD(data[0]) | DWORD(data[1]) << 8 | DWORD(data[2]) << 16 | DWORD(data[3]) << 24;
}

RegStatus WriteText(Registry& registry, HKEY key, std::u16string_view name, const QString& text)
{
    const std::vector<std::uint8_t> bytes = RegSzBytes(text.toStdU16String());
    return registry.SetValue(key, name, REG_SZ, bytes.data(), DWORD(bytes.size()));
}

RegStatus WriteDword(Registry& registry, HKEY key, std::u16string_view name, DWORD value)
{
    const std::array<std::uint8_t, kDwordBytes> data{std::uint8_t(value), std::uint8_t(value >> 8),
                                                     std::uint8_t(value >> 16), std::uint8_t(value >> 24)};
    return registry.SetValue(key, name, REG_DWORD, data.data(), DWORD(data.size()));
}

std::u16string EpisodeKeyName(std::size_t index)
{
    return std::u16string(kEpisodePrefix) + QString::number(index).toStdU16String();
}

QString KeyNameOf(const QUrl& url)
{
    const QByteArray hash = QCryptographicHash::hash(url.toEncoded(), QCryptographicHash::Sha1);
    return QString::fromLatin1(hash.toHex().left(kKeyHexDigits));
}

std::vector<std::u16string> SubkeyNames(Registry& registry, HKEY key)
{
    std::vector<std::u16string> names;
    std::u16string name;
    for (DWORD i = 0; registry.EnumKey(key, i, &name) == ERROR_SUCCESS; ++i)
        names.push_back(name);
    return names;
}

std::optional<EpisodeRecord> ReadEpisode(Registry& registry, HKEY episodes, std::size_t index)
{
    OpenedKey key(registry);
    if (key.Open(episodes, EpisodeKeyName(index)) != ERROR_SUCCESS)
        return std::nullopt;
    EpisodeRecord e;
    e.guid = ReadText(registry, key.get(), kGuid).value_or(QString());
    if (e.guid.isEmpty())
        return std::nullopt;
    e.title = ReadText(registry, key.get(), kTitle).value_or(QString());
    if (const auto published = ReadDword(registry, key.get(), kPublished))
        e.published = QDateTime::fromSecsSinceEpoch(*published, Qt::UTC);
    e.enclosureUrl = QUrl(ReadText(registry, key.get(), kEnclosure).value_or(QString()));
    const DWORD state = ReadDword(registry, key.get(), kState).value_or(DWORD(EpisodeState::New));
    if (state <= DWORD(EpisodeState::Failed))
        e.state = EpisodeState(state);
    e.programPath = ReadText(registry, key.get(), kProgram).value_or(QString());
    e.programId = ReadText(registry, key.get(), kProgramId).value_or(QString());
    e.error = ReadText(registry, key.get(), kError).value_or(QString());
    return e;
}

std::vector<EpisodeRecord> ReadEpisodes(Registry& registry, HKEY subscription)
{
    std::vector<EpisodeRecord> episodes;
    OpenedKey key(registry);
    if (key.Open(subscription, kEpisodesKey) != ERROR_SUCCESS)
        return episodes;
    const DWORD count = ReadDword(registry, key.get(), kCount).value_or(0);
    // The episodes' keys that are there, in their order: a damaged count, a
    // missing key or a stranger among them costs nothing else.
    std::vector<DWORD> indexes;
    for (const std::u16string& name : SubkeyNames(registry, key.get())) {
        const QString text = QString::fromStdU16String(name);
        bool ok = false;
        const DWORD index = text.mid(kEpisodePrefix.size()).toUInt(&ok);
        if (ok && index < count && EpisodeKeyName(index) == name)
            indexes.push_back(index);
    }
    std::sort(indexes.begin(), indexes.end());
    for (const DWORD index : indexes) {
        if (auto e = ReadEpisode(registry, key.get(), index))
            episodes.push_back(std::move(*e));
    }
    return episodes;
}

RegStatus WriteEpisode(Registry& registry, HKEY episodes, std::size_t index, const EpisodeRecord& e)
{
    OpenedKey key(registry);
    RegStatus status = key.Create(episodes, EpisodeKeyName(index));
    const HKEY k = key.get();
    const auto write = [&](std::u16string_view name, const QString& text) {
        if (status == ERROR_SUCCESS)
            status = WriteText(registry, k, name, text);
    };
    write(kGuid, e.guid);
    write(kTitle, e.title);
    write(kEnclosure, e.enclosureUrl.toString(QUrl::FullyEncoded));
    write(kProgram, e.programPath);
    write(kProgramId, e.programId);
    write(kError, e.error);
    const qint64 published = e.published.isValid() ? e.published.toSecsSinceEpoch() : -1;
    if (status == ERROR_SUCCESS && published >= 0 && published <= std::numeric_limits<DWORD>::max())
        status = WriteDword(registry, k, kPublished, DWORD(published));
    if (status == ERROR_SUCCESS)
        status = WriteDword(registry, k, kState, DWORD(e.state));
    return status;
}

// One feed, whether or not the listener typed the trailing slash.
bool SameUrl(const QUrl& stored, const QUrl& given)
{
    return !given.isRelative() &&
           stored.matches(given, QUrl::StripTrailingSlash | QUrl::NormalizePathSegments);
}

// The key of the subscription stored with this URL, read without its episodes.
std::optional<QString> KeyNameOfStored(Registry& registry, const QUrl& url)
{
    OpenedKey all(registry);
    if (all.Open(HKEY_LOCAL_MACHINE, kSubscriptionsKey) != ERROR_SUCCESS)
        return std::nullopt;
    for (const std::u16string& name : SubkeyNames(registry, all.get())) {
        OpenedKey key(registry);
        if (key.Open(all.get(), name) == ERROR_SUCCESS &&
            SameUrl(QUrl(ReadText(registry, key.get(), kUrl).value_or(QString())), url))
            return QString::fromStdU16String(name);
    }
    return std::nullopt;
}

struct StoredSubscription {
    Subscription subscription;
    DWORD order = 0;
};

} // namespace

bool SubscriptionStore::fail(const QString& what, RegStatus status)
{
    error_ = QStringLiteral("%1 in the settings store failed (error %2%3)")
                 .arg(what)
                 .arg(status)
                 .arg(status == ERROR_DISK_FULL ? QStringLiteral(": the disk is full") : QString());
    return false;
}

bool SubscriptionStore::Load(std::vector<Subscription>& subscriptions)
{
    subscriptions.clear();
    skipped_.clear();
    OpenedKey all(registry_);
    if (const RegStatus status = all.Open(HKEY_LOCAL_MACHINE, kSubscriptionsKey); status != ERROR_SUCCESS)
        return status == ERROR_FILE_NOT_FOUND || fail(QStringLiteral("reading the subscriptions"), status);
    std::vector<StoredSubscription> found;
    for (const std::u16string& name : SubkeyNames(registry_, all.get())) {
        const QString keyName = QString::fromStdU16String(name);
        OpenedKey key(registry_);
        if (key.Open(all.get(), name) != ERROR_SUCCESS)
            continue;
        StoredSubscription stored;
        Subscription& s = stored.subscription;
        s.storeKey = keyName;
        s.url = QUrl(ReadText(registry_, key.get(), kUrl).value_or(QString()), QUrl::StrictMode);
        if (!s.url.isValid() || s.url.isRelative()) {
            skipped_.push_back(QStringLiteral("subscription %1: no readable URL").arg(keyName));
            continue;
        }
        s.title = ReadText(registry_, key.get(), kTitle).value_or(QString());
        s.author = ReadText(registry_, key.get(), kAuthor).value_or(QString());
        s.imageUrl = QUrl(ReadText(registry_, key.get(), kPicture).value_or(QString()));
        s.etag = ReadText(registry_, key.get(), kEtag).value_or(QString());
        s.lastModified = ReadText(registry_, key.get(), kLastModified).value_or(QString());
        const DWORD keep = ReadDword(registry_, key.get(), kKeep).value_or(kDefaultKeep);
        s.keep = keep >= 1 && keep <= kMaxKeep ? keep : kDefaultKeep;
        stored.order = ReadDword(registry_, key.get(), kOrder).value_or(std::numeric_limits<DWORD>::max());
        s.episodes = ReadEpisodes(registry_, key.get());
        found.push_back(std::move(stored));
    }
    std::stable_sort(
        found.begin(), found.end(),
        [](const StoredSubscription& a, const StoredSubscription& b) { return a.order < b.order; });
    for (StoredSubscription& f : found)
        subscriptions.push_back(std::move(f.subscription));
    return true;
}

std::optional<Subscription> SubscriptionStore::Find(const QString& urlOrTitle)
{
    std::vector<Subscription> all;
    if (!Load(all))
        return std::nullopt;
    const QUrl url(urlOrTitle.trimmed(), QUrl::TolerantMode);
    for (Subscription& s : all) {
        if (SameUrl(s.url, url))
            return std::move(s);
    }
    for (Subscription& s : all) {
        if (s.title.compare(urlOrTitle.trimmed(), Qt::CaseInsensitive) == 0)
            return std::move(s);
    }
    return std::nullopt;
}

bool SubscriptionStore::Save(const Subscription& subscription)
{
    QString keyName = subscription.storeKey;
    if (keyName.isEmpty())
        keyName = KeyNameOfStored(registry_, subscription.url).value_or(KeyNameOf(subscription.url));
    RegistryTransaction transaction(registry_);
    if (transaction.status() != ERROR_SUCCESS)
        return fail(QStringLiteral("saving a subscription"), transaction.status());
    OpenedKey all(registry_);
    OpenedKey key(registry_);
    DWORD disposition = 0;
    RegStatus status = all.Create(HKEY_LOCAL_MACHINE, kSubscriptionsKey);
    if (status == ERROR_SUCCESS)
        status = key.Create(all.get(), keyName.toStdU16String(), &disposition);
    const HKEY k = key.get();
    if (status == ERROR_SUCCESS && (disposition == REG_CREATED_NEW_KEY || !ReadDword(registry_, k, kOrder))) {
        const DWORD order = ReadDword(registry_, all.get(), kNextOrder).value_or(0);
        status = WriteDword(registry_, all.get(), kNextOrder, order + 1);
        if (status == ERROR_SUCCESS)
            status = WriteDword(registry_, k, kOrder, order);
    }
    const auto write = [&](std::u16string_view name, const QString& text) {
        if (status == ERROR_SUCCESS)
            status = WriteText(registry_, k, name, text);
    };
    write(kUrl, subscription.url.toString(QUrl::FullyEncoded));
    write(kTitle, subscription.title);
    write(kAuthor, subscription.author);
    write(kPicture, subscription.imageUrl.toString(QUrl::FullyEncoded));
    write(kEtag, subscription.etag);
    write(kLastModified, subscription.lastModified);
    if (status == ERROR_SUCCESS)
        status = WriteDword(registry_, k, kKeep, std::clamp(subscription.keep, std::uint32_t(1), kMaxKeep));
    if (status == ERROR_SUCCESS) {
        const RegStatus deleted = registry_.DeleteKey(k, kEpisodesKey);
        status = deleted == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : deleted;
    }
    OpenedKey episodes(registry_);
    if (status == ERROR_SUCCESS)
        status = episodes.Create(k, kEpisodesKey);
    if (status == ERROR_SUCCESS)
        status = WriteDword(registry_, episodes.get(), kCount, DWORD(subscription.episodes.size()));
    for (std::size_t i = 0; i < subscription.episodes.size() && status == ERROR_SUCCESS; ++i)
        status = WriteEpisode(registry_, episodes.get(), i, subscription.episodes[i]);
    if (status == ERROR_SUCCESS)
        status = transaction.Commit();
    return status == ERROR_SUCCESS || fail(QStringLiteral("saving a subscription"), status);
}

bool SubscriptionStore::Remove(const QUrl& url)
{
    std::vector<Subscription> all;
    if (!Load(all))
        return false;
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const Subscription& s) { return SameUrl(s.url, url); });
    if (found == all.end()) {
        error_ = QStringLiteral("there is no subscription to %1").arg(url.toString());
        return false;
    }
    OpenedKey key(registry_);
    RegStatus status = key.Open(HKEY_LOCAL_MACHINE, kSubscriptionsKey);
    if (status == ERROR_SUCCESS)
        status = registry_.DeleteKey(key.get(), found->storeKey.toStdU16String());
    return status == ERROR_SUCCESS || fail(QStringLiteral("removing a subscription"), status);
}

} // namespace feldrun
