#include "CVHMountWatcher.h"

#include <QFile>
#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

CVHMountWatcher::CVHMountWatcher(QObject *parent)
    : QObject(parent)
{
}

CVHMountWatcher::~CVHMountWatcher()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

bool CVHMountWatcher::start(QString *error)
{
    m_fd = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    if (m_fd < 0) {
        if (error)
            *error = u"Cannot read /proc/self/mountinfo: %1"_s.arg(QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    m_mounts = parseMountInfo(readTable());
    m_mountPoints = QSet<QString>(m_mounts.cbegin(), m_mounts.cend());
    // The file always reads as ready; only the exceptional condition means "changed".
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Exception, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &CVHMountWatcher::reread);
    return true;
}

QByteArray CVHMountWatcher::readTable()
{
    QByteArray text;
    if (::lseek(m_fd, 0, SEEK_SET) < 0)
        return text;
    char buffer[16384];
    for (;;) {
        const ssize_t n = ::read(m_fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        text.append(buffer, n);
    }
    return text;
}

QHash<int, QString> CVHMountWatcher::parseMountInfo(const QByteArray &text)
{
    QHash<int, QString> points;
    for (const QByteArray &line : text.split('\n')) {
        // id parent major:minor root mount-point options ...
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() < 5)
            continue;
        const QByteArray &escaped = fields[4];
        QByteArray point;
        point.reserve(escaped.size());
        for (qsizetype i = 0; i < escaped.size(); ++i) {
            if (escaped[i] == '\\' && i + 3 < escaped.size() && escaped[i + 1] >= '0' && escaped[i + 1] <= '7') {
                point.append(char(escaped.mid(i + 1, 3).toInt(nullptr, 8)));
                i += 3;
            } else {
                point.append(escaped[i]);
            }
        }
        points.insert(fields[0].toInt(), QFile::decodeName(point));
    }
    return points;
}

void CVHMountWatcher::reread()
{
    const QHash<int, QString> now = parseMountInfo(readTable());
    QStringList appeared, disappeared;
    for (auto it = m_mounts.cbegin(); it != m_mounts.cend(); ++it)
        if (now.value(it.key()) != it.value() && !disappeared.contains(it.value()))
            disappeared.append(it.value());
    for (auto it = now.cbegin(); it != now.cend(); ++it)
        if (m_mounts.value(it.key()) != it.value() && !appeared.contains(it.value()))
            appeared.append(it.value());
    m_mounts = now;
    m_mountPoints = QSet<QString>(m_mounts.cbegin(), m_mounts.cend());
    if (!disappeared.isEmpty())
        Q_EMIT mountsDisappeared(disappeared);
    if (!appeared.isEmpty())
        Q_EMIT mountsAppeared(appeared);
}
