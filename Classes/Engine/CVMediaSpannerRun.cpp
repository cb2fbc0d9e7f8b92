// The span and restore run of CVMediaSpanner: one track at a time, copy, then point the player.
#include "Engine/CVMediaSpanner.h"

#include "Engine/CVMediaSpannerThreads.h"
#include "Engine/CVPlayerLink.h"
#include "Engine/CVSpannerHost.h"
#include "Engine/CVSpannerRunHost.h"
#include "Library/CVTrack.h"
#include "Platform/CVFileCopier.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVLog.h"
#include "Platform/CVPresenter.h"
#include "Platform/CVSettings.h"
#include "Platform/CVVolumes.h"
#include "Platform/FileSystemEventWatcher.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

bool samePath(const QString &a, const QString &b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

QString disconnectedText(const QString &drive)
{
    return u"The drive “%1” was disconnected during the run; this track was not copied."_s.arg(drive);
}

} // namespace

void CVMediaSpanner::spanTracks(const QList<CVTrack *> &tracks)
{
    const int n = int(tracks.size());
    m_runRestoreMode = m_runHost && m_runHost->restoreMode();
    m_runSpanLocation = m_runHost ? m_runHost->spanLocation() : QString();
    const bool restore = m_runRestoreMode;
    // Nothing is copied unless every move can be recorded and told to the player.
    const QString refusal = checkRunCanStart();
    if (!refusal.isEmpty()) {
        CVLog::log(u"Not starting %1: %2"_s.arg(restore ? u"restore"_s : u"span"_s, refusal));
        Q_EMIT runRefused(refusal);
        return;
    }
    CVLog::log(u"Starting %1 with %2 tracks"_s.arg(restore ? u"restore"_s : u"span"_s).arg(n));

    if (m_settings && !restore) {
        QStringList history = m_settings->stringListValue(CVSettingsKey::SpanLocationHistory);
        history.removeAll(m_runSpanLocation);
        history.prepend(m_runSpanLocation);
        m_settings->setValue(CVSettingsKey::SpanLocationHistory, history.mid(0, 5));
    }
    m_spanRepairAttempts = 0;
    m_trashedFileCount = 0;
    m_trashedFolderCount = 0;
    m_runUnderWay = true;
    setPauseSpan(false);
    m_skipTheRest = false;
    m_needsReloadAfterSpan = false;
    m_copies.clear();
    m_copiesNotDurable.clear();
    m_claimedDestinations.clear();
    m_maxFileSizes.clear();
    // Two names that differ only in letter case meet at one file on some drives (exFAT, FAT, SMB).
    m_destinationIgnoresCase
        = !restore && !m_runSpanLocation.isEmpty() && CVVolumes::ignoresLetterCase(m_runSpanLocation);
    Q_EMIT skipTitleChanged(u"Skip the rest…"_s);
    if (m_settings) {
        // Written to disk together with the in-flight map below: a crash must never find the
        // run marked without the map of the tracks it moves.
        m_settings->setValue(CVSettingsKey::IsSpanning, true);
        m_settings->setValue(CVSettingsKey::LastSpanLocation, restore ? u"CVRestoreMode"_s : m_runSpanLocation);
    }

    Q_EMIT progressChanged(0, 0, true);
    Q_EMIT headerChanged(
        u"%1 %2 Track%3"_s.arg(restore ? u"Restoring"_s : u"Spanning"_s).arg(n).arg(n == 1 ? QString() : u"s"_s));
    setTaskLine(u"Preparing to Relocate Selected Tracks"_s, int(Qt::AlignRight));
    m_rawContentForResults.clear();
    prepareWindowForRun();
    loadPreviouslySpannedTracks();

    // Watch the folders the run works in (never a whole drive: a restore has no span location);
    // remember where every track was, for a crash.
    QStringList watchList;
    QSet<QString> watched;
    const auto watchFolderOf = [&](const QString &path) {
        const QString folder = QFileInfo(path).absolutePath();
        if (!path.isEmpty() && !watched.contains(folder)) {
            watched.insert(folder);
            watchList.append(folder);
        }
    };
    if (!m_runSpanLocation.isEmpty()) {
        watchList.append(QDir::cleanPath(m_runSpanLocation));
        watched.insert(watchList.constLast());
    }
    QStringList drivePaths { m_runSpanLocation };
    if (crashedWhileSpanningLastRun()) {
        for (auto it = m_previouslySpannedTracks.cbegin(); it != m_previouslySpannedTracks.cend(); ++it)
            watchFolderOf(it.value());
    } else {
        QVariantMap inFlight;
        for (const CVTrack *track : tracks) {
            const QString current = getCurrentPathForItem(track);
            watchFolderOf(current);
            inFlight.insert(track->text(CVAttr::PersistentID), current);
        }
        if (m_settings)
            m_settings->setValue(CVSettingsKey::LastTracksSpanned, inFlight);
        m_previouslySpannedTracks.clear();
        for (auto it = inFlight.cbegin(); it != inFlight.cend(); ++it)
            m_previouslySpannedTracks.insert(it.key(), it.value().toString());
    }
    if (restore)
        for (const CVTrack *track : tracks)
            watchFolderOf(getOriginalPathForItem(track));
    for (const CVTrack *track : tracks) {
        drivePaths.append(getCurrentPathForItem(track));
        if (restore)
            drivePaths.append(getOriginalPathForItem(track));
    }
    noteDrivesOfRun(drivePaths);
    if (m_settings)
        m_settings->synchronize();
    FileSystemEventWatcher::sharedPathWatcher()->startWatchingFolders(watchList);
    if (m_playerLink)
        m_playerLink->prepareForChanges();
    if (m_host) {
        CVSpannerHost *host = m_host;
        CVMediaSpannerThreads::onMainThreadLater([host] { host->tellCorvanaHelperToQuit(); });
    }

    const int maximum = 2 * n;
    Q_EMIT progressChanged(0, maximum, false);
    m_spannedTracks.clear();
    setTaskLine(QString());
    int step = 1;

    for (CVTrack *track : tracks) {
        waitWhilePaused();
        const QString title = createDisplayTitleForItem(track);
        if (m_skipTheRest) {
            step += 2;
            showStep(step - 1, maximum);
            setTaskLine(u"Skipping: %1"_s.arg(title));
            addRow(track, CVResultIcon::Skip, u"You skipped the rest."_s);
            continue;
        }
        showStep(step++, maximum);
        const QString pid = track->text(CVAttr::PersistentID);
        const bool known = track->flag(CVAttr::ItemIsSpanned) || track->flag(CVAttr::ItemIsRestored);
        const QString playerPath = getITunesPathForItem(track);
        const QString currentPath = getCurrentPathForItem(track);
        const QString originalPath = getOriginalPathForItem(track);
        const QString dest = createNewPathForItem(track, QFileInfo(playerPath).fileName());
        const bool sameAsOriginal = samePath(originalPath, dest);
        const auto finish = [&] { showStep(step++, maximum); };
        const auto fail = [&](const QString &message, CVResultIcon icon = CVResultIcon::Fail) {
            setTaskLine((icon == CVResultIcon::Skip ? u"Skipping: %1"_s : u"Failed: %1"_s).arg(title));
            addRow(track, icon, message);
            finish();
        };

        // A destination drive that went away ends the copying; the rest is only reported.
        if (m_destinationDriveGone.isEmpty() && !restore)
            m_destinationDriveGone = driveGoneFor(m_runSpanLocation);
        if (!m_destinationDriveGone.isEmpty()) {
            fail(disconnectedText(m_destinationDriveGone), CVResultIcon::Skip);
            continue;
        }
        const QString sourceGone = driveGoneFor(currentPath);
        if (!sourceGone.isEmpty()) {
            fail(u"The drive “%1” that holds this track's file was disconnected; nothing was done."_s.arg(sourceGone),
                CVResultIcon::Skip);
            continue;
        }
        if (restore) {
            const QString gone = driveGoneFor(dest);
            if (!gone.isEmpty()) {
                fail(disconnectedText(gone), CVResultIcon::Skip);
                continue;
            }
        }

        if (m_destinationIgnoresCase) {
            const QString folded = dest.toCaseFolded();
            const auto claimed = m_claimedDestinations.constFind(folded);
            if (claimed != m_claimedDestinations.cend() && *claimed != pid) {
                fail(u"Another track of this run already uses the name “%1” on a drive that ignores letter case; "
                     "this track was not copied."_s.arg(dest));
                continue;
            }
            m_claimedDestinations.insert(folded, pid);
        }

        struct stat destInfo { };
        const bool destExists = !dest.isEmpty() && ::lstat(QFile::encodeName(dest).constData(), &destInfo) == 0;
        if (!track->flag(CVAttr::SymSpan)) {
            if (!destExists) {
                if (!restore && !isPresent(m_runSpanLocation)) {
                    fail(u"Span location no longer existed at time of span."_s, CVResultIcon::Skip);
                    continue;
                }
                if (restore && !isPresent(getBasePathForPath(originalPath))) {
                    fail(u"Restore location no longer existed at time of restore."_s);
                    continue;
                }
            } else if (known && !crashedWhileSpanningLastRun()) {
                if (samePath(dest, track->text(CVAttr::SpanLocation))) {
                    setTaskLine(u"Skipping: %1"_s.arg(title));
                    addRow(track, CVResultIcon::Skip,
                        sameAsOriginal
                            ? u"Track already restored."_s
                            : u"Track already spanned to '%1'."_s.arg(track->text(CVAttr::DisplaySpanLocation)),
                        true);
                    finish();
                    continue;
                }
            } else if (!known && sameAsOriginal) {
                // After a crash a known track goes on: the interrupted run is finished.
                setTaskLine(u"Skipping: %1"_s.arg(title));
                addRow(track, CVResultIcon::Skip, u"No need to restore this track, it was not spanned."_s, true);
                finish();
                continue;
            }
        }

        // What may be touched at all: the user's own regular files, outside the system's folders.
        struct stat currentInfo { };
        const bool currentExists
            = !currentPath.isEmpty() && ::stat(QFile::encodeName(currentPath).constData(), &currentInfo) == 0;
        const int currentError = currentExists ? 0 : errno;
        if (!currentExists && !destExists) {
            if (currentError == EACCES)
                fail(u"The original file could not be found. “%1” cannot be reached: %2."_s.arg(
                    currentPath, QString::fromLocal8Bit(strerror(currentError))));
            else
                fail(u"The original file could not be found."_s);
            continue;
        }
        if (currentExists) {
            const QString notOurs = refusalForItem(currentPath);
            if (!notOurs.isEmpty()) {
                fail(notOurs);
                continue;
            }
        }
        if (isInSystemFolder(dest)) {
            fail(u"“%1” lies in a system folder; Corvana puts files only where your own media belong."_s.arg(dest));
            continue;
        }

        // The copy.
        bool copied = false;
        if (destExists) {
            // A link at the destination that leads to this very file (the link of a dependent
            // track) stands in for the file: the real file takes its place.
            const bool linkToCurrent = S_ISLNK(destInfo.st_mode) && currentExists && [&] {
                struct stat target { };
                return ::stat(QFile::encodeName(dest).constData(), &target) == 0 && target.st_dev == currentInfo.st_dev
                    && target.st_ino == currentInfo.st_ino;
            }();
            if (linkToCurrent) {
                setTaskLine(u" Copying:\t%1"_s.arg(title));
                const QString linkRefusal = refusalForItem(dest, false);
                if (!linkRefusal.isEmpty()) {
                    fail(linkRefusal);
                    continue;
                }
                const CVTrash::Result moved = m_fileManager ? m_fileManager->moveToTrash(dest) : CVTrash::Result {};
                if (!moved.ok) {
                    fail(u"The original file could not be copied, an error occurred. The link at “%1” cannot be "
                         "replaced: %2"_s.arg(dest, moved.error));
                    continue;
                }
                const CopyAttempt attempt = copyWithRules(
                    track, currentPath, dest, restore ? getBasePathForPath(originalPath) : m_runSpanLocation);
                if (attempt.outcome != CopyOutcome::Copied) {
                    // The link goes back, so that the player still finds the file.
                    if (!QFile::link(currentPath, dest))
                        CVLog::log(u"The link at %1 could not be made again"_s.arg(dest));
                    fail(u"The original file could not be copied, an error occurred. %1"_s.arg(attempt.error));
                    continue;
                }
                copied = true;
                showStep(step++, maximum);
            } else if (!currentExists) {
                // Only a file the history already has at this place is taken as the track's.
                const bool recorded
                    = known && samePath(dest, track->text(CVAttr::SpanLocation)) && S_ISREG(destInfo.st_mode);
                if (!recorded) {
                    fail(u"The original file could not be found, and the file at “%1” is not known to be its copy; "
                         "it was left as it is."_s.arg(dest));
                    continue;
                }
                CVLog::log(u"File not at current path, but at new path. (%1)"_s.arg(dest));
            } else {
                CVLog::log(u"File is at the new path too. (%1)"_s.arg(dest));
                QString error;
                const CVFileCopier::Comparison same = S_ISREG(destInfo.st_mode)
                    ? CVFileCopier::compareContents(currentPath, dest, &error)
                    : CVFileCopier::Comparison::Different;
                if (same == CVFileCopier::Comparison::Unreadable) {
                    fail(u"The file at “%1” cannot be compared with the original: %2"_s.arg(dest, error));
                    continue;
                }
                if (same == CVFileCopier::Comparison::Different) {
                    // Another file holds the destination's name: neither is touched.
                    CVLog::log(u"File at new location is a different file. (%1)"_s.arg(dest));
                    fail(u"A different file already exists at “%1”; both files were left as they are."_s.arg(dest));
                    continue;
                }
                m_copies.insert(pid, CVFileCopier::identityOf(dest));
            }
        } else {
            setTaskLine(u" Copying:\t%1"_s.arg(title));
            // The original leaves its folder once the copy is in use: find out now if it cannot.
            const QString folder = QFileInfo(currentPath).absolutePath();
            if (::access(QFile::encodeName(folder).constData(), W_OK) != 0) {
                fail(u"The original file cannot be moved out of “%1” afterwards: %2. Nothing was copied."_s.arg(
                    folder, QString::fromLocal8Bit(strerror(errno))));
                continue;
            }
            const CopyAttempt attempt = copyWithRules(
                track, currentPath, dest, restore ? getBasePathForPath(originalPath) : m_runSpanLocation);
            if (attempt.outcome == CopyOutcome::DriveGone) {
                if (!restore && attempt.drive == CVVolumes::driveRootOfPath(m_runSpanLocation))
                    m_destinationDriveGone = attempt.drive;
                fail(attempt.drive == CVVolumes::driveRootOfPath(currentPath)
                        ? u"The drive “%1” that holds this track's file was disconnected; nothing was done."_s.arg(
                            attempt.drive)
                        : disconnectedText(attempt.drive),
                    CVResultIcon::Skip);
                continue;
            }
            if (attempt.outcome == CopyOutcome::NoSpace) {
                fail(u"File not copied, no more space available on destination drive."_s);
                continue;
            }
            if (attempt.outcome == CopyOutcome::TooLarge) {
                fail(attempt.error);
                continue;
            }
            if (attempt.outcome != CopyOutcome::Copied) {
                fail(attempt.existing
                        ? u"A different file already exists at “%1”; both files were left as they are."_s.arg(dest)
                        : u"The original file could not be copied, an error occurred. %1"_s.arg(attempt.error));
                continue;
            }
            copied = true;
            showStep(step++, maximum);
        }

        // Point the player at the destination.
        m_spannedTracks.insert(pid, dest);
        if (!samePath(dest, playerPath))
            pointPlayerAt(track, dest, title, true);
        else
            setTaskLine(u"Passing: %1"_s.arg(title));
        if (!copied)
            finish();
    }

    if (m_spannedTracks.isEmpty()) {
        showResultsAfterSpan();
    } else {
        m_needsReloadAfterSpan = true;
        verifySpannedTracks(tracks);
    }
}
