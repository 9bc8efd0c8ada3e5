// The subscription commands through the real `feldrun`, on a store of the
// test's own: what each prints and exits with, what it keeps, and what it
// leaves alone (the listener's programs and their places).
#include "FeldrunProcess.h"
#include "feldrun/Opml.h"
#include "feldrun/SubscriptionStore.h"
#include "library/ProgramRecordLayout.h"
#include "tests/support/TestDevice.h"
#include "zqx/zqxwriter.h"

#include <gtest/gtest.h>

namespace talvo::test {
namespace {

class FeldrunSubscriptions : public ::testing::Test {
protected:
    int feldrun(const QStringList& arguments) { return RunFeldrun(arguments, output_); }

    std::vector<feldrun::Subscription> stored()
    {
        std::unique_ptr<Registry> registry = OpenSqliteRegistry(device_.registryPath().toStdString());
        std::vector<feldrun::Subscription> all;
        EXPECT_TRUE(registry && feldrun::SubscriptionStore(*registry).Load(all));
        return all;
    }

    void write(const QString& relative, const QByteArray& bytes)
    {
        QFile file(device_.path(relative));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }

    TestDevice device_;
    QString output_;
};

TEST_F(FeldrunSubscriptions, SubscribeKeepAndListWithClearMessagesForWrongInput)
{
    for (const char* wrong :
         {"ftp://example.org/feed", "example.org/feed", "feed.xml", "http://", "mailto:a@b"}) {
        EXPECT_EQ(feldrun({"subscribe", wrong}), 2) << wrong;
        EXPECT_TRUE(output_.contains("is not a feed's address: give its http:// or https:// URL") ||
                    output_.contains("names no server"))
            << output_.toStdString();
    }
    EXPECT_EQ(feldrun({"subscribe"}), 2);
    EXPECT_EQ(feldrun({"subscribe", "--keep", "101", "https://a.example/feed"}), 2);
    EXPECT_TRUE(output_.contains("--keep takes a number from 1 to 100"));
    EXPECT_TRUE(stored().empty());

    ASSERT_EQ(feldrun({"subscribe", "--no-update", "https://a.example/feed"}), 0) << output_.toStdString();
    EXPECT_EQ(output_, "subscribed to https://a.example/feed\n");
    ASSERT_EQ(feldrun({"subscribe", "--no-update", "--keep", "5",
                       QString::fromUtf8("http://b.example/f\xC3\xBCr alle.xml")}),
              0);
    EXPECT_EQ(feldrun({"subscribe", "https://a.example/feed/"}), 0);
    EXPECT_TRUE(output_.startsWith("already subscribed to")) << output_.toStdString();
    std::vector<feldrun::Subscription> all = stored();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[1].url.toEncoded(), "http://b.example/f%C3%BCr%20alle.xml");
    EXPECT_EQ(all[1].keep, 5u);

    EXPECT_EQ(feldrun({"keep", "https://a.example/feed", "7"}), 0) << output_.toStdString();
    EXPECT_EQ(stored()[0].keep, 7u);
    EXPECT_EQ(feldrun({"keep", "https://a.example/feed", "0"}), 2);
    EXPECT_EQ(feldrun({"keep", "Nobody", "4"}), 1);
    EXPECT_TRUE(output_.contains("no subscription matches 'Nobody'")) << output_.toStdString();

