#pragma once

#include <QWidget>

// The two-line bar that says which filters are in force. Clicking it opens the filter pop-over;
// the controller is told when the mouse enters and leaves, since line two then changes.
class CVFilterPathBar : public QWidget {
    Q_OBJECT

public:
    explicit CVFilterPathBar(QWidget *parent = nullptr);

    void setLines(const QString &lineOne, const QString &lineTwo);
    QString lineOneString() const { return m_lineOne; }
    QString lineTwoString() const { return m_lineTwo; }
    void setIsDimmed(bool dimmed);
    bool isDimmed() const { return m_dimmed; }

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
    QString m_lineOne;
    QString m_lineTwo;
    bool m_dimmed = false;
};
