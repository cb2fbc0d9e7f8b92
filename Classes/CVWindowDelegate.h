#pragma once

#include "Library/CVPredicate.h"
#include "Library/CVSelectionPanes.h"
#include "Library/CVTrackList.h"

#include <QHash>
#include <QMap>
#include <QObject>
#include <QRect>
#include <QTimer>

#include <optional>

class CVApplicationDelegate;
class CVBrowserDelegate;
class CVFileManagerLink;
class CVItemInformationDelegate;
class CVLibraryManager;
class CVLocationsDelegate;
class CVMainWindow;
class CVPlayerLink;
class CVPlaylistsDelegate;
class CVSettings;
class CVSheetPresenter;
class CVTrack;

// The main window's controller: the loading and main views, the search and the filter path bar,
// the spanning queue with the span/restore mode and the span location, and the walk-through
// line. It owns the panes' controllers and gives the selection machinery their predicates.
class CVWindowDelegate : public QObject, public CVSelectionPanes {
    Q_OBJECT

public:
    static constexpr auto FrameKey = "NSWindow Frame CVMainWindow";

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
    void setWindow(bool resizable, bool closable);
    void setWindowIsResizableIsMiniturizableIsClosable(bool resizable, bool miniaturizable, bool closable);

    // The spanning queue.
    void performDrop(const CVPredicate &predicate);
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
    const QMap<qint64, CVTrack *> &spanQueue() const { return m_spanQueue; }
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
    void spanLibrary();

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
    void wireMenus();
    void wireViews();
    void refreshPanesAfterQueueChange();
    QString filterDescription(const QString &name, bool *inForce) const;
    void confirmQueueSheet(const QString &message, const CVPredicate &predicate, const QString &alternateTitle);
    void saveSplitterSizes();
    void restoreSplitterSizes();

    CVApplicationDelegate *m_app;
    CVSettings *m_settings;
    CVLibraryManager *m_library;
    CVSheetPresenter *m_presenter;
    CVMainWindow *m_window;
    CVBrowserDelegate *m_browser;
    CVPlaylistsDelegate *m_playlists;
    CVLocationsDelegate *m_locations;
    CVItemInformationDelegate *m_information;

    bool m_firstLoad = true;
    bool m_manualReload = false;
    bool m_restoreMode = false;
    bool m_browsingSpanningQueue = false;
    bool m_wantsRemoveDropSet = false;
    bool m_mouseOverDropZone = false;
    bool m_mouseOverFilterPathBar = false;
    bool m_frameSaving = true;
    QSize m_mainViewSize;
    QString m_spanLocation;
    QMap<qint64, CVTrack *> m_spanQueue; // TrackID -> track, so a track is queued once
    CVPredicate m_currentSpanQueuePredicate = CVPredicate::fromText(QStringLiteral("EMPTY"));
    double m_currentSpanQueueSize = 0;
    bool m_shouldRoundOffTime = true;
    QHash<QString, QString> m_walkThroughTextOptions;
    QStringList m_recentSearches;
    QTimer m_recentSearchesWrite;
};
