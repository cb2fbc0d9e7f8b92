#include "Library/CVStrawberryReader.h"

#include "Library/CVFormatters.h"
#include "Library/CVStrawberryDB.h"
#include "Library/CVStringInterner.h"

#include <QHash>

#include <sqlite3.h>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;
using CVStrawberryDB::Statement;

namespace {

enum Column {
    RowID,
    Title,
    Album,
    Artist,
    AlbumArtist,
    Composer,
    Genre,
    Comment,
    Track,
    Disc,
    Year,
    Length,
    Bitrate,
    Samplerate,
    Url,
    Filesize,
    Mtime,
    Ctime,
    Playcount,
    Skipcount,
    Lastplayed,
    Rating,
    Compilation,
    Filetype,
};

// Strawberry keeps -1 for "none" in its whole-number columns.
bool known(const Statement &s, int column)
{
    return !s.isNull(column) && s.integer(column) > 0;
}

// Strawberry's file types, by its enum, as the Kind column shows them.
QString kindOf(qint64 type)
{
    static const char *const kinds[] = { nullptr, nullptr, "WAV", "FLAC", "WavPack", "Ogg FLAC", "Ogg Vorbis",
        "Ogg Opus", "Ogg Speex", "MPEG", "MPEG-4", "ASF", "AIFF", "MPC", "TrueAudio", "DSF", "DSDIFF", "PCM", "APE" };
    if (type > 0 && type < qint64(std::size(kinds)) && kinds[type])
        return QString::fromLatin1(kinds[type]) + u" audio file"_s;
    return u"Audio file"_s;
}

} // namespace

CVStrawberryReader::CVStrawberryReader(Options options)
    : m_options(std::move(options))
{
}

