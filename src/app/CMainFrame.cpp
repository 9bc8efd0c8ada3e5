#include "app/CMainFrame.h"

#include "app/CopyDataRequest.h"
#include "app/FirstPaintGate.h"
#include "app/InfoScreens.h"
#include "app/StoreOpening.h"
#include "base/CommandIds.h"
#include "base/DetectPlatform.h"
#include "base/StringTable.h"
#include "base/TimeText.h"
#include "device/DeviceEvents.h"
#include "device/RemoteAction.h"
#include "library/BookmarkDialogs.h"
#include "library/ProgramList.h"
#include "library/ProgramListDialog.h"
#include "platform/FileNames.h"
#include "platform/KeepAwake.h"
#include "platform/MessageBox.h"
#include "platform/ProgramFolders.h"
#include "platform/ScreenPower.h"
#include "playback/ProgramFile.h"
#include "settings/PreferencesDialog.h"
#include "skins/ImageDecoding.h"
#include "skins/ScreenSizeOverride.h"
#include "skins/SkinDialog.h"
#include "skins/SkinnedDisplay.h"

#include <QApplication>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>
#include <array>
#include <cstring>

namespace talvo {
namespace {

// "First Time Run" once the welcome screen has been shown.
constexpr DWORD kFirstRunDone = 2;

struct MenuEntry {
    std::uint16_t command;
    int text;
};

// The soft-key menus share one list; "Controls" exists only on the Smartphone bar.
constexpr std::array<MenuEntry, 15> kSoftKeyMenu{{
    {Command::PlayStop, Str::MenuPlayStop},
    {Command::Controls, Str::MenuControls},
    {Command::NextSection, Str::MenuNextSection},
    {Command::PreviousSection, Str::MenuPreviousSection},
    {Command::JumpBack, Str::MenuJumpBack},
    {Command::NextTitle, Str::MenuNextTitle},
    {Command::PreviousTitle, Str::MenuPreviousTitle},
    {Command::AddBookmark, Str::MenuAddBookmark},
    {Command::EditBookmarks, Str::MenuEditBookmarks},
    {Command::LaunchFeldrun, Str::MenuFeldrun},
    {Command::Skins, Str::MenuSkins},
    {Command::Preferences, Str::MenuPreferences},
    {Command::Help, Str::MenuHelp},
    {Command::About, Str::MenuAbout},
    {Command::Exit, Str::MenuExit},
}};

struct FullMenu {
    int title;
    std::array<MenuEntry, 17> entries; // command 0 ends the list
};

// The older full menu of the Pocket PC, kept as the desktop menu bar.
constexpr std::array<FullMenu, 4> kFullMenu{{
    {Str::MenuFile, {{{Command::ProgramList, Str::MenuLibrary}, {Command::Exit, Str::MenuExit}}}},
    {Str::MenuControls,
     {{{Command::PlayStop, Str::MenuPlayStop},
       {Command::FastForward10s, Str::MenuFastForward10s},
       {Command::FastForward1min, Str::MenuFastForward1min},
       {Command::FastForward10min, Str::MenuFastForward10min},
       {Command::FastForward1h, Str::MenuFastForward1h},
       {Command::Rewind10s, Str::MenuRewind10s},
       {Command::Rewind1min, Str::MenuRewind1min},
       {Command::Rewind10min, Str::MenuRewind10min},
       {Command::Rewind1h, Str::MenuRewind1h},
       {Command::NextSection, Str::MenuNextSection},
       {Command::PreviousSection, Str::MenuPreviousSection},
       {Command::JumpBack, Str::MenuJumpBack},
       {Command::NextTitle, Str::MenuNextTitle},
       {Command::PreviousTitle, Str::MenuPreviousTitle},
       {Command::AddBookmark, Str::MenuAddBookmark},
       {Command::EditBookmarks, Str::MenuEditBookmarks}}}},
    {Str::MenuOptions,
     {{{Command::Preferences, Str::MenuPreferences},
       {Command::Skins, Str::MenuSkins},
       {Command::LaunchFeldrunOld, Str::MenuLaunchFeldrun}}}},
    {Str::MenuHelp, {{{Command::Help, Str::MenuHelp}, {Command::About, Str::MenuAbout}}}},
}};

// The sleep timer's choices, appended to both menus after the handheld's items.
struct SleepChoice {
    std::uint16_t command;
    int text;
    std::uint32_t choice; // minutes, or AudioOutput's end-of-section value
};
constexpr std::array<SleepChoice, 8> kSleepChoices{{
    {Command::SleepOff, Str::MenuSleepOff, 0},
    {Command::SleepBase + 5, Str::MenuSleep5min, 5},
    {Command::SleepBase + 10, Str::MenuSleep10min, 10},
    {Command::SleepBase + 15, Str::MenuSleep15min, 15},
    {Command::SleepBase + 30, Str::MenuSleep30min, 30},
    {Command::SleepBase + 45, Str::MenuSleep45min, 45},
    {Command::SleepBase + 60, Str::MenuSleep60min, 60},
    {Command::SleepEndOfSection, Str::MenuSleepEndOfSection, AudioOutput::kSleepEndOfSection},
}};
static_assert(kSleepChoices.back().command - Command::SleepBase < 100);

// Commands that are the player's own, not a listener's action: they leave a
// running sleep fade alone.
constexpr std::array<std::uint16_t, 5> kInternalCommands{Command::InitialLoad, Command::UpdateVolume,
                                                         Command::UpdatePosition, Command::NextProgram,
                                                         Command::ResetSkin};

// Fixed steps of the full menu: amounts while stopped and while playing.  They
// look uneven because every step also runs the first (and for rewind while
// playing, the closing) step of the matching hold.
struct StepAmount {
    std::uint16_t command;
    bool forward;
    std::uint32_t stoppedMs;
    std::uint32_t playingMs;
};
constexpr std::array<StepAmount, 8> kStepTable{{
    {Command::FastForward10s, true, 9000, 1000},
    {Command::FastForward1min, true, 59000, 50000},
    {Command::FastForward10min, true, 599000, 590000},
    {Command::FastForward1h, true, 3599000, 3590000},
    {Command::Rewind10s, false, 3000, 10000},
    {Command::Rewind1min, false, 53000, 60000},
    {Command::Rewind10min, false, 593000, 600000},
    {Command::Rewind1h, false, 3593000, 3600000},
}};

// Storage-change events that make the library rescan.
constexpr unsigned kMediaInserted = 32, kMediaRemoved = 64, kDriveRemoved = 128, kDriveAdded = 256;

// What a key does.  Keys are the handheld's virtual-key codes; a key-down that
// repeats a held key does not start a hold again.
enum class KeyAction {
    None,
    Play,
    RewindHold,
    FastForwardHold,
    VolumeUp,
    VolumeDown,
    AddBookmark,
    JumpBack,
    ProgramList,
    PreviousSectionHold,
    NextSectionHold,
    NextProgram,
    PreviousProgram,
};

struct KeyBinding {
    std::array<int, 4> keys; // 0 pads a shorter list
    KeyAction action;
};

constexpr std::array<KeyBinding, 12> kKeyDownTable{{
    {{13, 53, 70, 102}, KeyAction::Play},
    {{37, 52, 68, 100}, KeyAction::RewindHold},
    {{39, 54, 71, 103}, KeyAction::FastForwardHold},
    {{38, 50, 82, 114}, KeyAction::VolumeUp},
    {{40, 56, 67, 99}, KeyAction::VolumeDown},
    {{48}, KeyAction::AddBookmark},
    {{49, 69, 101}, KeyAction::JumpBack},
    {{51, 84, 116}, KeyAction::ProgramList},
    {{55, 88}, KeyAction::PreviousSectionHold},
    {{57, 86, 118}, KeyAction::NextSectionHold},
    {{35, 66, 98, 120}, KeyAction::NextProgram},
    {{42, 90, 119, 122}, KeyAction::PreviousProgram},
}};

// Key-up ends what key-down began; 120 ends the previous-section hold although
// its key-down is next program.
constexpr std::array<KeyBinding, 8> kKeyUpTable{{
    {{37, 52, 68, 100}, KeyAction::RewindHold},
    {{39, 54, 71, 103}, KeyAction::FastForwardHold},
    {{38, 50, 82, 114}, KeyAction::VolumeUp},
    {{40, 56, 67, 99}, KeyAction::VolumeDown},
    {{49, 69, 101}, KeyAction::JumpBack},
    {{51, 84, 116}, KeyAction::ProgramList},
    {{55, 88, 120}, KeyAction::PreviousSectionHold},
    {{57, 86, 118}, KeyAction::NextSectionHold},
}};

// Keys outside these ranges are not handled.
constexpr int kFirstKeyDown = 13, kLastKeyDown = 122, kFirstKeyUp = 37, kLastKeyUp = 120;

template <std::size_t N> KeyAction actionOf(const std::array<KeyBinding, N>& table, int key)
{
    for (const KeyBinding& binding : table) {
        if (std::find(binding.keys.begin(), binding.keys.end(), key) != binding.keys.end())
            return binding.action;
    }
    return KeyAction::None;
}

// Virtual-key codes of the handheld's keys as the key table uses them.
int virtualKey(const QKeyEvent* event)
{
    const int key = event->key();
    const bool keypad = event->modifiers() & Qt::KeypadModifier;
    if (key >= Qt::Key_0 && key <= Qt::Key_9)
        return keypad ? 96 + (key - Qt::Key_0) : 48 + (key - Qt::Key_0);
    if (key >= Qt::Key_A && key <= Qt::Key_Z)
        return 65 + (key - Qt::Key_A);
    if (key >= Qt::Key_F1 && key <= Qt::Key_F24)
        return 112 + (key - Qt::Key_F1);
    switch (key) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        return 13;
    case Qt::Key_End:
        return 35;
    case Qt::Key_Left:
        return 37;
    case Qt::Key_Up:
        return 38;
    case Qt::Key_Right:
        return 39;
    case Qt::Key_Down:
        return 40;
    case Qt::Key_Print:
        return 42;
    default:
        return 0;
    }
}

QString pathFromParameter(LPARAM lParam)
{
    return lParam ? QString::fromUtf16(reinterpret_cast<const char16_t*>(lParam)) : QString();
}

} // namespace

