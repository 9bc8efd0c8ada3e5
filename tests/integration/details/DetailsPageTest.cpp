// The details page from real program files: the page's bytes against golden
// pages spelled out here from the page's template (UTF-16LE, no byte-order
// mark), the cover written as the program holds it, and the dialog.
#include "library/ProgramDetailsDialog.h"
#include "library/ProgramDetailsPage.h"
#include "platform/ProgramFolders.h"
#include "tests/support/TestDevice.h"
#include "zqx/zqxwriter.h"

#include <QApplication>
#include <QBuffer>
#include <QImage>
#include <QKeyEvent>
#include <QStringEncoder>
#include <QTextDocument>
#include <QTimer>
#include <array>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>

namespace talvo::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes EncodedImage(QSize size, const char* format)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return {bytes.begin(), bytes.end()};
}

// A three-second type-5 program with its author, narrator, provider and
// description, and cover as its first picture.
std::unique_ptr<ProgramFile> Program(const QString& path, const std::string& id,
                                     const std::array<std::string, 4>& texts, const Bytes& cover = {})
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    CZQXWriter writer;
    writer.Create(path.toStdString(), ZQX_TYPE_PCM16, 1000, 1);
    writer.SetProgramId(id);
    writer.SetAuthor(texts[0]);
    writer.SetNarrator(texts[1]);
    writer.SetProvider(texts[2]);
    writer.SetDescription(texts[3]);
    if (!cover.empty())
        writer.AddPicture(0, 1, cover);
    writer.AddPcm16(std::vector<std::int16_t>(3000, 100).data(), 3000);
    EXPECT_EQ(writer.Finish(), ZQX_OK);
    auto program = std::make_unique<ProgramFile>(path);
    EXPECT_EQ(program->ReadMetadata(), ZQX_OK);
    return program;
}

QByteArray FileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// A sparse file of exactly size bytes, standing in for the program file.
QString FileOfSize(const QString& path, qint64 size)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.resize(size));
    return path;
}

// The golden page: rows on one line each, or each under its label beside the
// picture at pictureUrl.
QByteArray Golden(const QStringList& labelsAndValues, const QString& pictureUrl, const QString& description)
{
    QString page = R"(<html><body><table border="0"><tr valign="top"><td>)";
    for (qsizetype i = 0; i + 1 < labelsAndValues.size(); i += 2)
        page += "<b>" + labelsAndValues[i] + ":</b>" +
                (pictureUrl.isEmpty() ? " " + labelsAndValues[i + 1] + "<br>"
                                      : "<br>" + labelsAndValues[i + 1] + "</br>");
    page += "</td>";
    if (!pictureUrl.isEmpty())
        page += R"(<td><img src=")" + pictureUrl + R"("></img></td>)";
    page += "</tr></table>" + (description.isEmpty() ? QString() : "<br>" + description) + "</body></html>";
    return QStringEncoder(QStringEncoder::Utf16LE)(page);
}

