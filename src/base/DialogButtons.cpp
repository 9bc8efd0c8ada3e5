#include "base/DialogButtons.h"

#include "base/StringTable.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QPushButton>

namespace talvo {

QDialogButtonBox* MakeDialogButtons(QDialog& dialog, bool withCancel)
{
    auto* buttons = new QDialogButtonBox;
    QPushButton* ok = buttons->addButton(LoadString(Str::ButtonOk), QDialogButtonBox::AcceptRole);
    ok->setObjectName(QStringLiteral("okButton"));
    ok->setDefault(true);
    if (withCancel) {
        QPushButton* cancel = buttons->addButton(LoadString(Str::ButtonCancel), QDialogButtonBox::RejectRole);
        cancel->setObjectName(QStringLiteral("cancelButton"));
    }
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    return buttons;
}

} // namespace talvo
