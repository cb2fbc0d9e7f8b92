#include "Browsing/CVTrackListModel.h"

#include "Browsing/CVTrackColumns.h"
#include "Library/CVPredicate.h"
#include "Library/CVPredicateArchive.h"
#include "Library/CVTrack.h"

#include <QMimeData>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Absent values sort first; then by the attribute's own kind.
int compareTracks(const CVTrack &a, const CVTrack &b, CVAttr attr)
{
    const bool ha = a.has(attr), hb = b.has(attr);
    if (ha != hb)
        return ha ? 1 : -1;
    if (!ha)
        return 0;
    switch (CVAttribute::type(attr)) {
    case CVAttrType::Text:
        return a.textRef(attr).compare(b.textRef(attr));
    case CVAttrType::Integer: {
        const qint64 x = a.integer(attr), y = b.integer(attr);
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    case CVAttrType::Real: {
        const double x = a.real(attr), y = b.real(attr);
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    case CVAttrType::Date: {
        const qint64 x = a.date(attr), y = b.date(attr);
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    case CVAttrType::Boolean:
        return int(a.flag(attr)) - int(b.flag(attr));
    case CVAttrType::Derived:
        return a.text(attr).compare(b.text(attr));
    }
    return 0;
}

} // namespace

CVTrackListModel::CVTrackListModel(QObject *parent)
    : QAbstractTableModel(parent)
    , m_typeSelect(CVAttr::SortArtist)
{
}

bool CVTrackListModel::setTracks(const CVTrackList &tracks)
{
    if (tracks == m_tracks)
        return false;
    beginResetModel();
    m_tracks = tracks;
    m_order.clear();
    applySort();
    endResetModel();
    return true;
}

CVTrack *CVTrackListModel::track(int row) const
{
    if (!m_tracks || row < 0 || std::size_t(row) >= m_tracks->tracks.size())
        return nullptr;
    return m_tracks->tracks[m_order.empty() ? std::size_t(row) : std::size_t(m_order[std::size_t(row)])];
}

int CVTrackListModel::rowOfTrack(const CVTrack *track) const
{
    if (!m_tracks)
        return -1;
    const auto &list = m_tracks->tracks;
    const auto it = std::find(list.cbegin(), list.cend(), track);
    if (it == list.cend())
        return -1;
    const int index = int(it - list.cbegin());
    if (m_order.empty())
        return index;
    return int(std::find(m_order.cbegin(), m_order.cend(), index) - m_order.cbegin());
}

int CVTrackListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : trackCount();
}

int CVTrackListModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(CVTrackColumns::all().size());
}

QString CVTrackListModel::cellText(const CVTrack &track, int column)
{
    static const int smart = CVTrackColumns::indexOf(QString::fromLatin1(CVTrackColumns::SmartColumn));
    const CVTrackColumn &c = CVTrackColumns::all()[column];
    if (column == smart) {
        if (track.flag(CVAttr::ItemIsSpanned))
            return track.flag(CVAttr::SymSpan) ? u"\u25D0 Spanned, linked"_s : u"\u25CF Spanned"_s;
        return track.flag(CVAttr::ItemIsRestored) ? u"\u25CB Restored"_s : QString();
    }
    if (!track.has(c.shown))
        return {};
    switch (CVAttribute::type(c.shown)) {
    case CVAttrType::Text:
        return track.textRef(c.shown); // shared with the track: no copy
    case CVAttrType::Boolean:
        return track.flag(c.shown) ? u"Yes"_s : QString();
    default:
        break;
    }
    if (c.shown == CVAttr::Rating || c.shown == CVAttr::AlbumRating) {
        const int stars = int(std::clamp<qint64>(track.integer(c.shown), 0, 5));
        return QString(stars, QChar(0x2605)) + QString(5 - stars, QChar(0x2606));
    }
    return track.text(c.shown);
}

QString CVTrackListModel::toolTipForTrack(const CVTrack &t)
{
    QString artist, album;
    if (t.textRef(CVAttr::MediaType) == u"TV Shows"_s) {
        artist = t.text(CVAttr::Show);
        album = t.text(CVAttr::Season);
    } else {
        artist = t.has(CVAttr::AlbumArtist) ? t.textRef(CVAttr::AlbumArtist)
            : t.has(CVAttr::Artist)         ? t.textRef(CVAttr::Artist)
                                            : u"Unknown Artist"_s;
        album = t.has(CVAttr::Album) ? t.textRef(CVAttr::Album) : u"Unknown Album"_s;
    }
    const QString path = t.has(CVAttr::SpanLocation) ? t.textRef(CVAttr::SpanLocation) : t.textRef(CVAttr::Location);
    return u"%1\n%2 \u00B7 %3\n\n%4"_s.arg(t.textRef(CVAttr::Name), artist, album, path);
}

