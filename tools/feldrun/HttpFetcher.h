#pragma once
// feldrun's HTTP: documents (feeds, chapter lists, pictures) fetched with the
// validators of the last fetch, so an unchanged feed costs one conditional
// request, and episodes downloaded into a ".part" file beside their
// destination that a broken transfer resumes with a Range request.
// Redirects are followed here rather than by Qt, so that a permanent one can
// be remembered and a loop told.
//
// Contract: an HttpFetcher lives on one thread and calls every callback on
// that thread's event loop; `done` is called exactly once per request.  The
// system proxy settings apply.  Every error names what was asked for, of
// which host, and what came back or what broke.
#include <QByteArray>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <utility>
#include <vector>

class QNetworkReply;

namespace feldrun {

struct FetchOptions {
    // An attempt with no byte moving for this long, connecting included, ends.
    int timeoutMs = 30000;
    // Attempts a broken download gets after the first, each resuming where the last stopped.
    int retries = 4;
    // Before the first retry; doubled for each next one.
    int retryDelayMs = 1000;

    // The defaults, with FELDRUN_TIMEOUT_MS and FELDRUN_RETRY_DELAY_MS when set
    // (slow links, and tests that provoke stalls).
    static FetchOptions FromEnvironment();
};

struct DocumentFetch {
    QString error;          // empty: fetched, or unchanged
    bool unchanged = false; // a 304: the document is as when its validators were kept
    QByteArray body;
    QUrl url;          // where the body came from, after redirects
    QUrl permanentUrl; // set when only permanent redirects (301, 308) led to url: the new address
    QString etag, lastModified;
};

class HttpFetcher : public QObject {
    Q_OBJECT
public:
    using DocumentDone = std::function<void(const DocumentFetch&)>;
    // total is -1 while unknown.
    using Progress = std::function<void(qint64 received, qint64 total)>;
    // error empty: the file is whole at its destination.
    using DownloadDone = std::function<void(const QString& error)>;

    explicit HttpFetcher(FetchOptions options = FetchOptions::FromEnvironment(), QObject* parent = nullptr);

    // A GET into memory; etag and lastModified (either may be empty) make it
    // conditional.
    void FetchDocument(const QUrl& url, const QString& etag, const QString& lastModified, DocumentDone done);
    // A GET into destination + ".part", renamed to destination when whole.
    // statedBytes is the length the feed gives (0: none); a body that ends
    // short of it is asked for the rest, since servers that send a wrong
    // Content-Length cut the file there.  A failed download leaves no file.
    void Download(const QUrl& url, const QString& destination, qint64 statedBytes, Progress progress,
                  DownloadDone done);

    const FetchOptions& options() const { return options_; }

private:
    class DocumentTransfer;
    class DownloadTransfer;
    using RawHeaders = std::vector<std::pair<QByteArray, QByteArray>>;

    QNetworkReply* Get(const QUrl& url, const RawHeaders& headers);

    FetchOptions options_;
    QNetworkAccessManager manager_;
};

} // namespace feldrun
