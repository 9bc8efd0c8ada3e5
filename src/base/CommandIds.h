#pragma once
// Every number the main window is addressed with: WM_COMMAND identifiers,
// private window messages and timer ids.  Each is written once here.
//
// Command identifiers in the 20000 range are actions; the same identifier plus
// 1000 is its skin button pressed, plus 500 the button released.
#include <cstdint>

namespace talvo {

namespace Command {
inline constexpr std::uint16_t kPressed = 1000;
inline constexpr std::uint16_t kReleased = 500;

inline constexpr std::uint16_t Exit = 1069;
inline constexpr std::uint16_t InitialLoad = 57600;
inline constexpr std::uint16_t ProgramList = 20011;
// The skin's program-list button presses as 21012, one above the rule; skins
// made for the player carry that number.
inline constexpr std::uint16_t ProgramListPressed = 21012;
inline constexpr std::uint16_t LaunchFeldrunOld = 40023;
inline constexpr std::uint16_t LaunchFeldrun = 40029;
inline constexpr std::uint16_t AddBookmark = 32781;
inline constexpr std::uint16_t EditBookmarks = 32782;
inline constexpr std::uint16_t CreateBookmark = 20032;
inline constexpr std::uint16_t CreateBookmarkPressed = CreateBookmark + kPressed;
inline constexpr std::uint16_t Help = 30061;
inline constexpr std::uint16_t About = 57664;
inline constexpr std::uint16_t AboutLogo = 58664;
inline constexpr std::uint16_t Skins = 30068;
inline constexpr std::uint16_t Preferences = 20013;
inline constexpr std::uint16_t UpdateVolume = 40001;
inline constexpr std::uint16_t UpdatePosition = 40019;
inline constexpr std::uint16_t Reserved = 40022;
inline constexpr std::uint16_t JumpBack = 40035;
inline constexpr std::uint16_t JumpBackPressed = JumpBack + kPressed;
inline constexpr std::uint16_t JumpBackReleased = JumpBack + kReleased;
inline constexpr std::uint16_t PlayStop = 20015;
inline constexpr std::uint16_t PlayStopPressed = PlayStop + kPressed;
inline constexpr std::uint16_t PlayStopReleased = PlayStop + kReleased;
inline constexpr std::uint16_t Controls = 40041;

inline constexpr std::uint16_t FastForward10s = 20022;
inline constexpr std::uint16_t FastForward1min = 20023;
inline constexpr std::uint16_t FastForward10min = 20024;
inline constexpr std::uint16_t FastForward1h = 20025;
inline constexpr std::uint16_t Rewind10s = 20026;
inline constexpr std::uint16_t Rewind1min = 20027;
inline constexpr std::uint16_t Rewind10min = 20028;
inline constexpr std::uint16_t Rewind1h = 20029;
// The fast-forward and rewind skin buttons share the ids of the one-minute steps.
inline constexpr std::uint16_t FastForwardPressed = FastForward1min + kPressed;
inline constexpr std::uint16_t FastForwardReleased = FastForward1min + kReleased;
inline constexpr std::uint16_t RewindPressed = Rewind1min + kPressed;
inline constexpr std::uint16_t RewindReleased = Rewind1min + kReleased;

inline constexpr std::uint16_t PreviousSection = 20030;
inline constexpr std::uint16_t PreviousSectionPressed = PreviousSection + kPressed;
inline constexpr std::uint16_t PreviousSectionReleased = PreviousSection + kReleased;
inline constexpr std::uint16_t NextSection = 20031;
inline constexpr std::uint16_t NextSectionPressed = NextSection + kPressed;
inline constexpr std::uint16_t NextSectionReleased = NextSection + kReleased;

inline constexpr std::uint16_t NextProgram = 20033;
inline constexpr std::uint16_t NextProgramPressed = NextProgram + kPressed;
inline constexpr std::uint16_t NextTitle = 40036;
inline constexpr std::uint16_t PreviousProgram = 20036;
inline constexpr std::uint16_t PreviousProgramPressed = PreviousProgram + kPressed;
inline constexpr std::uint16_t PreviousTitle = 40037;

inline constexpr std::uint16_t VolumeUp = 20034;
inline constexpr std::uint16_t VolumeUpPressed = VolumeUp + kPressed;
inline constexpr std::uint16_t VolumeUpReleased = VolumeUp + kReleased;
inline constexpr std::uint16_t VolumeDown = 20035;
inline constexpr std::uint16_t VolumeDownPressed = VolumeDown + kPressed;
inline constexpr std::uint16_t VolumeDownReleased = VolumeDown + kReleased;

inline constexpr std::uint16_t ResetSkin = 32780;
inline constexpr std::uint16_t PreferencesDone = 57697;

// Go to bookmark n: BookmarkFirst + n, up to BookmarkLast.
inline constexpr std::uint16_t BookmarkFirst = 10000;
inline constexpr std::uint16_t BookmarkLast = 11000;

// Listening aids, numbered outside every range the handheld's menus use.
// Speed n tenths (0.5x to 3.0x): SpeedBase + n.
inline constexpr std::uint16_t SpeedBase = 46000;
inline constexpr std::uint16_t SpeedFirst = SpeedBase + 5;
inline constexpr std::uint16_t SpeedLast = SpeedBase + 30;
// Sleep timer: off, SleepBase + minutes, or to the end of the section.
inline constexpr std::uint16_t SleepBase = 46100;
inline constexpr std::uint16_t SleepOff = SleepBase;
inline constexpr std::uint16_t SleepEndOfSection = SleepBase + 99;

static_assert(SpeedFirst > JumpBackPressed && SpeedLast < SleepBase && SleepEndOfSection < InitialLoad);
static_assert(FastForwardPressed == 21023 && FastForwardReleased == 20523);
static_assert(RewindPressed == 21027 && RewindReleased == 20527);
static_assert(PreviousSectionPressed == 21030 && NextSectionReleased == 20531);
static_assert(CreateBookmarkPressed == 21032 && JumpBackPressed == 41035);
} // namespace Command

// Private messages of the main window.
namespace Message {
inline constexpr unsigned RemoteControlKey = 1136;
inline constexpr unsigned CallEvent = 5586;
inline constexpr unsigned SyncDeleteProgram = 7480;
inline constexpr unsigned SyncAddProgram = 7481;
inline constexpr unsigned OpenProgramFile = 7482;
inline constexpr unsigned RememberHandle = 7483;
inline constexpr unsigned StopIfPlaying = 32970;
inline constexpr unsigned StorageChange = 33025;
inline constexpr unsigned Ignored1023 = 1023;
} // namespace Message

// Timers of the main window, with the periods that go with them.
namespace Timer {
inline constexpr unsigned TitleScroll = 1001;
inline constexpr unsigned FastForwardHold = 1002;
inline constexpr unsigned RewindHold = 1003;
inline constexpr unsigned NextSectionHold = 1004;
inline constexpr unsigned PreviousSectionHold = 1005;
inline constexpr unsigned VolumeUpHold = 1006;
inline constexpr unsigned VolumeDownHold = 1007;
inline constexpr unsigned ScreenPowerOff = 1089;
inline constexpr unsigned HideVolume = 1091;
inline constexpr unsigned SavePlayingPosition = 1201;
// Redraws the sleep timer's time left while it runs.
inline constexpr unsigned SleepDisplay = 1202;

inline constexpr unsigned SeekHoldPeriodMs = 100;
inline constexpr unsigned SectionHoldPeriodMs = 300;
inline constexpr unsigned VolumeHoldPeriodMs = 250;
inline constexpr unsigned HideVolumeDelayMs = 2000;
inline constexpr unsigned SleepDisplayPeriodMs = 1000;
} // namespace Timer

} // namespace talvo
