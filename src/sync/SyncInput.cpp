#include "sync/SyncInput.h"

#include "platform/Registry.h"

namespace talvo {

std::optional<QString> SyncPathFromInput(const std::optional<std::vector<std::uint8_t>>& input)
{
    if (!input)
        return std::nullopt;
    const QString text =
        QString::fromStdU16String(RegSzText(input->data(), static_cast<DWORD>(input->size())));
    if (text.isEmpty())
        return std::nullopt;
    return text;
}

QByteArray AddProgramPayload(const std::vector<std::uint8_t>& input)
{
    QByteArray payload(reinterpret_cast<const char*>(input.data()), static_cast<qsizetype>(input.size()));
    // The player copies the text up to its terminator; make sure there is one.
    if (payload.size() < 2 || payload.right(2) != QByteArray(2, '\0'))
        payload.append(QByteArray(payload.size() % 2 == 0 ? 2 : 3, '\0'));
    return payload;
}

} // namespace talvo
