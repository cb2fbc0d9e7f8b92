#include "Library/CVLibraryFileReader.h"

#include "Library/CVFileURL.h"
#include "Library/CVFormatters.h"
#include "Library/CVPlistReader.h"
#include "Library/CVSharedTexts.h"
#include "Library/CVStringInterner.h"
#include "Platform/CVThreadHeap.h"

#include <QFile>

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <thread>
#include <unordered_set>

using namespace Qt::StringLiterals;
using Token = CVPlistReader::Token;

namespace {

// The keys of a track dictionary that the reader looks at.
enum class FileKey : std::uint8_t {
    Unknown,
    TrackID,
    PersistentID,
    TrackType,
    Location,
    Name,
    Artist,
    AlbumArtist,
    Album,
    Genre,
    Kind,
    Composer,
    Grouping,
    Comments,
    Description,
    Equalizer,
    Series,
    Episode,
    EpisodeOrder,
    Season,
    Year,
    BPM,
    TrackNumber,
    TrackCount,
    DiscNumber,
    DiscCount,
    SkipCount,
    PlayCount,
    BitRate,
    SampleRate,
    Size,
    TotalTime,
    Rating,
    AlbumRating,
    Compilation,
    DateAdded,
    DateModified,
    ReleaseDate,
    SkipDate,
    PlayDateUTC,
    Podcast,
    ITunesU,
    TVShow,
    Movie,
    SortName,
    SortArtist,
    SortAlbum,
    SortAlbumArtist,
    SortComposer,
    SortSeries,
    SortGenre,
};

struct KeyName {
    std::string_view name;
    FileKey key;
};

constexpr KeyName kKeyNames[] = {
    { "Track ID", FileKey::TrackID },
    { "Persistent ID", FileKey::PersistentID },
    { "Track Type", FileKey::TrackType },
    { "Location", FileKey::Location },
    { "Name", FileKey::Name },
    { "Artist", FileKey::Artist },
    { "Album Artist", FileKey::AlbumArtist },
    { "Album", FileKey::Album },
    { "Genre", FileKey::Genre },
    { "Kind", FileKey::Kind },
    { "Composer", FileKey::Composer },
    { "Grouping", FileKey::Grouping },
    { "Comments", FileKey::Comments },
    { "Description", FileKey::Description },
    { "Equalizer", FileKey::Equalizer },
    { "Series", FileKey::Series },
    { "Episode", FileKey::Episode },
    { "Episode Order", FileKey::EpisodeOrder },
    { "Season", FileKey::Season },
    { "Year", FileKey::Year },
    { "BPM", FileKey::BPM },
    { "Track Number", FileKey::TrackNumber },
    { "Track Count", FileKey::TrackCount },
    { "Disc Number", FileKey::DiscNumber },
    { "Disc Count", FileKey::DiscCount },
    { "Skip Count", FileKey::SkipCount },
    { "Play Count", FileKey::PlayCount },
    { "Bit Rate", FileKey::BitRate },
    { "Sample Rate", FileKey::SampleRate },
    { "Size", FileKey::Size },
    { "Total Time", FileKey::TotalTime },
    { "Rating", FileKey::Rating },
    { "Album Rating", FileKey::AlbumRating },
    { "Compilation", FileKey::Compilation },
    { "Date Added", FileKey::DateAdded },
    { "Date Modified", FileKey::DateModified },
    { "Release Date", FileKey::ReleaseDate },
    { "Skip Date", FileKey::SkipDate },
    { "Play Date UTC", FileKey::PlayDateUTC },
    { "Podcast", FileKey::Podcast },
    { "iTunesU", FileKey::ITunesU },
    { "TV Show", FileKey::TVShow },
    { "Movie", FileKey::Movie },
    { "Sort Name", FileKey::SortName },
    { "Sort Artist", FileKey::SortArtist },
    { "Sort Album", FileKey::SortAlbum },
    { "Sort Album Artist", FileKey::SortAlbumArtist },
    { "Sort Composer", FileKey::SortComposer },
    { "Sort Series", FileKey::SortSeries },
    { "Sort Genre", FileKey::SortGenre },
};

// Every track has some forty keys: look them up by length and first letter, no hashing.
FileKey fileKey(std::string_view key)
{
    struct Table {
        std::vector<KeyName> buckets[32][4];
        Table()
        {
            for (const KeyName &k : kKeyNames)
                buckets[k.name.size()][std::size_t(k.name[0]) & 3].push_back(k);
        }
    };
    static const Table table;
    if (key.empty() || key.size() >= 32)
        return FileKey::Unknown;
    for (const KeyName &k : table.buckets[key.size()][std::size_t(key[0]) & 3])
        if (k.name == key)
            return k.key;
    return FileKey::Unknown;
}

bool isScalar(Token t)
{
    return t == Token::String || t == Token::Integer || t == Token::Real || t == Token::Boolean || t == Token::Date
        || t == Token::Data;
}

// The integer value of the current scalar, as a property list's intValue reads it.
std::optional<qint64> integerOf(const CVPlistReader &r)
{
    switch (r.token()) {
    case Token::Integer:
        return r.integer();
    case Token::Real:
        return qint64(r.real());
    case Token::Boolean:
        return r.boolean() ? 1 : 0;
    case Token::String: {
        std::string_view s = r.text();
        while (!s.empty() && s.front() == ' ')
            s.remove_prefix(1);
        qint64 v = 0;
        const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
        if (ec == std::errc() && end != s.data())
            return v;
        return std::nullopt;
    }
    default:
        return std::nullopt;
    }
}

std::optional<double> realOf(const CVPlistReader &r)
{
    if (r.token() == Token::Real)
        return r.real();
    if (const auto i = integerOf(r))
        return double(*i);
    return std::nullopt;
}

// Texts that are not texts in the file are written as the file shows them.
std::optional<QString> textOf(const CVPlistReader &r)
{
    switch (r.token()) {
    case Token::String:
        return r.string();
    case Token::Integer:
        return QString::number(r.integer());
    case Token::Real:
        return QString::number(r.real());
    default:
        return std::nullopt;
    }
}

// The sort sources of one track: the plain value and the file's "Sort ..." value.
// Interned sources keep their sort string on their interner entry, so it is worked out
// once per distinct text.
struct SortSources {
    QString value;
    QString sortValue;
    CVStringInterner::Entry *valueEntry = nullptr;
    CVStringInterner::Entry *sortEntry = nullptr;
};

enum SortField {
    SortNameField,
    SortArtistField,
    SortAlbumField,
    SortAlbumArtistField,
    SortComposerField,
    SortShowField,
    SortGenreField,
    SortFieldCount
};

constexpr CVAttr kSortTargets[SortFieldCount] = { CVAttr::SortName, CVAttr::SortArtist, CVAttr::SortAlbum,
    CVAttr::SortAlbumArtist, CVAttr::SortComposer, CVAttr::SortShow, CVAttr::SortGenre };

std::vector<qint64> sortedDistinct(std::vector<qint64> ids)
{
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return ids;
}

CVPredicate tracksPredicateFor(const CVPlaylist &playlist, std::vector<qint64> distinctIDs)
{
    CVPredicate p = CVPredicate::forTrackIDs(std::move(distinctIDs));
    p.setIsPlaylist(true);
    p.setCacheKey(playlist.playlistPersistentID);
    return p;
}

} // namespace

