#include "Browsing/CVTrackColumns.h"

using namespace Qt::StringLiterals;

const QList<CVTrackColumn> &CVTrackColumns::all()
{
    using A = CVAttr;
    static const QList<CVTrackColumn> columns {
        { u"Name"_s, u"Name"_s, A::Name, A::SortName },
        { u"Time"_s, u"Time"_s, A::DisplayTime, A::TotalTime, true },
        { u"Artist"_s, u"Artist"_s, A::Artist, A::SortArtist },
        { u"AlbumArtist"_s, u"Album Artist"_s, A::AlbumArtist, A::SortAlbumArtist },
        { u"Album"_s, u"Album"_s, A::Album, A::SortAlbum },
        { u"Genre"_s, u"Genre"_s, A::Genre, A::SortGenre },
        { u"TrackNumber"_s, u"Track Number"_s, A::TrackNumber, A::TrackNumber, true },
        { u"DiscNumber"_s, u"Disc Number"_s, A::DisplayDiscNumber, A::DiscNumber, true },
        { u"Year"_s, u"Year"_s, A::Year, A::Year, true },
        { u"Rating"_s, u"Rating"_s, A::Rating, A::Rating },
        { u"AlbumRating"_s, u"Album Rating"_s, A::AlbumRating, A::AlbumRating },
        { u"Plays"_s, u"Plays"_s, A::Plays, A::Plays, true },
        { u"Skips"_s, u"Skips"_s, A::Skips, A::Skips, true },
        { u"LastPlayed"_s, u"Last Played"_s, A::LastPlayed, A::LastPlayed },
        { u"LastSkipped"_s, u"Last Skipped"_s, A::LastSkipped, A::LastSkipped },
        { u"DateAdded"_s, u"Date Added"_s, A::DateAdded, A::DateAdded },
        { u"DateModified"_s, u"Date Modified"_s, A::DateModified, A::DateModified },
        { u"ReleaseDate"_s, u"Release Date"_s, A::ReleaseDate, A::ReleaseDate },
        { u"Composer"_s, u"Composer"_s, A::Composer, A::SortComposer },
        { u"Grouping"_s, u"Grouping"_s, A::Grouping, A::Grouping },
        { u"Comments"_s, u"Comments"_s, A::Comments, A::Comments },
        { u"Description"_s, u"Description"_s, A::Description, A::Description },
        { u"Kind"_s, u"Kind"_s, A::Kind, A::Kind },
        { u"Size"_s, u"Size"_s, A::DisplaySize, A::Size, true },
        { u"BitRate"_s, u"Bit Rate"_s, A::DisplayBitRate, A::BitRate, true },
        { u"SampleRate"_s, u"Sample Rate"_s, A::DisplaySampleRate, A::SampleRate, true },
        { u"BPM"_s, u"Beats Per Minute"_s, A::BPM, A::BPM, true },
        { u"Equalizer"_s, u"Equalizer"_s, A::Equalizer, A::Equalizer },
        { u"Show"_s, u"Show"_s, A::Show, A::SortShow },
        { u"Season"_s, u"Season"_s, A::Season, A::SortSeason },
        { u"EpisodeID"_s, u"Episode ID"_s, A::EpisodeID, A::EpisodeID },
        { u"EpisodeNumber"_s, u"Episode Number"_s, A::EpisodeNumber, A::EpisodeNumber, true },
        { u"SortName"_s, u"Sort Name"_s, A::SortName, A::SortName },
        { u"SortArtist"_s, u"Sort Artist"_s, A::SortArtist, A::SortArtist },
        { u"SortAlbumArtist"_s, u"Sort Album Artist"_s, A::SortAlbumArtist, A::SortAlbumArtist },
        { u"SortAlbum"_s, u"Sort Album"_s, A::SortAlbum, A::SortAlbum },
        { u"SortComposer"_s, u"Sort Composer"_s, A::SortComposer, A::SortComposer },
        { u"SortShow"_s, u"Sort Show"_s, A::SortShow, A::SortShow },
        { u"ItemIsSpanned"_s, u"Spanned"_s, A::ItemIsSpanned, A::ItemIsSpanned },
        { u"ItemIsRestored"_s, u"Restored"_s, A::ItemIsRestored, A::ItemIsRestored },
        { u"FullSpan"_s, u"Fully Spanned / Restored"_s, A::FullSpan, A::FullSpan },
        { u"SymSpan"_s, u"Dependently Spanned / Restored"_s, A::SymSpan, A::SymSpan },
        { u"SpanLocation"_s, u"Span Location"_s, A::SpanLocation, A::SpanLocation },
        { u"LastSpanDate"_s, u"Last Spanned"_s, A::LastSpanDate, A::LastSpanDate },
        { u"LastRestoreDate"_s, u"Last Restored"_s, A::LastRestoreDate, A::LastRestoreDate },
        // The span state at a glance; its cells are made by the track list, not read from one attribute.
        { QString::fromLatin1(SmartColumn), u"Smart Rows"_s, A::ItemIsSpanned, A::ItemIsSpanned },
    };
    return columns;
}

int CVTrackColumns::indexOf(const QString &identifier)
{
    const QList<CVTrackColumn> &columns = all();
    for (int i = 0; i < columns.size(); ++i)
        if (columns[i].identifier == identifier)
            return i;
    return -1;
}

QStringList CVTrackColumns::defaultIdentifiers()
{
    return { u"Name"_s, u"Time"_s, u"Artist"_s, u"Album"_s, u"Genre"_s, u"Rating"_s, u"Plays"_s, u"ItemIsSpanned"_s,
        u"SpanLocation"_s };
}

QStringList CVTrackColumns::placeSmartColumn(QStringList identifiers, int position)
{
    const QString smart = QString::fromLatin1(SmartColumn);
    if (identifiers.removeAll(smart) == 0)
        return identifiers;
    if (position == 0)
        identifiers.prepend(smart);
    else
        identifiers.append(smart);
    return identifiers;
}
