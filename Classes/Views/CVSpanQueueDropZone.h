#pragma once

#include <QWidget>

// The spanning queue's area at the foot of the window: the walk-through line that tells the
// next step, and the queue's summary. Clicking it toggles browsing the queue; the mouse over
// it changes the walk-through line, so the controller is told.
class CVSpanQueueDropZone : public QWidget {
    Q_OBJECT

public:
    explicit CVSpanQueueDropZone(QWidget *parent = nullptr);

    void setWalkthroughString(const QString &text);
    QString walkthroughString() const { return m_walkthrough; }
    void setSummary(const QString &text);
    QString summary() const { return m_summary; }
    void setBrowsing(bool browsing);
    bool isBrowsing() const { return m_browsing; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

Q_SIGNALS:
    void clicked();
    void mouseOverChanged(bool over);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    QString m_walkthrough;
    QString m_summary;
    bool m_browsing = false;
    bool m_hover = false;
};
