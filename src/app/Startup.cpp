#include "app/Startup.h"

#include "app/CMainFrame.h"
#include "app/FileAssociation.h"
#include "app/FirstPaintProbe.h"
#include "app/StoreOpening.h"
#include "base/CommandIds.h"
#include "base/CommandLine.h"
#include "base/StringTable.h"
#include "device/DeviceEvents.h"
#include "platform/InstanceChannel.h"
#include "platform/MessageBox.h"
#include "platform/ProgramFolders.h"
#include "platform/StorageCards.h"
#include "platform/SystemInfo.h"
#include "platform/TerminationSignals.h"
#include "sync/SyncCommands.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QScreen>
#include <QThread>
#include <cstdio>

namespace talvo {
namespace {

// How long a new process waits for a player that holds the claim but does not
// answer yet (it may still be starting), and how often it looks.
constexpr int kWaitForRunningPlayerMs = 20000;
constexpr int kConnectTryMs = 200;
constexpr int kClaimRetryMs = 25;

enum class InstanceRole { Player, HandOver, NoAnswer };

// Settles whether this process becomes the player or hands over: claiming is
// the test, so of processes started at the same moment exactly one plays.  A
// player that is closing gives up its claim only when it ends; until then its
// socket is gone, so the loop tries the claim again.
InstanceRole settleInstanceRole(InstanceClaim& claim, InstanceClient& running, const QString& windowClass)
{
    QElapsedTimer waited;
    waited.start();
    do {
        if (claim.TryClaim(windowClass))
            return InstanceRole::Player;
        if (running.Connect(windowClass, kConnectTryMs))
            return InstanceRole::HandOver;
        QThread::msleep(kClaimRetryMs);
    } while (waited.elapsed() < kWaitForRunningPlayerMs);
    return InstanceRole::NoAnswer;
}

// A second instance: hand the file over, then bring the running player to the front.
int handOver(InstanceClient& running, const QString& path)
{
    if (!path.isEmpty()) {
        QGuiApplication::setOverrideCursor(Qt::WaitCursor);
        std::u16string text = path.toStdU16String();
        QByteArray bytes(reinterpret_cast<const char*>(text.c_str()),
                         static_cast<qsizetype>((text.size() + 1) * sizeof(char16_t)));
        running.Send(InstanceRequest::CopyData, Message::OpenProgramFile, bytes);
        QGuiApplication::restoreOverrideCursor();
    }
    running.Send(InstanceRequest::BringToFront, 0, {});
    return 0;
}

std::function<std::unique_ptr<WaveOut>()> waveOutFactory()
{
    return [] {
        std::string error;
        std::unique_ptr<WaveOut> wave =
            CreateWaveOut(qEnvironmentVariable("TALVOPLAYER_AUDIO").toStdString(), &error);
        if (!wave)
            std::fprintf(stderr, "talvoplayer: TALVOPLAYER_AUDIO: %s\n", error.c_str());
        return wave;
    };
}

// One desktop-sync command, with no window and no look for a running player:
// the desktop reads the result from the exit status, which keeps only its low
// 8 bits here, so the whole HRESULT is printed on a line of its own as well.
int runSync(Registry& registry, SyncCommand command)
{
    std::unique_ptr<StorageCards> cards = CreateStorageCards();
    QString home = qEnvironmentVariable("TALVOPLAYER_HOME");
    if (home.isEmpty())
        home = QDir::homePath();
    const SyncEnvironment environment{registry,
                                      *cards,
                                      HostSystemInfo(),
                                      DefaultLibraryFolders(ProgramFolder()),
                                      home,
                                      QString::fromUtf16(kMainWindowClass)};
    const HRESULT result = RunSyncCommand(registry, QCoreApplication::applicationFilePath(),
                                          SyncHandlerFor(command, environment));
    std::printf("0x%08X\n", static_cast<unsigned>(result));
    std::fflush(stdout);
    return static_cast<int>(static_cast<std::uint32_t>(result) & 0xFFu);
}

// The first instance: the main window until it closes.
int runMainWindow(Registry& registry, const QString& file)
{
    CMainFrame frame({registry, ProgramFolder(), file, waveOutFactory(), CreateDeviceServices});
    if (!frame.HasSkin())
        return 1; // the window has said that no skin fits the screen
    // Signals first: whoever can find the player may also end it at once.
    OnTerminationSignal([&frame] { frame.SendCommand(Command::Exit); });
    frame.ListenForOtherInstances();
    // The skin's size, or what of the screen there is: the display scales.
    QSize size = frame.sizeHint();
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        size = size.boundedTo(screen->availableSize());
    frame.resize(size);
    FirstPaintProbe::InstallIfAsked(frame);
    frame.show();
    return QApplication::exec();
}

} // namespace

int RunPlayer(const QStringList& arguments)
{
    const std::string storePath = DefaultRegistryPath();
    std::unique_ptr<Registry> registry = OpenSettingsStore(storePath);
    if (!registry)
        return 1; // a box has said why
    RegisterFileAssociation(*registry, QCoreApplication::applicationFilePath(),
                            LoadString(Str::FileTypeName));

    const SyncCommand command = FindSyncSwitch(JoinCommandLine(arguments));
    if (command != SyncCommand::None)
        return runSync(*registry, command);

    const QString windowClass = QString::fromUtf16(kMainWindowClass);
    const QString file = ParseFileArgument(arguments);
    InstanceClaim claim;
    InstanceClient running;
    switch (settleInstanceRole(claim, running, windowClass)) {
    case InstanceRole::Player:
        break;
    case InstanceRole::HandOver:
        return handOver(running, file);
    case InstanceRole::NoAnswer:
        std::fprintf(stderr, "talvoplayer: another player is running but does not answer; try again later\n");
        return 1;
    }

    const int exitCode = runMainWindow(*registry, file);
    // A clean exit: the window has saved the listener's place, so the copy
    // taken now holds everything.  The store is closed first, its log
    // folded into its file, so the copy's check can vouch for the file alone.
    registry.reset();
    KeepLastGoodCopy(storePath, std::nullopt);
    return exitCode;
}

} // namespace talvo
