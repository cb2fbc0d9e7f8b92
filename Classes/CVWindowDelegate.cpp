#include "CVWindowDelegate.h"

#include "Browsing/CVBrowserDelegate.h"
#include "Browsing/CVFilterPathDelegate.h"
#include "Browsing/CVItemInformationDelegate.h"
#include "Browsing/CVPlaylistsDelegate.h"
#include "CVApplicationDelegate.h"
#include "Engine/CVMediaSpanner.h"
#include "Library/CVLibraryManager.h"
#include "MainWindow/CVLocationsDelegate.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVResultsModel.h"
#include "MainWindow/CVRunController.h"
#include "MainWindow/CVRunProgress.h"
#include "MainWindow/CVSheetPresenter.h"
#include "MainWindow/CVSounds.h"
#include "MainWindow/CVSpanLocationController.h"
#include "MainWindow/CVSpanQueue.h"
#include "MainWindow/CVWalkThrough.h"
#include "Platform/CVLauncherEntry.h"
#include "Platform/CVSettings.h"
#include "Views/CVFilterPathBar.h"
#include "Views/CVFilterPathPopover.h"
#include "Views/CVLoadingView.h"
#include "Views/CVMediaFilterBar.h"
#include "Views/CVResultsView.h"
#include "Views/CVScreenFit.h"
#include "Views/CVSpanLocationView.h"
#include "Views/CVSpanQueueDropZone.h"

#include <QAbstractItemView>
#include <QAction>
#include <QApplication>
#include <QDesktopServices>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScreen>
#include <QSplitter>
#include <QSysInfo>
#include <QToolButton>
#include <QUrl>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

CVWindowDelegate::CVWindowDelegate(CVApplicationDelegate *app, CVSettings *settings, CVLibraryManager *library,
    CVSheetPresenter *presenter, QObject *parent)
    : QObject(parent)
    , m_app(app)
    , m_settings(settings)
    , m_library(library)
    , m_presenter(presenter)
    , m_window(new CVMainWindow)
    , m_selection(new CVSelectionModel(library, this))
    , m_queue(new CVSpanQueue(library, settings, this))
    , m_browser(new CVBrowserDelegate(library, settings, m_selection, m_window,
          { [app] { return app->playerLink(); }, [app] { return app->fileManager(); } }, this))
    , m_playlists(new CVPlaylistsDelegate(library, settings, m_selection, m_window, this))
    , m_locations(new CVLocationsDelegate(library, settings, m_selection, m_window,
          { [app] { return app->fileManager(); }, [this] { return m_restoreMode; } }, this))
    , m_information(new CVItemInformationDelegate(settings, m_window, this))
    , m_spanLocation(new CVSpanLocationController(settings, library, presenter, m_window->spanLocationView, m_window,
          { [app] { return app->crashedWhileSpanningLastRun(); }, [app] { return app->spanner(); },
              [this] { return m_restoreMode; }, [this] { return mainViewIsVisible(); },
              [app] { return app->fileManager(); } },
          this))
    , m_sounds(new CVSounds(this))
    , m_run(new CVRunController(settings, library, presenter, m_window, m_queue, m_sounds,
          { [app] { return app->isLoadingCorvana(); }, [app] { return app->crashedWhileSpanningLastRun(); },
              [this] { return m_restoreMode; }, [this] { return spanLocation(); }, [this] { doSetSpanMode(); },
              [this] { clearSpanLocation(); }, [this] { return mainViewIsVisible(); },
              [this](bool resizable, bool closable) { setWindow(resizable, closable); },
              [app] { app->loadCorvanaAndDisplayMainView(); }, [app] { app->reportBugAction(); },
              [app] { app->terminate(); } },
          this))
{
    m_presenter->setWindow(m_window);
    m_library->setPanes(m_selection);
    // Changes are announced once the main view is up; the load fills the panes before that.
    m_selection->setLiveCheck([this] { return mainViewIsVisible(); });
    m_filterPath = new CVFilterPathDelegate(
        m_selection, settings, m_window->filterPathBar, m_window->filterPathPopover, m_window->action(u"browseQueue"_s),
        [this] { return m_queue->isEmpty(); }, this);
    m_walkThrough = new CVWalkThrough(m_selection, m_window->spanQueueDropZone,
        { [this] { return m_restoreMode; }, [this] { return !spanLocation().isEmpty(); },
            [this] { return m_queue->isEmpty(); } },
        this);
    // The information window shows the track list's selected track: its buttons act on it.
    connect(m_information, &CVItemInformationDelegate::showInFinderRequested, m_browser,
        &CVBrowserDelegate::showSelectionInFinder);
    connect(m_information, &CVItemInformationDelegate::revealInITunesRequested, m_browser,
        &CVBrowserDelegate::revealSelectionInITunes);
    connect(m_information, &CVItemInformationDelegate::playInITunesRequested, m_browser,
        &CVBrowserDelegate::playSelectionInITunes);
    m_recentSearchesWrite.setSingleShot(true);
    m_recentSearchesWrite.setInterval(2000);
    wirePanes();
    wireViews();
    wireMenus();
    m_window->setBrowserOnTop(m_settings->boolValue(CVSettingsKey::ColumnBrowserOnTop));
    m_window->setAnimatesViewChanges(m_settings->boolValue(CVSettingsKey::CubeAnimateWindow));
    restoreSplitterSizes();
    m_browser->refreshSpanFilters();
    m_window->spanQueueDropZone->setSummary(u"No Media Selected"_s);
    m_spanLocation->reloadSpanLocatonInformation();
}