struct CVLibraryFileReader::PlaylistDraft {
    CVPlaylist record;
    bool builtIn = false;
    bool books = false;
    bool hasGeniusTrackID = false;
    std::optional<qint64> distinguishedKind;
    std::vector<qint64> items; // sorted and distinct once the draft is read
    std::vector<std::size_t> children;
};

// What one thread reads: its own texts, tracks and playlists, joined in file order at the end.
struct CVLibraryFileReader::Part {
    explicit Part(CVTrackStore &into)
        : tracks(into)
    {
    }
    CVTrackStore &tracks;
    CVStringInterner interner;
    // The last interned text of each attribute: neighbouring tracks mostly share them.
    std::array<CVStringInterner::Entry *, kCVTextSlots> lastInterned {};
    std::array<CVStringInterner::Entry *, SortFieldCount> lastSortSource {};
    std::vector<PlaylistDraft> drafts;
    std::vector<qint64> bookTrackIDs;
    std::optional<QString> mediaPath;
    std::optional<QString> persistentID;
    QString error;

    // The first part stops where the second began, if that turns out to be between two tracks.
    bool first = false;
    qint64 handOverAt = -1;
    CVPlistReader::Nesting handOverNesting;
    // The second part: told to stop when the first finds the split was no boundary.
    const std::atomic<bool> *cancel = nullptr;
    std::atomic<qint64> *done = nullptr;
    qint64 start = 0;
};

struct CVLibraryFileReader::SecondPart {
    CVTrackStore tracks;
    Part part { tracks };
    std::atomic<bool> cancel = false;
    std::atomic<qint64> done = 0;
    bool ok = false;
    std::thread thread;
};

