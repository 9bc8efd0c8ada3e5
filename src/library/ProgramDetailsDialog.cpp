#include "library/ProgramDetailsDialog.h"

#include "base/ErrorBox.h"
#include "base/StringTable.h"
#include "library/ProgramDetailsPage.h"
#include "skins/ImageDecoding.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QImage>
#include <QPushButton>
#include <QTextDocument>
#include <QVBoxLayout>
#include <algorithm>

namespace talvo {
namespace {

// The size of a handheld's screen, for a dialog without a window to fill.
constexpr QSize kDefaultDialogSize(480, 640);
// The cover takes at most this share of the viewer's width ...
constexpr int kCoverWidthDivisor = 2;
// ... and never less than this many pixels, however narrow the viewer.
constexpr int kMinCoverSide = 96;

QString readPage(const QString& pagePath)
{
    QFile file(pagePath);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll();
    QString page(bytes.size() / 2, Qt::Uninitialized);
    for (qsizetype i = 0; i < page.size(); ++i)
        page[i] = QChar(static_cast<char16_t>(static_cast<std::uint8_t>(bytes[2 * i]) |
                                              static_cast<std::uint8_t>(bytes[2 * i + 1]) << 8));
    return page;
}

} // namespace

QVariant DetailsBrowser::loadResource(int type, const QUrl& name)
{
    if (type != QTextDocument::ImageResource || !name.isLocalFile())
        return QTextBrowser::loadResource(type, name);
    QFile file(name.toLocalFile());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll();
    QImage image = DecodeImage(reinterpret_cast<const std::uint8_t*>(bytes.constData()),
                               static_cast<std::size_t>(bytes.size()));
    if (image.isNull())
        return {};
    const int side = std::max(kMinCoverSide, viewport()->width() / kCoverWidthDivisor);
    if (image.width() > side || image.height() > side)
        image = image.scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return image;
}

ProgramDetailsDialog::ProgramDetailsDialog(const QString& pagePath, QWidget* parent) : QDialog(parent)
{
    setWindowTitle(LoadString(Str::ListDetails));
    resize(parent != nullptr ? parent->window()->size() : kDefaultDialogSize);
    auto* layout = new QVBoxLayout(this);
    browser_ = new DetailsBrowser;
    browser_->setObjectName(QStringLiteral("detailsPage"));
    browser_->setAccessibleName(LoadString(Str::ListDetails));
    browser_->setOpenLinks(false);
    browser_->resize(size());
    // Beside the cover each value ends in "</br>", which HTML reads as a line
    // break and QTextBrowser drops; the page keeps its bytes and the viewer
    // is told.  Metadata texts are escaped, so none of them holds the tag.
    browser_->setHtml(readPage(pagePath).replace(QStringLiteral("</br>"), QStringLiteral("<br>")));
    layout->addWidget(browser_, 1);
    auto* buttons = new QDialogButtonBox;
    QPushButton* close = buttons->addButton(LoadString(Str::ListClose), QDialogButtonBox::RejectRole);
    close->setObjectName(QStringLiteral("closeButton"));
    close->setDefault(true);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    browser_->setFocus();
}

bool ShowProgramDetails(ProgramFile& program, const QString& programFolder, QWidget* parent)
{
    const QString folder = DetailsFolder(programFolder);
    DetailsPageFiles files;
    QString reason;
    if (!WriteDetailsPage(GatherProgramDetails(program), program.Key(), folder, &files, &reason)) {
        ShowErrorBox(parent, FormatString(Str::DetailsPageFailed, files.page.toUtf8().constData(),
                                          reason.toUtf8().constData()));
        return false;
    }
    ProgramDetailsDialog dialog(files.page, parent);
    dialog.exec();
    return true;
}

} // namespace talvo
