// zqxpack on listeners' books made by tests/fixtures/make-books.sh: chapters
// land on their first sample, tags become fields, bad files are refused.
#include "zqx/TalvoMetadata.h"
#include "zqx/zqxsdk.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

const fs::path kBooks = fs::path(TALVO_BUILD_DIR) / "book-fixtures";
// Each part of the books starts with a tone burst at 0.8 of full scale.
constexpr int kToneThreshold = 8000;
// AAC priming is 48 ms and an MP3 decoder's delay about 37 ms: a start that
// ignored either would miss by far more than this.
constexpr double kOnsetToleranceMs = 5;

std::u16string Wide(const std::string& s)
{
    return std::u16string(s.begin(), s.end());
}

int RunZqxpack(const std::string& args, std::string* output = nullptr)
{
    FILE* p = popen((std::string(ZQXPACK_PATH) + " " + args + " 2>&1").c_str(), "r");
    std::string text;
    char buf[512];
    while (std::fgets(buf, sizeof buf, p))
        text += buf;
    const int status = pclose(p);
    if (output)
        *output = text;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::vector<std::int16_t> DecodeMono(const std::string& path)
{
    ZQXHANDLE h = 0;
    EXPECT_EQ(ZQXOpenFileWinW(&h, Wide(path).c_str()), ZQX_OK);
    std::vector<std::int16_t> pcm;
    std::vector<std::uint8_t> block(ZQX_MAX_BLOCK_BYTES), out(1 << 16);
    std::uint32_t len = 0;
    while (ZQXGetEncodedAudio(h, block.data(), ZQX_MAX_BLOCK_BYTES, &len) == ZQX_OK) {
        std::uint32_t produced = 0;
        ZQXDecodePCMFrame(h, block.data(), len, out.data(), std::uint32_t(out.size()), &produced);
        const auto* s = reinterpret_cast<const std::int16_t*>(out.data());
        pcm.insert(pcm.end(), s, s + produced / 2);
    }
    ZQXCloseFile(h);
    return pcm;
}

// Where the tone after `fromMs` begins, in ms.
double OnsetMs(const std::vector<std::int16_t>& pcm, std::uint32_t rate, double fromMs)
{
    for (auto i = std::size_t(std::max(0.0, fromMs) * rate / 1000); i < pcm.size(); ++i)
        if (std::abs(pcm[i]) > kToneThreshold)
            return double(i) * 1000 / rate;
    return -1;
}

class BookInput : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/zqxpack-books-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override { fs::remove_all(dir_); }
    fs::path dir_;
};

} // namespace

TEST_F(BookInput, ChaptersOfEveryKindStartOnTheirFirstSample)
{
    for (const char* book : {"book.m4b", "book.mp3", "book.opus", "cued.wav"}) {
        SCOPED_TRACE(book);
        const std::string out = (dir_ / "out.zqx").string();
        std::string log;
        ASSERT_EQ(RunZqxpack("-q --type 3 -o " + out + " " + (kBooks / book).string(), &log), 0) << log;
        CTalvoMetadata meta;
        ASSERT_EQ(meta.OpenZQXFile(Wide(out)), ZQX_OK);
        // One Opus packet of the program, or one AAC packet of padding the container leaves.
        EXPECT_NEAR(double(meta.GetLengthMs()), 6000, 24);
        ASSERT_EQ(meta.GetSectionCount(), 3);
        const std::u16string titles[2][3] = {{u"Opening", u"Middle", u"Ending"},
                                             {u"First", u"Second", u"Third"}};
        const bool cued = std::string(book) == "cued.wav";
        const auto pcm = DecodeMono(out);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(meta.GetSectionTitle(i), titles[cued][i]);
            EXPECT_EQ(meta.GetSectionStart(i), std::uint32_t(2000 * i));
            EXPECT_NEAR(OnsetMs(pcm, 48000, 2000.0 * i - 100), 2000.0 * i, kOnsetToleranceMs) << "part " << i;
        }
        EXPECT_EQ(meta.GetTitle(), cued ? u"Cued Stories" : u"Garden Stories");
        EXPECT_EQ(meta.GetAuthor(), u"Clara Mendes");
        EXPECT_EQ(meta.GetNarrator(), cued ? u"" : u"Nora Reads");
        ASSERT_EQ(meta.GetPictureCount(), 1);
        fs::remove(out);
    }
}

TEST_F(BookInput, WithoutOptionsABookBecomesMonoOpusBesideItNamedByItsTitle)
{
    fs::copy_file(kBooks / "book.m4b", dir_ / "book.m4b");
    fs::copy_file(kBooks / "part1.wav", dir_ / "untagged.wav");
    std::string log;
    ASSERT_EQ(RunZqxpack("-q " + (dir_ / "book.m4b").string(), &log), 0) << log;
    ASSERT_EQ(RunZqxpack("-q " + (dir_ / "untagged.wav").string(), &log), 0) << log;
    for (const auto& [name, sections] : {std::pair{"Garden Stories.zqx", 3}, std::pair{"untagged.zqx", 1}}) {
        CTalvoMetadata meta;
        ASSERT_EQ(meta.OpenZQXFile(Wide((dir_ / name).string())), ZQX_OK) << name;
        EXPECT_EQ(meta.GetFileType(), ZQX_TYPE_OPUS);
        EXPECT_EQ(meta.GetChannels(), 1u);
        EXPECT_EQ(meta.GetSectionCount(), sections) << name;
    }
}

TEST_F(BookInput, TheCommandLineOverridesTagsAndChapters)
{
    const std::string out = (dir_ / "out.zq").string();
    ASSERT_EQ(RunZqxpack("-q --type 5 --no-chapters --title Mine --narrator Me -o " + out + " " +
                         (kBooks / "book.m4b").string()),
              0);
    CTalvoMetadata meta;
    ASSERT_EQ(meta.OpenZQXFile(Wide(out)), ZQX_OK);
    EXPECT_EQ(meta.GetTitle(), u"Mine");
    EXPECT_EQ(meta.GetNarrator(), u"Me");
    EXPECT_EQ(meta.GetAuthor(), u"Clara Mendes");
    ASSERT_EQ(meta.GetSectionCount(), 1);
    EXPECT_EQ(meta.GetSectionTitle(0), u"Garden Stories, Book One");
}

TEST_F(BookInput, DamagedBooksAreRefusedAndBadChaptersDropped)
{
    const std::string out = (dir_ / "out.zqx").string();
    struct Case {
        const char* file;
        int status;
        const char* message;
    };
    for (const Case& c : {Case{"truncated.m4b", 1, "cannot read audio file"},
                          Case{"empty.m4b", 1, "is empty"}, Case{"noaudio.png", 1, "has no audio stream"},
                          Case{"late.m4b", 0, "'Ending' at 9.0 s starts past the end"}}) {
        std::string log;
        EXPECT_EQ(RunZqxpack("-q --type 3 -o " + out + " " + (kBooks / c.file).string(), &log), c.status)
            << c.file;
        EXPECT_NE(log.find(c.message), std::string::npos) << log;
        EXPECT_EQ(fs::exists(out), c.status == 0) << c.file;
        fs::remove(out);
    }
}