CMainFrame::CMainFrame(Environment environment)
    : env_(std::move(environment)), settings_(env_.registry), store_(env_.registry),
      cards_(CreateStorageCards()),
      library_(env_.registry, store_, *cards_, DefaultLibraryFolders(env_.programFolder)),
      audio_(*this, *this, library_, store_, settings_, env_.makeWaveOut),
      transport_(*this, *this, library_, store_, settings_, audio_),
      screenPower_(
          *this, settings_, [this] { return audio_.IsPlaying(); }, CreateScreenPower()),
      bitmapCache_(PlayerCacheFolder() + QStringLiteral("/skin-bitmaps")),
      skins_(env_.registry, &bitmapCache_)
{
    setWindowTitle(LoadString(Str::AppName));
    setFocusPolicy(Qt::StrongFocus);
    store_.OnSaveFailed([](const ProgramFile& entry, RegStatus status, int systemError) {
        TellProgramStateNotSaved(QString::fromStdU16String(entry.GetTitle()), status, systemError);
    });
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    display_ = new SkinnedDisplay(*this, this);
    layout->addWidget(display_, 1);
    createMenus();
    if (!loadSkin())
        return;
    // Card changes arrive on the watcher's thread; the main window handles them in order.
    storageWatcher_ =
        std::make_unique<StorageChangeWatcher>(*cards_, [this](StorageChange change, const StorageCard&) {
            PostMessage(Message::StorageChange, static_cast<WPARAM>(change), 0);
        });
    // Queued at creation, but run only once the window is drawn: the scan of a
    // large library must not keep the window from appearing.
    FirstPaintGate::PostCommandAfterFirstPaint(*this, Command::InitialLoad);
}