QVariant CVTrackListModel::data(const QModelIndex &index, int role) const
{
    const CVTrack *t = track(index.row());
    if (!t)
        return {};
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
        return cellText(*t, index.column());
    case Qt::ToolTipRole:
        return toolTipForTrack(*t);
    case Qt::TextAlignmentRole:
        return QVariant::fromValue(
            Qt::AlignVCenter | (CVTrackColumns::all()[index.column()].alignRight ? Qt::AlignRight : Qt::AlignLeft));
    default:
        return {};
    }
}

QVariant CVTrackListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= columnCount())
        return {};
    const CVTrackColumn &c = CVTrackColumns::all()[section];
    if (role == Qt::DisplayRole || role == Qt::AccessibleTextRole)
        return c.title;
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue(Qt::AlignVCenter | (c.alignRight ? Qt::AlignRight : Qt::AlignLeft));
    return {};
}

Qt::ItemFlags CVTrackListModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled | Qt::ItemNeverHasChildren;
}

void CVTrackListModel::sort(int column, Qt::SortOrder order)
{
    if (column == m_sortColumn && order == m_sortOrder)
        return;
    Q_EMIT layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList before = persistentIndexList();
    QList<const CVTrack *> tracksBefore;
    for (const QModelIndex &i : before)
        tracksBefore.append(track(i.row()));
    m_sortColumn = column;
    m_sortOrder = order;
    applySort();
    QModelIndexList after;
    for (qsizetype i = 0; i < before.size(); ++i) {
        const int row = tracksBefore[i] ? rowOfTrack(tracksBefore[i]) : -1;
        after.append(row < 0 ? QModelIndex() : index(row, before[i].column()));
    }
    changePersistentIndexList(before, after);
    Q_EMIT layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

void CVTrackListModel::applySort()
{
    m_order.clear();
    if (m_sortColumn < 0 || m_sortColumn >= columnCount() || !m_tracks)
        return;
    const auto &list = m_tracks->tracks;
    m_order.resize(list.size());
    for (std::size_t i = 0; i < m_order.size(); ++i)
        m_order[i] = int(i);
    const CVAttr attr = CVTrackColumns::all()[m_sortColumn].sortedBy;
    const bool descending = m_sortOrder == Qt::DescendingOrder;
    // Stable: equal values keep the selection's own order (artist, album, disc, track).
    std::stable_sort(m_order.begin(), m_order.end(), [&](int a, int b) {
        const int c = compareTracks(*list[std::size_t(a)], *list[std::size_t(b)], attr);
        return descending ? c > 0 : c < 0;
    });
}

CVPredicate CVTrackListModel::predicateForTracks(const std::vector<const CVTrack *> &tracks)
{
    std::vector<qint64> ids;
    ids.reserve(tracks.size());
    for (const CVTrack *t : tracks)
        if (t && t->has(CVAttr::TrackID))
            ids.push_back(t->integer(CVAttr::TrackID));
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return CVPredicate::forTrackIDs(std::move(ids));
}

QStringList CVTrackListModel::mimeTypes() const
{
    return { QString::fromLatin1(CVPredicateArchive::MimeType) };
}

QMimeData *CVTrackListModel::mimeData(const QModelIndexList &indexes) const
{
    std::vector<const CVTrack *> dragged;
    for (const QModelIndex &i : indexes)
        if (i.column() == indexes.first().column())
            dragged.push_back(track(i.row()));
    if (dragged.empty())
        return nullptr;
    auto *mime = new QMimeData;
    mime->setData(
        QString::fromLatin1(CVPredicateArchive::MimeType), CVPredicateArchive::archive(predicateForTracks(dragged)));
    return mime;
}

Qt::DropActions CVTrackListModel::supportedDragActions() const
{
    return Qt::CopyAction | Qt::MoveAction;
}

QModelIndexList CVTrackListModel::match(
    const QModelIndex &start, int role, const QVariant &value, int hits, Qt::MatchFlags flags) const
{
    if (role != Qt::DisplayRole || !(flags & Qt::MatchStartsWith))
        return QAbstractTableModel::match(start, role, value, hits, flags);
    // Sort strings are lower case without leading punctuation: so is what is compared.
    const QString typed = value.toString().toLower();
    const int rows = rowCount();
    QModelIndexList found;
    if (rows == 0)
        return found;
    const int first = start.isValid() ? start.row() : 0;
    const int span = flags & Qt::MatchWrap ? rows : rows - first;
    for (int i = 0; i < span && (hits < 0 || found.size() < hits); ++i) {
        const int row = (first + i) % rows;
        if (track(row)->textRef(m_typeSelect).startsWith(typed))
            found.append(index(row, start.isValid() ? start.column() : 0));
    }
    return found;
}
