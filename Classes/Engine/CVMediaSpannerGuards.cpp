// What keeps a run from losing or misplacing a file: the checks before a run starts, what may
// be moved at all, the drives a run depends on, and the check of a copy before its original goes.
#include "Engine/CVMediaSpanner.h"

#include "Engine/CVPlayerLink.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVTrack.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVLog.h"
#include "Platform/CVVolumes.h"

#include <QDir>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QString describe(int error)
{
    return QString::fromLocal8Bit(strerror(error));
}

} // namespace

bool CVMediaSpanner::isInSystemFolder(const QString &path)
{
    if (path.isEmpty() || path[0] != u'/')
        return false;
    const QString clean = QDir::cleanPath(path);
    const QString top = clean.section(u'/', 1, 1);
    static const QStringList system { u"etc"_s, u"usr"_s, u"bin"_s, u"sbin"_s, u"boot"_s, u"dev"_s, u"proc"_s, u"sys"_s,
        u"run"_s, u"var"_s, u"opt"_s, u"srv"_s };
    if (top.startsWith(u"lib"_s))
        return true;
    if (!system.contains(top))
        return false;
    // Removable drives are mounted below /run/media, and some systems keep homes below /var.
    return !clean.startsWith(u"/run/media/"_s) && !clean.startsWith(u"/var/home/"_s);
}

QString CVMediaSpanner::refusalForItem(const QString &path, bool followLinks)
{
    if (isInSystemFolder(path))
        return u"“%1” lies in a system folder; Corvana moves only your own media files."_s.arg(path);
    const QByteArray encoded = QFile::encodeName(path);
    struct stat info { };
    if ((followLinks ? ::stat(encoded.constData(), &info) : ::lstat(encoded.constData(), &info)) != 0)
        return u"“%1” cannot be reached: %2."_s.arg(path, describe(errno));
    if (followLinks && !S_ISREG(info.st_mode))
        return u"“%1” is %2, not a file; only files are spanned and restored."_s.arg(
            path, CVFileCopier::kindOfItem(info.st_mode));
    if (info.st_uid != ::geteuid())
        return u"“%1” belongs to another user; Corvana moves only files you own."_s.arg(path);
    // Where a link leads counts too: a link to a system file is not a media file of the user's.
    if (followLinks) {
        const QString target = QFileInfo(path).canonicalFilePath();
        if (!target.isEmpty() && target != path && isInSystemFolder(target))
            return u"“%1” leads to “%2”, in a system folder; Corvana moves only your own media files."_s.arg(
                path, target);
    }
    return {};
}

QString CVMediaSpanner::checkRunCanStart()
{
    if (::geteuid() == 0 && !m_allowRoot)
        return u"Corvana does not span or restore as the administrator (root): the copies, the Trash and the "
               "span history would all be root's. Run Corvana as the user who owns the music."_s;
    if (!m_library)
        return u"No library is loaded."_s;
    QString error;
    if (!m_library->checkSpanHistoryWritable(&error))
        return u"The span history cannot be written, so nothing that a run does could be recorded. %1"_s.arg(error);
    if (m_playerLink) {
        m_playerLink->setRunSpanLocation(restoreMode() ? QString() : spanLocation());
        const QString linkError = m_playerLink->checkLocationsCanBeSet();
        if (!linkError.isEmpty())
            return u"The player cannot be told new locations. %1"_s.arg(linkError);
    }
    return {};
}

void CVMediaSpanner::noteDrivesOfRun(const QStringList &paths)
{
    m_driveDevices.clear();
    m_destinationDriveGone.clear();
    for (const QString &path : paths) {
        const QString root = CVVolumes::driveRootOfPath(path);
        if (root.isEmpty() || m_driveDevices.contains(root) || !CVVolumes::isMountPoint(root))
            continue;
        struct stat info { };
        if (::stat(QFile::encodeName(root).constData(), &info) == 0)
            m_driveDevices.insert(root, info.st_dev);
    }
}

QString CVMediaSpanner::driveGoneFor(const QString &path) const
{
    const QString root = CVVolumes::driveRootOfPath(path);
    const auto it = m_driveDevices.constFind(root);
    if (root.isEmpty() || it == m_driveDevices.cend())
        return {};
    struct stat info { };
    if (::stat(QFile::encodeName(root).constData(), &info) != 0 || info.st_dev != *it || !CVVolumes::isMountPoint(root))
        return root;
    return {};
}

bool CVMediaSpanner::isPresent(const QString &path) const
{
    if (path.isEmpty() || !QFileInfo::exists(path))
        return false;
    const QString root = CVVolumes::driveRootOfPath(path);
    return root.isEmpty() || path == root || CVVolumes::isMountPoint(root);
}

bool CVMediaSpanner::isOurCopy(const QString &pid, const QString &dest, const QString &original) const
{
    const CVFileCopier::Identity now = CVFileCopier::identityOf(dest);
    if (!now.valid)
        return false;
    const auto it = m_copies.constFind(pid);
    if (it != m_copies.cend() && CVFileCopier::sameIdentity(*it, now))
        return true;
    // Some filesystems (FUSE ones, shares) renumber files: the bytes decide then.
    if (it != m_copies.cend() && it->size == now.size && !original.isEmpty()
        && CVFileCopier::compareContents(original, dest) == CVFileCopier::Comparison::Same)
        return true;
    return false;
}

bool CVMediaSpanner::copyStandsInFor(const QString &pid, const QString &original, const QString &dest) const
{
    struct stat copy { };
    struct stat target { };
    // A link (or a second name) of the copy itself, such as the link of a dependent track.
    if (::stat(QFile::encodeName(dest).constData(), &copy) == 0
        && ::stat(QFile::encodeName(original).constData(), &target) == 0 && target.st_dev == copy.st_dev
        && target.st_ino == copy.st_ino)
        return true;
    return m_copies.contains(pid) && isOurCopy(pid, dest, original);
}

QString CVMediaSpanner::checkOriginalMayGo(
    const QString &pid, const QString &original, const QString &dest, bool &go) const
{
    go = false;
    struct stat item { };
    if (::lstat(QFile::encodeName(original).constData(), &item) != 0)
        return {};
    if (!copyStandsInFor(pid, original, dest)) {
        // Not a file this run copied from: it is someone's, and stays.
        if (!m_copies.contains(pid)) {
            CVLog::log(u"Kept %1: not copied in this run"_s.arg(original));
            return {};
        }
        return u"“%1” was kept: its copy at “%2” is not there as Corvana made it."_s.arg(original, dest);
    }
    const QString refusal = refusalForItem(original, false);
    if (!refusal.isEmpty())
        return refusal;
    go = true;
    return {};
}
