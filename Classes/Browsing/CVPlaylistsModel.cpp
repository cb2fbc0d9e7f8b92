#include "Browsing/CVPlaylistsModel.h"

#include "Library/CVLibraryManager.h"
#include "Library/CVPlaylist.h"
#include "Library/CVPredicateArchive.h"
#include "Views/CVIcons.h"

#include <QFont>
#include <QMimeData>

using namespace Qt::StringLiterals;

CVPlaylistsModel::CVPlaylistsModel(CVLibraryManager *library, QObject *parent)
    : QAbstractItemModel(parent)
    , m_library(library)
{
}

void CVPlaylistsModel::clear()
{
    beginResetModel();
    m_items.clear();
    m_roots.clear();
    endResetModel();
}

void CVPlaylistsModel::reload()
{
    beginResetModel();
    m_items.clear();
    m_roots.clear();
    const QStringList groups = m_library->getPlaylistGroups();
    for (const QString &group : groups) {
        Item heading;
        heading.group = group;
        heading.row = int(m_roots.size());
        m_items.push_back(heading);
        const int index = int(m_items.size() - 1);
        m_roots.push_back(index);
        if (group != u"0 NO PLAYLISTS"_s)
            addChildren(index,
                u"( Group == '%1' ) AND ( ParentPersistentID == NULL )"_s.arg(CVLibraryManager::makeSafe(group)));
    }
    endResetModel();
}

void CVPlaylistsModel::addChildren(int parentItem, const QString &predicate)
{
    const auto lists = m_library->getPlaylistsForPredicate(predicate);
    for (int p : *lists) {
        Item child;
        child.playlist = p;
        child.parent = parentItem;
        child.row = int(m_items[std::size_t(parentItem)].children.size());
        m_items.push_back(child);
        const int index = int(m_items.size() - 1);
        m_items[std::size_t(parentItem)].children.push_back(index);
        const CVPlaylist &playlist = m_library->playlists()[std::size_t(p)];
        if (playlist.folder.value_or(false))
            addChildren(index,
                u"( ParentPersistentID == '%1' )"_s.arg(CVLibraryManager::makeSafe(playlist.playlistPersistentID)));
    }
}

const CVPlaylistsModel::Item *CVPlaylistsModel::item(const QModelIndex &index) const
{
    if (!index.isValid())
        return nullptr;
    const auto i = std::size_t(index.internalId());
    return i < m_items.size() ? &m_items[i] : nullptr;
}

bool CVPlaylistsModel::isHeading(const QModelIndex &index) const
{
    const Item *it = item(index);
    return it && it->playlist < 0;
}

const CVPlaylist *CVPlaylistsModel::playlist(const QModelIndex &index) const
{
    const Item *it = item(index);
    return it && it->playlist >= 0 ? &m_library->playlists()[std::size_t(it->playlist)] : nullptr;
}

QModelIndex CVPlaylistsModel::indexForPersistentID(const QString &persistentID) const
{
    for (std::size_t i = 0; i < m_items.size(); ++i) {
        const Item &it = m_items[i];
        if (it.playlist >= 0 && m_library->playlists()[std::size_t(it.playlist)].playlistPersistentID == persistentID)
            return createIndex(it.row, 0, quintptr(i));
    }
    return {};
}

QModelIndex CVPlaylistsModel::indexForGroup(const QString &group) const
{
    for (int root : m_roots)
        if (m_items[std::size_t(root)].group == group)
            return createIndex(m_items[std::size_t(root)].row, 0, quintptr(root));
    return {};
}

QModelIndexList CVPlaylistsModel::expandableIndexes() const
{
    QModelIndexList out;
    for (std::size_t i = 0; i < m_items.size(); ++i)
        if (!m_items[i].children.empty())
            out.append(createIndex(m_items[i].row, 0, quintptr(i)));
    return out;
}

int CVPlaylistsModel::playlistCount() const
{
    int n = 0;
    for (const Item &it : m_items)
        n += it.playlist >= 0 && !m_library->playlists()[std::size_t(it.playlist)].folder;
    return n;
}

