#include "Library/CVLibraryTrees.h"

#include "Library/CVFilter.h"
#include "Library/CVPlaylist.h"
#include "Library/CVSelection.h"
#include "Library/CVSelectionPanes.h"
#include "Library/CVTrack.h"
#include "Platform/CVVolumes.h"

#include <QSet>

#include <algorithm>
#include <array>

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

// Lower case, with a quick path for ASCII.
// prefix followed by text in lower case, in one allocation when text is ASCII.
static void appendLowered(QString &out, const QString &prefix, QStringView text)
{
    for (QChar c : text) {
        if (c.unicode() >= 0x80) {
            out = prefix + text.toString().toLower();
            return;
        }
    }
    out = QString(prefix.size() + text.size(), Qt::Uninitialized);
    QChar *o = out.data();
    std::copy(prefix.cbegin(), prefix.cend(), o);
    o += prefix.size();
    for (QChar c : text) {
        const char16_t u = c.unicode();
        *o++ = QChar(u >= u'A' && u <= u'Z' ? char16_t(u + 32) : u);
    }
}

static QString lowered(QStringView text)
{
    for (QChar c : text)
        if (c.unicode() >= 0x80)
            return text.toString().toLower();
    QString out(text.size(), Qt::Uninitialized);
    QChar *o = out.data();
    for (QChar c : text) {
        const char16_t u = c.unicode();
        *o++ = QChar(u >= u'A' && u <= u'Z' ? char16_t(u + 32) : u);
    }
    return out;
}

int CVLibraryTrees::addNode(const QString &path, int parent, bool isFile)
{
    // A file's path is met once (the table by path sees to that); folders are shared.
    if (!isFile) {
        if (const auto it = m_nodeByPath.constFind(path); it != m_nodeByPath.cend())
            return *it;
    }
    CVLocationNode node;
    node.path = path;
    node.hasParent = true;
    if (parent >= 0) {
        // Only the last component is new: the parent's texts are shared.
        const CVLocationNode &p = m_nodes[std::size_t(parent)];
        node.parentPath = p.path;
        node.lcParentPath = p.lcPath;
        node.parentKey = p.key;
        appendLowered(node.lcPath, p.lcPath, QStringView(path).mid(p.path.size()));
    } else {
        node.parentPath = kLocations;
        node.lcParentPath = u"locations"_s;
        node.lcPath = lowered(path);
    }
    node.isFile = isFile;
    node.key = keyFor(node.lcPath, parent, parent >= 0 ? m_nodes[std::size_t(parent)].path.size() : 0);
    m_nodes.push_back(std::move(node));
    const int id = int(m_nodes.size() - 1);
    if (!isFile)
        m_nodeByPath.insert(path, id);
    return id;
}

// Paths that differ only in letter case share a key. A file's key is found by its folder's
// key and its own name, which hashes far less text than the whole path.
int CVLibraryTrees::keyFor(const QString &lcPath, int parent, qsizetype nameStart)
{
    const int folderKey = parent >= 0 ? m_nodes[std::size_t(parent)].key : -1;
    const QStringView name = folderKey >= 0 ? QStringView(lcPath).mid(nameStart) : QStringView(lcPath);
    if (const auto it = m_fileKeys.constFind(std::pair(folderKey, name)); it != m_fileKeys.cend())
        return *it;
    // The key's view points into the kept text, whose characters never move.
    m_keyTexts.push_back(lcPath);
    const QStringView kept = QStringView(m_keyTexts.back()).mid(lcPath.size() - name.size());
    m_fileKeys.insert(std::pair(folderKey, kept), int(m_keyTexts.size() - 1));
    m_keyRanks.clear();
    return int(m_keyTexts.size() - 1);
}

