#pragma once
// A whole device in a temporary folder: registry, home, music folder and the
// message-box log, pointed to by the player's environment overrides for as
// long as the object lives.
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <filesystem>

namespace talvo::test {

class TestDevice {
public:
    TestDevice()
    {
        QDir root(dir_.path());
        root.mkpath(QStringLiteral("home"));
        root.mkpath(QStringLiteral("music"));
        set("TALVOPLAYER_REGISTRY", registryPath());
        set("TALVOPLAYER_HOME", path(QStringLiteral("home")));
        set("TALVOPLAYER_MUSIC", path(QStringLiteral("music")));
        set("TALVOPLAYER_MESSAGES", messageLogPath());
        // No test ever darkens the real screen.
        set("TALVOPLAYER_SCREEN_POWER", screenPowerLogPath());
        set("TALVOPLAYER_CARDS", QString());
        // Decoded skin bitmaps are kept per device, so no test sees another's.
        set("XDG_CACHE_HOME", path(QStringLiteral("cache")));
        // A handheld's screen, whatever the machine's: the layout it gets is fixed.
        set("TALVOPLAYER_SCREEN", QStringLiteral("480x640"));
    }
    ~TestDevice()
    {
        // By its bytes: QTemporaryDir cannot remove a folder whose name is not UTF-8.
        std::error_code ignored;
        std::filesystem::remove_all(QFile::encodeName(dir_.path()).toStdString(), ignored);
        for (const QByteArray& name : saved_.keys()) {
            if (saved_[name].isNull())
                qunsetenv(name.constData());
            else
                qputenv(name.constData(), saved_[name]);
        }
    }
    TestDevice(const TestDevice&) = delete;
    TestDevice& operator=(const TestDevice&) = delete;

    QString path(const QString& relative = QString()) const
    {
        return relative.isEmpty() ? dir_.path() : dir_.filePath(relative);
    }
    QString registryPath() const { return path(QStringLiteral("registry.db")); }
    QString messageLogPath() const { return path(QStringLiteral("messages.log")); }
    QString screenPowerLogPath() const { return path(QStringLiteral("screen-power.log")); }

    // The message boxes shown so far, one line each.
    QStringList messages() const
    {
        QFile log(messageLogPath());
        if (!log.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(log.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    // The screen switches so far, "off" or "on" each.
    QStringList screenSwitches() const
    {
        QFile log(screenPowerLogPath());
        if (!log.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(log.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    // For tests that start the player as a process: a runtime folder of its
    // own (so no other player is found) and no display needed.
    void UsePrivateRuntime()
    {
        QDir().mkpath(path(QStringLiteral("run")));
        QFile::setPermissions(path(QStringLiteral("run")),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        set("XDG_RUNTIME_DIR", path(QStringLiteral("run")));
        set("QT_QPA_PLATFORM", QStringLiteral("offscreen"));
    }

    void set(const char* name, const QString& value)
    {
        if (!saved_.contains(name))
            saved_.insert(name, qgetenv(name));
        qputenv(name, value.toUtf8());
    }

private:
    QTemporaryDir dir_;
    QMap<QByteArray, QByteArray> saved_;
};

} // namespace talvo::test
