#include "platform/RemoteControlQueue.h"

#include <cerrno>
#include <fcntl.h>
#include <mqueue.h>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace talvo {
namespace {

// The queue's shape as the remote's bridge expects it: a few messages, none
// longer than 100 bytes.
constexpr long kMaxMessages = 5;
constexpr long kMaxMessageSize = 100;

class PosixRemoteControlQueue final : public RemoteControlQueue {
public:
    explicit PosixRemoteControlQueue(const char* name) : name_(name) {}

    ~PosixRemoteControlQueue() override
    {
        if (stop_ >= 0) {
            const std::uint64_t one = 1;
            [[maybe_unused]] ssize_t written = write(stop_, &one, sizeof one);
        }
        if (reader_.joinable())
            reader_.join();
        if (queue_ != static_cast<mqd_t>(-1))
            mq_close(queue_);
        if (stop_ >= 0)
            close(stop_);
    }

    bool Open(Listener listener) override
    {
        mq_attr attributes{};
        attributes.mq_maxmsg = kMaxMessages;
        attributes.mq_msgsize = kMaxMessageSize;
        queue_ = mq_open(name_.c_str(), O_RDONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0600, &attributes);
        if (queue_ == static_cast<mqd_t>(-1))
            return false;
        // A queue left by an earlier run keeps its own sizes; read whole messages of those.
        if (mq_getattr(queue_, &attributes) != 0)
            return false;
        stop_ = eventfd(0, EFD_CLOEXEC);
        if (stop_ < 0)
            return false;
        reader_ = std::thread([this, listener = std::move(listener), size = attributes.mq_msgsize] {
            read(listener, static_cast<std::size_t>(size));
        });
        return true;
    }

private:
    void read(const Listener& listener, std::size_t messageSize)
    {
        std::vector<char> message(messageSize);
        pollfd waits[2] = {{queue_, POLLIN, 0}, {stop_, POLLIN, 0}};
        for (;;) {
            if (poll(waits, 2, -1) < 0) {
                if (errno == EINTR)
                    continue;
                return;
            }
            if (waits[1].revents != 0 || (waits[0].revents & (POLLERR | POLLNVAL)) != 0)
                return;
            const ssize_t size = mq_receive(queue_, message.data(), message.size(), nullptr);
            if (size == static_cast<ssize_t>(kRemoteRecordSize))
                listener(reinterpret_cast<const std::uint8_t*>(message.data()));
        }
    }

    std::string name_;
    mqd_t queue_ = static_cast<mqd_t>(-1);
    int stop_ = -1;
    std::thread reader_;
};

} // namespace

std::unique_ptr<RemoteControlQueue> CreatePosixRemoteControlQueue(const char* name)
{
    return std::make_unique<PosixRemoteControlQueue>(name);
}

} // namespace talvo
