// Subscriptions in a real settings store: a round trip, damage written with
// the registry's own calls, OPML both ways, and the listened check against
// records the player's own code writes.
#include "SubscriptionStore.h"
#include "ListenedCheck.h"
#include "Opml.h"

#include "library/ProgramStateStore.h"
#include "platform/RegistryRecovery.h"
#include "playback/ProgramFile.h"
#include "tests/support/TestDevice.h"
#include "zqx/zqxwriter.h"
#include "zqxauthor/PacketEncoderFactory.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace feldrun;
using namespace talvo;
using talvo::test::TestDevice;

namespace {

class FeldrunStore : public ::testing::Test {
protected:
    void SetUp() override
    {
        registry = OpenSqliteRegistry(device.registryPath().toStdString());
        ASSERT_NE(registry, nullptr);
    }

    std::vector<Subscription> Loaded()
    {
        std::vector<Subscription> all;
        EXPECT_TRUE(store().Load(all)) << store().error().toStdString();
        return all;
    }
    SubscriptionStore& store()
    {
        return store_ ? *store_ : *(store_ = std::make_unique<SubscriptionStore>(*registry));
    }

    // Sets a value under a subscription's key the way damage would leave it.
    void Damage(const Subscription& s, std::u16string_view subkey, std::u16string_view name, DWORD type,
                const QByteArray& bytes)
    {
        std::u16string path = u"Software\\Talvo\\Feldrun\\Subscriptions\\" + s.storeKey.toStdU16String();
        if (!subkey.empty())
            path += u"\\" + std::u16string(subkey);
        HKEY key = 0;
        ASSERT_EQ(registry->CreateKey(HKEY_LOCAL_MACHINE, path, KEY_ALL_ACCESS, &key), ERROR_SUCCESS);
        ASSERT_EQ(registry->SetValue(key, name, type,
                                     reinterpret_cast<const std::uint8_t*>(bytes.constData()),
                                     DWORD(bytes.size())),
                  ERROR_SUCCESS);
        registry->CloseKey(key);
    }

    TestDevice device;
    std::unique_ptr<Registry> registry;
    std::unique_ptr<SubscriptionStore> store_;
};

Subscription Daily()
{
    Subscription s;
    s.url = QUrl(QString::fromUtf8("https://example.org/p\xC3\xA4th/feed?x=1&y=\\2#frag"));
    s.title = QString::fromUtf8("Morgen\xC3\xA9 News");
    s.author = "Radio North";
    s.imageUrl = QUrl("https://example.org/cover.jpg");
    s.etag = "W/\"abc\"";
    s.lastModified = "Mon, 04 Mar 2024 06:00:00 GMT";
    s.keep = 5;
    for (int i = 0; i < 3; ++i) {
        EpisodeRecord e;
        e.guid = "guid-" + QString::number(i);
        e.title = "Episode " + QString::number(i);
        e.published = QDateTime(QDate(2024, 3, 4 - i), QTime(6, 0), Qt::UTC);
        e.enclosureUrl = QUrl("https://cdn.example.org/" + QString::number(i) + ".mp3");
        e.state = EpisodeState(i + 1);
        e.programPath = "/music/Daily/Episode " + QString::number(i) + "/Episode.zqx";
        e.programId = "daily-" + QString::number(i);
        e.error = i == 2 ? "404 Not Found" : QString();
        s.episodes.push_back(e);
    }
    return s;
}

// Equal but for the store's key, which only loading sets.
bool SameAsSaved(const Subscription& loaded, Subscription saved)
{
    saved.storeKey = loaded.storeKey;
    return loaded == saved;
}

QByteArray Utf16(const QString& text)
{
    const std::vector<std::uint8_t> bytes = RegSzBytes(text.toStdU16String());
    return QByteArray(reinterpret_cast<const char*>(bytes.data()), qsizetype(bytes.size()));
}

} // namespace

