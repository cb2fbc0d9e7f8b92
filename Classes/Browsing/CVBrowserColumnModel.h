#pragma once

#include "Library/CVPredicate.h"
#include "Library/CVSelection.h"

#include <QAbstractListModel>

#include <functional>

// One column of the library browser: the rows of a browser list ("All (12 Genres)", then the
// values), the keys that selecting them selects, and the drag data of a row.
class CVBrowserColumnModel : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role { KeyRole = Qt::UserRole + 1 };

    explicit CVBrowserColumnModel(QObject *parent = nullptr);

    // Hands the rows to the view only when they changed; true when they did.
    bool setBrowserList(const CVBrowserList &list);
    const CVBrowserList &browserList() const { return m_list; }
    QString key(int row) const { return m_list.keys.value(row); }
    QString rowText(int row) const { return m_list.rows.value(row); }
    // The predicate a dragged row carries.
    void setDragPredicate(std::function<CVPredicate(int row)> predicate) { m_dragPredicate = std::move(predicate); }
    // The row selected now, for type-to-select ("All" is never landed on).
    void setSelectedRow(std::function<int()> selectedRow) { m_selectedRow = std::move(selectedRow); }

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QStringList mimeTypes() const override;
    QMimeData *mimeData(const QModelIndexList &indexes) const override;
    Qt::DropActions supportedDragActions() const override;
    QModelIndexList match(
        const QModelIndex &start, int role, const QVariant &value, int hits, Qt::MatchFlags flags) const override;

private:
    QString typeSelectText(int row) const;

    CVBrowserList m_list;
    std::function<CVPredicate(int)> m_dragPredicate;
    std::function<int()> m_selectedRow;
};
