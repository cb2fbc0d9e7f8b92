#include "Platform/FileSystemEventWatcher.h"

#include <QDirIterator>
#include <QFile>
#include <QHash>
#include <QSet>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <cerrno>
#include <sys/inotify.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

std::atomic<quint64> nextEventId { 1 };

constexpr quint32 kFolderMask = IN_CREATE | IN_DELETE | IN_MODIFY | IN_ATTRIB | IN_MOVED_FROM | IN_MOVED_TO
    | IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW;
// A drive may hold many folders; past this many watches the rest of a tree goes unwatched
// and the root reports MustScanSubDirs instead of exhausting the user's inotify watches.
constexpr int kMaxWatches = 100000;

QString withoutTrailingSlash(QString path)
{
    if (path.size() > 1 && path.endsWith(u'/'))
        path.chop(1);
    return path;
}

quint32 flagsFor(quint32 mask)
{
    using W = FileSystemEventWatcher;
    quint32 flags = 0;
    if (mask & IN_Q_OVERFLOW)
        flags |= W::MustScanSubDirs;
    if (mask & IN_UNMOUNT)
        flags |= W::Unmount;
    if (mask & IN_CREATE)
        flags |= W::ItemCreated;
    if (mask & IN_DELETE)
        flags |= W::ItemRemoved;
    if (mask & IN_ATTRIB)
        flags |= W::ItemInodeMetaMod;
    if (mask & (IN_MOVED_FROM | IN_MOVED_TO))
        flags |= W::ItemRenamed;
    if (mask & (IN_MODIFY | IN_CLOSE_WRITE))
        flags |= W::ItemModified;
    if (mask & (IN_DELETE_SELF | IN_MOVE_SELF))
        flags |= W::RootChanged;
    if (flags & (W::ItemCreated | W::ItemRemoved | W::ItemInodeMetaMod | W::ItemRenamed | W::ItemModified))
        flags |= (mask & IN_ISDIR) ? W::ItemIsDir : W::ItemIsFile;
    return flags;
}

// One running inotify stream. It lives on the thread that receives the events.
class CVInotifyStream : public QObject {
public:
    CVInotifyStream(FileSystemEventWatcher *watcher, const QStringList &roots, double latency, bool trees)
        : m_watcher(watcher)
        , m_roots(roots)
        , m_latencyMs(int(latency * 1000))
        , m_trees(trees)
    {
    }

    ~CVInotifyStream() override
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }

    void start()
    {
        m_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (m_fd < 0)
            return;
        for (const QString &root : std::as_const(m_roots))
            addRoot(root);
        m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
        QObject::connect(m_notifier, &QSocketNotifier::activated, this, [this] { readEvents(); });
        m_timer = new QTimer(this);
        m_timer->setSingleShot(true);
        QObject::connect(m_timer, &QTimer::timeout, this, [this] { deliver(); });
    }

    void flush()
    {
        readEvents();
        deliver();
    }

    QString describe() const
    {
        return u"inotify stream: fd %1, %2 folders watched %3 %4, latency %5 s, flags %6"_s.arg(QString::number(m_fd),
            QString::number(m_folders.size()), m_trees ? u"under"_s : u"among"_s, m_roots.join(u", "_s),
            QString::number(m_latencyMs / 1000.0), QString::number(FileSystemEventWatcher::CreateFlags));
    }

    int watchCount() const { return int(m_folders.size()); }

