#include "CVApplicationDelegate.h"

#include "Browsing/CVBrowserDelegate.h"
#include "CVWindowDelegate.h"
#include "Engine/CVLibraryFilePlayerLink.h"
#include "Engine/CVMediaSpanner.h"
#include "Engine/CVPlayerLink.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPredicateArchive.h"
#include "Library/CVSpanHistory.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVRunController.h"
#include "MainWindow/CVSheetPresenter.h"
#include "Platform/CVBugReport.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVInstanceLock.h"
#include "Platform/CVLog.h"
#include "Platform/CVSettings.h"
#include "Platform/CVThreadHeap.h"
#include "Preferences/CVUpdateChecker.h"
#include "Views/CVIcons.h"
#include "Views/CVLoadingView.h"

#include <QAction>
#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QProcess>
#include <QScreen>
#include <QThread>

using namespace Qt::StringLiterals;

namespace {

} // namespace

CVApplicationDelegate::CVApplicationDelegate(Options options, QObject *parent)
    : QObject(parent)
    , m_options(std::move(options))
{
    m_quitHandler = [] { QCoreApplication::exit(0); };
}

CVApplicationDelegate::~CVApplicationDelegate()
{
    // A load or run still going is waited for: both hold pointers into what goes next.
    if (m_loadThread)
        while (!m_loadThread->wait(20))
            QCoreApplication::processEvents();
    if (m_windowDelegate)
        m_windowDelegate->runController()->waitForRun();
    m_windowDelegate.reset();
}

CVFileManagerLink *CVApplicationDelegate::fileManager() const
{
    return CVFileManagerLink::shared();
}

void CVApplicationDelegate::onMainThread(const std::function<void()> &work)
{
    if (QThread::currentThread() == thread())
        work();
    else
        QMetaObject::invokeMethod(this, work, Qt::BlockingQueuedConnection);
}

namespace {

// The link to the player of the preference "Player"; the library file itself when the player
// asked for is not on the session bus.
std::unique_ptr<CVPlayerLink> choosePlayerLink(
    const QString &libraryFile, CVFileManagerLink *files, const QString &player, CVLibraryManager *library)
{
    std::unique_ptr<CVPlayerLink> link = CVPlayerLink::choose(libraryFile, files, player);
    if (!link) {
        CVLog::log(u"Corvana ScriptingBridge Error: no player on the session bus offers org.corvana.PlayerLibrary1; "
                   "the library file is used"_s);
        link = CVPlayerLink::choose(libraryFile, files, u"itunes-file"_s);
    }
    // The library file knows a track's place from the loaded library, for playing and revealing
    // it. Looked up by persistent ID through a table made at the first question after each load.
    if (auto *file = dynamic_cast<CVLibraryFilePlayerLink *>(link.get())) {
        struct Table {
            QMutex mutex;
            const CVTrack *first = nullptr;
            std::size_t size = 0;
            QHash<QString, QString> locations;
        };
        file->setTrackResolver([library, table = std::make_shared<Table>()](const QString &persistentID) {
            const std::vector<CVTrack *> &tracks = library->allTracks();
            QMutexLocker lock(&table->mutex);
            if (tracks.empty())
                return QString();
            if (table->first != tracks.front() || table->size != tracks.size()) {
                table->locations.clear();
                for (const CVTrack *t : tracks)
                    table->locations.insert(t->text(CVAttr::PersistentID), t->text(CVAttr::Location));
                table->first = tracks.front();
                table->size = tracks.size();
            }
            return table->locations.value(persistentID);
        });
    }
    return link;
}

} // namespace

// ---- Start -------------------------------------------------------------------------------

