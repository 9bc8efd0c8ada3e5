#include "app/MenuBarStyle.h"

#include <QApplication>
#include <QPainter>
#include <QPixmap>
#include <QStyleFactory>
#include <QStyleOption>
#include <QWidget>

namespace talvo {
namespace {

// "»" pointing along the bar: right (left in a right-to-left layout), or down
// for a vertical bar; at the two sizes the style's own bitmaps come in.
QIcon chevronIcon(const QColor& colour, bool vertical, bool rightToLeft)
{
    QIcon icon;
    for (const int size : {16, 32}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(colour, size / 10.0, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        if (vertical) {
            painter.translate(size, 0);
            painter.rotate(90);
        } else if (rightToLeft) {
            painter.translate(size, 0);
            painter.scale(-1, 1);
        }
        const qreal s = size;
        for (const qreal x : {0.25 * s, 0.5 * s})
            painter.drawPolyline(QPolygonF{{x, 0.28 * s}, {x + 0.22 * s, 0.5 * s}, {x, 0.72 * s}});
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

} // namespace

QIcon MenuBarStyle::standardIcon(StandardPixmap which, const QStyleOption* option,
                                 const QWidget* widget) const
{
    if (which != SP_ToolBarHorizontalExtensionButton && which != SP_ToolBarVerticalExtensionButton)
        return QProxyStyle::standardIcon(which, option, widget);
    const QPalette palette = widget ? widget->palette() : QApplication::palette();
    const Qt::LayoutDirection direction =
        option ? option->direction : (widget ? widget->layoutDirection() : QApplication::layoutDirection());
    return chevronIcon(palette.color(QPalette::ButtonText), which == SP_ToolBarVerticalExtensionButton,
                       direction == Qt::RightToLeft);
}

void UseMenuBarStyle()
{
    if (QStyle* base = QStyleFactory::create(QApplication::style()->name()))
        QApplication::setStyle(new MenuBarStyle(base));
}

} // namespace talvo