CMainFrame::~CMainFrame()
{
    shutDown();
}

void CMainFrame::createMenus()
{
    menuBar_ = new QMenuBar(this);
    for (const FullMenu& popup : kFullMenu) {
        QMenu* menu = menuBar_->addMenu(LoadString(popup.title));
        for (const MenuEntry& entry : popup.entries) {
            if (entry.command == 0)
                break;
            menu->addAction(LoadString(entry.text), this, [this, id = entry.command] { SendCommand(id); });
        }
    }
    // The listening aids come after every item of the handheld's menus.
    addListeningMenus(menuBar_->addMenu(LoadString(Str::MenuListening)));
    layout()->setMenuBar(menuBar_);

    // The soft-key bar: the program library on the left key, the rest under " Menu".
    auto* bar = new QWidget(this);
    auto* keys = new QHBoxLayout(bar);
    keys->setContentsMargins(0, 0, 0, 0);
    auto* left = new QPushButton(LoadString(Str::MenuLibrary), bar);
    auto* right = new QPushButton(LoadString(Str::MenuRightKey), bar);
    left->setFocusPolicy(Qt::NoFocus);
    right->setFocusPolicy(Qt::NoFocus);
    connect(left, &QPushButton::clicked, this, [this] { SendCommand(Command::ProgramList); });
    right->setMenu(createSoftKeyMenu());
    keys->addWidget(left);
    keys->addWidget(right);
    static_cast<QVBoxLayout*>(layout())->addWidget(bar);
}

QMenu* CMainFrame::createSoftKeyMenu()
{
    auto* menu = new QMenu(this);
    const bool smartphone = DetectPlatform() == 1;
    for (const MenuEntry& entry : kSoftKeyMenu) {
        if (entry.command == Command::Controls && !smartphone)
            continue;
        menu->addAction(LoadString(entry.text), this, [this, id = entry.command] { SendCommand(id); });
        if (entry.command == Command::EditBookmarks)
            bookmarksMenu_ = menu->addMenu(LoadString(Str::BookmarksTitle));
    }
    connect(bookmarksMenu_, &QMenu::aboutToShow, this, &CMainFrame::fillBookmarksMenu);
    addListeningMenus(menu);
    return menu;
}

void CMainFrame::addListeningMenus(QMenu* parent)
{
    QMenu* speed = parent->addMenu(LoadString(Str::MenuSpeed));
    for (int tenths = SpeechProcessing::kMinimumSpeed; tenths <= SpeechProcessing::kMaximumSpeed; ++tenths) {
        QAction* item = speed->addAction(SpeedText(tenths), this, [this, tenths] {
            SendCommand(static_cast<std::uint16_t>(Command::SpeedBase + tenths));
        });
        item->setCheckable(true);
        item->setData(tenths);
    }
    connect(speed, &QMenu::aboutToShow, this, [this, speed] {
        const int current = audio_.CurrentSpeedTenths();
        for (QAction* item : speed->actions())
            item->setChecked(item->data().toInt() == current);
    });
    QMenu* sleep = parent->addMenu(LoadString(Str::MenuSleepTimer));
    for (const SleepChoice& choice : kSleepChoices)
        sleep->addAction(LoadString(choice.text), this, [this, id = choice.command] { SendCommand(id); });
}

QString CMainFrame::SpeedText(int tenths)
{
    return FormatString(Str::SpeedShown, tenths / 10, tenths % 10);
}

QString CMainFrame::listeningText() const
{
    QStringList parts;
    if (library_.Current()) {
        if (const int tenths = audio_.CurrentSpeedTenths(); tenths != SpeechProcessing::kNormalSpeed)
            parts << SpeedText(tenths);
    }
    if (const std::optional<std::uint32_t> left = audio_.SleepRemainingMs()) {
        const std::uint32_t seconds = (*left + 999) / 1000;
        parts << FormatString(Str::SleepLeft, static_cast<int>(seconds / 60), static_cast<int>(seconds % 60));
    }
    return parts.join(QStringLiteral("  "));
}

