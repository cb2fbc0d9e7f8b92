#pragma once

#include "Browsing/CVSelectionModel.h"
#include "Library/CVPredicate.h"

#include <QModelIndex>
#include <QObject>
#include <QTimer>
#include <QVariantMap>

#include <functional>

class CVFileManagerLink;
class CVLibraryManager;
class CVLocationsModel;
class CVMainWindow;
class CVSettings;
struct CVLocationNode;

// The locations pane: the drives, folders and files that hold the selected tracks. Selecting a
// row narrows every other pane to the tracks under it; expanded rows are remembered.
class CVLocationsDelegate : public QObject {
    Q_OBJECT

public:
    static constexpr int SelectionSettleMs = 200;

    struct Links {
        std::function<CVFileManagerLink *()> fileManager;
        // In restore mode no folder can become the span location.
        std::function<bool()> restoreMode;
    };

    CVLocationsDelegate(CVLibraryManager *library, CVSettings *settings, CVSelectionModel *selection,
        CVMainWindow *window, Links links, QObject *parent = nullptr);
    ~CVLocationsDelegate() override;

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

    const QString &selectedLocation() const { return m_selection->locationTitle(); }
    bool locationSelectionJustChanged() const { return m_justChanged; }
    void selectionSettled() { m_justChanged = false; }
    CVLocationsModel *model() const { return m_model; }
    QModelIndex selectedIndex() const;
    QStringList expandedLocations() const { return m_expandedLocations.keys(); }
    QString summary() const;
    QString toggleTitle() const;
    QString queueMenuTitle(const QModelIndex &clicked) const;

Q_SIGNALS:
    // The selected location is to be added to or removed from the queue.
    void queueSelectionRequested();
    // A folder of the pane is to become the span location (after a confirmation).
    void spanLocationRequested(const QString &path);

private:
    void selectionModelChanged(CVSelectionModel::Pane origin, CVSelectionModel::Pane listener);
    void updateToggleTitle();
    void selectionChanged();
    void saveExpanded();
    void showContextMenu(const QPoint &at);

    CVLibraryManager *m_library;
    CVSettings *m_settings;
    CVSelectionModel *m_selection; // its location: the chosen folder, the selected row's or one that shares it
    CVMainWindow *m_window;
    Links m_links;
    CVLocationsModel *m_model;
    QVariantMap m_expandedLocations; // lower-case path -> ""
    bool m_saveExpandedLocations = true;
    bool m_justChanged = false;
    QTimer m_settle;
};
