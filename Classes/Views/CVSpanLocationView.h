#pragma once

#include <QIcon>
#include <QWidget>

class QMimeData;

// The span location's area: the chosen folder's icon and name, a restore look in restore mode,
// and a dimmed look while the window is not in front. A click asks to choose a location, the
// arrow at its right end opens the history, a right click the context menu; a folder dropped
// from the file manager becomes the location.
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
    // Folders are refused while recovering from a crash during a run.
    void setRefusesDrops(bool refuse) { m_refusesDrops = refuse; }
    bool isDropHighlighted() const { return m_dropOver; }
    // The first entry of a file-manager drag when it is an existing folder, else an empty text.
    static QString droppableFolder(const QMimeData *mime);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

Q_SIGNALS:
    void clicked();
    void contextMenuRequested(const QPoint &globalPosition);
    void historyMenuRequested(const QPoint &globalPosition);
    void folderDropped(const QString &path);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    QRect arrowRect() const;
    bool takeDrag(QDropEvent *event);

    QString m_name;
    QIcon m_icon;
    bool m_restore = false;
    bool m_dimmed = false;
    bool m_refusesDrops = false;
    bool m_dropOver = false;
};
