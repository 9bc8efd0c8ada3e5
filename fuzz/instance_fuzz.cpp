// Fuzz target over what a local peer sends the running player on the
// single-instance channel: the request's decoding from the bytes received so
// far, and the main window's reading of a copy-data request's text.  Traps on
// a request that claims more bytes than arrived, one that does not survive
// its own encoding, and a forwarded text without its terminator.

#include "app/CopyDataRequest.h"
#include "platform/InstanceMessage.h"

#include <QString>
#include <cstdint>

namespace {

void ReadAsTheWindowDoes(std::uint32_t dwData, const QByteArray& data)
{
    if (!talvo::AcceptsCopyData(dwData))
        return;
    const QByteArray text = talvo::TerminatedCopyData(data);
    if (text.size() % 2 != 0 || !text.endsWith(QByteArray(2, '\0')))
        __builtin_trap();
    // The window reads up to the terminator, as it does with the pointer it is handed.
    const QString path = QString::fromUtf16(reinterpret_cast<const char16_t*>(text.constData()));
    if (path.size() * 2 > data.size())
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray received(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const talvo::DecodedInstanceRequest request = talvo::DecodeInstanceRequest(received);
    if (request.status != talvo::DecodedInstanceRequest::Complete)
        return 0;
    if (request.consumed > received.size() ||
        request.consumed != talvo::kInstanceHeaderBytes + request.data.size())
        __builtin_trap();
    const QByteArray again = talvo::EncodeInstanceRequest(request.kind, request.dwData, request.data);
    if (again != received.left(request.consumed))
        __builtin_trap();
    if (request.kind == talvo::InstanceRequest::CopyData)
        ReadAsTheWindowDoes(request.dwData, request.data);
    return 0;
}
