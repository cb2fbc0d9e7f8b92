// What a run could not settle at once: reattempt rounds, locating what still fails, and the
// update of dependently spanned tracks.
#include "Engine/CVMediaSpanner.h"

#include "Engine/CVMediaSpannerThreads.h"
#include "Engine/CVSpannerHost.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVTrack.h"
#include "Platform/CVLog.h"
#include "Platform/CVSettings.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

void CVMediaSpanner::reattemptFailedSpanTracks(const QList<CVTrack *> &tracks)
{
    ++m_spanRepairAttempts;
    const int m = int(tracks.size());
    const QString what = m_runUnderWay ? (m_runRestoreMode ? u"Restore"_s : u"Span"_s) : u"Update"_s;
    Q_EMIT headerChanged(u"Reattempting %1 for %2 Track%3"_s.arg(what).arg(m).arg(m == 1 ? QString() : u"s"_s));
    CVLog::log(u"Reattempting %1 tracks"_s.arg(m));
    Q_EMIT progressChanged(0, m, false);
    setTaskLine(m_taskLine);
    QVariantMap working = lastTracksSpanned();
    int step = 1;
    for (CVTrack *track : tracks) {
        waitWhilePaused();
        const QString pid = track->text(CVAttr::PersistentID);
        const QString span = track->text(CVAttr::SpanLocation);
        const QString prev = m_previouslySpannedTracks.value(pid);
        const QString title = createDisplayTitleForItem(track);
        bool atSpan = QFileInfo::exists(span);
        if (!prev.isEmpty() && QFileInfo::exists(prev) && !atSpan) {
            working.insert(pid, prev);
            setTaskLine(u" Copying:\t%1"_s.arg(title));
            const QString top
                = m_runRestoreMode ? getBasePathForPath(getOriginalPathForItem(track)) : m_runSpanLocation;
            atSpan = refusalForItem(prev).isEmpty()
                && copyWithRules(track, prev, span, top.isEmpty() ? QFileInfo(span).absolutePath() : top).outcome
                    == CopyOutcome::Copied;
        } else if (atSpan && m_copies.contains(pid) && !isOurCopy(pid, span, prev)) {
            // Whatever stands there now is not the copy this run made: the player is not sent to it.
            CVLog::log(u"File at new location is a different file. (%1)"_s.arg(span));
            atSpan = false;
        }
        if (atSpan)
            pointPlayerAt(track, span, title, true);
        showStep(step++, m);
    }
    if (m_settings) {
        m_settings->setValue(CVSettingsKey::LastTracksSpanned, working);
        m_settings->synchronize();
    }
    verifySpannedTracks(tracks);
}

void CVMediaSpanner::resolveFailedSpanTracks(const QList<CVTrack *> &tracks)
{
    QList<CVTrack *> dependent;
    for (CVTrack *track : tracks) {
        const QString pid = track->text(CVAttr::PersistentID);
        const QString orig = track->text(CVAttr::OriginalLocation);
        const QString loc = track->text(CVAttr::Location);
        const QString span = track->text(CVAttr::SpanLocation);
        const bool isRestore = orig.compare(span, Qt::CaseInsensitive) == 0;
        if (!loc.isEmpty() && QFileInfo::exists(loc)) {
            if (QFileInfo::exists(span) && loc != span) {
                // The player keeps its file where it was: the copy is of no use. Only a file that
                // is this run's copy, or the same bytes as the player's file, may go.
                if (!isOurCopy(pid, span, loc)
                    && CVFileCopier::compareContents(loc, span) != CVFileCopier::Comparison::Same) {
                    addRow(track, CVResultIcon::Fail,
                        u"Track could not be %1 for some reason. Original file and iTunes location unchanged; the "
                        "file at “%2” is not Corvana's copy and was left as it is."_s.arg(
                            isRestore ? u"restored"_s : u"spanned"_s, span));
                    continue;
                }
                if (trashAndCleanUp(track, span).ok && !QFileInfo::exists(span))
                    ++m_trashedFileCount;
            }
            addRow(track, CVResultIcon::Fail,
                isRestore ? u"Track could not be restored for some reason. Copied file trashed, original file and "
                            "iTunes location unchanged."_s
                          : u"Track could not be spanned for some reason. Copied file trashed, original file and "
                            "iTunes location unchanged."_s);
        } else if (!span.isEmpty() && QFileInfo::exists(span)) {
            CVLog::log(u"File not at iTunes PATH! (but at span path)"_s);
            // Recorded, so that the next load, the helper's links and update-dependent find it.
            if (m_library) {
                if (track->flag(CVAttr::ItemIsSpanned) || track->flag(CVAttr::ItemIsRestored))
                    m_library->updateItemInSpanStore(track, span);
                else
                    m_library->addItemToSpanStore(track, span);
            }
            dependent.append(track);
            addRow(track, CVResultIcon::LinkSuccess,
                isRestore ? u"Track dependently restored. Another reattempt is highly recommended."_s
                          : u"Track dependently spanned. Another reattempt is highly recommended."_s);
        } else {
            CVLog::log(u"LOST A FILE - Not at iTunes Path AND Not at Span Path"_s);
            addRow(track, CVResultIcon::Fail, u"File not found, nothing done."_s);
        }
    }
    if (dependent.isEmpty() || !m_library || saveHistory())
        return;
    // Without a record nothing would ever link or update these: say so on their rows.
    for (CVResultRow &row : m_rawContentForResults) {
        if (row.icon == CVResultIcon::LinkSuccess && dependent.contains(row.track)) {
            row.icon = CVResultIcon::Fail;
            row.message = u"The file lies only at “%1”, and the span history could not be written; span this "
                          "track again."_s.arg(row.track->text(CVAttr::SpanLocation));
        }
    }
}

