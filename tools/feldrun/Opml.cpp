#include "Opml.h"

#include <QDateTime>
#include <QSet>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

namespace feldrun {

namespace {

QString OutlineTitle(const QXmlStreamAttributes& attributes)
{
    const QString text = attributes.value(QLatin1StringView("text")).toString().simplified();
    return text.isEmpty() ? attributes.value(QLatin1StringView("title")).toString().simplified() : text;
}

} // namespace

bool ParseOpml(const QByteArray& bytes, std::vector<OpmlOutline>& outlines, QString& error)
{
    outlines.clear();
    QXmlStreamReader xml(bytes);
    // OPML has no namespace; apps that add one of their own still write it plain.
    xml.setNamespaceProcessing(false);
    bool root = false;
    QSet<QString> seen;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (!root) {
            if (xml.name().compare(QLatin1StringView("opml"), Qt::CaseInsensitive) != 0) {
                error =
                    QStringLiteral("not an OPML file: an XML document of type <%1>").arg(xml.qualifiedName());
                return false;
            }
            root = true;
            continue;
        }
        if (xml.name().compare(QLatin1StringView("outline"), Qt::CaseInsensitive) != 0)
            continue;
        const QXmlStreamAttributes attributes = xml.attributes();
        // Some apps spell it xmlurl or XMLURL.
        QString url;
        for (const QXmlStreamAttribute& a : attributes) {
            if (a.name().compare(QLatin1StringView("xmlUrl"), Qt::CaseInsensitive) == 0)
                url = a.value().toString().trimmed();
        }
        const QUrl feed(url, QUrl::TolerantMode);
        if (url.isEmpty() || !feed.isValid() || feed.isRelative())
            continue;
        const QString key = feed.toString(QUrl::FullyEncoded);
        if (seen.contains(key))
            continue;
        seen.insert(key);
        // Apps name an untitled feed by its URL, as WriteOpml does: no title.
        // The URL may be spelt another way there ("#" for "%23"), so the two
        // are compared as URLs, fully encoded.
        const QString title = OutlineTitle(attributes);
        const bool namesItsUrl =
            title == url || QUrl(title, QUrl::TolerantMode).toString(QUrl::FullyEncoded) == key;
        outlines.push_back({feed, namesItsUrl ? QString() : title});
    }
    if (xml.hasError()) {
        error = root ? QStringLiteral("not an OPML file: %1 at line %2")
                           .arg(xml.errorString())
                           .arg(xml.lineNumber())
                     : QStringLiteral("not an OPML file: not XML (%1 at line %2)")
                           .arg(xml.errorString())
                           .arg(xml.lineNumber());
        outlines.clear();
        return false;
    }
    if (!root) {
        error = QStringLiteral("not an OPML file: it is empty");
        return false;
    }
    return true;
}

QByteArray WriteOpml(const std::vector<OpmlOutline>& outlines, const QString& documentTitle)
{
    QByteArray bytes;
    QXmlStreamWriter xml(&bytes);
    xml.setAutoFormatting(true);
    xml.setAutoFormattingIndent(2);
    xml.writeStartDocument();
    xml.writeStartElement(QStringLiteral("opml"));
    xml.writeAttribute(QStringLiteral("version"), QStringLiteral("2.0"));
    xml.writeStartElement(QStringLiteral("head"));
    xml.writeTextElement(QStringLiteral("title"), documentTitle);
    xml.writeTextElement(QStringLiteral("dateCreated"),
                         QDateTime::currentDateTimeUtc().toString(Qt::RFC2822Date));
    xml.writeEndElement();
    xml.writeStartElement(QStringLiteral("body"));
    for (const OpmlOutline& o : outlines) {
        const QString title = o.title.isEmpty() ? o.url.toString() : o.title;
        xml.writeEmptyElement(QStringLiteral("outline"));
        xml.writeAttribute(QStringLiteral("type"), QStringLiteral("rss"));
        xml.writeAttribute(QStringLiteral("text"), title);
        xml.writeAttribute(QStringLiteral("title"), title);
        xml.writeAttribute(QStringLiteral("xmlUrl"), o.url.toString(QUrl::FullyEncoded));
    }
    xml.writeEndDocument();
    return bytes;
}

} // namespace feldrun