private:
    void addRoot(const QString &root)
    {
        if (QFileInfo::exists(root)) {
            addWatched(root);
            return;
        }
        // The root is not there yet (a drive not mounted): watch the nearest existing folder
        // above it, so that its appearance is seen.
        QString parent = root;
        while (parent.size() > 1 && !QFileInfo::exists(parent))
            parent = parent.left(qMax<qsizetype>(1, parent.lastIndexOf(u'/')));
        addFolder(parent);
        m_waitingRoots.append(root);
    }

    // A root: with its whole tree, or (watching folders) only itself.
    void addWatched(const QString &folder)
    {
        if (m_trees) {
            addTree(folder);
        } else if (addFolder(folder)) {
            m_watched.insert(withoutTrailingSlash(folder));
        }
    }

    void addTree(const QString &folder)
    {
        if (!addFolder(folder))
            return;
        if (!m_trees)
            m_watched.insert(withoutTrailingSlash(folder));
        QDirIterator it(
            folder, QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden | QDir::NoSymLinks, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString next = it.next();
            if (!addFolder(next)) {
                note(folder, FileSystemEventWatcher::MustScanSubDirs, nextEventId++);
                return;
            }
            if (!m_trees)
                m_watched.insert(next);
        }
    }

    bool addFolder(const QString &folder)
    {
        if (m_folders.size() >= kMaxWatches)
            return false;
        const int wd = ::inotify_add_watch(m_fd, QFile::encodeName(folder).constData(), kFolderMask);
        if (wd < 0)
            return errno != ENOSPC;
        m_folders.insert(wd, withoutTrailingSlash(folder));
        return true;
    }

    void readEvents()
    {
        if (m_fd < 0)
            return;
        alignas(struct inotify_event) char buffer[64 * 1024];
        for (;;) {
            const ssize_t n = ::read(m_fd, buffer, sizeof buffer);
            if (n <= 0)
                break;
            for (char *p = buffer; p < buffer + n;) {
                const auto *event = reinterpret_cast<const struct inotify_event *>(p);
                handle(*event);
                p += sizeof(struct inotify_event) + event->len;
            }
        }
    }

    void handle(const struct inotify_event &event)
    {
        const quint64 id = nextEventId++;
        if (event.mask & IN_Q_OVERFLOW) {
            for (const QString &root : std::as_const(m_roots))
                note(root, FileSystemEventWatcher::MustScanSubDirs, id);
            return;
        }
        const QString folder = m_folders.value(event.wd);
        if (event.mask & IN_IGNORED) {
            m_watched.remove(m_folders.take(event.wd));
            return;
        }
        if (folder.isEmpty())
            return;
        const QString name = event.len > 0 ? QFile::decodeName(event.name) : QString();
        const QString child = name.isEmpty() ? folder
            : folder == u"/"_s               ? QString(folder + name)
                                             : QString(folder + u'/' + name);
        const bool watched = insideRoots(folder);
        if (watched && (event.mask & (IN_CREATE | IN_MOVED_TO)) && (event.mask & IN_ISDIR))
            addTree(child);
        for (qsizetype i = m_waitingRoots.size() - 1; i >= 0; --i) {
            const QString &root = m_waitingRoots[i];
            if (root == child || root.startsWith(child + u'/')) {
                if (QFileInfo::exists(root)) {
                    addWatched(root);
                    note(root, FileSystemEventWatcher::RootChanged, id);
                    m_waitingRoots.removeAt(i);
                } else if (event.mask & IN_ISDIR) {
                    addFolder(child);
                }
            }
        }
        // Folders above a root that is not there yet are watched only to see it appear.
        if (!watched)
            return;
        if ((event.mask & (IN_DELETE_SELF | IN_MOVE_SELF)) && !m_roots.contains(folder))
            return; // a sub-folder going away is reported by its parent
        note(folder, flagsFor(event.mask), id);
    }

    bool insideRoots(const QString &folder) const
    {
        if (!m_trees)
            return m_watched.contains(folder);
        return std::any_of(m_roots.cbegin(), m_roots.cend(), [&](const QString &root) {
            return folder == root || folder.startsWith(root == u"/"_s ? root : QString(root + u'/'));
        });
    }

    void note(const QString &path, quint32 flags, quint64 id)
    {
        const auto it = m_index.constFind(path);
        if (it == m_index.cend()) {
            m_index.insert(path, m_pending.size());
            m_pending.append({ path, flags, id });
        } else {
            auto &change = m_pending[*it];
            change.flags |= flags;
            change.eventId = id;
        }
        if (m_timer && !m_timer->isActive())
            m_timer->start(m_latencyMs);
    }

    void deliver()
    {
        if (m_timer)
            m_timer->stop();
        if (m_pending.isEmpty())
            return;
        const QList<FileSystemEventWatcher::Change> batch = std::exchange(m_pending, {});
        m_index.clear();
        m_watcher->deliverBatch(batch);
    }

    FileSystemEventWatcher *m_watcher;
    QStringList m_roots;
    QStringList m_waitingRoots;
    int m_latencyMs;
    // Whole trees, or only the given folders and those made in them while the stream runs.
    bool m_trees;
    QSet<QString> m_watched; // watching folders: the folders whose events count
    int m_fd = -1;
    QSocketNotifier *m_notifier = nullptr;
    QTimer *m_timer = nullptr;
    QHash<int, QString> m_folders;
    QList<FileSystemEventWatcher::Change> m_pending;
    QHash<QString, qsizetype> m_index;
};

