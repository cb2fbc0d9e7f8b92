#include "Platform/CVVolumes.h"

#include <QFile>
#include <QHash>
#include <QMutex>
#include <QStringList>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Whether /media/<name> is a user's folder of mounts (as udisks makes them) rather than a mount.
bool isUserName(const QString &name)
{
    static QMutex mutex;
    static QHash<QString, bool> known;
    QMutexLocker lock(&mutex);
    const auto it = known.constFind(name);
    if (it != known.cend())
        return *it;
    const QByteArray encoded = name.toLocal8Bit();
    struct passwd entry { };
    struct passwd *result = nullptr;
    char buffer[4096];
    const bool user = getpwnam_r(encoded.constData(), &entry, buffer, sizeof buffer, &result) == 0 && result;
    known.insert(name, user);
    return user;
}

// Number of leading components that make the drive root, or 0 when the path is on "/".
int driveRootDepth(const QStringList &c)
{
    if (c.isEmpty())
        return 0;
    if ((c[0] == u"Volumes"_s || c[0] == u"mnt"_s) && c.size() >= 2)
        return 2;
    if (c[0] == u"media"_s && c.size() >= 2) {
        if (!isUserName(c[1]))
            return 2;
        return c.size() >= 3 ? 3 : 0;
    }
    if (c[0] == u"run"_s && c.size() >= 4 && c[1] == u"media"_s)
        return 4;
    return 0;
}

QStringList components(const QString &path)
{
    return path.split(u'/', Qt::SkipEmptyParts);
}

// Only paths under these folders can lie on another drive: a quick test first, since the
// location table asks for every track.
bool mayBeOnADrive(const QString &path)
{
    if (path.size() < 5 || path[0] != u'/')
        return false;
    const QChar c = path[1];
    if (c != u'V' && c != u'm' && c != u'r')
        return false;
    return path.startsWith(u"/Volumes/"_s) || path.startsWith(u"/media/"_s) || path.startsWith(u"/run/media/"_s)
        || path.startsWith(u"/mnt/"_s);
}

// The kernel writes blanks, tabs, newlines and backslashes of mount table fields as octal escapes.
QString unescapedField(const QByteArray &field)
{
    QByteArray out;
    out.reserve(field.size());
    for (qsizetype i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            bool ok = false;
            const int value = field.mid(i + 1, 3).toInt(&ok, 8);
            if (ok) {
                out += char(value);
                i += 3;
                continue;
            }
        }
        out += field[i];
    }
    return QFile::decodeName(out);
}

} // namespace

QList<CVVolumes::Mount> CVVolumes::mounts()
{
    QFile table(u"/proc/self/mountinfo"_s);
    if (!table.open(QIODevice::ReadOnly))
        return {};
    return parseMountInfo(table.readAll());
}

QList<CVVolumes::Mount> CVVolumes::parseMountInfo(const QByteArray &text)
{
    QList<Mount> list;
    // "36 35 98:0 /root /mnt/point options... - type source super-options"
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.split(' ');
        const qsizetype separator = fields.indexOf(QByteArray("-"));
        if (fields.size() < 5 || separator < 5 || separator + 2 >= fields.size())
            continue;
        const QList<QByteArray> numbers = fields[2].split(':');
        const quint64 device = numbers.size() == 2 ? quint64(makedev(numbers[0].toUInt(), numbers[1].toUInt())) : 0;
        list.append({ unescapedField(fields[4]), unescapedField(fields[separator + 1]),
            unescapedField(fields[separator + 2]), device });
    }
    return list;
}

bool CVVolumes::isMountPoint(const QString &path)
{
    if (path.isEmpty())
        return false;
    if (path == u"/"_s)
        return true;
    const QByteArray encoded = QFile::encodeName(path);
    struct stat self { };
    struct stat parent { };
    if (::stat(encoded.constData(), &self) != 0)
        return false;
    const qsizetype slash = path.lastIndexOf(u'/');
    const QByteArray up = QFile::encodeName(slash <= 0 ? u"/"_s : path.left(slash));
    if (::stat(up.constData(), &parent) == 0 && parent.st_dev != self.st_dev)
        return true;
    // A bind mount of the same filesystem keeps the device: ask the table.
    const QList<Mount> all = mounts();
    return std::any_of(all.cbegin(), all.cend(), [&](const Mount &m) { return m.point == path; });
}

QString CVVolumes::driveRootOfPath(const QString &path)
{
    if (!mayBeOnADrive(path))
        return {};
    const QStringList c = components(path);
    const int depth = driveRootDepth(c);
    if (depth == 0)
        return {};
    return u'/' + c.mid(0, depth).join(u'/');
}

