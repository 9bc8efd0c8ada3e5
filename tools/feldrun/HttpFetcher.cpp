#include "HttpFetcher.h"

#include "TalvoVersion.h"

#include <QFile>
#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QStringList>
#include <QTimer>

#include <algorithm>
#include <optional>

namespace feldrun {
namespace {

// Enough for any honest chain of trackers and mirrors; a longer one is a loop in disguise.
constexpr int kMaxRedirects = 10;
// A feed of 10,000 episodes is a few MB; a body far beyond that is not a feed.
constexpr qint64 kMaxDocumentBytes = qint64(64) << 20;

constexpr int kNotModified = 304;
constexpr int kRangeNotSatisfiable = 416;
constexpr int kPartialContent = 206;
constexpr int kFirstClientError = 400;

int EnvironmentNumber(const char* name, int fallback)
{
    bool ok = false;
    const int value = qEnvironmentVariableIntValue(name, &ok);
    return ok && value > 0 ? value : fallback;
}

int StatusOf(const QNetworkReply& reply)
{
    return reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

bool IsRedirect(int status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

bool IsPermanentRedirect(int status)
{
    return status == 301 || status == 308;
}

// What broke on the way, when no status explains it.
QString TransportText(const QNetworkReply& reply, int timeoutMs)
{
    // Qt ends a transfer that saw no byte for the transfer timeout as cancelled.
    if (reply.error() == QNetworkReply::OperationCanceledError ||
        reply.error() == QNetworkReply::TimeoutError)
        return QStringLiteral("no data for %1 s").arg(timeoutMs / 1000.0);
    return reply.errorString();
}

// Why a request failed, in words a listener can act on.
QString FailureText(const QNetworkReply& reply, int status, int timeoutMs)
{
    const QString url = reply.url().toDisplayString();
    if (status != 0)
        return QStringLiteral("%1 answered %2 %3 for %4")
            .arg(reply.url().host())
            .arg(status)
            .arg(reply.attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString(), url);
    return QStringLiteral("could not fetch %1: %2").arg(url, TransportText(reply, timeoutMs));
}

// A validator that If-Range accepts: a strong ETag, else the Last-Modified date.
QByteArray RangeValidatorOf(const QNetworkReply& reply)
{
    const QByteArray etag = reply.rawHeader("ETag");
    if (!etag.isEmpty() && !etag.startsWith("W/"))
        return etag;
    return reply.rawHeader("Last-Modified");
}

struct ContentRange {
    qint64 first = -1; // -1: "bytes */total", the answer of a 416
    qint64 total = -1; // -1: "*", not known
};

// "bytes 100-199/1000", "bytes 100-199/*" or "bytes */1000"; nullopt when unreadable.
std::optional<ContentRange> ParseContentRange(const QByteArray& header)
{
    static const QRegularExpression form(QStringLiteral(R"(^bytes\s+(?:(\d+)-\d+|\*)/(\d+|\*)$)"));
    const QRegularExpressionMatch m = form.match(QString::fromLatin1(header.trimmed()));
    if (!m.hasMatch())
        return std::nullopt;
    ContentRange range;
    if (m.capturedLength(1) > 0)
        range.first = m.captured(1).toLongLong();
    if (m.captured(2) != QLatin1String("*"))
        range.total = m.captured(2).toLongLong();
    return range;
}

// The hops of one request: a loop or too many end it, and the chain counts as
// permanent while every hop was.
class RedirectChain {
public:
    explicit RedirectChain(const QUrl& start) : hops_{start} {}

    const QUrl& Current() const { return hops_.back(); }
    bool Permanent() const { return permanent_ && hops_.size() > 1; }

    // Moves to where the reply points; false with error when that cannot be followed.
    bool Follow(const QNetworkReply& reply, int status, QString& error)
    {
        const QByteArray location = reply.rawHeader("Location");
        const QUrl target = Current().resolved(QUrl::fromEncoded(location, QUrl::TolerantMode));
        if (location.isEmpty() || !target.isValid() ||
            (target.scheme() != QLatin1String("http") && target.scheme() != QLatin1String("https"))) {
            error = QStringLiteral("%1 answered %2 for %3 but pointed nowhere that can be fetched ('%4')")
                        .arg(Current().host())
                        .arg(status)
                        .arg(Current().toDisplayString(), QString::fromLatin1(location));
            return false;
        }
        if (std::find(hops_.begin(), hops_.end(), target) != hops_.end()) {
            QStringList path;
            for (const QUrl& hop : hops_)
                path << hop.toDisplayString();
            error = QStringLiteral("redirect loop: %1 -> %2")
                        .arg(path.join(QStringLiteral(" -> ")), target.toDisplayString());
            return false;
        }
        if (hops_.size() > kMaxRedirects) {
            error = QStringLiteral("more than %1 redirects from %2")
                        .arg(kMaxRedirects)
                        .arg(hops_.front().toDisplayString());
            return false;
        }
        permanent_ = permanent_ && IsPermanentRedirect(status);
        hops_.push_back(target);
        return true;
    }

private:
    std::vector<QUrl> hops_;
    bool permanent_ = true;
};

} // namespace

FetchOptions FetchOptions::FromEnvironment()
{
    FetchOptions options;
    options.timeoutMs = EnvironmentNumber("FELDRUN_TIMEOUT_MS", options.timeoutMs);
    options.retryDelayMs = EnvironmentNumber("FELDRUN_RETRY_DELAY_MS", options.retryDelayMs);
    return options;
}

// One GET into memory, following redirects.
class HttpFetcher::DocumentTransfer : public QObject {
public:
    DocumentTransfer(HttpFetcher& fetcher, const QUrl& url, RawHeaders conditions, DocumentDone done)
        : QObject(&fetcher), fetcher_(fetcher), chain_(url), conditions_(std::move(conditions)),
          done_(std::move(done))
    {
    }

    void Send()
    {
        QNetworkReply* reply = fetcher_.Get(chain_.Current(), conditions_);
        connect(reply, &QNetworkReply::downloadProgress, this, [this, reply](qint64 received, qint64) {
            if (received > kMaxDocumentBytes && !tooLarge_) {
                tooLarge_ = true;
                reply->abort();
            }
        });
        connect(reply, &QNetworkReply::finished, this, [this, reply] {
            reply->deleteLater();
            Finished(*reply);
        });
    }

private:
    void Finished(const QNetworkReply& reply)
    {
        DocumentFetch result;
        result.url = chain_.Current();
        const int status = StatusOf(reply);
        if (tooLarge_) {
            result.error = QStringLiteral("%1 is larger than %2 MiB; not a feed")
                               .arg(result.url.toDisplayString())
                               .arg(kMaxDocumentBytes >> 20);
        } else if (IsRedirect(status)) {
            if (chain_.Follow(reply, status, result.error)) {
                Send();
                return;
            }
        } else if (status == kNotModified) {
            result.unchanged = true;
        } else if (status >= 200 && status < 300 && reply.error() == QNetworkReply::NoError) {
            result.body = const_cast<QNetworkReply&>(reply).readAll();
            result.etag = QString::fromLatin1(reply.rawHeader("ETag"));
            result.lastModified = QString::fromLatin1(reply.rawHeader("Last-Modified"));
        } else {
            result.error = FailureText(reply, status, fetcher_.options().timeoutMs);
        }
        if (result.error.isEmpty() && chain_.Permanent())
            result.permanentUrl = chain_.Current();
        done_(result);
        deleteLater();
    }

    HttpFetcher& fetcher_;
    RedirectChain chain_;
    const RawHeaders conditions_;
    const DocumentDone done_;
    bool tooLarge_ = false;
};

// One file brought in over as many attempts as it takes: each attempt starts
// at the original address (a redirect's target may be a short-lived one) and
// asks for the bytes the ".part" file does not hold yet.
class HttpFetcher::DownloadTransfer : public QObject {
public:
    DownloadTransfer(HttpFetcher& fetcher, const QUrl& url, const QString& destination, qint64 statedBytes,
                     Progress progress, DownloadDone done)
        : QObject(&fetcher), fetcher_(fetcher), url_(url), destination_(destination),
          part_(destination + QStringLiteral(".part")), statedBytes_(statedBytes),
          progress_(std::move(progress)), done_(std::move(done))
    {
    }

    void Start()
    {
        // A part left by an earlier run has no validator to resume it with: start afresh.
        if (!part_.open(QIODevice::ReadWrite | QIODevice::Truncate)) {
            Fail(QStringLiteral("cannot write %1: %2").arg(part_.fileName(), part_.errorString()));
            return;
        }
        Attempt();
    }

private:
    void Attempt()
    {
        chain_ = RedirectChain(url_);
        Send();
    }

    void Send()
    {
        const qint64 have = part_.size();
        RawHeaders headers{{"Accept-Encoding", "identity"}}; // byte offsets must be the file's
        if (have > 0 && !validator_.isEmpty()) {
            headers.push_back({"Range", "bytes=" + QByteArray::number(have) + "-"});
            headers.push_back({"If-Range", validator_});
        } else {
            part_.resize(0);
        }
        offset_ = part_.size();
        expectedEnd_ = -1;
        accepted_ = false;
        QNetworkReply* reply = fetcher_.Get(chain_.Current(), headers);
        connect(reply, &QNetworkReply::metaDataChanged, this, [this, reply] { Accept(*reply); });
        connect(reply, &QNetworkReply::readyRead, this, [this, reply] { Write(*reply); });
        connect(reply, &QNetworkReply::finished, this, [this, reply] {
            reply->deleteLater();
            Write(*reply);
            Finished(*reply);
        });
    }

    // Decides from the headers whether this answer's body belongs in the file.
    void Accept(QNetworkReply& reply)
    {
        if (accepted_)
            return;
        const int status = StatusOf(reply);
        const QVariant length = reply.header(QNetworkRequest::ContentLengthHeader);
        if (status == kPartialContent) {
            const auto range = ParseContentRange(reply.rawHeader("Content-Range"));
            if (!range || range->first != offset_) {
                wrongRange_ = true;
                reply.abort();
                return;
            }
            total_ = range->total;
        } else if (status >= 200 && status < 300) {
            // The whole file again (the server cannot resume, or it changed): start over.
            part_.resize(0);
            offset_ = 0;
            total_ = length.isValid() ? length.toLongLong() : -1;
            validator_ = RangeValidatorOf(reply);
        } else {
            return;
        }
        expectedEnd_ = length.isValid() ? offset_ + length.toLongLong() : -1;
        accepted_ = true;
    }

    void Write(QNetworkReply& reply)
    {
        if (!reply.isOpen())
            return;
        const QByteArray bytes = reply.readAll();
        if (!accepted_ || bytes.isEmpty() || !writeError_.isEmpty())
            return;
        part_.seek(part_.size());
        if (part_.write(bytes) != bytes.size() || !part_.flush()) {
            writeError_ = part_.errorString();
            reply.abort();
            return;
        }
        if (progress_)
            progress_(part_.size(), total_);
    }

    void Finished(const QNetworkReply& reply)
    {
        const int status = StatusOf(reply);
        const QString url = url_.toDisplayString();
        if (!writeError_.isEmpty())
            return Fail(QStringLiteral("cannot write %1: %2").arg(part_.fileName(), writeError_));
        if (wrongRange_) {
            wrongRange_ = false;
            part_.resize(0);
            return Retry(
                QStringLiteral("%1 resumed %2 at another byte than asked").arg(reply.url().host(), url));
        }
        if (IsRedirect(status)) {
            QString error;
            if (!chain_.Follow(reply, status, error))
                return Fail(error);
            return Send();
        }
        if (status == kRangeNotSatisfiable)
            return RangeRefused(reply);
        if (status >= kFirstClientError)
            return Fail(FailureText(reply, status, fetcher_.options().timeoutMs));
        const qint64 have = part_.size();
        if (!accepted_)
            return Retry(FailureText(reply, status, fetcher_.options().timeoutMs));
        if (reply.error() != QNetworkReply::NoError)
            return Retry(QStringLiteral("%1 broke off after %2 of %3 bytes: %4")
                             .arg(url)
                             .arg(have)
                             .arg(total_ < 0 ? QStringLiteral("?") : QString::number(total_),
                                  TransportText(reply, fetcher_.options().timeoutMs)));
        if (expectedEnd_ >= 0 && have != expectedEnd_)
            return Retry(QStringLiteral("%1 ended after %2 bytes where %3 were announced")
                             .arg(url)
                             .arg(have - offset_)
                             .arg(expectedEnd_ - offset_));
        if (have < statedBytes_ && !probed_ && !validator_.isEmpty()) {
            // The feed says there is more: a Content-Length that was too short
            // cut the body; a 416 answer says the feed's length was wrong.
            probed_ = true;
            return Attempt();
        }
        Complete();
    }

    // A 416: nothing is left from the offset asked for.  The file is whole when
    // the part holds every byte the server has; otherwise it changed, and
    // the next attempt starts over.
    void RangeRefused(const QNetworkReply& reply)
    {
        const auto range = ParseContentRange(reply.rawHeader("Content-Range"));
        if (range && range->total == part_.size())
            return Complete();
        part_.resize(0);
        Retry(QStringLiteral("%1 could not resume %2 at byte %3")
                  .arg(reply.url().host(), url_.toDisplayString())
                  .arg(offset_));
    }

    void Retry(const QString& why)
    {
        if (attempt_ >= fetcher_.options().retries)
            return Fail(QStringLiteral("%1 (tried %2 times)").arg(why).arg(attempt_ + 1));
        const int delay = fetcher_.options().retryDelayMs << attempt_;
        ++attempt_;
        QTimer::singleShot(delay, this, [this] { Attempt(); });
    }

    void Complete()
    {
        part_.close();
        QFile::remove(destination_);
        if (!part_.rename(destination_))
            return Fail(QStringLiteral("cannot rename %1 to %2: %3")
                            .arg(part_.fileName(), destination_, part_.errorString()));
        done_({});
        deleteLater();
    }

    void Fail(const QString& error)
    {
        part_.close();
        part_.remove();
        done_(error);
        deleteLater();
    }

    HttpFetcher& fetcher_;
    const QUrl url_;
    const QString destination_;
    QFile part_;
    const qint64 statedBytes_;
    const Progress progress_;
    const DownloadDone done_;
    RedirectChain chain_{url_};
    QByteArray validator_;    // of the answer the part's bytes came from
    qint64 offset_ = 0;       // where this attempt's body starts in the part
    qint64 expectedEnd_ = -1; // where it ends by its Content-Length; -1: not announced
    qint64 total_ = -1;
    int attempt_ = 0;
    bool accepted_ = false;
    bool wrongRange_ = false;
    bool probed_ = false;
    QString writeError_;
};

HttpFetcher::HttpFetcher(FetchOptions options, QObject* parent) : QObject(parent), options_(options)
{
    QNetworkProxyFactory::setUseSystemConfiguration(true);
}

QNetworkReply* HttpFetcher::Get(const QUrl& url, const RawHeaders& headers)
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setTransferTimeout(options_.timeoutMs);
    request.setHeader(QNetworkRequest::UserAgentHeader, QByteArrayLiteral("feldrun/" TALVO_VERSION_TEXT));
    for (const auto& [name, value] : headers)
        request.setRawHeader(name, value);
    return manager_.get(request);
}

void HttpFetcher::FetchDocument(const QUrl& url, const QString& etag, const QString& lastModified,
                                DocumentDone done)
{
    RawHeaders conditions;
    if (!etag.isEmpty())
        conditions.push_back({"If-None-Match", etag.toLatin1()});
    if (!lastModified.isEmpty())
        conditions.push_back({"If-Modified-Since", lastModified.toLatin1()});
    (new DocumentTransfer(*this, url, std::move(conditions), std::move(done)))->Send();
}

void HttpFetcher::Download(const QUrl& url, const QString& destination, qint64 statedBytes, Progress progress,
                           DownloadDone done)
{
    (new DownloadTransfer(*this, url, destination, statedBytes, std::move(progress), std::move(done)))
        ->Start();
}

} // namespace feldrun
