#include "Views/CVSpanLocationView.h"

#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

using namespace Qt::StringLiterals;

CVSpanLocationView::CVSpanLocationView(QWidget *parent)
    : QWidget(parent)
{
    setAccessibleName(u"Span location"_s);
    setFocusPolicy(Qt::TabFocus);
    setCursor(Qt::PointingHandCursor);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

void CVSpanLocationView::setLocationName(const QString &name)
{
    m_name = name;
    setAccessibleDescription(name);
    setToolTip(name);
    update();
}

void CVSpanLocationView::setLocationIcon(const QIcon &icon)
{
    m_icon = icon;
    update();
}

void CVSpanLocationView::setRestoreMode(bool restore)
{
    m_restore = restore;
    update();
}

void CVSpanLocationView::setDimmed(bool dimmed)
{
    m_dimmed = dimmed;
    update();
}

QSize CVSpanLocationView::sizeHint() const
{
    return { 280, 2 * fontMetrics().height() + 22 };
}

QSize CVSpanLocationView::minimumSizeHint() const
{
    return { 160, sizeHint().height() };
}

void CVSpanLocationView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QPalette &pal = palette();
    const QPalette::ColorGroup group = m_dimmed || m_restore ? QPalette::Disabled : QPalette::Active;
    const QRectF box = QRectF(rect()).adjusted(3.5, 3.5, -3.5, -3.5);
    p.setPen(QPen(hasFocus() ? pal.color(QPalette::Highlight) : pal.color(QPalette::Mid), 1.2));
    p.setBrush(pal.color(QPalette::Base));
    p.drawRoundedRect(box, 8, 8);
    const int side = qMin(32, height() - 16);
    const QRect iconRect(int(box.left()) + 10, (height() - side) / 2, side, side);
    if (!m_icon.isNull() && !m_restore)
        m_icon.paint(&p, iconRect, Qt::AlignCenter, group == QPalette::Disabled ? QIcon::Disabled : QIcon::Normal);
    const QFontMetrics fm = fontMetrics();
    const QRect text(
        iconRect.right() + 10, int(box.top()) + 4, int(box.right()) - iconRect.right() - 18, int(box.height()) - 8);
    p.setPen(pal.color(QPalette::PlaceholderText));
    const QRect caption(text.left(), text.center().y() - fm.height(), text.width(), fm.height());
    p.drawText(caption, Qt::AlignLeft | Qt::AlignVCenter, m_restore ? u"Restore to"_s : u"Span Location"_s);
    QFont bold = font();
    bold.setBold(true);
    p.setFont(bold);
    p.setPen(pal.color(group, QPalette::Text));
    const QString name = m_restore ? u"Original Locations"_s
        : m_name.isEmpty()         ? u"Click to Choose a Folder"_s
                                   : m_name;
    const QRect line(text.left(), caption.bottom() + 1, text.width(), fm.height());
    p.drawText(
        line, Qt::AlignLeft | Qt::AlignVCenter, QFontMetrics(bold).elidedText(name, Qt::ElideMiddle, line.width()));
}

void CVSpanLocationView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()))
        Q_EMIT clicked();
}

void CVSpanLocationView::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        Q_EMIT clicked();
        return;
    }
    QWidget::keyPressEvent(event);
}

void CVSpanLocationView::contextMenuEvent(QContextMenuEvent *event)
{
    Q_EMIT contextMenuRequested(event->globalPos());
}