CVWindowDelegate::~CVWindowDelegate()
{
    m_library->setPanes(nullptr);
    delete m_window;
}

CVPlayerLink *CVWindowDelegate::playerLink() const
{
    return m_app->playerLink();
}

CVFileManagerLink *CVWindowDelegate::fileManager() const
{
    return m_app->fileManager();
}

// ---- Wiring ------------------------------------------------------------------------------

void CVWindowDelegate::wirePanes()
{
    // What the panes ask of the rest of the window.
    const auto queueSelection = [this] { addOrRemoveSelectionFromQueue(); };
    connect(m_browser, &CVBrowserDelegate::queueSelectionRequested, this, queueSelection);
    connect(m_playlists, &CVPlaylistsDelegate::queueSelectionRequested, this, queueSelection);
    connect(m_locations, &CVLocationsDelegate::queueSelectionRequested, this, queueSelection);
    connect(m_browser, &CVBrowserDelegate::queueMediaRequested, this, &CVWindowDelegate::addOrRemoveMediaTypeFromQueue);
    connect(m_browser, &CVBrowserDelegate::tracksListed, this,
        [this](const CVTrackList &tracks) { updateSummaryForSource(u"Tracks"_s, tracks); });
    connect(m_browser, &CVBrowserDelegate::trackSelected, m_information, [this](const CVTrack *track) {
        if (track)
            m_information->loadTrackInformation(track);
        else
            m_information->clearTrackInformation();
    });
    connect(m_browser, &CVBrowserDelegate::trackInformationRequested, m_information,
        &CVItemInformationDelegate::showItemInfoWindow);
    connect(m_locations, &CVLocationsDelegate::spanLocationRequested, m_spanLocation,
        &CVSpanLocationController::changeSpanLocationWithConfirmation);
    connect(m_spanLocation, &CVSpanLocationController::locationChanged, this, [this] {
        m_walkThrough->setWalkThroughTextTo(u"When Ready, Click 'Span…' to Move Selected Tracks to '%1'"_s.arg(
                                                m_library->createDisplayTitleForPath(spanLocation())),
            u"ReadyToSpan"_s);
    });
    connect(m_queue, &CVSpanQueue::changed, this, &CVWindowDelegate::queueChanged);
    connect(m_run, &CVRunController::spanLocationUsed, m_locations, &CVLocationsDelegate::addLocationToExpand);
    connect(m_run, &CVRunController::reloadingRunStarted, this, [this] { m_manualReload = true; });
    connect(m_run, &CVRunController::spanningViewComing, m_information, [this] {
        m_information->clearTrackInformation();
        if (m_information->window())
            m_information->window()->hide();
    });
}

