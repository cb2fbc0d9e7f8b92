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
#include <cstring>
#include <numeric>

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

namespace {

// Lower case as QString::toLower has it, without its cost for the letters of file names:
// ASCII and Latin-1 directly, combining marks as they are; anything else takes Qt's way.
bool lowerSimply(char16_t u, char16_t &out)
{
    if (u < 0x80) {
        out = u >= u'A' && u <= u'Z' ? char16_t(u + 32) : u;
        return true;
    }
    if (u < 0x100) {
        out = u >= 0xC0 && u <= 0xDE && u != 0xD7 ? char16_t(u + 32) : u;
        return true;
    }
    if (u >= 0x0300 && u <= 0x036F) {
        out = u;
        return true;
    }
    return false;
}

} // namespace

// prefix followed by text in lower case, in one allocation when text lowers simply.
static void appendLowered(QString &out, const QString &prefix, QStringView text)
{
    out = QString(prefix.size() + text.size(), Qt::Uninitialized);
    QChar *o = out.data();
    std::copy(prefix.cbegin(), prefix.cend(), o);
    o += prefix.size();
    for (QChar c : text) {
        char16_t lower;
        if (!lowerSimply(c.unicode(), lower)) {
            out = prefix + text.toString().toLower();
            return;
        }
        *o++ = QChar(lower);
    }
}

static QString lowered(QStringView text)
{
    QString out;
    appendLowered(out, QString(), text);
    return out;
}

static quint64 hashName(int folderKey, QStringView name)
{
    // Names are short; a multiply-and-fold over 8 bytes at a time is plenty against collisions.
    quint64 h = 0x9E3779B97F4A7C15ULL ^ (quint64(quint32(folderKey)) * 0xFF51AFD7ED558CCDULL);
    const char *bytes = reinterpret_cast<const char *>(name.data());
    std::size_t size = std::size_t(name.size()) * 2;
    while (size >= 8) {
        quint64 chunk;
        std::memcpy(&chunk, bytes, 8);
        h = (h ^ chunk) * 0x100000001B3ULL;
        h ^= h >> 29;
        bytes += 8;
        size -= 8;
    }
    quint64 tail = 0;
    std::memcpy(&tail, bytes, size);
    h = (h ^ tail ^ (quint64(name.size()) << 56)) * 0xC4CEB9FE1A85EC53ULL;
    return h ^ (h >> 32);
}

int CVLibraryTrees::addNode(const QString &path, int parent, bool isFile)
{
    // A file's path is met once (the table by path sees to that), a folder's once by its chain.
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
    // The name starts where the parent's lower-case path ends: lowering may change a length ("İ").
    node.key = keyFor(node.lcPath, parent, parent >= 0 ? m_nodes[std::size_t(parent)].lcPath.size() : 0);
    m_links.push_back({ node.key, node.parentKey, node.isFile });
    m_nodes.push_back(std::move(node));
    return int(m_nodes.size() - 1);
}

int CVLibraryTrees::findKey(int folderKey, QStringView name, quint64 hash) const
{
    if (m_keyTable.empty())
        return -1;
    const std::size_t mask = m_keyTable.size() - 1;
    for (std::size_t i = std::size_t(hash) & mask;; i = (i + 1) & mask) {
        const int entry = m_keyTable[i];
        if (entry == 0)
            return -1;
        const Key &k = m_keys[std::size_t(entry - 1)];
        if (m_keyHashes[std::size_t(entry - 1)] == hash && k.folder == folderKey
            && QStringView(k.lcPath).mid(k.nameStart) == name)
            return entry - 1;
    }
}

// Paths that differ only in letter case share a key. A file's key is found by its folder's
// key and its own name, which hashes far less text than the whole path.
int CVLibraryTrees::keyFor(const QString &lcPath, int parent, qsizetype nameStart)
{
    const int folderKey = parent >= 0 ? m_nodes[std::size_t(parent)].key : -1;
    if (folderKey < 0)
        nameStart = 0;
    const QStringView name = QStringView(lcPath).mid(nameStart);
    const quint64 hash = hashName(folderKey, name);
    if (const int found = findKey(folderKey, name, hash); found >= 0)
        return found;
    if ((m_keys.size() + 1) * 2 > m_keyTable.size()) {
        m_keyTable.assign(std::max<std::size_t>(1024, m_keyTable.size() * 2), 0);
        const std::size_t mask = m_keyTable.size() - 1;
        for (std::size_t k = 0; k < m_keys.size(); ++k) {
            std::size_t i = std::size_t(m_keyHashes[k]) & mask;
            while (m_keyTable[i])
                i = (i + 1) & mask;
            m_keyTable[i] = int(k + 1);
        }
    }
    const int key = int(m_keys.size());
    m_keys.push_back({ lcPath, folderKey, nameStart });
    m_keyHashes.push_back(hash);
    const std::size_t mask = m_keyTable.size() - 1;
    std::size_t i = std::size_t(hash) & mask;
    while (m_keyTable[i])
        i = (i + 1) & mask;
    m_keyTable[i] = key + 1;
    if (lcPath.endsWith(u'/'))
        m_folderKeys.insert(lcPath, key);
    return key;
}

