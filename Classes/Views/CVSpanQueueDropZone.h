#pragma once

#include <QWidget>

// The spanning queue's area at the foot of the window: the walk-through line that tells the
// next step, and the queue's summary. Clicking it toggles browsing the queue; the mouse over
// it changes the walk-through line, so the controller is told. It takes the panes' drags (an
// archived predicate): an addition, or a removal while Alt is held or the queue is browsed.
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
    // Drags are refused while recovering from a crash during a run.
    void setRefusesDrags(bool refuse) { m_refusesDrags = refuse; }
    bool refusesDrags() const { return m_refusesDrags; }
    bool isDragOver() const { return m_dragOver; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

Q_SIGNALS:
    void clicked();
    void mouseOverChanged(bool over);
    // A drag of ours is over the zone (true) or has left or dropped (false).
    void dragActiveChanged(bool active);
    // Whether the drag over the zone would remove rather than add.
    void wantsRemoveDropChanged(bool remove);
    // The archived predicate, and where it was dropped (global coordinates).
    void predicateDropped(const QByteArray &archived, const QPoint &globalPosition);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    // Accepts the drag as an addition or a removal; false when it is none of ours.
    bool takeDrag(QDropEvent *event);
    void endDrag();

    QString m_walkthrough;
    QString m_summary;
    bool m_browsing = false;
    bool m_hover = false;
    bool m_refusesDrags = false;
    bool m_dragOver = false;
    bool m_removing = false;
};
