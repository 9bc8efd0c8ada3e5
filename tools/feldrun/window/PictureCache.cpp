#include "PictureCache.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSaveFile>

namespace feldrun {
namespace {

// Podcast artwork is often 3000 pixels square; anything larger than this is
// not a picture a feed means to show.
constexpr qint64 kMaxPictureBytes = 16 * 1024 * 1024;
constexpr int kPictureTimeoutMs = 30000;

} // namespace

PictureCache::PictureCache(QString folder, QObject* parent)
    : QObject(parent), folder_(std::move(folder)), network_(new QNetworkAccessManager(this))
{
    network_->setTransferTimeout(kPictureTimeoutMs);
}

QString PictureCache::CachedPath(const QUrl& url) const
{
    const QByteArray key = QCryptographicHash::hash(url.toEncoded(), QCryptographicHash::Sha1).toHex();
    return folder_ + QLatin1Char('/') + QString::fromLatin1(key) + QStringLiteral(".png");
}

QIcon PictureCache::Picture(const QUrl& url)
{
    if (!url.isValid() || url.isEmpty())
        return {};
    if (const auto known = pictures_.constFind(url); known != pictures_.constEnd())
        return *known;
    const QImage kept(CachedPath(url));
    if (!kept.isNull())
        return pictures_[url] = QIcon(QPixmap::fromImage(kept));
    Fetch(url);
    return {};
}

void PictureCache::Fetch(const QUrl& url)
{
    if (asked_.contains(url))
        return;
    asked_.insert(url);
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkReply* reply = network_->get(request);
    connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
        if (received > kMaxPictureBytes)
            reply->abort();
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply] { Keep(reply); });
}

void PictureCache::Keep(QNetworkReply* reply)
{
    reply->deleteLater();
    const QUrl url = reply->request().url();
    QImage image;
    if (reply->error() != QNetworkReply::NoError || !image.loadFromData(reply->readAll()))
        return;
    image = image.scaled(kPictureEdge, kPictureEdge, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    // The copy is only a convenience: one that cannot be kept is fetched
    // again next time.
    QDir().mkpath(folder_);
    QSaveFile file(CachedPath(url));
    if (file.open(QIODevice::WriteOnly) && image.save(&file, "PNG"))
        file.commit();
    pictures_[url] = QIcon(QPixmap::fromImage(image));
    emit pictureReady(url);
}

} // namespace feldrun
