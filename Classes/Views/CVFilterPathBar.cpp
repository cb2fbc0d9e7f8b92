#include "Views/CVFilterPathBar.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QStyleOption>

CVFilterPathBar::CVFilterPathBar(QWidget *parent)
    : QWidget(parent)
{
    setFocusPolicy(Qt::TabFocus);
    setCursor(Qt::PointingHandCursor);
    setAttribute(Qt::WA_Hover);
    setAccessibleName(QStringLiteral("Filter path"));
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void CVFilterPathBar::setLines(const QString &lineOne, const QString &lineTwo)
{
    if (m_lineOne == lineOne && m_lineTwo == lineTwo)
        return;
    m_lineOne = lineOne;
    m_lineTwo = lineTwo;
    setAccessibleDescription(lineOne + u'\n' + lineTwo);
    setToolTip(lineOne + u'\n' + lineTwo);
    update();
}

void CVFilterPathBar::setIsDimmed(bool dimmed)
{
    if (m_dimmed == dimmed)
        return;
    m_dimmed = dimmed;
    update();
}

QSize CVFilterPathBar::sizeHint() const
{
    const int line = fontMetrics().height();
    return { 360, 2 * line + 10 };
}

QSize CVFilterPathBar::minimumSizeHint() const
{
    return { 160, sizeHint().height() };
}

void CVFilterPathBar::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QPalette &pal = palette();
    const QRectF box = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    p.setPen(pal.color(QPalette::Mid));
    p.setBrush(pal.color(QPalette::Base));
    p.drawRoundedRect(box, 6, 6);
    if (hasFocus()) {
        p.setPen(QPen(pal.color(QPalette::Highlight), 2));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(box.adjusted(1, 1, -1, -1), 5, 5);
    }
    const QPalette::ColorGroup group = m_dimmed ? QPalette::Disabled : QPalette::Active;
    const QFontMetrics fm = fontMetrics();
    const QRect text = rect().adjusted(10, 4, -10, -4);
    QFont bold = font();
    bold.setBold(true);
    p.setFont(bold);
    p.setPen(pal.color(group, QPalette::Text));
    const QRect one(text.left(), text.top(), text.width(), fm.height());
    p.drawText(one, Qt::AlignCenter, QFontMetrics(bold).elidedText(m_lineOne, Qt::ElideMiddle, one.width()));
    p.setFont(font());
    p.setPen(pal.color(group, QPalette::PlaceholderText));
    const QRect two(text.left(), one.bottom() + 1, text.width(), fm.height());
    p.drawText(two, Qt::AlignCenter, fm.elidedText(m_lineTwo, Qt::ElideMiddle, two.width()));
}

void CVFilterPathBar::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()))
        Q_EMIT clicked();
}

void CVFilterPathBar::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        Q_EMIT clicked();
        return;
    }
    QWidget::keyPressEvent(event);
}

void CVFilterPathBar::enterEvent(QEnterEvent *)
{
    Q_EMIT mouseOverChanged(true);
}

void CVFilterPathBar::leaveEvent(QEvent *)
{
    Q_EMIT mouseOverChanged(false);
}