void CVApplicationDelegate::awakeFromNib()
{
    m_settings = std::make_unique<CVSettings>();
    m_settings->applyLaunchRepairs();
    m_presenter = std::make_unique<CVSheetPresenter>();
    m_presenter->setAnswering(m_options.answerDialogs);
    m_updateChecker = std::make_unique<CVUpdateChecker>(m_settings.get(), QCoreApplication::applicationVersion());

    m_instanceLock = std::make_unique<CVInstanceLock>();
    if (!m_instanceLock->tryLock()) {
        m_instanceRefused = true;
        CVLog::log(u"Only one instance of Corvana can run at a time..."_s);
        terminate();
        return;
    }

    m_library = std::make_unique<CVLibraryManager>(m_settings.get());
    m_library->setPresenter(m_presenter.get());
    m_library->setHost(this);
    if (!m_options.libraryFile.isEmpty())
        m_library->setLibraryFilePath(m_options.libraryFile);
    m_history = std::make_unique<CVSpanHistory>(m_presenter.get());
    m_history->setLibraryPersistentID([this] { return m_library->iTunesPersistentID(); });
    m_library->setSpanHistory(m_history.get());
    m_windowDelegate = std::make_unique<CVWindowDelegate>(this, m_settings.get(), m_library.get(), m_presenter.get());
    connect(m_updateChecker.get(), &CVUpdateChecker::checkFinished, m_windowDelegate.get(),
        &CVWindowDelegate::updateCheckFinished);

    // A run that ended normally put the window back to its full size.
    m_crashedLastRun = m_settings->boolValue(CVSettingsKey::DidCrashLastRun) || crashedByWindowFrame();
    m_crashedWhileSpanningLastRun = m_crashedLastRun && m_settings->boolValue(CVSettingsKey::IsSpanning);
    m_recoverFromCrashNextLaunch = false;
    m_quitNowWithoutSaving = false;
    m_settings->setValue(CVSettingsKey::IsSpanning, bool(m_crashedWhileSpanningLastRun));
    m_settings->setValue(CVSettingsKey::DidCrashLastRun, true);
    m_settings->synchronize();

    CVLoadingView *loading = m_windowDelegate->corvanaWindow()->loadingView;
    connect(m_presenter.get(), &CVSheetPresenter::statusTextChanged, loading, &CVLoadingView::setStatusText);
    connect(m_presenter.get(), &CVSheetPresenter::progressChanged, loading, &CVLoadingView::setProgress);
    connect(m_presenter.get(), &CVSheetPresenter::progressIndeterminateChanged, loading,
        &CVLoadingView::setProgressIndeterminate);
    m_windowDelegate->saveInitialSizeAndResizeWindowForLoading();
    loading->setProgressIndeterminate(true);
    m_loadingCorvana = true;
    m_allowResize = false;
    m_liveRefreshPrefs = false;
    m_waitingToQuit = false;

    observeSettings();

    // The player and the file manager.
    const QString libraryFile = m_options.libraryFile.isEmpty() ? m_library->findLibraryFile() : m_options.libraryFile;
    m_playerLink = choosePlayerLink(libraryFile, fileManager(), m_library->player(), m_library.get());
    m_spanner = std::make_unique<CVMediaSpanner>(m_playerLink.get(), fileManager(), m_presenter.get());
    m_spanner->setHost(this);
    m_spanner->setLibrary(m_library.get());
    m_spanner->setSettings(m_settings.get());
    m_library->setRunState(m_spanner.get());
    m_windowDelegate->attachEngine(m_spanner.get());
    if (m_crashedWhileSpanningLastRun)
        m_spanner->loadPreviouslySpannedTracks();
}

bool CVApplicationDelegate::crashedByWindowFrame() const
{
    const std::optional<QRect> frame = m_windowDelegate->frameFromLastRun();
    if (!frame)
        return false;
    const QScreen *screen = QGuiApplication::screenAt(frame->center());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const int visibleHeight = screen ? screen->availableGeometry().height() : frame->height();
    return frame->height() > visibleHeight || frame->height() < CVMainWindow::MinimumMainSize.height()
        || frame->width() < CVMainWindow::MinimumMainSize.width();
}

void CVApplicationDelegate::applicationDidFinishLaunching()
{
    if (m_hasQuit || !m_windowDelegate)
        return;
    CVMainWindow *window = m_windowDelegate->corvanaWindow();
    window->show();
    if (!window->isActiveWindow())
        m_windowDelegate->windowDidResignMain();
    loadCorvanaAndDisplayMainView();
}