void CMainFrame::chooseSleep(std::uint16_t id)
{
    for (const SleepChoice& choice : kSleepChoices) {
        if (choice.command != id)
            continue;
        audio_.SetSleepTimer(choice.choice);
        if (choice.choice != 0)
            SetTimer(Timer::SleepDisplay, Timer::SleepDisplayPeriodMs);
        else
            KillTimer(Timer::SleepDisplay);
        display_->SetListening(listeningText());
    }
}

void CMainFrame::fillBookmarksMenu()
{
    bookmarksMenu_->clear();
    ProgramFile* program = library_.Current();
    if (!program)
        return;
    for (std::size_t i = 0;
         i < program->bookmarks.size() && i <= Command::BookmarkLast - Command::BookmarkFirst; ++i) {
        auto id = static_cast<std::uint16_t>(Command::BookmarkFirst + i);
        bookmarksMenu_->addAction(FormatHms(program->bookmarks[i].timeMs), this,
                                  [this, id] { SendCommand(id); });
    }
}

bool CMainFrame::ListenForOtherInstances()
{
    return instanceServer_.Listen(
        QString::fromUtf16(kMainWindowClass),
        [this](InstanceRequest kind, std::uint32_t dwData, const QByteArray& bytes) {
            if (kind == InstanceRequest::BringToFront) {
                BringToFront();
                return std::int64_t{1};
            }
            const QByteArray text = TerminatedCopyData(bytes);
            COPYDATASTRUCT data{dwData, static_cast<std::uint32_t>(bytes.size()),
                                bytes.isEmpty() ? nullptr : text.constData()};
            return std::int64_t{SendMessage(WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data))};
        });
}

LRESULT CMainFrame::WindowProc(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_COMMAND:
        return onCommand(static_cast<std::uint16_t>(wParam & 0xFFFF)) ? 0 : 1;
    case WM_TIMER:
        onTimer(static_cast<unsigned>(wParam));
        return 0;
    case WM_COPYDATA:
        return onCopyData(reinterpret_cast<const COPYDATASTRUCT*>(lParam));
    case MM_WOM_DONE:
        audio_.OnBufferDone(wParam, reinterpret_cast<WAVEHDR*>(lParam));
        audio_.slotCounter = (audio_.slotCounter + 1) % AudioOutput::kSlotCount;
        ResetSystemIdleTimer();
        return 0;
    case WM_SETTINGCHANGE:
        onScreenChange();
        return 0;
    case WM_HELP:
        ShowHelp(env_.programFolder, this);
        return 0;
    case MM_WOM_OPEN:
    case MM_WOM_CLOSE:
    case Message::Ignored1023:
        return 0;
    case Message::CallEvent:
        onCallEvent(lParam != 0);
        return 0;
    case Message::RemoteControlKey:
        onRemoteControlKey(reinterpret_cast<const std::uint8_t*>(lParam));
        return 0;
    case Message::SyncDeleteProgram:
        onSyncDeleteProgram(pathFromParameter(lParam));
        return 0;
    case Message::SyncAddProgram:
        onSyncAddProgram(pathFromParameter(lParam));
        return 0;
    case Message::OpenProgramFile:
        onOpenProgramFile(pathFromParameter(lParam));
        return 0;
    case Message::RememberHandle:
        rememberedHandle_ = lParam;
        return 0;
    case Message::StopIfPlaying:
        if (audio_.IsPlaying())
            SendCommand(Command::PlayStop);
        return 0;
    case Message::StorageChange:
        onStorageChange(static_cast<unsigned>(wParam));
        return 0;
    default:
        return 0;
    }
}

void CMainFrame::stepCommand(std::uint16_t id)
{
    for (const StepAmount& step : kStepTable) {
        if (step.command != id)
            continue;
        std::uint32_t amount = audio_.IsPlaying() ? step.playingMs : step.stoppedMs;
        if (step.forward)
            transport_.StepForward(amount);
        else
            transport_.StepBack(amount);
    }
}

