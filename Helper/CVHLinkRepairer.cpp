#include "CVHLinkRepairer.h"

#include "Platform/CVVolumes.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QString errorText(int code)
{
    return QString::fromLocal8Bit(std::strerror(code));
}

QString linkTarget(const QByteArray &place)
{
    QByteArray buffer(4096, Qt::Uninitialized);
    const ssize_t n = ::readlink(place.constData(), buffer.data(), std::size_t(buffer.size()));
    return n < 0 ? QString() : QFile::decodeName(buffer.left(n));
}

QByteArray temporaryName(const QByteArray &place)
{
    static std::atomic<unsigned> counter { 0 };
    const qsizetype slash = place.lastIndexOf('/');
    return place.left(slash + 1) + ".corvana-link-" + QByteArray::number(::getpid()) + '-'
        + QByteArray::number(counter++);
}

} // namespace

bool CVHLinkRepairer::driveMissing(const QString &path) const
{
    const QString root = CVVolumes::driveRootOfPath(path);
    return !root.isEmpty() && m_isMounted && !m_isMounted(root);
}

CVHLinkRepairer::Result CVHLinkRepairer::check(const CVHDependentTrack &track) const
{
    const QByteArray place = QFile::encodeName(track.playerLocation);
    struct stat info { };
    if (::lstat(place.constData(), &info) == 0 && !S_ISLNK(info.st_mode))
        return { Outcome::RealItemInPlace, {} };
    if (::stat(QFile::encodeName(track.spanLocation).constData(), &info) != 0)
        return { driveMissing(track.spanLocation) ? Outcome::DriveMissing : Outcome::SpanMissing, {} };
    if (linkTarget(place) != track.spanLocation)
        return { Outcome::Failed, u"%1 is not linked"_s.arg(track.playerLocation) };
    return { Outcome::AlreadyLinked, {} };
}

CVHLinkRepairer::Result CVHLinkRepairer::repair(const CVHDependentTrack &track) const
{
    const QByteArray place = QFile::encodeName(track.playerLocation);
    struct stat info { };
    const bool somethingThere = ::lstat(place.constData(), &info) == 0;
    if (somethingThere && !S_ISLNK(info.st_mode))
        return { Outcome::RealItemInPlace, {} };
    // Never point the player at a file that is not there: a wrong link stays as it is until
    // the span file can be seen.
    struct stat target { };
    if (::stat(QFile::encodeName(track.spanLocation).constData(), &target) != 0)
        return { driveMissing(track.spanLocation) ? Outcome::DriveMissing : Outcome::SpanMissing, {} };
    if (somethingThere) {
        if (linkTarget(place) == track.spanLocation)
            return { Outcome::AlreadyLinked, {} };
        return placeLink(track.playerLocation, track.spanLocation, true);
    }
    const QString parent = QFileInfo(track.playerLocation).absolutePath();
    if (!QFileInfo(parent).isDir()) {
        // Folders made in an empty mount point would hide the drive when it comes back.
        if (driveMissing(track.playerLocation))
            return { Outcome::DriveMissing, {} };
        if (!QDir().mkpath(parent))
            return { Outcome::Failed, u"Cannot create the folder %1"_s.arg(parent) };
    }
    return placeLink(track.playerLocation, track.spanLocation, false);
}

CVHLinkRepairer::Result CVHLinkRepairer::placeLink(
    const QString &placePath, const QString &target, bool replacing) const
{
    const QByteArray place = QFile::encodeName(placePath);
    const QByteArray temporary = temporaryName(place);
    if (::symlink(QFile::encodeName(target).constData(), temporary.constData()) != 0)
        return { Outcome::Failed, u"Cannot make a link beside %1: %2"_s.arg(placePath, errorText(errno)) };

    if (!replacing) {
        // Never over anything that appeared meanwhile.
        if (::renameat2(AT_FDCWD, temporary.constData(), AT_FDCWD, place.constData(), RENAME_NOREPLACE) == 0)
            return { Outcome::Made, {} };
        if (errno == EINVAL || errno == ENOSYS) {
            // A file system without the flag: a hard link of the new link fails the same way.
            const bool linked = ::link(temporary.constData(), place.constData()) == 0;
            const int code = errno;
            ::unlink(temporary.constData());
            if (linked)
                return { Outcome::Made, {} };
            return { code == EEXIST ? Outcome::RealItemInPlace : Outcome::Failed,
                code == EEXIST ? QString() : u"Cannot link %1: %2"_s.arg(placePath, errorText(code)) };
        }
        const int code = errno;
        ::unlink(temporary.constData());
        if (code == EEXIST)
            return repair({ {}, {}, placePath, target });
        return { Outcome::Failed, u"Cannot link %1: %2"_s.arg(placePath, errorText(code)) };
    }

    // Swap the new link with the old one, then look at what came out: only a link is removed.
    if (::renameat2(AT_FDCWD, temporary.constData(), AT_FDCWD, place.constData(), RENAME_EXCHANGE) == 0) {
        struct stat old { };
        if (::lstat(temporary.constData(), &old) == 0 && !S_ISLNK(old.st_mode)) {
            ::renameat2(AT_FDCWD, temporary.constData(), AT_FDCWD, place.constData(), RENAME_EXCHANGE);
            ::unlink(temporary.constData());
            return { Outcome::RealItemInPlace, {} };
        }
        ::unlink(temporary.constData());
        return { Outcome::Corrected, {} };
    }
    if (errno == EINVAL || errno == ENOSYS) {
        struct stat old { };
        if (::lstat(place.constData(), &old) == 0 && S_ISLNK(old.st_mode)
            && ::rename(temporary.constData(), place.constData()) == 0)
            return { Outcome::Corrected, {} };
    }
    const int code = errno;
    ::unlink(temporary.constData());
    return { Outcome::Failed, u"Cannot correct the link %1: %2"_s.arg(placePath, errorText(code)) };
}
