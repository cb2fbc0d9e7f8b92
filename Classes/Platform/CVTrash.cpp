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

namespace {

// Writes the info file under the first free name from `attempt` on; the item does not move.
bool writeInfo(CVTrash::Pending &pending, int attempt)
{
    const QByteArray info = QByteArrayLiteral("[Trash Info]\nPath=")
        + encoded(pending.recordedPath).toPercentEncoding("/")
        + "\nDeletionDate=" + QDateTime::currentDateTime().toString(u"yyyy-MM-ddThh:mm:ss"_s).toLatin1() + '\n';
    const QString name = QFileInfo(pending.path).fileName();
    for (; attempt < 10000; ++attempt) {
        const QString candidate = trashName(name, attempt);
        const QString infoPath = pending.trash + u"/info/"_s + candidate + u".trashinfo"_s;
        const int fd = ::open(encoded(infoPath).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0) {
            if (errno == EEXIST)
                continue;
            pending.error = u"“%1” cannot be moved to the Trash: %2."_s.arg(
                pending.shown, QString::fromLocal8Bit(strerror(errno)));
            return false;
        }
        const bool written = ::write(fd, info.constData(), size_t(info.size())) == info.size();
        const int error = errno;
        ::close(fd);
        if (!written) {
            ::unlink(encoded(infoPath).constData());
            pending.error = u"“%1” cannot be moved to the Trash: %2."_s.arg(
                pending.shown, QString::fromLocal8Bit(strerror(error)));
            return false;
        }
        pending.attempt = attempt;
        pending.infoPath = infoPath;
        pending.target = pending.trash + u"/files/"_s + candidate;
        return true;
    }
    pending.error
        = u"“%1” cannot be moved to the Trash: the Trash holds too many items of that name."_s.arg(pending.shown);
    return false;
}

bool syncFile(const QString &path, int flags)
{
    const int fd = ::open(encoded(path).constData(), flags | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = ::fsync(fd) == 0;
    const int error = errno;
    ::close(fd);
    errno = error;
    return ok;
}

} // namespace

bool CVTrash::prepare(const QString &givenPath, Pending &pending)
{
    pending = {};
    const QString path = QDir::cleanPath(QFileInfo(givenPath).absoluteFilePath());
    pending.path = path;
    pending.shown = QFileInfo(path).fileName();
    const QString &shown = pending.shown;
    struct stat item { };
    if (path == u"/"_s || !lstatPath(path, item)) {
        pending.error = u"“%1” cannot be moved to the Trash because it does not exist."_s.arg(shown);
        return false;
    }
    const QString parent = parentOf(path);
    struct stat parentInfo { };
    if (::stat(encoded(parent).constData(), &parentInfo) != 0) {
        pending.error = u"“%1” cannot be moved to the Trash: %2."_s.arg(shown, QString::fromLocal8Bit(strerror(errno)));
        return false;
    }

    // The home trash serves every file on the volume of the data folder.
    const QString dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (!QFileInfo::exists(dataHome))
        QDir().mkpath(dataHome);
    struct stat homeInfo { };
    QString trash;
    pending.recordedPath = path;
    if (::stat(encoded(dataHome).constData(), &homeInfo) == 0 && homeInfo.st_dev == parentInfo.st_dev) {
        trash = homeTrashFolder();
        if (!prepareTrash(trash))
            trash.clear();
    } else {
        const QString top = mountTopOf(parent, parentInfo.st_dev);
        trash = volumeTrash(top);
        // Trash folders of other volumes record the path relative to the volume.
        pending.recordedPath = top != u"/"_s ? path.mid(top.size() + 1) : path.mid(1);
    }
    if (trash.isEmpty()) {
        pending.error = u"“%1” cannot be moved to the Trash because no Trash folder can be made on its drive. "
                        "It was left where it is."_s.arg(shown);
        return false;
    }
    if (path == trash || path.startsWith(trash + u'/')) {
        pending.error = u"“%1” is already in the Trash."_s.arg(shown);
        return false;
    }
    pending.trash = trash;
    return writeInfo(pending, 1);
}

bool CVTrash::syncInfo(Pending &pending)
{
    // The info file's bytes, then its name in info/.
    const int injected = CVFaultInjection::fault(CVFaultInjection::Point::TrashInfoSync);
    if (injected == CVFaultInjection::Skip)
        return true;
    if (injected == 0 && syncFile(pending.infoPath, O_RDONLY)
        && syncFile(pending.trash + u"/info"_s, O_RDONLY | O_DIRECTORY))
        return true;
    const int error = injected > 0 ? injected : errno;
    pending.error
        = u"“%1” cannot be moved to the Trash: %2."_s.arg(pending.shown, QString::fromLocal8Bit(strerror(error)));
    return false;
}

CVTrash::Result CVTrash::commit(Pending &pending)
{
    Result result;
    for (;;) {
        if (renameNoReplace(encoded(pending.path), encoded(pending.target))) {
            result.ok = true;
            result.trashedPath = pending.target;
            pending.infoPath.clear();
            return result;
        }
        const int error = errno;
        abandon(pending);
        // The name in files/ was taken since the info file was written: the next free name,
        // with an info file of its own made durable before the move.
        if ((error == EEXIST || error == ENOTEMPTY) && writeInfo(pending, pending.attempt + 1) && syncInfo(pending))
            continue;
        if (error != EEXIST && error != ENOTEMPTY)
            pending.error = u"“%1” cannot be moved to the Trash: %2."_s.arg(
                pending.shown, QString::fromLocal8Bit(strerror(error)));
        abandon(pending);
        result.error = pending.error;
        return result;
    }
}

void CVTrash::abandon(Pending &pending)
{
    if (!pending.infoPath.isEmpty())
        ::unlink(encoded(pending.infoPath).constData());
    pending.infoPath.clear();
}

CVTrash::Result CVTrash::moveToTrash(const QString &givenPath)
{
    Pending pending;
    Result result;
    if (!prepare(givenPath, pending) || !syncInfo(pending)) {
        abandon(pending);
        result.error = pending.error;
        return result;
    }
    return commit(pending);
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