namespace {

// The attributes whose texts come from the interner.
constexpr CVAttr kInternedTexts[] = { CVAttr::Artist, CVAttr::AlbumArtist, CVAttr::Album, CVAttr::Genre, CVAttr::Kind,
    CVAttr::Composer, CVAttr::Grouping, CVAttr::Equalizer, CVAttr::Show, CVAttr::EpisodeID, CVAttr::SortArtist,
    CVAttr::SortAlbumArtist, CVAttr::SortAlbum, CVAttr::SortGenre, CVAttr::SortComposer, CVAttr::SortShow };

} // namespace

CVLibraryFileReader::CVLibraryFileReader()
    : CVLibraryFileReader(Options())
{
}

CVLibraryFileReader::CVLibraryFileReader(Options options)
    : m_options(std::move(options))
{
}

CVLibraryFileReader::~CVLibraryFileReader()
{
    if (m_second) {
        m_second->cancel = true;
        m_second->thread.join();
    }
}

bool CVLibraryFileReader::readFile(const QString &path, CVLibraryContents &out)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        m_error = file.errorString();
        return false;
    }
    m_total = file.size();
    m_path = path;
    m_file = &file;
    CVPlistReader reader(&file);
    const bool ok = read(reader, out);
    m_path.clear();
    m_file = nullptr;
    return ok;
}

bool CVLibraryFileReader::readDevice(QIODevice *device, CVLibraryContents &out)
{
    m_total = device->isSequential() ? 0 : device->size();
    CVPlistReader reader(device);
    return read(reader, out);
}

bool CVLibraryFileReader::readDocument(QByteArrayView document, CVLibraryContents &out)
{
    m_total = document.size();
    m_document = document;
    CVPlistReader reader(document);
    const bool ok = read(reader, out);
    m_document = {};
    return ok;
}

bool CVLibraryFileReader::failFrom(Part &part, const CVPlistReader &reader)
{
    part.error = reader.errorDescription();
    return false;
}

bool CVLibraryFileReader::read(CVPlistReader &reader, CVLibraryContents &out)
{
    out = CVLibraryContents();
    m_split = Split::None;
    Part first(out.tracks);
    first.first = true;

    if (reader.next() != Token::DictBegin) {
        if (reader.hasError()) {
            m_error = reader.errorDescription();
            return false;
        }
        m_error = u"The file is not an iTunes library: its top level is not a dictionary."_s;
        return false;
    }
    const Outcome outcome = readTopLevel(reader, first, false);
    if (!joinSecondPart(first, outcome == Outcome::HandedOver) || outcome == Outcome::Failed) {
        m_error = first.error;
        return false;
    }
    out.mediaPath = first.mediaPath;
    out.persistentID = first.persistentID;

    buildPlaylists(first.drafts, out);

    // The library's ID and the book playlist may come after the tracks in the file.
    std::sort(first.bookTrackIDs.begin(), first.bookTrackIDs.end());
    const QString books = u"Books"_s;
    for (CVTrack &track : out.tracks) {
        if (out.persistentID)
            track.setText(CVAttr::LibraryPersistentID, *out.persistentID);
        if (!first.bookTrackIDs.empty() && track.has(CVAttr::TrackID)
            && std::binary_search(first.bookTrackIDs.begin(), first.bookTrackIDs.end(), track.integer(CVAttr::TrackID)))
            track.setText(CVAttr::MediaType, books);
    }
    if (m_options.progress)
        m_options.progress(m_total, m_total);
    return true;
}

CVLibraryFileReader::Outcome CVLibraryFileReader::readTopLevel(CVPlistReader &reader, Part &part, bool insideTracks)
{
    if (insideTracks) {
        const Outcome outcome = readTracks(reader, part);
        if (outcome != Outcome::Done)
            return outcome;
    }
    for (;;) {
        const Token t = reader.next();
        if (t == Token::DictEnd)
            break;
        if (t != Token::Key)
            return failFrom(part, reader) ? Outcome::Done : Outcome::Failed;
        const std::string_view key = reader.text();
        const bool musicFolder = key == "Music Folder";
        const bool libraryID = key == "Library Persistent ID";
        const bool tracks = key == "Tracks";
        const bool playlists = key == "Playlists";
        const Token value = reader.next();
        if (value == Token::Error)
            return failFrom(part, reader) ? Outcome::Done : Outcome::Failed;
        if (musicFolder && value == Token::String) {
            if (auto path = CVFileURL::pathFromFileURL(reader.text()))
                part.mediaPath = *path;
        } else if (libraryID && value == Token::String) {
            part.persistentID = part.interner.intern(reader.text());
        } else if (tracks && value == Token::DictBegin) {
            const Outcome outcome = readTracks(reader, part);
            if (outcome != Outcome::Done)
                return outcome;
        } else if (playlists && value == Token::ArrayBegin) {
            if (!readPlaylists(reader, part))
                return Outcome::Failed;
        } else if (!reader.skipValue()) {
            return failFrom(part, reader) ? Outcome::Done : Outcome::Failed;
        }
    }
    if (reader.next() != Token::EndDocument)
        return failFrom(part, reader) ? Outcome::Done : Outcome::Failed;
    return Outcome::Done;
}

