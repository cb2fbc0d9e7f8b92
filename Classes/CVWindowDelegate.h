#pragma once

#include "Engine/CVResultRow.h"
#include "Library/CVPredicate.h"
#include "Library/CVSelectionPanes.h"
#include "Library/CVTrackList.h"
#include "Platform/CVSettings.h"
#include "Preferences/CVUpdateChecker.h"

#include <QHash>
#include <QMap>
#include <QObject>
#include <QRect>
#include <QTimer>

#include <atomic>
#include <memory>
#include <optional>

class CVAboutWindow;
class CVApplicationDelegate;
class CVColumnDisplayOptionDelegate;
class CVHelpWindow;
class CVPrefsWindowController;
class CVBrowserDelegate;
class CVFileManagerLink;
class CVItemInformationDelegate;
class CVLibraryManager;
class CVLauncherEntry;
class CVLocationsDelegate;
class CVMainWindow;
class CVMediaSpanner;
class CVPlayerLink;
class CVPlaylistsDelegate;
class CVResultsModel;
class CVRunProgress;
class CVSettings;
class CVSheetPresenter;
class CVSounds;
class CVTrack;
class QMenu;

// The main window's controller: the loading and main views, the search and the filter path bar,
// the spanning queue with the span/restore mode and the span location, the walk-through line,
// and a run's spanning and results views with the checks before a run and after a load. It owns
// the panes' controllers and gives the selection machinery their predicates.
class CVWindowDelegate : public QObject, public CVSelectionPanes {
    Q_OBJECT

public:
    static constexpr auto FrameKey = CVSettingsKey::MainWindowFrame;

    CVWindowDelegate(CVApplicationDelegate *app, CVSettings *settings, CVLibraryManager *library,
        CVSheetPresenter *presenter, QObject *parent = nullptr);
    ~CVWindowDelegate() override;

    CVMainWindow *corvanaWindow() const { return m_window; }
    CVBrowserDelegate *browserDelegate() const { return m_browser; }
    CVPlaylistsDelegate *playlistsDelegate() const { return m_playlists; }
    CVLocationsDelegate *locationsDelegate() const { return m_locations; }
    CVItemInformationDelegate *itemInformationDelegate() const { return m_information; }
    CVPlayerLink *playerLink() const;
    CVFileManagerLink *fileManager() const;

    // CVSelectionPanes
    CVPredicate getSpanFilterPredicate() const override;
    CVPredicate getMediaTypePredicate() const override;
    CVPredicate getLocationPredicate() const override;
    CVPredicate getSpanQueuePredicate() const override;
    CVPredicate getPlaylistPredicate() const override;

    // The window around a load.
    // The frame the window had when the last run left it, if any was kept.
    std::optional<QRect> frameFromLastRun() const;
    void restoreWindowFrame();
    void saveWindowFrame();
    void saveInitialSizeAndResizeWindowForLoading();
    void clearAllForReload();
    void warmSelections();
    void prepareContentAfterLoad();
    void displayMainViewAfterLoad();
    void displayMainViewBeforeQuit();
    bool firstLoad() const { return m_firstLoad; }
    bool mainViewIsVisible() const;
    bool manualCorvanaReload() const { return m_manualReload; }
    void setManualCorvanaReload(bool manual) { m_manualReload = manual; }
    void reportABug();

    // The windows around the main one, made when first asked for.
    void showPreferences();
    void showColumnDisplayOptions();
    void showHelp(const QString &page = QStringLiteral("index.html"));
    void showAbout();
    CVPrefsWindowController *prefsWindow() const { return m_prefsWindow; }
    CVColumnDisplayOptionDelegate *columnDisplayOptions() const { return m_columnOptions; }
    CVHelpWindow *helpWindow() const { return m_helpWindow; }
    CVAboutWindow *aboutWindow() const { return m_aboutWindow; }
    // "Check for Updates…", and what any check found.
    void checkForUpdates();
    // The Search In menu shows the fields stored (the preferences may have changed them).
    void searchFieldsChanged();
    void updateCheckFinished(const CVUpdateChecker::Result &result);
    void didEndUpdateCheck(int returnCode, const QUrl &releaseNotes);
    void setWindow(bool resizable, bool closable);
    void setWindowIsResizableIsMiniturizableIsClosable(bool resizable, bool miniaturizable, bool closable);

