#pragma once

#include "Library/CVPredicate.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <vector>

class CVSelection;
class CVTrack;
struct CVPlaylist;

// One row of the locations tree: a drive, folder or file ("/" for the start-up drive,
// folders end in "/"), or the root "LOCATIONS", or the placeholder "NO LOCATIONS".
struct CVLocationNode {
    QString path;
    QString lcPath;
    QString parentPath; // empty for the root and the placeholder, which have no parent
    QString lcParentPath;
    bool isFile = false;
    bool hasParent = false;
    int key = -1; // the lcPath's number, for merging and sorting without texts
    int parentKey = -1; // the enclosing node's key; -1 for a top node, the root and the placeholder
};

// The location and playlist trees of the selected tracks: every track's path split once
// per load into shared nodes; lists per selection kept in the selection's memo.
class CVLibraryTrees {
public:
    explicit CVLibraryTrees(CVSelection *selection);
    ~CVLibraryTrees();

    // progress(maximum, value); called now and then.
    void compileAllKeyedLocationInformation(const std::function<void(double, double)> &progress = {});
    void setPlaylists(const std::vector<CVPlaylist> *playlists) { m_playlists = playlists; }

    QList<CVPredicate> getPredicateStackForLocations() const;
    QList<CVPredicate> getPredicateStackForPlaylists() const;

    // Node lists: the root followed by the nodes in key order, or the placeholder alone.
    std::shared_ptr<const std::vector<int>> filterEmptyLocations();
    std::shared_ptr<const std::vector<int>> getLocationsForPredicate(const QString &predicate);
    const CVLocationNode &node(int id) const { return m_nodes[std::size_t(id)]; }
    // The nodes of a track's current path, from its drive down to the file.
    std::vector<int> keyedLocation(const CVTrack &track) const;

    // Indices into the playlists.
    std::shared_ptr<const std::vector<int>> filterEmptyPlaylist();
    std::shared_ptr<const std::vector<int>> getPlaylistsForPredicate(const QString &predicate);
    QStringList getPlaylistGroups();

    QStringList getBaseSpanPaths();

    // The tracks under a location node's path, as the locations pane selects them.
    QString predicateForLocationPath(const QString &path);

private:
    // parent: the enclosing node, or -1 for a top node (its parent is "LOCATIONS").
    int addNode(const QString &path, int parent, bool isFile);
    int keyFor(const QString &lcPath, int parent, qsizetype nameStart);
    int folderChain(const QString &folder); // index into m_chains
    const std::vector<int> &keyRanks();
    static QString nodeField(const CVLocationNode &node, const QString &attribute, bool *present);

    CVSelection *m_selection;
    const std::vector<CVPlaylist> *m_playlists = nullptr;
    std::vector<CVLocationNode> m_nodes; // 0: the root, 1: the placeholder
    QHash<QString, int> m_nodeByPath;
    std::vector<QString> m_keyTexts;
    std::vector<int> m_keyRanks;
    // keyedLocations: a current path's nodes are its folder's chain (shared by the folder's
    // files) and its own file node.
    struct KeyedPath {
        int chain = -1;
        int file = -1;
    };
    std::vector<std::vector<int>> m_chains;
    QHash<QString, int> m_folders;
    std::vector<KeyedPath> m_keyed; // by track index
    QHash<std::pair<int, QStringView>, int> m_fileKeys; // (folder key, lower-case name) -> key
};
