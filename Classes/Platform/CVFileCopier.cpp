#include "Platform/CVFileCopier.h"

#include "Platform/CVFaultInjection.h"
#include "Platform/CVVolumes.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMutex>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <memory>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using CVFaultInjection::Point;

namespace {

QString describe(int error)
{
    return QString::fromLocal8Bit(strerror(error));
}

// Closes a descriptor when it goes out of scope.
struct Descriptor {
    int fd = -1;
    Descriptor() = default;
    explicit Descriptor(int f)
        : fd(f)
    {
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

// What each filesystem (by device) takes: asked once, then remembered.
struct CopyWays {
    bool reflink = true;
    bool kernelCopy = true;
};
QHash<dev_t, CopyWays> &copyWays()
{
    static QHash<dev_t, CopyWays> devices;
    return devices;
}
QMutex reflinkMutex;

bool injected(Point point, int &error)
{
    error = CVFaultInjection::fault(point);
    return error != 0;
}

bool writeAll(int to, const char *data, ssize_t size, int &error)
{
    ssize_t written = 0;
    while (written < size) {
        if (injected(Point::CopyWrite, error))
            return false;
        const ssize_t w = ::write(to, data + written, size_t(size - written));
        if (w < 0 && errno == EINTR)
            continue;
        if (w <= 0) {
            error = w < 0 ? errno : ENOSPC;
            return false;
        }
        written += w;
    }
    return true;
}

bool copyBytes(int from, int to, off_t size, dev_t device, int &error)
{
    CopyWays ways;
    {
        QMutexLocker lock(&reflinkMutex);
        auto known = copyWays().find(device);
        if (known == copyWays().end()) {
            // A FUSE filesystem's program rarely clones or copies by itself, and every request to it
            // is a round trip: the bytes go in big writes of our own.
            struct statfs fs { };
            const bool fuse = ::fstatfs(to, &fs) == 0 && fs.f_type == FUSE_SUPER_MAGIC;
            known = copyWays().insert(device, fuse ? CopyWays { false, false } : CopyWays {});
        }
        ways = *known;
    }
    // A reflink shares the blocks: instant and no space used, where the filesystem can.
    if (ways.reflink) {
        if (injected(Point::CopyWrite, error))
            return false;
        if (::ioctl(to, FICLONE, from) == 0)
            return true;
        if (errno == EOPNOTSUPP || errno == ENOTTY || errno == EINVAL || errno == EXDEV) {
            QMutexLocker lock(&reflinkMutex);
            copyWays()[device].reflink = false;
        }
    }
    off_t done = 0;
    bool plain = !ways.kernelCopy;
    while (done < size) {
        const size_t chunk = size_t(std::min<off_t>(size - done, off_t(1) << 30));
        ssize_t n;
        if (injected(Point::CopyWrite, error))
            return false;
        if (!plain) {
            n = ::copy_file_range(from, nullptr, to, nullptr, chunk, 0);
            if (n < 0 && (errno == EXDEV || errno == ENOSYS || errno == EOPNOTSUPP || errno == EINVAL)) {
                plain = true;
                continue;
            }
        } else {
            static thread_local char buffer[1 << 20];
            n = ::read(from, buffer, std::min(chunk, sizeof buffer));
            if (n > 0 && !writeAll(to, buffer, n, error))
                return false;
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

CVFileCopier::Identity identityFrom(const struct stat &info)
{
    CVFileCopier::Identity id;
    id.valid = S_ISREG(info.st_mode);
    id.device = info.st_dev;
    id.inode = info.st_ino;
    id.size = qint64(info.st_size);
    id.modified = info.st_mtim;
    id.changed = info.st_ctim;
    return id;
}

bool sameTime(const struct timespec &a, const struct timespec &b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// Errors that say the filesystem cannot do what was asked, as opposed to a refusal.
bool unsupported(int error)
{
    return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == ENOTSUP;
}

// Gives the finished temporary file the destination's name without ever replacing a file.
// Filesystems differ in what they offer: "rename, but not over a file"; else a hard link, which
// fails on an existing name just the same; else (exFAT, FAT, some shares) the name is claimed
// first with an exclusive create, and the copy renamed over our own empty claim.
// The way that worked last on a filesystem (by device), so that a run does not ask a FUSE
// filesystem twice per file for what it cannot do.
enum class Placement { NoReplace, HardLink, Claim };
QHash<dev_t, Placement> &placements()
{
    static QHash<dev_t, Placement> known;
    return known;
}
QMutex placementMutex;

bool placeCopy(const QByteArray &temporary, const QByteArray &destination, dev_t device, int &error)
{
    if (injected(Point::CopyRename, error))
        return false;
    Placement way;
    {
        QMutexLocker lock(&placementMutex);
        way = placements().value(device, Placement::NoReplace);
    }
    const auto remember = [device](Placement next) {
        QMutexLocker lock(&placementMutex);
        placements().insert(device, next);
    };
    if (way == Placement::NoReplace) {
        if (::renameat2(AT_FDCWD, temporary.constData(), AT_FDCWD, destination.constData(), RENAME_NOREPLACE) == 0)
            return true;
        if (!unsupported(errno)) {
            error = errno;
            return false;
        }
        remember(way = Placement::HardLink);
    }
    if (way == Placement::HardLink) {
        if (::link(temporary.constData(), destination.constData()) == 0) {
            ::unlink(temporary.constData());
            return true;
        }
        if (errno != EPERM && !unsupported(errno) && errno != EMLINK) {
            error = errno;
            return false;
        }
        remember(Placement::Claim);
    }
    const int claim = ::open(destination.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (claim < 0) {
        error = errno;
        return false;
    }
    struct stat claimed { };
    const bool known = ::fstat(claim, &claimed) == 0;
    ::close(claim);
    // The name must still be our empty claim when the copy takes it.
    struct stat now { };
    if (!known || ::lstat(destination.constData(), &now) != 0 || now.st_ino != claimed.st_ino || now.st_size != 0) {
        error = EEXIST;
        return false;
    }
    if (::rename(temporary.constData(), destination.constData()) != 0) {
        error = errno;
        ::unlink(destination.constData());
        return false;
    }
    return true;
}

} // namespace

QString CVFileCopier::kindOfItem(mode_t mode)
{
    if (S_ISDIR(mode))
        return u"a folder"_s;
    if (S_ISFIFO(mode))
        return u"a FIFO"_s;
    if (S_ISCHR(mode) || S_ISBLK(mode))
        return u"a device"_s;
    if (S_ISSOCK(mode))
        return u"a socket"_s;
    if (S_ISLNK(mode))
        return u"a symbolic link"_s;
    return u"a file"_s;
}

CVFileCopier::Identity CVFileCopier::identityOf(const QString &path)
{
    struct stat info { };
    if (path.isEmpty() || ::lstat(QFile::encodeName(path).constData(), &info) != 0)
        return {};
    return identityFrom(info);
}

bool CVFileCopier::sameIdentity(const Identity &a, const Identity &b)
{
    return a.valid && b.valid && a.device == b.device && a.inode == b.inode && a.size == b.size
        && sameTime(a.modified, b.modified) && sameTime(a.changed, b.changed);
}

bool CVFileCopier::syncFileSystemOf(const QString &path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const int injected = CVFaultInjection::fault(Point::FileSystemSync);
    const bool ok = injected == CVFaultInjection::Skip || (injected == 0 && ::syncfs(fd) == 0);
    if (injected > 0)
        errno = injected;
    const int error = errno;
    ::close(fd);
    errno = error;
    return ok;
}

bool CVFileCopier::syncFileSystemsOf(const QStringList &paths, QString *error)
{
    QSet<dev_t> synced;
    for (const QString &given : paths) {
        QString path = given;
        struct stat info { };
        while (::stat(QFile::encodeName(path).constData(), &info) != 0) {
            if (path == u"/"_s || path.isEmpty())
                break;
            path = QFileInfo(path).absolutePath();
        }
        if (synced.contains(info.st_dev))
            continue;
        if (!syncFileSystemOf(path)) {
            if (error)
                *error = u"The drive that holds “%1” could not write its changes: %2"_s.arg(
                    path, QString::fromLocal8Bit(strerror(errno)));
            return false;
        }
        synced.insert(info.st_dev);
    }
    return true;
}

CVFileCopier::Result CVFileCopier::copyFile(const QString &source, const QString &destination, Durability durability)
{
    Result result;
    const QByteArray from = QFile::encodeName(source);
    const QByteArray to = QFile::encodeName(destination);
    // Opened without waiting: a FIFO would otherwise block here until someone writes to it.
    Descriptor in(::open(from.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat info { };
    if (in.fd < 0 || ::fstat(in.fd, &info) != 0) {
        result.errorNumber = errno;
        result.error = u"“%1” cannot be read: %2"_s.arg(source, describe(result.errorNumber));
        return result;
    }
    if (!S_ISREG(info.st_mode)) {
        result.notAFile = true;
        result.errorNumber = EINVAL;
        result.error = u"“%1” is %2, not a file."_s.arg(source, kindOfItem(info.st_mode));
        return result;
    }
    ::fcntl(in.fd, F_SETFL, ::fcntl(in.fd, F_GETFL) & ~O_NONBLOCK);
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
        int error = 0;
        if (injected(Point::CopyOpen, error))
            errno = error;
        else
            out.fd = ::open(temporary.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (out.fd < 0 && errno != EEXIST) {
            result.errorNumber = errno;
            result.noSpace = errno == ENOSPC || errno == EDQUOT;
            result.error = u"“%1” cannot be written: %2"_s.arg(destination, describe(result.errorNumber));
            return result;
        }
    }
    if (out.fd < 0) {
        result.errorNumber = EEXIST;
        result.error = u"“%1” cannot be written: no temporary name is free"_s.arg(destination);
        return result;
    }
    const auto fail = [&](int error) {
        ::unlink(temporary.constData());
        result.errorNumber = error;
        result.noSpace = error == ENOSPC || error == EDQUOT || error == EFBIG;
        result.error = error == EEXIST
            ? u"“%1” already exists: another file took the name while the copy was made."_s.arg(destination)
            : u"“%1” could not be copied to “%2”: %3"_s.arg(source, destination, describe(error));
        return result;
    };

    // Ask for the space first where the filesystem can tell, so a full drive fails at once.
    if (info.st_size >= kLargeFile) {
        if (::fallocate(out.fd, 0, 0, info.st_size) != 0) {
            if (errno == ENOSPC || errno == EDQUOT || errno == EFBIG)
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
    if (durability == Durability::Sync && (injected(Point::CopyFsync, error) || ::fsync(out.fd) != 0))
        return fail(error ? error : errno);
    if (!placeCopy(temporary, to, target.st_dev, error))
        return fail(error);
    // Taken after the name is in place: renaming changes the change time on most filesystems.
    struct stat placed { };
    if (::fstat(out.fd, &placed) == 0)
        result.copy = identityFrom(placed);
    // The new name is on disk once its folder is.
    if (durability == Durability::Sync) {
        Descriptor dir(::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (dir.fd >= 0)
            ::fsync(dir.fd);
    }
    result.ok = true;
    return result;
}

CVFileCopier::Comparison CVFileCopier::compareContents(const QString &a, const QString &b, QString *error)
{
    const auto unreadable = [&](const QString &path, int number) {
        if (error)
            *error = u"“%1” cannot be read: %2"_s.arg(path, describe(number));
        return Comparison::Unreadable;
    };
    Descriptor x(::open(QFile::encodeName(a).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (x.fd < 0)
        return unreadable(a, errno);
    Descriptor y(::open(QFile::encodeName(b).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (y.fd < 0)
        return unreadable(b, errno);
    struct stat xs { };
    struct stat ys { };
    if (::fstat(x.fd, &xs) != 0)
        return unreadable(a, errno);
    if (::fstat(y.fd, &ys) != 0)
        return unreadable(b, errno);
    if (!S_ISREG(xs.st_mode) || !S_ISREG(ys.st_mode))
        return Comparison::Different;
    if (xs.st_dev == ys.st_dev && xs.st_ino == ys.st_ino)
        return Comparison::Same;
    if (xs.st_size != ys.st_size)
        return Comparison::Different;
    ::fcntl(x.fd, F_SETFL, ::fcntl(x.fd, F_GETFL) & ~O_NONBLOCK);
    ::fcntl(y.fd, F_SETFL, ::fcntl(y.fd, F_GETFL) & ~O_NONBLOCK);
    constexpr size_t kChunk = 1 << 20;
    const std::unique_ptr<char[]> left(new char[kChunk]);
    const std::unique_ptr<char[]> right(new char[kChunk]);
    for (;;) {
        const auto readChunk = [](int fd, char *buffer, size_t size) -> ssize_t {
            size_t got = 0;
            while (got < size) {
                const ssize_t n = ::read(fd, buffer + got, size - got);
                if (n < 0 && errno == EINTR)
                    continue;
                if (n < 0)
                    return -1;
                if (n == 0)
                    break;
                got += size_t(n);
            }
            return ssize_t(got);
        };
        const ssize_t n = readChunk(x.fd, left.get(), kChunk);
        if (n < 0)
            return unreadable(a, errno);
        const ssize_t m = readChunk(y.fd, right.get(), kChunk);
        if (m < 0)
            return unreadable(b, errno);
        if (n != m || std::memcmp(left.get(), right.get(), size_t(n)) != 0)
            return Comparison::Different;
        if (n == 0)
            return Comparison::Same;
    }
}

CVFileCopier::FolderResult CVFileCopier::makeFolders(const QString &folder, const QString &top)
{
    FolderResult result;
    const QString clean = QDir::cleanPath(folder);
    const QString base = QDir::cleanPath(top);
    const auto fail = [&](const QString &which, int error, const QString &why = {}) {
        result.failedFolder = which;
        result.errorNumber = error;
        result.error = u"The folder “%1” could not be made: %2."_s.arg(which, why.isEmpty() ? describe(error) : why);
        return result;
    };
    struct stat info { };
    if (base.isEmpty() || ::stat(QFile::encodeName(base).constData(), &info) != 0 || !S_ISDIR(info.st_mode))
        return fail(base, ENOENT);
    if (clean != base && !clean.startsWith(base == u"/"_s ? base : QString(base + u'/')))
        return fail(clean, EINVAL, u"it does not lie inside “%1”"_s.arg(base));
    const QString driveRoot = CVVolumes::driveRootOfPath(clean);
    if (!driveRoot.isEmpty() && !CVVolumes::isMountPoint(driveRoot))
        return fail(clean, ENODEV, u"the drive “%1” is not connected"_s.arg(driveRoot));

    const QStringList below = clean.mid(base.size()).split(u'/', Qt::SkipEmptyParts);
    QString current = base == u"/"_s ? QString() : base;
    for (const QString &name : below) {
        current += u'/' + name;
        const QByteArray encoded = QFile::encodeName(current);
        if (::lstat(encoded.constData(), &info) == 0) {
            if (!S_ISDIR(info.st_mode))
                return fail(current, ENOTDIR, u"%1 of that name is in the way"_s.arg(kindOfItem(info.st_mode)));
            continue;
        }
        int error = 0;
        if (injected(Point::FolderCreate, error))
            return fail(current, error);
        if (::mkdir(encoded.constData(), 0777) != 0 && errno != EEXIST)
            return fail(current, errno);
    }
    result.ok = true;
    return result;
}
