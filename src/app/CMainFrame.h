#pragma once
// The player's only top-level window.  It owns the running state (library,
// audio output, transport) and routes every user action, timer, device notice
// and message from other processes through WindowProc on the UI thread.
#include "device/ScreenPowerOff.h"
#include "library/ProgramLibrary.h"
#include "library/ProgramStateStore.h"
#include "platform/InstanceChannel.h"
#include "platform/MessageWindow.h"
#include "platform/Registry.h"
#include "platform/StorageCards.h"
#include "playback/AudioOutput.h"
#include "playback/PlayerView.h"
#include "playback/Transport.h"
#include "settings/SettingsStore.h"
#include "skins/DecodedBitmapCache.h"
#include "skins/SkinList.h"

#include <QImage>

#include <QString>
#include <memory>

class QLabel;
class QMenu;
class QMenuBar;
class QPushButton;

namespace talvo {

class DeviceEvents;
struct DeviceServices;
class SkinnedDisplay;

// The window class by which every process finds the running player.
inline constexpr char16_t kMainWindowClass[] = u"TalvoPlayerMainWnd";

class CMainFrame final : public MessageWindow, public PlayerView {
    Q_OBJECT
public:
    struct Environment {
        Registry& registry;
        QString programFolder; // the program's own folder
        QString fileArgument;  // the file named by -File:, or empty
        std::function<std::unique_ptr<WaveOut>()> makeWaveOut;
        // The device services (calls, remote controls); none when empty.
        std::function<DeviceServices()> makeDeviceServices;
    };

    explicit CMainFrame(Environment environment);
    ~CMainFrame() override;

    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override;

    // Accepts requests from other processes (WM_COPYDATA, bring to front).
    bool ListenForOtherInstances();

    // PlayerView
    void BringToFront() override;
    void RedrawDisplay() override;
    void RedrawPosition() override;
    void DrawButton(std::uint16_t command, bool pressed) override;
    void ShowVolumeIndicator(bool shown) override;
    bool IsVolumeIndicatorShown() const override { return volumeShown_; }
    void DropCoverPicture() override;
    void ScreenOnIfOff() override;
    void SetWaitCursor(bool waiting) override;

    // A speed as the menus and the display show it ("1.5x").
    static QString SpeedText(int tenths);

    ProgramLibrary& Library() { return library_; }
    AudioOutput& Audio() { return audio_; }
    Transport& Transport_() { return transport_; }
    SkinList& Skins() { return skins_; }
    const DeviceEvents* Devices() const { return deviceEvents_.get(); }
    SkinnedDisplay& Display() { return *display_; }
    // False when no skin fits the screen: the window closes itself at once.
    bool HasSkin() const { return skins_.ActiveSkin() != nullptr; }

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void createMenus();
    QMenu* createSoftKeyMenu();
    void fillBookmarksMenu();
    void addListeningMenus(QMenu* parent);
    QString listeningText() const;
    void chooseSleep(std::uint16_t id);
    bool onCommand(std::uint16_t id);
    void onTimer(unsigned id);
    void onKeyDown(int key, bool repeat);
    void onKeyUp(int key);
    LRESULT onCopyData(const COPYDATASTRUCT* data);
    void onCallEvent(bool callBegins);
    void onRemoteControlKey(const std::uint8_t* record);
    void onSyncDeleteProgram(const QString& path);
    void onSyncAddProgram(const QString& path);
    void onOpenProgramFile(const QString& path);
    void onStorageChange(unsigned event);
    void openProgramList();
    void initialLoad();
    void addBookmark();
    void editBookmarks();
    QSize screenSize() const;
    bool loadSkin();
    void applyActiveSkin();
    void onScreenChange();
    QImage coverPicture(const ProgramFile& program);
    void stepCommand(std::uint16_t id);
    void releaseCurrentProgram();
    void shutDown();

    Environment env_;
    SettingsStore settings_;
    ProgramStateStore store_;
    std::unique_ptr<StorageCards> cards_;
    ProgramLibrary library_;
    AudioOutput audio_;
    Transport transport_;
    ScreenPowerOff screenPower_;
    InstanceServer instanceServer_;
    std::unique_ptr<StorageChangeWatcher> storageWatcher_;
    std::unique_ptr<DeviceEvents> deviceEvents_;
    DecodedBitmapCache bitmapCache_;
    SkinList skins_;
    SkinnedDisplay* display_ = nullptr;
    // The decoded cover of the program it was decoded for.
    QString coverPath_;
    QImage cover_;
    QMenuBar* menuBar_ = nullptr;
    QMenu* bookmarksMenu_ = nullptr;
    bool volumeShown_ = false;
    bool shutDown_ = false;
    // The value handed over by message 7483 (a handle of the details page).
    LPARAM rememberedHandle_ = 0;
};

} // namespace talvo