void CVMediaSpanner::updateDependentTracks()
{
    if (!m_library)
        return;
    const CVTrackList selected = m_library->selectPredicate(CVPredicate::fromText(u"( SymSpan == 1 )"_s));
    QList<CVTrack *> tracks;
    for (CVTrack *t : selected->tracks)
        tracks.append(t);
    if (tracks.isEmpty())
        return;
    const QString refusal = checkRunCanStart();
    if (!refusal.isEmpty()) {
        CVLog::log(u"Not starting update dependent: %1"_s.arg(refusal));
        Q_EMIT runRefused(refusal);
        return;
    }
    const int k = int(tracks.size());
    CVLog::log(u"Starting update dependent with %1 tracks"_s.arg(k));
    m_trashedFileCount = 0;
    m_trashedFolderCount = 0;
    m_spanRepairAttempts = 0;
    setPauseSpan(false);
    m_skipTheRest = false;
    Q_EMIT skipTitleChanged(u"Skip the rest…"_s);
    m_spannedTracks.clear();
    m_rawContentForResults.clear();
    m_runRestoreMode = false;
    m_runSpanLocation.clear();
    m_copies.clear();
    m_copiesNotDurable.clear();
    loadPreviouslySpannedTracks();
    QStringList spans;
    for (const CVTrack *track : tracks)
        spans.append(track->text(CVAttr::SpanLocation));
    noteDrivesOfRun(spans);

    Q_EMIT headerChanged(u"Updating %1 Dependent Track%2"_s.arg(k).arg(k == 1 ? QString() : u"s"_s));
    setTaskLine(u"Preparing to Update Dependent Tracks"_s, int(Qt::AlignRight));
    prepareWindowForRun();
    Q_EMIT progressChanged(0, 0, true);
    if (m_host) {
        CVSpannerHost *host = m_host;
        CVMediaSpannerThreads::onMainThreadLater([host] { host->tellCorvanaHelperToQuit(); });
    }
    Q_EMIT progressChanged(0, k, false);
    setTaskLine(QString());
    int step = 1;
    for (CVTrack *track : tracks) {
        showStep(step++, k);
        waitWhilePaused();
        const QString title = createDisplayTitleForItem(track);
        const QString span = track->text(CVAttr::SpanLocation);
        if (m_skipTheRest) {
            setTaskLine(u"Skipping: %1"_s.arg(title));
            addRow(track, CVResultIcon::Skip, u"You skipped the rest."_s);
        } else if (!span.isEmpty() && QFileInfo::exists(span)) {
            pointPlayerAt(track, span, title, false);
            m_spannedTracks.insert(track->text(CVAttr::PersistentID), span);
        } else {
            setTaskLine(u"Failed: %1"_s.arg(title));
            addRow(track, CVResultIcon::Fail, u"The spanned file could not be found."_s);
        }
    }
    m_needsReloadAfterSpan = true;
    if (m_spannedTracks.isEmpty())
        showResultsAfterSpan();
    else
        verifySpannedTracks(tracks);
}