void CVApplicationDelegate::loadCorvanaAndDisplayMainView()
{
    if (m_loadThread || m_hasQuit)
        return;
    if (QThread::currentThread() != thread()) {
        // After a run the engine asks from its worker.
        QMetaObject::invokeMethod(
            this, [this] { loadCorvanaAndDisplayMainView(); }, Qt::QueuedConnection);
        return;
    }
    m_loadingCorvana = true;
    m_liveRefreshPrefs = false;
    m_loadThread = QThread::create([this] { runLoadSequence(); });
    connect(m_loadThread, &QThread::finished, m_loadThread, &QObject::deleteLater);
    m_loadThread->start();
}

void CVApplicationDelegate::runLoadSequence()
{
    CVWindowDelegate *window = m_windowDelegate.get();
    m_presenter->setProgressIndeterminate(true);
    m_liveRefreshPrefs = false;
    m_loadingCorvana = true;

    // The helper first: nothing runs without it.
    InstallResult installed = InstallResult::UpToDate;
    onMainThread([&] { installed = installOrUpdateCorvanaHelper(); });
    if (installed == InstallResult::QuitWithoutSaving) {
        m_quitNowWithoutSaving = true;
        onMainThread([this] {
            m_loadingCorvana = false;
            terminate();
        });
        return;
    }

    onMainThread([&] { window->clearAllForReload(); });
    m_library->clearMemoization();

    const CVLibraryManager::LoadResult read = m_library->loadiTunesXMLDatabase();
    if (read != CVLibraryManager::LoadResult::Loaded) {
        // The user gave up on a missing library, or it could not be read (the error was shown).
        m_quitNowWithoutSaving = true;
        onMainThread([this] {
            m_loadingCorvana = false;
            terminate();
            // Scheduled update checks start once the program is in use, never during the first load.
            m_updateChecker->startScheduling();
            Q_EMIT loadFinished();
        });
        return;
    }
    if (m_playerLink && m_library->libraryFilePath() != m_options.libraryFile && m_options.libraryFile.isEmpty()) {
        // The library file showed up only now: the player link follows it.
        onMainThread([this] {
            if (!m_spanner->isSpanningOrRestoringTracks()) {
                m_playerLink = choosePlayerLink(
                    m_library->libraryFilePath(), fileManager(), m_library->player(), m_library.get());
                m_spanner->setPlayerLink(m_playerLink.get());
            }
        });
    }

    m_presenter->setProgressIndeterminate(true);
    // Browsing the queue ends with a load: the queue is refilled below.
    onMainThread([&] {
        if (window->isBrowsingSpanningQueue())
            window->browseSpanningQueue(false);
    });
    m_history->managedObjectContext(u"Span"_s);
    m_library->joinSpanHistory();

    // A thread of the library's builds the location table, which nothing reads before the
    // interface is prepared, while this one goes on with the helper and the queue, and the main
    // thread works out the first lists during the pause before the main view.
    m_library->beginCompilingAllKeyedLocationInformation();

    bool dependent = false;
    onMainThread(
        [&] { dependent = !m_library->selectPredicate(CVPredicate::fromText(u"( SymSpan == 1 )"_s))->tracks.empty(); });
    // The bar is the load's again from here.
    m_library->endLocationProgress();
    m_presenter->setProgressIndeterminate(true);
    if (dependent)
        m_presenter->setStatusText(u"Relaunching Corvana Helper"_s);
    onMainThread([this] { tellCorvanaHelperToQuit(); });

    m_liveRefreshPrefs = true;
    if (!(m_settings->boolValue(CVSettingsKey::AutosaveSpanLocation)
            && !m_settings->boolValue(CVSettingsKey::ClearSpanLocationAfterSpan)))
        onMainThread([&] {
            if (window->restoreMode() && !window->manualCorvanaReload())
                window->doSetSpanMode();
        });
    onMainThread([this] { launchCorvanaHelper(); });

    if (!m_waitingToQuit) {
        if (m_crashedWhileSpanningLastRun || m_settings->contains(CVSettingsKey::SavedSpanningQueue))
            m_library->finishCompilingAllKeyedLocationInformation();
        onMainThread([&] {
            if (m_crashedWhileSpanningLastRun && !m_settings->boolValue(CVSettingsKey::FirstRun)) {
                CVPredicate interrupted
                    = CVPredicate::forPersistentIDs(m_settings->mapValue(CVSettingsKey::LastTracksSpanned).keys());
                interrupted.setIsSavedQueue(true);
                window->performDrop(interrupted);
            }
            if (!m_crashedWhileSpanningLastRun && m_settings->contains(CVSettingsKey::SavedSpanningQueue)) {
                const std::optional<CVPredicate> saved
                    = CVPredicateArchive::unarchive(m_settings->dataValue(CVSettingsKey::SavedSpanningQueue));
                if (saved && saved->kind() == CVPredicate::Kind::Dictionary) {
                    CVPredicate queue = CVPredicate::forPersistentIDs(saved->persistentIDs());
                    queue.setCacheKey(saved->cacheKey());
                    queue.setIsSavedQueue(true);
                    window->performDrop(queue);
                } else {
                    m_settings->remove(CVSettingsKey::SavedSpanningQueue);
                }
            }
        });
        m_presenter->setStatusText(u"Preparing Corvana Interface"_s);
        // The pause before the main view is counted from this text: the rest of the location
        // table, the first lists and the interface's preparation take place within it.
        QElapsedTimer pause;
        pause.start();
        // From here on the selections are the main thread's alone (the next wait is behind it).
        QMetaObject::invokeMethod(
            this, [window] { window->warmSelections(); }, Qt::QueuedConnection);
        m_library->finishCompilingAllKeyedLocationInformation();
        onMainThread([&] { window->prepareContentAfterLoad(); });
        m_presenter->setProgress(1, 1);
        const qint64 left = qint64(qMax(0, m_options.mainViewDelayMs)) - pause.elapsed();
        if (left > 0)
            QThread::msleep(ulong(left));
        onMainThread([&] {
            window->corvanaWindow()->raise();
            window->corvanaWindow()->activateWindow();
            window->displayMainViewAfterLoad();
        });
    }

    m_library->finishCompilingAllKeyedLocationInformation();
    // The load's threads grew their heaps ahead: what they freed on the way is given back now.
    CVThreadHeap::giveBackFreePages();
    m_presenter->setProgress(1, 0);
    m_presenter->setStatusText(u"Preparing to Load iTunes Library Database"_s);
    onMainThread([this] {
        m_loadingCorvana = false;
        m_crashedLastRun = false;
        if (m_terminateReplyPending)
            replyToApplicationShouldTerminate(false);
        Q_EMIT loadFinished();
        if (m_waitingToQuit)
            terminate();
    });
}

