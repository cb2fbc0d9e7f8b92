#pragma once

#include "Library/CVPredicate.h"

#include <QModelIndex>
#include <QObject>
#include <QTimer>
#include <QVariantMap>

class CVBrowserDelegate;
class CVLibraryManager;
class CVLocationsModel;
class CVMainWindow;
class CVPlaylistsDelegate;
class CVSettings;
class CVWindowDelegate;
struct CVLocationNode;

// The locations pane: the drives, folders and files that hold the selected tracks. Selecting a
// row narrows every other pane to the tracks under it; expanded rows are remembered.
class CVLocationsDelegate : public QObject {
    Q_OBJECT

public:
    static constexpr int SelectionSettleMs = 200;

    CVLocationsDelegate(CVLibraryManager *library, CVSettings *settings, QObject *parent = nullptr);
    ~CVLocationsDelegate() override;

    void setParts(CVMainWindow *window, CVWindowDelegate *windowDelegate, CVBrowserDelegate *browser,
        CVPlaylistsDelegate *playlists);

    void initializeLocationsTable();
    void refreshLocations();
    void refreshItemsForLocations();
    CVPredicate getLocationPredicate() const;
    QString retrieveItemsPredicateForLocation(const CVLocationNode *node) const;
    QString getPathForItem(const QModelIndex &index) const;
    void addLocationToExpand(const QString &path);
    void toggleLocations(bool fromInterface = true);
    void doDeselectAll();
    void clearAllForReload();
    void locationAction();
    void setToSpanLocation(const QModelIndex &clicked);
    void showLocationInFinder(const QModelIndex &clicked);

    const QString &selectedLocation() const { return m_selectedLocation; }
    bool isRefreshingPlaylists() const { return m_locationsRefreshingPlaylists; }
    bool locationSelectionJustChanged() const { return m_justChanged; }
    void selectionSettled() { m_justChanged = false; }
    CVLocationsModel *model() const { return m_model; }
    QModelIndex selectedIndex() const;
    QStringList expandedLocations() const { return m_expandedLocations.keys(); }
    QString summary() const;
    QString toggleTitle() const;
    QString queueMenuTitle(const QModelIndex &clicked) const;

private:
    void selectionChanged();
    void saveExpanded();
    void showContextMenu(const QPoint &at);

    CVLibraryManager *m_library;
    CVSettings *m_settings;
    CVMainWindow *m_window = nullptr;
    CVWindowDelegate *m_windowDelegate = nullptr;
    CVBrowserDelegate *m_browser = nullptr;
    CVPlaylistsDelegate *m_playlists = nullptr;
    CVLocationsModel *m_model;
    QVariantMap m_expandedLocations; // lower-case path -> ""
    QString m_selectedLocation; // display title
    QString m_selectedPath; // the chosen folder: the selected row's, or one that shares it
    bool m_saveExpandedLocations = true;
    bool m_justChanged = false;
    bool m_locationsRefreshingPlaylists = false;
    QTimer m_settle;
};
