#include "Platform/CVTrash.h"

#include "Platform/CVFaultInjection.h"
#include "Platform/CVVolumes.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QSet>
#include <QStandardPaths>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray encoded(const QString &path)
{
    return QFile::encodeName(path);
}

bool lstatPath(const QString &path, struct stat &info)
{
    return ::lstat(encoded(path).constData(), &info) == 0;
}

QString parentOf(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(u'/');
    return slash <= 0 ? u"/"_s : path.left(slash);
}

// The top folder of the mount that holds `folder`: walk up while the device stays the same.
QString mountTopOf(const QString &folder, dev_t device)
{
    QString current = folder;
    while (current != u"/"_s) {
        const QString parent = parentOf(current);
        struct stat info { };
        if (::stat(encoded(parent).constData(), &info) != 0 || info.st_dev != device)
            break;
        current = parent;
    }
    return current;
}

// A trash folder is usable when it is a real folder of ours, not a link someone planted.
bool isOwnFolder(const QString &path)
{
    struct stat info { };
    return lstatPath(path, info) && S_ISDIR(info.st_mode) && info.st_uid == ::getuid();
}

bool makeOwnFolder(const QString &path)
{
    if (::mkdir(encoded(path).constData(), 0700) != 0 && errno != EEXIST)
        return false;
    return isOwnFolder(path);
}

bool prepareTrash(const QString &trash)
{
    // A run trashes thousands of files into the same trash: check its folders once.
    static QMutex mutex;
    static QSet<QString> prepared;
    QMutexLocker lock(&mutex);
    if (prepared.contains(trash) && isOwnFolder(trash + u"/files"_s) && isOwnFolder(trash + u"/info"_s))
        return true;
    const bool ok = makeOwnFolder(trash) && makeOwnFolder(trash + u"/files"_s) && makeOwnFolder(trash + u"/info"_s);
    if (ok)
        prepared.insert(trash);
    return ok;
}

QString userId()
{
    return QString::number(::getuid());
}

// The trash of another volume, as every desktop looks for it: "<top>/.Trash/$uid" when the
// administrator made a sticky, non-link ".Trash", else "<top>/.Trash-$uid".
QString volumeTrash(const QString &top)
{
    const QString base = top == u"/"_s ? QString() : top;
    const QString shared = base + u"/.Trash"_s;
    struct stat info { };
    if (lstatPath(shared, info) && S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX)) {
        const QString own = shared + u'/' + userId();
        if (prepareTrash(own))
            return own;
    }
    const QString own = base + u"/.Trash-"_s + userId();
    if (prepareTrash(own))
        return own;
    return {};
}

// Trash names must leave room for ".trashinfo" within the 255-byte limit of a name.
QString trashName(const QString &name, int attempt)
{
    QString stem = name;
    QString suffix;
    const qsizetype dot = name.lastIndexOf(u'.');
    if (attempt > 1 && dot > 0) {
        stem = name.left(dot);
        suffix = name.mid(dot);
    }
    if (attempt > 1)
        suffix = u'.' + QString::number(attempt) + suffix;
    while (encoded(stem + suffix).size() > 240 && !stem.isEmpty())
        stem.chop(1);
    return stem + suffix;
}

bool renameNoReplace(const QByteArray &from, const QByteArray &to)
{
    if (const int injected = CVFaultInjection::fault(CVFaultInjection::Point::TrashRename)) {
        errno = injected;
        return false;
    }
    if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    // The filesystem cannot promise "no replace": test first, as close to the rename as we can.
    struct stat info { };
    if (::lstat(to.constData(), &info) == 0) {
        errno = EEXIST;
        return false;
    }
    return ::rename(from.constData(), to.constData()) == 0;
}

std::function<bool(const QString &)> &mountPointFilter()
{
    static std::function<bool(const QString &)> filter;
    return filter;
}

QStringList mountPoints()
{
    QStringList points;
    for (const CVVolumes::Mount &mount : CVVolumes::mounts()) {
        const QString &point = mount.point;
        if (point.startsWith(u"/proc"_s) || point.startsWith(u"/sys"_s) || point.startsWith(u"/dev"_s))
            continue;
        if (mountPointFilter() && !mountPointFilter()(point))
            continue;
        if (!points.contains(point))
            points.append(point);
    }
    return points;
}

bool hasEntries(const QString &folder)
{
    return !QDir(folder).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
}

} // namespace

QString CVTrash::homeTrashFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + u"/Trash"_s;
}