bool CVVolumes::isDriveRoot(const QString &path)
{
    if (!mayBeOnADrive(path))
        return false;
    const QStringList c = components(path);
    const int depth = driveRootDepth(c);
    return depth > 0 && depth == c.size();
}

bool CVVolumes::isDriveContainer(const QString &path)
{
    const QStringList c = components(path);
    if (c.size() == 1)
        return c[0] == u"Volumes"_s || c[0] == u"Network"_s || c[0] == u"media"_s || c[0] == u"mnt"_s;
    if (c.size() == 2 && c[0] == u"media"_s)
        return isUserName(c[1]);
    if (c.size() == 2 && c[0] == u"run"_s)
        return c[1] == u"media"_s;
    if (c.size() == 3 && c[0] == u"run"_s && c[1] == u"media"_s)
        return true;
    return false;
}

QString CVVolumes::basePathOfPath(const QString &path)
{
    if (path.isEmpty())
        return u"nilPath"_s;
    const QString root = driveRootOfPath(path);
    if (!root.isEmpty())
        return root;
    const QStringList c = components(path);
    if (c.isEmpty())
        return u"/"_s;
    return u'/' + c.mid(0, 2).join(u'/');
}

QString CVVolumes::volumeRootOfPath(const QString &path)
{
    const QString root = driveRootOfPath(path);
    return root.isEmpty() ? u"/"_s : root;
}

qint64 CVVolumes::freeSpaceForPath(const QString &path)
{
    QString probe = path;
    while (!probe.isEmpty()) {
        struct statvfs info { };
        const QByteArray encoded = probe.toLocal8Bit();
        if (statvfs(encoded.constData(), &info) == 0)
            return qint64(info.f_bavail) * qint64(info.f_frsize);
        if (errno != ENOENT && errno != ENOTDIR)
            return -1;
        if (probe == u"/"_s)
            break;
        const qsizetype slash = probe.lastIndexOf(u'/');
        probe = slash <= 0 ? u"/"_s : probe.left(slash);
    }
    return -1;
}

CVVolumes::FileSystem CVVolumes::fileSystemOf(const QString &path)
{
    FileSystem fs;
    QString probe = path;
    struct stat info { };
    while (!probe.isEmpty() && ::stat(QFile::encodeName(probe).constData(), &info) != 0) {
        if (probe == u"/"_s)
            return fs;
        const qsizetype slash = probe.lastIndexOf(u'/');
        probe = slash <= 0 ? u"/"_s : probe.left(slash);
    }
    if (probe.isEmpty())
        return fs;
    const QList<Mount> all = mounts();
    // The last mount of that device is the one on top.
    for (auto it = all.crbegin(); it != all.crend(); ++it) {
        if (it->device == quint64(info.st_dev))
            return fileSystemOfType(it->type);
    }
    return fs;
}

CVVolumes::FileSystem CVVolumes::fileSystemOfType(const QString &type)
{
    FileSystem fs;
    fs.type = type;
    static const QStringList windows { u"vfat"_s, u"msdos"_s, u"exfat"_s, u"ntfs"_s, u"ntfs3"_s, u"cifs"_s, u"smb3"_s,
        u"smbfs"_s };
    const QString base = fs.type.section(u'.', 0, 0);
    const QString subtype = fs.type.section(u'.', 1);
    fs.windowsNames = windows.contains(fs.type) || base == u"fuseblk"_s
        || (base == u"fuse"_s && (subtype.startsWith(u"exfat"_s) || subtype.startsWith(u"ntfs"_s)));
    if (fs.type == u"vfat"_s || fs.type == u"msdos"_s)
        fs.maxFileSize = (qint64(1) << 32) - 1;
    return fs;
}

bool CVVolumes::ignoresLetterCase(const QString &folder)
{
    const QString name = u"/.corvana-Case-Probe-"_s + QString::number(::getpid());
    const QByteArray mixed = QFile::encodeName(folder + name);
    const QByteArray lower = QFile::encodeName(folder + name.toLower());
    const int fd = ::open(mixed.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    ::close(fd);
    struct stat info { };
    const bool folded = ::lstat(lower.constData(), &info) == 0;
    ::unlink(mixed.constData());
    return folded;
}

QString CVVolumes::displayName(const QString &path, const QString &startupDriveName)
{
    const QStringList c = components(path);
    if (c.isEmpty())
        return startupDriveName;
    return c.last();
}
