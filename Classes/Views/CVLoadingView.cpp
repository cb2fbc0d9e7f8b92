#include "Views/CVLoadingView.h"

#include "Views/CVIcons.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>

#include <cmath>

using namespace Qt::StringLiterals;

CVLoadingView::CVLoadingView(QWidget *parent)
    : QWidget(parent)
    , m_status(new QLabel(this))
    , m_progress(new QProgressBar(this))
{
    auto *icon = new QLabel(this);
    icon->setPixmap(CVIcons::icon(CVIcons::Kind::Application).pixmap(48, 48));
    icon->setAccessibleName(u"Corvana"_s);
    auto *title = new QLabel(u"Corvana"_s, this);
    QFont big = title->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    big.setBold(true);
    title->setFont(big);

    m_status->setText(u"Preparing to Load iTunes Library Database"_s);
    m_status->setAccessibleName(u"Loading status"_s);
    m_status->setWordWrap(true);
    m_progress->setRange(0, 0);
    m_progress->setTextVisible(false);
    m_progress->setAccessibleName(u"Loading progress"_s);

    auto *header = new QHBoxLayout;
    header->addWidget(icon);
    header->addWidget(title, 1);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 20, 24, 20);
    layout->addLayout(header);
    layout->addStretch(1);
    layout->addWidget(m_progress);
    layout->addWidget(m_status);
    layout->addStretch(1);
}

QString CVLoadingView::statusText() const
{
    return m_status->text();
}

void CVLoadingView::setStatusText(const QString &text)
{
    m_status->setText(text);
}

void CVLoadingView::setProgressIndeterminate(bool animating)
{
    if (animating)
        m_progress->setRange(0, 0);
}

void CVLoadingView::setProgress(double maximum, double value)
{
    // A bar's range is an int: large counts are shown in thousandths.
    constexpr double steps = 1000;
    m_progress->setRange(0, int(steps));
    m_progress->setValue(maximum > 0 ? int(std::lround(steps * qBound(0.0, value / maximum, 1.0))) : 0);
}
