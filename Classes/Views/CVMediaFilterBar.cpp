#include "Views/CVMediaFilterBar.h"

#include <QLinearGradient>
#include <QPainter>
#include <QToolButton>

using namespace Qt::StringLiterals;

CVMediaFilterBar::CVMediaFilterBar(const QStringList &names, QWidget *parent)
    : QWidget(parent)
    , m_names(names)
{
    setAccessibleName(u"Media filter"_s);
    for (int i = 0; i < names.size(); ++i) {
        auto *button = new QToolButton(this);
        button->setCheckable(true);
        button->setAutoRaise(true);
        button->setToolButtonStyle(Qt::ToolButtonTextOnly);
        button->setAccessibleName(names[i]);
        button->setContextMenuPolicy(Qt::CustomContextMenu);
        connect(button, &QToolButton::clicked, this, [this, i] { Q_EMIT mediaClicked(i); });
        connect(button, &QWidget::customContextMenuRequested, this,
            [this, i, button](const QPoint &at) { Q_EMIT contextMenuRequested(i, button->mapToGlobal(at)); });
        m_buttons.append(button);
        m_counts.append(0);
    }
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    applyTitles();
}

QSize CVMediaFilterBar::sizeHint() const
{
    return { 600, m_buttons.isEmpty() ? 28 : m_buttons.first()->sizeHint().height() + 8 };
}

QSize CVMediaFilterBar::minimumSizeHint() const
{
    return { 200, sizeHint().height() };
}

void CVMediaFilterBar::setCounts(const QList<int> &counts)
{
    m_counts = counts;
    m_counts.resize(m_buttons.size());
    layoutButtons();
}

void CVMediaFilterBar::applyTitles()
{
    for (int i = 0; i < m_buttons.size(); ++i) {
        const QString title = m_countsShown ? u"%1 (%2)"_s.arg(m_names[i]).arg(m_counts[i]) : m_names[i];
        m_buttons[i]->setText(title);
        m_buttons[i]->setAccessibleDescription(u"%1 tracks"_s.arg(m_counts[i]));
    }
}

void CVMediaFilterBar::layoutButtons()
{
    // Counts shown, gap 12, padding 8; then shrink: gap down to 6, padding down to 0, and at last
    // no counts, starting over at gap 12 and padding 8.
    m_countsShown = true;
    m_gap = 12;
    m_padding = 8;
    const int barWidth = width();
    for (;;) {
        applyTitles();
        int x = 0;
        QList<QRect> frames;
        for (QToolButton *b : std::as_const(m_buttons)) {
            const QSize fitted = b->sizeHint();
            frames.append(QRect(x, (height() - fitted.height()) / 2, fitted.width() + m_padding, fitted.height()));
            x += fitted.width() + m_padding + m_gap;
        }
        const int rowWidth = frames.isEmpty() ? 0 : frames.last().right() + 1;
        const int left = qMax(0, (barWidth - rowWidth) / 2);
        for (int i = 0; i < m_buttons.size(); ++i)
            m_buttons[i]->setGeometry(frames[i].translated(left, 0));
        const int lastRight = left + rowWidth;
        if (lastRight <= barWidth - Reserve)
            return;
        if (m_gap > 6) {
            --m_gap;
        } else if (m_padding > 0) {
            --m_padding;
        } else if (m_countsShown) {
            m_countsShown = false;
            m_gap = 12;
            m_padding = 8;
        } else {
            return;
        }
    }
}

void CVMediaFilterBar::resizeEvent(QResizeEvent *)
{
    layoutButtons();
}

void CVMediaFilterBar::paintEvent(QPaintEvent *)
{
    // A soft gradient with a darker bottom line, in the palette's own shades.
    QPainter p(this);
    const QColor base = palette().color(QPalette::Window);
    QLinearGradient g(0, 0, 0, height());
    g.setColorAt(0, base.darker(108));
    g.setColorAt(1, base.lighter(104));
    p.fillRect(rect(), g);
    p.setPen(palette().color(QPalette::Mid));
    p.drawLine(0, height() - 1, width(), height() - 1);
}
