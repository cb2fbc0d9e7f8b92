#pragma once

#include <QIcon>
#include <QWidget>

// The span location's area: the chosen folder's icon and name, a restore look in restore mode,
// and a dimmed look while the window is not in front. A click asks to choose a location.
class CVSpanLocationView : public QWidget {
    Q_OBJECT

public:
    explicit CVSpanLocationView(QWidget *parent = nullptr);

    void setLocationName(const QString &name);
    QString locationName() const { return m_name; }
    void setLocationIcon(const QIcon &icon);
    void setRestoreMode(bool restore);
    bool restoreMode() const { return m_restore; }
    void setDimmed(bool dimmed);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

Q_SIGNALS:
    void clicked();
    void contextMenuRequested(const QPoint &globalPosition);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;

private:
    QString m_name;
    QIcon m_icon;
    bool m_restore = false;
    bool m_dimmed = false;
};