CVLibraryFileReader::Outcome CVLibraryFileReader::readTracks(CVPlistReader &reader, Part &part)
{
    if (part.first && m_split == Split::None)
        startSecondPart(reader, part);
    int sinceProgress = 0;
    for (;;) {
        Token t = reader.next();
        if (t == Token::DictEnd) {
            if (part.handOverAt >= 0)
                joinSecondPart(part, false);
            return Outcome::Done;
        }
        if (t != Token::Key)
            return failFrom(part, reader) ? Outcome::Done : Outcome::Failed;
        t = reader.next();
        if (t == Token::DictBegin) {
            if (!readTrack(reader, part))
                return Outcome::Failed;
        } else if (t == Token::Error || !reader.skipValue()) {
            return failFrom(part, reader) ? Outcome::Done : Outcome::Failed;
        }
        if (part.handOverAt >= 0 && reader.offset() >= part.handOverAt) {
            // The second part began here in this nesting: everything after is read already.
            if (reader.offset() == part.handOverAt && reader.nesting() == part.handOverNesting)
                return Outcome::HandedOver;
            joinSecondPart(part, false);
        }
        if (part.cancel && part.cancel->load(std::memory_order_relaxed)) {
            part.error = u"cancelled"_s;
            return Outcome::Failed;
        }
        if (++sinceProgress == 2000) {
            sinceProgress = 0;
            if (part.done)
                part.done->store(reader.offset() - part.start, std::memory_order_relaxed);
            if (part.first && m_options.progress) {
                const qint64 second = m_second ? m_second->done.load(std::memory_order_relaxed) : 0;
                m_options.progress(reader.offset() + second, m_total);
            }
        }
    }
}

void CVLibraryFileReader::startSecondPart(const CVPlistReader &reader, Part &first)
{
    if (m_total < m_options.twoPartsFrom || std::thread::hardware_concurrency() < 2
        || (m_path.isEmpty() && m_document.isNull())) {
        m_split = Split::TooSmall;
        return;
    }
    const std::optional<qint64> at = findTrackBoundary(reader.offset());
    if (!at) {
        m_split = Split::NoBoundary;
        return;
    }
    m_split = Split::TwoParts;
    // Right after the tracks' <dict> the nesting is what it is after each of their tracks.
    first.handOverAt = *at;
    first.handOverNesting = reader.nesting();
    m_second = std::make_unique<SecondPart>();
    SecondPart *second = m_second.get();
    second->part.cancel = &second->cancel;
    second->part.done = &second->done;
    second->part.start = *at;
    second->thread = std::thread([this, second, nesting = first.handOverNesting] {
        // Its part and the playlists: most of the tracks' texts are shared with the first part.
        const CVThreadHeap::Reservation heap = CVThreadHeap::growAhead(std::size_t(m_total) * 3 / 4);
        std::unique_ptr<QIODevice> device;
        const std::unique_ptr<CVPlistReader> resumed = openSecondReader(device);
        if (!resumed || !resumed->resume(second->part.start, nesting)) {
            second->part.error = u"The library file could not be opened a second time."_s;
            return;
        }
        second->ok = readTopLevel(*resumed, second->part, true) == Outcome::Done;
    });
}

std::unique_ptr<CVPlistReader> CVLibraryFileReader::openSecondReader(std::unique_ptr<QIODevice> &device) const
{
    if (m_path.isEmpty())
        return std::make_unique<CVPlistReader>(m_document);
    auto file = std::make_unique<QFile>(m_path);
    if (!file->open(QIODevice::ReadOnly))
        return nullptr;
    // The same file, not one the player put in its place meanwhile.
    struct stat mine {
    }, theirs {};
    if (::fstat(file->handle(), &mine) != 0 || ::fstat(m_file->handle(), &theirs) != 0 || mine.st_dev != theirs.st_dev
        || mine.st_ino != theirs.st_ino)
        return nullptr;
    auto reader = std::make_unique<CVPlistReader>(file.get());
    device = std::move(file);
    return reader;
}

