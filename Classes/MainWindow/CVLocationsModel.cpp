#include "MainWindow/CVLocationsModel.h"

#include "Library/CVLibraryManager.h"
#include "Library/CVPredicateArchive.h"
#include "Platform/CVVolumes.h"
#include "Views/CVIcons.h"

#include <QApplication>
#include <QFont>
#include <QMimeData>
#include <QSize>
#include <QStyle>

using namespace Qt::StringLiterals;

CVLocationsModel::CVLocationsModel(CVLibraryManager *library, QString startupDriveName, QObject *parent)
    : QAbstractItemModel(parent)
    , m_library(library)
    , m_startupDriveName(std::move(startupDriveName))
{
}

void CVLocationsModel::clear()
{
    beginResetModel();
    m_items.clear();
    m_children.clear();
    m_itemOfKey.clear();
    m_outer.clear();
    m_inner.clear();
    m_nodes.reset();
    m_drives = m_folders = m_files = 0;
    endResetModel();
}

void CVLocationsModel::reload()
{
    beginResetModel();
    m_items.clear();
    m_children.clear();
    m_drives = m_folders = m_files = 0;
    m_nodes = m_library->filterEmptyLocations();
    const std::vector<int> &nodes = *m_nodes;
    const CVLibraryTrees &trees = m_library->trees();
    m_itemOfKey.assign(std::size_t(std::max(0, trees.keyCount())), -1);
    m_items.reserve(nodes.size());
    // The list has every folder before its contents: a node's parent is the item of its
    // parent's key, met already. The root comes first; a top node (a drive) hangs under it.
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const CVLibraryTrees::NodeLinks &n = trees.links(nodes[i]);
        Item it;
        it.node = nodes[i];
        if (i > 0) {
            if (n.parentKey < 0) {
                it.parent = 0;
                ++m_drives;
            } else {
                it.parent = std::size_t(n.parentKey) < m_itemOfKey.size() ? m_itemOfKey[std::size_t(n.parentKey)] : -1;
                if (it.parent < 0)
                    continue; // the tree lists every folder above a file: never happens
                if (n.isFile)
                    ++m_files;
                else
                    ++m_folders;
            }
            it.row = m_items[std::size_t(it.parent)].childCount++;
        }
        if (n.key >= 0 && std::size_t(n.key) < m_itemOfKey.size())
            m_itemOfKey[std::size_t(n.key)] = int(m_items.size());
        m_items.push_back(it);
    }
    // Children in row order: each parent's run starts after the runs of the parents before it.
    int start = 0;
    for (Item &it : m_items) {
        it.firstChild = start;
        start += it.childCount;
    }
    m_children.assign(std::size_t(start), -1);
    for (std::size_t i = 1; i < m_items.size(); ++i) {
        const Item &it = m_items[i];
        m_children[std::size_t(m_items[std::size_t(it.parent)].firstChild + it.row)] = int(i);
    }
    // A folder (below a drive) whose only content is one folder shares that folder's row: the
    // row is the outermost item, and shows the innermost one's contents. Parents come first, so
    // one pass finds every item's outermost, and the last one met of a row is its innermost.
    m_outer.resize(m_items.size());
    m_inner.resize(m_items.size());
    for (std::size_t i = 0; i < m_items.size(); ++i) {
        const Item &it = m_items[i];
        int outer = int(i);
        // A folder's contents are never empty, a file's always are.
        if (it.parent > 0 && it.childCount > 0) {
            const Item &p = m_items[std::size_t(it.parent)];
            if (p.parent > 0 && p.childCount == 1)
                outer = m_outer[std::size_t(it.parent)];
        }
        m_outer[i] = outer;
        m_inner[std::size_t(outer)] = int(i);
    }
    endResetModel();
}

const CVLocationsModel::Item *CVLocationsModel::item(const QModelIndex &index) const
{
    if (!index.isValid())
        return nullptr;
    const auto i = std::size_t(index.internalId());
    return i < m_items.size() ? &m_items[std::size_t(m_inner[i])] : nullptr;
}

QModelIndex CVLocationsModel::rowIndex(int outer) const
{
    return createIndex(m_items[std::size_t(outer)].row, 0, quintptr(outer));
}

const CVLocationNode *CVLocationsModel::node(const QModelIndex &index) const
{
    const Item *it = item(index);
    return it ? &m_library->locationNode(it->node) : nullptr;
}

QModelIndex CVLocationsModel::indexForLowerPath(const QString &lcPath) const
{
    const int key = m_library->trees().keyOfLowerPath(lcPath);
    if (key < 0 || std::size_t(key) >= m_itemOfKey.size() || m_itemOfKey[std::size_t(key)] < 0)
        return {};
    return rowIndex(m_outer[std::size_t(m_itemOfKey[std::size_t(key)])]);
}