// Runs `work` on the stream's thread and waits for it.
template<typename F>
void onStreamThread(QObject *stream, F work)
{
    if (stream->thread() == QThread::currentThread())
        work();
    else
        QMetaObject::invokeMethod(stream, work, Qt::BlockingQueuedConnection);
}

} // namespace

FileSystemEventWatcher::FileSystemEventWatcher(QObject *parent)
    : QObject(parent)
{
}

FileSystemEventWatcher::~FileSystemEventWatcher()
{
    stopWatchingPaths();
}

FileSystemEventWatcher *FileSystemEventWatcher::sharedPathWatcher()
{
    static FileSystemEventWatcher *shared = new FileSystemEventWatcher;
    return shared;
}

bool FileSystemEventWatcher::startWatchingPaths(const QStringList &paths)
{
    return startWatchingPaths(paths, QThread::currentThread());
}

bool FileSystemEventWatcher::startWatchingFolders(const QStringList &folders)
{
    return start(folders, QThread::currentThread(), false);
}

int FileSystemEventWatcher::watchCount() const
{
    QMutexLocker lock(&m_mutex);
    auto *stream = static_cast<CVInotifyStream *>(m_stream.data());
    lock.unlock();
    if (!stream)
        return 0;
    int count = 0;
    onStreamThread(stream, [stream, &count] { count = stream->watchCount(); });
    return count;
}

bool FileSystemEventWatcher::startWatchingPaths(const QStringList &paths, QThread *thread)
{
    return start(paths, thread, true);
}

bool FileSystemEventWatcher::start(const QStringList &paths, QThread *thread, bool trees)
{
    QMutexLocker lock(&m_mutex);
    if (paths.isEmpty() || m_stream)
        return false;
    m_watchedPaths = paths;
    QStringList roots;
    for (const QString &path : paths)
        roots.append(withoutTrailingSlash(path));
    auto *stream = new CVInotifyStream(this, roots, m_latency, trees);
    stream->moveToThread(thread);
    m_stream = stream;
    lock.unlock();
    onStreamThread(stream, [stream] { stream->start(); });
    return true;
}

bool FileSystemEventWatcher::stopWatchingPaths()
{
    QMutexLocker lock(&m_mutex);
    QObject *stream = m_stream.data();
    if (!stream)
        return false;
    m_stream.clear();
    lock.unlock();
    onStreamThread(stream, [stream] { delete stream; });
    return true;
}

bool FileSystemEventWatcher::flushEventStreamSync()
{
    QMutexLocker lock(&m_mutex);
    auto *stream = static_cast<CVInotifyStream *>(m_stream.data());
    lock.unlock();
    if (!stream)
        return false;
    onStreamThread(stream, [stream] { stream->flush(); });
    return true;
}

