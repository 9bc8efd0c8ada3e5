#pragma once
// The player's string table: every text a user can see, each with its fixed
// identifier.  Message boxes, menus, dialogs, the details page and the display
// all load their texts from here, so a text is written exactly once.
//
// Identifier ranges:
// - below 61000: the identifiers the player has always had (message boxes,
//   formats, the details page, list headers).
// - 61000-61999: labels of menus and dialogs, and message texts, that never had
//   an identifier of their own.  Each owner has a block of 100:
//   61000 main menus, 61100 Preferences, 61200 program list, 61300 bookmark
//   dialogs, 61400 skin dialog, 61500 message texts, 61600 formats and others.
//   New texts take the next free number of their block; numbers are never
//   reused, so a text keeps its identifier for good.
#include <QString>
#include <cstddef>
#include <string_view>

namespace talvo {

namespace Str {
enum Id : int {
    FeldrunLaunchFailed = 131,
    FreeSpaceHeader = 500,
    BookmarkNameColumn = 510,
    BookmarkTimeColumn = 520,
    Format1 = 4000,
    Format2 = 4001,
    Format3 = 4002,
    Format4 = 4003,
    Format5 = 4004,
    UnknownFormat = 4100,
    ProgramDamaged = 5002,
    ErrorCaption = 5003,
    DetailsAuthor = 7000,
    DetailsNarrator = 7001,
    DetailsProvider = 7002,
    DetailsRunningTime = 7003,
    DetailsAudioFormat = 7004,
    DetailsLocation = 7005,
    DetailsSize = 7006,
    TotalTime = 57666,
    InvalidBookmarkName = 57667,
    NewBookmark = 57668,
    ConfirmDeleteProgram = 57669,
    SectionOf = 57671,
    NoPrograms = 57672,
    ProgramOpenFailed = 57673,
    MainMemory = 57674,
    StorageCard = 57675,
    DeleteProgramFailed = 57676,
    FileTypeName = 57677,
    AudioDeviceError = 57680,
    NoSkinFits = 57683,
    AppName = 57686,
    DeleteFileFailed = 57687,
    AddBookmarkCaption = 57688,
    RenameBookmarkCaption = 57689,
    CreateDataFileFailed = 57692,
    WriteDataFileFailed = 57693,
    GraphicsMissing = 57695,

    // 61000: main menus (Smartphone bar 129, Pocket PC bar 182, the older full
    // menu and the hidden menu of internal commands).
    MenuLibrary = 61000,
    MenuRightKey = 61001,
    MenuPlayStop = 61002,
    MenuControls = 61003,
    MenuNextSection = 61004,
    MenuPreviousSection = 61005,
    MenuJumpBack = 61006,
    MenuNextTitle = 61007,
    MenuPreviousTitle = 61008,
    MenuAddBookmark = 61009,
    MenuEditBookmarks = 61010,
    MenuFeldrun = 61011,
    MenuSkins = 61012,
    MenuPreferences = 61013,
    MenuHelp = 61014,
    MenuAbout = 61015,
    MenuExit = 61016,
    MenuFile = 61017,
    MenuOptions = 61018,
    MenuFastForward10s = 61019,
    MenuFastForward1min = 61020,
    MenuFastForward10min = 61021,
    MenuFastForward1h = 61022,
    MenuRewind10s = 61023,
    MenuRewind1min = 61024,
    MenuRewind10min = 61025,
    MenuRewind1h = 61026,
    MenuLaunchFeldrun = 61027,
    MenuCreateBookmark = 61028,
    MenuNextProgram = 61029,
    MenuResetSkin = 61030,
    MenuUpdateVolume = 61031,
    MenuUpdatePosition = 61032,
    MenuListening = 61033,
    MenuSpeed = 61034,
    MenuSleepTimer = 61035,
    MenuSleepOff = 61036,
    MenuSleep5min = 61037,
    MenuSleep10min = 61038,
    MenuSleep15min = 61039,
    MenuSleep30min = 61040,
    MenuSleep45min = 61041,
    MenuSleep60min = 61042,
    MenuSleepEndOfSection = 61043,

