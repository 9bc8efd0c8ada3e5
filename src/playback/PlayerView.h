#pragma once
// What the playback engine asks of the screen.  The main window implements
// it; tests record the calls.  Every call happens on the user-interface thread.
#include <cstdint>

namespace talvo {

class PlayerView {
public:
    virtual ~PlayerView() = default;
    // Makes the main window the foreground window.
    virtual void BringToFront() = 0;
    // Redraws the whole display (title, position, section, cover).
    virtual void RedrawDisplay() = 0;
    // Redraws the position texts only.
    virtual void RedrawPosition() = 0;
    // Draws the skin button of a command in its pressed or normal look.
    virtual void DrawButton(std::uint16_t command, bool pressed) = 0;
    virtual void ShowVolumeIndicator(bool shown) = 0;
    virtual bool IsVolumeIndicatorShown() const = 0;
    // Drops the decoded cover picture so the next redraw decodes it afresh.
    virtual void DropCoverPicture() = 0;
    // The screen was switched off by the power-off timer: switch it on again.
    virtual void ScreenOnIfOff() = 0;
    virtual void SetWaitCursor(bool waiting) = 0;
};

} // namespace talvo