TEST_F(FeldrunStore, RoundTripInTheOrderMadeFoundByUrlOrTitle)
{
    Subscription daily = Daily();
    Subscription weekly;
    weekly.url = QUrl("http://weekly.example/rss");
    weekly.title = "Weekly";
    Subscription third;
    third.url = QUrl("https://a.example/feed");
    ASSERT_TRUE(store().Save(daily));
    ASSERT_TRUE(store().Save(weekly));
    ASSERT_TRUE(store().Save(third));

    std::vector<Subscription> all = Loaded();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_TRUE(SameAsSaved(all[0], daily));
    EXPECT_EQ(all[1].url, weekly.url);
    EXPECT_EQ(all[1].keep, kDefaultKeep);
    EXPECT_EQ(all[2].url, third.url);

    // Fewer episodes, an emptied text, and a permanent redirect: the record is
    // replaced whole and stays where it was, under its first key.
    Subscription moved = all[0];
    moved.url = QUrl("https://new.example.org/feed");
    moved.etag.clear();
    moved.episodes.resize(1);
    ASSERT_TRUE(store().Save(moved));
    all = Loaded();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_TRUE(SameAsSaved(all[0], moved));

    EXPECT_EQ(store().Find("https://new.example.org/feed/")->title, daily.title);
    EXPECT_EQ(store().Find(" weekly ")->url, weekly.url);
    EXPECT_FALSE(store().Find(daily.url.toString()).has_value());
    // Saved again without its key (a second subscribe of the same URL): no twin.
    Subscription again = weekly;
    again.title = "Weekly again";
    ASSERT_TRUE(store().Save(again));
    EXPECT_EQ(Loaded().size(), 3u);

    ASSERT_TRUE(store().Remove(QUrl("https://new.example.org/feed")));
    EXPECT_FALSE(store().Remove(QUrl("https://new.example.org/feed")));
    EXPECT_NE(store().error().indexOf("no subscription"), -1);
    all = Loaded();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].title, "Weekly again");
}

TEST_F(FeldrunStore, DamagedAndWronglyTypedValuesAreSkippedTheRestKept)
{
    const Subscription daily = Daily();
    Subscription other;
    other.url = QUrl("https://other.example/feed");
    other.title = "Other";
    ASSERT_TRUE(store().Save(daily));
    ASSERT_TRUE(store().Save(other));
    std::vector<Subscription> all = Loaded();
    const Subscription& d = all[0];
    Damage(d, {}, u"Title", REG_DWORD, QByteArray("\x01\x00\x00\x00", 4));
    Damage(d, {}, u"Keep", REG_SZ, Utf16("7"));
    Damage(d, u"Episodes\\Episode0", u"State", REG_DWORD, QByteArray("\x63\x00\x00\x00", 4)); // no such state
    Damage(d, u"Episodes\\Episode0", u"Published", REG_BINARY, QByteArray("\xFF\xFF", 2));
    Damage(d, u"Episodes\\Episode1", u"GUID", REG_BINARY, QByteArray("garbage"));
    Damage(d, u"Episodes", u"Count", REG_DWORD, QByteArray("\xFF\xFF\xFF\x7F", 4));
    Damage(all[1], {}, u"URL", REG_SZ, Utf16("not a url"));

    all = Loaded();
    ASSERT_EQ(all.size(), 1u); // the record without a URL cannot be fetched: skipped and named
    ASSERT_EQ(store().skipped().size(), 1u);
    EXPECT_NE(store().skipped()[0].indexOf("no readable URL"), -1);
    const Subscription& s = all[0];
    EXPECT_TRUE(s.title.isEmpty());
    EXPECT_EQ(s.keep, kDefaultKeep);
    EXPECT_EQ(s.author, daily.author);
    ASSERT_EQ(s.episodes.size(), 2u); // the episode without a GUID goes; the huge count reads what is there
    EXPECT_EQ(s.episodes[0].guid, "guid-0");
    EXPECT_EQ(s.episodes[0].state, EpisodeState::New);
    EXPECT_FALSE(s.episodes[0].published.isValid());
    EXPECT_EQ(s.episodes[0].programPath, daily.episodes[0].programPath);
    EXPECT_EQ(s.episodes[1].guid, "guid-2");
    EXPECT_EQ(s.episodes[1].error, "404 Not Found");
}

