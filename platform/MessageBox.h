#pragma once
// Modal message boxes with the styles and answers of the handheld platform.
//
// Contract:
// - Called on the UI thread only; the call returns when the box is answered.
// - style combines one button set, one icon and the window flags below, with
//   the platform's numbers, because callers write them that way (0x50010 is
//   OK, error icon, set-foreground, top-most).
// - The answer is one of the ID* values.
// - ShowMessageBox chooses the implementation at each call: with
//   TALVOPLAYER_MESSAGES=FILE set the box is recorded to FILE and answered with
//   its first button, so that a test or a headless run never blocks.
#include <QString>
#include <cstdint>
#include <memory>

class QWidget;

namespace talvo {

using MessageBoxStyle = std::uint32_t;

inline constexpr MessageBoxStyle MB_OK = 0x0;
inline constexpr MessageBoxStyle MB_OKCANCEL = 0x1;
inline constexpr MessageBoxStyle MB_YESNO = 0x4;
inline constexpr MessageBoxStyle MB_TYPEMASK = 0xF;
inline constexpr MessageBoxStyle MB_ICONERROR = 0x10;
inline constexpr MessageBoxStyle MB_ICONQUESTION = 0x20;
inline constexpr MessageBoxStyle MB_ICONWARNING = 0x30;
inline constexpr MessageBoxStyle MB_ICONINFORMATION = 0x40;
inline constexpr MessageBoxStyle MB_ICONMASK = 0xF0;
inline constexpr MessageBoxStyle MB_SETFOREGROUND = 0x10000;
inline constexpr MessageBoxStyle MB_TOPMOST = 0x40000;

// The style of every error the user must see.
inline constexpr MessageBoxStyle kErrorBoxStyle = MB_OK | MB_ICONERROR | MB_SETFOREGROUND | MB_TOPMOST;
static_assert(kErrorBoxStyle == 0x50010);

inline constexpr int IDOK = 1;
inline constexpr int IDCANCEL = 2;
inline constexpr int IDYES = 6;
inline constexpr int IDNO = 7;

class MessageBoxPresenter {
public:
    virtual ~MessageBoxPresenter() = default;
    // owner may be null (a box of its own, as the desktop-sync commands show).
    virtual int Show(QWidget* owner, const QString& text, const QString& caption, MessageBoxStyle style) = 0;
};

// The answer a box gives when nobody presses anything: its first button.
int DefaultMessageBoxAnswer(MessageBoxStyle style);

// QMessageBox, modal, with the caption, icon and window flags of the style.
std::unique_ptr<MessageBoxPresenter> CreateQtMessageBox();
// Appends one line per box to path: caption, text and style as 0x%X separated
// by tabs, with backslash, tab, CR and LF in the texts written as \\, \t, \r
// and \n; answers with DefaultMessageBoxAnswer.
std::unique_ptr<MessageBoxPresenter> CreateRecordingMessageBox(const QString& path);

// The one way the player shows a message box.
int ShowMessageBox(QWidget* owner, const QString& text, const QString& caption, MessageBoxStyle style);

} // namespace talvo
