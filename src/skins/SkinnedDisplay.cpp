#include "skins/SkinnedDisplay.h"

#include "base/CommandIds.h"
#include "base/StringTable.h"
#include "base/TimeText.h"
#include "platform/MessageBox.h"
#include "skins/SkinnedDisplayAccessible.h"

#include <QFontInfo>
#include <QFontMetrics>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

namespace talvo {
namespace {

// The buttons whose release always ends a hold, even when the stylus slid off.
constexpr std::array<std::uint16_t, 4> kRepeatingButtons = {Command::FastForward1min, Command::Rewind1min,
                                                            Command::NextSection, Command::PreviousSection};
// Volume buttons end their repeat at once on release.
constexpr std::array<std::uint16_t, 2> kVolumeButtons = {Command::VolumeUp, Command::VolumeDown};

constexpr std::uint16_t kTitleTap = Command::ProgramList;
// Blank pixels between the end of a scrolling title and its next turn.
constexpr int kTitleScrollGap = 40;
// The volume display: ten ticks, one per ten points.
constexpr int kVolumeTicks = 10;

template <std::size_t N> bool isOneOf(const std::array<std::uint16_t, N>& ids, std::uint16_t id)
{
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

} // namespace

SkinnedDisplay::SkinnedDisplay(MessageWindow& window, QWidget* parent) : QWidget(parent), window_(window)
{
    InstallSkinnedDisplayAccessibility();
    setAttribute(Qt::WA_OpaquePaintEvent);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void SkinnedDisplay::SetSkin(SkinLayout* skin)
{
    skin_ = skin;
    capture_ = QRect();
    pressedId_ = 0;
    titlePressed_ = false;
    titleOffset_ = 0;
    composeAll();
    updateGeometry();
    update();
}

void SkinnedDisplay::SetContent(const DisplayContent& content)
{
    const bool titleChanged = content.title != content_.title || content.author != content_.author;
    content_ = content;
    if (titleChanged)
        titleOffset_ = 0;
    composeAll();
    update();
}

void SkinnedDisplay::SetPosition(std::uint32_t positionMs, int section, int sectionCount)
{
    if (!skin_)
        return;
    // Refills come several times a second; the time shows whole seconds.
    const bool sameSecond = positionMs / 1000 == content_.positionMs / 1000;
    content_.positionMs = positionMs;
    if (!sameSecond)
        composeTimes();
    if (section != content_.section || sectionCount != content_.sectionCount) {
        content_.section = section;
        content_.sectionCount = sectionCount;
        composeSection();
    }
}

void SkinnedDisplay::ShowVolume(int percent)
{
    if (percent == volumePercent_)
        return;
    volumePercent_ = percent;
    composeTimes();
}

void SkinnedDisplay::DrawButton(std::uint16_t command, bool pressed)
{
    const std::size_t index = SkinButtonIndex(command);
    if (!skin_ || index >= kSkinButtonCount)
        return;
    buttons()[index].state = pressed ? SkinButtonState::Pressed : SkinButtonState::Normal;
    composeButton(index);
}

void SkinnedDisplay::ScrollTitle()
{
    if (!titleScrolls_)
        return;
    titleOffset_ += kTitleScrollStep;
    composeTitle();
}

// --- stylus -------------------------------------------------------------------

int SkinnedDisplay::HitTest(QPoint point) const
{
    if (!skin_)
        return -1;
    const auto& set = buttons();
    for (std::size_t i = 0; i < set.size(); ++i) {
        const SkinRect& r = set[i].rect;
        if (!set[i].round) {
            if (r.Contains(point.x(), point.y()))
                return int(i);
            continue;
        }
        // A round button's radius comes from its width alone.
        const std::int64_t cx = (std::int64_t{r.left} + r.right) / 2;
        const std::int64_t cy = (std::int64_t{r.top} + r.bottom) / 2;
        const std::int64_t radius = cx - r.left;
        const std::int64_t dx = cx - point.x(), dy = cy - point.y();
        if (dy * dy + dx * dx <= radius * radius)
            return int(i);
    }
    return -1;
}

void SkinnedDisplay::OnStylusDown(QPoint point)
{
    if (!skin_)
        return;
    const int index = HitTest(point);
    if (index >= 0) {
        SkinButton& button = buttons()[std::size_t(index)];
        capture_ = button.rect.ToQRect();
        if (button.commandId != Command::PlayStop) {
            button.state = SkinButtonState::Pressed;
            composeButton(std::size_t(index));
        }
        pressedId_ = button.commandId;
        window_.PostCommand(static_cast<std::uint16_t>(button.commandId + Command::kPressed));
    } else if (skin_->programTitle.rect.Contains(point.x(), point.y())) {
        titlePressed_ = true;
        capture_ = skin_->programTitle.rect.ToQRect();
        pressedId_ = kTitleTap;
        composeTitle();
    } else {
        capture_ = QRect();
        pressedId_ = 0;
    }
}

void SkinnedDisplay::OnStylusUp(QPoint point)
{
    if (!skin_)
        return;
    const bool wasTitle = titlePressed_;
    titlePressed_ = false;
    const std::uint16_t pressed = pressedId_;
    pressedId_ = 0;
    if (capture_.isEmpty() || pressed == 0)
        return;
    capture_ = QRect();
    if (wasTitle && pressed == kTitleTap) {
        composeTitle();
        if (skin_->programTitle.rect.Contains(point.x(), point.y()))
            window_.PostCommand(kTitleTap);
        return;
    }
    const std::size_t index = SkinButtonIndex(pressed);
    if (index >= kSkinButtonCount)
        return;
    const auto release = static_cast<std::uint16_t>(pressed + Command::kReleased);
    if (pressed != Command::PlayStop) {
        buttons()[index].state = SkinButtonState::Normal;
        composeButton(index);
    }
    // A hold ends even when the stylus slid off its button; a tap completed
    // over the button releases once more, on purpose.
    if (isOneOf(kRepeatingButtons, pressed))
        window_.PostCommand(release);
    else if (isOneOf(kVolumeButtons, pressed))
        window_.SendCommand(release);
    if (HitTest(point) == int(index))
        window_.PostCommand(release);
}

void SkinnedDisplay::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        OnStylusDown(ToLayout(event->position().toPoint()));
}

void SkinnedDisplay::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        OnStylusUp(ToLayout(event->position().toPoint()));
}

// --- assistive technology ---------------------------------------------------

QString SkinnedDisplay::TitleText() const
{
    return content_.hasProgram ? content_.title : LoadString(Str::NoPrograms);
}

QString SkinnedDisplay::TimeText() const
{
    return FormatHms(content_.positionMs);
}

QString SkinnedDisplay::TotalText() const
{
    const std::uint32_t t = content_.totalMs;
    return content_.hasProgram
               ? FormatString(Str::TotalTime, int(t / 3600000), int(t / 60000 % 60), int(t / 1000 % 60))
               : QString();
}

QString SkinnedDisplay::SectionText() const
{
    return content_.sectionCount > 0 ? FormatString(Str::SectionOf, content_.section, content_.sectionCount)
                                     : QString();
}

QRect SkinnedDisplay::GlobalRectOfButton(std::size_t index)
{
    if (!skin_ || index >= kSkinButtonCount)
        return {};
    const QRect r = buttons()[index].rect.ToQRect();
    return QRect(mapToGlobal(ToWidget(r.topLeft())), mapToGlobal(ToWidget(r.bottomRight())));
}

void SkinnedDisplay::TapButton(std::size_t index)
{
    if (!skin_ || index >= kSkinButtonCount)
        return;
    const QPoint centre = buttons()[index].rect.ToQRect().center();
    OnStylusDown(centre);
    OnStylusUp(centre);
}

// --- geometry ---------------------------------------------------------------

const std::array<SkinButton, kSkinButtonCount>& SkinnedDisplay::buttons() const
{
    return playingLook() ? skin_->playingButtons : skin_->pausedButtons;
}

std::array<SkinButton, kSkinButtonCount>& SkinnedDisplay::buttons()
{
    return playingLook() ? skin_->playingButtons : skin_->pausedButtons;
}

bool SkinnedDisplay::playingLook() const
{
    return skin_ && content_.playing && skin_->HasBitmap(SkinBitmap::PlayBackground);
}

const QImage& SkinnedDisplay::background() const
{
    return skin_->Bitmap(playingLook() ? SkinBitmap::PlayBackground : SkinBitmap::Background);
}

const QImage& SkinnedDisplay::hot() const
{
    if (playingLook() && skin_->HasBitmap(SkinBitmap::PlayHot))
        return skin_->Bitmap(SkinBitmap::PlayHot);
    return skin_->Bitmap(SkinBitmap::Hot);
}

QRect SkinnedDisplay::layoutRect() const
{
    if (!skin_ || skin_->resolution.width <= 0 || skin_->resolution.height <= 0)
        return {};
    return QRect(0, 0, skin_->resolution.width, skin_->resolution.height);
}

QSize SkinnedDisplay::sizeHint() const
{
    const QRect layout = layoutRect();
    return layout.isEmpty() ? QSize(240, 320) : layout.size();
}

// The layout scaled into the widget, keeping its shape, centred.
static QRectF targetRect(QSize layout, QSize widget)
{
    if (layout.isEmpty() || widget.isEmpty())
        return {};
    const double scale =
        std::min(double(widget.width()) / layout.width(), double(widget.height()) / layout.height());
    const QSizeF size(layout.width() * scale, layout.height() * scale);
    return QRectF(QPointF((widget.width() - size.width()) / 2, (widget.height() - size.height()) / 2), size);
}

QPoint SkinnedDisplay::ToWidget(QPoint layoutPoint) const
{
    const QRectF target = targetRect(layoutRect().size(), size());
    if (target.isEmpty())
        return layoutPoint;
    const double scale = target.width() / layoutRect().width();
    return QPointF(target.left() + layoutPoint.x() * scale, target.top() + layoutPoint.y() * scale).toPoint();
}

QPoint SkinnedDisplay::ToLayout(QPoint widgetPoint) const
{
    const QRectF target = targetRect(layoutRect().size(), size());
    if (target.isEmpty())
        return widgetPoint;
    const double scale = target.width() / layoutRect().width();
    return QPoint(int(std::floor((widgetPoint.x() - target.left()) / scale)),
                  int(std::floor((widgetPoint.y() - target.top()) / scale)));
}

QRegion SkinnedDisplay::TakeComposedRegion()
{
    QRegion region = composed_;
    composed_ = QRegion();
    return region;
}

// --- composing --------------------------------------------------------------

void SkinnedDisplay::showArea(const QRect& layoutArea)
{
    composed_ += layoutArea;
    const QRectF target = targetRect(layoutRect().size(), size());
    if (target.isEmpty())
        return;
    const double scale = target.width() / layoutRect().width();
    const QRectF area(target.left() + layoutArea.left() * scale, target.top() + layoutArea.top() * scale,
                      layoutArea.width() * scale, layoutArea.height() * scale);
    update(area.toAlignedRect().adjusted(-1, -1, 1, 1));
}

void SkinnedDisplay::composeAll()
{
    const QRect layout = layoutRect();
    if (layout.isEmpty()) {
        back_ = QImage();
        return;
    }
    if (back_.size() != layout.size()) {
        back_ = QImage(layout.size(), QImage::Format_ARGB32_Premultiplied);
        if (back_.isNull()) {
            // The screen keeps what it showed before.
            ShowMessageBox(this, LoadString(Str::LowMemory), QString(), MB_OK);
            return;
        }
    }
    composeArea(layout);
    for (std::size_t i = 0; i < kSkinButtonCount; ++i)
        composeButton(i);
    composeTitle();
    composeSection();
    composePartial();
    composeCover();
    composeTimes();
    updateTitleScroll();
}

// Puts back the skin's picture under an area.
void SkinnedDisplay::composeArea(const QRect& area)
{
    if (back_.isNull() || area.isEmpty())
        return;
    QPainter painter(&back_);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    const QImage& picture = background();
    if (picture.isNull())
        painter.fillRect(area, Qt::black);
    else
        painter.drawImage(area, picture, area);
    showArea(area);
}

void SkinnedDisplay::composeButton(std::size_t index)
{
    if (back_.isNull())
        return;
    const SkinButton& button = buttons()[index];
    const QRect area = button.rect.ToQRect().intersected(layoutRect());
    if (area.isEmpty())
        return;
    if (button.state == SkinButtonState::Normal || hot().isNull()) {
        composeArea(area);
        return;
    }
    QPainter painter(&back_);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(area, hot(), area);
    showArea(area);
}

void SkinnedDisplay::fitFontToWidth(QPainter& painter, const QString& text, int width)
{
    // Smaller by a tenth at a time, never below what stays readable.
    constexpr double kStep = 0.9;
    constexpr int kSmallestPixels = 8;
    QFont font = painter.font();
    if (font.pixelSize() <= 0)
        font.setPixelSize(QFontInfo(font).pixelSize());
    while (QFontMetrics(font).horizontalAdvance(text) > width && font.pixelSize() > kSmallestPixels)
        font.setPixelSize(std::max(kSmallestPixels, static_cast<int>(font.pixelSize() * kStep)));
    painter.setFont(font);
}

void SkinnedDisplay::drawText(QPainter& painter, const SkinTextArea& area,
                              const std::optional<SkinFont>& font, SkinColor color, const QString& text,
                              Qt::Alignment alignment, bool shrinkToFit)
{
    const QRect rect = area.rect.ToQRect();
    if (rect.isEmpty() || text.isEmpty())
        return;
    painter.save();
    painter.setClipRect(rect);
    if (font)
        painter.setFont(font->ToQFont());
    if (shrinkToFit)
        fitFontToWidth(painter, text, rect.width());
    const QColor pen = ToQColor(color);
    painter.setPen(pen.isValid() ? pen : QColor(Qt::black));
    painter.drawText(rect, int(alignment) | Qt::TextSingleLine, text);
    painter.restore();
}

void SkinnedDisplay::composeTitle()
{
    const QRect rect = skin_ ? skin_->programTitle.rect.ToQRect() : QRect();
    if (back_.isNull() || rect.isEmpty())
        return;
    composeArea(rect);
    QPainter painter(&back_);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setClipRect(rect);
    QColor fill = ToQColor(skin_->programTitle.backgroundColor);
    QColor ink = ToQColor(skin_->programTitleTextColor);
    if (!ink.isValid())
        ink = Qt::black;
    if (titlePressed_) {
        // Held: the area shows inverted.
        std::swap(fill, ink);
        if (!fill.isValid())
            fill = Qt::black;
        if (!ink.isValid())
            ink = Qt::white;
    }
    if (fill.isValid())
        painter.fillRect(rect, fill);
    painter.setPen(ink);
    const QString title = TitleText();
    const bool twoLines = !content_.author.isEmpty() && skin_->programTitleSmallFont;
    const QRect first =
        twoLines ? QRect(rect.left(), rect.top(), rect.width(), rect.height() * 55 / 100) : rect;
    const QRect second(rect.left(), first.bottom() + 1, rect.width(), rect.bottom() - first.bottom());
    const QFont big = skin_->programTitleFont ? skin_->programTitleFont->ToQFont() : painter.font();
    painter.setFont(big);
    const int textWidth = QFontMetrics(big).horizontalAdvance(title);
    if (textWidth <= first.width()) {
        painter.drawText(first, Qt::AlignCenter | Qt::TextSingleLine, title);
    } else {
        // Too long for its area: it runs through it, and round again.
        const int cycle = textWidth + kTitleScrollGap;
        const int offset = titleOffset_ % cycle;
        for (int x = first.left() - offset; x < first.right(); x += cycle)
            painter.drawText(QRect(x, first.top(), textWidth, first.height()),
                             Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, title);
    }
    if (twoLines) {
        painter.setFont(skin_->programTitleSmallFont->ToQFont());
        painter.drawText(second, Qt::AlignHCenter | Qt::AlignTop | Qt::TextSingleLine, content_.author);
    }
    showArea(rect);
}

void SkinnedDisplay::composeTimes()
{
    if (back_.isNull())
        return;
    QRect area = skin_->elapsedTime.rect.ToQRect() | skin_->currentTime.rect.ToQRect() |
                 skin_->totalTime.rect.ToQRect();
    area = area.intersected(layoutRect());
    if (area.isEmpty())
        return;
    composeArea(area);
    QPainter painter(&back_);
    painter.setRenderHint(QPainter::TextAntialiasing);
    for (const SkinTextArea* text : {&skin_->elapsedTime, &skin_->currentTime, &skin_->totalTime}) {
        const QColor fill = ToQColor(text->backgroundColor);
        if (fill.isValid() && !text->rect.IsEmpty())
            painter.fillRect(text->rect.ToQRect(), fill);
    }
    if (volumePercent_ >= 0) {
        painter.end();
        composeVolume();
        return;
    }
    const SkinTextArea& current = skin_->currentTime.rect.IsEmpty() ? skin_->elapsedTime : skin_->currentTime;
    drawText(painter, current, skin_->elapsedTimeFont.font, skin_->elapsedTimeFont.textColor, TimeText(),
             Qt::AlignCenter);
    drawText(painter, skin_->totalTime, skin_->totalTimeFont.font, skin_->totalTimeFont.textColor,
             TotalText(), Qt::AlignCenter);
}

void SkinnedDisplay::composeSection()
{
    if (back_.isNull() || skin_->section.rect.IsEmpty())
        return;
    composeArea(skin_->section.rect.ToQRect());
    QPainter painter(&back_);
    painter.setRenderHint(QPainter::TextAntialiasing);
    const QColor fill = ToQColor(skin_->section.backgroundColor);
    if (fill.isValid())
        painter.fillRect(skin_->section.rect.ToQRect(), fill);
    // The listening aids follow the section on its line, after a gap.
    QString text = SectionText();
    if (!content_.listening.isEmpty())
        text = text.isEmpty() ? content_.listening : text + QStringLiteral("   ") + content_.listening;
    drawText(painter, skin_->section, skin_->programTitleSmallFont, skin_->programTitleTextColor, text,
             Qt::AlignLeft | Qt::AlignVCenter, !content_.listening.isEmpty());
}

void SkinnedDisplay::SetListening(const QString& text)
{
    if (text == content_.listening)
        return;
    content_.listening = text;
    if (skin_)
        composeSection();
}

void SkinnedDisplay::composePartial()
{
    const QRect rect = skin_->partialContent.rect.ToQRect();
    if (back_.isNull() || rect.isEmpty())
        return;
    composeArea(rect);
    if (!content_.partial)
        return;
    // A circle half filled: this file is one part of a longer program.
    QPainter painter(&back_);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor ink = ToQColor(skin_->programTitleTextColor);
    if (!ink.isValid())
        ink = Qt::black;
    const int side = std::min(rect.width(), rect.height()) * 7 / 10;
    const QRectF circle(rect.center().x() - side / 2.0, rect.center().y() - side / 2.0, side, side);
    painter.setPen(QPen(ink, std::max(1.0, side / 10.0)));
    painter.setBrush(Qt::NoBrush);
    painter.drawEllipse(circle);
    QPainterPath half;
    half.moveTo(circle.center());
    half.arcTo(circle, 90, 180);
    half.closeSubpath();
    painter.fillPath(half, ink);
}

void SkinnedDisplay::composeCover()
{
    const QRect rect = skin_->bookCover.ToQRect().intersected(layoutRect());
    if (back_.isNull() || rect.isEmpty() || !skin_->bookCoverDisplay)
        return;
    composeArea(rect);
    if (content_.cover.isNull())
        return;
    QPainter painter(&back_);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QSize fitted = content_.cover.size().scaled(rect.size(), Qt::KeepAspectRatio);
    const QRect target(rect.left() + (rect.width() - fitted.width()) / 2,
                       rect.top() + (rect.height() - fitted.height()) / 2, fitted.width(), fitted.height());
    painter.drawImage(target, content_.cover);
}

void SkinnedDisplay::composeVolume()
{
    const QRect rect = skin_->elapsedTime.rect.ToQRect();
    if (rect.isEmpty())
        return;
    QPainter painter(&back_);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setClipRect(rect);
    QColor bar = ToQColor(skin_->volumeBarColor);
    QColor ink = ToQColor(skin_->elapsedTimeFont.textColor);
    if (!ink.isValid())
        ink = Qt::black;
    if (!bar.isValid())
        bar = ink;
    const int margin = std::max(2, rect.height() / 12);
    // The label on the left, the ticks to its right rising towards loud.
    QRect label(rect.left() + margin, rect.top(), rect.width() * 35 / 100, rect.height());
    painter.setFont(skin_->volumeFont ? skin_->volumeFont->ToQFont() : painter.font());
    painter.setPen(ink);
    painter.drawText(label, Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine,
                     FormatString(Str::PrefsVolumePercent, volumePercent_));
    const bool geometryGiven =
        skin_->volumeVerticalPosition != IniFile::kNotGiven && skin_->volumeTickHeight != IniFile::kNotGiven;
    const int baseline = geometryGiven ? skin_->volumeVerticalPosition : rect.bottom() - margin;
    const int tickHeight = geometryGiven ? std::clamp(skin_->volumeTickHeight, 1, rect.height())
                                         : std::max(1, rect.height() / 12);
    const int left = label.right() + margin;
    const int width = rect.right() - margin - left;
    if (width <= 0)
        return;
    const double tickWidth = double(width) / kVolumeTicks;
    const int lit = std::clamp(volumePercent_ / 10, 0, kVolumeTicks);
    for (int i = 0; i < kVolumeTicks; ++i) {
        const int height = std::min(tickHeight * (i + 2) / 2, baseline - rect.top() - margin);
        const QRectF tick(left + i * tickWidth + tickWidth * 0.15, baseline - height, tickWidth * 0.7,
                          height);
        if (i < lit) {
            painter.fillRect(tick, bar);
        } else {
            painter.setPen(QPen(bar, 1));
            painter.setBrush(Qt::NoBrush);
            painter.drawRect(tick);
        }
    }
}

void SkinnedDisplay::updateTitleScroll()
{
    bool scrolls = false;
    if (skin_ && content_.hasProgram && !skin_->programTitle.rect.IsEmpty()) {
        const QFont big = skin_->programTitleFont ? skin_->programTitleFont->ToQFont() : font();
        scrolls =
            QFontMetrics(big).horizontalAdvance(content_.title) > skin_->programTitle.rect.ToQRect().width();
    }
    if (scrolls == titleScrolls_)
        return;
    titleScrolls_ = scrolls;
    if (scrolls)
        window_.SetTimer(Timer::TitleScroll, kTitleScrollPeriodMs);
    else
        window_.KillTimer(Timer::TitleScroll);
}

void SkinnedDisplay::paintEvent(QPaintEvent* event)
{
    QPainter painter(this);
    const QRectF target = targetRect(layoutRect().size(), size());
    if (back_.isNull() || target.isEmpty()) {
        painter.fillRect(event->rect(), Qt::black);
        return;
    }
    // Around a layout scaled to a window of another shape, the skin's own
    // edge colour continues.
    const QRegion outside = QRegion(rect()) - QRegion(target.toAlignedRect());
    const QColor edge = back_.pixelColor(0, 0);
    for (const QRect& r : outside)
        painter.fillRect(r, edge);
    if (target.size().toSize() == back_.size()) {
        painter.drawImage(target.topLeft(), back_);
    } else {
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(target, back_);
    }
}

} // namespace talvo
