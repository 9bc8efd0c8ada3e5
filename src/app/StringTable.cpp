#include "app/StringTable.h"

namespace talvo {

QString LoadString(int id)
{
    std::string_view text = StringText(id);
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace talvo