bool CMainFrame::onCommand(std::uint16_t id)
{
    if (std::find(kInternalCommands.begin(), kInternalCommands.end(), id) == kInternalCommands.end())
        audio_.CancelSleepIfFading();
    if (id >= Command::SpeedFirst && id <= Command::SpeedLast) {
        audio_.SetSpeed(id - Command::SpeedBase);
        display_->SetListening(listeningText());
        if (deviceEvents_)
            deviceEvents_->PlayerChanged();
        return true;
    }
    if (id >= Command::SleepBase && id <= Command::SleepEndOfSection) {
        chooseSleep(id);
        return true;
    }
    if (id >= Command::BookmarkFirst && id <= Command::BookmarkLast) {
        transport_.GoToBookmark(id - Command::BookmarkFirst);
        return true;
    }
    switch (id) {
    case Command::Exit:
        close();
        return true;
    case Command::InitialLoad:
        initialLoad();
        return true;
    case Command::Preferences: {
        // The dialog posts 40001 to this window itself at every slider move.
        PreferencesDialog dialog(settings_, this);
        dialog.exec();
        return true;
    }
    case Command::UpdateVolume:
        audio_.SetVolume(settings_.GetVolume());
        return true;
    case Command::UpdatePosition:
        RedrawPosition();
        return true;
    case Command::JumpBack:
    case Command::JumpBackPressed:
        transport_.JumpBackByStoredStep();
        return true;
    case Command::PlayStop:
        audio_.StartOrStop();
        return true;
    case Command::PlayStopReleased:
    case Command::Reserved:
        return true;
    case Command::PlayStopPressed:
        PostCommand(Command::PlayStop);
        return true;
    case Command::FastForward10s:
    case Command::FastForward1min:
    case Command::FastForward10min:
    case Command::FastForward1h:
    case Command::Rewind10s:
    case Command::Rewind1min:
    case Command::Rewind10min:
    case Command::Rewind1h:
        stepCommand(id);
        return true;
    case Command::FastForwardPressed:
        transport_.FastForwardHold(0);
        return true;
    case Command::FastForwardReleased:
        transport_.FastForwardHold(-1);
        return true;
    case Command::RewindPressed:
        transport_.RewindHold(0);
        return true;
    case Command::RewindReleased:
        if (audio_.IsPlaying())
            transport_.RewindHold(Transport::kRewindReleaseStep);
        transport_.RewindHold(-1);
        return true;
    case Command::PreviousSection:
        transport_.PreviousSectionMenu();
        return true;
    case Command::PreviousSectionPressed:
        transport_.PreviousSectionHold(0);
        return true;
    case Command::PreviousSectionReleased:
        transport_.PreviousSectionHold(-1);
        return true;
    case Command::NextSection:
        transport_.NextSectionMenu();
        return true;
    case Command::NextSectionPressed:
        transport_.NextSectionHold(0);
        return true;
    case Command::NextSectionReleased:
        transport_.NextSectionHold(-1);
        return true;
    case Command::NextProgram:
    case Command::NextProgramPressed:
    case Command::NextTitle:
        transport_.NextTitle();
        return true;
    case Command::PreviousProgram:
    case Command::PreviousProgramPressed:
    case Command::PreviousTitle:
        transport_.PreviousTitle();
        return true;
    case Command::VolumeUp:
        transport_.VolumeUpHold(2);
        return true;
    case Command::VolumeDown:
        transport_.VolumeDownHold(2);
        return true;
    // The skin's volume buttons repeat while held.
    case Command::VolumeUpPressed:
        transport_.VolumeUpHold(0);
        return true;
    case Command::VolumeUpReleased:
        transport_.VolumeUpHold(-1);
        return true;
    case Command::VolumeDownPressed:
        transport_.VolumeDownHold(0);
        return true;
    case Command::VolumeDownReleased:
        transport_.VolumeDownHold(-1);
        return true;
    case Command::JumpBackReleased:
        DrawButton(Command::JumpBack, false);
        transport_.holdCounter = 0;
        return true;
    case Command::AddBookmark:
    case Command::CreateBookmarkPressed:
        addBookmark();
        return true;
    case Command::EditBookmarks:
        editBookmarks();
        return true;
    case Command::Help:
        ShowHelp(env_.programFolder, this);
        return true;
    case Command::About:
    case Command::AboutLogo:
        ShowAbout(this);
        return true;
    case Command::Skins: {
        SkinDialog dialog(skins_, *this, DetectPlatform() == 1, this);
        dialog.exec();
        return true;
    }
    case Command::ResetSkin:
        applyActiveSkin();
        return true;
    case Command::ProgramList:
    case Command::ProgramListPressed:
        openProgramList();
        return true;
    case Command::LaunchFeldrun:
    case Command::LaunchFeldrunOld:
        LaunchFeldrun(env_.programFolder, this);
        return true;
    default:
        // The dialogs, help and skin commands arrive with their subsystems.
        return false;
    }
}

void CMainFrame::onTimer(unsigned id)
{
    switch (id) {
    case Timer::FastForwardHold:
        transport_.FastForwardHold(++transport_.holdCounter);
        break;
    case Timer::RewindHold:
        transport_.RewindHold(++transport_.holdCounter);
        break;
    case Timer::NextSectionHold:
        transport_.NextSectionHold(++transport_.holdCounter);
        break;
    case Timer::PreviousSectionHold:
        transport_.PreviousSectionHold(++transport_.holdCounter);
        break;
    case Timer::VolumeUpHold:
        transport_.VolumeUpHold(++transport_.holdCounter);
        break;
    case Timer::VolumeDownHold:
        transport_.VolumeDownHold(++transport_.holdCounter);
        break;
    case Timer::HideVolume:
        KillTimer(Timer::HideVolume);
        ShowVolumeIndicator(false);
        break;
    case Timer::TitleScroll:
        display_->ScrollTitle();
        break;
    case Timer::ScreenPowerOff:
        screenPower_.OnPowerOffTimer();
        break;
    case Timer::SavePlayingPosition:
        audio_.SavePlayingPosition();
        break;
    case Timer::SleepDisplay:
        if (!audio_.SleepRemainingMs())
            KillTimer(Timer::SleepDisplay);
        display_->SetListening(listeningText());
        break;
    default:
        break;
    }
}

void CMainFrame::ScreenOnIfOff()
{
    screenPower_.ScreenOnIfOff();
}