    // 61100: Preferences dialog.
    PrefsTitle = 61100,
    PrefsPowerConservation = 61101,
    PrefsVolumeControl = 61102,
    PrefsScreenNeverOff = 61103,
    PrefsScreenOffAfter = 61104,
    PrefsJumpBack = 61105,
    PrefsDone = 61106,
    PrefsVolumePercent = 61107,
    PrefsListening = 61108,
    PrefsSkipSilence = 61109,
    PowerOff30s = 61110,
    PowerOff1min = 61111,
    PowerOff90s = 61112,
    PowerOff2min = 61113,
    PowerOff5min = 61114,
    PowerOff10min = 61115,
    JumpBack10s = 61120,
    JumpBack20s = 61121,
    JumpBack30s = 61122,
    JumpBack40s = 61123,
    JumpBack50s = 61124,
    JumpBack60s = 61125,
    PrefsSmartRewind = 61126,
    ButtonOk = 61190,
    ButtonCancel = 61191,

    // 61200: program list dialog (templates 109, 223, 119; soft-key menu 1078).
    ListCaption = 61200,
    ListGroup = 61201,
    ListRefresh = 61202,
    ListDelete = 61203,
    ListProperties = 61204,
    ListListen = 61205,
    ListMenu = 61206,
    ListFeldrun = 61207,
    ListRefreshList = 61208,
    ListDeleteTitle = 61209,
    ListClose = 61210,
    ListColumn = 61211,
    ListTitle = 61212,
    ListDetails = 61213,

    // 61300: bookmark dialogs (templates 212, 220, 213, 219; soft-key menu 208).
    BookmarksTitle = 61300,
    BookmarksDelete = 61301,
    BookmarksUpdate = 61302,
    BookmarkNameLabel = 61303,
    BookmarkTimeLabel = 61304,
    BookmarksDone = 61305,
    BookmarksMenu = 61306,
    BookmarksDeleteBookmark = 61307,
    BookmarksEditName = 61308,

    // 61400: skin selection dialog (templates 211, 217).
    SkinsTitle = 61400,
    SkinsInstalled = 61401,

    // 61500: message texts quoted without an identifier.
    SyncCreateKeyFailed = 61500,
    SyncSetValueFailedCode = 61501,
    SyncSetValueFailedCodeText = 61502,
    SyncSetValueFailedText = 61503,
    EnumFilesCaption = 61504,
    InitFromFolderFailed = 61505,
    EnumProgramsFailed = 61506,
    LowMemory = 61507,
    AboutText = 61508,
    DetailsPageFailed = 61510,
    AboutSummary = 61511,
    HelpMissing = 61512,
    WelcomeTitle = 61513,
    WelcomeText = 61514,
    StoreCannotOpen = 61515,
    StoreRestored = 61516,
    StoreStartedEmpty = 61517,
    StoreRestoreFailed = 61518,
    StoreCopyFailed = 61519,
    StoreCauseAccess = 61520,
    StoreCauseOtherKind = 61521,
    StoreCauseMemory = 61522,
    StoreCauseDisk = 61523,
    ProgramStateNotSaved = 61524,

