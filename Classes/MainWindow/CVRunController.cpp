#include "MainWindow/CVRunController.h"

#include "Engine/CVMediaSpanner.h"
#include "Engine/CVSpanChecks.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVResultsModel.h"
#include "MainWindow/CVRunProgress.h"
#include "MainWindow/CVSheetPresenter.h"
#include "MainWindow/CVSounds.h"
#include "MainWindow/CVSpanQueue.h"
#include "Platform/CVBugReport.h"
#include "Platform/CVDesktopNotification.h"
#include "Platform/CVLauncherEntry.h"
#include "Platform/CVSettings.h"
#include "Views/CVLoadingView.h"
#include "Views/CVResultsView.h"
#include "Views/CVSpanQueueDropZone.h"
#include "Views/CVSpanningView.h"

#include <QAction>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QMenu>
#include <QThread>
#include <QTimer>
#include <QUrl>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The order of work of a run: by artist, album, track number and name.
void sortForRun(QList<CVTrack *> &tracks)
{
    std::stable_sort(tracks.begin(), tracks.end(), [](const CVTrack *a, const CVTrack *b) {
        for (const CVAttr attr : { CVAttr::SortArtist, CVAttr::SortAlbum }) {
            if (const int c = a->textRef(attr).compare(b->textRef(attr)))
                return c < 0;
        }
        if (a->integer(CVAttr::TrackNumber) != b->integer(CVAttr::TrackNumber))
            return a->integer(CVAttr::TrackNumber) < b->integer(CVAttr::TrackNumber);
        return a->textRef(CVAttr::SortName) < b->textRef(CVAttr::SortName);
    });
}

} // namespace

