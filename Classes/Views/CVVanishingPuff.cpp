#include "Views/CVVanishingPuff.h"

#include <QPainter>
#include <QPainterPath>
#include <QVariantAnimation>

using namespace Qt::StringLiterals;

namespace {

constexpr int kSide = 72;

} // namespace

CVVanishingPuff::CVVanishingPuff(const QPoint &globalCentre)
    : QWidget(nullptr, Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus)
    , m_animation(new QVariantAnimation(this))
{
    setObjectName(u"CVVanishingPuff"_s);
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_DeleteOnClose);
    resize(kSide, kSide);
    move(globalCentre - QPoint(kSide / 2, kSide / 2));
    m_animation->setDuration(DurationMs);
    m_animation->setStartValue(0.0);
    m_animation->setEndValue(1.0);
    m_animation->setEasingCurve(QEasingCurve::OutQuad);
    connect(m_animation, &QVariantAnimation::valueChanged, this, [this](const QVariant &value) {
        m_phase = value.toReal();
        update();
    });
    connect(m_animation, &QVariantAnimation::finished, this, &QWidget::close);
}

CVVanishingPuff *CVVanishingPuff::showAt(const QPoint &globalCentre)
{
    auto *puff = new CVVanishingPuff(globalCentre);
    puff->show();
    puff->m_animation->start();
    return puff;
}

void CVVanishingPuff::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setOpacity(1.0 - m_phase);
    const QPointF c = QRectF(rect()).center();
    const qreal r = kSide * (0.18 + 0.2 * m_phase);
    // A cloud of five overlapping discs that drift apart as it fades.
    QPainterPath cloud;
    cloud.addEllipse(c, r, r * 0.8);
    const QPointF offsets[] = { { -1, -0.5 }, { 1, -0.5 }, { -0.8, 0.6 }, { 0.8, 0.6 } };
    for (const QPointF &o : offsets)
        cloud.addEllipse(c + o * r * (0.7 + 0.5 * m_phase), r * 0.6, r * 0.55);
    p.setPen(QPen(QColor(0x70, 0x70, 0x70, 160), 1.5));
    p.setBrush(QColor(0xf4, 0xf4, 0xf4, 230));
    p.drawPath(cloud.simplified());
}
