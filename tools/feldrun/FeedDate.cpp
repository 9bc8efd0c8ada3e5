// Dates as feeds write them.  RSS asks for RFC 822 and gets every variation of
// it; Atom asks for RFC 3339 and mostly gets it.  A date that cannot be read
// for certain is invalid rather than a guess: an episode's order depends on it.
#include "Feed.h"

#include <QRegularExpression>

#include <array>
#include <optional>
#include <string_view>

namespace feldrun {

namespace {

struct ZoneName {
    std::string_view name;
    int offsetMinutes;
};

// RFC 822's zones, and the few others feeds put in their place.  Military
// letters other than Z are taken as UTC, as RFC 2822 asks, since RFC 822 had
// their signs backwards and nobody can tell which a feed meant.
constexpr ZoneName kZoneNames[] = {
    {"GMT", 0},    {"UT", 0},     {"UTC", 0},    {"Z", 0},      {"EST", -300}, {"EDT", -240},
    {"CST", -360}, {"CDT", -300}, {"MST", -420}, {"MDT", -360}, {"PST", -480}, {"PDT", -420},
    {"BST", 60},   {"CET", 60},   {"CEST", 120}, {"MET", 60},   {"MEST", 120}, {"EET", 120},
    {"EEST", 180}, {"WET", 0},    {"WEST", 60},  {"JST", 540},  {"AEST", 600}, {"AEDT", 660},
};

constexpr std::array<std::string_view, 12> kMonths{"jan", "feb", "mar", "apr", "may", "jun",
                                                   "jul", "aug", "sep", "oct", "nov", "dec"};

constexpr int kMinutesPerHour = 60;
constexpr int kSecondsPerMinute = 60;
// The largest zone offset in use is +14:00.
constexpr int kMaxOffsetMinutes = 14 * kMinutesPerHour;
// RFC 2822: two-digit years below 50 are 20xx, the others 19xx; three-digit
// years are counted from 1900.
constexpr int kTwoDigitYearPivot = 50;
constexpr int kCenturyBase = 1900;
constexpr int kNextCenturyBase = 2000;

std::optional<int> MonthOf(QStringView name)
{
    if (name.size() < 3)
        return std::nullopt;
    const QString lower = name.toString().toLower();
    for (std::size_t i = 0; i < kMonths.size(); ++i) {
        if (lower.startsWith(QLatin1StringView(kMonths[i].data(), 3)))
            return int(i) + 1;
    }
    return std::nullopt;
}

int FullYear(QStringView digits)
{
    const int year = digits.toInt();
    if (digits.size() == 2)
        return year < kTwoDigitYearPivot ? kNextCenturyBase + year : kCenturyBase + year;
    if (digits.size() == 3)
        return kCenturyBase + year;
    return year;
}

// "+0200", "-05:00", "+02", "GMT", "GMT+2", "UTC-03:30", a military letter;
// nothing is UTC.  nullopt when it is no zone this knows.
std::optional<int> ZoneOffsetMinutes(QStringView zone)
{
    static const QRegularExpression numeric(
        QStringLiteral("^(?:GMT|UTC|UT)?([+-])(\\d{1,2})(?::?(\\d{2}))?$"),
        QRegularExpression::CaseInsensitiveOption);
    if (zone.isEmpty())
        return 0;
    if (const auto m = numeric.match(zone); m.hasMatch()) {
        const int minutes = m.capturedView(2).toInt() * kMinutesPerHour + m.capturedView(3).toInt();
        if (m.capturedView(3).toInt() >= kMinutesPerHour || minutes > kMaxOffsetMinutes)
            return std::nullopt;
        return m.capturedView(1) == u"-" ? -minutes : minutes;
    }
    const QString upper = zone.toString().toUpper();
    for (const ZoneName& z : kZoneNames) {
        if (upper == QLatin1StringView(z.name.data(), qsizetype(z.name.size())))
            return z.offsetMinutes;
    }
    if (upper.size() == 1 && upper[0] >= u'A' && upper[0] <= u'Z' && upper[0] != u'J')
        return 0;
    return std::nullopt;
}

QDateTime UtcDateTime(int year, int month, int day, int hour, int minute, int second, int offsetMinutes)
{
    // A leap second is read as the second before it.
    if (second == kSecondsPerMinute)
        second = kSecondsPerMinute - 1;
    const QDate date(year, month, day);
    const QTime time(hour, minute, second);
    if (!date.isValid() || !time.isValid())
        return {};
    return QDateTime(date, time, Qt::UTC).addSecs(-qint64(offsetMinutes) * kSecondsPerMinute);
}

// ISO 8601 / RFC 3339: "2024-03-05T06:07:08.123+01:00", a blank for the T, no
// seconds, no zone (UTC), or the date alone.
QDateTime ParseIsoDate(const QString& text)
{
    static const QRegularExpression iso(
        QStringLiteral(
            "^(\\d{4})-(\\d{1,2})-(\\d{1,2})"
            "(?:[T "
            "](\\d{1,2}):(\\d{2})(?::(\\d{2})(?:[.,]\\d+)?)?\\s*(Z|[+-]\\d{2}(?::?\\d{2})?|[A-Z]{1,4})?)?$"),
        QRegularExpression::CaseInsensitiveOption);
    const auto m = iso.match(text);
    if (!m.hasMatch())
        return {};
    const auto offset = ZoneOffsetMinutes(m.capturedView(7));
    if (!offset)
        return {};
    return UtcDateTime(m.capturedView(1).toInt(), m.capturedView(2).toInt(), m.capturedView(3).toInt(),
                       m.capturedView(4).toInt(), m.capturedView(5).toInt(), m.capturedView(6).toInt(),
                       *offset);
}

// RFC 822 and its relatives: an optional weekday (any spelling, with or
// without the comma), the day before or after the month, two- to four-digit
// years, a time with or without seconds (or none: midnight), and a zone,
// perhaps followed by a comment in brackets.
QDateTime ParseRfc822Date(QString text)
{
    static const QRegularExpression comment(QStringLiteral("\\s*\\([^)]*\\)\\s*$"));
    static const QRegularExpression weekday(
        QStringLiteral("^(?:mon|tue|wed|thu|fri|sat|sun)[a-z]*\\.?(?:,\\s*|\\s+)"),
        QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression dayFirst(
        QStringLiteral("^(\\d{1,2})[\\s-]+([A-Za-z]{3,9})\\.?,?[\\s-]+(\\d{2,4})"));
    static const QRegularExpression monthFirst(
        QStringLiteral("^([A-Za-z]{3,9})\\.?\\s+(\\d{1,2}),?\\s+(\\d{4})"));
    static const QRegularExpression timeAndZone(
        QStringLiteral("^(?:,?\\s+(?:at\\s+)?(\\d{1,2}):(\\d{2})(?::(\\d{2}))?(?:\\.\\d+)?)?\\s*(\\S*)$"),
        QRegularExpression::CaseInsensitiveOption);
    text.remove(comment);
    text.remove(weekday);
    int day = 0;
    int year = 0;
    std::optional<int> month;
    qsizetype dateEnd = 0;
    if (const auto m = dayFirst.match(text); m.hasMatch()) {
        day = m.capturedView(1).toInt();
        month = MonthOf(m.capturedView(2));
        year = FullYear(m.capturedView(3));
        dateEnd = m.capturedEnd();
    } else if (const auto n = monthFirst.match(text); n.hasMatch()) {
        month = MonthOf(n.capturedView(1));
        day = n.capturedView(2).toInt();
        year = FullYear(n.capturedView(3));
        dateEnd = n.capturedEnd();
    }
    if (!month)
        return {};
    const auto t = timeAndZone.match(QStringView(text).mid(dateEnd));
    if (!t.hasMatch())
        return {};
    const auto offset = ZoneOffsetMinutes(t.capturedView(4));
    if (!offset)
        return {};
    return UtcDateTime(year, *month, day, t.capturedView(1).toInt(), t.capturedView(2).toInt(),
                       t.capturedView(3).toInt(), *offset);
}

} // namespace

QDateTime ParseFeedDate(const QString& text)
{
    const QString simplified = text.simplified();
    if (simplified.isEmpty())
        return {};
    if (simplified[0].isDigit() && simplified.size() > 4 && simplified[4] == u'-')
        return ParseIsoDate(simplified);
    return ParseRfc822Date(simplified);
}

} // namespace feldrun
