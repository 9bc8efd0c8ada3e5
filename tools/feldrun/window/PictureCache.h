#pragma once
// Subscriptions' pictures for the window: each downloaded once, made small,
// and kept in the player's cache folder, so the list shows them at once on
// the next start and without the network.

#include <QHash>
#include <QIcon>
#include <QObject>
#include <QSet>
#include <QUrl>

class QNetworkAccessManager;
class QNetworkReply;

namespace feldrun {

class PictureCache : public QObject {
    Q_OBJECT
public:
    // folder: where the small copies are kept (made when first needed).
    explicit PictureCache(QString folder, QObject* parent = nullptr);

    // The picture at url when it is at hand; otherwise a null icon, and
    // pictureReady follows once it has been fetched.  A picture that cannot
    // be fetched or read stays null (and is not asked for again this run).
    QIcon Picture(const QUrl& url);

    // The file a picture is kept in.
    QString CachedPath(const QUrl& url) const;

    // Edge of the kept copy, in pixels: twice the list's icon, for high-density screens.
    static constexpr int kPictureEdge = 96;

signals:
    void pictureReady(const QUrl& url);

private:
    void Fetch(const QUrl& url);
    void Keep(QNetworkReply* reply);

    QString folder_;
    QNetworkAccessManager* network_ = nullptr;
    QHash<QUrl, QIcon> pictures_;
    QSet<QUrl> asked_;
};

} // namespace feldrun
