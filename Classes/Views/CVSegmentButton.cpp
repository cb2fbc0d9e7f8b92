#include "Views/CVSegmentButton.h"

#include <QStyleOptionToolButton>
#include <QStylePainter>

CVSegmentButton::CVSegmentButton(const QString &text, QWidget *parent)
    : QToolButton(parent)
{
    setText(text);
    setAccessibleName(text);
    setCheckable(true);
    setFocusPolicy(Qt::StrongFocus);
    setToolButtonStyle(Qt::ToolButtonTextOnly);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

void CVSegmentButton::paintEvent(QPaintEvent *)
{
    QStylePainter painter(this);
    QStyleOptionToolButton option;
    initStyleOption(&option);
    if (isChecked()) {
        // Read from the palette at paint time, so a change of the desktop's palette shows at once. A
        // disabled choice stays readable, its colour halfway to the window's.
        QColor fill = option.palette.color(QPalette::Active, QPalette::Highlight);
        if (!isEnabled()) {
            const QColor window = option.palette.color(QPalette::Window);
            fill = QColor((fill.red() + window.red()) / 2, (fill.green() + window.green()) / 2,
                (fill.blue() + window.blue()) / 2);
        }
        option.palette.setColor(QPalette::Button, fill);
        option.palette.setColor(
            QPalette::ButtonText, option.palette.color(QPalette::Active, QPalette::HighlightedText));
        painter.fillRect(rect().adjusted(1, 1, -1, -1), fill);
        option.state &= ~(QStyle::State_On | QStyle::State_Sunken);
        option.state |= QStyle::State_Raised | QStyle::State_Enabled;
    }
    painter.drawComplexControl(QStyle::CC_ToolButton, option);
}
