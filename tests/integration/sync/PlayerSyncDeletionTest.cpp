// A running player's side of a desktop-sync deletion (message 7480): whatever
// it lists, it deletes no more than the request names.
#include "base/CommandIds.h"
#include "tests/integration/playback/PlayerFixture.h"

namespace talvo::test {
namespace {

using PlayerSyncDeletion = PlayerFixture;

TEST_F(PlayerSyncDeletion, TakesNothingBeyondWhatTheRequestNames)
{
    const QString card = device_.path("cards/SD");
    device_.set("TALVOPLAYER_CARDS", card);
    const QString book = WritePcmProgram(musicPath("Author/Book/book.zq"), "book", 60);
    const QString doomed = WritePcmProgram(card + "/Music/A/B/doomed.zq", "doomed", 5);
    const QStringList kept{book, WritePcmProgram(device_.path("app/own.zq"), "own", 5),
                           WritePcmProgram(card + "/root.zq", "root", 5),
                           WritePcmProgram(card + "/TalvoPlayer/installed.zq", "installed", 5),
                           WritePcmProgram(card + "/Music/C/D/other.zq", "other", 5)};
    startPlayer();
    std::u16string playing = book.toStdU16String();
    frame_->SendMessage(Message::OpenProgramFile, 0, reinterpret_cast<LPARAM>(playing.c_str()));
    ASSERT_TRUE(frame_->Audio().IsPlaying());
    const std::int32_t listed = frame_->Library().Count();
    ASSERT_EQ(listed, 6);

    // No path: neither Music, nor the cards, nor the player's own folder.
    frame_->SendMessage(Message::SyncDeleteProgram, 0, 0);
    for (const QString& path : kept + QStringList{doomed})
        EXPECT_TRUE(QFile::exists(path)) << path.toStdString();
    EXPECT_EQ(frame_->Library().Count(), listed);
    EXPECT_EQ(current().path, book);
    EXPECT_TRUE(frame_->Audio().IsPlaying());

    // A folder: what lies below it, not the card's other folders.
    std::u16string folder = (card + "/Music/A").toStdU16String();
    frame_->SendMessage(Message::SyncDeleteProgram, 0, reinterpret_cast<LPARAM>(folder.c_str()));
    EXPECT_FALSE(QFile::exists(doomed));
    for (const QString& path : kept)
        EXPECT_TRUE(QFile::exists(path)) << path.toStdString();
    EXPECT_EQ(frame_->Library().Count(), listed - 1);
    EXPECT_EQ(current().path, book);
    EXPECT_TRUE(frame_->Audio().IsPlaying());
}

} // namespace
} // namespace talvo::test