// ---- Settings observed -------------------------------------------------------------------

void CVApplicationDelegate::observeSettings()
{
    using Key = CVSettingsKey;
    CVSettings *settings = m_settings.get();
    // Each listener runs only while there is a window; most only once the library has loaded,
    // since before that the interface they refresh does not exist.
    auto always = [this](auto react) {
        return [this, react] {
            if (CVWindowDelegate *window = m_windowDelegate.get())
                react(window);
        };
    };
    auto afterLoad = [this](auto react) {
        return [this, react] {
            if (CVWindowDelegate *window = m_windowDelegate.get(); window && m_liveRefreshPrefs)
                react(window);
        };
    };
    settings->observe(Key::ColumnBrowserOnTop, this, always([settings](CVWindowDelegate *window) {
        window->corvanaWindow()->action(u"browserOnTop"_s)->setChecked(settings->boolValue(Key::ColumnBrowserOnTop));
        window->browserDelegate()->adjustBrowserForNewSize();
    }));
    settings->observe(Key::CubeAnimateWindow, this, always([settings](CVWindowDelegate *window) {
        window->corvanaWindow()->setAnimatesViewChanges(settings->boolValue(Key::CubeAnimateWindow));
    }));
    settings->observe(Key::SearchFields, this, always([this](CVWindowDelegate *window) {
        window->searchFieldsChanged();
        if (m_liveRefreshPrefs)
            window->doFilterSourcesWithSearch(std::nullopt);
    }));
    for (const Key key : { Key::GroupCompilationsInBrowser, Key::UseAlbumArtistsInBrowser })
        settings->observe(
            key, this, afterLoad([](CVWindowDelegate *window) { window->browserDelegate()->refreshLibraryBrowser(); }));
    settings->observe(Key::AutosaveSpanningQueue, this, afterLoad([settings](CVWindowDelegate *window) {
        if (settings->boolValue(Key::AutosaveSpanningQueue))
            window->saveSpanningQueue();
        else
            settings->remove(Key::SavedSpanningQueue);
        settings->synchronize();
    }));
    settings->observe(Key::AutosaveSpanLocation, this, afterLoad([settings](CVWindowDelegate *window) {
        if (settings->boolValue(Key::AutosaveSpanLocation))
            settings->setValue(
                Key::SavedSpanLocation, window->restoreMode() ? u"CVRestoreMode"_s : window->spanLocation());
        else
            settings->remove(Key::SavedSpanLocation);
        settings->synchronize();
    }));
}