    // The engine, once the application delegate has made it: its signals reach the run's views.
    void attachEngine(CVMediaSpanner *spanner);

    // The spanning queue.
    void performDrop(const CVPredicate &predicate);
    // A drop on the queue's zone: the archived predicate, and where it fell.
    void performDropOfArchive(const QByteArray &archived, const QPoint &globalPosition);
    // The sound of an addition, or the puff of a removal, when "CVPlaySpanQueueDropSounds" is on.
    void playQueueFeedback(bool removal, const QPoint &globalPosition);
    void saveSpanningQueue();
    CVPredicate getSpanQueuePredicateForField(const QString &field) const;
    void updateSpanSummary();
    void updateSummaryForSource(const QString &source, const CVTrackList &tracks);
    void browseSpanningQueue(bool fromInterface = false);
    bool isBrowsingSpanningQueue() const { return m_browsingSpanningQueue; }
    void setWantsRemoveDropSet(bool remove) { m_wantsRemoveDropSet = remove; }
    bool wantsRemoveDropSet() const { return m_wantsRemoveDropSet; }
    void addOrRemoveSelectionFromQueue();
    void addOrRemoveMediaTypeFromQueue(const CVPredicate &predicate, const QString &mediaName);
    void clearSpanningQueue();
    void selectAllSpannedTracksToRestore();
    void selectAllTracksToConsolidateFiles();
    void selectLastTracksSpannedRestored();
    void toggleRoundTimesForSummary();
    const QHash<qint64, CVTrack *> &spanQueue() const { return m_spanQueue; }
    // The queued tracks by TrackID, ascending.
    QList<CVTrack *> queuedTracks() const;
    double currentSpanQueueSize() const { return m_currentSpanQueueSize; }

    // Modes and the span location.
    bool restoreMode() const { return m_restoreMode; }
    void setSpanMode();
    void setRestoreMode();
    void doSetSpanMode();
    void doSetRestoreMode();
    const QString &spanLocation() const { return m_spanLocation; }
    void setSpanLocation(const QString &path, bool checkIt);
    void clearSpanLocation() { setSpanLocation(QString(), false); }
    void chooseSpanLocation();
    void changeSpanLocationWithConfirmation(const QString &path);
    void reloadSpanLocatonInformation();
    // The history of span locations ("CVSpanLocationHistory"), newest first, at most five.
    QStringList spanLocationHistory() const;
    void fillSpanLocationsHistoryMenu(QMenu *menu);
    void popUpSpanLocationsHistoryMenu(const QPoint &globalPosition);
    void setSpanLocationFromHistory(const QString &path);
    void addOrRemoveLocationToHistory();
    void addLocationToHistory(const QString &path);
    void clearSpanLocationHistory();
    void showLocationInFinder();
    void fillSpanLocationContextMenu(QMenu *menu);
    void showSpanLocationContextMenu(const QPoint &globalPosition);
    void spanLocationDropped(const QString &path);

    // Runs.
    void spanLibrary();
    // The answer to the confirmation: the run starts.
    void closeConfirmSpanRestoreAction();
    // Asks the player to look for the files of these tracks, then reloads.
    void locateTracks(const QList<CVTrack *> &tracks);
    void updateDependentTracks();
    void checkForAndOfferToUpdateDependentlySpannedTracks();
    // The views a run swaps in (the engine waits for these).
    void showSpanningView();
    void showResultsAfterRun(const CVRunResults &results);
    void showReloadingView();
    // The results view's way back: the library is read again and the main view shown.
    void leaveResultsView();
    // The run's worker thread has ended.
    void runThreadFinished();
    // Safe from any thread (the engine asks from its worker).
    bool isSpanningViewOnScreen() const { return m_shownView == ShownView::Spanning; }
    bool isResultsViewOnScreen() const { return m_shownView == ShownView::Results; }
    void refreshDonateStatus();
    void donateAction();
    CVResultsModel *resultsModel() const { return m_resultsModel; }
    CVRunProgress *runProgress() const { return m_runProgress; }
    CVSounds *sounds() const { return m_sounds; }
    CVLauncherEntry *launcherEntry() const { return m_launcherEntry.get(); }
    static QString donationPageUrl();

    // The walk-through line on the queue's background.
    void setWalkThroughTextTo(const QString &text, const QString &step);
    void setWalkThroughTextToProperStep();
    void setIsMouseOverSpanQueueDropZone(bool over);
    QString walkThroughText() const;