void CMainFrame::onKeyDown(int key, bool repeat)
{
    if (key < kFirstKeyDown || key > kLastKeyDown)
        return;
    audio_.CancelSleepIfFading();
    ProgramFile* program = library_.Current();
    switch (actionOf(kKeyDownTable, key)) {
    case KeyAction::Play:
        DrawButton(Command::PlayStop, true);
        PostCommand(Command::PlayStop);
        break;
    case KeyAction::RewindHold:
        if (!repeat)
            transport_.RewindHold(0);
        break;
    case KeyAction::FastForwardHold:
        if (!repeat)
            transport_.FastForwardHold(0);
        break;
    case KeyAction::VolumeUp:
        transport_.VolumeUpHold(2);
        break;
    case KeyAction::VolumeDown:
        transport_.VolumeDownHold(2);
        break;
    case KeyAction::AddBookmark:
        SendCommand(Command::CreateBookmarkPressed);
        break;
    case KeyAction::JumpBack:
        if (!repeat)
            transport_.JumpBack(true);
        break;
    case KeyAction::ProgramList:
        DrawButton(Command::NextProgram, true);
        SendCommand(Command::ProgramList);
        break;
    case KeyAction::PreviousSectionHold:
        if (!repeat && audio_.lastPositionMs != 0)
            transport_.PreviousSectionHold(0);
        break;
    case KeyAction::NextSectionHold:
        if (!repeat && program && program->CurrentSection() + 1 < program->SectionCount())
            transport_.NextSectionHold(0);
        break;
    case KeyAction::NextProgram:
        SendCommand(Command::NextProgramPressed);
        break;
    case KeyAction::PreviousProgram:
        SendCommand(Command::PreviousProgramPressed);
        break;
    case KeyAction::None:
        break;
    }
}

void CMainFrame::onKeyUp(int key)
{
    if (key < kFirstKeyUp || key > kLastKeyUp)
        return;
    switch (actionOf(kKeyUpTable, key)) {
    case KeyAction::RewindHold:
        if (audio_.IsPlaying())
            transport_.RewindHold(Transport::kRewindReleaseStep);
        transport_.RewindHold(-1);
        break;
    case KeyAction::FastForwardHold:
        transport_.FastForwardHold(-1);
        break;
    case KeyAction::VolumeUp:
        transport_.VolumeUpHold(-1);
        break;
    case KeyAction::VolumeDown:
        transport_.VolumeDownHold(-1);
        break;
    case KeyAction::JumpBack:
        transport_.JumpBack(false);
        break;
    case KeyAction::ProgramList:
        DrawButton(Command::NextProgram, false);
        break;
    case KeyAction::PreviousSectionHold:
        transport_.PreviousSectionHold(-1);
        break;
    case KeyAction::NextSectionHold:
        transport_.NextSectionHold(-1);
        break;
    default:
        break;
    }
}

void CMainFrame::keyPressEvent(QKeyEvent* event)
{
    // The help key of a keyboard, as the handheld's help key.
    if (event->key() == Qt::Key_Help || event->key() == Qt::Key_F1) {
        PostMessage(WM_HELP);
        return;
    }
    int key = virtualKey(event);
    if (key == 0)
        return MessageWindow::keyPressEvent(event);
    onKeyDown(key, event->isAutoRepeat());
}

void CMainFrame::keyReleaseEvent(QKeyEvent* event)
{
    // X reports a held key as release/press pairs; only the real release ends a hold.
    if (event->isAutoRepeat())
        return;
    int key = virtualKey(event);
    if (key == 0)
        return MessageWindow::keyReleaseEvent(event);
    onKeyUp(key);
}

LRESULT CMainFrame::onCopyData(const COPYDATASTRUCT* data)
{
    if (!data)
        return 0;
    if (!AcceptsCopyData(data->dwData))
        return 0;
    // A synchronous send: the sender's text stays valid until this returns.
    SendMessage(static_cast<UINT>(data->dwData), 0, reinterpret_cast<LPARAM>(data->lpData));
    return 1;
}

void CMainFrame::onCallEvent(bool callBegins)
{
    if (callBegins) {
        audio_.pausedByCall = audio_.IsPlaying();
        if (audio_.pausedByCall)
            PostCommand(Command::PlayStop);
    } else {
        audio_.callEnded = true;
        if (audio_.pausedByCall && !audio_.IsPlaying())
            PostCommand(Command::PlayStop);
    }
}

void CMainFrame::onRemoteControlKey(const std::uint8_t* record)
{
    if (!record)
        return;
    audio_.CancelSleepIfFading();
    switch (RemoteActionFor(record, kRemoteRecordSize)) {
    case RemoteAction::PlayStop:
        PostCommand(Command::PlayStop);
        break;
    case RemoteAction::ForwardHold:
        transport_.FastForwardHold(0);
        break;
    case RemoteAction::BackwardHold:
        transport_.RewindHold(0);
        break;
    case RemoteAction::ForwardRelease:
        transport_.FastForwardHold(-1);
        break;
    case RemoteAction::BackwardRelease:
        transport_.RewindHold(-1);
        break;
    case RemoteAction::None:
        break;
    }
}

void CMainFrame::openProgramList()
{
    // The list searches the library again, which closes the open program:
    // stop first, and go on afterwards when the same program is still current.
    ProgramFile* before = library_.Current();
    const QString playedPath = before ? before->path : QString();
    const bool wasPlaying = audio_.IsPlaying();
    if (wasPlaying)
        audio_.StartOrStop();
    const bool chosen = RunProgramList(library_, env_.programFolder, this) != kProgramListCancelled;
    // The search reopens "Last Program", which a program opened for the first
    // time has not yet become: closed without a choice, the list keeps the
    // program that was current when it still exists.
    if (!chosen && !playedPath.isEmpty()) {
        const std::int32_t index = library_.IndexOfPath(playedPath);
        if (index >= 0 && index != library_.CurrentIndex())
            library_.SelectProgram(index);
    }
    ProgramFile* current = library_.Current();
    audio_.lastPositionMs = current ? current->Position() : 0;
    DropCoverPicture();
    RedrawDisplay();
    if (current && !audio_.IsPlaying() && (chosen || (wasPlaying && current->path == playedPath)))
        audio_.StartOrStop();
}

