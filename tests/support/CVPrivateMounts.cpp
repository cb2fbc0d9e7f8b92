#include "CVPrivateMounts.h"

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

bool g_available = false;
QString g_why = u"no private mounts were asked for"_s;

bool writeProcFile(const char *path, const QByteArray &text)
{
    const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = ::write(fd, text.constData(), size_t(text.size())) == text.size();
    ::close(fd);
    return ok;
}

QString errorText()
{
    return QString::fromLocal8Bit(strerror(errno));
}

} // namespace

bool CVPrivateMounts::enter()
{
    if (::geteuid() == 0) {
        if (::unshare(CLONE_NEWNS) != 0) {
            g_why = u"no mount namespace: %1"_s.arg(errorText());
            return false;
        }
    } else {
        const uid_t uid = ::getuid();
        const gid_t gid = ::getgid();
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
            g_why = u"not root, and no user namespace: %1"_s.arg(errorText());
            return false;
        }
        writeProcFile("/proc/self/setgroups", "deny");
        if (!writeProcFile("/proc/self/uid_map", "0 " + QByteArray::number(uid) + " 1")
            || !writeProcFile("/proc/self/gid_map", "0 " + QByteArray::number(gid) + " 1")) {
            g_why = u"the user namespace cannot be mapped"_s;
            return false;
        }
    }
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
        || ::mount("tmpfs", "/mnt", "tmpfs", 0, "size=1g,mode=0755") != 0) {
        g_why = u"tmpfs cannot be mounted: %1"_s.arg(errorText());
        return false;
    }
    g_available = true;
    g_why.clear();
    return true;
}

bool CVPrivateMounts::available()
{
    return g_available;
}

QString CVPrivateMounts::whyNot()
{
    return g_why;
}

QString CVPrivateMounts::mountDrive(const QString &name, qint64 bytes)
{
    if (!g_available)
        return {};
    const QString root = u"/mnt/"_s + name;
    QDir().mkpath(root);
    const QByteArray options = "size=" + QByteArray::number(bytes) + ",mode=0755";
    if (::mount("tmpfs", QFile::encodeName(root).constData(), "tmpfs", 0, options.constData()) != 0)
        return {};
    return root;
}

void CVPrivateMounts::unmountDrive(const QString &root)
{
    ::umount2(QFile::encodeName(root).constData(), MNT_DETACH);
    QDir().rmdir(root);
}
