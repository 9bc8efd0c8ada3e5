// RSS 2.0 (and 1.0) and Atom, read in one pass.  Elements are told apart by
// their namespace's URI, not the prefix a feed happens to use; the prefixes
// everyone uses stand in for a declaration a feed forgot, and the few URIs
// feeds commonly get wrong are taken for the right ones.
#include "Feed.h"

#include "PlainText.h"

#include <QSet>
#include <QXmlStreamEntityResolver>
#include <QXmlStreamReader>

#include <array>
#include <string_view>

namespace feldrun {

namespace {

enum class Ns { None, Atom, ITunes, Podcast, Content, Media, DublinCore, Rss1, Other };

struct KnownNamespace {
    std::string_view uri; // compared without scheme, "www.", case and trailing slash
    std::string_view usualPrefix;
    Ns ns;
};

constexpr KnownNamespace kNamespaces[] = {
    {"w3.org/2005/atom", "atom", Ns::Atom},
    {"purl.org/atom/ns#", "", Ns::Atom}, // Atom 0.3
    {"itunes.com/dtds/podcast-1.0.dtd", "itunes", Ns::ITunes},
    {"podcastindex.org/namespace/1.0", "podcast", Ns::Podcast},
    // The namespace's documentation page, declared by many feeds in its place.
    {"github.com/podcastindex-org/podcast-namespace/blob/main/docs/1.0.md", "", Ns::Podcast},
    {"purl.org/rss/1.0/modules/content", "content", Ns::Content},
    {"search.yahoo.com/mrss", "media", Ns::Media},
    {"purl.org/dc/elements/1.1", "dc", Ns::DublinCore},
    {"purl.org/rss/1.0", "", Ns::Rss1},
};

constexpr int kPreviewBytes = 40;
constexpr int kSniffBytes = 1024;
constexpr int kSecondsPerMinute = 60;

QString ComparableUri(QStringView uri)
{
    QString s = uri.trimmed().toString().toLower();
    for (const char* scheme : {"https://", "http://"}) {
        if (s.startsWith(QLatin1StringView(scheme))) {
            s.remove(0, qsizetype(std::char_traits<char>::length(scheme)));
            break;
        }
    }
    if (s.startsWith(QLatin1StringView("www.")))
        s.remove(0, 4);
    while (s.endsWith(u'/'))
        s.chop(1);
    return s;
}

Ns NamespaceOfUri(QStringView uri)
{
    if (uri.isEmpty())
        return Ns::None;
    const QString s = ComparableUri(uri);
    for (const KnownNamespace& k : kNamespaces) {
        if (s == QLatin1StringView(k.uri.data(), qsizetype(k.uri.size())))
            return k.ns;
    }
    return Ns::Other;
}

Ns NamespaceOfUndeclaredPrefix(QStringView prefix)
{
    for (const KnownNamespace& k : kNamespaces) {
        if (!k.usualPrefix.empty() &&
            prefix == QLatin1StringView(k.usualPrefix.data(), qsizetype(k.usualPrefix.size())))
            return k.ns;
    }
    return Ns::Other;
}

// HTML's named entities, which feeds use in XML where only five exist.
class HtmlEntityResolver : public QXmlStreamEntityResolver {
public:
    QString resolveUndeclaredEntity(const QString& name) override { return HtmlEntityText(name); }
};

// The reader with its own namespace scopes: Qt's namespace processing fails
// the whole document at a prefix nobody declared, which feeds do.
class FeedReader {
public:
    explicit FeedReader(const QByteArray& bytes) : xml_(bytes)
    {
        xml_.setNamespaceProcessing(false);
        xml_.setEntityResolver(&entities_);
    }

