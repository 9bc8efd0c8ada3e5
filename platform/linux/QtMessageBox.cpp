#include "platform/MessageBox.h"

#include <QMessageBox>

namespace talvo {
namespace {

QMessageBox::Icon IconOf(MessageBoxStyle style)
{
    switch (style & MB_ICONMASK) {
    case MB_ICONERROR:
        return QMessageBox::Critical;
    case MB_ICONQUESTION:
        return QMessageBox::Question;
    case MB_ICONWARNING:
        return QMessageBox::Warning;
    case MB_ICONINFORMATION:
        return QMessageBox::Information;
    default:
        return QMessageBox::NoIcon;
    }
}

class QtMessageBox final : public MessageBoxPresenter {
public:
    int Show(QWidget* owner, const QString& text, const QString& caption, MessageBoxStyle style) override
    {
        QMessageBox box(IconOf(style), caption, text, QMessageBox::NoButton, owner);
        // Texts carry program titles and paths: markup in them is shown, never run.
        box.setTextFormat(Qt::PlainText);
        box.setWindowModality(owner ? Qt::WindowModal : Qt::ApplicationModal);
        if (style & MB_TOPMOST)
            box.setWindowFlag(Qt::WindowStaysOnTopHint, true);
        switch (style & MB_TYPEMASK) {
        case MB_OKCANCEL:
            box.setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel);
            box.setDefaultButton(QMessageBox::Ok);
            box.setEscapeButton(QMessageBox::Cancel);
            break;
        case MB_YESNO:
            box.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
            box.setDefaultButton(QMessageBox::Yes);
            box.setEscapeButton(QMessageBox::No);
            break;
        default:
            box.setStandardButtons(QMessageBox::Ok);
            box.setEscapeButton(QMessageBox::Ok);
            break;
        }
        if (style & MB_SETFOREGROUND) {
            box.show();
            box.raise();
            box.activateWindow();
        }
        switch (box.exec()) {
        case QMessageBox::Cancel:
            return IDCANCEL;
        case QMessageBox::Yes:
            return IDYES;
        case QMessageBox::No:
            return IDNO;
        default:
            return IDOK;
        }
    }
};

} // namespace

std::unique_ptr<MessageBoxPresenter> CreateQtMessageBox()
{
    return std::make_unique<QtMessageBox>();
}

} // namespace talvo
