#include "RunWindow.h"

#include "BackgroundWork.h"
#include "FeldrunWindow.h"
#include "PictureCache.h"
#include "platform/FileNames.h"
#include "platform/InstanceChannel.h"
#include "platform/MessageBox.h"
#include "platform/ProgramFolders.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QThread>

#include <cstring>

namespace feldrun {
namespace {

constexpr int kExitFailed = 1;
constexpr int kConnectTimeoutMs = 100;
constexpr int kStartingWindowMs = 5000;

int Refuse(const QString& text)
{
    talvo::ShowMessageBox(nullptr, text, QStringLiteral("Feldrun"), talvo::kErrorBoxStyle);
    return kExitFailed;
}

// The window that holds the claim; one that has just won it may still be
// opening its store, so it is given a few moments to listen.
bool BringRunningWindowForward()
{
    QElapsedTimer waited;
    waited.start();
    do {
        talvo::InstanceClient running;
        if (running.Connect(QLatin1String(kWindowInstanceName), kConnectTimeoutMs))
            return running.Send(talvo::InstanceRequest::BringToFront, 0, {}).has_value();
        QThread::msleep(kConnectTimeoutMs);
    } while (waited.elapsed() < kStartingWindowMs);
    return false;
}

} // namespace

int RunWindow(int& argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationDisplayName(QStringLiteral("Feldrun"));
    talvo::InstanceClaim claim;
    if (!claim.TryClaim(QLatin1String(kWindowInstanceName)))
        return BringRunningWindowForward()
                   ? 0
                   : Refuse(QStringLiteral("Feldrun is already open, but does not answer."));

    const std::string storePath = talvo::DefaultRegistryPath();
    talvo::RegStatus status = talvo::ERROR_SUCCESS;
    int systemError = 0;
    std::unique_ptr<talvo::Registry> registry = talvo::OpenSqliteRegistry(storePath, &status, &systemError);
    if (!registry)
        return Refuse(QStringLiteral("The settings store %1 cannot be opened (error %2%3). Start TalvoPlayer "
                                     "once: it repairs a damaged store.")
                          .arg(QString::fromStdString(storePath))
                          .arg(status)
                          .arg(systemError
                                   ? QStringLiteral(": ") + QString::fromLocal8Bit(strerror(systemError))
                                   : QString()));
    const QString music = talvo::MusicFolder();
    if (music.isEmpty())
        return Refuse(
            QStringLiteral("There is no Music folder to bring programs to (set TALVOPLAYER_MUSIC)."));

    // The player told of new programs is the one installed beside feldrun.
    const QString player =
        QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("talvoplayer"));
    UpdateOptions updates;
    updates.musicFolder = music;
    updates.playerPath = player;
    ImportOptions imports;
    imports.musicFolder = talvo::EncodeFileName(music).toStdString();
    imports.playerPath = talvo::EncodeFileName(player).toStdString();

    SubscriptionStore store(*registry);
    BackgroundWork work(*registry, updates, imports);
    PictureCache pictures(talvo::PlayerCacheFolder() + QStringLiteral("/feldrun-pictures"));
    FeldrunWindow window(store, work, pictures);
    talvo::InstanceServer server;
    server.Listen(QLatin1String(kWindowInstanceName),
                  [&window](talvo::InstanceRequest, std::uint32_t, const QByteArray&) -> std::int64_t {
                      window.showNormal();
                      window.raise();
                      window.activateWindow();
                      return 0;
                  });
    window.show();
    return app.exec();
}

} // namespace feldrun
