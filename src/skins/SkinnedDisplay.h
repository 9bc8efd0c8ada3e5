#pragma once
// The main screen drawn from the active skin: its bitmaps with the buttons in
// their looks, the times, the title, the section, the cover picture, the
// partial-content mark and the volume display.  Taps on the skin's buttons
// become the press and release commands of the main window.
//
// Contract:
// - UI thread only.  The display borrows the skin and the window; the main
//   window owns both and outlives it.
// - The screen is composed in the skin's layout coordinates into a back
//   buffer and shown in one copy, scaled to the widget keeping its shape.
//   Changes redraw only the areas they touch: a position in another second
//   the two time areas (and the section when it changed), a button its own
//   rectangle.
// - Stylus down and up arrive as mouse presses and releases; every command
//   goes to the window as a posted WM_COMMAND, in the order the taps happen.
// - Timer 1001 (the title scroll) is set on the window while the title is
//   wider than its area; the window calls ScrollTitle on each tick.
#include "platform/MessageWindow.h"
#include "skins/SkinLayout.h"

#include <QImage>
#include <QString>
#include <QWidget>
#include <cstdint>

namespace talvo {

// What the screen shows besides the skin; the main window fills it.
struct DisplayContent {
    bool hasProgram = false;
    QString title;
    QString author;
    std::uint32_t positionMs = 0; // from the start of the whole program
    std::uint32_t totalMs = 0;
    int section = 0; // one-based; 0 with no sections
    int sectionCount = 0;
    bool partial = false; // the file holds a part of a longer program
    QImage cover;         // null: none
    bool playing = false;
    // The listening aids in use (speed, sleep timer's time left); empty: none.
    QString listening;
};

class SkinnedDisplay final : public QWidget {
    Q_OBJECT
public:
    // Title scrolling: 5 pixels per tick.
    static constexpr int kTitleScrollStep = 5;
    static constexpr unsigned kTitleScrollPeriodMs = 150;

    explicit SkinnedDisplay(MessageWindow& window, QWidget* parent = nullptr);

    // The skin to draw (null: nothing); its layout must be loaded.
    void SetSkin(SkinLayout* skin);
    SkinLayout* Skin() const { return skin_; }

    // Everything anew.
    void SetContent(const DisplayContent& content);
    // Only the position and the section.
    void SetPosition(std::uint32_t positionMs, int section, int sectionCount);
    // Only the listening aids' text, drawn after the section on its line.
    void SetListening(const QString& text);
    // percent < 0 hides the volume display.
    void ShowVolume(int percent);
    // The pressed or normal look of a command's button (the play button is
    // never shown pressed by a tap; the window may still ask for it).
    void DrawButton(std::uint16_t command, bool pressed);
    void ScrollTitle();

    // Stylus handling in layout coordinates.
    void OnStylusDown(QPoint point);
    void OnStylusUp(QPoint point);
    // The index in kSkinButtons of the button holding a layout point, or -1.
    int HitTest(QPoint point) const;

    // The composed screen, in layout coordinates.
    const QImage& Composed() const { return back_; }
    // Where a layout point lies on the widget, and back.
    QPoint ToWidget(QPoint layoutPoint) const;
    QPoint ToLayout(QPoint widgetPoint) const;
    // Areas composed since the last call, in layout coordinates (for tests
    // and the benchmark: what a change cost).
    QRegion TakeComposedRegion();

    QSize sizeHint() const override;

    // For assistive technology: the texts as shown, a button's place on the
    // screen, and a tap on a button as a pointer would make it.
    QString TitleText() const;
    QString TimeText() const;
    QString TotalText() const;
    QString SectionText() const;
    QString ListeningText() const { return content_.listening; }
    QRect GlobalRectOfButton(std::size_t index);
    void TapButton(std::size_t index);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    // The set in use: the playing set while the playing look is shown.
    std::array<SkinButton, kSkinButtonCount>& buttons();
    const std::array<SkinButton, kSkinButtonCount>& buttons() const;
    bool playingLook() const;
    const QImage& background() const;
    const QImage& hot() const;
    QRect layoutRect() const;

    void composeAll();
    void composeArea(const QRect& area);
    void composeButton(std::size_t index);
    void composeTitle();
    void composeTimes();
    void composeSection();
    void composePartial();
    void composeCover();
    void composeVolume();
    void drawText(QPainter& painter, const SkinTextArea& area, const std::optional<SkinFont>& font,
                  SkinColor color, const QString& text, Qt::Alignment alignment, bool shrinkToFit = false);
    static void fitFontToWidth(QPainter& painter, const QString& text, int width);
    void updateTitleScroll();
    void showArea(const QRect& layoutArea);

    MessageWindow& window_;
    SkinLayout* skin_ = nullptr;
    DisplayContent content_;
    int volumePercent_ = -1;
    QImage back_;
    QRegion composed_;

    // Stylus state.
    QRect capture_;
    std::uint16_t pressedId_ = 0;
    bool titlePressed_ = false;
    int titleOffset_ = 0;
    bool titleScrolls_ = false;
};

} // namespace talvo
