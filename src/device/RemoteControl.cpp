#include "device/RemoteControl.h"

#include "base/CommandIds.h"
#include "platform/EventQueueHandOff.h"

#include <QPointer>
#include <array>
#include <chrono>
#include <cstring>
#include <future>

namespace talvo {
namespace {

// How often a reader waiting for the window looks whether it is asked to stop.
constexpr auto kStopCheckInterval = std::chrono::milliseconds(100);

} // namespace

RemoteControl::RemoteControl(MessageWindow& window, std::unique_ptr<RemoteControlQueue> queue)
    : window_(window), queue_(std::move(queue))
{
}

RemoteControl::~RemoteControl()
{
    stopping_ = true;
    queue_.reset();
}

bool RemoteControl::Start()
{
    return queue_ && queue_->Open([this](const std::uint8_t* record) { sendRecord(record); });
}

void RemoteControl::sendRecord(const std::uint8_t* record)
{
    // The window handles a copy that lives as long as the delivery, so a reader
    // that stops waiting (the window is closing) leaves nothing dangling.
    std::future<void> done;
    PostThroughEventQueue([&] {
        auto copy = std::make_shared<std::array<std::uint8_t, kRemoteRecordSize>>();
        std::memcpy(copy->data(), record, kRemoteRecordSize);
        auto handled = std::make_shared<std::promise<void>>();
        done = handled->get_future();
        QMetaObject::invokeMethod(
            &window_,
            [window = QPointer<MessageWindow>(&window_), copy, handled] {
                if (window)
                    window->SendMessage(Message::RemoteControlKey, 0, reinterpret_cast<LPARAM>(copy->data()));
                handled->set_value();
            },
            Qt::QueuedConnection);
    });
    while (done.wait_for(kStopCheckInterval) == std::future_status::timeout) {
        if (stopping_)
            return;
    }
}

} // namespace talvo
