// The end of every run (results, headline and tally) and the locate run.
#include "Engine/CVMediaSpanner.h"

#include "Engine/CVMediaSpannerThreads.h"
#include "Engine/CVPlayerLink.h"
#include "Engine/CVSpannerHost.h"
#include "Engine/CVSpannerRunHost.h"
#include "Library/CVTrack.h"
#include "Platform/CVLog.h"
#include "Platform/CVSettings.h"
#include "Platform/FileSystemEventWatcher.h"

#include <QThread>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

QString plural(int count)
{
    return count == 1 ? QString() : u"s"_s;
}

} // namespace

CVRunResults CVMediaSpanner::summarizeResults(const QList<CVResultRow> &rows, bool restore)
{
    CVRunResults results;
    results.restore = restore;
    for (const CVResultRow &row : rows) {
        CVShownResultRow shown;
        shown.trackObject = row.track;
        shown.icon = row.icon;
        shown.message = row.message;
        shown.inPlace = row.inPlace;
        results.allInPlace = results.allInPlace && row.inPlace;
        switch (row.icon) {
        case CVResultIcon::FullSuccess:
            shown.sortResult = 1;
            ++results.successes;
            break;
        case CVResultIcon::LinkSuccess:
            shown.sortResult = 2;
            ++results.successes;
            ++results.dependents;
            break;
        case CVResultIcon::Skip:
            shown.sortResult = 4;
            ++results.skips;
            break;
        default:
            shown.sortResult = 3;
            ++results.failures;
        }
        if (row.track) {
            shown.title = createDisplayTitleForItem(row.track);
            shown.sortArtist = row.track->text(CVAttr::SortArtist);
            shown.sortAlbum = row.track->text(CVAttr::SortAlbum);
            shown.trackNumber = row.track->has(CVAttr::TrackNumber) ? row.track->integer(CVAttr::TrackNumber) : 0;
            shown.sortName = row.track->text(CVAttr::SortName);
        }
        results.rows.append(shown);
    }
    std::stable_sort(
        results.rows.begin(), results.rows.end(), [](const CVShownResultRow &a, const CVShownResultRow &b) {
            return std::tie(a.sortResult, a.sortArtist, a.sortAlbum, a.trackNumber, a.sortName)
                < std::tie(b.sortResult, b.sortArtist, b.sortAlbum, b.trackNumber, b.sortName);
        });

    const int total = int(rows.size());
    results.headline = u"%1 %2 Tracks Successfully %3%4"_s.arg(
        results.successes == total ? u"All"_s : u"%1 of"_s.arg(results.successes), QString::number(total),
        restore ? u"Restored"_s : u"Spanned"_s,
        results.dependents > 0 ? u" · %1 Dependent"_s.arg(results.dependents) : QString());
    QStringList parts;
    const int fully = results.successes - results.dependents;
    if (fully > 0)
        parts.append(u"%1 track%2 fully %3"_s.arg(fully).arg(plural(fully), restore ? u"restored"_s : u"spanned"_s));
    if (results.dependents > 0)
        parts.append(u"%1 track%2 dependently %3"_s.arg(results.dependents)
                         .arg(plural(results.dependents), restore ? u"restored"_s : u"spanned"_s));
    if (results.skips > 0)
        parts.append(u"%1 track%2 skipped"_s.arg(results.skips).arg(plural(results.skips)));
    if (results.failures > 0)
        parts.append(u"%1 track%2 failed"_s.arg(results.failures).arg(plural(results.failures)));
    results.tally = parts.join(u"     ·     "_s);
    return results;
}

