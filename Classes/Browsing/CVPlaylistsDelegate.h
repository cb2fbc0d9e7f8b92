#pragma once

#include "Browsing/CVSelectionModel.h"
#include "Library/CVPredicate.h"

#include <QObject>
#include <QTimer>
#include <QVariantMap>

class CVLibraryManager;
class CVMainWindow;
class CVPlaylistsModel;
class CVSettings;
class QModelIndex;

// The playlists pane: group headings, playlists and folders that hold selected tracks. Selecting
// a playlist narrows every other pane to its tracks; clicking it again lets it go.
class CVPlaylistsDelegate : public QObject {
    Q_OBJECT

public:
    // How long a selection counts as just changed (a click on it then does not deselect).
    static constexpr int SelectionSettleMs = 200;

    CVPlaylistsDelegate(CVLibraryManager *library, CVSettings *settings, CVSelectionModel *selection,
        CVMainWindow *window, QObject *parent = nullptr);
    ~CVPlaylistsDelegate() override;

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

    const QString &selectedPlaylist() const { return m_selection->playlistName(); }
    bool playlistSelectionJustChanged() const { return m_justChanged; }
    // The settle delay ran out (the timer calls this; tests may too).
    void selectionSettled() { m_justChanged = false; }
    CVPlaylistsModel *model() const { return m_model; }
    QString summary() const;
    QString toggleTitle() const;
    bool isCollapsed(const QString &key) const { return m_collapsedPlaylistFolders.contains(key); }
    QModelIndex selectedIndex() const;
    // The queue item of the context menu, for the clicked row ("" when hidden).
    QString queueMenuTitle(const QModelIndex &clicked) const;

Q_SIGNALS:
    // The selected playlist is to be added to or removed from the queue.
    void queueSelectionRequested();

private:
    void selectionModelChanged(CVSelectionModel::Pane origin, CVSelectionModel::Pane listener);
    void selectionChanged();
    void saveCollapsed();
    void updateToggleTitles();
    void showContextMenu(const QPoint &at);

    CVLibraryManager *m_library;
    CVSettings *m_settings;
    CVSelectionModel *m_selection;
    CVMainWindow *m_window;
    CVPlaylistsModel *m_model;
    QVariantMap m_collapsedPlaylistFolders;
    bool m_saveCollapsedFolders = true;
    bool m_justChanged = false;
    QTimer m_settle;
};
