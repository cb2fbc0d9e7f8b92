#include "Library/CVRhythmDBReader.h"

#include "Library/CVFormatters.h"
#include "Library/CVRhythmDB.h"
#include "Library/CVRhythmboxIdentities.h"
#include "Library/CVStringInterner.h"

#include <QDate>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <charconv>
#include <sys/mman.h>
#include <vector>

using namespace Qt::StringLiterals;
using CVRhythmDB::Field;

namespace {

enum class SongKey : std::uint8_t {
    Unknown,
    Title,
    Genre,
    Artist,
    Album,
    AlbumArtist,
    Composer,
    ArtistSortname,
    AlbumSortname,
    AlbumArtistSortname,
    ComposerSortname,
    TrackNumber,
    TrackTotal,
    DiscNumber,
    DiscTotal,
    Duration,
    FileSize,
    Location,
    Mtime,
    FirstSeen,
    LastPlayed,
    PlayCount,
    Rating,
    Bitrate,
    Date,
    BeatsPerMinute,
    Comment,
    MediaType,
};

SongKey songKey(std::string_view name)
{
    static const std::pair<std::string_view, SongKey> keys[] = {
        { "title", SongKey::Title },
        { "genre", SongKey::Genre },
        { "artist", SongKey::Artist },
        { "album", SongKey::Album },
        { "album-artist", SongKey::AlbumArtist },
        { "composer", SongKey::Composer },
        { "artist-sortname", SongKey::ArtistSortname },
        { "album-sortname", SongKey::AlbumSortname },
        { "album-artist-sortname", SongKey::AlbumArtistSortname },
        { "composer-sortname", SongKey::ComposerSortname },
        { "track-number", SongKey::TrackNumber },
        { "track-total", SongKey::TrackTotal },
        { "disc-number", SongKey::DiscNumber },
        { "disc-total", SongKey::DiscTotal },
        { "duration", SongKey::Duration },
        { "file-size", SongKey::FileSize },
        { "location", SongKey::Location },
        { "mtime", SongKey::Mtime },
        { "first-seen", SongKey::FirstSeen },
        { "last-played", SongKey::LastPlayed },
        { "play-count", SongKey::PlayCount },
        { "rating", SongKey::Rating },
        { "bitrate", SongKey::Bitrate },
        { "date", SongKey::Date },
        { "beats-per-minute", SongKey::BeatsPerMinute },
        { "comment", SongKey::Comment },
        { "media-type", SongKey::MediaType },
    };
    // Some twenty fields an entry: looked up by length and last letter, no hashing.
    struct Table {
        std::vector<std::pair<std::string_view, SongKey>> buckets[24][8];
        Table()
        {
            for (const auto &k : keys)
                buckets[k.first.size()][std::size_t(k.first.back()) & 7].push_back(k);
        }
    };
    static const Table table;
    if (name.empty() || name.size() >= 24)
        return SongKey::Unknown;
    for (const auto &[text, key] : table.buckets[name.size()][std::size_t(name.back()) & 7])
        if (text == name)
            return key;
    return SongKey::Unknown;
}

std::optional<qint64> integerOf(std::string_view raw)
{
    qint64 value = 0;
    const auto [end, ec] = std::from_chars(raw.data(), raw.data() + raw.size(), value);
    if (ec != std::errc() || end == raw.data())
        return std::nullopt;
    return value;
}

std::optional<double> realOf(std::string_view raw)
{
    double value = 0;
    const auto [end, ec] = std::from_chars(raw.data(), raw.data() + raw.size(), value);
    if (ec != std::errc() || end == raw.data())
        return std::nullopt;
    return value;
}

// GLib counts days from 1 January of the year 1; Qt from the Julian epoch.
constexpr qint64 kGDateToJulianDay = 1721425;

enum SortField {
    SortNameF,
    SortArtistF,
    SortAlbumF,
    SortAlbumArtistF,
    SortComposerF,
    SortShowF,
    SortGenreF,
    SortCount
};
constexpr CVAttr kSortTargets[SortCount] = { CVAttr::SortName, CVAttr::SortArtist, CVAttr::SortAlbum,
    CVAttr::SortAlbumArtist, CVAttr::SortComposer, CVAttr::SortShow, CVAttr::SortGenre };

} // namespace

