#include "platform/KeepAwake.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <thread>

namespace talvo {
namespace {

void simulateUserActivity()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("/ScreenSaver"),
        QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("SimulateUserActivity"));
    bus.call(call, QDBus::NoBlock);
}

class DBusKeepAwake final : public KeepAwake {
public:
    ~DBusKeepAwake() override { Stop(); }

    void Start() override
    {
        Stop();
        stopping_ = false;
        thread_ = std::thread([this] { run(); });
    }

    void Stop() override
    {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_all();
        if (thread_.joinable())
            thread_.join();
    }

private:
    void run()
    {
        std::unique_lock lock(mutex_);
        while (!wake_.wait_for(lock, std::chrono::milliseconds(kActivityIntervalMs),
                               [this] { return stopping_; })) {
            lock.unlock();
            simulateUserActivity();
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace

std::unique_ptr<KeepAwake> CreateKeepAwake()
{
    return std::make_unique<DBusKeepAwake>();
}

void ResetSystemIdleTimer()
{
    // The player resets the idle timer after every buffer, many times a
    // second; one reset holds the session awake for far longer than this, so
    // the bus hears of it at most once per interval.
    static std::atomic<std::int64_t> lastResetMs{std::numeric_limits<std::int64_t>::min() / 2};
    const std::int64_t nowMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                                   std::chrono::steady_clock::now().time_since_epoch())
                                   .count();
    std::int64_t last = lastResetMs.load();
    if (nowMs - last < kIdleResetIntervalMs || !lastResetMs.compare_exchange_strong(last, nowMs))
        return;
    simulateUserActivity();
}

} // namespace talvo
