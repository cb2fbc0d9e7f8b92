#include "Library/CVLibraryTrees.h"

#include "Library/CVFilter.h"
#include "Library/CVPlaylist.h"
#include "Library/CVSelection.h"
#include "Library/CVSelectionPanes.h"
#include "Library/CVTrack.h"
#include "Platform/CVVolumes.h"

#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QString kLocations = u"LOCATIONS"_s;

template<typename T>
std::shared_ptr<const T> cached(const CVSelection *selection, const QString &key)
{
    return std::static_pointer_cast<const T>(selection->memo(key));
}

CVFilterValue playlistValue(const CVPlaylist &p, const QString &attribute, QString &scratch)
{
    auto text = [&](const QString &value) {
        scratch = value;
        return CVFilterValue::ofText(&scratch);
    };
    if (attribute == u"Name"_s)
        return text(p.name);
    if (attribute == u"PlaylistPersistentID"_s)
        return text(p.playlistPersistentID);
    if (attribute == u"ParentPersistentID"_s)
        return p.parentPersistentID ? text(*p.parentPersistentID) : CVFilterValue::absent();
    if (attribute == u"Group"_s)
        return text(p.group);
    if (attribute == u"PlaylistID"_s)
        return p.playlistID ? CVFilterValue::ofNumber(double(*p.playlistID)) : CVFilterValue::absent();
    if (attribute == u"Folder"_s)
        return p.folder ? CVFilterValue::ofNumber(*p.folder ? 1 : 0) : CVFilterValue::absent();
    if (attribute == u"Genius"_s)
        return CVFilterValue::ofNumber(p.genius ? 1 : 0);
    if (attribute == u"SmartPlaylist"_s)
        return p.smartPlaylist ? CVFilterValue::ofNumber(1) : CVFilterValue::absent();
    return CVFilterValue::absent();
}

} // namespace

CVLibraryTrees::CVLibraryTrees(CVSelection *selection)
    : m_selection(selection)
{
    compileAllKeyedLocationInformation();
}

CVLibraryTrees::~CVLibraryTrees() = default;

int CVLibraryTrees::addNode(const QString &path, const QString &parentPath, bool hasParent, bool isFile)
{
    if (const auto it = m_nodeByPath.constFind(path); it != m_nodeByPath.cend())
        return *it;
    CVLocationNode node;
    node.path = path;
    node.lcPath = path.toLower();
    node.hasParent = hasParent;
    if (hasParent) {
        node.parentPath = parentPath;
        node.lcParentPath = parentPath.toLower();
    }
    node.isFile = isFile;
    auto key = m_keyByLcPath.constFind(node.lcPath);
    if (key == m_keyByLcPath.cend()) {
        key = m_keyByLcPath.insert(node.lcPath, int(m_keyTexts.size()));
        m_keyTexts.push_back(node.lcPath);
        m_keyRanks.clear();
    }
    node.key = *key;
    m_nodes.push_back(std::move(node));
    const int id = int(m_nodes.size() - 1);
    m_nodeByPath.insert(path, id);
    return id;
}

// The nodes of a folder, from its drive's node down; each folder is split once.
const std::vector<int> &CVLibraryTrees::folderNodes(const QString &folder)
{
    if (const auto it = m_folders.constFind(folder); it != m_folders.cend())
        return *it;
    std::vector<int> chain;
    if (folder == u"/"_s) {
        chain.push_back(addNode(u"/"_s, kLocations, true, false));
    } else if (CVVolumes::driveRootOfPath(folder) == folder) {
        chain.push_back(addNode(folder + u'/', kLocations, true, false));
    } else {
        const qsizetype slash = folder.lastIndexOf(u'/');
        chain = folderNodes(slash <= 0 ? u"/"_s : folder.left(slash));
        const QString &parent = m_nodes[std::size_t(chain.back())].path;
        chain.push_back(addNode(folder + u'/', parent, true, false));
    }
    return *m_folders.insert(folder, std::move(chain));
}

void CVLibraryTrees::compileAllKeyedLocationInformation(const std::function<void(double, double)> &progress)
{
    m_nodes.clear();
    m_nodeByPath.clear();
    m_keyByLcPath.clear();
    m_keyTexts.clear();
    m_keyRanks.clear();
    m_folders.clear();
    m_keyed.clear();
    CVLocationNode root;
    root.path = kLocations;
    root.lcPath = u"locations"_s;
    CVLocationNode none;
    none.path = u"NO LOCATIONS"_s;
    none.lcPath = u"no locations"_s;
    none.isFile = true;
    m_nodes = { root, none };

    const std::vector<CVTrack *> &tracks = m_selection->allTracks()->tracks;
    const double maximum = double(tracks.size());
    double counter = 1;
    for (const CVTrack *track : tracks) {
        const QString &path = track->currentPath();
        if (path.isEmpty() || !path.startsWith(u'/') || m_keyed.contains(path))
            continue;
        std::vector<int> nodes;
        if (path == u"/"_s || CVVolumes::driveRootOfPath(path) == path) {
            nodes.push_back(addNode(path, kLocations, true, true));
        } else {
            const qsizetype slash = path.lastIndexOf(u'/');
            nodes = folderNodes(slash == 0 ? u"/"_s : path.left(slash));
            nodes.push_back(addNode(path, m_nodes[std::size_t(nodes.back())].path, true, true));
        }
        m_keyed.insert(path, std::move(nodes));
        if (progress && int(counter) % 4096 == 0)
            progress(maximum, counter);
        ++counter;
    }
    if (progress)
        progress(maximum, maximum);
}