std::optional<qint64> CVLibraryFileReader::findTrackBoundary(qint64 tracksStart) const
{
    // The middle of the rest: playlists cost about as much a byte as tracks.
    const qint64 guess = tracksStart + (m_total - tracksStart) / 2;
    constexpr qint64 kWindow = 256 << 10;
    QByteArray window;
    if (m_path.isEmpty()) {
        window = m_document.sliced(guess, qMin(kWindow, m_document.size() - guess)).toByteArray();
    } else {
        QFile file(m_path);
        if (!file.open(QIODevice::ReadOnly) || !file.seek(guess))
            return std::nullopt;
        window = file.read(kWindow);
    }
    // The end of a track's dictionary and the key of the next track. A look-alike (in a comment,
    // or between two playlists) is no harm: the first part only hands over at a real one.
    qsizetype at = 0;
    while ((at = window.indexOf("</dict>", at)) >= 0) {
        at += 7;
        qsizetype p = at;
        while (p < window.size() && (window[p] == ' ' || window[p] == '\n' || window[p] == '\t' || window[p] == '\r'))
            ++p;
        if (QByteArrayView(window).sliced(p).startsWith("<key>"))
            return guess + at;
    }
    return std::nullopt;
}

bool CVLibraryFileReader::joinSecondPart(Part &first, bool adopt)
{
    if (!m_second)
        return true;
    const std::unique_ptr<SecondPart> second = std::move(m_second);
    first.handOverAt = -1;
    if (!adopt)
        second->cancel = true;
    second->thread.join();
    if (!adopt) {
        m_split = Split::Abandoned;
        return true;
    }
    Part &from = second->part;
    if (!second->ok) {
        first.error = from.error;
        return false;
    }

    // Equal texts stay one object across the parts: the selections number texts by address.
    CVSharedTexts shared(from.interner.size() * 2);
    for (CVStringInterner::Entry &entry : from.interner.entries()) {
        CVStringInterner::Entry &own = first.interner.entry(entry.first);
        if (own.derived.isNull())
            own.derived = entry.derived;
        shared.insert(entry.second, own.second);
        if (!entry.derived.isNull())
            shared.insert(entry.derived, own.derived);
    }
    for (CVTrack &track : from.tracks)
        for (CVAttr attr : kInternedTexts)
            if (track.has(attr))
                if (const QString *own = shared.find(track.textRef(attr)))
                    track.setText(attr, *own);
    first.tracks.append(std::move(from.tracks));
    for (PlaylistDraft &draft : from.drafts)
        first.drafts.push_back(std::move(draft));
    first.bookTrackIDs.insert(first.bookTrackIDs.end(), from.bookTrackIDs.begin(), from.bookTrackIDs.end());
    // A key given twice counts as the file's later one, as in one pass.
    if (from.mediaPath)
        first.mediaPath = from.mediaPath;
    if (from.persistentID)
        first.persistentID = from.persistentID;
    return true;
}

