// The details page from real program files: the page's bytes against golden
// pages spelled out here from the page's template (UTF-16LE, no byte-order
// mark), the cover written as the program holds it, and the dialog that shows
// the page.
#include "library/ProgramDetailsDialog.h"
#include "library/ProgramDetailsPage.h"
#include "platform/ProgramWriteFolder.h"
#include "tests/support/TestDevice.h"
#include "zqx/zqxwriter.h"

#include <QApplication>
#include <QBuffer>
#include <QImage>
#include <QKeyEvent>
#include <QStringEncoder>
#include <QTextDocument>
#include <QTimer>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>

namespace talvo::test {
namespace {

struct Texts {
    std::string author;
    std::string narrator;
    std::string provider;
    std::string description;
};

std::vector<std::uint8_t> EncodedImage(QSize size, const char* format)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(QColor(40, 90, 140));
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    EXPECT_TRUE(image.save(&buffer, format));
    return {bytes.begin(), bytes.end()};
}

// A three-second type-5 program with the given texts and, when cover is not
// empty, that JPEG as its first picture.
QString WriteProgram(const QString& path, const std::string& id, const Texts& texts,
                     const std::vector<std::uint8_t>& cover = {})
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    constexpr std::uint32_t kRate = 1000;
    CZQXWriter writer;
    EXPECT_EQ(writer.Create(path.toStdString(), ZQX_TYPE_PCM16, kRate, 1), ZQX_OK);
    writer.SetProgramId(id);
    writer.SetTitle("Title of " + id);
    writer.SetAuthor(texts.author);
    writer.SetNarrator(texts.narrator);
    writer.SetProvider(texts.provider);
    writer.SetDescription(texts.description);
    if (!cover.empty()) {
        EXPECT_EQ(writer.AddPicture(0, 1, cover), ZQX_OK);
    }
    std::vector<std::int16_t> second(kRate, 100);
    for (int s = 0; s < 3; ++s)
        EXPECT_EQ(writer.AddPacket(reinterpret_cast<const std::uint8_t*>(second.data()), kRate * 2, kRate),
                  ZQX_OK);
    EXPECT_EQ(writer.Finish(), ZQX_OK);
    return path;
}

// The IHDR chunk follows the 8-byte signature: length, type, then width and
// height, and its CRC over type and data 13 bytes later.
constexpr std::size_t kPngTypeOffset = 12;
constexpr std::size_t kPngWidthOffset = 16;
constexpr std::size_t kPngHeaderCrcOffset = 29;

void FixPngHeaderCrc(std::vector<std::uint8_t>& png)
{
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = kPngTypeOffset; i < kPngHeaderCrcOffset; ++i) {
        crc ^= png[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    crc = ~crc;
    for (int i = 0; i < 4; ++i)
        png[kPngHeaderCrcOffset + std::size_t(i)] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
}

QByteArray Utf16Le(const QString& text)
{
    QStringEncoder encoder(QStringEncoder::Utf16LE);
    return encoder(text);
}

QByteArray FileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// A file of exactly size bytes (sparse), standing in for the program file
// whose size the page reports.
QString FileOfSize(const QString& path, qint64 size)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_TRUE(file.resize(size));
    return path;
}

const QString kStart = R"(<html><body><table border="0"><tr valign="top"><td>)";

class DetailsPage : public ::testing::Test {
protected:
    void SetUp() override
    {
        out_ = device_.path("app");
        QDir().mkpath(out_);
    }

    std::unique_ptr<ProgramFile> Program(const QString& path)
    {
        auto program = std::make_unique<ProgramFile>(path);
        EXPECT_EQ(program->ReadMetadata(), ZQX_OK);
        return program;
    }

    TestDevice device_;
    QString out_;
};

