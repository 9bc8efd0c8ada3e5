#pragma once
// The "Details" screen: a program's generated details page shown in an HTML
// viewer, with a Close button.  Works from the keyboard alone: arrows and page
// keys scroll the page, Escape or Enter closes it.
#include "playback/ProgramFile.h"

#include <QDialog>
#include <QTextBrowser>

namespace talvo {

// Shows the page's file as the player wrote it (UTF-16LE without a
// byte-order mark).  The cover is decoded by the player's own image decoding
// and scaled to fit half the viewer's width, so a picture of any size leaves
// room for the rows beside it.
class DetailsBrowser final : public QTextBrowser {
    Q_OBJECT
public:
    using QTextBrowser::QTextBrowser;
    QVariant loadResource(int type, const QUrl& name) override;
};

class ProgramDetailsDialog final : public QDialog {
    Q_OBJECT
public:
    // Shows the page file at pagePath; a page that cannot be read leaves the
    // viewer empty.
    explicit ProgramDetailsDialog(const QString& pagePath, QWidget* parent = nullptr);

    DetailsBrowser* Browser() const { return browser_; }

private:
    DetailsBrowser* browser_ = nullptr;
};

// Writes program's details page and cover into the player's own folder
// (programFolder, the executable's folder) when it may be written, else into
// the player's data folder, and shows the page modally.  When the page cannot
// be written an error box says why and false is returned.
bool ShowProgramDetails(ProgramFile& program, const QString& programFolder, QWidget* parent);

} // namespace talvo