bool FileSystemEventWatcher::flushEventStreamAsync()
{
    QMutexLocker lock(&m_mutex);
    auto *stream = static_cast<CVInotifyStream *>(m_stream.data());
    lock.unlock();
    if (!stream)
        return false;
    QMetaObject::invokeMethod(
        stream, [stream] { stream->flush(); }, Qt::QueuedConnection);
    return true;
}

QString FileSystemEventWatcher::streamDescription() const
{
    QMutexLocker lock(&m_mutex);
    auto *stream = static_cast<CVInotifyStream *>(m_stream.data());
    if (!stream)
        return u"The event stream is not running. Start it by calling: startWatchingPaths:"_s;
    return stream->describe();
}

QString FileSystemEventWatcher::description() const
{
    QMutexLocker lock(&m_mutex);
    return u"FileSystemEventWatcher: watching %1 [%2], excluding [%3], latency %4 s, ignoring sub-folders %5, last event %6"_s
        .arg(m_stream ? u"yes"_s : u"no"_s, m_watchedPaths.join(u", "_s), m_excludedPaths.join(u", "_s),
            QString::number(m_latency), m_ignoreSubDirs ? u"yes"_s : u"no"_s, m_lastEvent.description());
}

QStringList FileSystemEventWatcher::watchedPaths() const
{
    QMutexLocker lock(&m_mutex);
    return m_watchedPaths;
}

QStringList FileSystemEventWatcher::excludedPaths() const
{
    QMutexLocker lock(&m_mutex);
    return m_excludedPaths;
}

void FileSystemEventWatcher::setExcludedPaths(const QStringList &paths)
{
    QMutexLocker lock(&m_mutex);
    m_excludedPaths = paths;
}

double FileSystemEventWatcher::notificationLatency() const
{
    QMutexLocker lock(&m_mutex);
    return m_latency;
}

void FileSystemEventWatcher::setNotificationLatency(double seconds)
{
    QMutexLocker lock(&m_mutex);
    m_latency = qMax(0.0, seconds);
}

bool FileSystemEventWatcher::ignoreEventsFromSubDirs() const
{
    QMutexLocker lock(&m_mutex);
    return m_ignoreSubDirs;
}

void FileSystemEventWatcher::setIgnoreEventsFromSubDirs(bool ignore)
{
    QMutexLocker lock(&m_mutex);
    m_ignoreSubDirs = ignore;
}

bool FileSystemEventWatcher::isWatchingPaths() const
{
    QMutexLocker lock(&m_mutex);
    return !m_stream.isNull();
}

FileSystemEvent FileSystemEventWatcher::lastEvent() const
{
    QMutexLocker lock(&m_mutex);
    return m_lastEvent;
}

FileSystemEventListener *FileSystemEventWatcher::delegate() const
{
    QMutexLocker lock(&m_mutex);
    return m_delegate;
}

void FileSystemEventWatcher::setDelegate(FileSystemEventListener *listener)
{
    QMutexLocker lock(&m_mutex);
    m_delegate = listener;
}

void FileSystemEventWatcher::deliverBatch(const QList<Change> &batch)
{
    QMutexLocker lock(&m_mutex);
    const QStringList excluded = m_excludedPaths;
    const bool ignoreSubDirs = m_ignoreSubDirs;
    FileSystemEventListener *listener = m_delegate;
    lock.unlock();

    const QDateTime now = QDateTime::currentDateTime();
    for (const Change &change : batch) {
        if (excluded.contains(change.path))
            continue;
        if (ignoreSubDirs) {
            const bool inside = std::any_of(excluded.cbegin(), excluded.cend(),
                [&](const QString &folder) { return change.path.startsWith(folder); });
            if (inside)
                continue;
        }
        const FileSystemEvent event
            = FileSystemEvent::eventWithEventId(change.eventId, now, withoutTrailingSlash(change.path), change.flags);
        if (listener)
            listener->pathWatcher(this, event);
        Q_EMIT eventOccurred(event);
        lock.relock();
        m_lastEvent = event;
        lock.unlock();
    }
}