TEST_F(FeldrunStore, ADamagedStoreRecoveredBringsTheSubscriptionsBack)
{
    ASSERT_TRUE(store().Save(Daily()));
    store_.reset();
    registry.reset();
    const std::string path = device.registryPath().toStdString();
    ASSERT_EQ(SaveLastGoodCopy(path, std::nullopt), ERROR_SUCCESS);
    QFile file(device.registryPath());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(8192, 'Z'));
    file.close();

    OpenedStore opened = OpenOrRecoverSqliteRegistry(path);
    ASSERT_NE(opened.registry, nullptr);
    ASSERT_TRUE(opened.recovery && opened.recovery->restored);
    std::vector<Subscription> all;
    ASSERT_TRUE(SubscriptionStore(*opened.registry).Load(all));
    ASSERT_EQ(all.size(), 1u);
    EXPECT_TRUE(SameAsSaved(all[0], Daily()));
}

TEST(Opml, ReadsOutlinesAtAnyDepthAndWritesWhatItReads)
{
    std::vector<OpmlOutline> outlines;
    QString error;
    ASSERT_TRUE(ParseOpml(R"(<?xml version="1.0" encoding="utf-8"?>
        <opml version="1.0"><head><title>Mine</title></head><body>
          <outline text="News">
            <outline text="Daily &amp; More" title="ignored" type="rss" xmlUrl="https://example.org/daily.xml"/>
            <outline text="Deeper"><outline title="Only a title" xmlurl=" http://b.example/feed "/></outline>
          </outline>
          <outline text="Duplicate" xmlUrl="https://example.org/daily.xml"/>
          <outline text="A web page only" htmlUrl="https://c.example/"/>
          <outline text="Relative" xmlUrl="feed.xml"/>
        </body></opml>)",
                          outlines, error))
        << error.toStdString();
    ASSERT_EQ(outlines.size(), 2u);
    EXPECT_EQ(outlines[0].title, "Daily & More");
    EXPECT_EQ(outlines[0].url, QUrl("https://example.org/daily.xml"));
    EXPECT_EQ(outlines[1].title, "Only a title");
    EXPECT_EQ(outlines[1].url, QUrl("http://b.example/feed"));

    outlines.push_back({QUrl(QString::fromUtf8("https://example.org/caf\xC3\xA9?a=1&b=<2>")),
                        QString::fromUtf8("Caf\xC3\xA9 \"quoted\" <tags>")});
    outlines.push_back({QUrl("https://untitled.example/feed"), QString()});
    const QByteArray written = WriteOpml(outlines, "feldrun subscriptions");
    EXPECT_NE(written.indexOf("<opml version=\"2.0\">"), -1);
    std::vector<OpmlOutline> back;
    ASSERT_TRUE(ParseOpml(written, back, error)) << error.toStdString();
    ASSERT_EQ(back.size(), outlines.size());
    for (std::size_t i = 0; i < back.size(); ++i) {
        EXPECT_EQ(back[i].url, outlines[i].url);
        EXPECT_EQ(back[i].title, outlines[i].title);
    }

    EXPECT_FALSE(ParseOpml("<rss><channel/></rss>", back, error));
    EXPECT_EQ(error, "not an OPML file: an XML document of type <rss>");
    EXPECT_FALSE(ParseOpml("subscriptions.txt", back, error));
    EXPECT_TRUE(error.startsWith("not an OPML file: not XML")) << error.toStdString();
    EXPECT_FALSE(ParseOpml("<opml><body><outline xmlUrl=\"https://a.example/\">", back, error));
    EXPECT_TRUE(back.empty());
}

