#include "CVLibraryGenerator.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

enum class Media { Music, Movie, TVShow, Podcast, ITunesU, Audiobook, BookByPlaylist };

// Texts that a reader must survive: quotes, stars, backslashes, slashes, entities,
// "%", ")(" and letters in both Unicode forms.
const char *const kArtists[] = {
    "The Beatles",
    "Beyoncé",
    "Beyonce\xcc\x81",
    "Sigur Rós",
    "Björk",
    "Motörhead",
    "AC/DC",
    "Guns N' Roses",
    "\"Weird Al\" Yankovic",
    "P!nk",
    "Ke$ha",
    "*NSYNC",
    "The The",
    "Back\\Slash",
    "Ludwig van Beethoven",
    "Миша",
    "坂本龍一",
    "Café Tacvba",
    "Ólafur Arnalds",
    "Hüsker Dü",
    "The Jesus & Mary Chain",
    "10,000 Maniacs",
    "¡Forward, Russia!",
    "50% Off",
    "(Paren)(Theses)",
    "Qu'est-ce",
    "...And You Will Know Us",
    "Zoë Keating",
    "Mötley Crüe",
    "A <Tag> Band",
};
const char *const kWords[] = {
    "Love",
    "Night",
    "Blue",
    "Song",
    "River",
    "Light",
    "Heart",
    "Dream",
    "Road",
    "Fire",
    "Rain",
    "Time",
    "Home",
    "Star",
    "Summer",
    "Déjà",
    "Vu",
    "Naïve",
    "Über",
    "Señor",
    "Ångström",
    "Fjörd",
    "O'Brien",
    "Rock'n'Roll",
    "*Live*",
    "Why?",
    "50%",
    "A/B",
    "C:\\D",
    "\"Quoted\"",
    "Zwölf",
    "Çà",
    "Ева",
    "東京",
};
const char *const kGenres[] = { "Rock", "Pop", "Jazz", "Classical", "Electronic", "Hip-Hop", "Folk", "Metal", "R&B",
    "Soundtrack", "World", "Alternative & Punk", "Blues", "Country" };
const char *const kKinds[]
    = { "AAC audio file", "MPEG audio file", "Apple Lossless audio file", "Purchased AAC audio file" };

struct Writer {
    std::string out;

    void raw(const char *s) { out += s; }
    void raw(const std::string &s) { out += s; }
    static std::string escaped(const std::string &s)
    {
        std::string r;
        r.reserve(s.size());
        for (char c : s) {
            if (c == '&')
                r += "&#38;";
            else if (c == '<')
                r += "&#60;";
            else if (c == '>')
                r += "&#62;";
            else
                r += c;
        }
        return r;
    }
    void key(const char *indent, const char *k)
    {
        out += indent;
        out += "<key>";
        out += k;
        out += "</key>";
    }
    void integer(const char *indent, const char *k, long long v)
    {
        key(indent, k);
        out += "<integer>" + std::to_string(v) + "</integer>\n";
    }
    void string(const char *indent, const char *k, const std::string &v)
    {
        key(indent, k);
        out += "<string>" + escaped(v) + "</string>\n";
    }
    void date(const char *indent, const char *k, long long secs)
    {
        key(indent, k);
        const QByteArray text = QDateTime::fromSecsSinceEpoch(secs, Qt::UTC).toString(Qt::ISODate).toUtf8();
        out += "<date>" + text.toStdString() + "</date>\n";
    }
    void flag(const char *indent, const char *k, bool v)
    {
        key(indent, k);
        out += v ? "<true/>\n" : "<false/>\n";
    }
};

std::string hexID(std::mt19937_64 &rng)
{
    char buf[17];
    std::snprintf(buf, sizeof buf, "%016llX", static_cast<unsigned long long>(rng()));
    return buf;
}

// The player's folder names: "/" and ":" become "_", a leading dot is dropped.
std::string folderName(std::string s)
{
    for (char &c : s)
        if (c == '/' || c == ':')
            c = '_';
    while (!s.empty() && s.front() == '.')
        s.erase(s.begin());
    if (s.size() > 60)
        s.resize(60);
    while (!s.empty() && (static_cast<unsigned char>(s.back()) & 0xC0) == 0x80)
        s.pop_back();
    if (!s.empty() && (static_cast<unsigned char>(s.back()) & 0x80))
        s.pop_back();
    return s.empty() ? std::string("Unknown") : s;
}

std::string fileURL(const QString &path)
{
    return "file://localhost" + path.toUtf8().toPercentEncoding("/").toStdString();
}

} // namespace