int CVLibraryTrees::keyOfLowerPath(const QString &lcPath) const
{
    if (const auto it = m_folderKeys.constFind(lcPath); it != m_folderKeys.cend())
        return *it;
    const qsizetype slash = lcPath.lastIndexOf(u'/');
    if (slash >= 0 && slash + 1 < lcPath.size()) {
        const int folder = m_folderKeys.value(lcPath.left(slash + 1), -1);
        if (folder >= 0) {
            const QStringView name = QStringView(lcPath).mid(slash + 1);
            if (const int key = findKey(folder, name, hashName(folder, name)); key >= 0)
                return key;
        }
    }
    // A top node that is a file (a path that is a drive itself).
    return findKey(-1, lcPath, hashName(-1, lcPath));
}

// The nodes of a folder, from its drive's node down; each folder is split once. Folders are
// found in a table of our own by a hash of their path (every track asks for its folder).
int CVLibraryTrees::folderChain(QStringView folder)
{
    const quint64 hash = hashName(-2, folder);
    std::size_t mask = m_folderTable.size() - 1;
    for (std::size_t i = std::size_t(hash) & mask;; i = (i + 1) & mask) {
        const int entry = m_folderTable[i];
        if (entry == 0)
            break;
        if (m_chainHashes[std::size_t(entry - 1)] == hash && m_chainFolders[std::size_t(entry - 1)] == folder)
            return entry - 1;
    }
    const QString path = folder.toString();
    std::vector<int> chain;
    bool underDrive = false;
    if (path == u"/"_s) {
        chain.push_back(addNode(u"/"_s, -1, false));
    } else if (CVVolumes::driveRootOfPath(path) == path) {
        chain.push_back(addNode(path + u'/', -1, false));
        underDrive = true;
    } else {
        const qsizetype slash = folder.lastIndexOf(u'/');
        const int up = folderChain(slash <= 0 ? QStringView(u"/") : folder.left(slash));
        chain = m_chains[std::size_t(up)];
        underDrive = m_chainUnderDrive[std::size_t(up)];
        chain.push_back(addNode(path + u'/', chain.back(), false));
    }
    m_chains.push_back(std::move(chain));
    m_chainUnderDrive.push_back(underDrive);
    m_chainFolders.push_back(path);
    m_chainHashes.push_back(hash);
    const int index = int(m_chains.size() - 1);
    mask = m_folderTable.size() - 1; // the folders above may have grown the table
    if (m_chains.size() * 2 > m_folderTable.size()) {
        m_folderTable.assign(m_folderTable.size() * 2, 0);
        mask = m_folderTable.size() - 1;
        for (std::size_t c = 0; c + 1 < m_chains.size(); ++c) {
            std::size_t k = std::size_t(m_chainHashes[c]) & mask;
            while (m_folderTable[k])
                k = (k + 1) & mask;
            m_folderTable[k] = int(c + 1);
        }
    }
    std::size_t k = std::size_t(hash) & mask;
    while (m_folderTable[k])
        k = (k + 1) & mask;
    m_folderTable[k] = index + 1;
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
    m_keys.clear();
    m_keyHashes.clear();
    m_keyTable.clear();
    m_keyRanks.clear();
    m_nodeRanks.clear();
    m_folderKeys.clear();
    m_folderTable.assign(1024, 0);
    m_chainFolders.clear();
    m_chainHashes.clear();
    m_chains.clear();
    m_chainUnderDrive.clear();
    m_keyed.clear();
    CVLocationNode root;
    root.path = kLocations;
    root.lcPath = u"locations"_s;
    CVLocationNode none;
    none.path = u"NO LOCATIONS"_s;
    none.lcPath = u"no locations"_s;
    none.isFile = true;
    m_nodes = { root, none };
    m_links = { { root.key, root.parentKey, root.isFile }, { none.key, none.parentKey, none.isFile } };

    const std::vector<CVTrack *> &tracks = m_selection->allTracks()->tracks;
    const double maximum = double(tracks.size());
    double counter = 1;
    const std::size_t expected = tracks.size() + tracks.size() / 4 + 2;
    m_nodes.reserve(expected);
    m_links.reserve(expected);
    m_keys.reserve(expected);
    m_keyHashes.reserve(expected);
    std::size_t table = 1024;
    while (table < expected * 2)
        table *= 2;
    m_keyTable.assign(table, 0);
    m_keyed.assign(tracks.size(), KeyedPath());
    // Albums mostly have folders of their own.
    m_folderKeys.reserve(qsizetype(tracks.size() / 3));
    for (const CVTrack *track : tracks) {
        const QString &path = track->currentPath();
        if (path.isEmpty() || !path.startsWith(u'/'))
            continue;
        KeyedPath &keyed = m_keyed[std::size_t(track->index())];
        const qsizetype slash = path.lastIndexOf(u'/');
        const int lastChain = folderChain(slash == 0 ? QStringView(u"/") : QStringView(path).left(slash));
        // A path below a drive's folder is never the drive itself.
        if (path == u"/"_s
            || (!m_chainUnderDrive[std::size_t(lastChain)] && CVVolumes::driveRootOfPath(path) == path)) {
            keyed.file = addNode(path, -1, true);
        } else {
            keyed.chain = lastChain;
            keyed.file = addNode(path, m_chains[std::size_t(lastChain)].back(), true);
        }
        if (progress && int(counter) % 4096 == 0)
            progress(maximum, counter);
        ++counter;
    }
    rankKeys();
    if (progress)
        progress(maximum, maximum);
}