void CVWindowDelegate::wireViews()
{
    CVMainWindow *w = m_window;
    connect(w, &CVMainWindow::closeRequested, m_app, [this] { m_app->terminate(); });
    connect(w, &CVMainWindow::activationChanged, this, [this](bool active) {
        if (active)
            windowDidBecomeMain();
        else
            windowDidResignMain();
    });
    connect(w, &CVMainWindow::resized, this, [this] {
        saveWindowFrame();
        windowDidResize();
    });
    connect(w, &CVMainWindow::moved, this, [this] {
        saveWindowFrame();
        m_window->filterPathPopover->hide();
    });
    connect(w->mediaFilterBar, &CVMediaFilterBar::mediaClicked, m_browser, &CVBrowserDelegate::setMediaFilterAction);
    connect(m_browser, &CVBrowserDelegate::columnDisplayOptionsRequested, this,
        &CVWindowDelegate::showColumnDisplayOptions);
    connect(w->mediaFilterBar, &CVMediaFilterBar::contextMenuRequested, this, [this](int index, const QPoint &at) {
        QMenu menu;
        const QString name = CVBrowserDelegate::mediaNames().value(index);
        QAction *item = menu.addAction(u"%1 %2 %3 Spanning Queue…"_s.arg(
            isBrowsingSpanningQueue() ? u"Remove"_s : u"Add"_s, name, isBrowsingSpanningQueue() ? u"from"_s : u"to"_s));
        item->setEnabled(!m_app->crashedWhileSpanningLastRun());
        if (menu.exec(at) == item)
            m_browser->addOrRemoveClickedMediaTypeFromQueue(item->text());
    });
    connect(w->searchField, &QLineEdit::textChanged, this, &CVWindowDelegate::filterSourcesWithSearch);
    connect(
        m_filterPath, &CVFilterPathDelegate::browseQueueToggleRequested, this, [this] { browseSpanningQueue(true); });
    connect(
        m_filterPath, &CVFilterPathDelegate::searchClearRequested, this, [this] { doFilterSourcesWithSearch(u""_s); });
    connect(w->spanQueueDropZone, &CVSpanQueueDropZone::clicked, this, [this] { browseSpanningQueue(true); });
    connect(w->spanQueueDropZone, &CVSpanQueueDropZone::wantsRemoveDropChanged, this,
        &CVWindowDelegate::setWantsRemoveDropSet);
    connect(
        w->spanQueueDropZone, &CVSpanQueueDropZone::predicateDropped, this, &CVWindowDelegate::performDropOfArchive);
    connect(w->spanButton, &QPushButton::clicked, this, &CVWindowDelegate::spanLibrary);
    connect(w->spanModeButton, &QToolButton::clicked, this, &CVWindowDelegate::setSpanMode);
    connect(w->restoreModeButton, &QToolButton::clicked, this, &CVWindowDelegate::setRestoreMode);
    connect(&m_recentSearchesWrite, &QTimer::timeout, this, [this] {
        m_window->searchField->setToolTip(
            m_recentSearches.isEmpty() ? QString() : u"Recent searches:\n"_s + m_recentSearches.mid(0, 10).join(u'\n'));
    });
    for (QSplitter *s : { w->mainSplitter, w->centreSplitter })
        connect(s, &QSplitter::splitterMoved, this, [this] { saveSplitterSizes(); });
}