void CMainFrame::initialLoad()
{
    // The bus connections and their round trips wait for the first frame too;
    // the watchers are up before the library, so its first program is announced.
    if (env_.makeDeviceServices)
        deviceEvents_ = std::make_unique<DeviceEvents>(
            MprisPlayerObjects{*this, *this, audio_, library_, transport_, settings_, env_.programFolder},
            env_.makeDeviceServices());
    // The first frame needed only the skin's background.
    skins_.DecodeActiveSkin(this);
    SetWaitCursor(true);
    library_.RefreshAll();
    if (ProgramFile* program = library_.Current())
        audio_.lastPositionMs = program->Position();
    SetWaitCursor(false);
    RedrawDisplay();
    if (settings_.GetFirstTimeRun() != kFirstRunDone) {
        // Marked first, so a player that dies under the screen never shows it twice.
        settings_.SetFirstTimeRun(kFirstRunDone);
        ShowWelcome(env_.programFolder, this);
    }
    if (!env_.fileArgument.isEmpty()) {
        std::u16string path = env_.fileArgument.toStdU16String();
        SendMessage(Message::OpenProgramFile, 0, reinterpret_cast<LPARAM>(path.c_str()));
    }
}

void CMainFrame::onOpenProgramFile(const QString& path)
{
    const PathStatus status = StatusOfPath(path);
    if (!status.exists || status.isFolder)
        return;
    int index = library_.IndexOfPath(path);
    if (index < 0) {
        std::u16string wide = path.toStdU16String();
        SendMessage(Message::SyncAddProgram, 0, reinterpret_cast<LPARAM>(wide.c_str()));
        index = library_.IndexOfPath(path);
    }
    if (index >= 0 && index != library_.CurrentIndex()) {
        if (audio_.IsPlaying())
            audio_.StartOrStop();
        library_.SelectProgram(index);
        audio_.lastPositionMs = library_.Current() ? library_.Current()->Position() : 0;
    }
    if (index >= 0 && !audio_.IsPlaying())
        audio_.StartOrStop();
    BringToFront();
    RedrawDisplay();
}

void CMainFrame::onSyncAddProgram(const QString& path)
{
    if (audio_.IsPlaying())
        audio_.StartOrStop();
    SetWaitCursor(true);
    library_.RefreshAll();
    SetWaitCursor(false);
    int index = library_.IndexOfPath(path);
    if (index >= 0) {
        library_.SelectProgram(index);
        audio_.lastPositionMs = library_.Current() ? library_.Current()->Position() : 0;
    }
    RedrawDisplay();
}

void CMainFrame::onSyncDeleteProgram(const QString& path)
{
    ProgramFile* current = library_.Current();
    const QString currentPath = current ? current->path : QString();
    const bool wasPlaying = audio_.IsPlaying();
    const PathStatus status = StatusOfPath(path);
    if (status.exists && !status.isFolder) {
        if (path == currentPath && wasPlaying)
            audio_.StartOrStop();
        int index = library_.IndexOfPath(path);
        if (index >= 0)
            library_.DeleteProgram(library_.At(index));
        library_.RefreshAll();
    } else {
        if (wasPlaying)
            audio_.StartOrStop();
        library_.DeletePrograms(path.isEmpty() ? std::nullopt : std::optional<QString>(path));
    }
    int index = library_.IndexOfPath(currentPath);
    if (index >= 0) {
        if (index != library_.CurrentIndex())
            library_.SelectProgram(index);
        if (wasPlaying && !audio_.IsPlaying())
            audio_.StartOrStop();
    }
    RedrawDisplay();
}

void CMainFrame::onStorageChange(unsigned event)
{
    if (event != kMediaInserted && event != kMediaRemoved && event != kDriveRemoved && event != kDriveAdded)
        return;
    const bool wasPlaying = audio_.IsPlaying();
    if (wasPlaying) {
        audio_.restarting = true;
        SendCommand(Command::PlayStopPressed);
        audio_.ResetAndDrain();
        RedrawDisplay();
    }
    // A card that went away takes its programs with it: rebuild the list.
    library_.Clear();
    library_.RefreshAll();
    RedrawDisplay();
    if (wasPlaying) {
        audio_.ResetAndDrain();
        audio_.restarting = true;
        PostCommand(Command::PlayStop);
    }
}

void CMainFrame::BringToFront()
{
    if (isMinimized())
        showNormal();
    raise();
    activateWindow();
    setFocus();
}

void CMainFrame::RedrawDisplay()
{
    DisplayContent content;
    content.playing = audio_.IsPlaying();
    if (ProgramFile* program = library_.Current()) {
        content.hasProgram = true;
        content.title = QString::fromStdU16String(program->GetTitle());
        content.author = QString::fromStdU16String(program->GetAuthor());
        content.positionMs = program->timeOffsetMs + audio_.lastPositionMs;
        content.totalMs = program->DisplayLength();
        content.sectionCount = program->SectionCount();
        content.section = content.sectionCount > 0 ? program->CurrentSection() + 1 : 0;
        content.partial = program->GetTimeSpanFlag();
        content.cover = coverPicture(*program);
    }
    content.listening = listeningText();
    display_->SetContent(content);
    display_->ShowVolume(volumeShown_ ? static_cast<int>(settings_.GetVolumePercent()) : -1);
    if (deviceEvents_)
        deviceEvents_->PlayerChanged();
}

