#pragma once

#include "Library/CVPredicate.h"

#include <QObject>
#include <QTimer>
#include <QVariantMap>

class CVBrowserDelegate;
class CVLibraryManager;
class CVLocationsDelegate;
class CVMainWindow;
class CVPlaylistsModel;
class CVSettings;
class CVWindowDelegate;
class QModelIndex;

// The playlists pane: group headings, playlists and folders that hold selected tracks. Selecting
// a playlist narrows every other pane to its tracks; clicking it again lets it go.
class CVPlaylistsDelegate : public QObject {
    Q_OBJECT

public:
    // How long a selection counts as just changed (a click on it then does not deselect).
    static constexpr int SelectionSettleMs = 200;

    CVPlaylistsDelegate(CVLibraryManager *library, CVSettings *settings, QObject *parent = nullptr);
    ~CVPlaylistsDelegate() override;

    void setParts(CVMainWindow *window, CVWindowDelegate *windowDelegate, CVBrowserDelegate *browser,
        CVLocationsDelegate *locations);

    CVPredicate getPlaylistPredicate() const;
    CVPredicate retrieveItemsPredicateForPlaylist(const QModelIndex &row) const;
    void refreshPlaylists();
    void refreshItemsForPlaylists();
    void playlistAction();
    void doDeselectAll();
    void togglePlaylists(bool fromInterface = true);
    void clearAllForReload();
    void initializePlaylistTable();
    void addOrRemoveClickedRowsFromQueue(const QModelIndex &clicked);

    const QString &selectedPlaylist() const { return m_selectedPlaylist; }
    bool playlistSelectionJustChanged() const { return m_justChanged; }
    // The settle delay ran out (the timer calls this; tests may too).
    void selectionSettled() { m_justChanged = false; }
    bool isRefreshingLocations() const { return m_playlistsRefreshingLocations; }
    CVPlaylistsModel *model() const { return m_model; }
    QString summary() const;
    QString toggleTitle() const;
    bool isCollapsed(const QString &key) const { return m_collapsedPlaylistFolders.contains(key); }
    QModelIndex selectedIndex() const;
    // The queue item of the context menu, for the clicked row ("" when hidden).
    QString queueMenuTitle(const QModelIndex &clicked) const;

private:
    void selectionChanged();
    void saveCollapsed();
    void updateToggleTitles();
    void showContextMenu(const QPoint &at);

    CVLibraryManager *m_library;
    CVSettings *m_settings;
    CVMainWindow *m_window = nullptr;
    CVWindowDelegate *m_windowDelegate = nullptr;
    CVBrowserDelegate *m_browser = nullptr;
    CVLocationsDelegate *m_locations = nullptr;
    CVPlaylistsModel *m_model;
    QString m_selectedPlaylist;
    QString m_selectedPersistentID;
    QVariantMap m_collapsedPlaylistFolders;
    bool m_saveCollapsedFolders = true;
    bool m_justChanged = false;
    bool m_playlistsRefreshingLocations = false;
    QTimer m_settle;
};
