#include "Platform/CVLog.h"

#include <QMutex>

#include <cstdio>
#include <syslog.h>

namespace {

QMutex &sinkMutex()
{
    static QMutex mutex;
    return mutex;
}

std::function<void(const QString &)> &sink()
{
    static std::function<void(const QString &)> s;
    return s;
}

QStringList &recent()
{
    static QStringList lines;
    return lines;
}

} // namespace

void CVLog::log(const QString &line)
{
    QMutexLocker lock(&sinkMutex());
    recent().append(line);
    if (recent().size() > 50)
        recent().removeFirst();
    if (sink()) {
        sink()(line);
        return;
    }
    static const bool opened = [] {
        openlog("Corvana", LOG_PID, LOG_USER);
        return true;
    }();
    Q_UNUSED(opened)
    const QByteArray utf8 = line.toUtf8();
    syslog(LOG_NOTICE, "%s", utf8.constData());
    std::fprintf(stderr, "Corvana: %s\n", utf8.constData());
}

void CVLog::setSink(std::function<void(const QString &)> s)
{
    QMutexLocker lock(&sinkMutex());
    sink() = std::move(s);
}

QStringList CVLog::recentLines()
{
    QMutexLocker lock(&sinkMutex());
    return recent();
}