    // Moves to the next child element of the element being read; false at
    // that element's end (or the document's, or an error).
    bool NextChild()
    {
        while (!xml_.atEnd()) {
            switch (xml_.readNext()) {
            case QXmlStreamReader::StartElement:
                enterElement();
                return true;
            case QXmlStreamReader::EndElement:
                scopes_.pop_back();
                return false;
            default:
                break;
            }
        }
        return false;
    }
    // The current element's text, child elements' text included; leaves it.
    QString Text()
    {
        const QString text = xml_.readElementText(QXmlStreamReader::IncludeChildElements);
        scopes_.pop_back();
        return text.trimmed();
    }
    void Skip()
    {
        xml_.skipCurrentElement();
        scopes_.pop_back();
    }
    bool Is(Ns ns, QLatin1StringView name) const { return ns_ == ns && name_ == name; }
    // RSS elements come without a namespace (2.0) or in RSS 1.0's.
    bool IsRss(QLatin1StringView name) const { return (ns_ == Ns::None || ns_ == Ns::Rss1) && name_ == name; }
    QString Attribute(QLatin1StringView name) const
    {
        return xml_.attributes().value(name).toString().trimmed();
    }
    QStringView QualifiedName() const { return xml_.qualifiedName(); }
    QXmlStreamReader& xml() { return xml_; }

private:
    void enterElement()
    {
        std::vector<std::pair<QString, QString>> declared;
        for (const QXmlStreamAttribute& a : xml_.attributes()) {
            if (a.qualifiedName() == u"xmlns")
                declared.emplace_back(QString(), a.value().toString());
            else if (a.prefix() == u"xmlns")
                declared.emplace_back(a.name().toString(), a.value().toString());
        }
        scopes_.push_back(std::move(declared));
        const QStringView qualified = xml_.qualifiedName();
        const qsizetype colon = qualified.indexOf(u':');
        const QStringView prefix = colon < 0 ? QStringView() : qualified.left(colon);
        name_ = colon < 0 ? qualified.toString() : qualified.mid(colon + 1).toString();
        ns_ = resolve(prefix);
    }
    Ns resolve(QStringView prefix) const
    {
        for (auto scope = scopes_.rbegin(); scope != scopes_.rend(); ++scope) {
            for (const auto& [declaredPrefix, uri] : *scope) {
                if (declaredPrefix == prefix)
                    return NamespaceOfUri(uri);
            }
        }
        return prefix.isEmpty() ? Ns::None : NamespaceOfUndeclaredPrefix(prefix);
    }

    QXmlStreamReader xml_;
    HtmlEntityResolver entities_;
    std::vector<std::vector<std::pair<QString, QString>>> scopes_;
    Ns ns_ = Ns::None;
    QString name_;
};

// itunes:duration: "3600", "3600.5", "59:30", "1:02:03"; 0 when unreadable.
std::uint32_t DurationSeconds(const QString& text)
{
    const QStringList parts = text.split(u':');
    if (parts.size() > 3)
        return 0;
    double seconds = 0;
    for (qsizetype i = 0; i < parts.size(); ++i) {
        bool ok = false;
        const double part = parts[i].trimmed().toDouble(&ok);
        // Only the first field may exceed 59 ("90:00" is ninety minutes).
        if (!ok || part < 0 || (i > 0 && part >= kSecondsPerMinute))
            return 0;
        seconds = seconds * kSecondsPerMinute + part;
    }
    return seconds < double(UINT32_MAX) ? std::uint32_t(seconds) : 0;
}

// A link as the feed gives it, made absolute against the feed's URL.  Blanks
// and non-ASCII characters are percent-encoded as they must be on the wire.
QUrl ResolvedUrl(const QString& text, const QUrl& base)
{
    if (text.isEmpty())
        return {};
    const QUrl url(text, QUrl::TolerantMode);
    if (!url.isValid())
        return {};
    return base.isEmpty() ? url : base.resolved(url);
}

bool IsWebUrl(const QUrl& url)
{
    return url.isValid() && !url.host().isEmpty() &&
           (url.scheme() == QLatin1StringView("http") || url.scheme() == QLatin1StringView("https"));
}

struct Enclosure {
    QString url;
    std::uint64_t bytes = 0;
    QString type;
};

struct ItemText {
    QString guid;
    QString description; // description, Atom summary or content
    QString summary;     // itunes:summary
    QString content;     // content:encoded
    QString published;
    QString updated;
    QString image;
    QString chapters;
    Enclosure enclosure;
};

class FeedParser {
public:
    FeedParser(const QByteArray& bytes, const QUrl& baseUrl, Feed& feed)
        : bytes_(bytes), reader_(bytes), base_(baseUrl), feed_(feed)
    {
    }