bool CVLibraryFileReader::readTrack(CVPlistReader &reader, Part &part)
{
    CVStringInterner &interner = part.interner;
    static const QString kTypes[]
        = { u"Music"_s, u"Books"_s, u"Podcasts"_s, u"iTunes U"_s, u"TV Shows"_s, u"Movies"_s };
    CVTrack &track = part.tracks.emplace_back();
    SortSources sort[SortFieldCount];
    bool fileType = false;
    bool hasLocation = false;
    bool audiobookGenre = false;
    bool podcast = false, iTunesU = false, tvShow = false, movie = false;
    qint64 rating = 0, albumRating = 0;
    double size = 0, totalTime = 0;

    auto setInterned = [&](CVAttr attr, int sortField) {
        if (reader.token() == Token::String) {
            // Neighbouring tracks mostly share artist, album and genre: try the last one first.
            CVStringInterner::Entry *&last = part.lastInterned[std::size_t(attr)];
            const std::string_view text = reader.text();
            if (!last || last->first != text)
                last = &interner.entry(text);
            track.setText(attr, last->second);
            if (sortField >= 0) {
                sort[sortField].value = last->second;
                sort[sortField].valueEntry = last;
            }
        } else if (auto s = textOf(reader)) {
            track.setText(attr, *s);
            if (sortField >= 0) {
                sort[sortField].value = *s;
                sort[sortField].valueEntry = nullptr;
            }
        }
    };
    auto setSortSource = [&](int sortField, bool intern) {
        if (intern && reader.token() == Token::String) {
            CVStringInterner::Entry *&last = part.lastSortSource[std::size_t(sortField)];
            const std::string_view text = reader.text();
            if (!last || last->first != text)
                last = &interner.entry(text);
            sort[sortField].sortValue = last->second;
            sort[sortField].sortEntry = last;
        } else if (auto s = textOf(reader)) {
            sort[sortField].sortValue = *s;
            sort[sortField].sortEntry = nullptr;
        }
    };
    auto setInteger = [&](CVAttr attr) {
        if (const auto v = integerOf(reader))
            track.setInteger(attr, *v);
    };
    auto setDate = [&](CVAttr attr) {
        if (reader.token() == Token::Date)
            track.setDate(attr, reader.date());
    };

    for (;;) {
        Token t = reader.next();
        if (t == Token::DictEnd)
            break;
        if (t != Token::Key)
            return failFrom(part, reader);
        const FileKey key = fileKey(reader.text());
        t = reader.next();
        if (!isScalar(t)) {
            // Presence is what counts for the marker keys, whatever the value.
            if (t == Token::Error || !reader.skipValue())
                return failFrom(part, reader);
        }
        switch (key) {
        case FileKey::Unknown:
            break;
        case FileKey::TrackID:
            setInteger(CVAttr::TrackID);
            break;
        case FileKey::PersistentID:
            if (auto s = textOf(reader))
                track.setText(CVAttr::PersistentID, *s);
            break;
        case FileKey::TrackType:
            fileType = t == Token::String && reader.text() == "File";
            break;
        case FileKey::Location:
            hasLocation = true;
            if (t == Token::String) {
                if (auto path = CVFileURL::pathFromFileURL(reader.text()))
                    track.setText(CVAttr::Location, *path);
            }
            break;
        case FileKey::Name:
            if (auto s = textOf(reader)) {
                track.setText(CVAttr::Name, *s);
                sort[SortNameField].value = *s;
            }
            break;
        case FileKey::Artist:
            setInterned(CVAttr::Artist, SortArtistField);
            break;
        case FileKey::AlbumArtist:
            setInterned(CVAttr::AlbumArtist, SortAlbumArtistField);
            break;
        case FileKey::Album:
            setInterned(CVAttr::Album, SortAlbumField);
            break;
        case FileKey::Genre:
            audiobookGenre = t == Token::String && reader.text() == "Audiobook";
            setInterned(CVAttr::Genre, SortGenreField);
            break;
        case FileKey::Kind:
            setInterned(CVAttr::Kind, -1);
            break;
        case FileKey::Composer:
            setInterned(CVAttr::Composer, SortComposerField);
            break;
        case FileKey::Grouping:
            setInterned(CVAttr::Grouping, -1);
            break;
        case FileKey::Comments:
            if (auto s = textOf(reader))
                track.setText(CVAttr::Comments, *s);
            break;
        case FileKey::Description:
            if (auto s = textOf(reader))
                track.setText(CVAttr::Description, *s);
            break;
        case FileKey::Equalizer:
            setInterned(CVAttr::Equalizer, -1);
            break;
        case FileKey::Series:
            setInterned(CVAttr::Show, SortShowField);
            break;
        case FileKey::Episode:
            setInterned(CVAttr::EpisodeID, -1);
            break;
        case FileKey::EpisodeOrder:
            setInteger(CVAttr::EpisodeNumber);
            break;
        case FileKey::Season:
            setInteger(CVAttr::SortSeason);
            break;
        case FileKey::Year:
            setInteger(CVAttr::Year);
            break;
        case FileKey::BPM:
            setInteger(CVAttr::BPM);
            break;
        case FileKey::TrackNumber:
            setInteger(CVAttr::TrackNumber);
            break;
        case FileKey::TrackCount:
            setInteger(CVAttr::TrackCount);
            break;
        case FileKey::DiscNumber:
            setInteger(CVAttr::DiscNumber);
            break;
        case FileKey::DiscCount:
            setInteger(CVAttr::DiscCount);
            break;
        case FileKey::SkipCount:
            setInteger(CVAttr::Skips);
            break;
        case FileKey::PlayCount:
            setInteger(CVAttr::Plays);
            break;
        case FileKey::BitRate:
            setInteger(CVAttr::BitRate);
            break;
        case FileKey::SampleRate:
            if (const auto v = realOf(reader))
                track.setReal(CVAttr::SampleRate, *v);
            break;
        case FileKey::Size:
            size = realOf(reader).value_or(0);
            break;
        case FileKey::TotalTime:
            totalTime = realOf(reader).value_or(0);
            break;
        case FileKey::Rating:
            rating = integerOf(reader).value_or(0);
            break;
        case FileKey::AlbumRating:
            albumRating = integerOf(reader).value_or(0);
            break;
        case FileKey::Compilation:
            track.setInteger(CVAttr::Compilation, 1);
            break;
        case FileKey::DateAdded:
            setDate(CVAttr::DateAdded);
            break;
        case FileKey::DateModified:
            setDate(CVAttr::DateModified);
            break;
        case FileKey::ReleaseDate:
            setDate(CVAttr::ReleaseDate);
            break;
        case FileKey::SkipDate:
            setDate(CVAttr::LastSkipped);
            break;
        case FileKey::PlayDateUTC:
            setDate(CVAttr::LastPlayed);
            break;
        case FileKey::Podcast:
            podcast = true;
            break;
        case FileKey::ITunesU:
            iTunesU = true;
            break;
        case FileKey::TVShow:
            tvShow = true;
            break;
        case FileKey::Movie:
            movie = true;
            break;
        case FileKey::SortName:
            setSortSource(SortNameField, false);
            break;
        case FileKey::SortArtist:
            setSortSource(SortArtistField, true);
            break;
        case FileKey::SortAlbum:
            setSortSource(SortAlbumField, true);
            break;
        case FileKey::SortAlbumArtist:
            setSortSource(SortAlbumArtistField, true);
            break;
        case FileKey::SortComposer:
            setSortSource(SortComposerField, true);
            break;
        case FileKey::SortSeries:
            setSortSource(SortShowField, true);
            break;
        case FileKey::SortGenre:
            setSortSource(SortGenreField, true);
            break;
        }
    }

    // Streams and tracks without a file are left out.
    if (!fileType || !hasLocation) {
        part.tracks.pop_back();
        return true;
    }

    track.setReal(CVAttr::Size, size);
    track.setReal(CVAttr::TotalTime, totalTime);
    track.setInteger(CVAttr::Rating, rating / 20);
    track.setInteger(CVAttr::AlbumRating, albumRating / 20);

    // The book playlist is applied once the whole file is read; it only ever yields "Books".
    const QString *type = &kTypes[0];
    if (audiobookGenre)
        type = &kTypes[1];
    else if (podcast)
        type = &kTypes[2];
    else if (iTunesU)
        type = &kTypes[3];
    else if (tvShow)
        type = &kTypes[4];
    else if (movie)
        type = &kTypes[5];
    track.setText(CVAttr::MediaType, *type);

    for (int f = 0; f < SortFieldCount; ++f) {
        CVStringInterner::Entry *entry = !sort[f].sortValue.isNull() ? sort[f].sortEntry : sort[f].valueEntry;
        if (entry) {
            if (entry->derived.isNull())
                entry->derived = CVFormatters::customSortString(entry->second, QString());
            track.setText(kSortTargets[f], entry->derived);
        } else {
            track.setText(kSortTargets[f], CVFormatters::customSortString(sort[f].sortValue, sort[f].value));
        }
    }

    if (m_options.crashedWhileSpanning && track.has(CVAttr::PersistentID)) {
        const auto it = m_options.lastTracksSpanned.constFind(track.textRef(CVAttr::PersistentID));
        if (it != m_options.lastTracksSpanned.cend()) {
            track.setText(CVAttr::OriginalLocation, *it);
        } else if (track.has(CVAttr::Location)) {
            track.setText(CVAttr::OriginalLocation, track.textRef(CVAttr::Location));
        }
    } else if (track.has(CVAttr::Location)) {
        track.setText(CVAttr::OriginalLocation, track.textRef(CVAttr::Location));
    }
    for (CVAttr flag : { CVAttr::SymSpan, CVAttr::FullSpan, CVAttr::ItemIsRestored, CVAttr::ItemIsSpanned })
        track.setFlag(flag, false);
    return true;
}