void CVLibraryTrees::rankKeys()
{
    // Lists come in plain text order of the lower-case paths: ranked once per load. Below a top
    // key (a drive, "/", or a file that is a drive) a key's path is its folder's path and its
    // name, and a folder's name ends in "/": so a folder's keys follow it, each of its names in
    // name order with the keys below that name behind it. Names are short, whole paths share
    // long beginnings: the names of each folder are sorted, and only the runs of the top keys
    // are merged by whole paths.
    const std::size_t count = m_keys.size();
    std::vector<int> start(count + 2, 0); // children of key k at start[k + 1] ... (k = -1: tops)
    for (const Key &k : m_keys)
        ++start[std::size_t(k.folder + 2)];
    for (std::size_t i = 1; i < start.size(); ++i)
        start[i] += start[i - 1];
    std::vector<int> children(count);
    {
        std::vector<int> fill(start.begin(), start.end() - 1);
        for (std::size_t k = 0; k < count; ++k)
            children[std::size_t(fill[std::size_t(m_keys[k].folder + 1)]++)] = int(k);
    }
    auto name = [&](int k) { return QStringView(m_keys[std::size_t(k)].lcPath).mid(m_keys[std::size_t(k)].nameStart); };
    for (std::size_t f = 1; f + 1 < start.size(); ++f)
        std::sort(children.begin() + start[f], children.begin() + start[f + 1],
            [&](int a, int b) { return name(a).compare(name(b)) < 0; });

    std::vector<int> byRank;
    byRank.reserve(count);
    std::vector<std::size_t> runs; // where each top's run begins
    std::vector<std::pair<int, int>> stack; // key, next child
    for (int t = start[0]; t < start[1]; ++t) {
        runs.push_back(byRank.size());
        stack.push_back({ children[std::size_t(t)], 0 });
        byRank.push_back(children[std::size_t(t)]);
        while (!stack.empty()) {
            auto &[k, next] = stack.back();
            const int first = start[std::size_t(k + 1)], last = start[std::size_t(k + 2)];
            if (first + next >= last) {
                stack.pop_back();
                continue;
            }
            const int child = children[std::size_t(first + next++)];
            byRank.push_back(child);
            stack.push_back({ child, 0 });
        }
    }
    runs.push_back(byRank.size());
    auto before = [&](int a, int b) { return m_keys[std::size_t(a)].lcPath < m_keys[std::size_t(b)].lcPath; };
    while (runs.size() > 2) {
        std::vector<std::size_t> merged;
        for (std::size_t r = 0; r + 1 < runs.size(); r += 2) {
            merged.push_back(runs[r]);
            if (r + 2 < runs.size())
                std::inplace_merge(byRank.begin() + std::ptrdiff_t(runs[r]),
                    byRank.begin() + std::ptrdiff_t(runs[r + 1]), byRank.begin() + std::ptrdiff_t(runs[r + 2]), before);
        }
        merged.push_back(byRank.size());
        runs = std::move(merged);
    }
    m_keyRanks.assign(count, 0);
    for (std::size_t i = 0; i < byRank.size(); ++i)
        m_keyRanks[std::size_t(byRank[i])] = int(i);
    m_nodeRanks.assign(m_nodes.size(), -1);
    for (std::size_t id = 0; id < m_nodes.size(); ++id)
        if (m_nodes[id].key >= 0)
            m_nodeRanks[id] = m_keyRanks[std::size_t(m_nodes[id].key)];
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

    // Merge by lower-cased path: the spelling of the last track merged wins. Walked from the
    // last track, so a key's first spelling met wins and a folder's chain is merged once.
    // Nodes are marked by their key's rank, so the list comes out in order without a sort.
    std::vector<int> winner(m_keys.size(), -1);
    std::vector<quint8> chainMerged(m_chains.size(), 0);
    std::size_t marked = 0;
    auto merge = [&](int id) {
        int &w = winner[std::size_t(m_nodeRanks[std::size_t(id)])];
        if (w < 0) {
            w = id;
            ++marked;
        }
    };
    for (std::size_t i = tracks->tracks.size(); i-- > 0;) {
        const auto index = std::size_t(tracks->indexAt(i));
        if (index >= m_keyed.size())
            continue;
        const KeyedPath &keyed = m_keyed[index];
        if (keyed.file < 0)
            continue;
        merge(keyed.file);
        if (keyed.chain >= 0 && !chainMerged[std::size_t(keyed.chain)]) {
            chainMerged[std::size_t(keyed.chain)] = 1;
            for (int id : m_chains[std::size_t(keyed.chain)])
                merge(id);
        }
    }
    auto list = std::make_shared<std::vector<int>>();
    if (marked == 0) {
        list->push_back(1);
    } else {
        list->reserve(marked + 1);
        list->push_back(0);
        for (int id : winner)
            if (id >= 0)
                list->push_back(id);
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

const std::vector<std::vector<int>> &CVLibraryTrees::playlistTracks()
{
    if (!m_playlists || m_playlistTracks.size() == m_playlists->size())
        return m_playlistTracks;
    const std::vector<CVTrack *> &tracks = m_selection->allTracks()->tracks;
    // A track ID names every track that carries it (a library file may repeat one).
    QHash<qint64, int> first;
    first.reserve(qsizetype(tracks.size()));
    std::vector<int> next(tracks.size(), -1);
    for (std::size_t i = tracks.size(); i-- > 0;) {
        if (!tracks[i]->has(CVAttr::TrackID))
            continue;
        int &head = first[tracks[i]->integer(CVAttr::TrackID)];
        next[i] = head - 1;
        head = int(i) + 1;
    }
    m_playlistTracks.assign(m_playlists->size(), {});
    for (std::size_t p = 0; p < m_playlists->size(); ++p) {
        std::vector<int> &indices = m_playlistTracks[p];
        for (qint64 id : (*m_playlists)[p].tracksPredicate.trackIDs())
            for (int i = first.value(id) - 1; i >= 0; i = next[std::size_t(i)])
                indices.push_back(tracks[std::size_t(i)]->index());
    }
    return m_playlistTracks;
}

std::shared_ptr<const std::vector<int>> CVLibraryTrees::filterEmptyPlaylist()
{
    const QList<CVPredicate> stack = getPredicateStackForPlaylists();
    const QString key = u"Playlists"_s + QChar(0x1E) + CVSelection::stackKey(stack);
    if (auto hit = cached<std::vector<int>>(m_selection, key))
        return hit;
    const quint64 generation = m_selection->generation();
    const CVTrackList tracks = m_selection->selectPredicateStack(stack);
    auto list = std::make_shared<std::vector<int>>();
    if (m_playlists) {
        const std::vector<std::vector<int>> &members = playlistTracks();
        std::vector<quint8> selected(m_selection->allTracks()->tracks.size());
        for (const CVTrack *t : tracks->tracks)
            if (std::size_t(t->index()) < selected.size())
                selected[std::size_t(t->index())] = 1;
        for (std::size_t i = 0; i < members.size(); ++i) {
            const std::vector<int> &indices = members[i];
            if (std::any_of(indices.begin(), indices.end(), [&](int t) { return selected[std::size_t(t)]; }))
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