// The nodes of a folder, from its drive's node down; each folder is split once.
int CVLibraryTrees::folderChain(const QString &folder)
{
    if (const auto it = m_folders.constFind(folder); it != m_folders.cend())
        return *it;
    std::vector<int> chain;
    if (folder == u"/"_s) {
        chain.push_back(addNode(u"/"_s, -1, false));
    } else if (CVVolumes::driveRootOfPath(folder) == folder) {
        chain.push_back(addNode(folder + u'/', -1, false));
    } else {
        const qsizetype slash = folder.lastIndexOf(u'/');
        chain = m_chains[std::size_t(folderChain(slash <= 0 ? u"/"_s : folder.left(slash)))];
        chain.push_back(addNode(folder + u'/', chain.back(), false));
    }
    m_chains.push_back(std::move(chain));
    const int index = int(m_chains.size() - 1);
    m_folders.insert(folder, index);
    return index;
}

std::vector<int> CVLibraryTrees::keyedLocation(const CVTrack &track) const
{
    if (track.index() < 0 || std::size_t(track.index()) >= m_keyed.size())
        return {};
    const KeyedPath &keyed = m_keyed[std::size_t(track.index())];
    if (keyed.file < 0)
        return {};
    std::vector<int> nodes;
    if (keyed.chain >= 0)
        nodes = m_chains[std::size_t(keyed.chain)];
    nodes.push_back(keyed.file);
    return nodes;
}

void CVLibraryTrees::compileAllKeyedLocationInformation(const std::function<void(double, double)> &progress)
{
    m_nodes.clear();
    m_nodeByPath.clear();
    m_fileKeys.clear();
    m_keyTexts.clear();
    m_keyRanks.clear();
    m_folders.clear();
    m_chains.clear();
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
    const std::size_t expected = tracks.size() + tracks.size() / 4 + 2;
    m_nodes.reserve(expected);
    m_keyTexts.reserve(expected);
    m_fileKeys.reserve(qsizetype(expected));
    m_keyed.assign(tracks.size(), KeyedPath());
    // Neighbouring tracks mostly share their folder (an album): try the last one first.
    // The folders met last, most recent first: an album's tracks come together, with the
    // odd film or podcast in between.
    struct Recent {
        QString folder;
        int chain = -1;
    };
    std::array<Recent, 8> recent;
    for (const CVTrack *track : tracks) {
        const QString &path = track->currentPath();
        if (path.isEmpty() || !path.startsWith(u'/'))
            continue;
        KeyedPath &keyed = m_keyed[std::size_t(track->index())];
        if (path == u"/"_s || CVVolumes::driveRootOfPath(path) == path) {
            keyed.file = addNode(path, -1, true);
        } else {
            const qsizetype slash = path.lastIndexOf(u'/');
            const QStringView folder = slash == 0 ? QStringView(u"/") : QStringView(path).left(slash);
            std::size_t hit = 0;
            while (hit < recent.size() && (recent[hit].chain < 0 || folder != recent[hit].folder))
                ++hit;
            if (hit == recent.size()) {
                hit = recent.size() - 1;
                recent[hit].folder = folder.toString();
                recent[hit].chain = folderChain(recent[hit].folder);
            }
            std::rotate(recent.begin(), recent.begin() + std::ptrdiff_t(hit), recent.begin() + std::ptrdiff_t(hit) + 1);
            const int lastChain = recent[0].chain;
            keyed.chain = lastChain;
            keyed.file = addNode(path, m_chains[std::size_t(lastChain)].back(), true);
        }
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
        if (std::size_t(track->index()) >= m_keyed.size())
            continue;
        const KeyedPath *it = &m_keyed[std::size_t(track->index())];
        if (it->file < 0)
            continue;
        auto merge = [&](int id) {
            const int k = m_nodes[std::size_t(id)].key;
            if (winner[std::size_t(k)] < 0)
                keys.push_back(k);
            winner[std::size_t(k)] = id;
        };
        if (it->chain >= 0)
            for (int id : m_chains[std::size_t(it->chain)])
                merge(id);
        merge(it->file);
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