TEST_F(DetailsPage, WithCoverTheValuesStandUnderTheirLabelsBesideThePictureKeptByteForByte)
{
    const std::vector<std::uint8_t> cover = EncodedImage(QSize(64, 48), "JPG");
    auto program =
        Program(WriteProgram(device_.path("music/a.zq"), "prog-a",
                             {"Ada Lindqvist", "Bram Okafor", "Talvo Demo Press", "Three notes."}, cover));
    program->path = FileOfSize(device_.path("sized"), 1024 * 1024 + 1);

    DetailsPageFiles files;
    ASSERT_TRUE(WriteDetailsPage(GatherProgramDetails(*program), program->Key(), out_, &files));
    EXPECT_EQ(files.page, out_ + "/prog-a.html");
    EXPECT_EQ(files.picture, out_ + "/prog-a.jpg");
    const QString expected =
        kStart + "<b>Author:</b><br>Ada Lindqvist</br>" + "<b>Narrator:</b><br>Bram Okafor</br>" +
        "<b>Provider:</b><br>Talvo Demo Press</br>" + "<b>Size:</b><br>1.0 MB</br>" +
        "<b>Running Time:</b><br>00:00:03</br>" + "<b>Audio Format:</b><br>Format 5</br>" +
        "<b>Location:</b><br>Main Memory</br>" + "</td>" + R"(<td><img src="file://)" + out_ +
        R"(/prog-a.jpg"></img></td>)" + "</tr></table><br>Three notes.</body></html>";
    EXPECT_EQ(FileBytes(files.page), Utf16Le(expected));
    EXPECT_EQ(FileBytes(files.picture),
              QByteArray(reinterpret_cast<const char*>(cover.data()), static_cast<qsizetype>(cover.size())));
}

TEST_F(DetailsPage, WithoutCoverOrTextsOnlyTheFilesOwnRowsRemainOnOneLineEach)
{
    auto program = Program(WriteProgram(device_.path("music/b.zq"), "prog-b", {}));
    program->inMainMemory = false;
    // Sizes at each edge of the size rule, and a file that is gone.
    const struct {
        qint64 bytes;
        const char* text;
    } sizes[] = {
        {-1, "0 Bytes"},          {1023, "1023 Bytes"},        {1024, "1 KB"},
        {1024 * 1024, "1024 KB"}, {1024 * 1024 + 1, "1.0 MB"}, {3 * 1024 * 1024 + 1000 * 1024, "3.10 MB"}};
    // A page and picture left from an earlier showing of a program with a cover.
    FileOfSize(out_ + "/prog-b.jpg", 10);
    for (const auto& size : sizes) {
        SCOPED_TRACE(size.text);
        program->path =
            size.bytes < 0 ? device_.path("gone.zq") : FileOfSize(device_.path("sized"), size.bytes);
        DetailsPageFiles files;
        ASSERT_TRUE(WriteDetailsPage(GatherProgramDetails(*program), program->Key(), out_, &files));
        EXPECT_TRUE(files.picture.isEmpty());
        EXPECT_FALSE(QFile::exists(out_ + "/prog-b.jpg"));
        const QString expected = kStart + "<b>Size:</b> " + size.text + "<br>" +
                                 "<b>Running Time:</b> 00:00:03<br>" + "<b>Audio Format:</b> Format 5<br>" +
                                 "<b>Location:</b> Storage Card<br>" + "</td></tr></table></body></html>";
        EXPECT_EQ(FileBytes(files.page), Utf16Le(expected));
    }
}