void CMainFrame::RedrawPosition()
{
    ProgramFile* program = library_.Current();
    if (!program) {
        RedrawDisplay();
        return;
    }
    // Runs at every refill: only the areas a new position can change.
    audio_.lastPositionMs = program->Position();
    const int count = program->SectionCount();
    display_->SetPosition(program->timeOffsetMs + audio_.lastPositionMs,
                          count > 0 ? program->CurrentSection() + 1 : 0, count);
    display_->SetListening(listeningText());
    if (deviceEvents_)
        deviceEvents_->PlayerChanged();
}

void CMainFrame::DrawButton(std::uint16_t command, bool pressed)
{
    display_->DrawButton(command, pressed);
}

void CMainFrame::addBookmark()
{
    ProgramFile* program = library_.Current();
    if (!program)
        return;
    const std::uint32_t time = program->IsOpen() ? program->Position() : 0;
    BookmarkNameDialog dialog(Str::AddBookmarkCaption, LoadString(Str::NewBookmark), time, false, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    program->bookmarks.push_back({dialog.Name().toStdU16String(), time});
    RemoveDuplicateBookmarks(program->bookmarks);
    // A bookmark is kept the moment it is made.
    store_.SaveProgramState(*program);
}

void CMainFrame::editBookmarks()
{
    ProgramFile* program = library_.Current();
    if (!program)
        return;
    BookmarkListDialog dialog(program->bookmarks, DetectPlatform() == 1, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    program->bookmarks = dialog.Rows();
    store_.SaveProgramState(*program);
    if (std::optional<int> chosen = dialog.ChosenRow())
        transport_.GoToBookmark(*chosen);
}

QSize CMainFrame::screenSize() const
{
    if (std::optional<QSize> forced = ScreenSizeFromEnvironment())
        return *forced;
    const QScreen* screen = this->screen() ? this->screen() : QGuiApplication::primaryScreen();
    return screen ? screen->size() : QSize();
}

bool CMainFrame::loadSkin()
{
    skins_.LoadSkins(env_.programFolder, screenSize(), this, SkinList::ActiveSkinBitmaps::FirstFrame);
    if (!skins_.ActiveSkin()) {
        ShowMessageBox(this, LoadString(Str::NoSkinFits), LoadString(Str::ErrorCaption), kErrorBoxStyle);
        PostMessage(WM_CLOSE);
        return false;
    }
    // A rotation or a new resolution chooses the layout again.
    if (QScreen* screen = QGuiApplication::primaryScreen())
        connect(screen, &QScreen::geometryChanged, this, [this] { PostMessage(WM_SETTINGCHANGE); });
    applyActiveSkin();
    return true;
}

void CMainFrame::applyActiveSkin()
{
    SkinLayout* skin = skins_.ActiveSkin();
    if (skin && !skin->IsLayoutLoaded())
        skin->LoadLayout(skins_.Screen());
    display_->SetSkin(skin);
    RedrawDisplay();
}

void CMainFrame::onScreenChange()
{
    const QSize screen = screenSize();
    if (!HasSkin() || screen == skins_.Screen())
        return;
    const QSize before = skins_.Screen();
    display_->SetSkin(nullptr);
    skins_.LoadSkins(env_.programFolder, screen, this);
    // A screen that no skin fits keeps the layouts of the one before.
    if (!skins_.ActiveSkin())
        skins_.LoadSkins(env_.programFolder, before, this);
    applyActiveSkin();
    if (!isFullScreen() && !isMaximized())
        adjustSize();
}

QImage CMainFrame::coverPicture(const ProgramFile& program)
{
    if (coverPath_ != program.path) {
        coverPath_ = program.path;
        const std::vector<std::uint8_t> bytes = program.GetCoverPicture();
        cover_ = DecodeImage(bytes.data(), bytes.size());
    }
    return cover_;
}

void CMainFrame::DropCoverPicture()
{
    coverPath_.clear();
    cover_ = QImage();
}

void CMainFrame::ShowVolumeIndicator(bool shown)
{
    volumeShown_ = shown;
    display_->ShowVolume(shown ? static_cast<int>(settings_.GetVolumePercent()) : -1);
}

void CMainFrame::SetWaitCursor(bool waiting)
{
    if (waiting)
        QApplication::setOverrideCursor(Qt::WaitCursor);
    else
        QApplication::restoreOverrideCursor();
}

void CMainFrame::releaseCurrentProgram()
{
    if (ProgramFile* program = library_.Current()) {
        store_.SaveProgramState(*program);
        program->Close();
    }
}

void CMainFrame::shutDown()
{
    if (shutDown_)
        return;
    shutDown_ = true;
    storageWatcher_.reset();
    deviceEvents_.reset();
    // Stop playback (its rewind keeps what was decoded but not heard), then
    // keep the program's position and bookmarks before the library goes.
    if (audio_.IsPlaying())
        audio_.Stop();
    releaseCurrentProgram();
}

void CMainFrame::closeEvent(QCloseEvent* event)
{
    shutDown();
    event->accept();
}

} // namespace talvo
