#include "MainWindow/CVResultsModel.h"

#include "Views/CVIcons.h"

using namespace Qt::StringLiterals;

namespace {

QIcon iconFor(CVResultIcon icon)
{
    // One icon per outcome for the whole list: every row shares it.
    static const QIcon full = CVIcons::icon(CVIcons::Kind::ResultFullSuccess);
    static const QIcon link = CVIcons::icon(CVIcons::Kind::ResultLinkSuccess);
    static const QIcon skip = CVIcons::icon(CVIcons::Kind::ResultSkip);
    static const QIcon fail = CVIcons::icon(CVIcons::Kind::ResultFail);
    switch (icon) {
    case CVResultIcon::FullSuccess:
        return full;
    case CVResultIcon::LinkSuccess:
        return link;
    case CVResultIcon::Skip:
        return skip;
    case CVResultIcon::Fail:
        break;
    }
    return fail;
}

} // namespace

CVResultsModel::CVResultsModel(QObject *parent)
    : QAbstractListModel(parent)
{
}

void CVResultsModel::setRows(QList<CVShownResultRow> rows)
{
    beginResetModel();
    m_rows = std::move(rows);
    endResetModel();
}

CVTrack *CVResultsModel::track(int index) const
{
    return index >= 0 && index < m_rows.size() ? m_rows.at(index).trackObject : nullptr;
}

int CVResultsModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant CVResultsModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size())
        return {};
    const CVShownResultRow &row = m_rows.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return row.title;
    case Qt::ToolTipRole:
    case MessageRole:
        return row.message;
    case Qt::AccessibleTextRole:
        return QString(row.title + u". "_s + row.message);
    case Qt::DecorationRole:
        return iconFor(row.icon);
    case SortResultRole:
        return row.sortResult;
    case ResultIconRole:
        return int(row.icon);
    default:
        return {};
    }
}

Qt::ItemFlags CVResultsModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
}
