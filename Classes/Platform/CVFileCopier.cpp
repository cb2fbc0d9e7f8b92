#include "Platform/CVFileCopier.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QString describe(int error)
{
    return QString::fromLocal8Bit(strerror(error));
}

// Closes a descriptor when it goes out of scope.
struct Descriptor {
    int fd = -1;
    ~Descriptor()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

// Filesystems (by device) that have refused a reflink: not asked again.
QSet<dev_t> &noReflink()
{
    static QSet<dev_t> devices;
    return devices;
}
QMutex reflinkMutex;

bool copyBytes(int from, int to, off_t size, dev_t device, int &error)
{
    // A reflink shares the blocks: instant and no space used, where the filesystem can.
    bool tryReflink;
    {
        QMutexLocker lock(&reflinkMutex);
        tryReflink = !noReflink().contains(device);
    }
    if (tryReflink) {
        if (::ioctl(to, FICLONE, from) == 0)
            return true;
        if (errno == EOPNOTSUPP || errno == ENOTTY || errno == EINVAL || errno == EXDEV) {
            QMutexLocker lock(&reflinkMutex);
            noReflink().insert(device);
        }
    }
    off_t done = 0;
    bool plain = false;
    while (done < size) {
        const size_t chunk = size_t(std::min<off_t>(size - done, off_t(1) << 30));
        ssize_t n;
        if (!plain) {
            n = ::copy_file_range(from, nullptr, to, nullptr, chunk, 0);
            if (n < 0 && (errno == EXDEV || errno == ENOSYS || errno == EOPNOTSUPP || errno == EINVAL)) {
                plain = true;
                continue;
            }
        } else {
            static thread_local char buffer[1 << 20];
            n = ::read(from, buffer, std::min(chunk, sizeof buffer));
            if (n > 0) {
                ssize_t written = 0;
                while (written < n) {
                    const ssize_t w = ::write(to, buffer + written, size_t(n - written));
                    if (w < 0 && errno == EINTR)
                        continue;
                    if (w <= 0) {
                        error = w < 0 ? errno : ENOSPC;
                        return false;
                    }
                    written += w;
                }
            }
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            error = errno;
            return false;
        }
        if (n == 0)
            break; // the source shrank while we copied; the size check catches it
        done += n;
    }
    return true;
}

// A copy cut short by a killed process leaves its temporary file; remove those of processes
// that are gone, once per folder and process.
void removeStaleParts(const QString &folder)
{
    static QMutex mutex;
    static QSet<QString> cleaned;
    {
        QMutexLocker lock(&mutex);
        if (cleaned.contains(folder))
            return;
        cleaned.insert(folder);
    }
    const QStringList parts = QDir(folder).entryList({ u".corvana-copy-*.part"_s }, QDir::Files | QDir::Hidden);
    for (const QString &name : parts) {
        const pid_t owner = pid_t(name.section(u'-', 2, 2).toLongLong());
        if (owner > 0 && owner != ::getpid() && ::kill(owner, 0) != 0 && errno == ESRCH)
            QFile::remove(folder + u'/' + name);
    }
}

} // namespace

bool CVFileCopier::syncFileSystemOf(const QString &path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = ::syncfs(fd) == 0;
    ::close(fd);
    return ok;
}

CVFileCopier::Result CVFileCopier::copyFile(const QString &source, const QString &destination, Durability durability)
{
    Result result;
    const QByteArray from = QFile::encodeName(source);
    const QByteArray to = QFile::encodeName(destination);
    Descriptor in;
    in.fd = ::open(from.constData(), O_RDONLY | O_CLOEXEC);
    struct stat info { };
    if (in.fd < 0 || ::fstat(in.fd, &info) != 0) {
        result.error = u"“%1” cannot be read: %2"_s.arg(source, describe(errno));
        return result;
    }
    if (!S_ISREG(info.st_mode)) {
        result.error = u"“%1” is not a file."_s.arg(source);
        return result;
    }
    // Small files gain nothing from read-ahead hints or a space reservation, and each is a call.
    constexpr off_t kLargeFile = 16 * 1024 * 1024;
    if (info.st_size >= kLargeFile)
        ::posix_fadvise(in.fd, 0, 0, POSIX_FADV_SEQUENTIAL);

    const QString folder = QFileInfo(destination).absolutePath();
    removeStaleParts(folder);
    QByteArray temporary;
    Descriptor out;
    for (int attempt = 0; attempt < 100 && out.fd < 0; ++attempt) {
        temporary = QFile::encodeName(
            folder + u"/.corvana-copy-"_s + QString::number(::getpid()) + u'-' + QString::number(attempt) + u".part"_s);
        out.fd = ::open(temporary.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (out.fd < 0 && errno != EEXIST) {
            result.noSpace = errno == ENOSPC;
            result.error = u"“%1” cannot be written: %2"_s.arg(destination, describe(errno));
            return result;
        }
    }
    if (out.fd < 0) {
        result.error = u"“%1” cannot be written: no temporary name is free"_s.arg(destination);
        return result;
    }
    const auto fail = [&](int error) {
        ::unlink(temporary.constData());
        result.noSpace = error == ENOSPC || error == EDQUOT;
        result.error = u"“%1” could not be copied to “%2”: %3"_s.arg(source, destination, describe(error));
        return result;
    };

    // Ask for the space first where the filesystem can tell, so a full drive fails at once.
    if (info.st_size >= kLargeFile) {
        if (::fallocate(out.fd, 0, 0, info.st_size) != 0) {
            if (errno == ENOSPC || errno == EDQUOT)
                return fail(errno);
        } else if (::ftruncate(out.fd, 0) != 0) {
            return fail(errno);
        }
    }
    int error = 0;
    struct stat target { };
    ::fstat(out.fd, &target);
    if (!copyBytes(in.fd, out.fd, info.st_size, target.st_dev, error))
        return fail(error);
    struct stat copied { };
    if (::fstat(out.fd, &copied) != 0)
        return fail(errno);
    if (copied.st_size != info.st_size)
        return fail(EIO);
    const struct timespec times[2] = { info.st_atim, info.st_mtim };
    ::futimens(out.fd, times);
    ::fchmod(out.fd, info.st_mode & 07777);
    if (durability == Durability::Sync && ::fsync(out.fd) != 0)
        return fail(errno);
    ::close(out.fd);
    out.fd = -1;

    if (::renameat2(AT_FDCWD, temporary.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) != 0) {
        if (errno != EINVAL && errno != ENOSYS)
            return fail(errno);
        // No "no replace" on this filesystem: a hard link fails on an existing name just the same.
        if (::link(temporary.constData(), to.constData()) != 0)
            return fail(errno);
        ::unlink(temporary.constData());
    }
    // The new name is on disk once its folder is.
    if (durability == Durability::Sync) {
        Descriptor dir;
        dir.fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (dir.fd >= 0)
            ::fsync(dir.fd);
    }
    result.ok = true;
    return result;
}
