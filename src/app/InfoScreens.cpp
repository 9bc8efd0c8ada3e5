#include "app/InfoScreens.h"

#include "TalvoVersion.h"
#include "base/DialogButtons.h"
#include "base/StringTable.h"
#include "platform/MessageBox.h"
#include "skins/IniFile.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QTextBrowser>
#include <QUrl>
#include <QVBoxLayout>
#include <memory>

namespace talvo {
namespace {

// The About text is the designed string with the version written into it;
// the build's version must be the same one.
constexpr bool AboutTextNamesTheBuildVersion()
{
    for (const StringEntry& entry : kStringTable) {
        if (entry.id == Str::AboutText)
            return entry.text.find(TALVO_VERSION_TEXT) != std::string_view::npos;
    }
    return false;
}
static_assert(AboutTextNamesTheBuildVersion(), "the About text and the project version differ");

// A modal screen with a text part and one button that closes it (Enter or Escape).
QDialog* makeScreen(const QString& title, QWidget* content, const QString& name, QWidget* parent)
{
    auto* dialog = new QDialog(parent);
    dialog->setObjectName(name);
    dialog->setWindowTitle(title);
    dialog->setAccessibleName(title);
    auto* layout = new QVBoxLayout(dialog);
    layout->addWidget(content, 1);
    QDialogButtonBox* buttons = MakeDialogButtons(*dialog, false);
    layout->addWidget(buttons);
    return dialog;
}

void showScreen(const QString& title, QWidget* content, const QString& name, QWidget* parent)
{
    std::unique_ptr<QDialog> dialog(makeScreen(title, content, name, parent));
    dialog->exec();
}

QLabel* wrappedText(const QString& text, const QString& name)
{
    auto* label = new QLabel(text);
    label->setObjectName(name);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    label->setAccessibleName(text);
    return label;
}

} // namespace

void ShowAbout(QWidget* parent)
{
    auto* content = new QWidget;
    auto* layout = new QVBoxLayout(content);
    layout->addWidget(wrappedText(FormatString(Str::AboutText, "Linux"), QStringLiteral("aboutVersion")));
    layout->addWidget(wrappedText(LoadString(Str::AboutSummary), QStringLiteral("aboutSummary")));
    showScreen(LoadString(Str::MenuAbout), content, QStringLiteral("about"), parent);
}

void ShowHelp(const QString& programFolder, QWidget* parent)
{
    const QString page = programFolder + QLatin1Char('/') + QLatin1String(kHelpPageName);
    if (!QFileInfo(page).isFile()) {
        ShowMessageBox(parent, FormatString(Str::HelpMissing, qPrintable(page)),
                       LoadString(Str::ErrorCaption), kErrorBoxStyle);
        return;
    }
    auto* browser = new QTextBrowser;
    browser->setObjectName(QStringLiteral("helpPage"));
    browser->setAccessibleName(LoadString(Str::MenuHelp));
    browser->setOpenExternalLinks(false);
    browser->setSource(QUrl::fromLocalFile(page));
    browser->setMinimumSize(320, 400);
    showScreen(LoadString(Str::MenuHelp), browser, QStringLiteral("help"), parent);
}

QDialog* ShowWelcome(const QString& programFolder, QWidget* parent)
{
    QString title = LoadString(Str::WelcomeTitle);
    QString text = LoadString(Str::WelcomeText);
    IniFile ini;
    const QString file = programFolder + QLatin1Char('/') + QLatin1String(kWelcomeIniName);
    if (ini.Load(file.toStdU16String())) {
        title = QString::fromStdU16String(ini.GetString(u"Welcome", u"Title", title.toStdU16String()));
        text = QString::fromStdU16String(ini.GetString(u"Welcome", u"Text", text.toStdU16String()));
    }
    QDialog* dialog = makeScreen(title, wrappedText(text, QStringLiteral("welcomeText")),
                                 QStringLiteral("welcome"), parent);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    // Modal for the listener, but the start goes on beneath it (a file named
    // on the command line still opens).
    dialog->open();
    return dialog;
}

} // namespace talvo