void CVApplicationDelegate::showPreferences()
{
    if (m_windowDelegate)
        m_windowDelegate->showPreferences();
}

// ---- Quit --------------------------------------------------------------------------------

bool CVApplicationDelegate::shouldQuitNowWithoutSaving() const
{
    return m_quitNowWithoutSaving || m_instanceRefused;
}

void CVApplicationDelegate::terminate()
{
    if (m_hasQuit)
        return;
    switch (applicationShouldTerminate()) {
    case TerminateReply::TerminateNow:
        performQuit(!shouldQuitNowWithoutSaving());
        break;
    case TerminateReply::TerminateLater:
        m_terminateReplyPending = true;
        break;
    case TerminateReply::TerminateCancel:
        break;
    }
}

void CVApplicationDelegate::replyToApplicationShouldTerminate(bool shouldTerminate)
{
    m_terminateReplyPending = false;
    if (shouldTerminate)
        performQuit(!shouldQuitNowWithoutSaving());
}

CVApplicationDelegate::TerminateReply CVApplicationDelegate::applicationShouldTerminate()
{
    CVWindowDelegate *window = m_windowDelegate.get();
    // 1. During the first load the load thread is never interrupted.
    if (window && window->firstLoad() && m_loadingCorvana && !m_quitNowWithoutSaving) {
        if (m_crashedWhileSpanningLastRun)
            return TerminateReply::TerminateCancel;
        m_waitingToQuit = true;
        window->corvanaWindow()->setWindowIcon(CVIcons::quitBadgedApplicationIcon());
        return TerminateReply::TerminateLater;
    }
    // 2. A run is never cut in half.
    if (m_spanner && m_spanner->isSpanningOrRestoringTracks()) {
        m_spanner->setPauseSpan(true);
        const bool restore = window && window->restoreMode();
        CVAlert alert;
        alert.title = u"Cannot quit while %1…"_s.arg(restore ? u"restoring"_s : u"spanning"_s);
        alert.defaultButton = u"Resume %1"_s.arg(restore ? u"Restoring"_s : u"Spanning"_s);
        alert.alternateButton = u"Skip the rest…"_s;
        alert.text = u"Quitting now would result in Corvana and/or iTunes not knowing the actual locations of the "
                     "files.\n\nTo complete the %1 faster, you can skip the rest, but not reverse what has already "
                     "been done.\n\nTo reverse what has already been done, you must do it through Corvana once the %1 "
                     "is complete."_s.arg(restore ? u"restore"_s : u"span"_s);
        m_presenter->beginSheet(alert, [this](int returnCode) { didEndQuitAlertSheet(returnCode); });
        return TerminateReply::TerminateCancel;
    }
    // 3. An unrecovered crash during a run.
    if (m_crashedWhileSpanningLastRun && !m_recoverFromCrashNextLaunch && !shouldQuitNowWithoutSaving()) {
        CVAlert alert;
        alert.title = u"It is not recommended to quit without recovering from the last crash."_s;
        alert.defaultButton = u"Don't Quit"_s;
        alert.alternateButton = u"Quit & Recover Next Launch"_s;
        alert.otherButton = u"Quit & Don't Recover"_s;
        alert.text = u"To allow Corvana to recover from the crash and ensure that all of your tracks will be available "
                     "in iTunes just respan or re-restore your selected tracks."_s;
        m_presenter->beginSheet(
            alert, [this](int returnCode) { didEndQuitAfterCrashWhileSpanningAlertSheet(returnCode); });
        return TerminateReply::TerminateCancel;
    }
    // 4. Nothing is saved and no flag changes.
    if (shouldQuitNowWithoutSaving()) {
        CVLog::log(u"QUITTING WITHOUT SAVING!"_s);
        return TerminateReply::TerminateNow;
    }
    // 5. A normal quit.
    QFile::remove(CVSpanHistory::applicationSupportFolder() + u"/iTunesLibrary-Temporary.cvcddb"_s);
    if (m_history && m_history->spanManagedObjectContext() && m_history->spanManagedObjectContext()->hasChanges()
        && !m_history->saveAction()) {
        CVAlert alert;
        alert.text = u"Could not save changes while quitting. Quit anyway?"_s;
        alert.defaultButton = u"Quit anyway"_s;
        alert.alternateButton = u"Cancel"_s;
        if (m_presenter->runAlertPanel(alert) == CVPresenter::AlternateReturn)
            return TerminateReply::TerminateCancel;
    }
    launchCorvanaHelper();
    if (!m_crashedWhileSpanningLastRun)
        m_settings->setValue(CVSettingsKey::DidCrashLastRun, false);
    if (window && !window->mainViewIsVisible()) {
        window->corvanaWindow()->hide();
        window->displayMainViewBeforeQuit();
    }
    CVLog::log(u"Quitting on my own terms..."_s);
    return TerminateReply::TerminateNow;
}

