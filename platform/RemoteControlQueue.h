#pragma once
// The remote-control queue: one record per button of a wireless remote, read
// on a thread of its own.  On Linux it is the POSIX message queue
// "/Avrcp10MsgQ", which a Bluetooth bridge (or a test) writes with mq_send.
//
// Contract:
// - Open creates the queue for reading (or opens the one already there) and
//   starts the reader; false when the queue cannot be had (no remote control).
// - The listener runs on the reader thread for each message of exactly
//   kRemoteRecordSize bytes, in the order they were queued; a message of any
//   other size is dropped.  The record is valid only during the call, and the
//   listener may block: the next message waits in the queue meanwhile, and a
//   writer that outruns the player finds the queue full rather than growing it.
// - Destroying the queue wakes and ends the reader (the listener must return
//   promptly once asked to stop) and closes the queue; it stays in the system
//   for writers that hold it open.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace talvo {

inline constexpr char kRemoteQueueName[] = "/Avrcp10MsgQ";
inline constexpr std::size_t kRemoteRecordSize = 24;

class RemoteControlQueue {
public:
    using Listener = std::function<void(const std::uint8_t* record)>;
    virtual ~RemoteControlQueue() = default;
    virtual bool Open(Listener listener) = 0;
};

std::unique_ptr<RemoteControlQueue> CreatePosixRemoteControlQueue(const char* name = kRemoteQueueName);

} // namespace talvo
