#pragma once
// OPML 2.0 subscription lists, the form podcast apps hand subscriptions to
// each other in.

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <vector>

namespace feldrun {

struct OpmlOutline {
    QUrl url;      // the feed (xmlUrl)
    QString title; // empty when the file names the feed by its URL alone
};

// Every outline with an xmlUrl, at any depth, in the document's order, once
// per URL; outlines without one (folders) only group.  False with a message
// when the bytes are no OPML document.
bool ParseOpml(const QByteArray& bytes, std::vector<OpmlOutline>& outlines, QString& error);

// An OPML 2.0 document of the outlines, each as an rss outline with text,
// title and xmlUrl, as other podcast apps read them; an untitled one is named
// by its URL.
QByteArray WriteOpml(const std::vector<OpmlOutline>& outlines, const QString& documentTitle);

} // namespace feldrun
