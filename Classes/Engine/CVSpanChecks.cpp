#include "Engine/CVSpanChecks.h"

#include "Engine/CVMediaSpanner.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVTrack.h"
#include "Platform/CVVolumes.h"

#include <QFileInfo>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Exists, and not as a symbolic link.
bool isPlainFile(const QString &path)
{
    if (path.isEmpty())
        return false;
    const QFileInfo info(path);
    return info.exists() && !info.isSymLink();
}

} // namespace

CVSpanChecks::CVSpanChecks(const CVMediaSpanner &spanner, const CVLibraryManager &library)
    : m_spanner(spanner)
    , m_library(library)
{
}

QList<CVTrack *> CVSpanChecks::checkForFilesNotFoundInTracks(const QList<CVTrack *> &tracks) const
{
    QList<CVTrack *> missing;
    for (CVTrack *track : tracks) {
        if (isPlainFile(m_spanner.getCurrentPathForItem(track)))
            continue;
        const QString fileName = QFileInfo(m_spanner.getITunesPathForItem(track)).fileName();
        if (isPlainFile(m_spanner.createNewPathForItem(track, fileName)))
            continue;
        missing.append(track);
    }
    return missing;
}

CVSpanChecks::RunCheck CVSpanChecks::checkBeforeRun(const Request &r) const
{
    RunCheck check;
    if (!r.overrideFilesNotFound)
        check.missing = checkForFilesNotFoundInTracks(r.queue);
    // A location that cannot be measured has no room.
    const bool locationExists = !r.spanLocation.isEmpty() && QFileInfo::exists(r.spanLocation);
    const double free = locationExists ? double(qMax<qint64>(0, CVVolumes::freeSpaceForPath(r.spanLocation))) : 0.0;
    const double reserve = double(CVMediaSpanner::FreeSpaceReserve);
    const bool enough = r.overrideEnoughSpace || free - reserve > r.queueSize;
    const QString verb = r.restoreMode ? u"Restore"_s : u"Span"_s;

    const bool canRun = !r.queue.isEmpty() && (!r.spanLocation.isEmpty() || r.restoreMode);
    if (canRun && check.missing.isEmpty() && (enough || r.restoreMode)) {
        const int count = int(r.queue.size());
        check.outcome = Outcome::Confirm;
        check.alert.title
            = u"Are you sure you want to %1 the %2 selected track%3?\nAll files will be copied to %4."_s.arg(
                r.restoreMode ? u"restore"_s : u"span"_s, QString::number(count), count >= 2 ? u"s"_s : QString(),
                r.restoreMode ? u"their original locations"_s
                              : u"'%1'"_s.arg(m_library.createDisplayTitleForPath(r.spanLocation)));
        check.alert.defaultButton = verb;
        check.alert.alternateButton = u"Cancel"_s;
        check.alert.style = CVAlert::Style::Informational;
        return check;
    }

    // Each later text replaces the earlier ones.
    CVAlert &a = check.alert;
    a.defaultButton = u"OK"_s;
    if (!check.missing.isEmpty()) {
        check.outcome = Outcome::FilesNotFound;
        a.title = u"Files for %1 of the selected tracks could not be found."_s.arg(check.missing.size());
        a.text = u"If these files are on a drive that is not mounted, simply mount the drive before continuing.\n\n"
                 "If these files have been moved or renamed, iTunes may be able to locate the tracks. Corvana can tell "
                 "iTunes to attempt to locate these tracks.\n\nIf these files have been removed or are missing for "
                 "another reason, neither Corvana nor iTunes will be able to locate them."_s;
        a.alternateButton = u"Locate Tracks"_s;
        a.otherButton = u"%1 Anyway"_s.arg(verb);
        // A file in a folder that may not be opened is there, just out of reach: say so.
        QString example;
        int unreachable = 0;
        for (const CVTrack *track : std::as_const(check.missing)) {
            const QString path = m_spanner.getCurrentPathForItem(track);
            struct stat info { };
            if (!path.isEmpty() && ::stat(QFile::encodeName(path).constData(), &info) != 0 && errno == EACCES) {
                ++unreachable;
                if (example.isEmpty())
                    example = QFileInfo(path).absolutePath();
            }
        }
        if (unreachable > 0)
            a.text += u"\n\n%1 of them cannot be reached: Corvana is not allowed to open the folders that hold "
                      "them (such as “%2”). Giving yourself the permission to open them makes them available."_s.arg(
                          unreachable == int(check.missing.size()) ? u"All"_s : QString::number(unreachable), example);
    }
    if (!enough && !r.restoreMode) {
        check.outcome = Outcome::NotEnoughSpace;
        const QString title = m_library.createDisplayTitleForPath(r.spanLocation);
        a.title = u"Cannot span all the selected tracks to %1,\nonly %2 available on the drive."_s.arg(
            title, CVLibraryManager::humanReadableSizeFromBytes(qMax(0.0, free - reserve)));
        a.text = u"To be safe, Corvana does not fill up the last 100 MB of any drive, all sizes mentioned reflect "
                 "that.\n\nTo safely span to %1, remove at least %2 from the spanning queue.\n\nIf you choose to span "
                 "anyway, after the drive is full, Corvana will skip all of the remaining tracks."_s.arg(
                     title, CVLibraryManager::humanReadableSizeFromBytes(reserve + r.queueSize - free));
        a.alternateButton.clear();
        a.otherButton = u"Span Anyway"_s;
    }
    if (!r.restoreMode && !r.spanLocation.isEmpty() && !locationExists) {
        check.outcome = Outcome::SpanLocationNotFound;
        a.title = u"\nSelected span location cannot be found."_s;
        a.text = u"Choose a new span location."_s;
        a.alternateButton.clear();
        a.otherButton.clear();
    }
    if (!r.restoreMode && r.spanLocation.isEmpty()) {
        check.outcome = Outcome::NoSpanLocation;
        a.title = u"\nYou have not selected a span location."_s;
        a.text.clear();
        a.alternateButton.clear();
        a.otherButton.clear();
    }
    if (r.queue.isEmpty()) {
        check.outcome = Outcome::NoTracks;
        a.title = u"\nYou have not selected any tracks."_s;
        a.text.clear();
        a.alternateButton.clear();
        a.otherButton.clear();
    }
    return check;
}

