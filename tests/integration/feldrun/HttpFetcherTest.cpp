// HttpFetcher against a real HTTP server on 127.0.0.1 that misbehaves on
// request: redirects kept or not, and downloads broken in every way a server
// breaks them, each of which must end with the whole file, fetched from where
// it broke off, or a message and no file at all.  Conditional fetches and
// error messages are checked through `feldrun update` (FeldrunUpdateTest).
#include "HttpFetcher.h"
#include "FeedServer.h"

#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace feldrun::test {
namespace {

class HttpFetcherTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(server_.running());
        QByteArray episode;
        for (int i = 0; i < 50000; ++i)
            episode += QByteArray::number(i) + ' ';
        episode_ = episode;
        server_.put(QStringLiteral("/ep.mp3"), episode_);
        server_.put(QStringLiteral("/feed.xml"), "<rss version=\"2.0\"><channel/></rss>");
    }

    DocumentFetch fetch(const QString& path)
    {
        DocumentFetch result;
        QEventLoop loop;
        fetcher_.FetchDocument(server_.url(path), {}, {}, [&](const DocumentFetch& r) {
            result = r;
            loop.quit();
        });
        loop.exec();
        return result;
    }

    // The error, empty when the file arrived.
    QString download(const QString& path, qint64 statedBytes = 0)
    {
        QString error = QStringLiteral("never finished");
        QEventLoop loop;
        fetcher_.Download(server_.url(path), destination(), statedBytes, {}, [&](const QString& e) {
            error = e;
            loop.quit();
        });
        loop.exec();
        return error;
    }

    QString destination() const { return dir_.filePath(QStringLiteral("episode.mp3")); }
    QByteArray downloaded() const
    {
        QFile file(destination());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    FeedServer server_;
    QTemporaryDir dir_;
    // Short enough that a stalled server is given up on within the test.
    HttpFetcher fetcher_{FetchOptions{1500, 3, 50}};
    QByteArray episode_;
};

TEST_F(HttpFetcherTest, OnlyPermanentRedirectsAllTheWayGiveANewAddress)
{
    struct Case {
        const char* path;
        bool permanent;
    };
    for (const Case& c : {Case{"/moved/feed.xml", true}, Case{"/moved308/moved/feed.xml", true},
                          Case{"/temp/feed.xml", false}, Case{"/moved/temp/feed.xml", false}}) {
        const DocumentFetch r = fetch(QString::fromLatin1(c.path));
        ASSERT_TRUE(r.error.isEmpty()) << c.path << ": " << r.error.toStdString();
        EXPECT_EQ(r.url, server_.url(QStringLiteral("/feed.xml"))) << c.path;
        EXPECT_EQ(r.permanentUrl, c.permanent ? server_.url(QStringLiteral("/feed.xml")) : QUrl()) << c.path;
        EXPECT_TRUE(r.body.startsWith("<rss")) << c.path;
    }
}

TEST_F(HttpFetcherTest, ABrokenDownloadResumesWhereItStoppedAndTheFileIsWhole)
{
    // Dropped and stalled mid-file: the rest is asked for with a Range and
    // the validator of the first answer.
    for (const QString fault : {"drop", "stall"}) {
        const QString path = "/" + fault + "/ep.mp3";
        ASSERT_EQ(download(path), QString()) << fault.toStdString();
        EXPECT_EQ(downloaded(), episode_) << fault.toStdString();
        const QStringList resumed = server_.requests(
            {path, "range=bytes=" + QString::number(episode_.size() / 2) + "-", "status=206"});
        EXPECT_EQ(resumed.size(), 1) << server_.requests().join('\n').toStdString();
        EXPECT_FALSE(QFile::exists(destination() + ".part"));
    }
}

TEST_F(HttpFetcherTest, AWrongContentLengthIsCaughtAndTheRestFetched)
{
    // Announced 1000 bytes too many: the body ends short, and asking for the
    // rest is answered "nothing left" (416), so the file is whole.
    ASSERT_EQ(download(QStringLiteral("/short/ep.mp3")), QString());
    EXPECT_EQ(downloaded(), episode_);
    EXPECT_EQ(server_.requests({"/short/ep.mp3", "status=416"}).size(), 1);
    // Announced half: the body is cut there, and the feed's length says more is to come.
    ASSERT_EQ(download(QStringLiteral("/long/ep.mp3"), episode_.size()), QString());
    EXPECT_EQ(downloaded(), episode_);
    EXPECT_EQ(server_.requests({"/long/ep.mp3", "status=206"}).size(), 1);
    // A feed's length that is simply wrong costs one question, not the file.
    ASSERT_EQ(download(QStringLiteral("/ep.mp3"), episode_.size() + 5000), QString());
    EXPECT_EQ(downloaded(), episode_);
}

TEST_F(HttpFetcherTest, AServerThatCannotResumeIsReadAgainFromTheStartAndANeverAnsweringOneIsGivenUp)
{
    ASSERT_EQ(download(QStringLiteral("/norange/ep.mp3"), episode_.size() + 10), QString());
    EXPECT_EQ(downloaded(), episode_);

    // Nobody listens there: every attempt is refused, and the message says so.
    QFile::remove(destination());
    HttpFetcher impatient(FetchOptions{500, 2, 10});
    QString error;
    QEventLoop loop;
    impatient.Download(QUrl(QStringLiteral("http://127.0.0.1:1/ep.mp3")), destination(), 0, {},
                       [&](const QString& e) {
                           error = e;
                           loop.quit();
                       });
    loop.exec();
    EXPECT_TRUE(error.contains(QStringLiteral("http://127.0.0.1:1/ep.mp3"))) << error.toStdString();
    EXPECT_TRUE(error.contains(QStringLiteral("tried 3 times"))) << error.toStdString();
    EXPECT_FALSE(QFile::exists(destination() + ".part"));
}

} // namespace
} // namespace feldrun::test
