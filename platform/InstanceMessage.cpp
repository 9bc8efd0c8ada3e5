#include "platform/InstanceMessage.h"

#include <QtEndian>

namespace talvo {
namespace {

std::uint32_t wordAt(const QByteArray& bytes, qsizetype offset)
{
    return qFromLittleEndian<std::uint32_t>(bytes.constData() + offset);
}

bool isKnownKind(std::uint32_t kind)
{
    return kind == static_cast<std::uint32_t>(InstanceRequest::CopyData) ||
           kind == static_cast<std::uint32_t>(InstanceRequest::BringToFront);
}

} // namespace

DecodedInstanceRequest DecodeInstanceRequest(const QByteArray& received)
{
    DecodedInstanceRequest request;
    if (received.size() < kInstanceHeaderBytes)
        return request;
    const std::uint32_t kind = wordAt(received, 4);
    const std::uint32_t cbData = wordAt(received, 12);
    if (wordAt(received, 0) != kInstanceMagic || !isKnownKind(kind) || cbData > InstanceServer::kMaxPayload) {
        request.status = DecodedInstanceRequest::Malformed;
        return request;
    }
    if (received.size() - kInstanceHeaderBytes < static_cast<qsizetype>(cbData))
        return request;
    request.status = DecodedInstanceRequest::Complete;
    request.kind = static_cast<InstanceRequest>(kind);
    request.dwData = wordAt(received, 8);
    request.data = received.mid(kInstanceHeaderBytes, cbData);
    request.consumed = kInstanceHeaderBytes + cbData;
    return request;
}

QByteArray EncodeInstanceRequest(InstanceRequest kind, std::uint32_t dwData, const QByteArray& data)
{
    QByteArray request(kInstanceHeaderBytes, Qt::Uninitialized);
    qToLittleEndian(kInstanceMagic, request.data());
    qToLittleEndian(static_cast<std::uint32_t>(kind), request.data() + 4);
    qToLittleEndian(dwData, request.data() + 8);
    qToLittleEndian(static_cast<std::uint32_t>(data.size()), request.data() + 12);
    return request + data;
}

} // namespace talvo
