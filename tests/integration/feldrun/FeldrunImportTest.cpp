// Drives `feldrun import` on books made by tests/fixtures/make-books.sh, with
// the Music folder and the player's stores in a temporary folder.
#include "zqx/TalvoMetadata.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

namespace fs = std::filesystem;

namespace {

const fs::path kBooks = fs::path(TALVO_BUILD_DIR) / "book-fixtures";

std::u16string Wide(const std::string& s)
{
    return std::u16string(s.begin(), s.end());
}

class FeldrunImport : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/feldrun-test-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        music_ = dir_ / "music";
        fs::create_directory(music_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    int Import(const std::string& args, std::string* output = nullptr, const fs::path& music = {})
    {
        // The player feldrun tells of new programs keeps its store here, not in the home folder.
        const std::string env = "TALVOPLAYER_MUSIC='" + (music.empty() ? music_ : music).string() +
                                "' TALVOPLAYER_REGISTRY='" + (dir_ / "registry.db").string() +
                                "' TALVOPLAYER_MESSAGES='" + (dir_ / "boxes.txt").string() + "' ";
        FILE* p = popen((env + FELDRUN_PATH + " import " + args + " 2>&1").c_str(), "r");
        std::string text;
        char buf[512];
        while (std::fgets(buf, sizeof buf, p))
            text += buf;
        const int status = pclose(p);
        if (output)
            *output = text;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::set<std::string> MusicListing() const
    {
        std::set<std::string> names;
        for (const auto& e : fs::recursive_directory_iterator(music_))
            names.insert(fs::relative(e.path(), music_).string());
        return names;
    }

    fs::path dir_, music_;
};

std::vector<std::u16string> SectionTitles(const CTalvoMetadata& meta)
{
    std::vector<std::u16string> titles;
    for (int i = 0; i < meta.GetSectionCount(); ++i)
        titles.push_back(meta.GetSectionTitle(i));
    return titles;
}

} // namespace

TEST_F(FeldrunImport, FilesAndFoldersBecomeProgramsTwoFoldersDeep)
{
    std::string log;
    ASSERT_EQ(Import("-q " + (kBooks / "book.m4b").string() + " " + (kBooks / "folder").string() + " " +
                         (kBooks / "nested").string(),
                     &log),
              0)
        << log;

    CTalvoMetadata book;
    ASSERT_EQ(book.OpenZQXFile(Wide((music_ / "Clara Mendes/Garden Stories/Garden Stories.zqx").string())),
              ZQX_OK);
    EXPECT_EQ(book.GetProgramId(), "clara-mendes-garden-stories");
    EXPECT_EQ(book.GetNarrator(), u"Nora Reads");
    EXPECT_EQ(SectionTitles(book), (std::vector<std::u16string>{u"Opening", u"Middle", u"Ending"}));
    EXPECT_EQ(book.GetChannels(), 1u);
    EXPECT_EQ(book.GetPictureCount(), 1);

    // "Part 10" after "Part 2"; three MP3s joined without gaps at the seams.
    CTalvoMetadata folder;
    ASSERT_EQ(folder.OpenZQXFile(Wide((music_ / "Folder Author/Folder Book/Folder Book.zqx").string())),
              ZQX_OK);
    EXPECT_EQ(SectionTitles(folder), (std::vector<std::u16string>{u"Part 1", u"Part 2", u"Part 10"}));
    EXPECT_EQ(folder.GetSectionStart(1), 2000u);
    EXPECT_EQ(folder.GetSectionStart(2), 4000u);
    EXPECT_NEAR(double(folder.GetLengthMs()), 6000, 20);
    EXPECT_EQ(folder.GetPictureCount(), 1); // cover.jpg beside the files

    // CD1 before CD2, by track within each; no tags: the folder names the book.
    CTalvoMetadata nested;
    ASSERT_EQ(nested.OpenZQXFile(Wide((music_ / "Unknown Author/nested/nested.zqx").string())), ZQX_OK);
    ASSERT_EQ(nested.GetSectionCount(), 3);
    EXPECT_EQ(nested.GetSectionStart(1), 2000u);
    EXPECT_EQ(MusicListing().size(), 9u); // three author folders, three title folders, three programs
}

TEST_F(FeldrunImport, ImportingAgainKeepsTheIdAndLeavesOneCopy)
{
    const std::string m4b = (kBooks / "book.m4b").string();
    const fs::path folder = music_ / "Clara Mendes/Garden Stories";
    // A program of this book made before, under an id of its own, as another type.
    fs::create_directories(folder);
    ASSERT_EQ(std::system((std::string(ZQXPACK_PATH) + " -q --type 1 --id older-id -o '" +
                           (folder / "Garden Stories.zq").string() + "' " + m4b)
                              .c_str()),
              0);
    std::string log;
    ASSERT_EQ(Import("-n " + m4b, &log), 0);
    EXPECT_NE(log.find("program id older-id (kept"), std::string::npos) << log;
    ASSERT_EQ(Import("-q " + m4b, &log), 0) << log;
    ASSERT_EQ(Import("-q " + m4b, &log), 0) << log;
    CTalvoMetadata meta;
    ASSERT_EQ(meta.OpenZQXFile(Wide((folder / "Garden Stories.zqx").string())), ZQX_OK);
    EXPECT_EQ(meta.GetProgramId(), "older-id");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);
}

TEST_F(FeldrunImport, BadBooksAndUnwritableMusicLeaveTheMusicFolderAsItWas)
{
    ASSERT_EQ(Import("-q " + (kBooks / "book.mp3").string()), 0);
    const auto before = MusicListing();
    fs::create_directory(dir_ / "no-audio");
    std::ofstream(dir_ / "no-audio/notes.txt") << "nothing to hear";
    // Music itself a file, and an author folder's place taken by a file.
    std::ofstream(dir_ / "music-file") << "x";
    std::ofstream(music_ / "Folder Author") << "x";
    struct Case {
        std::string args;
        const char* message;
        fs::path music;
    };
    const Case cases[] = {
        {(kBooks / "truncated.m4b").string(), "cannot read audio file", {}},
        {(kBooks / "empty.m4b").string(), "the file is empty", {}},
        {(kBooks / "noaudio.png").string(), "has no audio stream", {}},
        {(dir_ / "no-audio").string(), "holds no audio files", {}},
        {(kBooks / "missing.mp3").string(), "does not exist", {}},
        {(kBooks / "folder").string(), "cannot make the folder", {}},
        {(kBooks / "book.m4b").string(), "cannot make the folder", dir_ / "music-file"},
    };
    for (const Case& c : cases) {
        std::string log;
        EXPECT_EQ(Import("-q " + c.args, &log, c.music), 1) << c.args;
        EXPECT_NE(log.find(c.message), std::string::npos) << log;
        auto expected = before;
        expected.insert("Folder Author");
        EXPECT_EQ(MusicListing(), expected) << c.args;
    }
    std::string log;
    EXPECT_EQ(Import("--type 9 " + (kBooks / "book.mp3").string(), &log), 2);
    EXPECT_NE(log.find("unsupported file type '9'"), std::string::npos) << log;
    EXPECT_EQ(Import("--bogus", &log), 2);
}
