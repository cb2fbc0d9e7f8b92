#include "Library/CVAttribute.h"

#include <QHash>

#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr std::array<QLatin1StringView, kCVAttrCount> kNames = {
    "PersistentID"_L1,
    "LibraryPersistentID"_L1,
    "Name"_L1,
    "Artist"_L1,
    "Album"_L1,
    "AlbumArtist"_L1,
    "Genre"_L1,
    "Composer"_L1,
    "Grouping"_L1,
    "Comments"_L1,
    "Description"_L1,
    "Kind"_L1,
    "Equalizer"_L1,
    "Show"_L1,
    "EpisodeID"_L1,
    "MediaType"_L1,
    "SortName"_L1,
    "SortArtist"_L1,
    "SortAlbum"_L1,
    "SortAlbumArtist"_L1,
    "SortComposer"_L1,
    "SortGenre"_L1,
    "SortShow"_L1,
    "Location"_L1,
    "OriginalLocation"_L1,
    "SpanLocation"_L1,
    "LastSpanLocation"_L1,
    "BaseSpanPath"_L1,
    "DisplaySpanLocation"_L1,
    "TrackID"_L1,
    "SortSeason"_L1,
    "EpisodeNumber"_L1,
    "Year"_L1,
    "TrackNumber"_L1,
    "TrackCount"_L1,
    "DiscNumber"_L1,
    "DiscCount"_L1,
    "BPM"_L1,
    "Skips"_L1,
    "Plays"_L1,
    "BitRate"_L1,
    "Rating"_L1,
    "AlbumRating"_L1,
    "Compilation"_L1,
    "SampleRate"_L1,
    "Size"_L1,
    "TotalTime"_L1,
    "DateAdded"_L1,
    "DateModified"_L1,
    "ReleaseDate"_L1,
    "LastPlayed"_L1,
    "LastSkipped"_L1,
    "LastSpanDate"_L1,
    "LastRestoreDate"_L1,
    "ItemIsSpanned"_L1,
    "FullSpan"_L1,
    "SymSpan"_L1,
    "ItemIsRestored"_L1,
    "Season"_L1,
    "DisplaySize"_L1,
    "DisplayTime"_L1,
    "DisplaySampleRate"_L1,
    "DisplayBitRate"_L1,
    "DisplayDiscNumber"_L1,
};

} // namespace

QLatin1StringView CVAttribute::name(CVAttr a)
{
    return kNames[std::size_t(a)];
}

std::optional<CVAttr> CVAttribute::fromName(QStringView name)
{
    static const QHash<QString, CVAttr> byName = [] {
        QHash<QString, CVAttr> h;
        for (int i = 0; i < kCVAttrCount; ++i)
            h.insert(QString(kNames[std::size_t(i)]), CVAttr(i));
        return h;
    }();
    const auto it = byName.constFind(name.toString());
    if (it == byName.cend())
        return std::nullopt;
    return *it;
}
