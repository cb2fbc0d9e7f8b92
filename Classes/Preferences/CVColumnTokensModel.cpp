#include "Preferences/CVColumnTokensModel.h"

#include "Browsing/CVTrackColumns.h"

#include <QMimeData>

using namespace Qt::StringLiterals;

CVColumnTokensModel::CVColumnTokensModel(QObject *parent)
    : QAbstractListModel(parent)
{
}

void CVColumnTokensModel::setIdentifiers(const QStringList &identifiers)
{
    QStringList known;
    for (const QString &id : identifiers)
        if (CVTrackColumns::indexOf(id) >= 0 && !known.contains(id))
            known.append(id);
    if (known == m_identifiers)
        return;
    beginResetModel();
    m_identifiers = known;
    endResetModel();
}

bool CVColumnTokensModel::moveToken(int from, int to)
{
    if (from < 0 || from >= m_identifiers.size() || to < 0 || to > m_identifiers.size() || to == from || to == from + 1)
        return false;
    beginMoveRows({}, from, from, {}, to);
    m_identifiers.move(from, to > from ? to - 1 : to);
    endMoveRows();
    return true;
}

int CVColumnTokensModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_identifiers.size());
}

QVariant CVColumnTokensModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const QString &id = m_identifiers[index.row()];
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
        return CVTrackColumns::all()[CVTrackColumns::indexOf(id)].title;
    case Qt::UserRole:
        return id;
    default:
        return {};
    }
}

Qt::ItemFlags CVColumnTokensModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::ItemIsDropEnabled;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled | Qt::ItemNeverHasChildren;
}

Qt::DropActions CVColumnTokensModel::supportedDropActions() const
{
    return Qt::MoveAction;
}

QStringList CVColumnTokensModel::mimeTypes() const
{
    return { QString::fromLatin1(MimeType) };
}

QMimeData *CVColumnTokensModel::mimeData(const QModelIndexList &indexes) const
{
    if (indexes.isEmpty())
        return nullptr;
    auto *mime = new QMimeData;
    // One token moves at a time: the list selects single rows.
    mime->setData(QString::fromLatin1(MimeType), QByteArray::number(indexes.first().row()));
    return mime;
}

bool CVColumnTokensModel::canDropMimeData(
    const QMimeData *data, Qt::DropAction action, int, int, const QModelIndex &parent) const
{
    return action == Qt::MoveAction && !parent.isValid() && data && data->hasFormat(QString::fromLatin1(MimeType));
}

bool CVColumnTokensModel::dropMimeData(
    const QMimeData *data, Qt::DropAction action, int row, int column, const QModelIndex &parent)
{
    if (!canDropMimeData(data, action, row, column, parent))
        return false;
    bool ok = false;
    const int from = data->data(QString::fromLatin1(MimeType)).toInt(&ok);
    if (!ok)
        return false;
    const int to = row < 0 ? int(m_identifiers.size()) : row;
    if (moveToken(from, to))
        Q_EMIT tokensMoved();
    // The move is done here: the view must not remove the dragged row afterwards.
    return false;
}