CVRunController::CVRunController(CVSettings *settings, CVLibraryManager *library, CVSheetPresenter *presenter,
    CVMainWindow *window, CVSpanQueue *queue, CVSounds *sounds, Context context, QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_library(library)
    , m_presenter(presenter)
    , m_window(window)
    , m_queue(queue)
    , m_sounds(sounds)
    , m_context(std::move(context))
    , m_resultsModel(new CVResultsModel(this))
    , m_launcherEntry(std::make_unique<CVLauncherEntry>())
{
    m_window->resultsView->setModel(m_resultsModel);
}

CVRunController::~CVRunController()
{
    waitForRun();
    if (m_spanner)
        m_spanner->setRunHost(nullptr);
}

void CVRunController::waitForRun()
{
    while (m_runThread && !m_runThread->wait(20))
        QCoreApplication::processEvents();
}

void CVRunController::startRunThread(std::function<void()> work)
{
    if (m_runThread || !m_spanner)
        return;
    m_runThread = QThread::create(std::move(work));
    m_runThread->setObjectName(u"CVSpanWorker"_s);
    connect(m_runThread, &QThread::finished, this, [this, thread = m_runThread.data()] {
        thread->deleteLater();
        m_runThread.clear();
        runThreadFinished();
    });
    m_runThread->start();
}

QString CVRunController::donationPageUrl()
{
    return u"https://corvana.org/donate"_s;
}

void CVRunController::attachEngine(CVMediaSpanner *spanner)
{
    m_spanner = spanner;
    spanner->setRunHost(this);
    CVSpanningView *view = m_window->spanningView;
    m_runProgress = new CVRunProgress(spanner, view, m_launcherEntry.get(), this);
    connect(view, &CVSpanningView::pauseClicked, this, [this] {
        if (m_spanner->isSpanningOrRestoringTracks() || isSpanningViewOnScreen())
            m_spanner->togglePauseSpanAction();
    });
    connect(view, &CVSpanningView::skipClicked, this, [this] {
        if (isSpanningViewOnScreen())
            m_spanner->skipTheRestAction();
    });
    connect(spanner, &CVMediaSpanner::runRefused, this, &CVRunController::showRunRefusal);
    connect(spanner, &CVMediaSpanner::trashSummaryChanged, this,
        [this](const QString &text, bool hideButtons) { m_window->resultsView->setTrashSummary(text, hideButtons); });

    CVResultsView *results = m_window->resultsView;
    const auto rowTrack = [this](int row) { return m_resultsModel->track(row); };
    connect(results, &CVResultsView::showInFileManagerRequested, this,
        [this, rowTrack](int row) { m_spanner->showInFinderAction(rowTrack(row)); });
    connect(results, &CVResultsView::revealInPlayerRequested, this,
        [this, rowTrack](int row) { m_spanner->revealInITunesAction(rowTrack(row)); });
    connect(results, &CVResultsView::playInPlayerRequested, this,
        [this, rowTrack](int row) { m_spanner->playInITunesAction(rowTrack(row)); });
    connect(results, &CVResultsView::emptyTrashClicked, this, [this] { m_spanner->emptyTrashAction(); });
    connect(results, &CVResultsView::openPlayerClicked, this, [this] { m_spanner->openITunesFromSpanResultsView(); });
    connect(results, &CVResultsView::donateClicked, this, &CVRunController::donateAction);
    connect(results, &CVResultsView::spanMoreClicked, this, &CVRunController::leaveResultsView);
    connect(results, &CVResultsView::quitClicked, this, [this] { m_context.quit(); });
}

// ---- Before a run ------------------------------------------------------------------------

void CVRunController::spanLibrary()
{
    if (!m_spanner || m_context.isLoading() || !m_context.mainViewVisible() || isRunThreadActive()
        || m_spanner->isSpanningOrRestoringTracks())
        return;
    CVSpanChecks::Request request;
    request.queue = m_queue->queuedTracks();
    request.restoreMode = m_context.restoreMode();
    request.spanLocation = m_context.spanLocation();
    request.queueSize = m_queue->size();
    request.overrideFilesNotFound = m_overrideFilesNotFoundForSpan;
    request.overrideEnoughSpace = m_overrideEnoughSpaceForSpan;
    // Each "Anyway" lasts for one more pass.
    m_overrideFilesNotFoundForSpan = false;
    m_overrideEnoughSpaceForSpan = false;
    const CVSpanChecks::RunCheck check = CVSpanChecks(*m_spanner, *m_library).checkBeforeRun(request);
    if (check.outcome != CVSpanChecks::Outcome::Confirm) {
        const QList<CVTrack *> missing = check.missing;
        const CVSpanChecks::Outcome outcome = check.outcome;
        const bool hadSpaceOverride = request.overrideEnoughSpace;
        const bool hadFilesOverride = request.overrideFilesNotFound;
        m_presenter->beginSheet(
            check.alert, [this, missing, outcome, hadSpaceOverride, hadFilesOverride](int returnCode) {
                if (returnCode == CVPresenter::AlternateReturn && outcome == CVSpanChecks::Outcome::FilesNotFound) {
                    locateTracks(missing);
                } else if (returnCode == CVPresenter::OtherReturn) {
                    // An answer keeps the overrides of the pass it answers: space short and files
                    // missing together are asked one after the other, then confirmed.
                    const bool space = outcome == CVSpanChecks::Outcome::NotEnoughSpace;
                    m_overrideEnoughSpaceForSpan = space || hadSpaceOverride;
                    m_overrideFilesNotFoundForSpan = !space || hadFilesOverride;
                    spanLibrary();
                }
            });
        return;
    }
    // What the engine itself would refuse (running as root, a history or player that cannot
    // take a write) is said before the confirmation.
    const QString refusal = m_spanner->checkRunCanStart();
    if (!refusal.isEmpty()) {
        if (::geteuid() == 0 && !m_spanner->allowRoot()) {
            CVAlert alert;
            alert.title = u"\nCorvana is running as the administrator (root)."_s;
            alert.text = refusal + u"\n\nRunning anyway makes root the owner of every copy, Trash entry and record."_s;
            alert.defaultButton = u"Cancel"_s;
            alert.otherButton = u"%1 Anyway"_s.arg(m_context.restoreMode() ? u"Restore"_s : u"Span"_s);
            alert.style = CVAlert::Style::Critical;
            m_presenter->beginSheet(alert, [this](int returnCode) {
                if (returnCode != CVPresenter::OtherReturn)
                    return;
                m_spanner->setAllowRoot(true);
                spanLibrary();
            });
            return;
        }
        showRunRefusal(refusal);
        return;
    }
    CVAlert confirmation = check.alert;
    confirmation.centred = true;
    m_presenter->beginSheet(confirmation, [this](int returnCode) {
        if (returnCode == CVPresenter::DefaultReturn)
            closeConfirmSpanRestoreAction();
    });
}

void CVRunController::showRunRefusal(const QString &reason)
{
    CVAlert alert;
    alert.title = u"\nNothing can be moved now."_s;
    alert.text = reason;
    alert.style = CVAlert::Style::Critical;
    m_presenter->beginSheet(alert, {});
}

void CVRunController::setMenuEnabled(const QString &name, bool enabled)
{
    QMenu *menu = m_window->menu(name);
    if (!menu)
        return;
    menu->setEnabled(enabled);
    // The items too: their shortcuts work without the menu.
    const std::function<void(QMenu *)> walk = [&](QMenu *m) {
        for (QAction *a : m->actions()) {
            a->setEnabled(enabled);
            if (a->menu())
                walk(a->menu());
        }
    };
    walk(menu);
}

void CVRunController::disableMenusForRun()
{
    m_window->action(u"getInfo"_s)->setEnabled(false);
    for (const QString &menu : { u"View"_s, u"Edit"_s, u"EditSpanningQueue"_s })
        setMenuEnabled(menu, false);
}

void CVRunController::enableMenusAfterRun()
{
    setMenuEnabled(u"View"_s, true);
    setMenuEnabled(u"Edit"_s, true);
    setMenuEnabled(u"EditSpanningQueue"_s, !m_context.crashedWhileSpanning());
    m_window->action(u"getInfo"_s)->setEnabled(true);
}

void CVRunController::closeConfirmSpanRestoreAction()
{
    if (isRunThreadActive())
        return;
    disableMenusForRun();
    if (!m_context.restoreMode())
        Q_EMIT spanLocationUsed(m_context.spanLocation());
    QList<CVTrack *> tracks = m_queue->queuedTracks();
    sortForRun(tracks);
    m_runTracks = int(tracks.size());
    m_runBytes = m_queue->size();
    startRunThread([this, tracks] { m_spanner->spanTracks(tracks); });
}

void CVRunController::locateTracks(const QList<CVTrack *> &tracks)
{
    if (tracks.isEmpty() || isRunThreadActive())
        return;
    disableMenusForRun();
    Q_EMIT reloadingRunStarted();
    QList<CVTrack *> sorted = tracks;
    sortForRun(sorted);
    m_runTracks = int(sorted.size());
    m_runBytes = 0;
    startRunThread([this, sorted] { m_spanner->refreshTracks(sorted); });
}

void CVRunController::updateDependentTracks()
{
    if (isRunThreadActive())
        return;
    disableMenusForRun();
    Q_EMIT reloadingRunStarted();
    m_runTracks = 0;
    m_runBytes = 0;
    startRunThread([this] { m_spanner->updateDependentTracks(); });
}

void CVRunController::runThreadFinished()
{
    // A run that never swapped its views in (refused, or nothing to do) leaves the window as
    // it was: its menus come back.
    if (m_shownView == View::Main && !m_context.isLoading())
        enableMenusAfterRun();
}

// ---- The run's views ---------------------------------------------------------------------

void CVRunController::showView(CVSpannerRunHost::View view)
{
    switch (view) {
    case CVSpannerRunHost::View::Spanning:
        showSpanningView();
        break;
    case CVSpannerRunHost::View::Results:
        // The worker waits for this: its results are ours to read.
        showResultsAfterRun(m_spanner->lastResults());
        break;
    case CVSpannerRunHost::View::Loading:
        showReloadingView();
        break;
    }
}

void CVRunController::showSpanningView()
{
    Q_EMIT spanningViewComing();
    m_window->showSpanningView();
    m_shownView = View::Spanning;
    m_context.setWindow(false, true);
    m_runProgress->begin(m_runTracks, m_runBytes);
}

void CVRunController::showResultsAfterRun(const CVRunResults &results)
{
    m_runProgress->end();
    const bool wasActive = m_window->isActiveWindow();
    CVResultsView *view = m_window->resultsView;
    view->setHeadline(results.headline);
    view->setTally(results.tally);
    m_resultsModel->setRows(results.rows);
    view->scrollToTop();
    refreshDonateStatus();
    m_window->showResultsView();
    m_shownView = View::Results;
    m_context.setWindow(true, true);
    QTimer::singleShot(500, m_sounds, [sounds = m_sounds] { sounds->play(u"SpanComplete"_s); });
    if (!m_window->isVisible())
        m_window->show();
    if (!wasActive) {
        // Someone working elsewhere hears of it.
        CVDesktopNotification::notify(results.headline, results.tally);
        m_window->raise();
        m_window->activateWindow();
    }
}

void CVRunController::showReloadingView()
{
    m_runProgress->end();
    m_window->loadingView->setStatusText(u"Reloading Corvana"_s);
    m_window->showLoadingView();
    m_shownView = View::Loading;
    m_context.setWindow(true, true);
}

void CVRunController::leaveResultsView()
{
    if (m_shownView != View::Results || m_context.isLoading())
        return;
    // The run changed the library: it is read again, and the main view comes back with it.
    m_context.reload();
}

void CVRunController::refreshDonateStatus()
{
    m_window->resultsView->setDonateText(m_settings->boolValue(CVSettingsKey::UserClickedDonate)
            ? u"Thanks for using Corvana!"_s
            : u"Thanks for using Corvana! Donations appreciated."_s);
}

void CVRunController::donateAction()
{
    m_settings->setValue(CVSettingsKey::UserClickedDonate, true);
    refreshDonateStatus();
    QDesktopServices::openUrl(QUrl(donationPageUrl()));
}

// ---- After a load ------------------------------------------------------------------------

void CVRunController::showCrashWhileRunningSheet()
{
    const bool restore = m_settings->stringValue(CVSettingsKey::LastSpanLocation) == u"CVRestoreMode"_s;
    CVAlert alert;
    alert.title = u"\nCorvana Crashed While %1!\n\nDon't Panic!"_s.arg(restore ? u"Restoring"_s : u"Spanning"_s);
    alert.defaultButton = u"%1 Now"_s.arg(restore ? u"Re-restore"_s : u"Respan"_s);
    alert.alternateButton = u"Just Close Alert"_s;
    alert.otherButton = u"Report a Bug"_s;
    const QString what = restore ? u"reset Corvana to restore mode"_s : u"reselected your last span location"_s;
    const QString verb = restore ? u"re-restore"_s : u"respan"_s;
    const QString doing = restore ? u"Re-restoring"_s : u"Respanning"_s;
    alert.text = u"Everything will be fine, Corvana has refilled the spanning queue with the tracks you last selected "
                 "and %1.\nNow, just %2 these tracks to complete the process properly.\n\nUntil you %3 these tracks, "
                 "Corvana and/or iTunes may not know their correct locations. Also, multiple copies of some files may "
                 "be left on the drives involved.\n\nIf you have found a serious bug and Corvana continues to crash, "
                 "please contact me directly at "_s.arg(what, verb, verb)
        + CVBugReport::address()
        + u" to resolve this issue promptly.\n\n%1 now should correct all issues. If you choose to do it later, some "
          "frustrating issues may persist. Read Corvana Help for full details.\nIt is strongly recommended that you "
          "%2 these tracks now."_s.arg(doing, verb);
    m_presenter->beginSheet(alert, [this](int returnCode) {
        if (returnCode == CVPresenter::DefaultReturn)
            spanLibrary();
        else if (returnCode == CVPresenter::OtherReturn)
            m_context.reportBug();
    });
}

void CVRunController::showCrashSheet()
{
    CVAlert alert;
    alert.title = u"\nCorvana Crashed Last Run!\n\nNothing to Worry About…"_s;
    alert.defaultButton = u"Report a Bug"_s;
    alert.alternateButton = u"Just Close Alert"_s;
    alert.text = u"Since it appears that you were not spanning nor restoring any tracks at the time of the crash,\n"
                 "everything should be fine.\n\nNever the less, crashes are serious and it would be very much "
                 "appreciated if you choose to report a bug on the issue (if you see fit).\n\nIf you are experiencing "
                 "persistent issues, please do not hesitate to contact "_s
        + CVBugReport::address() + u" to resolve any issues promptly."_s;
    alert.style = CVAlert::Style::Informational;
    m_presenter->beginSheet(alert, [this](int returnCode) {
        if (returnCode == CVPresenter::DefaultReturn)
            m_context.reportBug();
        checkForAndOfferToUpdateDependentlySpannedTracks();
    });
}

void CVRunController::checkForAndOfferToUpdateDependentlySpannedTracks()
{
    const CVTrackList dependent = m_library->selectPredicate(CVPredicate::fromText(u"( SymSpan == 1 )"_s));
    const qsizetype count = dependent ? qsizetype(dependent->tracks.size()) : 0;
    if (count == 0)
        return;
    CVAlert alert;
    alert.title = u"\nYou have %1 dependent track%2 that can now be fully spanned!\n"_s.arg(count).arg(
        count == 1 ? u""_s : u"s"_s);
    alert.text = u"Every kind of track can be fully spanned! Dependently spanned tracks are history.\n\nCorvana Helper "
                 "is no longer necessary. It will quit after all tracks are fully spanned.\n\nSimply click 'Update "
                 "Dependent Tracks' now and let Corvana take care of the rest.\n\nAlso, you can now continue using "
                 "iTunes during the new spanning process.\n"_s;
    alert.defaultButton = u"Update Dependent Tracks"_s;
    alert.alternateButton = u"Not Right Now \u2013 Remind Me Later"_s;
    alert.style = CVAlert::Style::Informational;
    m_presenter->beginSheet(alert, [this](int returnCode) {
        if (returnCode == CVPresenter::DefaultReturn)
            updateDependentTracks();
    });
}
