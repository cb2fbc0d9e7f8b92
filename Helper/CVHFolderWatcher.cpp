#include "CVHFolderWatcher.h"

#include <QFile>
#include <QSocketNotifier>

#include <cerrno>
#include <sys/inotify.h>
#include <unistd.h>

CVHFolderWatcher::CVHFolderWatcher(QObject *parent)
    : QObject(parent)
{
}

CVHFolderWatcher::~CVHFolderWatcher()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

bool CVHFolderWatcher::watch(const QString &folder, quint32 inotifyMask)
{
    if (m_fd < 0) {
        m_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (m_fd < 0)
            return false;
        m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
        connect(m_notifier, &QSocketNotifier::activated, this, &CVHFolderWatcher::readEvents);
    }
    const int wd = ::inotify_add_watch(m_fd, QFile::encodeName(folder).constData(), inotifyMask | IN_ONLYDIR);
    if (wd < 0)
        return false;
    m_folders.insert(wd, folder);
    return true;
}

void CVHFolderWatcher::readEvents()
{
    alignas(inotify_event) char buffer[8192];
    for (;;) {
        const ssize_t n = ::read(m_fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        for (ssize_t offset = 0; offset < n;) {
            const auto *event = reinterpret_cast<const inotify_event *>(buffer + offset);
            offset += ssize_t(sizeof(inotify_event) + event->len);
            const QString folder = m_folders.value(event->wd);
            if (event->mask & IN_IGNORED)
                m_folders.remove(event->wd);
            if (!folder.isEmpty())
                Q_EMIT changed(folder, event->len ? QFile::decodeName(event->name) : QString(), event->mask);
        }
    }
}
