#pragma once

#include <QLatin1StringView>
#include <QString>

#include <cstdint>
#include <optional>

// Every attribute of a track record, named as in predicates, columns, drag data and the
// history store. The order groups the attributes by their storage slot kind.
enum class CVAttr : std::uint8_t {
    // Texts
    PersistentID,
    LibraryPersistentID,
    Name,
    Artist,
    Album,
    AlbumArtist,
    Genre,
    Composer,
    Grouping,
    Comments,
    Description,
    Kind,
    Equalizer,
    Show,
    EpisodeID,
    MediaType,
    SortName,
    SortArtist,
    SortAlbum,
    SortAlbumArtist,
    SortComposer,
    SortGenre,
    SortShow,
    Location,
    OriginalLocation,
    SpanLocation,
    LastSpanLocation,
    BaseSpanPath,
    DisplaySpanLocation,
    // Integers
    TrackID,
    SortSeason,
    EpisodeNumber,
    Year,
    TrackNumber,
    TrackCount,
    DiscNumber,
    DiscCount,
    BPM,
    Skips,
    Plays,
    BitRate,
    Rating,
    AlbumRating,
    Compilation,
    // Reals
    SampleRate,
    Size,
    TotalTime,
    // Dates
    DateAdded,
    DateModified,
    ReleaseDate,
    LastPlayed,
    LastSkipped,
    LastSpanDate,
    LastRestoreDate,
    // Booleans
    ItemIsSpanned,
    FullSpan,
    SymSpan,
    ItemIsRestored,
    // Texts derived from the stored values when read
    Season,
    DisplaySize,
    DisplayTime,
    DisplaySampleRate,
    DisplayBitRate,
    DisplayDiscNumber,
    Count
};

enum class CVAttrType : std::uint8_t { Text, Integer, Real, Date, Boolean, Derived };

inline constexpr int kCVAttrCount = int(CVAttr::Count);
inline constexpr int kCVTextSlots = int(CVAttr::TrackID);
inline constexpr int kCVIntegerSlots = int(CVAttr::SampleRate) - int(CVAttr::TrackID);
inline constexpr int kCVRealSlots = int(CVAttr::DateAdded) - int(CVAttr::SampleRate);
inline constexpr int kCVDateSlots = int(CVAttr::ItemIsSpanned) - int(CVAttr::DateAdded);

namespace CVAttribute {

constexpr CVAttrType type(CVAttr a)
{
    const int i = int(a);
    if (i < int(CVAttr::TrackID))
        return CVAttrType::Text;
    if (i < int(CVAttr::SampleRate))
        return CVAttrType::Integer;
    if (i < int(CVAttr::DateAdded))
        return CVAttrType::Real;
    if (i < int(CVAttr::ItemIsSpanned))
        return CVAttrType::Date;
    if (i < int(CVAttr::Season))
        return CVAttrType::Boolean;
    return CVAttrType::Derived;
}

// Index of the attribute within the slots of its kind.
constexpr int slot(CVAttr a)
{
    switch (type(a)) {
    case CVAttrType::Text:
        return int(a);
    case CVAttrType::Integer:
        return int(a) - int(CVAttr::TrackID);
    case CVAttrType::Real:
        return int(a) - int(CVAttr::SampleRate);
    case CVAttrType::Date:
        return int(a) - int(CVAttr::DateAdded);
    case CVAttrType::Boolean:
        return int(a) - int(CVAttr::ItemIsSpanned);
    case CVAttrType::Derived:
        return int(a) - int(CVAttr::Season);
    }
    return 0;
}

QLatin1StringView name(CVAttr a);
std::optional<CVAttr> fromName(QStringView name);

} // namespace CVAttribute
