#include "Engine/CVPlayerJournal.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

bool CVPlayerJournal::appendLine(const QString &path, const QByteArray &line, int *error)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        if (error)
            *error = errno;
        return false;
    }
    errno = 0;
    const bool ok = ::write(fd, line.constData(), size_t(line.size())) == line.size();
    if (!ok && error)
        *error = errno ? errno : EIO;
    ::close(fd);
    return ok;
}

QList<QByteArray> CVPlayerJournal::completeLines(const QString &path)
{
    QList<QByteArray> lines;
    QFile journal(path);
    if (!journal.open(QIODevice::ReadOnly))
        return lines;
    const QByteArray bytes = journal.readAll();
    qsizetype start = 0;
    for (;;) {
        const qsizetype end = bytes.indexOf('\n', start);
        if (end < 0)
            break; // a line cut short by a crash was never acknowledged
        lines.append(bytes.mid(start, end - start));
        start = end + 1;
    }
    return lines;
}
