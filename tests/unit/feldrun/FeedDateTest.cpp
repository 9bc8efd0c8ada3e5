// Dates in the forms feeds really write them, and the ones that must stay
// unread rather than be read wrong.
#include "Feed.h"

#include <gtest/gtest.h>

using feldrun::ParseFeedDate;

namespace {

struct DateCase {
    const char* text;
    const char* utc; // ISO 8601 in UTC; empty: must be invalid
};

constexpr DateCase kDates[] = {
    {"Tue, 10 Jun 2003 04:00:00 GMT", "2003-06-10T04:00:00"},
    {"10 Jun 2003 04:00:00 GMT", "2003-06-10T04:00:00"},
    {"Tue,10 Jun 2003 04:00:00 +0000", "2003-06-10T04:00:00"},
    {"Tuesday, 10 June 2003 04:00:00 UT", "2003-06-10T04:00:00"},
    {"Tue, 3 Jun 2003 04:00 EST", "2003-06-03T09:00:00"},
    {"Tue, 03 Jun 2003 04:00:00 EDT", "2003-06-03T08:00:00"},
    {"Wed, 02 Oct 2002 08:00:00 CST", "2002-10-02T14:00:00"},
    {"Wed, 02 Oct 2002 08:00:00 CDT", "2002-10-02T13:00:00"},
    {"Wed, 02 Oct 2002 08:00:00 MST", "2002-10-02T15:00:00"},
    {"Wed, 02 Oct 2002 08:00:00 MDT", "2002-10-02T14:00:00"},
    {"Wed, 02 Oct 2002 08:00:00 PST", "2002-10-02T16:00:00"},
    {"Wed, 02 Oct 2002 08:00:00 PDT", "2002-10-02T15:00:00"},
    {"Wed, 02 Oct 2002 08:00:00 Z", "2002-10-02T08:00:00"},
    {"Wed, 02 Oct 2002 08:00:00 A", "2002-10-02T08:00:00"}, // military letters read as UTC
    {"Wed, 02 Oct 2002 08:00:00 +0530", "2002-10-02T02:30:00"},
    {"Wed, 02 Oct 2002 08:00:00 -03:30", "2002-10-02T11:30:00"},
    {"Wed, 02 Oct 2002 23:30:00 -0100", "2002-10-03T00:30:00"}, // across midnight
    {"Wed, 02 Oct 02 08:00:00 GMT", "2002-10-02T08:00:00"},
    {"Sat, 02 Oct 99 08:00:00 GMT", "1999-10-02T08:00:00"},
    {"Wed, 02 Oct 2002 08:00:00", "2002-10-02T08:00:00"}, // no zone: UTC
    {"Wed, 02 Oct 2002 08:00:00 +0000 (UTC)", "2002-10-02T08:00:00"},
    {"Wed, 02 Oct 2002 08:00:00 GMT+2", "2002-10-02T06:00:00"},
    {"  wed,  02   oct 2002   08:00:00   gmt ", "2002-10-02T08:00:00"},
    {"02 Oct 2002", "2002-10-02T00:00:00"},
    {"Oct 2, 2002 08:00:00 GMT", "2002-10-02T08:00:00"},
    {"Thu, 31 Dec 2015 23:59:60 GMT", "2015-12-31T23:59:59"}, // a leap second
    {"Mon, 29 Feb 2016 12:00:00 GMT", "2016-02-29T12:00:00"},
    {"2024-03-05T06:07:08Z", "2024-03-05T06:07:08"},
    {"2024-03-05T06:07:08.123+01:00", "2024-03-05T05:07:08"},
    {"2024-03-05T06:07:08-0500", "2024-03-05T11:07:08"},
    {"2024-03-05 06:07:08", "2024-03-05T06:07:08"},
    {"2024-03-05T06:07Z", "2024-03-05T06:07:00"},
    {"2024-03-05", "2024-03-05T00:00:00"},
    // Unreadable: invalid, never a guess.
    {"", ""},
    {"yesterday", ""},
    {"Tue, 30 Feb 2003 04:00:00 GMT", ""},
    {"Tue, 10 Foo 2003 04:00:00 GMT", ""},
    {"Tue, 10 Jun 2003 25:00:00 GMT", ""},
    {"Tue, 10 Jun 2003 04:61:00 GMT", ""},
    {"Tue, 10 Jun 2003 04:00:00 XYZ", ""}, // a zone nobody knows would shift the date
    {"Tue, 10 Jun 2003 04:00:00 +2500", ""},
    {"2024-13-05T06:07:08Z", ""},
    {"2024-03-05T06:07:08 nonsense", ""},
    {"1709618828", ""},
    {"Tue, 10 Jun 2003 04:00:00 GMT trailing words", ""},
};

} // namespace

TEST(FeedDate, EveryFormFeedsUse)
{
    for (const DateCase& c : kDates) {
        const QDateTime parsed = ParseFeedDate(QString::fromLatin1(c.text));
        if (*c.utc == '\0') {
            EXPECT_FALSE(parsed.isValid())
                << c.text << " read as " << parsed.toString(Qt::ISODate).toStdString();
            continue;
        }
        ASSERT_TRUE(parsed.isValid()) << c.text;
        EXPECT_EQ(parsed.timeSpec(), Qt::UTC) << c.text;
        EXPECT_EQ(parsed.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")).toStdString(), c.utc) << c.text;
    }
}
