#pragma once

#include "Engine/CVResultRow.h"

#include <QAbstractListModel>

class CVTrack;

// The results list of a finished run: one row per track, in the order the engine sorted them
// (full successes, dependents, failures, skips; then artist, album, number, name). The rows
// hold their texts; the track pointer is only good until the next load, which empties this.
class CVResultsModel : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role { MessageRole = Qt::UserRole + 1, SortResultRole, ResultIconRole };

    explicit CVResultsModel(QObject *parent = nullptr);

    void setRows(QList<CVShownResultRow> rows);
    void clear() { setRows({}); }
    const CVShownResultRow &row(int index) const { return m_rows.at(index); }
    CVTrack *track(int index) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

private:
    QList<CVShownResultRow> m_rows;
};