bool CVStrawberryReader::readFile(const QString &path, CVLibraryContents &out)
{
    out = CVLibraryContents();
    CVStrawberryDB::Connection db;
    if (!db.open(path, false)) {
        m_error = db.errorString();
        return false;
    }
    if (!db.schemaVersion(&m_error))
        return false;
    // Reading under one transaction sees one state of the database, even while it is written.
    db.exec("BEGIN");

    qint64 total = 0;
    if (m_options.progress) {
        Statement count(db, "SELECT count(*) FROM songs");
        if (count && count.step() == SQLITE_ROW)
            total = count.integer(0);
    }
    Statement songs(db,
        "SELECT ROWID, title, album, artist, albumartist, composer, genre, comment, track, disc, year, length, "
        "bitrate, samplerate, url, filesize, mtime, ctime, playcount, skipcount, lastplayed, rating, "
        "compilation_effective, filetype FROM songs WHERE url LIKE 'file:%' ORDER BY ROWID");
    if (!songs) {
        m_error = u"The Strawberry collection cannot be read: %1"_s.arg(db.lastError());
        return false;
    }
    const QString libraryID = CVStrawberryDB::libraryPersistentID(path);
    out.persistentID = libraryID;

    CVStringInterner interner;
    std::array<CVStringInterner::Entry *, kCVTextSlots> lastInterned {};
    const QString music = u"Music"_s;
    const QString books = u"Books"_s;
    QHash<QByteArray, qint64> byURL;
    QHash<qint64, QString> kinds;
    qint64 read = 0;
    int rc;
    while ((rc = songs.step()) == SQLITE_ROW) {
        if (m_options.progress && ++read % 2000 == 0)
            m_options.progress(read, std::max(total, read));
        const QByteArrayView url = songs.text(Url);
        const std::optional<QString> location = CVStrawberryDB::pathFromURL(url);
        if (!location)
            continue;
        CVTrack &track = out.tracks.emplace_back();
        const qint64 rowID = songs.integer(RowID);
        byURL.insert(url.toByteArray(), rowID);
        track.setInteger(CVAttr::TrackID, rowID);
        track.setText(CVAttr::PersistentID, CVStrawberryDB::persistentIDOf(rowID));
        track.setText(CVAttr::LibraryPersistentID, libraryID);
        track.setText(CVAttr::Location, *location);

        const auto interned = [&](CVAttr attr, int column) -> const QString * {
            const QByteArrayView text = songs.text(column);
            if (text.isEmpty())
                return nullptr;
            CVStringInterner::Entry *&last = lastInterned[std::size_t(attr)];
            const std::string_view view(text.data(), std::size_t(text.size()));
            if (!last || last->first != view)
                last = &interner.entry(view);
            track.setText(attr, last->second);
            return &last->second;
        };
        const auto sorted = [&](CVAttr attr, CVAttr sortAttr, int column) {
            CVStringInterner::Entry *&last = lastInterned[std::size_t(attr)];
            if (!interned(attr, column))
                return;
            if (last->derived.isNull())
                last->derived = CVFormatters::customSortString(QString(), last->second);
            track.setText(sortAttr, last->derived);
        };
        const QString title = QString::fromUtf8(songs.text(Title));
        track.setText(CVAttr::Name, title);
        track.setText(CVAttr::SortName, CVFormatters::customSortString(QString(), title));
        sorted(CVAttr::Album, CVAttr::SortAlbum, Album);
        sorted(CVAttr::Artist, CVAttr::SortArtist, Artist);
        sorted(CVAttr::AlbumArtist, CVAttr::SortAlbumArtist, AlbumArtist);
        sorted(CVAttr::Composer, CVAttr::SortComposer, Composer);
        const QString *genre = nullptr;
        {
            genre = interned(CVAttr::Genre, Genre);
            CVStringInterner::Entry *last = lastInterned[std::size_t(CVAttr::Genre)];
            if (genre) {
                if (last->derived.isNull())
                    last->derived = CVFormatters::customSortString(QString(), last->second);
                track.setText(CVAttr::SortGenre, last->derived);
            }
        }
        if (!songs.text(Comment).isEmpty())
            track.setText(CVAttr::Comments, QString::fromUtf8(songs.text(Comment)));
        if (known(songs, Track))
            track.setInteger(CVAttr::TrackNumber, songs.integer(Track));
        if (known(songs, Disc))
            track.setInteger(CVAttr::DiscNumber, songs.integer(Disc));
        if (known(songs, Year))
            track.setInteger(CVAttr::Year, songs.integer(Year));
        // Nanoseconds.
        track.setReal(CVAttr::TotalTime, known(songs, Length) ? double(songs.integer(Length)) / 1e6 : 0.0);
        if (known(songs, Bitrate))
            track.setInteger(CVAttr::BitRate, songs.integer(Bitrate));
        if (known(songs, Samplerate))
            track.setReal(CVAttr::SampleRate, double(songs.integer(Samplerate)));
        track.setReal(CVAttr::Size, known(songs, Filesize) ? double(songs.integer(Filesize)) : 0.0);
        if (known(songs, Mtime))
            track.setDate(CVAttr::DateModified, songs.integer(Mtime));
        if (known(songs, Ctime))
            track.setDate(CVAttr::DateAdded, songs.integer(Ctime));
        if (known(songs, Lastplayed))
            track.setDate(CVAttr::LastPlayed, songs.integer(Lastplayed));
        track.setInteger(CVAttr::Plays, std::max<qint64>(0, songs.integer(Playcount)));
        if (known(songs, Skipcount))
            track.setInteger(CVAttr::Skips, songs.integer(Skipcount));
        // A fraction of five stars; -1 is "not rated".
        const double rating = songs.real(Rating);
        track.setInteger(
            CVAttr::Rating, rating > 0 ? qBound(qint64(0), qint64(std::lround(rating * 5)), qint64(5)) : 0);
        if (songs.integer(Compilation) > 0)
            track.setInteger(CVAttr::Compilation, 1);
        const qint64 type = songs.integer(Filetype);
        auto kind = kinds.constFind(type);
        if (kind == kinds.cend())
            kind = kinds.insert(type, kindOf(type));
        track.setText(CVAttr::Kind, *kind);
        track.setText(CVAttr::MediaType, genre && *genre == u"Audiobook"_s ? books : music);
        for (CVAttr flag : { CVAttr::SymSpan, CVAttr::FullSpan, CVAttr::ItemIsRestored, CVAttr::ItemIsSpanned })
            track.setFlag(flag, false);
        const auto inFlight = m_options.crashedWhileSpanning
            ? m_options.lastTracksSpanned.constFind(track.textRef(CVAttr::PersistentID))
            : m_options.lastTracksSpanned.cend();
        track.setText(CVAttr::OriginalLocation,
            inFlight != m_options.lastTracksSpanned.cend() ? *inFlight : track.textRef(CVAttr::Location));
    }
    if (rc != SQLITE_DONE) {
        m_error = u"The Strawberry collection cannot be read: %1"_s.arg(db.lastError());
        out = CVLibraryContents();
        return false;
    }

    // playlist_items has no index on playlist: one pass over all of them, not one a playlist.
    QHash<qint64, std::vector<qint64>> members;
    {
        Statement items(db, "SELECT playlist, type, collection_id, url FROM playlist_items");
        if (!items) {
            m_error = u"The playlists of the Strawberry collection cannot be read: %1"_s.arg(db.lastError());
            out = CVLibraryContents();
            return false;
        }
        while (items.step() == SQLITE_ROW) {
            std::vector<qint64> &list = members[items.integer(0)];
            if (items.integer(1) == CVStrawberryDB::CollectionItem) {
                list.push_back(items.integer(2));
            } else {
                const auto song = byURL.constFind(items.text(3).toByteArray());
                if (song != byURL.cend())
                    list.push_back(*song);
            }
        }
    }
    Statement playlists(db, "SELECT ROWID, name FROM playlists ORDER BY ui_order, ROWID");
    if (!playlists) {
        m_error = u"The playlists of the Strawberry collection cannot be read: %1"_s.arg(db.lastError());
        out = CVLibraryContents();
        return false;
    }
    while (playlists.step() == SQLITE_ROW) {
        CVPlaylist playlist;
        const qint64 id = playlists.integer(0);
        playlist.name = QString::fromUtf8(playlists.text(1));
        playlist.playlistID = id;
        playlist.playlistPersistentID = u"P"_s + CVStrawberryDB::persistentIDOf(id).mid(1);
        playlist.group = u"2 PLAYLISTS"_s;
        std::vector<qint64> ids = members.take(id);
        std::sort(ids.begin(), ids.end());
        ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
        CVPredicate predicate = CVPredicate::forTrackIDs(std::move(ids));
        predicate.setIsPlaylist(true);
        predicate.setCacheKey(playlist.playlistPersistentID);
        playlist.tracksPredicate = predicate;
        out.playlists.push_back(std::move(playlist));
    }
    db.exec("COMMIT");
    if (m_options.progress)
        m_options.progress(std::max(total, read), std::max(total, read));
    return true;
}