class DetailsPage : public ::testing::Test {
protected:
    void SetUp() override { QDir().mkpath(out_); }
    void TearDown() override
    {
        QFile::setPermissions(out_, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    // Once the modal details dialog is up: notes what it shows, then closes it
    // by Escape, so that the modal call returns.
    void CloseWhenShown()
    {
        QTimer::singleShot(0, [this] {
            if (auto* dialog = qobject_cast<ProgramDetailsDialog*>(QApplication::activeModalWidget())) {
                shown_ = dialog->windowTitle() + "|" + dialog->Browser()->accessibleName() + "|" +
                         dialog->Browser()->toPlainText();
                const QVariant cover = dialog->Browser()->document()->resource(QTextDocument::ImageResource,
                                                                               QUrl::fromLocalFile(picture_));
                coverSize_ = cover.value<QImage>().size();
                coverRoom_ = std::max(96, dialog->width() / 2);
                QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
                QApplication::sendEvent(dialog->Browser(), &escape);
            }
        });
    }

    TestDevice device_;
    QString out_ = device_.path("app");
    QString shown_;
    QString picture_;
    QSize coverSize_;
    int coverRoom_ = 0;
};

TEST_F(DetailsPage, RowsInTheirOrderBesideTheCoverOrOnOneLineWithEverySizeText)
{
    const Bytes cover = EncodedImage(QSize(64, 48), "JPG");
    auto program =
        Program(device_.path("music/a.zq"), "prog-a", {"Ada", "Bram", "Talvo Press", "Notes."}, cover);
    program->path = FileOfSize(device_.path("sized"), 1024 * 1024 + 1);
    DetailsPageFiles files;
    ASSERT_TRUE(WriteDetailsPage(GatherProgramDetails(*program), program->Key(), out_, &files));
    EXPECT_EQ(files.page, out_ + "/prog-a.html");
    EXPECT_EQ(FileBytes(files.page),
              Golden({"Author", "Ada", "Narrator", "Bram", "Provider", "Talvo Press", "Size", "1.0 MB",
                      "Running Time", "00:00:03", "Audio Format", "Format 5", "Location", "Main Memory"},
                     "file://" + out_ + "/prog-a.jpg", "Notes."));
    EXPECT_EQ(FileBytes(out_ + "/prog-a.jpg"),
              QByteArray(reinterpret_cast<const char*>(cover.data()), cover.size()));

    // No texts and no cover: only the file's own rows.  The cover left from
    // the page before is gone.
    program = Program(device_.path("music/b.zq"), "prog-a", {});
    program->inMainMemory = false;
    const std::pair<qint64, QString> sizes[] = {
        {-1, "0 Bytes"},          {1023, "1023 Bytes"},        {1024, "1 KB"},
        {1024 * 1024, "1024 KB"}, {1024 * 1024 + 1, "1.0 MB"}, {3 * 1024 * 1024 + 1000 * 1024, "3.10 MB"}};
    for (const auto& [bytes, text] : sizes) {
        program->path = bytes < 0 ? device_.path("gone.zq") : FileOfSize(device_.path("sized"), bytes);
        ASSERT_TRUE(WriteDetailsPage(GatherProgramDetails(*program), program->Key(), out_, &files));
        EXPECT_EQ(FileBytes(files.page), Golden({"Size", text, "Running Time", "00:00:03", "Audio Format",
                                                 "Format 5", "Location", "Storage Card"},
                                                "", ""));
        EXPECT_TRUE(files.picture.isEmpty());
        EXPECT_FALSE(QFile::exists(out_ + "/prog-a.jpg"));
    }
}

TEST_F(DetailsPage, MarkupInTextsShowsAsWrittenAndAnIdentifierStaysInTheFolder)
{
    const QString markup = R"(<b>Bold</b> & "Co" </table><img src="file:///etc/passwd"> %1 %s)";
    const QString escaped = "&lt;b&gt;Bold&lt;/b&gt; &amp; &quot;Co&quot; &lt;/table&gt;&lt;img "
                            "src=&quot;file:///etc/passwd&quot;&gt; %1 %s";
    auto program =
        Program(device_.path("music/c.zq"), "../c", {markup.toStdString(), "", "", markup.toStdString()});
    program->path = FileOfSize(device_.path("sized"), 1023);
    DetailsPageFiles files;
    ASSERT_TRUE(WriteDetailsPage(GatherProgramDetails(*program), program->Key(), out_, &files));
    EXPECT_EQ(files.page, out_ + "/.._c.html");
    EXPECT_EQ(FileBytes(files.page),
              Golden({"Author", escaped, "Size", "1023 Bytes", "Running Time", "00:00:03", "Audio Format",
                      "Format 5", "Location", "Main Memory"},
                     "", escaped));
    const QString shown = ProgramDetailsDialog(files.page).Browser()->toPlainText();
    EXPECT_TRUE(shown.contains("Author: " + markup + "\nSize:")) << shown.toStdString();
    EXPECT_TRUE(shown.contains("Main Memory\n") && shown.endsWith("\n" + markup)) << shown.toStdString();
}

TEST_F(DetailsPage, ACoverNoDecoderCanReadGivesThePageWithoutPicture)
{
    const Bytes good = EncodedImage(QSize(64, 48), "JPG");
    auto program = Program(device_.path("music/d.zq"), "prog-d", {"Ada"}, good);
    program->path = FileOfSize(device_.path("sized"), 1024);
    ProgramDetails details = GatherProgramDetails(*program);
    ASSERT_EQ(details.cover, good);
    // A BMP that claims 20000 by 20000 pixels: far beyond what is decoded.
    Bytes huge = EncodedImage(QSize(4, 4), "BMP");
    for (std::size_t at : {18, 22})
        std::copy_n(std::array<std::uint8_t, 4>{0x20, 0x4E, 0, 0}.begin(), 4, huge.begin() + at);
    for (const Bytes& cover : {Bytes(good.begin(), good.begin() + 20), Bytes{0xFF, 0xD8, 0xFF, 'x', 'y'},
                               Bytes{'h', 'e', 'l', 'l', 'o'}, huge}) {
        details.cover = cover;
        DetailsPageFiles files;
        ASSERT_TRUE(WriteDetailsPage(details, program->Key(), out_, &files));
        EXPECT_FALSE(QFile::exists(out_ + "/prog-d.jpg"));
        EXPECT_EQ(FileBytes(files.page), Golden({"Author", "Ada", "Size", "1 KB", "Running Time", "00:00:03",
                                                 "Audio Format", "Format 5", "Location", "Main Memory"},
                                                "", ""));
    }
}

TEST_F(DetailsPage, AFolderThatCannotBeWrittenSendsTheFilesToTheDataFolderOrIsExplained)
{
    device_.set("XDG_DATA_HOME", device_.path("xdg"));
    QFile::setPermissions(out_, QFile::ReadOwner | QFile::ExeOwner);
    // Root may write whatever the mode says; for root, as for the player's
    // own rule, a folder that is not there is one that cannot be written.
    const QString programFolder =
        ProgramWriteFolder(out_, device_.path("unused")) == out_ ? device_.path("not-there") : out_;
    const QString data = device_.path("xdg/talvoplayer");
    picture_ = data + "/prog-e.jpg";
    auto program = Program(device_.path("music/e.zq"), "prog-e", {"Ada"}, EncodedImage({3000, 2000}, "JPG"));
    CloseWhenShown();
    EXPECT_TRUE(ShowProgramDetails(*program, programFolder, nullptr));
    // Captioned and named "Details"; beside the cover each label and each
    // value has a line of its own; the cover fits beside the rows.
    EXPECT_TRUE(shown_.startsWith("Details|Details|")) << shown_.toStdString();
    EXPECT_TRUE(shown_.contains("Author:\nAda\nSize:\n")) << shown_.toStdString();
    EXPECT_LE(coverSize_.width(), coverRoom_);
    EXPECT_EQ(coverSize_.width() * 2, coverSize_.height() * 3) << "the cover keeps its shape";
    EXPECT_EQ(FileBytes(picture_).size(), program->GetCoverPicture().size());
    const QByteArray img = QStringEncoder(QStringEncoder::Utf16LE)(R"(<img src="file://)" + picture_ + "\">");
    EXPECT_TRUE(FileBytes(data + "/prog-e.html").contains(img));

    // The data folder would have to be made inside a plain file.
    device_.set("XDG_DATA_HOME", FileOfSize(device_.path("plain"), 1));
    shown_.clear();
    CloseWhenShown();
    EXPECT_FALSE(ShowProgramDetails(*program, device_.path("not-there"), nullptr));
    EXPECT_TRUE(shown_.isEmpty());
    EXPECT_EQ(
        device_.messages(),
        QStringList{QStringLiteral("TalvoPlayer Error\tFailed to create the details page %1. %2.\t0x50010")
                        .arg(device_.path("plain/talvoplayer/prog-e.html"),
                             QString::fromLocal8Bit(std::strerror(ENOTDIR)))});
}

} // namespace
} // namespace talvo::test