    // Episodes in every state, as an update leaves them.
    {
        std::unique_ptr<Registry> registry = OpenSqliteRegistry(device_.registryPath().toStdString());
        feldrun::SubscriptionStore store(*registry);
        feldrun::Subscription s = stored()[0];
        s.title = "Morning Report";
        for (int state = 0; state <= int(feldrun::EpisodeState::Failed); ++state) {
            feldrun::EpisodeRecord e;
            e.guid = QString::number(state);
            e.title = "Episode " + e.guid;
            e.state = feldrun::EpisodeState(state);
            e.error = state == int(feldrun::EpisodeState::Failed) ? "the server answered 404 Not Found" : "";
            s.episodes.push_back(e);
        }
        ASSERT_TRUE(store.Save(s));
    }
    ASSERT_EQ(feldrun({"list"}), 0) << output_.toStdString();
    EXPECT_EQ(output_.toStdString(),
              "Morning Report\n"
              "  https://a.example/feed\n"
              "  new 1, downloading 1, ready 1, listened 1, failed 1; keeps the newest 7\n"
              "  failed: Episode 4: the server answered 404 Not Found\n"
              "(not fetched yet)\n"
              "  http://b.example/f\xC3\xBCr alle.xml\n"
              "  new 0, downloading 0, ready 0, listened 0, failed 0; keeps the newest 5\n");
    EXPECT_EQ(feldrun({"list", "extra"}), 2);
    EXPECT_EQ(feldrun({"subscribe", "--help"}), 0);
    EXPECT_TRUE(output_.startsWith("usage: feldrun subscribe [--keep N] [--no-update] URL\n"));
}

TEST_F(FeldrunSubscriptions, ListMarksAnEpisodeHeardToItsEndListened)
{
    // A program the player played to its end: its record holds its length.
    const QString program = device_.path("music/Daily/Monday/Monday.zq");
    QDir().mkpath(device_.path("music/Daily/Monday"));
    CZQXWriter writer;
    ASSERT_EQ(writer.Create(program.toStdString(), ZQX_TYPE_PCM16, 8000, 1), ZQX_OK);
    ASSERT_EQ(writer.SetProgramId("daily-monday"), ZQX_OK);
    std::vector<std::int16_t> silence(8000 * 4);
    ASSERT_EQ(writer.AddPcm16(silence.data(), silence.size()), ZQX_OK);
    ASSERT_EQ(writer.Finish(), ZQX_OK);
    {
        std::unique_ptr<Registry> registry = OpenSqliteRegistry(device_.registryPath().toStdString());
        HKEY key = 0;
        ASSERT_EQ(registry->CreateKey(HKEY_LOCAL_MACHINE, ProgramRecord::ProgramKeyPath("daily-monday"),
                                      ProgramRecord::kCreateAccess, &key),
                  ERROR_SUCCESS);
        const DWORD endMs = 4000;
        ASSERT_EQ(registry->SetValue(key, ProgramRecord::kPlayPos, REG_DWORD,
                                     reinterpret_cast<const std::uint8_t*>(&endMs), sizeof endMs),
                  ERROR_SUCCESS);
        registry->CloseKey(key);
        feldrun::Subscription s;
        s.url = QUrl("https://a.example/daily");
        s.title = "Daily";
        feldrun::EpisodeRecord e;
        e.guid = "monday";
        e.state = feldrun::EpisodeState::Ready;
        e.programPath = program;
        s.episodes = {e, e};
        s.episodes[1].guid = "tuesday";
        s.episodes[1].programPath = device_.path("music/Daily/Tuesday/Tuesday.zq");
        ASSERT_TRUE(feldrun::SubscriptionStore(*registry).Save(s));
    }
    ASSERT_EQ(feldrun({"list"}), 0) << output_.toStdString();
    EXPECT_TRUE(output_.contains("new 0, downloading 0, ready 1, listened 1, failed 0"))
        << output_.toStdString();
    EXPECT_EQ(stored()[0].episodes[0].state, feldrun::EpisodeState::Listened);
}

TEST_F(FeldrunSubscriptions, UnsubscribeKeepsTheProgramsAndTheirPlaces)
{
    ASSERT_EQ(feldrun({"subscribe", "--no-update", "https://a.example/feed"}), 0);
    ASSERT_EQ(feldrun({"subscribe", "--no-update", "https://b.example/feed"}), 0);
    QDir().mkpath(device_.path("music/Talks/One"));
    write("music/Talks/One/One.zqx", "a program");
    {
        std::unique_ptr<Registry> registry = OpenSqliteRegistry(device_.registryPath().toStdString());
        feldrun::Subscription s = stored()[0];
        s.title = "Evening Talks";
        feldrun::EpisodeRecord e;
        e.guid = "one";
        e.state = feldrun::EpisodeState::Ready;
        e.programPath = device_.path("music/Talks/One/One.zqx");
        s.episodes.push_back(e);
        ASSERT_TRUE(feldrun::SubscriptionStore(*registry).Save(s));
        HKEY key = 0;
        ASSERT_EQ(registry->CreateKey(HKEY_LOCAL_MACHINE, ProgramRecord::ProgramKeyPath("talks-one_zqx"),
                                      ProgramRecord::kCreateAccess, &key),
                  ERROR_SUCCESS);
        registry->CloseKey(key);
    }
    EXPECT_EQ(feldrun({"unsubscribe", "Nothing Like It"}), 1);
    ASSERT_EQ(feldrun({"unsubscribe", "evening TALKS"}), 0) << output_.toStdString();
    EXPECT_EQ(output_, "unsubscribed from 'Evening Talks'; 1 episode(s) in the Music folder stay\n");
    ASSERT_EQ(stored().size(), 1u);
    EXPECT_EQ(stored()[0].url, QUrl("https://b.example/feed"));
    EXPECT_TRUE(QFile::exists(device_.path("music/Talks/One/One.zqx")));
    std::unique_ptr<Registry> registry = OpenSqliteRegistry(device_.registryPath().toStdString());
    HKEY key = 0;
    EXPECT_EQ(
        registry->OpenKey(HKEY_LOCAL_MACHINE, ProgramRecord::ProgramKeyPath("talks-one_zqx"), KEY_READ, &key),
        ERROR_SUCCESS);
    registry->CloseKey(key);
    ASSERT_EQ(feldrun({"unsubscribe", "https://b.example/feed/"}), 0);
    EXPECT_TRUE(stored().empty());
}

TEST_F(FeldrunSubscriptions, OpmlImportAddsWhatIsNewAndExportReadsBack)
{
    ASSERT_EQ(feldrun({"subscribe", "--no-update", "https://a.example/feed"}), 0);
    write("mine.opml", R"(<?xml version="1.0"?><opml version="2.0"><head/><body>
        <outline text="Folder"><outline text="Already" xmlUrl="https://a.example/feed"/>
          <outline text="New One" type="rss" xmlUrl="https://n.example/one.xml"/></outline>
        <outline text="New Two" xmlUrl="https://n.example/two.xml"/>
        <outline text="Gopher" xmlUrl="gopher://old.example/feed"/>
        </body></opml>)");
    ASSERT_EQ(feldrun({"opml", "import", device_.path("mine.opml")}), 0) << output_.toStdString();
    EXPECT_EQ(output_.toStdString(), "skipped Already <https://a.example/feed>: already subscribed\n"
                                     "added New One <https://n.example/one.xml>\n"
                                     "added New Two <https://n.example/two.xml>\n"
                                     "skipped Gopher <gopher://old.example/feed>: not an http or https feed\n"
                                     "2 added, 2 skipped\n");
    ASSERT_EQ(feldrun({"opml", "import", device_.path("mine.opml")}), 0);
    EXPECT_TRUE(output_.endsWith("0 added, 4 skipped\n")) << output_.toStdString();

    ASSERT_EQ(feldrun({"opml", "export", device_.path("out.opml")}), 0) << output_.toStdString();
    QFile out(device_.path("out.opml"));
    ASSERT_TRUE(out.open(QIODevice::ReadOnly));
    std::vector<feldrun::OpmlOutline> outlines;
    QString error;
    ASSERT_TRUE(feldrun::ParseOpml(out.readAll(), outlines, error)) << error.toStdString();
    ASSERT_EQ(outlines.size(), 3u);
    EXPECT_EQ(outlines[1].title, "New One");
    EXPECT_EQ(outlines[2].url, QUrl("https://n.example/two.xml"));

    // An export into a folder that is not there, a page, a missing file: told, nothing added.
    EXPECT_EQ(feldrun({"opml", "export", device_.path("missing/folder/out.opml")}), 1);
    EXPECT_TRUE(output_.contains("cannot write")) << output_.toStdString();
    write("page.html", "<!DOCTYPE html><html><body>Subscriptions</body></html>");
    EXPECT_EQ(feldrun({"opml", "import", device_.path("page.html")}), 1);
    EXPECT_TRUE(output_.contains("not an OPML file")) << output_.toStdString();
    EXPECT_EQ(feldrun({"opml", "import", device_.path("absent.opml")}), 1);
    EXPECT_TRUE(output_.contains("cannot read")) << output_.toStdString();
    EXPECT_EQ(feldrun({"opml", "merge", "x"}), 2);
    EXPECT_EQ(stored().size(), 3u);
}

TEST_F(FeldrunSubscriptions, ADamagedStoreIsRefusedAndLeftAsItIs)
{
    const QByteArray garbage(8192, '\x5A');
    write("registry.db", garbage);
    EXPECT_EQ(feldrun({"subscribe", "https://a.example/feed"}), 1);
    EXPECT_TRUE(output_.contains("is damaged; nothing was changed")) << output_.toStdString();
    EXPECT_EQ(feldrun({"list"}), 1);
    QFile db(device_.registryPath());
    ASSERT_TRUE(db.open(QIODevice::ReadOnly));
    EXPECT_EQ(db.readAll(), garbage);
}

} // namespace
} // namespace talvo::test