    // 61600: formats shown to the user.
    TimeHms = 61600,
    SizeMegabytes = 61601,
    SizeKilobytes = 61602,
    SizeBytes = 61603,
    AgeMinutes = 61604,
    AgeHours = 61605,
    AgeDays = 61606,
    AgeAMinute = 61607,
    SpeedShown = 61608,
    SleepLeft = 61609,
};
} // namespace Str

struct StringEntry {
    int id;
    std::string_view text; // UTF-8
};

// Sorted by identifier; LoadString searches it by bisection.
inline constexpr StringEntry kStringTable[] = {
    {Str::FeldrunLaunchFailed, "Failed to launch Feldrun.  Please reinstall"},
    {Str::FreeSpaceHeader, "On Device%s\r\n%s of %s"},
    {Str::BookmarkNameColumn, "Name"},
    {Str::BookmarkTimeColumn, "Time"},
    {Str::Format1, "Format 1"},
    {Str::Format2, "Format 2"},
    {Str::Format3, "Format 3"},
    {Str::Format4, "Format 4"},
    {Str::Format5, "Format 5"},
    {Str::UnknownFormat, "Unknown Format"},
    {Str::ProgramDamaged,
     "Failed to open the program %s. File is damaged, Please retransfer file to device."},
    {Str::ErrorCaption, "TalvoPlayer Error"},
    {Str::DetailsAuthor, "<b>Author:</b>%s"},
    {Str::DetailsNarrator, "<b>Narrator:</b>%s"},
    {Str::DetailsProvider, "<b>Provider:</b>%s"},
    {Str::DetailsRunningTime, "<b>Running Time:</b>%s"},
    {Str::DetailsAudioFormat, "<b>Audio Format:</b>%s"},
    {Str::DetailsLocation, "<b>Location:</b>%s"},
    {Str::DetailsSize, "<b>Size:</b>%s"},
    {Str::TotalTime, "%.02d:%.02d:%.02d Total"},
    {Str::InvalidBookmarkName, "Please enter valid bookmark name."},
    {Str::NewBookmark, "New Bookmark"},
    {Str::ConfirmDeleteProgram, "Are you sure you want to delete the program '%s'?"},
    {Str::SectionOf, "Sec (%d of %d)"},
    {Str::NoPrograms, "<< No Programs >>"},
    {Str::ProgramOpenFailed, "Failed to open the program %s. Error %d."},
    {Str::MainMemory, "Main Memory"},
    {Str::StorageCard, "Storage Card"},
    {Str::DeleteProgramFailed, "Failed to delete program file %s. %s."},
    {Str::FileTypeName, "Talvo Audio"},
    {Str::AudioDeviceError,
     "Device audio playback error %d occured. You may need to soft reset your device."},
    {Str::NoSkinFits,
     "TalvoPlayer was unable to load a skin that fits your device resolution. If your device supports "
     "rotation, you may try to rotate the screen and then start TalvoPlayer. Otherwise, please install "
     "skins or reinstall TalvoPlayer."},
    {Str::AppName, "TalvoPlayer"},
    {Str::DeleteFileFailed, "Fail to delete file %s. %s."},
    {Str::AddBookmarkCaption, "Add Bookmark"},
    {Str::RenameBookmarkCaption, "Rename Bookmark"},
    {Str::CreateDataFileFailed, "Failed to create data file %s. %s"},
    {Str::WriteDataFileFailed, "Failed to write to file %s. %s"},
    {Str::GraphicsMissing,
     "TalvoPlayer was unable to load required graphics.  This may be caused by missing graphics or low "
     "system memory.  TalvoPlayer will attempt to continue but graphical issues may result.  "},

    // The left soft key's text was never fixed; it opens the program library.
    {Str::MenuLibrary, "Library"},
    {Str::MenuRightKey, " Menu"},
    {Str::MenuPlayStop, "Play/Stop"},
    {Str::MenuControls, "Controls"},
    {Str::MenuNextSection, "Next Section"},
    {Str::MenuPreviousSection, "Previous Section"},
    {Str::MenuJumpBack, "Jump Back"},
    {Str::MenuNextTitle, "Next Title"},
    {Str::MenuPreviousTitle, "Previous Title"},
    {Str::MenuAddBookmark, "Add Bookmark"},
    {Str::MenuEditBookmarks, "Edit Bookmarks"},
    {Str::MenuFeldrun, "Feldrun"},
    {Str::MenuSkins, "TalvoPlayer Skins..."},
    {Str::MenuPreferences, "Preferences"},
    {Str::MenuHelp, "Help"},
    {Str::MenuAbout, "About"},
    {Str::MenuExit, "Exit"},
    {Str::MenuFile, "File"},
    {Str::MenuOptions, "Options"},
    {Str::MenuFastForward10s, "Fast Forward 10 seconds"},
    {Str::MenuFastForward1min, "Fast Forward 1 minute"},
    {Str::MenuFastForward10min, "Fast Forward 10 minutes"},
    {Str::MenuFastForward1h, "Fast Forward 1 hour"},
    {Str::MenuRewind10s, "Rewind 10 seconds"},
    {Str::MenuRewind1min, "Rewind 1 minute"},
    {Str::MenuRewind10min, "Rewind 10 minutes"},
    {Str::MenuRewind1h, "Rewind 1 hour"},
    {Str::MenuLaunchFeldrun, "Launch Feldrun"},
    {Str::MenuCreateBookmark, "Create Bookmark"},
    {Str::MenuNextProgram, "Next Program"},
    {Str::MenuResetSkin, "Reset skin"},
    {Str::MenuUpdateVolume, "Update Volume"},
    {Str::MenuUpdatePosition, "Update plyback position"},
    {Str::MenuListening, "Listening"},
    {Str::MenuSpeed, "Speed"},
    {Str::MenuSleepTimer, "Sleep Timer"},
    {Str::MenuSleepOff, "Off"},
    {Str::MenuSleep5min, "5 minutes"},
    {Str::MenuSleep10min, "10 minutes"},
    {Str::MenuSleep15min, "15 minutes"},
    {Str::MenuSleep30min, "30 minutes"},
    {Str::MenuSleep45min, "45 minutes"},
    {Str::MenuSleep60min, "60 minutes"},
    {Str::MenuSleepEndOfSection, "End of section"},

    {Str::PrefsTitle, "Preferences"},
    {Str::PrefsPowerConservation, "Power Conservation"},
    {Str::PrefsVolumeControl, "Volume Control"},
    {Str::PrefsScreenNeverOff, "Do not turn off the screen"},
    {Str::PrefsScreenOffAfter, "Turn off the screen when playing audio if device is not used for"},
    {Str::PrefsJumpBack, "Jump Back"},
    {Str::PrefsDone, "Done"},
    {Str::PrefsVolumePercent, "%d%%"},
    {Str::PrefsListening, "Listening"},
    {Str::PrefsSkipSilence, "Shorten long silences"},
    {Str::PowerOff30s, "30 sec"},
    {Str::PowerOff1min, "1 min"},
    {Str::PowerOff90s, "1.5 min"},
    {Str::PowerOff2min, "2 min"},
    {Str::PowerOff5min, "5 min"},
    {Str::PowerOff10min, "10 min"},
    {Str::JumpBack10s, "10 sec"},
    {Str::JumpBack20s, "20 sec"},
    {Str::JumpBack30s, "30 sec"},
    {Str::JumpBack40s, "40 sec"},
    {Str::JumpBack50s, "50 sec"},
    {Str::JumpBack60s, "60 sec"},
    {Str::PrefsSmartRewind, "Go back a little after a pause"},
    {Str::ButtonOk, "OK"},
    {Str::ButtonCancel, "Cancel"},

    {Str::ListCaption, "Select Your Audio Program"},
    {Str::ListGroup, "Audio Programs"},
    {Str::ListRefresh, "Refresh"},
    {Str::ListDelete, "Delete"},
    {Str::ListProperties, "Audio Program Properties"},
    {Str::ListListen, "Listen"},
    {Str::ListMenu, "Menu"},
    {Str::ListFeldrun, "Feldrun"},
    {Str::ListRefreshList, "Refresh List"},
    {Str::ListDeleteTitle, "Delete Title"},
    {Str::ListClose, "Close"},
    {Str::ListColumn, "Programs"},
    {Str::ListTitle, "Local Library"},
    {Str::ListDetails, "Details"},

    {Str::BookmarksTitle, "Bookmarks"},
    {Str::BookmarksDelete, "Delete"},
    {Str::BookmarksUpdate, "Update"},
    {Str::BookmarkNameLabel, "Bookmark Name"},
    {Str::BookmarkTimeLabel, "Bookmark Time"},
    {Str::BookmarksDone, "Done"},
    {Str::BookmarksMenu, "Menu"},
    {Str::BookmarksDeleteBookmark, "Delete Bookmark"},
    {Str::BookmarksEditName, "Edit Bookmark Name"},

    {Str::SkinsTitle, "Select TalvoPlayer Skin"},
    {Str::SkinsInstalled, "Installed Skins"},

    {Str::SyncCreateKeyFailed, "RegCreateKeyEx failed. Error %x"},
    {Str::SyncSetValueFailedCode, "RegSetValueEx failed. Error %x."},
    {Str::SyncSetValueFailedCodeText, "RegSetValueEx failed. Error %x. %s."},
    {Str::SyncSetValueFailedText, "RegSetValueEx failed. Error %s."},
    {Str::EnumFilesCaption, "EnumFiles"},
    {Str::InitFromFolderFailed, "InitFromFolder failed"},
    {Str::EnumProgramsFailed, "EnumProgramsOnStorage failed"},
    {Str::LowMemory, "Low Memory detected"},
    {Str::AboutText, "About TalvoPlayer 5.5.0.10(%s)"},
    {Str::DetailsPageFailed, "Failed to create the details page %s. %s."},
    {Str::AboutSummary, "Plays audio books and daily programs, and remembers where you left each one."},
    {Str::HelpMissing, "The help page %s cannot be opened."},
    {Str::WelcomeTitle, "Welcome to TalvoPlayer"},
    {Str::WelcomeText, "Your audio books and programs are listed under Library. Tap a program to listen; "
                       "TalvoPlayer remembers where you stopped in every one of them."},
    {Str::StoreCannotOpen,
     "The settings store %s cannot be opened: %s (error %d). Nothing in it was changed."},
    {Str::StoreRestored, "The settings store was damaged. It has been kept as %s, and its last good copy, "
                         "saved %s ago, has been put in its place; changes made since then are lost."},
    {Str::StoreStartedEmpty, "The settings store was damaged and has been kept as %s. There was no good copy "
                             "of it, so the player starts with new settings and no positions or bookmarks."},
    {Str::StoreRestoreFailed,
     "The settings store was damaged and has been kept as %s, but its last good copy "
     "%s could not be put in its place: %s (error %d)."},
    {Str::StoreCopyFailed,
     "The copy of the settings store could not be saved as %s: %s (error %d). The earlier "
     "copy is kept."},
    {Str::StoreCauseAccess, "permission denied"},
    {Str::StoreCauseOtherKind, "it is a database of another kind, or of a later version of the player"},
    {Str::StoreCauseMemory, "not enough memory"},
    {Str::StoreCauseDisk, "the disk could not be read or written"},
    {Str::ProgramStateNotSaved,
     "The place and bookmarks of \"%s\" could not be saved: %s (error %d). What was "
     "saved before is kept."},

    {Str::TimeHms, "%.02d:%.02d:%.02d"},
    {Str::SizeMegabytes, "%ld.%ld MB"},
    {Str::SizeKilobytes, "%ld KB"},
    {Str::SizeBytes, "%ld Bytes"},
    {Str::AgeMinutes, "%d minutes"},
    {Str::AgeHours, "%d hours"},
    {Str::AgeDays, "%d days"},
    {Str::AgeAMinute, "a minute"},
    {Str::SpeedShown, "%d.%dx"},
    {Str::SleepLeft, "Sleep %.02d:%.02d"},
};

namespace detail {
constexpr bool StringTableSorted()
{
    for (std::size_t i = 1; i < std::size(kStringTable); ++i) {
        if (kStringTable[i - 1].id >= kStringTable[i].id)
            return false;
    }
    return true;
}
} // namespace detail

// Strictly ascending: every identifier is unique and bisection finds it.
static_assert(detail::StringTableSorted(), "string table out of order or holding a duplicate id");

// The text of an identifier, empty when the table has none.
constexpr std::string_view StringText(int id)
{
    std::size_t low = 0;
    std::size_t high = std::size(kStringTable);
    while (low < high) {
        std::size_t mid = low + (high - low) / 2;
        if (kStringTable[mid].id < id)
            low = mid + 1;
        else
            high = mid;
    }
    return low < std::size(kStringTable) && kStringTable[low].id == id ? kStringTable[low].text
                                                                       : std::string_view();
}

static_assert(StringText(Str::ErrorCaption) == "TalvoPlayer Error");

// The text as a QString, empty when the table has none.
QString LoadString(int id);

// The text formatted with printf-style arguments, as the player has always
// built its messages: "%s" takes UTF-8 (path.toUtf8().constData()), "%d",
// "%x", "%ld" and "%.02d" take numbers.
QString FormatString(int id, ...);

} // namespace talvo
