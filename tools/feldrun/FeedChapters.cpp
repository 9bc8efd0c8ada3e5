// Podcasting 2.0 JSON chapters: {"version": "1.2.0", "chapters": [{"startTime":
// 0, "title": "...", "img": "..."}, ...]}, times in seconds.
#include "Feed.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>

namespace feldrun {

namespace {

constexpr double kMsPerSecond = 1000.0;

// A chapter start in milliseconds, or -1 when the value is none the program's
// 32-bit times can hold.
double StartMs(const QJsonValue& value)
{
    bool ok = value.isDouble();
    double seconds = value.toDouble();
    if (value.isString())
        seconds = value.toString().toDouble(&ok);
    const double ms = std::round(seconds * kMsPerSecond);
    return ok && std::isfinite(ms) && ms >= 0 && ms <= double(UINT32_MAX) ? ms : -1;
}

} // namespace

bool ParseChaptersJson(const QByteArray& bytes, const QUrl& baseUrl, std::vector<FeedChapter>& chapters,
                       QString& error)
{
    chapters.clear();
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (document.isNull()) {
        error =
            QStringLiteral("not JSON: %1 at byte %2").arg(parseError.errorString()).arg(parseError.offset);
        return false;
    }
    const QJsonValue list = document.object().value(QLatin1StringView("chapters"));
    if (!list.isArray()) {
        error = QStringLiteral("not a chapters document: it has no \"chapters\" list");
        return false;
    }
    for (const QJsonValue& item : list.toArray()) {
        const QJsonObject chapter = item.toObject();
        const double start = StartMs(chapter.value(QLatin1StringView("startTime")));
        // "toc": false marks a chapter players are not to list.
        if (start < 0 || chapter.value(QLatin1StringView("toc")) == QJsonValue(false))
            continue;
        FeedChapter c;
        c.startMs = std::uint32_t(start);
        c.title = chapter.value(QLatin1StringView("title")).toString().simplified();
        const QUrl image(chapter.value(QLatin1StringView("img")).toString().trimmed(), QUrl::TolerantMode);
        if (!image.isEmpty() && image.isValid())
            c.imageUrl = baseUrl.resolved(image);
        chapters.push_back(std::move(c));
    }
    // Ordered by start; of chapters starting together the first listed stays.
    std::stable_sort(chapters.begin(), chapters.end(),
                     [](const FeedChapter& a, const FeedChapter& b) { return a.startMs < b.startMs; });
    chapters.erase(
        std::unique(chapters.begin(), chapters.end(),
                    [](const FeedChapter& a, const FeedChapter& b) { return a.startMs == b.startMs; }),
        chapters.end());
    return true;
}

} // namespace feldrun
