#include "CVTestMounts.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QStorageInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

bool g_available = false;
bool g_realRoot = false;
QString g_reason = u"the mount namespace was not set up"_s;
QList<CVTestMounts::Drive> g_drives;

bool writeProcFile(const char *path, const QByteArray &text)
{
    const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = ::write(fd, text.constData(), size_t(text.size())) == text.size();
    ::close(fd);
    return ok;
}

QString systemError()
{
    return QString::fromLocal8Bit(strerror(errno));
}

} // namespace

bool CVTestMounts::enterPrivateMounts(const char *mntOptions)
{
    g_realRoot = ::geteuid() == 0;
    if (g_realRoot) {
        if (::unshare(CLONE_NEWNS) != 0) {
            g_reason = u"no mount namespace of our own here: %1"_s.arg(systemError());
            return false;
        }
    } else {
        const uid_t uid = ::getuid();
        const gid_t gid = ::getgid();
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
            g_reason = u"not root, and no user namespace here: %1"_s.arg(systemError());
            return false;
        }
        writeProcFile("/proc/self/setgroups", "deny");
        if (!writeProcFile("/proc/self/uid_map", "0 " + QByteArray::number(uid) + " 1")
            || !writeProcFile("/proc/self/gid_map", "0 " + QByteArray::number(gid) + " 1")) {
            g_reason = u"the user namespace cannot be mapped"_s;
            return false;
        }
    }
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
        || ::mount("corvana-test", "/mnt", "tmpfs", 0, mntOptions) != 0) {
        g_reason = u"mounting is not allowed here: %1"_s.arg(systemError());
        return false;
    }
    g_available = true;
    g_reason.clear();
    return true;
}

bool CVTestMounts::available()
{
    return g_available;
}

QString CVTestMounts::unavailableReason()
{
    return g_reason;
}

bool CVTestMounts::realRoot()
{
    return g_realRoot;
}

bool CVTestMounts::Drive::plug() const
{
    return ::mount(QFile::encodeName(store).constData(), QFile::encodeName(root).constData(), nullptr, MS_BIND, nullptr)
        == 0;
}

bool CVTestMounts::Drive::unplug() const
{
    return ::umount2(QFile::encodeName(root).constData(), MNT_DETACH) == 0;
}

bool CVTestMounts::Drive::makeReadOnly() const
{
    return ::mount(nullptr, QFile::encodeName(root).constData(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr)
        == 0;
}

void CVTestMounts::Drive::fill(qint64 room) const
{
    QFile filler(store + u"/.filler"_s);
    if (!filler.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
        return;
    for (;;) {
        QStorageInfo info(store);
        info.refresh();
        const qint64 free = info.bytesAvailable();
        if (free <= room)
            break;
        const QByteArray block(qsizetype(qMin<qint64>(free - room, 1 << 20)), 'f');
        if (filler.write(block) != block.size())
            break;
    }
}

CVTestMounts::Drive CVTestMounts::makeTmpfsDrive(const QString &name, const char *options)
{
    Drive drive { name, u"/mnt/.disks/"_s + name, u"/mnt/"_s + name, {} };
    QDir().mkpath(drive.store);
    QDir().mkpath(drive.root);
    if (::mount("tmpfs", QFile::encodeName(drive.store).constData(), "tmpfs", 0, options) != 0 || !drive.plug())
        qFatal("cannot mount %s: %s", qPrintable(drive.root), strerror(errno));
    g_drives.append(drive);
    return drive;
}

int CVTestMounts::run(const QString &program, const QStringList &arguments, QString *output)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForStarted(10000))
        return -1;
    process.waitForFinished(120000);
    if (output)
        *output = QString::fromLocal8Bit(process.readAll()).trimmed();
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

CVTestMounts::Drive CVTestMounts::makeImageDrive(
    const QString &type, const QString &name, const QString &imageFolder, QString *why)
{
    const auto refuse = [&](const QString &reason) {
        *why = u"%1: %2"_s.arg(type, reason);
        return Drive {};
    };
    if (!g_available)
        return refuse(g_reason);
    if (!g_realRoot)
        return refuse(u"loop devices need the machine's root"_s);
    const QString base = type == u"ntfs-windows-names"_s ? u"ntfs"_s : type;
    const QString mkfs = QStandardPaths::findExecutable(u"mkfs."_s + base, { u"/usr/sbin"_s, u"/sbin"_s });
    if (mkfs.isEmpty())
        return refuse(u"mkfs.%1 is not installed"_s.arg(base));
    const QString image = imageFolder + u'/' + name + u".img"_s;
    QFile file(image);
    // Sparse: only what is written takes room. btrfs and XFS want a few hundred MB at least.
    if (!file.open(QIODevice::WriteOnly) || !file.resize(qint64(600) << 20))
        return refuse(u"no image file"_s);
    file.close();
    QStringList options;
    if (base == u"ntfs"_s)
        options = { u"-F"_s, u"-Q"_s };
    else if (base == u"ext4"_s || base == u"btrfs"_s || base == u"xfs"_s)
        options = { u"-q"_s, u"-f"_s };
    if (base == u"ext4"_s)
        options = { u"-q"_s, u"-F"_s };
    QString output;
    if (run(mkfs, options + QStringList { image }, &output) != 0)
        return refuse(u"mkfs.%1 failed: %2"_s.arg(base, output));
    QString loop;
    if (run(u"losetup"_s, { u"-f"_s, u"--show"_s, image }, &loop) != 0 || !loop.startsWith(u"/dev/loop"_s))
        return refuse(u"no loop device: %1"_s.arg(loop));
    Drive drive { name, u"/mnt/.disks/"_s + name, u"/mnt/"_s + name, loop };
    QDir().mkpath(drive.store);
    QDir().mkpath(drive.root);
    bool mounted = false;
    if (base == u"ntfs"_s) {
        QStringList arguments { loop, drive.store };
        if (type == u"ntfs-windows-names"_s)
            arguments = QStringList { u"-o"_s, u"windows_names"_s } + arguments;
        mounted = !QStandardPaths::findExecutable(u"ntfs-3g"_s).isEmpty() && run(u"ntfs-3g"_s, arguments, &output) == 0;
    } else {
        mounted = ::mount(QFile::encodeName(loop).constData(), QFile::encodeName(drive.store).constData(),
                      base.toLatin1().constData(), 0, nullptr)
            == 0;
        if (!mounted) {
            output = systemError();
            if (base == u"exfat"_s
                && !QStandardPaths::findExecutable(u"mount.exfat-fuse"_s, { u"/usr/sbin"_s, u"/sbin"_s }).isEmpty())
                mounted = run(u"mount.exfat-fuse"_s, { loop, drive.store }, &output) == 0;
        }
    }
    if (!mounted) {
        run(u"losetup"_s, { u"-d"_s, loop });
        return refuse(u"it cannot be mounted here: %1"_s.arg(output));
    }
    if (!drive.plug())
        return refuse(u"no bind mount: %1"_s.arg(systemError()));
    g_drives.append(drive);
    return drive;
}

void CVTestMounts::removeDrives()
{
    for (auto it = g_drives.crbegin(); it != g_drives.crend(); ++it) {
        ::umount2(QFile::encodeName(it->root).constData(), MNT_DETACH);
        // A FUSE filesystem is left to its program: unmounted lazily, it ends with its last user.
        ::umount2(QFile::encodeName(it->store).constData(), MNT_DETACH);
        if (!it->loopDevice.isEmpty())
            run(u"losetup"_s, { u"-d"_s, it->loopDevice });
        QDir().rmdir(it->root);
        QDir().rmdir(it->store);
    }
    g_drives.clear();
}
