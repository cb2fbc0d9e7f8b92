#pragma once

#include <QHash>
#include <QObject>
#include <QString>

class QSocketNotifier;

// A few folders watched with inotify, each for its own events; the helper sleeps until one
// of them happens.
class CVHFolderWatcher : public QObject {
    Q_OBJECT

public:
    explicit CVHFolderWatcher(QObject *parent = nullptr);
    ~CVHFolderWatcher() override;

    // False when the folder cannot be watched (missing, say).
    bool watch(const QString &folder, quint32 inotifyMask);

Q_SIGNALS:
    void changed(const QString &folder, const QString &name, quint32 mask);

private:
    void readEvents();

    int m_fd = -1;
    QSocketNotifier *m_notifier = nullptr;
    QHash<int, QString> m_folders;
};
