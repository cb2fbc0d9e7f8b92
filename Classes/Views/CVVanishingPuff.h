#pragma once

#include <QWidget>

class QVariantAnimation;

// The little cloud that shows where something vanished: a borderless window at a point of
// the screen that grows and fades out in a third of a second, then deletes itself.
class CVVanishingPuff : public QWidget {
    Q_OBJECT

public:
    static constexpr int DurationMs = 350;

    // Shows a puff centred on the point (global coordinates); it owns itself.
    static CVVanishingPuff *showAt(const QPoint &globalCentre);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    explicit CVVanishingPuff(const QPoint &globalCentre);

    QVariantAnimation *m_animation;
    qreal m_phase = 0; // 0 at the start, 1 when gone
};