void CVWindowDelegate::wireMenus()
{
    CVMainWindow *w = m_window;
    auto on = [&](const QString &name, auto &&slot) { connect(w->action(name), &QAction::triggered, this, slot); };
    on(u"reload"_s, [this] {
        if (!m_app->isLoadingCorvana() && mainViewIsVisible() && !m_app->isRunThreadActive()) {
            m_manualReload = true;
            m_app->loadCorvanaAndDisplayMainView();
        }
    });
    on(u"close"_s, [this] { m_window->close(); });
    on(u"quit"_s, [this] { m_app->terminate(); });
    on(u"find"_s, [this] { focusSearch(); });
    for (const QString &field : { u"Genre"_s, u"Artist"_s, u"Album"_s, u"Name"_s }) {
        QAction *a = w->action(u"searchField"_s + field);
        a->setChecked(m_settings->stringListValue(CVSettingsKey::SearchFields).contains(field));
        connect(a, &QAction::toggled, this, [this, field](bool checked) { editSearchFields(field, checked); });
    }
    on(u"selectAll"_s, [] {
        if (QAbstractItemView *view = qobject_cast<QAbstractItemView *>(QApplication::focusWidget()))
            view->selectAll();
        else if (auto *edit = qobject_cast<QLineEdit *>(QApplication::focusWidget()))
            edit->selectAll();
    });
    on(u"togglePlaylists"_s, [this] { m_playlists->togglePlaylists(); });
    on(u"toggleLocations"_s, [this] { m_locations->toggleLocations(); });
    on(u"spanLocationColumn"_s, [this](bool checked) { m_browser->setShouldShowSpanLocationColumn(checked); });
    QAction *onTop = w->action(u"browserOnTop"_s);
    onTop->setChecked(m_settings->boolValue(CVSettingsKey::ColumnBrowserOnTop));
    on(u"browserOnTop"_s, [this](bool checked) { m_settings->setValue(CVSettingsKey::ColumnBrowserOnTop, checked); });
    on(u"getInfo"_s, [this] {
        m_browser->trackListAction();
        m_information->showItemInfoWindow();
    });
    on(u"fullScreen"_s, [this] {
        if (m_window->isFullScreen())
            m_window->showNormal();
        else if (m_window->isVisible())
            m_window->showFullScreen();
    });
    on(u"addSelection"_s, [this] { addOrRemoveSelectionFromQueue(); });
    on(u"removeSelection"_s, [this] { addOrRemoveSelectionFromQueue(); });
    on(u"clearQueue"_s, [this] { clearSpanningQueue(); });
    on(u"browseQueue"_s, [this] { browseSpanningQueue(true); });
    on(u"spanMode"_s, [this] { setSpanMode(); });
    on(u"restoreMode"_s, [this] { setRestoreMode(); });
    on(u"chooseLocation"_s, [this] { m_spanLocation->chooseSpanLocation(); });
    on(u"selectAllSpanned"_s, [this] { selectAllSpannedTracksToRestore(); });
    on(u"selectAllTracks"_s, [this] { selectAllTracksToConsolidateFiles(); });
    on(u"selectLastTracks"_s, [this] { selectLastTracksSpannedRestored(); });
    QMenu *recent = w->menu(u"RecentSpanLocations"_s);
    connect(
        recent, &QMenu::aboutToShow, this, [this, recent] { m_spanLocation->fillSpanLocationsHistoryMenu(recent); });
    on(u"start"_s, [this] { spanLibrary(); });
    on(u"reportBug"_s, [this] { reportABug(); });
    on(u"about"_s, [this] { showAbout(); });
    on(u"help"_s, [this] { showHelp(); });
    on(u"checkForUpdates"_s, [this] { checkForUpdates(); });
    on(u"preferences"_s, [this] { showPreferences(); });
    on(u"columnOptions"_s, [this] { showColumnDisplayOptions(); });
    w->action(u"removeSelection"_s)->setVisible(false);
    // Nothing to act on until the first load is done.
    for (const QString &menu : { u"View"_s, u"Edit"_s, u"EditSpanningQueue"_s })
        m_run->setMenuEnabled(menu, false);
}

// ---- The window around a load ------------------------------------------------------------

std::optional<QRect> CVWindowDelegate::frameFromLastRun() const
{
    const QStringList parts = m_settings->stringValue(FrameKey).split(u' ');
    if (parts.size() != 4)
        return std::nullopt;
    return QRect(parts[0].toInt(), parts[1].toInt(), parts[2].toInt(), parts[3].toInt());
}

void CVWindowDelegate::restoreWindowFrame()
{
    const std::optional<QRect> frame = frameFromLastRun();
    m_frameSaving = false;
    m_window->setMinimumSize(CVMainWindow::MinimumMainSize);
    if (frame && frame->width() >= CVMainWindow::MinimumMainSize.width()
        && frame->height() >= CVMainWindow::MinimumMainSize.height()) {
        // A frame saved on a larger screen, or on one no longer there, comes back onto this one.
        CVScreenFit::place(m_window, frame->size(), frame->center());
    } else {
        const QScreen *screen = m_window->screen() ? m_window->screen() : QGuiApplication::primaryScreen();
        const QRect available = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 800);
        const QSize size(qMin(1180, qMax(available.width() - 40, CVMainWindow::MinimumMainSize.width())),
            qMin(760, qMax(available.height() - 40, CVMainWindow::MinimumMainSize.height())));
        CVScreenFit::place(m_window, size, available.center());
    }
    m_frameSaving = true;
}