CVRhythmDBReader::CVRhythmDBReader(const CVRhythmboxIdentities &identities, Options options)
    : m_identities(identities)
    , m_options(std::move(options))
{
}

bool CVRhythmDBReader::readFile(const QString &path, CVLibraryContents &out)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        m_error = file.errorString();
        return false;
    }
    const qint64 size = file.size();
    const uchar *mapped = size > 0 ? file.map(0, size) : nullptr;
    if (!mapped) {
        m_error = u"The file is empty or cannot be read."_s;
        return false;
    }
    // One pass from start to end: the kernel may read ahead.
    ::madvise(const_cast<uchar *>(mapped), std::size_t(size), MADV_SEQUENTIAL | MADV_WILLNEED);
    QByteArray playlists;
    QFile playlistFile(QFileInfo(path).absolutePath() + u"/playlists.xml"_s);
    if (playlistFile.open(QIODevice::ReadOnly))
        playlists = playlistFile.readAll();
    return readDocument(QByteArrayView(reinterpret_cast<const char *>(mapped), size), playlists,
        CVRhythmboxIdentities::libraryPersistentID(path), out);
}

bool CVRhythmDBReader::readDocument(
    QByteArrayView document, QByteArrayView playlists, const QString &libraryPersistentID, CVLibraryContents &out)
{
    out = CVLibraryContents();
    CVRhythmDB::Scanner scanner(document);
    if (!scanner.readHeader()) {
        m_error = scanner.errorString();
        return false;
    }
    if (!CVRhythmDB::isKnownVersion(scanner.version())) {
        m_error = u"The Rhythmbox library is of version “%1”, which Corvana does not know."_s.arg(
            QString::fromLatin1(scanner.version().data(), qsizetype(scanner.version().size())));
        return false;
    }
    out.persistentID = libraryPersistentID;

    CVStringInterner interner;
    std::array<CVStringInterner::Entry *, kCVTextSlots> lastInterned {};
    std::vector<QByteArray> uris;
    const QString music = u"Music"_s;
    const QString books = u"Books"_s;
    qint64 trackID = 0;
    int sinceProgress = 0;
    Field field;
    while (scanner.nextElement("entry")) {
        if (m_options.progress && ++sinceProgress == 2000) {
            sinceProgress = 0;
            m_options.progress(scanner.elementStart(), document.size());
        }
        ++trackID;
        if (scanner.attribute("type") != "song") {
            while (scanner.nextField(field)) { }
            if (scanner.hasError())
                break;
            continue;
        }
        CVTrack &track = out.tracks.emplace_back();
        QByteArray uri;
        QString sortSources[SortCount];
        QString sortValues[SortCount];
        CVStringInterner::Entry *valueEntries[SortCount] = {};
        bool audiobook = false;
        double rating = 0;

        const auto setText = [&](CVAttr attr, int sortField) {
            // Most texts hold no entity: they are taken as they stand in the file.
            QByteArray decoded;
            std::string_view text = field.raw;
            if (text.find('&') != std::string_view::npos) {
                decoded = CVRhythmDB::decodeText(QByteArrayView(field.raw.data(), qsizetype(field.raw.size())));
                text = std::string_view(decoded.constData(), std::size_t(decoded.size()));
            }
            CVStringInterner::Entry *&last = lastInterned[std::size_t(attr)];
            if (!last || last->first != text)
                last = &interner.entry(text);
            track.setText(attr, last->second);
            if (sortField >= 0) {
                sortValues[sortField] = last->second;
                valueEntries[sortField] = last;
            }
        };
        const auto setSortSource = [&](int sortField) {
            sortSources[sortField]
                = QString::fromUtf8(CVRhythmDB::decodeText(QByteArrayView(field.raw.data(), field.raw.size())));
        };
        const auto setInteger = [&](CVAttr attr) {
            if (const auto v = integerOf(field.raw))
                track.setInteger(attr, *v);
        };
        const auto setDate = [&](CVAttr attr) {
            // Rhythmbox writes 0 for "never".
            if (const auto v = integerOf(field.raw); v && *v > 0)
                track.setDate(attr, *v);
        };

        while (scanner.nextField(field)) {
            switch (songKey(field.name)) {
            case SongKey::Unknown:
                break;
            case SongKey::Title: {
                const QString title = field.raw.find('&') == std::string_view::npos
                    ? QString::fromUtf8(field.raw.data(), qsizetype(field.raw.size()))
                    : QString::fromUtf8(CVRhythmDB::decodeText(QByteArrayView(field.raw.data(), field.raw.size())));
                track.setText(CVAttr::Name, title);
                sortValues[SortNameF] = title;
                break;
            }
            case SongKey::Genre:
                audiobook = field.raw == "Audiobook";
                setText(CVAttr::Genre, SortGenreF);
                break;
            case SongKey::Artist:
                setText(CVAttr::Artist, SortArtistF);
                break;
            case SongKey::Album:
                setText(CVAttr::Album, SortAlbumF);
                break;
            case SongKey::AlbumArtist:
                setText(CVAttr::AlbumArtist, SortAlbumArtistF);
                break;
            case SongKey::Composer:
                setText(CVAttr::Composer, SortComposerF);
                break;
            case SongKey::ArtistSortname:
                setSortSource(SortArtistF);
                break;
            case SongKey::AlbumSortname:
                setSortSource(SortAlbumF);
                break;
            case SongKey::AlbumArtistSortname:
                setSortSource(SortAlbumArtistF);
                break;
            case SongKey::ComposerSortname:
                setSortSource(SortComposerF);
                break;
            case SongKey::TrackNumber:
                setInteger(CVAttr::TrackNumber);
                break;
            case SongKey::TrackTotal:
                setInteger(CVAttr::TrackCount);
                break;
            case SongKey::DiscNumber:
                setInteger(CVAttr::DiscNumber);
                break;
            case SongKey::DiscTotal:
                setInteger(CVAttr::DiscCount);
                break;
            case SongKey::Duration:
                if (const auto v = realOf(field.raw))
                    track.setReal(CVAttr::TotalTime, *v * 1000);
                break;
            case SongKey::FileSize:
                if (const auto v = realOf(field.raw))
                    track.setReal(CVAttr::Size, *v);
                break;
            case SongKey::Location:
                uri = field.raw.find('&') == std::string_view::npos
                    ? QByteArray(field.raw.data(), qsizetype(field.raw.size()))
                    : CVRhythmDB::decodeText(QByteArrayView(field.raw.data(), field.raw.size()));
                if (const auto path = CVRhythmDB::pathFromURI(uri))
                    track.setText(CVAttr::Location, *path);
                break;
            case SongKey::Mtime:
                setDate(CVAttr::DateModified);
                break;
            case SongKey::FirstSeen:
                setDate(CVAttr::DateAdded);
                break;
            case SongKey::LastPlayed:
                setDate(CVAttr::LastPlayed);
                break;
            case SongKey::PlayCount:
                setInteger(CVAttr::Plays);
                break;
            case SongKey::Rating:
                rating = realOf(field.raw).value_or(0);
                break;
            case SongKey::Bitrate:
                setInteger(CVAttr::BitRate);
                break;
            case SongKey::Date:
                if (const auto v = integerOf(field.raw); v && *v > 0)
                    track.setInteger(CVAttr::Year, QDate::fromJulianDay(*v + kGDateToJulianDay).year());
                break;
            case SongKey::BeatsPerMinute:
                if (const auto v = realOf(field.raw); v && *v > 0)
                    track.setInteger(CVAttr::BPM, qint64(*v));
                break;
            case SongKey::Comment:
                track.setText(CVAttr::Comments,
                    QString::fromUtf8(CVRhythmDB::decodeText(QByteArrayView(field.raw.data(), field.raw.size()))));
                break;
            case SongKey::MediaType:
                // The Kind column shows the media type.
                setText(CVAttr::Kind, -1);
                break;
            }
        }
        if (scanner.hasError())
            break;
        if (uri.isEmpty()) {
            // Not a song Corvana can name again: left to Rhythmbox.
            out.tracks.pop_back();
            continue;
        }
        track.setInteger(CVAttr::TrackID, trackID);
        track.setText(CVAttr::LibraryPersistentID, libraryPersistentID);
        if (!track.has(CVAttr::Size))
            track.setReal(CVAttr::Size, 0);
        if (!track.has(CVAttr::TotalTime))
            track.setReal(CVAttr::TotalTime, 0);
        track.setInteger(CVAttr::Rating, qBound(qint64(0), qint64(rating), qint64(5)));
        track.setText(CVAttr::MediaType, audiobook ? books : music);
        for (int f = 0; f < SortCount; ++f) {
            CVStringInterner::Entry *entry = valueEntries[f];
            if (sortSources[f].isEmpty() && entry) {
                if (entry->derived.isNull())
                    entry->derived = CVFormatters::customSortString(QString(), entry->second);
                track.setText(kSortTargets[f], entry->derived);
            } else {
                track.setText(kSortTargets[f], CVFormatters::customSortString(sortSources[f], sortValues[f]));
            }
        }
        for (CVAttr flag : { CVAttr::SymSpan, CVAttr::FullSpan, CVAttr::ItemIsRestored, CVAttr::ItemIsSpanned })
            track.setFlag(flag, false);
        uris.push_back(std::move(uri));
    }
    if (scanner.hasError()) {
        m_error = scanner.errorString();
        out = CVLibraryContents();
        return false;
    }

    // The IDs need every location of the file at once: two songs may claim one.
    const std::vector<QString> ids = m_identities.resolve(uris);
    QHash<QByteArray, qint64> trackIDs;
    trackIDs.reserve(qsizetype(uris.size()));
    std::size_t i = 0;
    for (CVTrack &track : out.tracks) {
        track.setText(CVAttr::PersistentID, ids[i]);
        trackIDs.insert(uris[i], track.integer(CVAttr::TrackID));
        ++i;
        const auto inFlight = m_options.crashedWhileSpanning
            ? m_options.lastTracksSpanned.constFind(track.textRef(CVAttr::PersistentID))
            : m_options.lastTracksSpanned.cend();
        if (inFlight != m_options.lastTracksSpanned.cend())
            track.setText(CVAttr::OriginalLocation, *inFlight);
        else if (track.has(CVAttr::Location))
            track.setText(CVAttr::OriginalLocation, track.textRef(CVAttr::Location));
    }
    if (!playlists.isEmpty() && !readPlaylists(playlists, trackIDs, out))
        return false;
    if (m_options.progress)
        m_options.progress(document.size(), document.size());
    return true;
}

