#pragma once

#include "Library/CVAttribute.h"
#include "Library/CVPredicate.h"
#include "Library/CVTrackList.h"

#include <QAbstractTableModel>

#include <optional>
#include <vector>

class CVTrack;

// The track list: a view onto a selection. It keeps the selection's list of pointers (shared,
// never copied) and, only while the user sorts by a column, one array of row numbers; a cell's
// text is read from the track when the view asks for it, so nothing is kept per row.
class CVTrackListModel : public QAbstractTableModel {
    Q_OBJECT

public:
    explicit CVTrackListModel(QObject *parent = nullptr);

    // True when the tracks changed (a new selection list).
    bool setTracks(const CVTrackList &tracks);
    const CVTrackList &tracks() const { return m_tracks; }
    CVTrack *track(int row) const;
    int rowOfTrack(const CVTrack *track) const;
    int trackCount() const { return m_tracks ? int(m_tracks->tracks.size()) : 0; }
    // The attribute that typing in the list matches against (a sort string).
    void setTypeSelectAttribute(CVAttr attribute) { m_typeSelect = attribute; }
    // The drag's predicate: the dragged tracks' TrackIDs, ascending.
    static CVPredicate predicateForTracks(const std::vector<const CVTrack *> &tracks);
    // The column sorted by, or -1 for the selection's own order.
    int sortColumn() const { return m_sortColumn; }
    Qt::SortOrder sortOrder() const { return m_sortOrder; }

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    void sort(int column, Qt::SortOrder order) override;
    QStringList mimeTypes() const override;
    QMimeData *mimeData(const QModelIndexList &indexes) const override;
    Qt::DropActions supportedDragActions() const override;
    QModelIndexList match(
        const QModelIndex &start, int role, const QVariant &value, int hits, Qt::MatchFlags flags) const override;

    static QString toolTipForTrack(const CVTrack &track);
    static QString cellText(const CVTrack &track, int column);

private:
    void applySort();

    CVTrackList m_tracks;
    std::vector<int> m_order; // row -> index into the list, only while sorted by a column
    int m_sortColumn = -1;
    Qt::SortOrder m_sortOrder = Qt::AscendingOrder;
    CVAttr m_typeSelect;
};