namespace {

constexpr std::uint32_t kRate = 16000;

// An Opus program of a tone, as feldrun packs episodes (so its record is
// named "<id>_zqx"), through the authoring encoder and the SDK's writer.
void MakeOpusProgram(const QString& path, const std::string& id, std::uint32_t lengthMs)
{
    std::string error;
    auto encoder = zqxauthor::CreatePacketEncoder({3, kRate, 1}, error);
    ASSERT_NE(encoder, nullptr) << error;
    std::vector<std::int16_t> samples(std::size_t(kRate) * lengthMs / 1000);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = std::int16_t(8000 * std::sin(double(i) * 0.05));
    std::vector<zqxauthor::EncodedPacket> packets;
    ASSERT_TRUE(encoder->Encode(samples, packets));
    ASSERT_TRUE(encoder->Finish(packets));
    CZQXWriter writer;
    ASSERT_EQ(writer.Create(path.toStdString(), 3, kRate, 1), ZQX_OK);
    ASSERT_EQ(writer.SetProgramId(id), ZQX_OK);
    ASSERT_EQ(writer.SetPreSkip(encoder->PreSkip()), ZQX_OK);
    for (const auto& p : packets)
        ASSERT_EQ(writer.AddPacket(p.bytes.data(), std::uint32_t(p.bytes.size()), p.samples), ZQX_OK);
    ASSERT_EQ(writer.Finish(), ZQX_OK);
}

// What the player does with a program: opens it, plays it (decodes block
// after block, as the refill does) for playMs or to its end, and closes it,
// which saves its state.
void PlayAndClose(Registry& registry, const QString& path, std::optional<std::uint32_t> playMs)
{
    ProgramStateStore store(registry);
    ProgramFile program(path);
    ASSERT_EQ(program.ReadMetadata(), ZQX_OK);
    program.Open(store); // false for a program without bookmarks, as every new one is
    ASSERT_TRUE(program.IsOpen());
    std::vector<std::uint8_t> block(program.DecodeUnit() * 4);
    std::uint32_t length = 0;
    while ((!playMs || program.Position() < *playMs) &&
           program.DecodeBlock(block.data(), std::uint32_t(block.size()), &length)) {
    }
    ASSERT_TRUE(store.SaveProgramState(program));
    program.Close();
}

} // namespace

TEST_F(FeldrunStore, AnEpisodePlayedToItsEndCountsAsListened)
{
    const QString heard = device.path("music/Daily/Heard/Heard.zqx");
    const QString half = device.path("music/Daily/Half/Half.zqx");
    const QString unplayed = device.path("music/Daily/New/New.zqx");
    const QString outro = device.path("music/Daily/Outro/Outro.zqx");
    const QString shortOne = device.path("music/Daily/Short/Short.zqx");
    for (const char* folder : {"Heard", "Half", "New", "Outro", "Short"})
        QDir().mkpath(device.path(QStringLiteral("music/Daily/") + folder));
    MakeOpusProgram(heard, "daily-heard", 20000);
    MakeOpusProgram(half, "daily-half", 20000);
    MakeOpusProgram(unplayed, "daily-new", 20000);
    MakeOpusProgram(outro, "daily-outro", 20000);
    MakeOpusProgram(shortOne, "daily-short", 3000);
    PlayAndClose(*registry, heard, std::nullopt);
    PlayAndClose(*registry, half, 10000);
    PlayAndClose(*registry, outro, 18500); // stopped in the last two seconds
    PlayAndClose(*registry, shortOne, 1000);

    Subscription s;
    for (const QString& path : {heard, half, unplayed, device.path("music/gone.zqx"), outro, shortOne}) {
        EpisodeRecord e;
        e.guid = path;
        e.state = EpisodeState::Ready;
        e.programPath = path;
        s.episodes.push_back(e);
    }
    s.episodes.push_back(s.episodes[0]); // the same program, but Failed: unchanged
    s.episodes.back().state = EpisodeState::Failed;
    EXPECT_EQ(MarkListened(*registry, s), 2);
    EXPECT_EQ(s.episodes[0].state, EpisodeState::Listened);
    EXPECT_EQ(s.episodes[1].state, EpisodeState::Ready);
    EXPECT_EQ(s.episodes[2].state, EpisodeState::Ready);
    EXPECT_EQ(s.episodes[3].state, EpisodeState::Ready); // its program is gone
    EXPECT_EQ(s.episodes[4].state, EpisodeState::Listened);
    EXPECT_EQ(s.episodes[5].state, EpisodeState::Ready); // a third of a short one is not its end
    EXPECT_EQ(s.episodes[6].state, EpisodeState::Failed);
}