int CVPlaylistsModel::folderCount() const
{
    int n = 0;
    for (const Item &it : m_items)
        n += it.playlist >= 0 && m_library->playlists()[std::size_t(it.playlist)].folder.has_value();
    return n;
}

QModelIndex CVPlaylistsModel::index(int row, int column, const QModelIndex &parent) const
{
    if (column != 0 || row < 0)
        return {};
    const std::vector<int> &children = parent.isValid() ? item(parent)->children : m_roots;
    if (std::size_t(row) >= children.size())
        return {};
    return createIndex(row, 0, quintptr(children[std::size_t(row)]));
}

QModelIndex CVPlaylistsModel::parent(const QModelIndex &child) const
{
    const Item *it = item(child);
    if (!it || it->parent < 0)
        return {};
    return createIndex(m_items[std::size_t(it->parent)].row, 0, quintptr(it->parent));
}

int CVPlaylistsModel::rowCount(const QModelIndex &parent) const
{
    if (parent.column() > 0)
        return 0;
    return int(parent.isValid() ? item(parent)->children.size() : m_roots.size());
}

int CVPlaylistsModel::columnCount(const QModelIndex &) const
{
    return 1;
}

bool CVPlaylistsModel::hasChildren(const QModelIndex &parent) const
{
    return rowCount(parent) > 0;
}

QVariant CVPlaylistsModel::data(const QModelIndex &index, int role) const
{
    const Item *it = item(index);
    if (!it)
        return {};
    if (it->playlist < 0) {
        switch (role) {
        case Qt::DisplayRole:
        case Qt::AccessibleTextRole:
            return it->group.mid(2);
        case Qt::FontRole: {
            QFont font;
            font.setBold(true);
            font.setPointSizeF(font.pointSizeF() * 0.85);
            return font;
        }
        case Qt::ForegroundRole:
            return QVariant(); // the view paints headings with the palette's placeholder text
        case GroupRole:
            return it->group;
        case IsHeadingRole:
            return true;
        default:
            return {};
        }
    }
    const CVPlaylist &p = m_library->playlists()[std::size_t(it->playlist)];
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
        return p.name;
    case Qt::ToolTipRole:
        return u"%1 (%2 tracks)"_s.arg(p.name).arg(p.tracksPredicate.trackIDs().size());
    case Qt::DecorationRole:
        if (p.folder.value_or(false))
            return CVIcons::icon(CVIcons::Kind::PlaylistFolder);
        if (p.genius || p.group == u"1 GENIUS"_s)
            return CVIcons::icon(CVIcons::Kind::GeniusPlaylist);
        if (p.smartPlaylist)
            return CVIcons::icon(CVIcons::Kind::SmartPlaylist);
        return CVIcons::icon(CVIcons::Kind::Playlist);
    case GroupRole:
        return p.group;
    case PersistentIDRole:
        return p.playlistPersistentID;
    case IsFolderRole:
        return p.folder.has_value();
    case IsHeadingRole:
        return false;
    default:
        return {};
    }
}

Qt::ItemFlags CVPlaylistsModel::flags(const QModelIndex &index) const
{
    const Item *it = item(index);
    if (!it)
        return Qt::NoItemFlags;
    // Headings cannot be selected; everything below them can, and drags its tracks.
    if (it->playlist < 0)
        return Qt::ItemIsEnabled;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled;
}

QStringList CVPlaylistsModel::mimeTypes() const
{
    return { QString::fromLatin1(CVPredicateArchive::MimeType) };
}

QMimeData *CVPlaylistsModel::mimeData(const QModelIndexList &indexes) const
{
    const CVPlaylist *p = indexes.isEmpty() ? nullptr : playlist(indexes.first());
    if (!p)
        return nullptr;
    auto *mime = new QMimeData;
    mime->setData(QString::fromLatin1(CVPredicateArchive::MimeType), CVPredicateArchive::archive(p->tracksPredicate));
    return mime;
}

Qt::DropActions CVPlaylistsModel::supportedDragActions() const
{
    return Qt::CopyAction | Qt::MoveAction;
}