void CVMediaSpanner::showResultsAfterSpan()
{
    CVSpannerHost *host = m_host;
    if (host)
        CVMediaSpannerThreads::onMainThreadAndWait([host] { host->setCrashedWhileSpanningLastRun(false); });
    const bool restore = m_runRestoreMode;
    if (m_runUnderWay && m_settings) {
        const bool keep = m_settings->boolValue(CVSettingsKey::AutosaveSpanLocation)
            && !m_settings->boolValue(CVSettingsKey::ClearSpanLocationAfterSpan);
        if (CVSpannerRunHost *runHost = m_runHost; !keep && runHost) {
            CVMediaSpannerThreads::onMainThreadAndWait([runHost] {
                if (runHost->restoreMode())
                    runHost->doSetSpanMode();
                runHost->clearSpanLocation();
            });
        }
        m_settings->remove(CVSettingsKey::SavedSpanningQueue);
    }
    m_spanRepairAttempts = 0;
    m_runUnderWay = false;
    if (m_settings) {
        m_settings->setValue(CVSettingsKey::IsSpanning, false);
        m_settings->synchronize();
    }
    if (host)
        CVMediaSpannerThreads::onMainThreadLater([host] { host->launchCorvanaHelper(); });
    FileSystemEventWatcher::sharedPathWatcher()->stopWatchingPaths();
    setTaskLine(u"Preparing Results Window"_s, int(Qt::AlignRight));

    m_lastResults = summarizeResults(m_rawContentForResults, restore);
    CVLog::log(u"Completed %1 with %2 tracks: %3"_s.arg(restore ? u"restore"_s : u"span"_s)
                   .arg(m_rawContentForResults.size())
                   .arg(m_lastResults.tally));
    isTrashEmpty();
    Q_EMIT resultsReady(m_lastResults);
    Q_EMIT viewChangeRequested(int(CVSpannerRunHost::View::Results));
    if (CVSpannerRunHost *runHost = m_runHost)
        CVMediaSpannerThreads::onMainThreadAndWait([runHost] { runHost->showView(CVSpannerRunHost::View::Results); });
    Q_EMIT progressChanged(0, 0, false);
    Q_EMIT runFinished();
}

void CVMediaSpanner::refreshTracks(const QList<CVTrack *> &tracks)
{
    const int k = int(tracks.size());
    CVLog::log(u"Starting locate with %1 tracks"_s.arg(k));
    if (m_settings && m_runHost && !m_runHost->restoreMode()) {
        const QString location = m_runHost->spanLocation();
        QStringList history = m_settings->stringListValue(CVSettingsKey::SpanLocationHistory);
        history.removeAll(location);
        history.prepend(location);
        m_settings->setValue(CVSettingsKey::SpanLocationHistory, history.mid(0, 5));
    }
    setPauseSpan(false);
    Q_EMIT skipTitleChanged(u"Skip the rest…"_s);
    Q_EMIT headerChanged(u"Locating %1 Track%2"_s.arg(k).arg(plural(k)));
    setTaskLine(u"Preparing to Locate Selected Tracks"_s, int(Qt::AlignRight));
    prepareWindowForRun();
    CVSpannerHost *host = m_host;
    if (host)
        CVMediaSpannerThreads::onMainThreadLater([host] { host->tellCorvanaHelperToQuit(); });
    Q_EMIT progressChanged(0, k, false);
    setTaskLine(QString());
    int step = 0;
    for (CVTrack *track : tracks) {
        showStep(++step, k);
        waitWhilePaused();
        const QString title = createDisplayTitleForItem(track);
        if (m_skipTheRest) {
            setTaskLine(u"Skipping: %1"_s.arg(title));
            continue;
        }
        const bool ready = playerReady();
        if (ready) {
            setTaskLine(u"Locating: %1"_s.arg(title));
        } else {
            Q_EMIT waitingForPlayer(true);
            setTaskLine(u"Launching iTunes & Locating: %1"_s.arg(title));
        }
        refreshTrackIniTunesWithPersistentID(track->text(CVAttr::PersistentID));
        if (!ready)
            Q_EMIT waitingForPlayer(false);
    }
    Q_EMIT progressChanged(0, 0, true);
    quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling();
    setTaskLine(u"Reloading Corvana"_s);
    Q_EMIT viewChangeRequested(int(CVSpannerRunHost::View::Loading));
    if (host || m_runHost) {
        CVMediaSpannerThreads::onMainThreadAndWait([host, runHost = m_runHost] {
            if (runHost)
                runHost->showView(CVSpannerRunHost::View::Loading);
            if (host)
                host->loadCorvanaAndDisplayMainView();
        });
    }
    Q_EMIT runFinished();
}