    // Search and the filter path.
    void filterSourcesWithSearch(const QString &text) { doFilterSourcesWithSearch(text); }
    void doFilterSourcesWithSearch(const std::optional<QString> &text);
    void focusSearch();
    void editSearchFields(const QString &field, bool on);
    void refreshFilterPathBar();
    void filterPathMenuItemAction(int tag, int segment);
    void clearFilter(const QString &name);
    void moveFilter(const QString &name, int offset);
    QStringList recentSearches() const { return m_recentSearches; }
    void setIsMouseOverFilterPathBar(bool over);

    // Window events (the application delegate forwards them).
    void windowDidBecomeMain();
    void windowDidResignMain();
    void windowDidResize();

Q_SIGNALS:
    void mainViewShown();

private:
    enum class ShownView { Loading, Main, Spanning, Results };

    void wireMenus();
    void wireViews();
    void refreshPanesAfterQueueChange();
    QString filterDescription(const QString &name, bool *inForce) const;
    void confirmQueueSheet(const QString &message, const CVPredicate &predicate, const QString &alternateTitle);
    // The queue becomes (or gains) the predicate's tracks, saved and summed up.
    void fillQueueWithPredicate(const CVPredicate &predicate, bool replace);
    void didEndSpanLocationCheckSheet(int advice, int returnCode, const QString &location, const QString &previous);
    // The View, Edit and Edit Spanning Queue menus with their items (and shortcuts).
    void setMenuEnabled(const QString &name, bool enabled);
    void disableMenusForRun();
    void enableMenusAfterRun();
    void showRunRefusal(const QString &reason);
    void showCrashWhileRunningSheet();
    void showCrashSheet();
    void saveSplitterSizes();
    void restoreSplitterSizes();
    // The loading view grows back to the main view's size, on screen.
    void growToMainViewSize();

    CVApplicationDelegate *m_app;
    CVSettings *m_settings;
    CVLibraryManager *m_library;
    CVSheetPresenter *m_presenter;
    CVMainWindow *m_window;
    CVBrowserDelegate *m_browser;
    CVPlaylistsDelegate *m_playlists;
    CVLocationsDelegate *m_locations;
    CVItemInformationDelegate *m_information;
    CVPrefsWindowController *m_prefsWindow = nullptr;
    CVColumnDisplayOptionDelegate *m_columnOptions = nullptr;
    CVHelpWindow *m_helpWindow = nullptr;
    CVAboutWindow *m_aboutWindow = nullptr;

    bool m_firstLoad = true;
    bool m_manualReload = false;
    bool m_restoreMode = false;
    bool m_browsingSpanningQueue = false;
    bool m_wantsRemoveDropSet = false;
    bool m_mouseOverDropZone = false;
    bool m_dragOverDropZone = false;
    bool m_overrideFilesNotFoundForSpan = false;
    bool m_overrideEnoughSpaceForSpan = false;
    std::atomic<ShownView> m_shownView { ShownView::Loading };
    CVMediaSpanner *m_spanner = nullptr;
    CVResultsModel *m_resultsModel;
    CVRunProgress *m_runProgress = nullptr;
    CVSounds *m_sounds;
    std::unique_ptr<CVLauncherEntry> m_launcherEntry;
    int m_runTracks = 0;
    double m_runBytes = 0;
    bool m_mouseOverFilterPathBar = false;
    bool m_frameSaving = true;
    QSize m_mainViewSize;
    QPoint m_mainViewCentre; // where the main view stood when the loading view took its place
    QString m_spanLocation;
    QHash<qint64, CVTrack *> m_spanQueue; // TrackID -> track, so a track is queued once
    CVPredicate m_currentSpanQueuePredicate = CVPredicate::fromText(QStringLiteral("EMPTY"));
    // The queue predicates by field, for the queue as it was at m_spanQueueGeneration.
    mutable QHash<QString, CVPredicate> m_spanQueuePredicateCache;
    mutable quint64 m_spanQueuePredicateGeneration = 0;
    quint64 m_spanQueueGeneration = 1;
    double m_currentSpanQueueSize = 0;
    bool m_shouldRoundOffTime = true;
    QHash<QString, QString> m_walkThroughTextOptions;
    QStringList m_recentSearches;
    QTimer m_recentSearchesWrite;
};