CVLibraryGenerator::CVLibraryGenerator(CVLibraryGeneratorOptions options)
    : m_options(std::move(options))
{
}

bool CVLibraryGenerator::write(const QString &libraryFile, CVLibraryGeneratorResult *result)
{
    std::mt19937_64 rng(m_options.seed);
    auto pick = [&](int n) { return int(rng() % std::uint64_t(n)); };
    auto chance = [&](int percent) { return pick(100) < percent; };
    auto words = [&](int count) {
        std::string s;
        for (int i = 0; i < count; ++i) {
            if (i)
                s += ' ';
            s += kWords[pick(int(std::size(kWords)))];
        }
        return s;
    };

    const QString mediaFolder = m_options.mediaRoot + u"/iTunes Media"_s;
    // With files on disk, nothing is written outside the media root unless a drive was given.
    const QString secondDrive = !m_options.secondDrive.isEmpty() ? m_options.secondDrive
        : m_options.createMediaFiles                             ? m_options.mediaRoot + u"/Archive"_s
                                                                 : u"/Volumes/Archive"_s;
    CVLibraryGeneratorResult res;

    // Artists and albums in proportions of a real collection: about 12 tracks an album.
    const int albums = std::max(1, m_options.tracks / 12);
    const int artists = std::max(1, albums / 2);
    std::vector<std::string> artistNames(static_cast<std::size_t>(artists));
    for (int i = 0; i < artists; ++i)
        artistNames[std::size_t(i)] = i < int(std::size(kArtists)) ? kArtists[i] : words(2) + " " + std::to_string(i);
    std::vector<std::string> albumNames(static_cast<std::size_t>(albums));
    for (int i = 0; i < albums; ++i)
        albumNames[std::size_t(i)] = words(1 + i % 3) + " " + std::to_string(i);

    Writer w;
    w.out.reserve(std::size_t(m_options.tracks) * 2100 + 65536);
    const std::string libraryID = hexID(rng);
    w.raw("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
          "<!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.0//EN\" "
          "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n<dict>\n");
    w.integer("\t", "Major Version", 1);
    w.integer("\t", "Minor Version", 1);
    w.date("\t", "Date", 1700000000);
    w.string("\t", "Application Version", "12.9.5.5");
    w.integer("\t", "Features", 5);
    w.flag("\t", "Show Content Ratings", true);
    w.string("\t", "Music Folder", fileURL(mediaFolder + u'/'));
    w.string("\t", "Library Persistent ID", libraryID);
    w.key("\t", "Tracks");
    w.raw("\n\t<dict>\n");

    struct TrackFacts {
        int id;
        Media media;
        bool file;
        int album;
        int genre;
    };
    std::vector<TrackFacts> facts;
    facts.reserve(std::size_t(m_options.tracks));
    const char *const in = "\t\t\t";
    for (int i = 0; i < m_options.tracks; ++i) {
        const int id = 1000 + i * 2;
        const int roll = pick(1000);
        Media media = Media::Music;
        if (roll < 30)
            media = Media::Movie;
        else if (roll < 70)
            media = Media::TVShow;
        else if (roll < 100)
            media = Media::Podcast;
        else if (roll < 110)
            media = Media::ITunesU;
        else if (roll < 120)
            media = Media::Audiobook;
        else if (roll < 130)
            media = Media::BookByPlaylist;
        const bool stream = pick(1000) < 5;
        const bool noLocation = !stream && pick(1000) < 2;
        // Tracks arrive album by album, as a library grows; a fifth are singles added later.
        const int album = chance(80) ? std::min(albums - 1, i / 12) : pick(albums);
        const int artist = album % artists;
        const bool compilation = album % 17 == 3;
        const int trackArtist = compilation ? pick(artists) : artist;
        const int genre = album % int(std::size(kGenres));
        const int trackNumber = 1 + (i % 14);
        const int discCount = album % 9 == 0 ? 2 : 1;
        const std::string name = words(1 + pick(4)) + (chance(5) ? " (Live)" : "");
        const std::string &albumName = albumNames[std::size_t(album)];
        const long long size = !m_options.createMediaFiles ? 2000000 + pick(9000000)
            : m_options.mediaFileBytes > 0                 ? m_options.mediaFileBytes + pick(4096)
                                                           : 512 + pick(3584);
        const long long totalTime = media == Media::Movie ? 3600000LL + pick(3600000) : 60000 + pick(400000);
        const long long added = 1050000000LL + (long long)(rng() % 700000000ULL);

        w.raw("\t\t<key>" + std::to_string(id) + "</key>\n\t\t<dict>\n");
        w.integer(in, "Track ID", id);
        w.integer(in, "Size", size);
        w.integer(in, "Total Time", totalTime);
        if (discCount > 1 || chance(70))
            w.integer(in, "Disc Number", 1 + trackNumber % discCount);
        if (discCount > 1 || chance(60))
            w.integer(in, "Disc Count", discCount);
        w.integer(in, "Track Number", trackNumber);
        w.integer(in, "Track Count", 14);
        w.integer(in, "Year", 1960 + album % 66);
        if (chance(10))
            w.integer(in, "BPM", 80 + pick(100));
        w.date(in, "Date Modified", added + pick(1000000));
        w.date(in, "Date Added", added);
        w.integer(in, "Bit Rate", chance(50) ? 256 : 320);
        w.integer(in, "Sample Rate", chance(80) ? 44100 : 48000);
        if (chance(60)) {
            w.integer(in, "Play Count", 1 + pick(200));
            w.integer(in, "Play Date", 3600000000LL + pick(100000000));
            w.date(in, "Play Date UTC", added + 5000000);
        }
        if (chance(20)) {
            w.integer(in, "Skip Count", 1 + pick(9));
            w.date(in, "Skip Date", added + 7000000);
        }
        if (chance(40)) {
            w.integer(in, "Rating", 20 * pick(6));
            w.integer(in, "Album Rating", 20 * pick(6));
            w.flag(in, "Album Rating Computed", true);
        }
        if (chance(30))
            w.date(in, "Release Date", added - 86400LL * pick(3000));
        if (compilation)
            w.flag(in, "Compilation", true);
        w.integer(in, "Artwork Count", 1);
        w.integer(in, "Normalization", 500 + pick(4000));
        w.integer(in, "File Type", 1295270176);
        if (chance(10))
            w.flag(in, "Explicit", true);
        if (chance(50))
            w.flag(in, "Purchased", true);
        w.string(in, "Persistent ID", hexID(rng));
        w.string(in, "Track Type", stream ? "URL" : "File");
        if (media == Media::Podcast)
            w.flag(in, "Podcast", true);
        if (media == Media::ITunesU)
            w.flag(in, "iTunesU", true);
        if (media == Media::TVShow)
            w.flag(in, "TV Show", true);
        if (media == Media::Movie || (media == Media::TVShow && chance(10)))
            w.flag(in, "Movie", true);
        if (media == Media::Movie || media == Media::TVShow)
            w.flag(in, "Has Video", true);
        w.integer(in, "File Folder Count", 5);
        w.integer(in, "Library Folder Count", 1);
        w.string(in, "Name", name);
        std::string shownArtist = artistNames[std::size_t(trackArtist)];
        if (media == Media::TVShow) {
            const std::string series = "Show " + std::to_string(album % 40);
            w.string(in, "Artist", series);
            w.string(in, "Album", series + ", Season " + std::to_string(1 + album % 5));
            w.string(in, "Series", series);
            w.integer(in, "Season", 1 + album % 5);
            w.string(in, "Episode", "S" + std::to_string(1 + album % 5) + "E" + std::to_string(trackNumber));
            w.integer(in, "Episode Order", trackNumber);
            shownArtist = series;
        } else {
            w.string(in, "Artist", shownArtist);
            if (compilation || chance(30))
                w.string(in, "Album Artist",
                    compilation ? std::string("Various Artists") : artistNames[std::size_t(artist)]);
            w.string(in, "Album", albumName);
        }
        if (chance(30))
            w.string(in, "Composer", artistNames[std::size_t(pick(artists))]);
        const char *genreName = media == Media::Podcast ? "Podcast"
            : media == Media::Audiobook                 ? "Audiobook"
            : media == Media::ITunesU                   ? "Education"
                                                        : kGenres[genre];
        w.string(in, "Genre", genreName);
        w.string(in, "Kind", media == Media::Movie || media == Media::TVShow ? "MPEG-4 video file" : kKinds[genre % 4]);
        if (chance(15))
            w.string(in, "Comments", "Ripped on " + std::to_string(2000 + pick(26)) + " \u2014 \"best\" take");
        if (chance(5))
            w.string(in, "Grouping", "Grouping " + std::to_string(pick(9)));
        if (shownArtist.rfind("The ", 0) == 0)
            w.string(in, "Sort Artist", shownArtist.substr(4));
        if (name.rfind("A ", 0) == 0)
            w.string(in, "Sort Name", name.substr(2));
        if (chance(30))
            w.string(in, "Sort Album", albumName);

        bool file = false;
        if (stream) {
            w.string(in, "Location", "http://radio.example.invalid/stream" + std::to_string(i) + ".m3u");
        } else if (!noLocation) {
            const bool onSecondDrive = pick(10) == 0;
            const char *folder = media == Media::Movie                        ? "Movies"
                : media == Media::TVShow                                      ? "TV Shows"
                : media == Media::Podcast                                     ? "Podcasts"
                : media == Media::ITunesU                                     ? "iTunes U"
                : media == Media::Audiobook || media == Media::BookByPlaylist ? "Audiobooks"
                                                                              : "Music";
            QString base = (onSecondDrive ? secondDrive + u"/Music"_s : mediaFolder) + u'/' + QString::fromUtf8(folder);
            const std::string artistFolder = folderName(compilation ? "Compilations" : shownArtist);
            QString path = base + u'/' + QString::fromStdString(artistFolder) + u'/'
                + QString::fromStdString(folderName(albumName)) + u'/' + QString::asprintf("%02d ", trackNumber)
                + QString::fromStdString(folderName(name)) + QString::asprintf(" %d", id)
                + (media == Media::Movie || media == Media::TVShow ? u".m4v"_s : u".m4a"_s);
            // Files written on a Mac carry decomposed letters in their names.
            if (chance(20))
                path = path.normalized(QString::NormalizationForm_D);
            w.string(in, "Location", fileURL(path));
            file = true;
            if (m_options.createMediaFiles) {
                QDir().mkpath(QFileInfo(path).path());
                QFile mediaFile(path);
                if (!mediaFile.open(QIODevice::WriteOnly)) {
                    m_error = u"Cannot write %1: %2"_s.arg(path, mediaFile.errorString());
                    return false;
                }
                QByteArray bytes(qsizetype(size), '\0');
                for (qsizetype b = 0; b < bytes.size(); ++b)
                    bytes[b] = char((b * 131 + id) & 0xFF);
                mediaFile.write(bytes);
            }
        }
        w.raw("\t\t</dict>\n");
        (file ? res.fileTracks : res.otherTracks)++;
        facts.push_back({ id, media, file, album, genre });
    }
    w.raw("\t</dict>\n");

    // Playlists: the built-in ones first, as the player writes them.
    w.key("\t", "Playlists");
    w.raw("\n\t<array>\n");
    auto playlist
        = [&](const std::string &name, const std::string &pid, const std::string &parent,
              const std::vector<std::pair<const char *, long long>> &ints, const std::vector<const char *> &flags,
              bool folder, bool smart, const std::vector<int> &items, bool counts) {
              const char *const p = "\t\t\t";
              w.raw("\t\t<dict>\n");
              w.string(p, "Name", name);
              for (const auto &[k, v] : ints)
                  w.integer(p, k, v);
              w.string(p, "Playlist Persistent ID", pid);
              if (!parent.empty())
                  w.string(p, "Parent Persistent ID", parent);
              for (const char *f : flags)
                  w.flag(p, f, std::string(f) != "Visible" ? true : false);
              if (folder)
                  w.flag(p, "Folder", true);
              w.flag(p, "All Items", true);
              if (smart) {
                  w.key(p, "Smart Info");
                  w.raw("\n\t\t\t<data>\n\t\t\tAQEAAwAAAAIAAAAZAAAAAAAAAAcAAAABAAAAAAAAAAAAAAAAAAAAAAAA\n\t\t\tAAAAAA=="
                        "\n\t\t\t</data>\n");
                  w.key(p, "Smart Criteria");
                  w.raw("\n\t\t\t<data>\n\t\t\tU0xzdAABAAEAAAACAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA\n\t\t\t</data>\n");
              }
              if (!items.empty()) {
                  w.key(p, "Playlist Items");
                  w.raw("\n\t\t\t<array>\n");
                  for (int id : items) {
                      w.raw("\t\t\t\t<dict>\n");
                      w.integer("\t\t\t\t\t", "Track ID", id);
                      w.raw("\t\t\t\t</dict>\n");
                  }
                  w.raw("\t\t\t</array>\n");
              }
              w.raw("\t\t</dict>\n");
              if (counts)
                  ++res.playlists;
          };
    auto idsWhere = [&](auto predicate) {
        std::vector<int> ids;
        for (const TrackFacts &f : facts)
            if (predicate(f))
                ids.push_back(f.id);
        return ids;
    };
    auto any = [](const TrackFacts &) { return true; };
    playlist("Library", hexID(rng), "", { { "Playlist ID", 1 } }, { "Master", "Visible" }, false, false, idsWhere(any),
        false);
    playlist("Music", hexID(rng), "", { { "Playlist ID", 2 }, { "Distinguished Kind", 4 } }, { "Music" }, false, true,
        idsWhere([](const TrackFacts &f) { return f.media == Media::Music; }), false);
    playlist("Movies", hexID(rng), "", { { "Playlist ID", 3 }, { "Distinguished Kind", 2 } }, { "Movies" }, false, true,
        idsWhere([](const TrackFacts &f) { return f.media == Media::Movie; }), false);
    playlist("TV Shows", hexID(rng), "", { { "Playlist ID", 4 }, { "Distinguished Kind", 3 } }, { "TV Shows" }, false,
        true, idsWhere([](const TrackFacts &f) { return f.media == Media::TVShow; }), false);
    playlist("Podcasts", hexID(rng), "", { { "Playlist ID", 5 }, { "Distinguished Kind", 10 } }, { "Podcasts" }, false,
        true, idsWhere([](const TrackFacts &f) { return f.media == Media::Podcast; }), false);
    playlist("Audiobooks", hexID(rng), "", { { "Playlist ID", 6 }, { "Distinguished Kind", 5 } }, { "Audiobooks" },
        false, true,
        idsWhere([](const TrackFacts &f) { return f.media == Media::Audiobook || f.media == Media::BookByPlaylist; }),
        false);
    playlist("Party Shuffle", hexID(rng), "", { { "Playlist ID", 7 } }, { "Party Shuffle" }, false, false, {}, false);
    playlist("Purchased", hexID(rng), "", { { "Playlist ID", 8 }, { "Distinguished Kind", 19 } }, {}, false, false,
        idsWhere([](const TrackFacts &f) { return f.id % 50 == 0; }), true);

    // Folders nested three deep, with playlists at every level.
    const std::string outer = hexID(rng), inner = hexID(rng), innermost = hexID(rng);
    playlist("Collections", outer, "", { { "Playlist ID", 20 } }, {}, true, false, {}, true);
    playlist("Decades", inner, outer, { { "Playlist ID", 21 } }, {}, true, false, {}, true);
    playlist("Only Folders Inside", innermost, inner, { { "Playlist ID", 22 } }, {}, true, false, {}, true);
    playlist("'60s \"Gold\"", hexID(rng), innermost, { { "Playlist ID", 23 } }, {}, false, false,
        idsWhere([&](const TrackFacts &f) { return f.file && f.album % 66 < 10; }), true);
    playlist("Rock*Star", hexID(rng), inner, { { "Playlist ID", 24 } }, {}, false, false,
        idsWhere([](const TrackFacts &f) { return f.genre == 0 && f.media == Media::Music; }), true);
    playlist("Jazz \\ Blues", hexID(rng), outer, { { "Playlist ID", 25 } }, {}, false, true,
        idsWhere([](const TrackFacts &f) { return f.genre == 2 || f.genre == 12; }), true);
    playlist("Genius Mix", hexID(rng), "", { { "Playlist ID", 30 }, { "Distinguished Kind", 26 } }, {}, false, false,
        idsWhere([](const TrackFacts &f) { return f.id % 7 == 0; }), true);
    playlist("Genius: Love Song", hexID(rng), "", { { "Playlist ID", 31 }, { "Genius Track ID", 1000 } }, {}, false,
        false, idsWhere([](const TrackFacts &f) { return f.id % 11 == 0; }), true);
    playlist("Store Genius", hexID(rng), "",
        { { "Playlist ID", 32 }, { "Distinguished Kind", 20 }, { "Genius Track ID", 1002 } }, {}, false, false,
        idsWhere([](const TrackFacts &f) { return f.id % 13 == 0; }), true);
    playlist("Recently Added", hexID(rng), "", { { "Playlist ID", 33 } }, {}, false, true,
        idsWhere([&](const TrackFacts &f) { return f.id >= 1000 + 2 * (int(facts.size()) - 25); }), true);
    playlist("Empty ☆ Playlist", hexID(rng), "", { { "Playlist ID", 34 } }, {}, false, false, {}, true);
    w.raw("\t</array>\n</dict>\n</plist>\n");

    QDir().mkpath(QFileInfo(libraryFile).path());
    QSaveFile out(libraryFile);
    if (!out.open(QIODevice::WriteOnly) || out.write(w.out.data(), qint64(w.out.size())) != qint64(w.out.size())
        || !out.commit()) {
        m_error = u"Cannot write %1: %2"_s.arg(libraryFile, out.errorString());
        return false;
    }
    res.bytes = qint64(w.out.size());
    if (result)
        *result = res;
    return true;
}
