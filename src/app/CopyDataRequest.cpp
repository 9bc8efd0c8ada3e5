#include "app/CopyDataRequest.h"

#include "base/CommandIds.h"

#include <array>

namespace talvo {
namespace {

constexpr std::array<unsigned, 3> kForwardedMessages{Message::SyncDeleteProgram, Message::SyncAddProgram,
                                                     Message::OpenProgramFile};

} // namespace

QByteArray TerminatedCopyData(const QByteArray& bytes)
{
    QByteArray text = bytes;
    if (text.size() % 2 != 0)
        text.chop(1);
    text.append(2, '\0');
    return text;
}

bool AcceptsCopyData(std::uintptr_t dwData)
{
    for (unsigned message : kForwardedMessages) {
        if (dwData == message)
            return true;
    }
    return false;
}

} // namespace talvo
