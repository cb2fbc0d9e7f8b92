#include "Views/CVSpanLocationView.h"

#include <QContextMenuEvent>
#include <QDir>
#include <QFileInfo>
#include <QKeyEvent>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

using namespace Qt::StringLiterals;

CVSpanLocationView::CVSpanLocationView(QWidget *parent)
    : QWidget(parent)
{
    setAccessibleName(u"Span location"_s);
    setFocusPolicy(Qt::TabFocus);
    setCursor(Qt::PointingHandCursor);
    setAcceptDrops(true);
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
    setCursor(restore ? Qt::ArrowCursor : Qt::PointingHandCursor);
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

QRect CVSpanLocationView::arrowRect() const
{
    const int side = fontMetrics().height() + 8;
    return { width() - side - 8, (height() - side) / 2, side, side };
}

void CVSpanLocationView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QPalette &pal = palette();
    const QPalette::ColorGroup group = m_dimmed || m_restore ? QPalette::Disabled : QPalette::Active;
    const QRectF box = QRectF(rect()).adjusted(3.5, 3.5, -3.5, -3.5);
    const bool lit = hasFocus() || m_dropOver;
    p.setPen(QPen(lit ? pal.color(QPalette::Highlight) : pal.color(QPalette::Mid), m_dropOver ? 2.5 : 1.2));
    QColor fill = pal.color(QPalette::Base);
    if (m_dropOver) {
        fill = pal.color(QPalette::Highlight);
        fill.setAlphaF(0.22f);
    }
    p.setBrush(fill);
    p.drawRoundedRect(box, 8, 8);
    const int side = qMin(32, height() - 16);
    const QRect iconRect(int(box.left()) + 10, (height() - side) / 2, side, side);
    if (!m_icon.isNull() && !m_restore)
        m_icon.paint(&p, iconRect, Qt::AlignCenter, group == QPalette::Disabled ? QIcon::Disabled : QIcon::Normal);
    const QRect arrow = arrowRect();
    if (!m_restore) {
        // The history's drop-down arrow.
        QPainterPath triangle;
        const QPointF c = QRectF(arrow).center();
        triangle.moveTo(c + QPointF(-4.5, -2));
        triangle.lineTo(c + QPointF(4.5, -2));
        triangle.lineTo(c + QPointF(0, 3));
        triangle.closeSubpath();
        p.setPen(Qt::NoPen);
        p.setBrush(pal.color(group, QPalette::Text));
        p.drawPath(triangle);
    }
    const QFontMetrics fm = fontMetrics();
    const QRect text(
        iconRect.right() + 10, int(box.top()) + 4, arrow.left() - iconRect.right() - 14, int(box.height()) - 8);
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
    const QPoint at = event->position().toPoint();
    if (event->button() != Qt::LeftButton || !rect().contains(at))
        return;
    if (!m_restore && arrowRect().adjusted(-4, -4, 4, 4).contains(at)) {
        Q_EMIT historyMenuRequested(mapToGlobal(QPoint(0, height())));
        return;
    }
    Q_EMIT clicked();
}

void CVSpanLocationView::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        Q_EMIT clicked();
        return;
    }
    if (event->key() == Qt::Key_Down && !m_restore) {
        Q_EMIT historyMenuRequested(mapToGlobal(QPoint(0, height())));
        return;
    }
    QWidget::keyPressEvent(event);
}

void CVSpanLocationView::contextMenuEvent(QContextMenuEvent *event)
{
    Q_EMIT contextMenuRequested(event->globalPos());
}

QString CVSpanLocationView::droppableFolder(const QMimeData *mime)
{
    if (!mime || !mime->hasUrls() || mime->urls().isEmpty())
        return {};
    const QUrl first = mime->urls().constFirst();
    if (!first.isLocalFile())
        return {};
    const QString path = QDir::cleanPath(first.toLocalFile());
    return QFileInfo(path).isDir() ? path : QString();
}

bool CVSpanLocationView::takeDrag(QDropEvent *event)
{
    if (m_restore || m_refusesDrops || droppableFolder(event->mimeData()).isEmpty()) {
        event->ignore();
        return false;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
    return true;
}

void CVSpanLocationView::dragEnterEvent(QDragEnterEvent *event)
{
    m_dropOver = takeDrag(event);
    update();
}

void CVSpanLocationView::dragMoveEvent(QDragMoveEvent *event)
{
    takeDrag(event);
}

void CVSpanLocationView::dragLeaveEvent(QDragLeaveEvent *)
{
    m_dropOver = false;
    update();
}

void CVSpanLocationView::dropEvent(QDropEvent *event)
{
    m_dropOver = false;
    update();
    if (takeDrag(event))
        Q_EMIT folderDropped(droppableFolder(event->mimeData()));
}