void CVWindowDelegate::saveWindowFrame()
{
    if (!m_frameSaving || m_window->isFullScreen() || m_window->isMaximized())
        return;
    const QRect g = m_window->geometry();
    m_settings->setValue(FrameKey, u"%1 %2 %3 %4"_s.arg(g.x()).arg(g.y()).arg(g.width()).arg(g.height()));
}

void CVWindowDelegate::saveSplitterSizes()
{
    const QList<int> main = m_window->mainSplitter->sizes();
    if (!m_window->playlistsPane->isHidden() && main.value(0) > 0) {
        m_settings->setValue(CVSettingsKey::PlaylistsLeftFrameWidth, double(main[0]));
        m_settings->setValue(CVSettingsKey::PlaylistsLeftFrameWidthBeforeSquishing, double(main[0]));
    }
    if (!m_window->locationsPane->isHidden() && main.value(2) > 0) {
        m_settings->setValue(CVSettingsKey::LocationsRightFrameWidth, double(main[2]));
        m_settings->setValue(CVSettingsKey::LocationsRightFrameWidthBeforeSquishing, double(main[2]));
    }
    const QList<int> centre = m_window->centreSplitter->sizes();
    if (centre.value(0) > 0) {
        const bool onTop = m_window->browserOnTop();
        m_settings->setValue(
            onTop ? CVSettingsKey::BrowserTopFrameHeight : CVSettingsKey::BrowserLeftFrameWidth, double(centre[0]));
        m_settings->setValue(onTop ? CVSettingsKey::BrowserTopFrameHeightBeforeSquishing
                                   : CVSettingsKey::BrowserLeftFrameWidthBeforeSquishing,
            double(centre[0]));
    }
}

void CVWindowDelegate::restoreSplitterSizes()
{
    const int playlists = int(m_settings->realValue(CVSettingsKey::PlaylistsLeftFrameWidth));
    const int locations = int(m_settings->realValue(CVSettingsKey::LocationsRightFrameWidth));
    // setSizes() shares out any difference to the splitter's width by proportion: the centre
    // takes what the side panes leave, so that they keep their widths.
    QSplitter *splitter = m_window->mainSplitter;
    const int width = splitter->isVisible() ? splitter->width() - 2 * splitter->handleWidth() : 1180;
    const int sides
        = (m_window->playlistsPane->isHidden() ? 0 : playlists) + (m_window->locationsPane->isHidden() ? 0 : locations);
    splitter->setSizes({ playlists, qMax(300, width - sides), locations });
}

void CVWindowDelegate::setWindowIsResizableIsMiniturizableIsClosable(bool resizable, bool miniaturizable, bool closable)
{
    Qt::WindowFlags flags = m_window->windowFlags();
    flags.setFlag(Qt::WindowMaximizeButtonHint, resizable);
    flags.setFlag(Qt::WindowMinimizeButtonHint, miniaturizable);
    flags.setFlag(Qt::WindowCloseButtonHint, closable);
    const QRect before = m_window->geometry();
    if (flags != m_window->windowFlags()) {
        const bool visible = m_window->isVisible();
        // New flags re-create the window: shown again, it must not take the focus from
        // whatever the user works in meanwhile.
        const bool active = m_window->isActiveWindow();
        m_window->setWindowFlags(flags);
        if (visible) {
            m_window->setAttribute(Qt::WA_ShowWithoutActivating, !active);
            m_window->show();
            m_window->setAttribute(Qt::WA_ShowWithoutActivating, false);
        }
    }
    if (resizable) {
        m_window->setMinimumSize(CVMainWindow::MinimumMainSize);
        m_window->setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
    } else {
        m_window->setFixedSize(m_window->size());
    }
    // New flags re-create the window, and the window manager may place it anew: it stays where
    // it was, on screen.
    if (m_window->isVisible() && !m_window->isFullScreen() && !m_window->isMaximized())
        CVScreenFit::place(m_window, before.size(), before.center());
    m_app->setAllowResize(resizable);
}