TEST_F(DetailsPage, MarkupInMetadataTextsShowsAsWrittenAndLeavesThePageWhole)
{
    const QString markup = R"(<b>Bold</b> & "Co" </table><img src="file:///etc/passwd"> %1 %s)";
    const QString escaped = "&lt;b&gt;Bold&lt;/b&gt; &amp; &quot;Co&quot; &lt;/table&gt;&lt;img "
                            "src=&quot;file:///etc/passwd&quot;&gt; "
                            "%1 %s";
    // The identifier names the files; one holding a "/" stays in the folder.
    auto program = Program(WriteProgram(device_.path("music/c.zq"), "../prog-c",
                                        {markup.toStdString(), "", "", markup.toStdString()}));
    program->path = FileOfSize(device_.path("sized"), 1023);
    DetailsPageFiles files;
    ASSERT_TRUE(WriteDetailsPage(GatherProgramDetails(*program), program->Key(), out_, &files));
    EXPECT_EQ(files.page, out_ + "/.._prog-c.html");
    const QString expected = kStart + "<b>Author:</b> " + escaped + "<br>" + "<b>Size:</b> 1023 Bytes<br>" +
                             "<b>Running Time:</b> 00:00:03<br>" + "<b>Audio Format:</b> Format 5<br>" +
                             "<b>Location:</b> Main Memory<br>" + "</td></tr></table><br>" + escaped +
                             "</body></html>";
    EXPECT_EQ(FileBytes(files.page), Utf16Le(expected));

    // Shown, the texts read as written and nothing of the page is lost.
    ProgramDetailsDialog dialog(files.page);
    const QString shown = dialog.Browser()->toPlainText();
    EXPECT_TRUE(shown.contains("Author: " + markup)) << shown.toStdString();
    EXPECT_TRUE(shown.contains("Location: Main Memory")) << shown.toStdString();
    EXPECT_TRUE(shown.endsWith(markup)) << shown.toStdString();
}

TEST_F(DetailsPage, ACoverNoDecoderCanReadGivesThePageWithoutPicture)
{
    const std::vector<std::uint8_t> good = EncodedImage(QSize(64, 48), "JPG");
    auto program = Program(WriteProgram(device_.path("music/d.zq"), "prog-d", {"Ada", "", "", ""}, good));
    program->path = FileOfSize(device_.path("sized"), 1024);
    ProgramDetails details = GatherProgramDetails(*program);
    ASSERT_EQ(details.cover, good);

    std::vector<std::uint8_t> truncated(good.begin(), good.begin() + 20);
    std::vector<std::uint8_t> garbage = {0xFF, 0xD8, 0xFF, 0xE0, 'n', 'o', 't', ' ', 'a', ' ', 'j', 'p', 'g'};
    std::vector<std::uint8_t> text = {'h', 'e', 'l', 'l', 'o'};
    // A sound PNG that claims 20000 by 20000 pixels: far beyond what is decoded.
    std::vector<std::uint8_t> huge = EncodedImage(QSize(4, 4), "PNG");
    const std::uint8_t side[4] = {0, 0, 0x4E, 0x20};
    std::copy(side, side + 4, huge.begin() + kPngWidthOffset);
    std::copy(side, side + 4, huge.begin() + kPngWidthOffset + 4);
    FixPngHeaderCrc(huge);
    const QString expected = kStart + "<b>Author:</b> Ada<br>" + "<b>Size:</b> 1 KB<br>" +
                             "<b>Running Time:</b> 00:00:03<br>" + "<b>Audio Format:</b> Format 5<br>" +
                             "<b>Location:</b> Main Memory<br>" + "</td></tr></table></body></html>";
    for (const auto& cover : {truncated, garbage, text, huge}) {
        details.cover = cover;
        DetailsPageFiles files;
        ASSERT_TRUE(WriteDetailsPage(details, program->Key(), out_, &files));
        EXPECT_TRUE(files.picture.isEmpty());
        EXPECT_FALSE(QFile::exists(out_ + "/prog-d.jpg"));
        EXPECT_EQ(FileBytes(files.page), Utf16Le(expected));
    }
}

