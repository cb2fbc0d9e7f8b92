#pragma once

#include <QLatin1StringView>
#include <QString>
#include <QVariant>

#include <array>
#include <cstdint>
#include <optional>

// The attributes of a span history record (entity "Tracks"), in the store's column order.
enum class CVSpanAttr : std::uint8_t {
    PersistentID,
    LibraryPersistentID,
    TrackID,
    TrackNumber,
    DiscNumber,
    MediaType,
    Name,
    Artist,
    Album,
    AlbumArtist,
    SortName,
    SortArtist,
    SortAlbum,
    Kind,
    Size,
    TotalTime,
    ITunesLocation,
    OriginalLocation,
    SpanLocation,
    LastSpanLocation,
    BaseSpanPath,
    LastSpanDate,
    LastRestoreDate,
    FullSpan,
    SymSpan,
    ItemIsRestored,
    RemovedFromITunes,
    NeedsVerification,
    Count
};

inline constexpr int kCVSpanAttrCount = int(CVSpanAttr::Count);

enum class CVSpanAttrType : std::uint8_t { Text, Integer, Real, Date, Boolean };

// One span history record. Absent values are invalid QVariants; dates are seconds since
// 1970 UTC (as doubles, as the store keeps them).
class CVSpanRecord {
public:
    static QLatin1StringView name(CVSpanAttr a);
    static CVSpanAttrType type(CVSpanAttr a);

    bool has(CVSpanAttr a) const { return m_values[std::size_t(a)].isValid(); }
    QVariant value(CVSpanAttr a) const { return m_values[std::size_t(a)]; }
    QString text(CVSpanAttr a) const { return m_values[std::size_t(a)].toString(); }
    bool flag(CVSpanAttr a) const { return m_values[std::size_t(a)].toBool(); }
    std::optional<double> date(CVSpanAttr a) const
    {
        return has(a) ? std::optional<double>(m_values[std::size_t(a)].toDouble()) : std::nullopt;
    }

    // Marks the record changed when the value differs, so a save writes only what changed.
    void setValue(CVSpanAttr a, const QVariant &v);

    qint64 rowID() const { return m_rowID; }
    bool isChanged() const { return m_changed; }
    // A value as read from the store, without the change bookkeeping.
    void setStoredValue(CVSpanAttr a, QVariant v) { m_values[std::size_t(a)] = std::move(v); }
    // The store's bookkeeping: which row holds the record and whether it is written.
    void setStored(qint64 rowID)
    {
        m_rowID = rowID;
        m_changed = false;
    }

private:
    std::array<QVariant, kCVSpanAttrCount> m_values;
    qint64 m_rowID = 0;
    bool m_changed = true;
};