void CVWindowDelegate::setWindow(bool resizable, bool closable)
{
    setWindowIsResizableIsMiniturizableIsClosable(resizable, true, closable);
}

void CVWindowDelegate::saveInitialSizeAndResizeWindowForLoading()
{
    restoreWindowFrame();
    m_mainViewSize = m_window->size();
    m_window->showLoadingView();
    m_window->setMinimumSize(CVMainWindow::LoadingSize);
    m_window->setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
    m_mainViewCentre = m_window->geometry().center();
    CVScreenFit::place(m_window, CVMainWindow::LoadingSize, m_mainViewCentre);
    setWindow(false, false);
    m_run->setShownView(CVRunController::View::Loading);
    // The loading size is on disk from now on: a run that never ends is seen by it.
    saveWindowFrame();
    m_settings->synchronize();
}

void CVWindowDelegate::clearAllForReload()
{
    m_selection->clearForReload();
    m_browser->clearAllForReload();
    m_locations->clearAllForReload();
    m_playlists->clearAllForReload();
    m_information->clearTrackInformation();
    // The queue and the last results hold tracks of the library being replaced.
    m_queue->forget();
    m_run->resultsModel()->clear();
    m_window->showLoadingView();
    m_run->setShownView(CVRunController::View::Loading);
}

void CVWindowDelegate::warmSelections()
{
    // The lists the main view shows first, worked out while the load thread builds the location
    // table (which they do not need): prepareContentAfterLoad then finds them in the memo.
    m_library->prepareLists();
    m_browser->refreshSpanFilters();
    m_browser->refreshMediaFilters();
    m_library->filterEmptyPlaylist();
    m_browser->refreshLibraryBrowser();
}

void CVWindowDelegate::prepareContentAfterLoad()
{
    m_manualReload = false;
    m_browser->refreshSpanFilters();
    m_browser->refreshMediaFilters();
    m_playlists->initializePlaylistTable();
    m_locations->initializeLocationsTable();
    refreshBrowserDependentText();
    m_browser->refreshLibraryBrowser();
    m_browser->adjustBrowserForNewSize();
    updateSpanSummary();
    m_filterPath->refreshFilterPathBar();
    // Get Info points at the information panel again, and the menus a run took away come back.
    const bool recovering = m_app->crashedWhileSpanningLastRun();
    m_run->enableMenusAfterRun();
    m_window->spanModeButton->setEnabled(!recovering);
    m_window->restoreModeButton->setEnabled(!recovering);
    m_window->spanQueueDropZone->setRefusesDrags(recovering);
    m_window->spanLocationView->setRefusesDrops(recovering);
    // The location (or restore mode) as the last run left it.
    const QString saved
        = m_settings->stringValue(recovering ? CVSettingsKey::LastSpanLocation : CVSettingsKey::SavedSpanLocation);
    if (saved == u"CVRestoreMode"_s)
        doSetRestoreMode();
    else if (!saved.isEmpty())
        setSpanLocation(saved, false);
    m_spanLocation->reloadSpanLocatonInformation();
}

void CVWindowDelegate::displayMainViewAfterLoad()
{
    if (m_settings->contains(CVSettingsKey::LastTracksSpanned)) {
        QAction *last = m_window->action(u"selectLastTracks"_s);
        last->setText(u"Select Last Tracks %1…"_s.arg(
            m_settings->stringValue(CVSettingsKey::LastSpanLocation) == u"CVRestoreMode"_s ? u"Restored"_s
                                                                                           : u"Spanned"_s));
        last->setVisible(true);
    }
    m_window->showMainView();
    m_run->setShownView(CVRunController::View::Main);
    setWindow(true, true);
    m_frameSaving = false;
    growToMainViewSize();
    // The side panes as the user left them: the small loading view squeezed them.
    restoreSplitterSizes();
    m_frameSaving = true;
    saveWindowFrame();
    m_browser->adjustBrowserForNewSize();
    m_browser->refreshMediaFilters();
    const QString version = QCoreApplication::applicationVersion();
    if (m_settings->stringValue(CVSettingsKey::VersionLastRun) != version)
        m_settings->setValue(CVSettingsKey::VersionLastRun, version);
    const bool firstRun = m_settings->boolValue(CVSettingsKey::FirstRun);
    if (firstRun)
        m_settings->setValue(CVSettingsKey::FirstRun, false);
    m_firstLoad = false;
    m_settings->synchronize();
    Q_EMIT mainViewShown();
    // The texts a search looks at are folded once the view is up, not on the way to it: a
    // first key typed before that finds them folded by then, or folds what it needs itself.
    QTimer::singleShot(0, this, [this] { m_library->prepareSearch(); });
    // The checks after a load: a crash first, then the offer about dependent tracks.
    if (!firstRun && m_app->crashedWhileSpanningLastRun()) {
        m_run->showCrashWhileRunningSheet();
        return;
    }
    if (!firstRun && m_app->crashedLastRun()) {
        m_run->showCrashSheet();
        return;
    }
    m_run->checkForAndOfferToUpdateDependentlySpannedTracks();
}

