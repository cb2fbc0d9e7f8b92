// The span and restore run of CVMediaSpanner: one track at a time, copy, then point the player.
#include "Engine/CVMediaSpanner.h"

#include "Engine/CVMediaSpannerThreads.h"
#include "Engine/CVSpannerHost.h"
#include "Library/CVTrack.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVLog.h"
#include "Platform/CVSettings.h"
#include "Platform/CVVolumes.h"
#include "Platform/FileSystemEventWatcher.h"

#include <QFileInfo>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

bool exists(const QString &path)
{
    return !path.isEmpty() && QFileInfo::exists(path);
}

bool samePath(const QString &a, const QString &b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

// The same file at both places: what our own copy leaves (same size, same modification time).
bool sameFile(const QString &a, const QString &b)
{
    struct stat x { };
    struct stat y { };
    if (::stat(QFile::encodeName(a).constData(), &x) != 0 || ::stat(QFile::encodeName(b).constData(), &y) != 0)
        return false;
    if (x.st_dev == y.st_dev && x.st_ino == y.st_ino)
        return true;
    return x.st_size == y.st_size && x.st_mtim.tv_sec == y.st_mtim.tv_sec;
}

} // namespace

void CVMediaSpanner::spanTracks(const QList<CVTrack *> &tracks)
{
    const int n = int(tracks.size());
    m_runRestoreMode = m_host && m_host->restoreMode();
    m_runSpanLocation = m_host ? m_host->spanLocation() : QString();
    const bool restore = m_runRestoreMode;
    CVLog::log(u"Starting %1 with %2 tracks"_s.arg(restore ? u"restore"_s : u"span"_s).arg(n));

    if (m_settings && !restore) {
        QStringList history = m_settings->stringListValue(u"CVSpanLocationHistory"_s);
        history.removeAll(m_runSpanLocation);
        history.prepend(m_runSpanLocation);
        m_settings->setValue(u"CVSpanLocationHistory"_s, history.mid(0, 5));
    }
    m_spanRepairAttempts = 0;
    m_trashedFileCount = 0;
    m_trashedFolderCount = 0;
    m_runUnderWay = true;
    setPauseSpan(false);
    m_skipTheRest = false;
    m_needsReloadAfterSpan = false;
    Q_EMIT skipTitleChanged(u"Skip the rest…"_s);
    if (m_settings) {
        // Written to disk together with the in-flight map below: a crash must never find the
        // run marked without the map of the tracks it moves.
        m_settings->setValue(u"CVIsSpanning"_s, true);
        m_settings->setValue(u"CVLastSpanLocation"_s, restore ? u"CVRestoreMode"_s : m_runSpanLocation);
    }

    Q_EMIT progressChanged(0, 0, true);
    Q_EMIT headerChanged(
        u"%1 %2 Track%3"_s.arg(restore ? u"Restoring"_s : u"Spanning"_s).arg(n).arg(n == 1 ? QString() : u"s"_s));
    setTaskLine(u"Preparing to Relocate Selected Tracks"_s, int(Qt::AlignRight));
    m_rawContentForResults.clear();
    prepareWindowForRun();
    loadPreviouslySpannedTracks();

    // Watch the drives the run works on; remember where every track was, for a crash.
    QStringList watchList { m_runSpanLocation.isEmpty() ? u"/"_s : m_runSpanLocation };
    if (crashedWhileSpanningLastRun()) {
        for (auto it = m_previouslySpannedTracks.cbegin(); it != m_previouslySpannedTracks.cend(); ++it) {
            const QString root = CVVolumes::driveRootOfPath(it.value());
            if (!root.isEmpty() && !watchList.contains(root))
                watchList.append(root);
        }
    } else {
        QVariantMap inFlight;
        for (const CVTrack *track : tracks) {
            const QString current = getCurrentPathForItem(track);
            const QString root = CVVolumes::driveRootOfPath(current);
            if (!root.isEmpty() && !watchList.contains(root))
                watchList.append(root);
            inFlight.insert(track->text(CVAttr::PersistentID), current);
        }
        if (m_settings)
            m_settings->setValue(u"CVLastTracksSpanned"_s, inFlight);
        m_previouslySpannedTracks.clear();
        for (auto it = inFlight.cbegin(); it != inFlight.cend(); ++it)
            m_previouslySpannedTracks.insert(it.key(), it.value().toString());
    }
    if (m_settings)
        m_settings->synchronize();
    FileSystemEventWatcher::sharedPathWatcher()->startWatchingPaths(watchList);
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

        if (!track->flag(CVAttr::SymSpan)) {
            bool proceed = true;
            if (!exists(dest)) {
                if (!restore && !exists(m_runSpanLocation)) {
                    setTaskLine(u"Skipping: %1"_s.arg(title));
                    addRow(track, CVResultIcon::Skip, u"Span location no longer existed at time of span."_s);
                    proceed = false;
                } else if (restore && !exists(getBasePathForPath(originalPath))) {
                    setTaskLine(u"Failed: %1"_s.arg(title));
                    addRow(track, CVResultIcon::Fail, u"Restore location no longer existed at time of restore."_s);
                    proceed = false;
                }
            } else if (known && !crashedWhileSpanningLastRun()) {
                if (samePath(dest, track->text(CVAttr::SpanLocation))) {
                    setTaskLine(u"Skipping: %1"_s.arg(title));
                    addRow(track, CVResultIcon::Skip,
                        sameAsOriginal
                            ? u"Track already restored."_s
                            : u"Track already spanned to '%1'."_s.arg(track->text(CVAttr::DisplaySpanLocation)));
                    proceed = false;
                }
            } else if (!known && sameAsOriginal) {
                // After a crash a known track goes on: the interrupted run is finished.
                setTaskLine(u"Skipping: %1"_s.arg(title));
                addRow(track, CVResultIcon::Skip, u"No need to restore this track, it was not spanned."_s);
                proceed = false;
            }
            if (!proceed) {
                finish();
                continue;
            }
        }

        // The copy.
        bool copied = false;
        if (!exists(currentPath) && !exists(dest)) {
            setTaskLine(u"Failed: %1"_s.arg(title));
            addRow(track, CVResultIcon::Fail, u"The original file could not be found."_s);
            finish();
            continue;
        }
        if (exists(dest)) {
            if (!exists(currentPath)) {
                CVLog::log(u"File not at current path, but at new path. (%1)"_s.arg(dest));
            } else {
                CVLog::log(u"File is at the new path too. (%1)"_s.arg(dest));
                if (!sameFile(currentPath, dest)) {
                    // Another file holds the destination's name: neither is touched.
                    CVLog::log(u"File at new location is a different file. (%1)"_s.arg(dest));
                    setTaskLine(u"Failed: %1"_s.arg(title));
                    addRow(track, CVResultIcon::Fail, u"The original file could not be copied, an error occurred."_s);
                    finish();
                    continue;
                }
            }
        } else {
            setTaskLine(u" Copying:\t%1"_s.arg(title));
            const CopyOutcome outcome = copyWithRules(track, currentPath, dest);
            if (outcome != CopyOutcome::Copied) {
                setTaskLine(u"Failed: %1"_s.arg(title));
                addRow(track, CVResultIcon::Fail,
                    outcome == CopyOutcome::Failed
                        ? u"The original file could not be copied, an error occurred."_s
                        : u"File not copied, no more space available on destination drive."_s);
                finish();
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
