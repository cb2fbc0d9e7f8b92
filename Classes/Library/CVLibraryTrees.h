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
    void setPlaylists(const std::vector<CVPlaylist> *playlists)
    {
        m_playlists = playlists;
        m_playlistTracks.clear();
    }

    QList<CVPredicate> getPredicateStackForLocations() const;
    QList<CVPredicate> getPredicateStackForPlaylists() const;

    // Node lists: the root followed by the nodes in key order, or the placeholder alone.
    std::shared_ptr<const std::vector<int>> filterEmptyLocations();
    std::shared_ptr<const std::vector<int>> getLocationsForPredicate(const QString &predicate);
    const CVLocationNode &node(int id) const { return m_nodes[std::size_t(id)]; }
    // A node's keys and kind, kept apart from its texts: a whole tree is built from these.
    struct NodeLinks {
        int key = -1;
        int parentKey = -1;
        bool isFile = false;
    };
    const NodeLinks &links(int id) const { return m_links[std::size_t(id)]; }
    // The nodes of a track's current path, from its drive down to the file.
    std::vector<int> keyedLocation(const CVTrack &track) const;

    // Indices into the playlists.
    std::shared_ptr<const std::vector<int>> filterEmptyPlaylist();
    std::shared_ptr<const std::vector<int>> getPlaylistsForPredicate(const QString &predicate);
    QStringList getPlaylistGroups();

    QStringList getBaseSpanPaths();

    // The tracks under a location node's path, as the locations pane selects them.
    QString predicateForLocationPath(const QString &path);

    // Keys name lower-case paths (CVLocationNode::key): their number, and the key of a lower-case
    // path (a folder's ends in "/"), or -1 when no track lies there.
    int keyCount() const { return int(m_keys.size()); }
    int keyOfLowerPath(const QString &lcPath) const;

private:
    // parent: the enclosing node, or -1 for a top node (its parent is "LOCATIONS").
    int addNode(const QString &path, int parent, bool isFile);
    int keyFor(const QString &lcPath, int parent, qsizetype nameStart);
    int findKey(int folderKey, QStringView name, quint64 hash) const;
    int folderChain(QStringView folder); // index into m_chains
    void rankKeys();
    const std::vector<std::vector<int>> &playlistTracks();
    static QString nodeField(const CVLocationNode &node, const QString &attribute, bool *present);

    CVSelection *m_selection;
    const std::vector<CVPlaylist> *m_playlists = nullptr;
    std::vector<CVLocationNode> m_nodes; // 0: the root, 1: the placeholder
    std::vector<NodeLinks> m_links; // by node
    // Keys: one per lower-case path, found by the enclosing folder's key and the last name, in
    // a table of our own (hashing every file's name is most of the table's cost).
    struct Key {
        QString lcPath;
        int folder = -1;
        qsizetype nameStart = 0;
    };
    std::vector<Key> m_keys;
    std::vector<int> m_keyRanks; // by key: its place in plain text order of the lower-case paths
    std::vector<int> m_nodeRanks; // by node: its key's rank (kept apart from the nodes for speed)
    std::vector<int> m_keyTable; // open addressing: key + 1, or 0 for a free slot
    std::vector<quint64> m_keyHashes; // by key
    QHash<QString, int> m_folderKeys; // lower-case folder path -> key
    // keyedLocations: a current path's nodes are its folder's chain (shared by the folder's
    // files) and its own file node.
    struct KeyedPath {
        int chain = -1;
        int file = -1;
    };
    std::vector<std::vector<int>> m_chains;
    std::vector<quint8> m_chainUnderDrive; // by chain: the folder lies on a drive other than "/"
    std::vector<QString> m_chainFolders; // by chain: the folder's path
    std::vector<quint64> m_chainHashes; // by chain: the hash of that path
    std::vector<int> m_folderTable; // open addressing: chain + 1, or 0 for a free slot
    std::vector<KeyedPath> m_keyed; // by track index
    // By playlist: the indices of the tracks its track IDs name, worked out once per load.
    std::vector<std::vector<int>> m_playlistTracks;
};
