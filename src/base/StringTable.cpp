#include "base/StringTable.h"

#include <QByteArray>
#include <cstdarg>

namespace talvo {

QString LoadString(int id)
{
    std::string_view text = StringText(id);
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QString FormatString(int id, ...)
{
    // The table's texts are not NUL-terminated views; vasprintf needs one.
    QByteArray format(StringText(id).data(), static_cast<qsizetype>(StringText(id).size()));
    va_list args;
    va_start(args, id);
    QString text = QString::vasprintf(format.constData(), args);
    va_end(args);
    return text;
}

} // namespace talvo
