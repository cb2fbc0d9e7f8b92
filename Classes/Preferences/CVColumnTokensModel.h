#pragma once

#include <QAbstractListModel>
#include <QStringList>

// The track list's shown columns as a list of tokens: a row per column, its display name shown,
// its key (the column's identifier) under Qt::UserRole. Rows are dragged within the list to
// reorder them; a drop from outside is refused.
class CVColumnTokensModel : public QAbstractListModel {
    Q_OBJECT

public:
    static constexpr auto MimeType = "application/x-corvana-column-tokens";

    explicit CVColumnTokensModel(QObject *parent = nullptr);

    QStringList identifiers() const { return m_identifiers; }
    // Unknown keys and repeats are dropped.
    void setIdentifiers(const QStringList &identifiers);
    // Moves the row to before the row `to` (rowCount() for the end); false when nothing moved.
    bool moveToken(int from, int to);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    Qt::DropActions supportedDropActions() const override;
    QStringList mimeTypes() const override;
    QMimeData *mimeData(const QModelIndexList &indexes) const override;
    bool canDropMimeData(
        const QMimeData *data, Qt::DropAction action, int row, int column, const QModelIndex &parent) const override;
    bool dropMimeData(
        const QMimeData *data, Qt::DropAction action, int row, int column, const QModelIndex &parent) override;

Q_SIGNALS:
    // The user changed the tokens (a move by drag).
    void tokensMoved();

private:
    QStringList m_identifiers;
};
