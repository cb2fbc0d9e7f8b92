#pragma once

#include "Platform/FileSystemEvent.h"

#include <QMutex>
#include <QObject>
#include <QPointer>
#include <QStringList>

class QThread;

// Watches folder trees for changes (inotify) and hands each batch of changes, gathered for
// `notificationLatency` seconds, to a listener as one event per changed folder. The spanning
// run watches the folders it works in; nothing listens yet, so only `lastEvent` is kept.
class FileSystemEventWatcher : public QObject {
    Q_OBJECT
public:
    // Event flags, in the meanings of the design's platform event stream.
    enum Flag : quint32 {
        MustScanSubDirs = 0x00000001, // events were lost; rescan
        RootChanged = 0x00000020, // a watched path itself was created, moved or removed
        Unmount = 0x00000080,
        ItemCreated = 0x00000100,
        ItemRemoved = 0x00000200,
        ItemInodeMetaMod = 0x00000400,
        ItemRenamed = 0x00000800,
        ItemModified = 0x00001000,
        ItemIsFile = 0x00010000,
        ItemIsDir = 0x00020000,
    };
    // The flags the stream is made with (use types, watch root), kept for the description.
    static constexpr quint32 CreateFlags = 5;

    explicit FileSystemEventWatcher(QObject *parent = nullptr);
    ~FileSystemEventWatcher() override;

    // The one watcher the program shares.
    static FileSystemEventWatcher *sharedPathWatcher();

    // False, doing nothing, when the list is empty or a stream runs already. Events are
    // delivered on the current thread, or on the given one (which must run an event loop).
    bool startWatchingPaths(const QStringList &paths);
    bool startWatchingPaths(const QStringList &paths, QThread *thread);
    // Watches only these folders (and those made in them while watching), never the trees
    // below them: a run's folders, without walking the drives that hold them.
    bool startWatchingFolders(const QStringList &folders);
    bool stopWatchingPaths();
    // The folders the running stream has a watch on (0 when not watching).
    int watchCount() const;
    // Deliver what is pending now, waiting for the delivery or not. False when not watching.
    bool flushEventStreamSync();
    bool flushEventStreamAsync();

    QString streamDescription() const;
    QString description() const;

    QStringList watchedPaths() const;
    QStringList excludedPaths() const;
    void setExcludedPaths(const QStringList &paths);
    double notificationLatency() const;
    void setNotificationLatency(double seconds);
    bool ignoreEventsFromSubDirs() const;
    void setIgnoreEventsFromSubDirs(bool ignore);
    bool isWatchingPaths() const;
    FileSystemEvent lastEvent() const;
    FileSystemEventListener *delegate() const;
    void setDelegate(FileSystemEventListener *listener);

    struct Change {
        QString path;
        quint32 flags = 0;
        quint64 eventId = 0;
    };
    // Called by the stream on its thread with one gathered batch.
    void deliverBatch(const QList<Change> &batch);

Q_SIGNALS:
    void eventOccurred(const FileSystemEvent &event);

private:
    bool start(const QStringList &paths, QThread *thread, bool trees);

    mutable QMutex m_mutex;
    QStringList m_watchedPaths;
    QStringList m_excludedPaths;
    double m_latency = 3.0;
    bool m_ignoreSubDirs = true;
    FileSystemEvent m_lastEvent;
    FileSystemEventListener *m_delegate = nullptr;
    QPointer<QObject> m_stream;
};
