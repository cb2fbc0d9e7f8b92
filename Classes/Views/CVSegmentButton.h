#pragma once

#include <QToolButton>

// One segment of a CVSegmentedControl: a checkable button that, when chosen, is drawn in the
// palette's highlight colours, so that the choice reads at a glance in light and dark palettes.
class CVSegmentButton : public QToolButton {
    Q_OBJECT

public:
    explicit CVSegmentButton(const QString &text, QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;
};