class DetailsFolders : public DetailsPage {
protected:
    void TearDown() override
    {
        QFile::setPermissions(out_, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    // Closes the details dialog once it is up, so that the modal call returns.
    void CloseWhenShown()
    {
        QTimer::singleShot(0, [this] {
            if (auto* dialog = qobject_cast<ProgramDetailsDialog*>(QApplication::activeModalWidget())) {
                shownText_ = dialog->Browser()->toPlainText();
                dialog->reject();
            }
        });
    }

    QString shownText_;
};

TEST_F(DetailsFolders, AProgramFolderThatCannotBeWrittenSendsPageAndPictureToTheDataFolder)
{
    device_.set("XDG_DATA_HOME", device_.path("xdg"));
    QFile::setPermissions(out_, QFile::ReadOwner | QFile::ExeOwner);
    // Root may write whatever the mode says; for root, as for the player's
    // own rule, a folder that is not there is one that cannot be written.
    QString programFolder = out_;
    if (ProgramWriteFolder(out_, device_.path("unused")) == out_)
        programFolder = device_.path("not-there");
    const QString data = device_.path("xdg/talvoplayer");
    ASSERT_EQ(DetailsFolder(programFolder), data);

    auto program = Program(
        WriteProgram(device_.path("music/e.zq"), "prog-e", {"Ada", "", "", ""}, EncodedImage({8, 8}, "JPG")));
    CloseWhenShown();
    EXPECT_TRUE(ShowProgramDetails(*program, programFolder, nullptr));
    EXPECT_TRUE(shownText_.contains("Author:")) << shownText_.toStdString();
    EXPECT_TRUE(QFile::exists(data + "/prog-e.jpg"));
    const QString page =
        QString::fromUtf16(reinterpret_cast<const char16_t*>(FileBytes(data + "/prog-e.html").constData()),
                           FileBytes(data + "/prog-e.html").size() / 2);
    EXPECT_TRUE(page.contains(R"(<img src="file://)" + data + R"(/prog-e.jpg">)")) << page.toStdString();
    EXPECT_FALSE(QFile::exists(out_ + "/prog-e.html"));
    EXPECT_TRUE(device_.messages().isEmpty());
}

TEST_F(DetailsFolders, NoFolderToWriteToIsExplainedInABoxAndShowsNoPage)
{
    // The data folder would have to be made inside a plain file.
    FileOfSize(device_.path("plain"), 1);
    device_.set("XDG_DATA_HOME", device_.path("plain"));
    auto program = Program(WriteProgram(device_.path("music/f.zq"), "prog-f", {}));
    CloseWhenShown();
    EXPECT_FALSE(ShowProgramDetails(*program, device_.path("not-there"), nullptr));
    EXPECT_TRUE(shownText_.isEmpty());
    const QString page = device_.path("plain/talvoplayer/prog-f.html");
    EXPECT_EQ(
        device_.messages(),
        QStringList{QStringLiteral("TalvoPlayer Error\tFailed to create the details page %1. %2.\t0x50010")
                        .arg(page, QString::fromLocal8Bit(std::strerror(ENOTDIR)))});
}

TEST(DetailsDialog, CaptionedDetailsClosedByEscapeWithTheCoverFittedBesideTheRows)
{
    TestDevice device;
    auto program = std::make_unique<ProgramFile>(WriteProgram(
        device.path("music/g.zq"), "prog-g", {"Ada", "", "", ""}, EncodedImage(QSize(3000, 2000), "JPG")));
    ASSERT_EQ(program->ReadMetadata(), ZQX_OK);
    DetailsPageFiles files;
    ASSERT_TRUE(WriteDetailsPage(GatherProgramDetails(*program), program->Key(), device.path(), &files));

    ProgramDetailsDialog dialog(files.page);
    dialog.show();
    QCoreApplication::processEvents();
    EXPECT_EQ(dialog.windowTitle(), "Details");
    EXPECT_EQ(dialog.Browser()->accessibleName(), "Details");
    // Beside the cover each label and each value has a line of its own.
    const QString shown = dialog.Browser()->toPlainText();
    EXPECT_TRUE(shown.contains("Author:\nAda\nSize:\n")) << shown.toStdString();
    const QVariant cover = dialog.Browser()->document()->resource(QTextDocument::ImageResource,
                                                                  QUrl::fromLocalFile(files.picture));
    ASSERT_TRUE(cover.canConvert<QImage>());
    const QImage image = cover.value<QImage>();
    EXPECT_LE(image.width(), std::max(96, dialog.Browser()->viewport()->width() / 2));
    EXPECT_EQ(image.width() * 2, image.height() * 3) << "the cover keeps its shape";

    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(dialog.Browser(), &escape);
    EXPECT_FALSE(dialog.isVisible());
    EXPECT_EQ(dialog.result(), QDialog::Rejected);
}

} // namespace
} // namespace talvo::test
