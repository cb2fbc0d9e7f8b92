#pragma once

#include "Browsing/CVSelectionModel.h"
#include "Engine/CVResultRow.h"
#include "Library/CVPredicate.h"
#include "Library/CVTrackList.h"
#include "Platform/CVSettings.h"
#include "Preferences/CVUpdateChecker.h"

#include <QHash>
#include <QMap>
#include <QObject>
#include <QRect>
#include <QTimer>

#include <memory>
#include <optional>

class CVAboutWindow;
class CVApplicationDelegate;
class CVColumnDisplayOptionDelegate;
class CVHelpWindow;
class CVPrefsWindowController;
class CVBrowserDelegate;
class CVFileManagerLink;
class CVFilterPathDelegate;
class CVItemInformationDelegate;
class CVLibraryManager;
class CVLocationsDelegate;
class CVMainWindow;
class CVMediaSpanner;
class CVPlayerLink;
class CVPlaylistsDelegate;
class CVResultsModel;
class CVRunController;
class CVRunProgress;
class CVSettings;
class CVSheetPresenter;
class CVSounds;
class CVSpanLocationController;
class CVSpanQueue;
class CVTrack;
class CVWalkThrough;
class QMenu;

// The main window's controller: the loading and main views, the search and the filter path bar,
// the spanning queue with the span/restore mode and the span location, the walk-through line,
// and a run's spanning and results views with the checks before a run and after a load. It makes
// the panes' controllers and the selection model they share, and connects them.
class CVWindowDelegate : public QObject {
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
    CVSelectionModel *selectionModel() const { return m_selection; }
    CVPlayerLink *playerLink() const;
    CVFileManagerLink *fileManager() const;

    CVPredicate getSpanQueuePredicate() const { return m_selection->getSpanQueuePredicate(); }

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

    // The engine, once the application delegate has made it: the run controller drives it.
    void attachEngine(CVMediaSpanner *spanner);
    CVRunController *runController() const { return m_run; }

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
    bool isBrowsingSpanningQueue() const { return m_selection->isBrowsingQueue(); }
    void setWantsRemoveDropSet(bool remove) { m_wantsRemoveDropSet = remove; }
    bool wantsRemoveDropSet() const { return m_wantsRemoveDropSet; }
    void addOrRemoveSelectionFromQueue();
    void addOrRemoveMediaTypeFromQueue(const CVPredicate &predicate, const QString &mediaName);
    void clearSpanningQueue();
    void selectAllSpannedTracksToRestore();
    void selectAllTracksToConsolidateFiles();
    void selectLastTracksSpannedRestored();
    void toggleRoundTimesForSummary();
    CVSpanQueue *queue() const { return m_queue; }
    const QHash<qint64, CVTrack *> &spanQueue() const;
    // The queued tracks by TrackID, ascending.
    QList<CVTrack *> queuedTracks() const;
    double currentSpanQueueSize() const;

    // Modes and the span location.
    bool restoreMode() const { return m_restoreMode; }
    void setSpanMode();
    void setRestoreMode();
    void doSetSpanMode();
    void doSetRestoreMode();
    CVSpanLocationController *spanLocationController() const { return m_spanLocation; }
    const QString &spanLocation() const;
    void setSpanLocation(const QString &path, bool checkIt);
    void clearSpanLocation();

    // Runs (the run controller's, here for the application delegate and the tests).
    void spanLibrary();
    bool isSpanningViewOnScreen() const;
    bool isResultsViewOnScreen() const;
    bool isRunThreadActive() const;
    CVResultsModel *resultsModel() const;
    CVRunProgress *runProgress() const;
    CVSounds *sounds() const { return m_sounds; }
    static QString donationPageUrl();

    // The walk-through line on the queue's background.
    CVWalkThrough *walkThrough() const { return m_walkThrough; }

    // Search.
    void filterSourcesWithSearch(const QString &text) { doFilterSourcesWithSearch(text); }
    void doFilterSourcesWithSearch(const std::optional<QString> &text);
    void focusSearch();
    void editSearchFields(const QString &field, bool on);
    QStringList recentSearches() const { return m_recentSearches; }
    CVFilterPathDelegate *filterPathDelegate() const { return m_filterPath; }

    // Window events (the application delegate forwards them).
    void windowDidBecomeMain();
    void windowDidResignMain();
    void windowDidResize();

Q_SIGNALS:
    void mainViewShown();

private:
    void wireMenus();
    void wireViews();
    void wirePanes();
    void refreshBrowserDependentText();
    void confirmQueueSheet(const QString &message, const CVPredicate &predicate, const QString &alternateTitle);
    // The queue becomes (or gains) the predicate's tracks, saved and summed up.
    void fillQueueWithPredicate(const CVPredicate &predicate, bool replace);
    // The queue's tracks changed: its predicate narrows the browsed queue, its line sums it up.
    void queueChanged();
    void saveSplitterSizes();
    void restoreSplitterSizes();
    // The loading view grows back to the main view's size, on screen.
    void growToMainViewSize();

    CVApplicationDelegate *m_app;
    CVSettings *m_settings;
    CVLibraryManager *m_library;
    CVSheetPresenter *m_presenter;
    CVMainWindow *m_window;
    CVSelectionModel *m_selection;
    CVFilterPathDelegate *m_filterPath = nullptr;
    CVWalkThrough *m_walkThrough = nullptr;
    CVSpanQueue *m_queue;
    CVBrowserDelegate *m_browser;
    CVPlaylistsDelegate *m_playlists;
    CVLocationsDelegate *m_locations;
    CVItemInformationDelegate *m_information;
    CVSpanLocationController *m_spanLocation;
    CVSounds *m_sounds;
    CVRunController *m_run;
    CVPrefsWindowController *m_prefsWindow = nullptr;
    CVColumnDisplayOptionDelegate *m_columnOptions = nullptr;
    CVHelpWindow *m_helpWindow = nullptr;
    CVAboutWindow *m_aboutWindow = nullptr;

    bool m_firstLoad = true;
    bool m_manualReload = false;
    bool m_restoreMode = false;
    bool m_wantsRemoveDropSet = false;
    bool m_frameSaving = true;
    QSize m_mainViewSize;
    QPoint m_mainViewCentre; // where the main view stood when the loading view took its place
    bool m_shouldRoundOffTime = true;
    QStringList m_recentSearches;
    QTimer m_recentSearchesWrite;
};