const std::vector<int> &CVLibraryTrees::keyRanks()
{
    if (m_keyRanks.size() == m_keyTexts.size())
        return m_keyRanks;
    std::vector<int> order(m_keyTexts.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        order[i] = int(i);
    std::sort(order.begin(), order.end(),
        [&](int a, int b) { return m_keyTexts[std::size_t(a)] < m_keyTexts[std::size_t(b)]; });
    m_keyRanks.assign(order.size(), 0);
    for (std::size_t i = 0; i < order.size(); ++i)
        m_keyRanks[std::size_t(order[i])] = int(i);
    return m_keyRanks;
}

QList<CVPredicate> CVLibraryTrees::getPredicateStackForLocations() const
{
    // Everything narrows the locations but the location selection itself.
    const QList<CVPredicate> full = m_selection->getPredicateStack(CVPredicate::fromText(u""_s));
    return { full[0], full[1], full[3], full[4], full[5] };
}

QList<CVPredicate> CVLibraryTrees::getPredicateStackForPlaylists() const
{
    const QList<CVPredicate> full = m_selection->getPredicateStack(CVPredicate::fromText(u""_s));
    return { full[0], full[1], full[3], full[2], full[4] };
}

std::shared_ptr<const std::vector<int>> CVLibraryTrees::filterEmptyLocations()
{
    const QList<CVPredicate> stack = getPredicateStackForLocations();
    const QString key = u"Locations"_s + QChar(0x1E) + CVSelection::stackKey(stack);
    if (auto hit = cached<std::vector<int>>(m_selection, key))
        return hit;
    const quint64 generation = m_selection->generation();
    const CVTrackList tracks = m_selection->selectPredicateStack(stack);

    // Merge by lower-cased path: the spelling of the last track merged wins.
    std::vector<int> winner(m_keyTexts.size(), -1);
    std::vector<int> keys;
    for (const CVTrack *track : tracks->tracks) {
        const auto it = m_keyed.constFind(track->currentPath());
        if (it == m_keyed.cend())
            continue;
        for (int id : *it) {
            const int k = m_nodes[std::size_t(id)].key;
            if (winner[std::size_t(k)] < 0)
                keys.push_back(k);
            winner[std::size_t(k)] = id;
        }
    }
    auto list = std::make_shared<std::vector<int>>();
    if (keys.empty()) {
        list->push_back(1);
    } else {
        const std::vector<int> &rank = keyRanks();
        std::sort(keys.begin(), keys.end(), [&](int a, int b) { return rank[std::size_t(a)] < rank[std::size_t(b)]; });
        list->reserve(keys.size() + 1);
        list->push_back(0);
        for (int k : keys)
            list->push_back(winner[std::size_t(k)]);
    }
    m_selection->setMemo(key, list, generation);
    return list;
}

QString CVLibraryTrees::nodeField(const CVLocationNode &node, const QString &attribute, bool *present)
{
    *present = true;
    if (attribute == u"Path"_s)
        return node.path;
    if (attribute == u"lcPath"_s)
        return node.lcPath;
    if (node.hasParent && attribute == u"ParentPath"_s)
        return node.parentPath;
    if (node.hasParent && attribute == u"lcParentPath"_s)
        return node.lcParentPath;
    *present = false;
    return {};
}

std::shared_ptr<const std::vector<int>> CVLibraryTrees::getLocationsForPredicate(const QString &predicate)
{
    const QString key = u"LocationsFor"_s + QChar(0x1E) + predicate + QChar(0x1E)
        + CVSelection::stackKey(getPredicateStackForLocations());
    if (auto hit = cached<std::vector<int>>(m_selection, key))
        return hit;
    const quint64 generation = m_selection->generation();
    const std::shared_ptr<const std::vector<int>> all = filterEmptyLocations();
    const std::shared_ptr<const CVFilter> filter = CVFilter::compile(predicate);
    auto list = std::make_shared<std::vector<int>>();
    QString scratch;
    for (int id : *all) {
        const CVLocationNode &n = m_nodes[std::size_t(id)];
        auto get = [&](const CVFilter::Leaf &leaf) {
            if (leaf.attribute == u"IsFile"_s)
                return CVFilterValue::ofNumber(n.isFile ? 1 : 0);
            bool present = false;
            scratch = nodeField(n, leaf.attribute, &present);
            return present ? CVFilterValue::ofText(&scratch) : CVFilterValue::absent();
        };
        if (filter->matches(get))
            list->push_back(id);
    }
    m_selection->setMemo(key, list, generation);
    return list;
}

std::shared_ptr<const std::vector<int>> CVLibraryTrees::filterEmptyPlaylist()
{
    const QList<CVPredicate> stack = getPredicateStackForPlaylists();
    const QString key = u"Playlists"_s + QChar(0x1E) + CVSelection::stackKey(stack);
    if (auto hit = cached<std::vector<int>>(m_selection, key))
        return hit;
    const quint64 generation = m_selection->generation();
    const CVTrackList tracks = m_selection->selectPredicateStack(stack);
    QSet<qint64> selected;
    selected.reserve(qsizetype(tracks->tracks.size()));
    for (const CVTrack *t : tracks->tracks)
        selected.insert(t->integer(CVAttr::TrackID));
    auto list = std::make_shared<std::vector<int>>();
    if (m_playlists) {
        for (std::size_t i = 0; i < m_playlists->size(); ++i) {
            const std::vector<qint64> &ids = (*m_playlists)[i].tracksPredicate.trackIDs();
            if (std::any_of(ids.begin(), ids.end(), [&](qint64 id) { return selected.contains(id); }))
                list->push_back(int(i));
        }
    }
    m_selection->setMemo(key, list, generation);
    return list;
}

std::shared_ptr<const std::vector<int>> CVLibraryTrees::getPlaylistsForPredicate(const QString &predicate)
{
    const QString key = u"PlaylistsFor"_s + QChar(0x1E) + predicate + QChar(0x1E)
        + CVSelection::stackKey(getPredicateStackForPlaylists());
    if (auto hit = cached<std::vector<int>>(m_selection, key))
        return hit;
    const quint64 generation = m_selection->generation();
    const std::shared_ptr<const std::vector<int>> all = filterEmptyPlaylist();
    const std::shared_ptr<const CVFilter> filter = CVFilter::compile(predicate);
    auto list = std::make_shared<std::vector<int>>();
    QString scratch;
    for (int i : *all) {
        const CVPlaylist &p = (*m_playlists)[std::size_t(i)];
        if (filter->matches([&](const CVFilter::Leaf &leaf) { return playlistValue(p, leaf.attribute, scratch); }))
            list->push_back(i);
    }
    m_selection->setMemo(key, list, generation);
    return list;
}

QStringList CVLibraryTrees::getPlaylistGroups()
{
    const QString key = u"PlaylistGroups"_s + QChar(0x1E) + CVSelection::stackKey(getPredicateStackForPlaylists());
    if (auto hit = cached<QStringList>(m_selection, key))
        return *hit;
    const quint64 generation = m_selection->generation();
    const std::shared_ptr<const std::vector<int>> lists = filterEmptyPlaylist();
    if (lists->empty())
        return { u"0 NO PLAYLISTS"_s };
    QSet<QString> groups;
    for (int i : *lists)
        groups.insert((*m_playlists)[std::size_t(i)].group);
    auto sorted = std::make_shared<QStringList>(groups.values());
    std::sort(sorted->begin(), sorted->end());
    m_selection->setMemo(key, sorted, generation);
    return *sorted;
}

QStringList CVLibraryTrees::getBaseSpanPaths()
{
    const QString key = u"BaseSpanPaths"_s;
    if (auto hit = cached<QStringList>(m_selection, key))
        return *hit;
    const quint64 generation = m_selection->generation();
    QSet<QString> paths;
    for (const CVTrack *t : m_selection->allTracks()->tracks)
        if (t->has(CVAttr::BaseSpanPath))
            paths.insert(t->textRef(CVAttr::BaseSpanPath));
    auto sorted = std::make_shared<QStringList>(paths.values());
    std::sort(sorted->begin(), sorted->end());
    m_selection->setMemo(key, sorted, generation);
    return *sorted;
}

QString CVLibraryTrees::predicateForLocationPath(const QString &path)
{
    if (path.isEmpty())
        return u""_s;
    QString location, span;
    if (path != u"/"_s) {
        const QString safe = CVSelection::makeSafe(path);
        location = u"( Location BEGINSWITH[c] '%1' )"_s.arg(safe);
        span = u"( SpanLocation BEGINSWITH[c] '%1' )"_s.arg(safe);
    } else {
        // The start-up drive: everything under its top folders.
        QStringList tops;
        for (int id : *getLocationsForPredicate(u"( ParentPath == '/' )"_s))
            tops.append(CVSelection::makeSafe(m_nodes[std::size_t(id)].path));
        location = u"( ( Location BEGINSWITH[c] '%1' ) )"_s.arg(tops.join(u"' ) OR ( Location BEGINSWITH[c] '"_s));
        span = u"( ( SpanLocation BEGINSWITH[c] '%1' ) )"_s.arg(tops.join(u"' ) OR ( SpanLocation BEGINSWITH[c] '"_s));
    }
    return u"( ( ItemIsSpanned == 0 ) AND %1 ) OR ( ( ItemIsSpanned == 1 ) AND %2 )"_s.arg(location, span);
}