CVSpanChecks::LocationCheck CVSpanChecks::checkSpanLocation(const QString &location, const QStringList &baseSpanPaths,
    const QString &mediaPath, const QString &startupDriveName) const
{
    LocationCheck check;
    for (const QString &base : baseSpanPaths) {
        if (base != location && location.startsWith(base + u'/')) {
            check.previousLocation = base;
            break;
        }
    }
    CVAlert &a = check.alert;
    const QByteArray encoded = QFile::encodeName(location);
    if (location.isEmpty() || ::access(encoded.constData(), R_OK | W_OK | X_OK) != 0) {
        check.advice = Advice::Unusable;
        a.title = u"\nCannot span to selected location."_s;
        a.text = u"Location must be readable and writable."_s;
        a.defaultButton = u"Choose New Location"_s;
        return check;
    }
    if (CVVolumes::isDriveRoot(location) && QFileInfo::exists(location)) {
        const QString drive = QFileInfo(location).fileName();
        check.advice = Advice::DriveRoot;
        a.title = u"It is recommended that you span to a subfolder on any drive."_s;
        a.text = u"Spanning to a subfolder will help keep your drive more organized, as well as help keep your spanned "
                 "files out of the way of any other interactions that may occur on the drive.\n\nWould you like to "
                 "create (if necessary) and select the folder 'Spanned Media' on '%1'?"_s.arg(drive);
        a.defaultButton = u"Select 'Spanned Media'"_s;
        a.alternateButton = u"Choose New Location"_s;
        a.otherButton = u"Keep '%1'"_s.arg(drive);
        return check;
    }
    if (!check.previousLocation.isEmpty()) {
        check.advice = Advice::PreviouslyUsed;
        a.title = u"\nIt is not recommended to span within a previously used span location."_s;
        a.defaultButton = u"Select '%1'"_s.arg(m_library.createDisplayTitleForPath(check.previousLocation));
        a.alternateButton = u"Keep '%1'"_s.arg(m_library.createDisplayTitleForPath(location));
        return check;
    }
    if (!mediaPath.isEmpty() && location != mediaPath && location.startsWith(mediaPath + u'/')) {
        check.advice = Advice::InsideMediaFolder;
        a.title = u"\nLocation cannot be within the default iTunes Media location."_s;
        a.defaultButton = u"Select '%1'"_s.arg(m_library.createDisplayTitleForPath(mediaPath));
        a.alternateButton = u"Choose New Location"_s;
        return check;
    }
    if (location == u"/"_s) {
        check.advice = Advice::StartupDrive;
        a.title = u"It is not recommended to span directly onto your startup drive."_s;
        a.text = u"It is strongly recommended that you choose a different span location."_s;
        a.defaultButton = u"Choose New Location"_s;
        a.otherButton = u"Keep '%1'"_s.arg(startupDriveName);
        return check;
    }
    return check;
}
