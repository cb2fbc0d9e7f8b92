#include "Views/CVSpanQueueDropZone.h"

#include "Library/CVPredicateArchive.h"
#include "Views/CVIcons.h"

#include <QKeyEvent>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>

using namespace Qt::StringLiterals;

CVSpanQueueDropZone::CVSpanQueueDropZone(QWidget *parent)
    : QWidget(parent)
{
    setAccessibleName(u"Spanning queue"_s);
    setFocusPolicy(Qt::TabFocus);
    setAttribute(Qt::WA_Hover);
    setAcceptDrops(true);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void CVSpanQueueDropZone::setWalkthroughString(const QString &text)
{
    if (m_walkthrough == text)
        return;
    m_walkthrough = text;
    setAccessibleDescription(m_walkthrough + u'\n' + m_summary);
    update();
}

void CVSpanQueueDropZone::setSummary(const QString &text)
{
    if (m_summary == text)
        return;
    m_summary = text;
    setAccessibleDescription(m_walkthrough + u'\n' + m_summary);
    update();
}

void CVSpanQueueDropZone::setBrowsing(bool browsing)
{
    if (m_browsing == browsing)
        return;
    m_browsing = browsing;
    update();
}

QSize CVSpanQueueDropZone::sizeHint() const
{
    return { 480, 2 * fontMetrics().height() + 22 };
}

QSize CVSpanQueueDropZone::minimumSizeHint() const
{
    return { 240, sizeHint().height() };
}

void CVSpanQueueDropZone::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QPalette &pal = palette();
    const QRectF box = QRectF(rect()).adjusted(3.5, 3.5, -3.5, -3.5);
    QColor fill = m_browsing || m_dragOver ? pal.color(QPalette::Highlight) : pal.color(QPalette::AlternateBase);
    if (m_dragOver)
        fill = m_removing ? QColor(0xd0, 0x36, 0x30) : fill;
    if (m_browsing || m_dragOver)
        fill.setAlphaF(m_dragOver ? 0.28f : 0.18f);
    p.setBrush(fill);
    const bool lit = m_hover || m_dragOver || hasFocus();
    QPen border(lit ? pal.color(QPalette::Highlight) : pal.color(QPalette::Mid), m_dragOver ? 2.5 : 1.5, Qt::DashLine);
    p.setPen(border);
    p.drawRoundedRect(box, 8, 8);

    const int iconSide = qMin(32, height() - 16);
    const QRect iconRect(int(box.left()) + 10, (height() - iconSide) / 2, iconSide, iconSide);
    CVIcons::icon(CVIcons::Kind::Queue).paint(&p, iconRect);
    const QRect text(
        iconRect.right() + 10, int(box.top()) + 4, int(box.right()) - iconRect.right() - 20, int(box.height()) - 8);
    const QFontMetrics fm = fontMetrics();
    QFont bold = font();
    bold.setBold(true);
    p.setFont(bold);
    p.setPen(pal.color(QPalette::Text));
    const QRect one(text.left(), text.center().y() - fm.height(), text.width(), fm.height());
    p.drawText(one, Qt::AlignLeft | Qt::AlignVCenter,
        QFontMetrics(bold).elidedText(m_walkthrough, Qt::ElideRight, one.width()));
    p.setFont(font());
    p.setPen(pal.color(QPalette::PlaceholderText));
    const QRect two(text.left(), one.bottom() + 1, text.width(), fm.height());
    p.drawText(two, Qt::AlignLeft | Qt::AlignVCenter, fm.elidedText(m_summary, Qt::ElideRight, two.width()));
}

void CVSpanQueueDropZone::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()))
        Q_EMIT clicked();
}

void CVSpanQueueDropZone::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        Q_EMIT clicked();
        return;
    }
    QWidget::keyPressEvent(event);
}

void CVSpanQueueDropZone::enterEvent(QEnterEvent *)
{
    m_hover = true;
    update();
    Q_EMIT mouseOverChanged(true);
}

void CVSpanQueueDropZone::leaveEvent(QEvent *)
{
    m_hover = false;
    update();
    Q_EMIT mouseOverChanged(false);
}

bool CVSpanQueueDropZone::takeDrag(QDropEvent *event)
{
    const QMimeData *mime = event->mimeData();
    // Only a drag whose last (richest) type is our predicate: a drag from elsewhere that also
    // carries one is someone else's.
    if (m_refusesDrags || !mime || mime->formats().isEmpty()
        || mime->formats().constLast() != QString::fromLatin1(CVPredicateArchive::MimeType)) {
        event->ignore();
        return false;
    }
    const bool removing = m_browsing || (event->modifiers() & Qt::AltModifier);
    if (removing != m_removing || !m_dragOver) {
        m_removing = removing;
        Q_EMIT wantsRemoveDropChanged(removing);
    }
    event->setDropAction(removing ? Qt::MoveAction : Qt::CopyAction);
    event->accept();
    return true;
}

void CVSpanQueueDropZone::dragEnterEvent(QDragEnterEvent *event)
{
    if (!takeDrag(event))
        return;
    m_dragOver = true;
    Q_EMIT dragActiveChanged(true);
    update();
}

void CVSpanQueueDropZone::dragMoveEvent(QDragMoveEvent *event)
{
    // The Alt key may change on the way.
    if (takeDrag(event))
        update();
}

void CVSpanQueueDropZone::endDrag()
{
    const bool wasRemoving = m_removing;
    m_dragOver = false;
    m_removing = false;
    if (wasRemoving)
        Q_EMIT wantsRemoveDropChanged(false);
    Q_EMIT dragActiveChanged(false);
    update();
}

void CVSpanQueueDropZone::dragLeaveEvent(QDragLeaveEvent *)
{
    if (m_dragOver)
        endDrag();
}

void CVSpanQueueDropZone::dropEvent(QDropEvent *event)
{
    if (!takeDrag(event)) {
        if (m_dragOver)
            endDrag();
        return;
    }
    const QByteArray archived = event->mimeData()->data(QString::fromLatin1(CVPredicateArchive::MimeType));
    const QPoint at = mapToGlobal(event->position().toPoint());
    // The controller reads the removal flag while it handles the drop; it is cleared after.
    m_dragOver = false;
    Q_EMIT predicateDropped(archived, at);
    endDrag();
}
