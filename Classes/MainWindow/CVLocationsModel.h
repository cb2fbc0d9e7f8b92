#pragma once

#include <QAbstractItemModel>

#include <memory>
#include <vector>

class CVLibraryManager;
struct CVLocationNode;

// The locations pane's outline: "LOCATIONS" (or "NO LOCATIONS"), the drives under it, their
// folders and files, from the library manager's node list of the current selection. A node's
// children are the nodes whose lcParentPath is its lcPath; the list comes sorted so that every
// folder comes before its contents, and the outline is built from it in a few passes. A folder
// whose only content is another folder shares one row with it ("home/alice/Music"), so that
// deep folders are not indented out of the pane.
class CVLocationsModel : public QAbstractItemModel {
    Q_OBJECT

public:
    // A row stands for a folder and for the folders around it that hold nothing else: its path
    // is the innermost one's; SharedLowerPathsRole lists all of them, outermost first.
    enum Role { PathRole = Qt::UserRole + 1, LowerPathRole, IsFileRole, IsDriveRole, SharedLowerPathsRole };

    CVLocationsModel(CVLibraryManager *library, QString startupDriveName, QObject *parent = nullptr);

    void reload();
    void clear();

    const CVLocationNode *node(const QModelIndex &index) const;
    QModelIndex indexForLowerPath(const QString &lcPath) const;
    int driveCount() const { return m_drives; }
    int folderCount() const { return m_folders; }
    int fileCount() const { return m_files; }

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
    // The outline as flat arrays, built in a few passes over the node list: item 0 is the
    // root; an item's children are a run of m_children. A row's index carries its outermost
    // item; what it shows (node, children) is its innermost's.
    struct Item {
        int node = -1;
        int parent = -1;
        int row = 0;
        int firstChild = 0;
        int childCount = 0;
    };
    // The row's innermost item.
    const Item *item(const QModelIndex &index) const;
    QModelIndex rowIndex(int outer) const;

    CVLibraryManager *m_library;
    QString m_startupDriveName;
    std::shared_ptr<const std::vector<int>> m_nodes; // keeps the list the items point into
    std::vector<Item> m_items;
    std::vector<int> m_children;
    std::vector<int> m_itemOfKey; // by node key: the item, or -1
    std::vector<int> m_outer; // by item: the outermost item of its row
    std::vector<int> m_inner; // by outermost item: the innermost item of its row
    int m_drives = 0;
    int m_folders = 0;
    int m_files = 0;
};