    bool Parse(QString& error);

private:
    void readChannel();
    void readItem();
    void readChannelImage();
    void readAtomAuthor(QString& author);
    void readEnclosure(Enclosure& enclosure);
    bool readItemField(FeedEpisode& episode, ItemText& item);
    void addEpisode(FeedEpisode& episode, const ItemText& item);
    QString readAtomText();

    const QByteArray& bytes_;
    FeedReader reader_;
    QUrl base_;
    Feed& feed_;
    QSet<QString> guids_;
    int repeatedGuids_ = 0;
    int unusableEnclosures_ = 0;
    QString managingEditor_;
    QString rssImage_;
};

QString BeginningOf(const QByteArray& bytes)
{
    QString preview = QString::fromUtf8(bytes.left(kPreviewBytes)).simplified();
    for (QChar& c : preview) {
        if (!c.isPrint())
            c = u'?';
    }
    return preview;
}

bool LooksLikeHtml(const QByteArray& bytes)
{
    const QByteArray start = bytes.left(kSniffBytes).toLower();
    return start.contains("<!doctype html") || start.contains("<html");
}

QString XmlErrorMessage(const QByteArray& bytes, const QXmlStreamReader& xml)
{
    return QStringLiteral("not XML: %1 at line %2, column %3 (the body begins \"%4\")")
        .arg(xml.errorString())
        .arg(xml.lineNumber())
        .arg(xml.columnNumber())
        .arg(BeginningOf(bytes.trimmed()));
}

// What a body without a feed's root element is, in a listener's words.
QString NotAFeedMessage(const QByteArray& bytes, FeedReader& reader)
{
    const QByteArray trimmed = bytes.trimmed();
    if (trimmed.isEmpty())
        return QStringLiteral("not a feed: the body is empty");
    if (LooksLikeHtml(trimmed))
        return QStringLiteral("not a feed: an HTML page");
    if (reader.xml().hasError())
        return XmlErrorMessage(bytes, reader.xml());
    return QStringLiteral("not a feed: an XML document of type <%1>").arg(reader.QualifiedName());
}

bool FeedParser::Parse(QString& error)
{
    FeedReader& r = reader_;
    const bool root = r.NextChild();
    const bool rss = root && (r.IsRss(QLatin1StringView("rss")) || r.QualifiedName().endsWith(u"RDF"));
    const bool atom = root && r.Is(Ns::Atom, QLatin1StringView("feed"));
    if (!rss && !atom) {
        error = NotAFeedMessage(bytes_, r);
        return false;
    }
    if (atom)
        readChannel();
    else {
        while (r.NextChild()) {
            if (r.IsRss(QLatin1StringView("channel")))
                readChannel();
            else if (r.IsRss(QLatin1StringView("item"))) // RSS 1.0 keeps items beside the channel
                readItem();
            else
                r.Skip();
        }
    }
    // Anything after the root element, or an error inside it, still counts.
    while (!r.xml().atEnd())
        r.xml().readNext();
    if (r.xml().hasError()) {
        error = XmlErrorMessage(bytes_, r.xml());
        return false;
    }
    if (feed_.author.isEmpty())
        feed_.author = managingEditor_;
    if (feed_.imageUrl.isEmpty())
        feed_.imageUrl = ResolvedUrl(rssImage_, base_);
    for (FeedEpisode& e : feed_.episodes) {
        if (e.imageUrl.isEmpty())
            e.imageUrl = feed_.imageUrl;
    }
    if (repeatedGuids_ > 0)
        feed_.warnings.push_back(
            QStringLiteral("%1 item(s) repeat the GUID of an earlier item; the first of each is kept")
                .arg(repeatedGuids_));
    if (unusableEnclosures_ > 0)
        feed_.warnings.push_back(
            QStringLiteral("%1 item(s) have an enclosure that is not an http or https link; left out")
                .arg(unusableEnclosures_));
    return true;
}

void FeedParser::readChannel()
{
    FeedReader& r = reader_;
    while (r.NextChild()) {
        if (r.IsRss(QLatin1StringView("item")) || r.Is(Ns::Atom, QLatin1StringView("entry")))
            readItem();
        else if (r.IsRss(QLatin1StringView("title")) || r.Is(Ns::Atom, QLatin1StringView("title")))
            feed_.title = r.Is(Ns::Atom, QLatin1StringView("title")) ? readAtomText() : r.Text().simplified();
        else if (r.Is(Ns::ITunes, QLatin1StringView("author")))
            feed_.author = r.Text().simplified();
        else if (r.IsRss(QLatin1StringView("managingEditor")))
            managingEditor_ = r.Text().simplified();
        else if (r.Is(Ns::Atom, QLatin1StringView("author")))
            readAtomAuthor(managingEditor_);
        else if (r.IsRss(QLatin1StringView("description")) || r.Is(Ns::Atom, QLatin1StringView("subtitle")))
            feed_.description = PlainTextOf(r.Text());
        else if (r.Is(Ns::ITunes, QLatin1StringView("summary")) && feed_.description.isEmpty())
            feed_.description = PlainTextOf(r.Text());
        else if (r.Is(Ns::ITunes, QLatin1StringView("image"))) {
            feed_.imageUrl = ResolvedUrl(r.Attribute(QLatin1StringView("href")), base_);
            r.Skip();
        } else if (r.IsRss(QLatin1StringView("image")))
            readChannelImage();
        else if (r.Is(Ns::Atom, QLatin1StringView("logo")) || r.Is(Ns::Atom, QLatin1StringView("icon"))) {
            const QString logo = r.Text();
            if (rssImage_.isEmpty() || r.Is(Ns::Atom, QLatin1StringView("logo")))
                rssImage_ = logo;
        } else if (r.IsRss(QLatin1StringView("link")))
            feed_.link = ResolvedUrl(r.Text(), base_);
        else if (r.Is(Ns::Atom, QLatin1StringView("link"))) {
            const QString rel = r.Attribute(QLatin1StringView("rel"));
            if (rel.isEmpty() || rel == QLatin1StringView("alternate"))
                feed_.link = ResolvedUrl(r.Attribute(QLatin1StringView("href")), base_);
            r.Skip();
        } else
            r.Skip();
    }
}

void FeedParser::readChannelImage()
{
    FeedReader& r = reader_;
    while (r.NextChild()) {
        if (r.IsRss(QLatin1StringView("url")))
            rssImage_ = r.Text();
        else
            r.Skip();
    }
}

void FeedParser::readAtomAuthor(QString& author)
{
    FeedReader& r = reader_;
    while (r.NextChild()) {
        if (r.Is(Ns::Atom, QLatin1StringView("name")) && author.isEmpty())
            author = r.Text().simplified();
        else
            r.Skip();
    }
}

// Atom text constructs: text, escaped HTML, or inline XHTML.
QString FeedParser::readAtomText()
{
    const QString type = reader_.Attribute(QLatin1StringView("type"));
    const QString text = reader_.Text();
    return type == QLatin1StringView("html") ? PlainTextOf(text) : text.simplified();
}

void FeedParser::readEnclosure(Enclosure& enclosure)
{
    FeedReader& r = reader_;
    const bool atomLink = r.Is(Ns::Atom, QLatin1StringView("link"));
    if (atomLink && r.Attribute(QLatin1StringView("rel")) != QLatin1StringView("enclosure"))
        return;
    Enclosure found;
    found.url = r.Attribute(QLatin1StringView(atomLink ? "href" : "url"));
    found.bytes = r.Attribute(QLatin1StringView("length")).toULongLong();
    found.type = r.Attribute(QLatin1StringView("type"));
    // The first enclosure, unless a later one is audio and it is not.
    const auto isAudio = [](const Enclosure& e) {
        return e.type.startsWith(QLatin1StringView("audio/"));
    };
    if (!found.url.isEmpty() && (enclosure.url.isEmpty() || (isAudio(found) && !isAudio(enclosure))))
        enclosure = found;
}

bool FeedParser::readItemField(FeedEpisode& episode, ItemText& item)
{
    FeedReader& r = reader_;
    if (r.IsRss(QLatin1StringView("title")))
        episode.title = r.Text().simplified();
    else if (r.Is(Ns::Atom, QLatin1StringView("title")))
        episode.title = readAtomText();
    else if (r.IsRss(QLatin1StringView("guid")) || r.Is(Ns::Atom, QLatin1StringView("id")))
        item.guid = r.Text();
    else if (r.IsRss(QLatin1StringView("description")) || r.Is(Ns::Atom, QLatin1StringView("summary")))
        item.description = r.Text();
    else if (r.Is(Ns::Atom, QLatin1StringView("content")) && item.description.isEmpty())
        item.description = r.Text();
    else if (r.Is(Ns::ITunes, QLatin1StringView("summary")))
        item.summary = r.Text();
    else if (r.Is(Ns::Content, QLatin1StringView("encoded")))
        item.content = r.Text();
    else if (r.IsRss(QLatin1StringView("pubDate")) || r.Is(Ns::Atom, QLatin1StringView("published")))
        item.published = r.Text();
    else if (r.Is(Ns::DublinCore, QLatin1StringView("date")) || r.Is(Ns::Atom, QLatin1StringView("updated")))
        item.updated = r.Text();
    else if (r.Is(Ns::ITunes, QLatin1StringView("duration")))
        episode.durationSeconds = DurationSeconds(r.Text());
    else if (r.IsRss(QLatin1StringView("enclosure")) || r.Is(Ns::Atom, QLatin1StringView("link")) ||
             (r.Is(Ns::Media, QLatin1StringView("content")) && item.enclosure.url.isEmpty())) {
        readEnclosure(item.enclosure);
        r.Skip();
    } else if (r.Is(Ns::ITunes, QLatin1StringView("image"))) {
        item.image = r.Attribute(QLatin1StringView("href"));
        r.Skip();
    } else if (r.Is(Ns::Podcast, QLatin1StringView("chapters"))) {
        const QString type = r.Attribute(QLatin1StringView("type"));
        if (type.isEmpty() || type.contains(QLatin1StringView("json")))
            item.chapters = r.Attribute(QLatin1StringView("url"));
        r.Skip();
    } else
        return false;
    return true;
}

void FeedParser::readItem()
{
    FeedEpisode episode;
    ItemText item;
    while (reader_.NextChild()) {
        if (!readItemField(episode, item))
            reader_.Skip();
    }
    addEpisode(episode, item);
}

void FeedParser::addEpisode(FeedEpisode& episode, const ItemText& item)
{
    if (item.enclosure.url.isEmpty())
        return;
    episode.enclosureUrl = ResolvedUrl(item.enclosure.url, base_);
    if (!IsWebUrl(episode.enclosureUrl)) {
        ++unusableEnclosures_;
        return;
    }
    episode.enclosureBytes = item.enclosure.bytes;
    episode.enclosureType = item.enclosure.type;
    episode.guid = item.guid.isEmpty() ? episode.enclosureUrl.toString(QUrl::FullyEncoded) : item.guid;
    if (guids_.contains(episode.guid)) {
        ++repeatedGuids_;
        return;
    }
    guids_.insert(episode.guid);
    const QString& description = !item.description.isEmpty() ? item.description
                                 : !item.summary.isEmpty()   ? item.summary
                                                             : item.content;
    episode.description = PlainTextOf(description);
    episode.published = ParseFeedDate(item.published.isEmpty() ? item.updated : item.published);
    episode.imageUrl = ResolvedUrl(item.image, base_);
    episode.chaptersUrl = ResolvedUrl(item.chapters, base_);
    if (!IsWebUrl(episode.chaptersUrl))
        episode.chaptersUrl.clear();
    feed_.episodes.push_back(std::move(episode));
}

} // namespace

bool ParseFeed(const QByteArray& bytes, const QUrl& baseUrl, Feed& feed, QString& error)
{
    feed = Feed();
    FeedParser parser(bytes, baseUrl, feed);
    if (parser.Parse(error))
        return true;
    feed = Feed();
    return false;
}

} // namespace feldrun
