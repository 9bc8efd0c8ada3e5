#include "platform/KeepAwake.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <condition_variable>
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
    simulateUserActivity();
}

} // namespace talvo
