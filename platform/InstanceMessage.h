#pragma once
// The bytes of one single-instance request, as a local peer sends them (see
// InstanceChannel.h for the wire format).  Decoding is a pure function of the
// bytes received so far, so the server and the fuzzer share it.
#include "platform/InstanceChannel.h"

#include <QByteArray>
#include <cstdint>

namespace talvo {

inline constexpr std::uint32_t kInstanceMagic = 0x4D575054; // "TPWM" read as little-endian
inline constexpr qsizetype kInstanceHeaderBytes = 16;
inline constexpr qsizetype kInstanceAnswerBytes = 12;

struct DecodedInstanceRequest {
    enum Status {
        Incomplete, // a valid start; wait for more bytes
        Malformed,  // wrong magic, unknown kind or too large: drop the connection
        Complete,   // the request is below, taking the first `consumed` bytes
    } status = Incomplete;
    InstanceRequest kind = InstanceRequest::CopyData;
    std::uint32_t dwData = 0;
    QByteArray data;
    qsizetype consumed = 0;
};

// Decodes the request at the start of the bytes received so far.
DecodedInstanceRequest DecodeInstanceRequest(const QByteArray& received);

QByteArray EncodeInstanceRequest(InstanceRequest kind, std::uint32_t dwData, const QByteArray& data);

} // namespace talvo
