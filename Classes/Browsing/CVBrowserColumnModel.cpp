#include "Browsing/CVBrowserColumnModel.h"

#include "Library/CVPredicateArchive.h"

#include <QMimeData>

using namespace Qt::StringLiterals;

CVBrowserColumnModel::CVBrowserColumnModel(QObject *parent)
    : QAbstractListModel(parent)
{
}

bool CVBrowserColumnModel::setBrowserList(const CVBrowserList &list)
{
    if (list.keys == m_list.keys && list.rows == m_list.rows)
        return false;
    beginResetModel();
    m_list = list;
    endResetModel();
    return true;
}

int CVBrowserColumnModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_list.rows.size());
}

QVariant CVBrowserColumnModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_list.rows.size())
        return {};
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
        return m_list.rows.at(index.row());
    case KeyRole:
        return m_list.keys.value(index.row());
    default:
        return {};
    }
}

Qt::ItemFlags CVBrowserColumnModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled | Qt::ItemNeverHasChildren;
}

QStringList CVBrowserColumnModel::mimeTypes() const
{
    return { QString::fromLatin1(CVPredicateArchive::MimeType) };
}

QMimeData *CVBrowserColumnModel::mimeData(const QModelIndexList &indexes) const
{
    if (indexes.isEmpty() || !m_dragPredicate)
        return nullptr;
    // The first dragged row stands for the drag.
    auto *mime = new QMimeData;
    mime->setData(QString::fromLatin1(CVPredicateArchive::MimeType),
        CVPredicateArchive::archive(m_dragPredicate(indexes.first().row())));
    return mime;
}

Qt::DropActions CVBrowserColumnModel::supportedDragActions() const
{
    return Qt::CopyAction | Qt::MoveAction;
}

QString CVBrowserColumnModel::typeSelectText(int row) const
{
    // Typing never lands on "All": row 0 answers a blank, and so does the last row while row 0
    // is selected (so that wrapping around from "All" does not stop on it either).
    if (row == 0)
        return u" "_s;
    if (row == m_list.keys.size() - 1 && m_selectedRow && m_selectedRow() == 0)
        return u" "_s;
    return m_list.keys.value(row);
}

QModelIndexList CVBrowserColumnModel::match(
    const QModelIndex &start, int role, const QVariant &value, int hits, Qt::MatchFlags flags) const
{
    if (role != Qt::DisplayRole || !(flags & Qt::MatchStartsWith))
        return QAbstractListModel::match(start, role, value, hits, flags);
    const QString typed = value.toString();
    const int rows = rowCount();
    QModelIndexList found;
    const int first = start.isValid() ? start.row() : 0;
    const int span = flags & Qt::MatchWrap ? rows : rows - first;
    for (int i = 0; i < span && (hits < 0 || found.size() < hits); ++i) {
        const int row = (first + i) % rows;
        if (typeSelectText(row).startsWith(typed, Qt::CaseInsensitive))
            found.append(index(row));
    }
    return found;
}