bool CVLibraryFileReader::readPlaylists(CVPlistReader &reader, Part &part)
{
    for (;;) {
        if (part.cancel && part.cancel->load(std::memory_order_relaxed)) {
            part.error = u"cancelled"_s;
            return false;
        }
        const Token t = reader.next();
        if (t == Token::ArrayEnd)
            return true;
        if (t == Token::DictBegin) {
            if (!readPlaylist(reader, part, part.drafts.emplace_back()))
                return false;
        } else if (t == Token::Error || !reader.skipValue()) {
            return failFrom(part, reader);
        }
    }
}

bool CVLibraryFileReader::readPlaylist(CVPlistReader &reader, Part &part, PlaylistDraft &draft)
{
    static const std::unordered_set<std::string_view> kMarkers = { "Visible", "Master", "Music", "Movies", "TV Shows",
        "Podcasts", "iTunesU", "Audiobooks", "Books", "Party Shuffle" };
    CVPlaylist &p = draft.record;
    for (;;) {
        Token t = reader.next();
        if (t == Token::DictEnd)
            break;
        if (t != Token::Key)
            return failFrom(part, reader);
        const std::string key(reader.text());
        t = reader.next();
        if (t == Token::Error)
            return failFrom(part, reader);
        if (kMarkers.count(key)) {
            draft.builtIn = true;
            if (key == "Audiobooks" || key == "Books")
                draft.books = true;
        }
        if (key == "Playlist Items" && t == Token::ArrayBegin) {
            for (;;) {
                t = reader.next();
                if (t == Token::ArrayEnd)
                    break;
                if (t != Token::DictBegin) {
                    if (t == Token::Error || !reader.skipValue())
                        return failFrom(part, reader);
                    continue;
                }
                for (;;) {
                    t = reader.next();
                    if (t == Token::DictEnd)
                        break;
                    if (t != Token::Key)
                        return failFrom(part, reader);
                    const bool trackID = reader.text() == "Track ID";
                    t = reader.next();
                    if (trackID) {
                        if (const auto id = integerOf(reader))
                            draft.items.push_back(*id);
                    }
                    if (!isScalar(t) && (t == Token::Error || !reader.skipValue()))
                        return failFrom(part, reader);
                }
            }
            continue;
        }
        if (!isScalar(t)) {
            if (!reader.skipValue())
                return failFrom(part, reader);
            continue;
        }
        if (key == "Name") {
            p.name = textOf(reader).value_or(QString());
        } else if (key == "Playlist ID") {
            p.playlistID = integerOf(reader);
        } else if (key == "Playlist Persistent ID") {
            p.playlistPersistentID = textOf(reader).value_or(QString());
        } else if (key == "Parent Persistent ID") {
            p.parentPersistentID = textOf(reader);
        } else if (key == "Folder") {
            if (const auto v = integerOf(reader))
                p.folder = *v != 0;
        } else if (key == "Smart Info") {
            p.smartPlaylist = reader.token() == Token::Data ? reader.data() : QByteArray();
        } else if (key == "Distinguished Kind") {
            draft.distinguishedKind = integerOf(reader);
        } else if (key == "Genius Track ID") {
            draft.hasGeniusTrackID = true;
        }
    }
    if (draft.books)
        part.bookTrackIDs.insert(part.bookTrackIDs.end(), draft.items.begin(), draft.items.end());
    draft.items = sortedDistinct(std::move(draft.items));
    return true;
}

