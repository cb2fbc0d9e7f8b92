#include "Views/CVSpanningView.h"

#include "Views/CVIcons.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

CVSpanningView::CVSpanningView(QWidget *parent)
    : QWidget(parent)
    , m_header(new QLabel(this))
    , m_task(new QLabel(this))
    , m_progress(new QProgressBar(this))
    , m_statistics(new QLabel(this))
    , m_spinner(new QProgressBar(this))
    , m_pause(new QPushButton(u"Pause Span"_s, this))
    , m_skip(new QPushButton(u"Skip the rest…"_s, this))
{
    setAccessibleName(u"Run"_s);
    QFont big = m_header->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    big.setBold(true);
    m_header->setFont(big);
    m_header->setAlignment(Qt::AlignCenter);
    m_header->setAccessibleName(u"Run header"_s);
    m_task->setTextFormat(Qt::PlainText);
    m_task->setAccessibleName(u"Task"_s);
    m_task->setMinimumWidth(200);
    m_task->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_progress->setTextVisible(false);
    m_progress->setAccessibleName(u"Run progress"_s);
    m_progress->setMinimumWidth(360);
    m_statistics->setTextFormat(Qt::PlainText);
    m_statistics->setAlignment(Qt::AlignCenter);
    m_statistics->setEnabled(false); // the palette's dimmed text
    m_statistics->setAccessibleName(u"Run statistics"_s);
    m_spinner->setRange(0, 0);
    m_spinner->setTextVisible(false);
    m_spinner->setFixedWidth(48);
    m_spinner->setAccessibleName(u"Waiting for the player"_s);
    m_spinner->hide();
    m_pause->setAccessibleName(u"Pause"_s);
    m_skip->setAccessibleName(u"Skip the rest"_s);
    connect(m_pause, &QPushButton::clicked, this, &CVSpanningView::pauseClicked);
    connect(m_skip, &QPushButton::clicked, this, &CVSpanningView::skipClicked);

    auto *taskRow = new QHBoxLayout;
    taskRow->addWidget(m_task, 1);
    taskRow->addWidget(m_spinner);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_pause);
    buttons->addWidget(m_skip);
    buttons->addStretch(1);

    auto *icon = new QLabel(this);
    icon->setPixmap(CVIcons::icon(CVIcons::Kind::SpanLocation).pixmap(64, 64));
    icon->setAlignment(Qt::AlignCenter);
    auto *column = new QVBoxLayout;
    column->setSpacing(10);
    column->addWidget(icon);
    column->addWidget(m_header);
    column->addSpacing(6);
    column->addLayout(taskRow);
    column->addWidget(m_progress);
    column->addWidget(m_statistics);
    column->addSpacing(6);
    column->addLayout(buttons);

    auto *centre = new QHBoxLayout;
    centre->addStretch(1);
    centre->addLayout(column, 6);
    centre->addStretch(1);
    auto *layout = new QVBoxLayout(this);
    layout->addStretch(2);
    layout->addLayout(centre);
    layout->addStretch(3);
}

void CVSpanningView::setHeader(const QString &text)
{
    m_header->setText(text);
}

QString CVSpanningView::header() const
{
    return m_header->text();
}

void CVSpanningView::setTaskLine(const QString &text, Qt::Alignment alignment)
{
    // Tabs in the task texts line the titles up; a label shows them as blanks.
    QString shown = text;
    shown.replace(u'\t', u"  "_s);
    m_task->setText(m_task->fontMetrics().elidedText(shown, Qt::ElideMiddle, qMax(80, m_task->width())));
    m_task->setToolTip(text);
    m_task->setAccessibleDescription(text);
    m_task->setAlignment((alignment & Qt::AlignHorizontal_Mask) | Qt::AlignVCenter);
}

QString CVSpanningView::taskLine() const
{
    return m_task->accessibleDescription();
}

void CVSpanningView::setProgress(double value, double maximum, bool indeterminate)
{
    if (indeterminate) {
        m_progress->setRange(0, 0);
        return;
    }
    // Whole steps, scaled so that a bar of any length moves smoothly.
    const int max = maximum > 0 ? 1000 : 1;
    const int at = maximum > 0 ? int(std::lround(std::clamp(value / maximum, 0.0, 1.0) * 1000)) : 0;
    m_progress->setRange(0, max);
    m_progress->setValue(at);
}

void CVSpanningView::setStatistics(const QString &text)
{
    m_statistics->setText(text);
}

QString CVSpanningView::statistics() const
{
    return m_statistics->text();
}

void CVSpanningView::setWaitingForPlayer(bool waiting)
{
    m_spinner->setVisible(waiting);
}

bool CVSpanningView::isWaitingForPlayer() const
{
    return !m_spinner->isHidden();
}

void CVSpanningView::setPauseTitle(const QString &title)
{
    m_pause->setText(title);
}

void CVSpanningView::setSkipTitle(const QString &title)
{
    m_skip->setText(title);
}

void CVSpanningView::setControlsEnabled(bool enabled)
{
    m_pause->setEnabled(enabled);
    m_skip->setEnabled(enabled);
}
