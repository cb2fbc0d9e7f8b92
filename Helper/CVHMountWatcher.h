#pragma once

#include <QHash>
#include <QObject>
#include <QSet>
#include <QStringList>

class QSocketNotifier;

// The mount points of this process's mount namespace, kept current: the kernel marks
// /proc/self/mountinfo with POLLPRI when the table changes, so the helper sleeps in poll()
// until a drive comes or goes.
class CVHMountWatcher : public QObject {
    Q_OBJECT

public:
    explicit CVHMountWatcher(QObject *parent = nullptr);
    ~CVHMountWatcher() override;

    bool start(QString *error);
    bool isMountPoint(const QString &path) const { return m_mountPoints.contains(path); }
    QSet<QString> mountPoints() const { return m_mountPoints; }

    // Mount ID -> mount point in the text of mountinfo, with its octal escapes undone. A drive
    // unplugged and plugged again between two reads comes back under a new ID; a mount moved
    // elsewhere keeps its ID.
    static QHash<int, QString> parseMountInfo(const QByteArray &text);

Q_SIGNALS:
    void mountsAppeared(const QStringList &mountPoints);
    void mountsDisappeared(const QStringList &mountPoints);

private:
    void reread();
    QByteArray readTable();

    int m_fd = -1;
    QSocketNotifier *m_notifier = nullptr;
    QHash<int, QString> m_mounts;
    QSet<QString> m_mountPoints;
};