void CVWindowDelegate::displayMainViewBeforeQuit()
{
    // The next start must not take the loading size for a crash.
    m_frameSaving = false;
    setWindow(true, true);
    growToMainViewSize();
    m_frameSaving = true;
    saveWindowFrame();
}

void CVWindowDelegate::growToMainViewSize()
{
    if (!m_mainViewSize.isValid())
        return;
    // Around the loading view's centre, which is where the main view stood before it (unless
    // the user moved the loading view: then around where it is now).
    const QPoint centre = m_window->isVisible() ? m_window->geometry().center() : m_mainViewCentre;
    CVScreenFit::place(m_window, m_mainViewSize, centre);
}

void CVWindowDelegate::attachEngine(CVMediaSpanner *spanner)
{
    m_run->attachEngine(spanner);
}

void CVWindowDelegate::spanLibrary()
{
    m_run->spanLibrary();
}

bool CVWindowDelegate::isSpanningViewOnScreen() const
{
    return m_run->isSpanningViewOnScreen();
}

bool CVWindowDelegate::isResultsViewOnScreen() const
{
    return m_run->isResultsViewOnScreen();
}

bool CVWindowDelegate::isRunThreadActive() const
{
    return m_run->isRunThreadActive();
}

CVResultsModel *CVWindowDelegate::resultsModel() const
{
    return m_run->resultsModel();
}

CVRunProgress *CVWindowDelegate::runProgress() const
{
    return m_run->runProgress();
}

QString CVWindowDelegate::donationPageUrl()
{
    return CVRunController::donationPageUrl();
}

const QString &CVWindowDelegate::spanLocation() const
{
    return m_spanLocation->spanLocation();
}

void CVWindowDelegate::setSpanLocation(const QString &path, bool checkIt)
{
    m_spanLocation->setSpanLocation(path, checkIt);
}

void CVWindowDelegate::clearSpanLocation()
{
    m_spanLocation->clearSpanLocation();
}

void CVWindowDelegate::refreshBrowserDependentText()
{
    m_walkThrough->setWalkThroughTextTo(u"Drag Media Here to Select for Spanning"_s, u"DragTracksSpan"_s);
    m_walkThrough->setWalkThroughTextTo(u"Drag Media Here to Select for Restoration"_s, u"DragTracksRestore"_s);
}

bool CVWindowDelegate::mainViewIsVisible() const
{
    return m_window->isMainViewShown();
}

void CVWindowDelegate::reportABug()
{
    m_app->reportBugAction();
}

// ---- Window events -----------------------------------------------------------------------

void CVWindowDelegate::windowDidBecomeMain()
{
    m_window->filterPathBar->setIsDimmed(false);
    m_window->spanLocationView->setDimmed(false);
    m_spanLocation->reloadSpanLocatonInformation();
    // The Trash may have been emptied elsewhere meanwhile.
    if (m_run->spanner() && isResultsViewOnScreen())
        m_run->spanner()->isTrashEmpty();
}

void CVWindowDelegate::windowDidResignMain()
{
    m_window->filterPathBar->setIsDimmed(true);
    m_window->spanLocationView->setDimmed(true);
}

void CVWindowDelegate::windowDidResize()
{
    if (!mainViewIsVisible())
        return;
    m_browser->refreshMediaFilters();
}
