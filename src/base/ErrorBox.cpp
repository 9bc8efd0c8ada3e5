#include "base/ErrorBox.h"

#include "base/StringTable.h"
#include "platform/MessageBox.h"

namespace talvo {

int ShowErrorBox(QWidget* owner, const QString& text)
{
    return ShowMessageBox(owner, text, LoadString(Str::ErrorCaption), kErrorBoxStyle);
}

} // namespace talvo