void CVLibraryFileReader::buildPlaylists(std::vector<PlaylistDraft> &all, CVLibraryContents &out)
{
    // Built-in playlists get no record.
    std::vector<PlaylistDraft> drafts;
    drafts.reserve(all.size());
    for (PlaylistDraft &d : all)
        if (!d.builtIn)
            drafts.push_back(std::move(d));

    QHash<QString, std::vector<std::size_t>> children;
    for (std::size_t i = 0; i < drafts.size(); ++i) {
        PlaylistDraft &d = drafts[i];
        CVPlaylist &p = d.record;
        p.genius = d.distinguishedKind == 26;
        if (d.hasGeniusTrackID || p.genius)
            p.group = u"1 GENIUS"_s;
        else if (d.distinguishedKind == 19 || d.distinguishedKind == 20)
            p.group = u"0 STORE"_s;
        else
            p.group = u"2 PLAYLISTS"_s;
        if (p.parentPersistentID)
            children[*p.parentPersistentID].push_back(i);
    }
    for (PlaylistDraft &d : drafts) {
        const auto it = children.constFind(d.record.playlistPersistentID);
        if (it != children.cend())
            d.children = *it;
    }

    // Folders take up the tracks beneath them, one level at a time from the leaves up.
    // A parent loop in a damaged file must not spin forever: a tree is never deeper than its size.
    std::size_t rounds = 0;
    QSet<QString> marked;
    for (const PlaylistDraft &d : drafts)
        if (d.children.empty() && d.record.parentPersistentID)
            marked.insert(*d.record.parentPersistentID);
    while (!marked.isEmpty() && rounds++ <= drafts.size()) {
        const QSet<QString> taken = std::exchange(marked, {});
        for (PlaylistDraft &d : drafts) {
            if (d.children.empty() || !taken.contains(d.record.playlistPersistentID))
                continue;
            std::vector<qint64> items = d.items;
            for (std::size_t child : d.children)
                items.insert(items.end(), drafts[child].items.begin(), drafts[child].items.end());
            d.items = sortedDistinct(std::move(items));
            if (d.record.parentPersistentID)
                marked.insert(*d.record.parentPersistentID);
        }
    }

    out.playlists.reserve(drafts.size());
    for (PlaylistDraft &d : drafts) {
        d.record.tracksPredicate = tracksPredicateFor(d.record, std::move(d.items));
        out.playlists.push_back(std::move(d.record));
    }
}