void CVApplicationDelegate::didEndQuitAlertSheet(int returnCode)
{
    if (!m_spanner)
        return;
    if (returnCode == CVPresenter::DefaultReturn)
        m_spanner->setPauseSpan(false);
    else
        m_spanner->skipTheRestAction();
}

void CVApplicationDelegate::didEndQuitAfterCrashWhileSpanningAlertSheet(int returnCode)
{
    if (returnCode == CVPresenter::DefaultReturn)
        return;
    if (returnCode == CVPresenter::AlternateReturn) {
        m_recoverFromCrashNextLaunch = true;
    } else {
        m_settings->setValue(CVSettingsKey::IsSpanning, false);
        m_crashedWhileSpanningLastRun = false;
    }
    terminate();
}

void CVApplicationDelegate::performQuit(bool save)
{
    m_hasQuit = true;
    if (save && m_windowDelegate) {
        m_windowDelegate->browserDelegate()->saveTrackListColumns();
        m_windowDelegate->saveWindowFrame();
    }
    if (m_settings && (save || !m_instanceRefused))
        m_settings->synchronize();
    if (m_windowDelegate)
        m_windowDelegate->corvanaWindow()->hide();
    Q_EMIT quitting();
    if (m_quitHandler)
        m_quitHandler();
}

// ---- The helper --------------------------------------------------------------------------

CVApplicationDelegate::InstallResult CVApplicationDelegate::installOrUpdateCorvanaHelper()
{
    CVPresenter *presenter = m_presenter.get();
    const InstallResult result = m_helper.installOrUpdateCorvanaHelper(
        presenter, [presenter](const QString &status) { presenter->setStatusText(status); });
    if (result == InstallResult::QuitWithoutSaving && m_helper.reportBugRequested())
        reportBugAction();
    return result;
}

bool CVApplicationDelegate::isCorvanaHelperRunning()
{
    return m_helper.isCorvanaHelperRunning();
}

void CVApplicationDelegate::reportBugAction()
{
    if (!CVBugReport::open())
        m_presenter->presentError(u"No mail program could be opened."_s,
            u"Please write to %1 about what happened.\n\n%2"_s.arg(CVBugReport::address(), CVBugReport::body()));
}

void CVApplicationDelegate::tellCorvanaHelperToQuit()
{
    m_helper.tellCorvanaHelperToQuit();
}

void CVApplicationDelegate::launchCorvanaHelper()
{
    if (m_options.startHelper)
        m_helper.launchCorvanaHelper();
}

bool CVApplicationDelegate::isRunThreadActive() const
{
    return m_windowDelegate && m_windowDelegate->isRunThreadActive();
}

// ---- The engine's host -------------------------------------------------------------------

void CVApplicationDelegate::telliTunesToQuit()
{
    if (m_playerLink)
        m_playerLink->quit();
}

bool CVApplicationDelegate::saveAction()
{
    return m_history && m_history->saveAction();
}

void CVApplicationDelegate::quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling()
{
    if (m_spanner)
        m_spanner->quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling();
}
