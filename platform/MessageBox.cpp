#include "platform/MessageBox.h"

namespace talvo {

int DefaultMessageBoxAnswer(MessageBoxStyle style)
{
    return (style & MB_TYPEMASK) == MB_YESNO ? IDYES : IDOK;
}

int ShowMessageBox(QWidget* owner, const QString& text, const QString& caption, MessageBoxStyle style)
{
    // Read at every call: a test sets the log per test case.
    QString log = qEnvironmentVariable("TALVOPLAYER_MESSAGES");
    std::unique_ptr<MessageBoxPresenter> presenter =
        log.isEmpty() ? CreateQtMessageBox() : CreateRecordingMessageBox(log);
    return presenter->Show(owner, text, caption, style);
}

} // namespace talvo