bool CVRhythmDBReader::readPlaylists(
    QByteArrayView document, const QHash<QByteArray, qint64> &trackIDs, CVLibraryContents &out)
{
    CVRhythmDB::Scanner scanner(document);
    if (!scanner.readHeader("rhythmdb-playlists")) {
        m_error = u"playlists.xml, %1"_s.arg(scanner.errorString());
        return false;
    }
    Field field;
    qint64 playlistID = 0;
    while (scanner.nextElement("playlist")) {
        ++playlistID;
        const std::string_view type = scanner.attribute("type");
        CVPlaylist playlist;
        playlist.name = QString::fromUtf8(CVRhythmDB::decodeText(
            QByteArrayView(scanner.attribute("name").data(), qsizetype(scanner.attribute("name").size()))));
        playlist.playlistID = playlistID;
        playlist.playlistPersistentID
            = CVRhythmboxIdentities::derivedID(QByteArray(QByteArray("playlist:") + playlist.name.toUtf8()));
        playlist.group = u"2 PLAYLISTS"_s;
        std::vector<qint64> items;
        QByteArray query;
        while (scanner.nextField(field)) {
            if (field.name == "location") {
                const auto it = trackIDs.constFind(
                    CVRhythmDB::decodeText(QByteArrayView(field.raw.data(), qsizetype(field.raw.size()))));
                if (it != trackIDs.cend())
                    items.push_back(*it);
            } else {
                query.append(field.raw.data(), qsizetype(field.raw.size()));
            }
        }
        if (scanner.hasError())
            break;
        // The play queue is Rhythmbox's own, not a playlist of the user's.
        if (type == "queue")
            continue;
        if (type == "automatic")
            playlist.smartPlaylist = query; // its query; Rhythmbox works out its songs itself
        std::sort(items.begin(), items.end());
        items.erase(std::unique(items.begin(), items.end()), items.end());
        CVPredicate predicate = CVPredicate::forTrackIDs(std::move(items));
        predicate.setIsPlaylist(true);
        predicate.setCacheKey(playlist.playlistPersistentID);
        playlist.tracksPredicate = predicate;
        out.playlists.push_back(std::move(playlist));
    }
    if (scanner.hasError()) {
        m_error = u"playlists.xml, %1"_s.arg(scanner.errorString());
        return false;
    }
    return true;
}