CVTrash::Result CVTrash::moveToTrash(const QString &givenPath)
{
    Result result;
    const QString path = QDir::cleanPath(QFileInfo(givenPath).absoluteFilePath());
    const QString shown = QFileInfo(path).fileName();
    struct stat item { };
    if (path == u"/"_s || !lstatPath(path, item)) {
        result.error = u"“%1” cannot be moved to the Trash because it does not exist."_s.arg(shown);
        return result;
    }
    const QString parent = parentOf(path);
    struct stat parentInfo { };
    if (::stat(encoded(parent).constData(), &parentInfo) != 0) {
        result.error = u"“%1” cannot be moved to the Trash: %2."_s.arg(shown, QString::fromLocal8Bit(strerror(errno)));
        return result;
    }

    // The home trash serves every file on the volume of the data folder.
    const QString dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (!QFileInfo::exists(dataHome))
        QDir().mkpath(dataHome);
    struct stat homeInfo { };
    QString trash;
    QString recordedPath = path;
    if (::stat(encoded(dataHome).constData(), &homeInfo) == 0 && homeInfo.st_dev == parentInfo.st_dev) {
        trash = homeTrashFolder();
        if (!prepareTrash(trash))
            trash.clear();
    } else {
        const QString top = mountTopOf(parent, parentInfo.st_dev);
        trash = volumeTrash(top);
        // Trash folders of other volumes record the path relative to the volume.
        if (top != u"/"_s)
            recordedPath = path.mid(top.size() + 1);
        else
            recordedPath = path.mid(1);
    }
    if (trash.isEmpty()) {
        result.error = u"“%1” cannot be moved to the Trash because no Trash folder can be made on its drive. "
                       "It was left where it is."_s.arg(shown);
        return result;
    }
    if (path == trash || path.startsWith(trash + u'/')) {
        result.error = u"“%1” is already in the Trash."_s.arg(shown);
        return result;
    }

    const QByteArray info = QByteArrayLiteral("[Trash Info]\nPath=") + encoded(recordedPath).toPercentEncoding("/")
        + "\nDeletionDate=" + QDateTime::currentDateTime().toString(u"yyyy-MM-ddThh:mm:ss"_s).toLatin1() + '\n';

    const QString name = QFileInfo(path).fileName();
    for (int attempt = 1; attempt < 10000; ++attempt) {
        const QString candidate = trashName(name, attempt);
        const QByteArray infoPath = encoded(trash + u"/info/"_s + candidate + u".trashinfo"_s);
        const int fd = ::open(infoPath.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0) {
            if (errno == EEXIST)
                continue;
            result.error
                = u"“%1” cannot be moved to the Trash: %2."_s.arg(shown, QString::fromLocal8Bit(strerror(errno)));
            return result;
        }
        const bool written = ::write(fd, info.constData(), size_t(info.size())) == info.size();
        ::close(fd);
        const QString target = trash + u"/files/"_s + candidate;
        if (!written) {
            const int error = errno;
            ::unlink(infoPath.constData());
            result.error
                = u"“%1” cannot be moved to the Trash: %2."_s.arg(shown, QString::fromLocal8Bit(strerror(error)));
            return result;
        }
        if (renameNoReplace(encoded(path), encoded(target))) {
            result.ok = true;
            result.trashedPath = target;
            return result;
        }
        const int error = errno;
        ::unlink(infoPath.constData());
        if (error == EEXIST || error == ENOTEMPTY)
            continue;
        result.error = u"“%1” cannot be moved to the Trash: %2."_s.arg(shown, QString::fromLocal8Bit(strerror(error)));
        return result;
    }
    result.error = u"“%1” cannot be moved to the Trash: the Trash holds too many items of that name."_s.arg(shown);
    return result;
}

void CVTrash::setMountPointFilter(std::function<bool(const QString &)> filter)
{
    mountPointFilter() = std::move(filter);
}

QStringList CVTrash::trashFolders()
{
    QStringList folders;
    const QString home = homeTrashFolder();
    if (isOwnFolder(home))
        folders.append(home);
    const QString uid = userId();
    for (const QString &point : mountPoints()) {
        const QString base = point == u"/"_s ? QString() : point;
        for (const QString &candidate : QStringList { base + u"/.Trash/"_s + uid, base + u"/.Trash-"_s + uid }) {
            if (!folders.contains(candidate) && isOwnFolder(candidate))
                folders.append(candidate);
        }
    }
    return folders;
}

bool CVTrash::isEmpty()
{
    for (const QString &folder : trashFolders()) {
        if (hasEntries(folder + u"/files"_s))
            return false;
    }
    return true;
}

int CVTrash::emptyTrash(QStringList *errors)
{
    int removed = 0;
    for (const QString &folder : trashFolders()) {
        const QDir files(folder + u"/files"_s);
        const QFileInfoList entries
            = files.entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
        for (const QFileInfo &entry : entries) {
            bool ok;
            if (entry.isDir() && !entry.isSymLink())
                ok = QDir(entry.filePath()).removeRecursively();
            else
                ok = ::unlink(encoded(entry.filePath()).constData()) == 0;
            if (!ok) {
                if (errors)
                    errors->append(entry.filePath());
                continue;
            }
            QFile::remove(folder + u"/info/"_s + entry.fileName() + u".trashinfo"_s);
            ++removed;
        }
        // Sizes of trashed folders describe entries that are gone now.
        QFile::remove(folder + u"/directorysizes"_s);
    }
    return removed;
}