QModelIndex CVLocationsModel::index(int row, int column, const QModelIndex &parent) const
{
    if (column != 0 || row < 0)
        return {};
    if (!parent.isValid())
        return row == 0 && !m_items.empty() ? createIndex(0, 0, quintptr(0)) : QModelIndex();
    const Item *p = item(parent);
    if (!p || row >= p->childCount)
        return {};
    return createIndex(row, 0, quintptr(m_children[std::size_t(p->firstChild + row)]));
}

QModelIndex CVLocationsModel::parent(const QModelIndex &child) const
{
    if (!child.isValid() || std::size_t(child.internalId()) >= m_items.size())
        return {};
    const Item &outer = m_items[std::size_t(child.internalId())];
    if (outer.parent < 0)
        return {};
    return rowIndex(m_outer[std::size_t(outer.parent)]);
}

int CVLocationsModel::rowCount(const QModelIndex &parent) const
{
    if (parent.column() > 0)
        return 0;
    if (!parent.isValid())
        return m_items.empty() ? 0 : 1;
    const Item *it = item(parent);
    return it ? it->childCount : 0;
}

int CVLocationsModel::columnCount(const QModelIndex &) const
{
    return 1;
}

bool CVLocationsModel::hasChildren(const QModelIndex &parent) const
{
    return rowCount(parent) > 0;
}

QVariant CVLocationsModel::data(const QModelIndex &index, int role) const
{
    const Item *it = item(index);
    if (!it)
        return {};
    const CVLocationNode &n = m_library->locationNode(it->node);
    const int topNode = m_items[std::size_t(index.internalId())].node;
    const bool group = !n.hasParent;
    const bool drive = n.lcParentPath == u"locations"_s;
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
        if (group)
            return n.path;
        if (topNode != it->node) {
            // The folders that share the row, from the row above: "home/alice/Music".
            const QString &above = m_library->locationNode(topNode).parentPath;
            return n.path.mid(above.size()).chopped(1);
        }
        return CVVolumes::displayName(
            n.path.endsWith(u'/') && n.path.size() > 1 ? n.path.chopped(1) : n.path, m_startupDriveName);
    case Qt::ToolTipRole:
        return group ? QVariant() : QVariant(n.path);
    case Qt::DecorationRole:
        if (group)
            return {};
        if (drive)
            return CVIcons::icon(n.path == u"/"_s ? CVIcons::Kind::StartupDrive : CVIcons::Kind::Drive);
        return CVIcons::icon(n.isFile ? CVIcons::Kind::File : CVIcons::Kind::Folder);
    case Qt::FontRole:
        if (group || drive) {
            QFont font;
            font.setBold(true);
            if (group)
                font.setPointSizeF(font.pointSizeF() * 0.85);
            return font;
        }
        return {};
    case Qt::SizeHintRole:
        // Drives stand out: 39 points high, the rest 22.
        return QSize(-1, drive ? 39 : 22);
    case PathRole:
        return n.path;
    case LowerPathRole:
        return n.lcPath;
    case SharedLowerPathsRole: {
        // The row's folders, outermost first: every folder path from the top one down.
        const QString &top = m_library->locationNode(topNode).lcPath;
        QStringList paths { top };
        for (qsizetype at = n.lcPath.indexOf(u'/', top.size()); at >= 0; at = n.lcPath.indexOf(u'/', at + 1))
            paths.append(n.lcPath.left(at + 1));
        return paths;
    }
    case IsFileRole:
        return n.isFile;
    case IsDriveRole:
        return drive;
    default:
        return {};
    }
}

Qt::ItemFlags CVLocationsModel::flags(const QModelIndex &index) const
{
    const Item *it = item(index);
    if (!it)
        return Qt::NoItemFlags;
    const CVLocationNode &n = m_library->locationNode(it->node);
    // Rows without a parent are group rows: never selected.
    if (!n.hasParent)
        return Qt::ItemIsEnabled;
    Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled;
    if (n.isFile)
        f |= Qt::ItemNeverHasChildren;
    return f;
}

QStringList CVLocationsModel::mimeTypes() const
{
    return { QString::fromLatin1(CVPredicateArchive::MimeType) };
}

QMimeData *CVLocationsModel::mimeData(const QModelIndexList &indexes) const
{
    // The last dragged record's predicate.
    const CVLocationNode *n = indexes.isEmpty() ? nullptr : node(indexes.last());
    if (!n || !n->hasParent)
        return nullptr;
    auto *mime = new QMimeData;
    mime->setData(QString::fromLatin1(CVPredicateArchive::MimeType),
        CVPredicateArchive::archive(CVPredicate::fromText(m_library->trees().predicateForLocationPath(n->path))));
    return mime;
}

Qt::DropActions CVLocationsModel::supportedDragActions() const
{
    return Qt::CopyAction | Qt::MoveAction;
}
