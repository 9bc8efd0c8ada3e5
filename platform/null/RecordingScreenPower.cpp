#include "platform/ScreenPower.h"

#include <QFile>

namespace talvo {
namespace {

// A display for tests and headless runs: every switch becomes a line of a log.
class RecordingScreenPower final : public ScreenPower {
public:
    explicit RecordingScreenPower(QString path) : path_(std::move(path)) {}

    bool IsSupported() override { return !path_.isEmpty(); }

    void SetScreenPower(bool on) override
    {
        QFile log(path_);
        if (log.open(QIODevice::Append))
            log.write(on ? "on\n" : "off\n");
    }

    std::optional<bool> IsScreenOn() override
    {
        QFile log(path_);
        if (path_.isEmpty() || !log.open(QIODevice::ReadOnly))
            return std::nullopt;
        const QList<QByteArray> lines = log.readAll().trimmed().split('\n');
        return lines.last() != "off";
    }

    // A file announces nothing: its state is read at the next input.
    void WatchForWaking(std::function<void()>) override {}

private:
    const QString path_;
};

} // namespace

std::unique_ptr<ScreenPower> CreateRecordingScreenPower(const QString& path)
{
    return std::make_unique<RecordingScreenPower>(path);
}

} // namespace talvo
