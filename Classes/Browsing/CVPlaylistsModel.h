#pragma once

#include "Library/CVPredicate.h"

#include <QAbstractItemModel>
#include <QStringList>

#include <vector>

class CVLibraryManager;
struct CVPlaylist;

// The playlists pane's outline: group headings ("0 STORE", "1 GENIUS", "2 PLAYLISTS", shown from
// their third character), and under them the playlists and folders that hold selected tracks.
// Rebuilt from the library manager's lists at every refresh.
class CVPlaylistsModel : public QAbstractItemModel {
    Q_OBJECT

public:
    enum Role { GroupRole = Qt::UserRole + 1, PersistentIDRole, IsFolderRole, IsHeadingRole };

    explicit CVPlaylistsModel(CVLibraryManager *library, QObject *parent = nullptr);

    void reload();
    void clear();

    bool isHeading(const QModelIndex &index) const;
    // The playlist of a row, or none for a heading.
    const CVPlaylist *playlist(const QModelIndex &index) const;
    QModelIndex indexForPersistentID(const QString &persistentID) const;
    QModelIndex indexForGroup(const QString &group) const;
    // Every index that has children, headings first, in outline order.
    QModelIndexList expandableIndexes() const;
    int playlistCount() const;
    int folderCount() const;

    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    bool hasChildren(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QStringList mimeTypes() const override;
    QMimeData *mimeData(const QModelIndexList &indexes) const override;
    Qt::DropActions supportedDragActions() const override;

private:
    struct Item {
        QString group; // headings only
        int playlist = -1; // index into the library's playlists
        int parent = -1; // item index; -1 for headings
        int row = 0;
        std::vector<int> children;
    };
    void addChildren(int parentItem, const QString &predicate);
    const Item *item(const QModelIndex &index) const;

    CVLibraryManager *m_library;
    std::vector<Item> m_items;
    std::vector<int> m_roots;
};
