#include "CVRhythmboxGenerator.h"

#include "Library/CVRhythmDB.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <random>
#include <string>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

const char *const kArtists[] = { "The Beatles", "Björk", "AC/DC", "Guns N' Roses", "Sigur Rós", "50% Off", "Миша",
    "坂本龍一", "The Jesus & Mary Chain", "A <Tag> Band", "\"Weird Al\" Yankovic", "Hash # Tag" };
const char *const kWords[] = { "Love", "Night", "Blue", "Déjà", "Vu", "Naïve", "Über", "Why?", "50%", "Rock & Roll",
    "\"Quoted\"", "東京", "Fire", "Rain", "Road", "Star" };
const char *const kGenres[] = { "Rock", "Pop", "Jazz", "Classical", "Electronic", "Folk", "Audiobook" };
const char *const kTypes[] = { "audio/mpeg", "audio/x-vorbis", "audio/x-flac", "audio/x-aac" };

// Rhythmbox's XML writer: the three entities, and letters outside ASCII as character references.
std::string escaped(const std::string &text, bool references)
{
    std::string out;
    const QString unicode = QString::fromStdString(text);
    for (const char32_t c : unicode.toUcs4()) {
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else if (c < 0x80)
            out += char(c);
        else if (references)
            out += QString::asprintf("&#x%X;", unsigned(c)).toStdString();
        else
            out += QString::fromUcs4(&c, 1).toStdString();
    }
    return out;
}

// Folder and file names without "/" (a tag may hold one).
QString safeName(const std::string &text)
{
    QString name = QString::fromStdString(text);
    name.replace(u'/', u'_');
    return name;
}

} // namespace

CVRhythmboxGenerator::CVRhythmboxGenerator(CVLibraryGeneratorOptions options)
    : m_options(std::move(options))
{
}

bool CVRhythmboxGenerator::write(const QString &databaseFile, CVRhythmboxGeneratorResult *result)
{
    std::mt19937_64 rng(m_options.seed);
    const auto pick = [&](int n) { return int(rng() % std::uint64_t(n)); };
    const auto chance = [&](int percent) { return pick(100) < percent; };
    const auto words = [&](int count) {
        std::string s;
        for (int i = 0; i < count; ++i)
            s += (i ? " " : "") + std::string(kWords[pick(int(std::size(kWords)))]);
        return s;
    };
    const QString secondDrive
        = m_options.secondDrive.isEmpty() ? m_options.mediaRoot + u"/Archive"_s : m_options.secondDrive;
    CVRhythmboxGeneratorResult res;
    std::string out;
    out.reserve(std::size_t(m_options.tracks) * 900 + 4096);
    out += "<?xml version=\"1.0\" standalone=\"yes\"?>\n<rhythmdb version=\"2.0\">\n";
    const auto field = [&](const char *name, const std::string &value) {
        out += "    <";
        out += name;
        out += '>';
        out += value;
        out += "</";
        out += name;
        out += ">\n";
    };
    const auto number = [&](const char *name, long long value) { field(name, std::to_string(value)); };

    std::vector<QByteArray> songURIs;
    const int albums = std::max(1, m_options.tracks / 12);
    for (int i = 0; i < m_options.tracks; ++i) {
        // Now and then an entry that is not a song, as a real library has them.
        if (i % 97 == 5) {
            out += "  <entry type=\"iradio\">\n";
            field("title", escaped("Radio " + words(1), true));
            field("genre", "News");
            field("location", "http://radio.example.invalid/stream" + std::to_string(i) + ".ogg");
            field("media-type", "application/octet-stream");
            out += "  </entry>\n";
            ++res.otherEntries;
        } else if (i % 97 == 17) {
            const std::string feed = "http://podcast.example.invalid/feed" + std::to_string(i) + ".xml";
            out += "  <entry type=\"podcast-feed\">\n";
            field("title", escaped("Feed " + words(2), true));
            field("location", feed);
            field("status", "1");
            out += "  </entry>\n  <entry type=\"podcast-post\">\n";
            field("title", escaped("Episode " + words(1), true));
            field("subtitle", "A <b>bold</b> &amp; plain text");
            field("location", "http://podcast.example.invalid/episode" + std::to_string(i) + ".mp3");
            // The post's downloaded file, kept in its mountpoint.
            field("mountpoint",
                CVRhythmDB::fileURIFromPath(m_options.mediaRoot + u"/Podcasts/episode %1.mp3"_s.arg(i)).toStdString());
            field("podcast-feed-url", feed);
            out += "  </entry>\n";
            res.otherEntries += 2;
        } else if (i % 97 == 29) {
            out += "  <entry type=\"ignore\">\n";
            field("title", "");
            field("location",
                CVRhythmDB::fileURIFromPath(m_options.mediaRoot + u"/Music/cover %1.jpg"_s.arg(i)).toStdString());
            field("mtime", "1700000000");
            out += "  </entry>\n  <entry type=\"import-error\">\n";
            field("location",
                CVRhythmDB::fileURIFromPath(m_options.mediaRoot + u"/Music/broken %1.mp3"_s.arg(i)).toStdString());
            field("comment", "Could not determine type of file");
            field("media-type", "application/x-id3");
            out += "  </entry>\n";
            res.otherEntries += 2;
        }

        const int album = std::min(albums - 1, i / 12);
        const std::string artist = kArtists[album % int(std::size(kArtists))];
        const std::string albumName = words(1 + album % 2) + " " + std::to_string(album);
        const std::string title = words(1 + pick(3));
        const char *genre = kGenres[album % int(std::size(kGenres))];
        const int trackNumber = 1 + i % 12;
        const bool onSecondDrive = pick(10) == 0;
        const QString folder = (onSecondDrive ? secondDrive : m_options.mediaRoot) + u"/Music/"_s + safeName(artist)
            + u'/' + safeName(albumName);
        const QString path
            = folder + QString::asprintf("/%02d ", trackNumber) + safeName(title) + QString::asprintf(" %d.mp3", i);
        const long long size = m_options.createMediaFiles
            ? (m_options.mediaFileBytes > 0 ? m_options.mediaFileBytes + pick(4096) : 512 + pick(3584))
            : 3000000 + pick(6000000);
        const bool references = chance(70);

        out += "  <entry type=\"song\">\n";
        field("title", escaped(title, references));
        field("genre", escaped(genre, references));
        field("artist", escaped(artist, references));
        field("album", escaped(albumName, references));
        if (chance(30))
            field("album-artist", escaped(artist, references));
        number("track-number", trackNumber);
        if (chance(50))
            number("track-total", 12);
        if (album % 5 == 0) {
            number("disc-number", 1 + i % 2);
            number("disc-total", 2);
        }
        number("duration", 60 + pick(400));
        number("file-size", size);
        const QByteArray uri = CVRhythmDB::fileURIFromPath(path);
        field("location", escaped(uri.toStdString(), false));
        if (onSecondDrive)
            field("mountpoint", CVRhythmDB::fileURIFromPath(secondDrive).toStdString());
        number("mtime", 1600000000 + pick(100000000));
        number("first-seen", 1600000000 + pick(100000000));
        number("last-seen", 1750000000);
        if (chance(40))
            number("rating", pick(6));
        if (chance(60)) {
            number("play-count", 1 + pick(200));
            number("last-played", 1700000000 + pick(50000000));
        }
        number("bitrate", chance(50) ? 192 : 320);
        if (chance(80))
            number("date", 715876 + (album % 60) * 365); // 1961 onwards, in GLib's days
        field("media-type", kTypes[album % int(std::size(kTypes))]);
        if (chance(30))
            field("composer", escaped(kArtists[pick(int(std::size(kArtists)))], references));
        if (chance(10))
            field("comment", escaped("Ripped \"live\" & loud", references));
        if (artist.rfind("The ", 0) == 0)
            field("artist-sortname", escaped(artist.substr(4), references));
        out += "  </entry>\n";
        songURIs.push_back(uri);
        ++res.songs;

        if (m_options.createMediaFiles) {
            QDir().mkpath(folder);
            QFile media(path);
            if (!media.open(QIODevice::WriteOnly)) {
                m_error = u"Cannot write %1: %2"_s.arg(path, media.errorString());
                return false;
            }
            QByteArray bytes(qsizetype(size), '\0');
            for (qsizetype b = 0; b < bytes.size(); ++b)
                bytes[b] = char((b * 131 + i) & 0xFF);
            media.write(bytes);
        }
    }
    out += "</rhythmdb>\n";

    std::string lists = "<?xml version=\"1.0\"?>\n<rhythmdb-playlists>\n";
    lists += "  <playlist name=\"My Top Rated\" show-browser=\"true\" browser-position=\"144\" "
             "search-type=\"search-match\" type=\"automatic\" sort-key=\"Rating\" sort-direction=\"1\">\n"
             "    <conjunction>\n      <equals prop=\"type\">song</equals>\n      <subquery>\n        <conjunction>\n"
             "          <greater prop=\"rating\">4.000000</greater>\n        </conjunction>\n      </subquery>\n"
             "    </conjunction>\n  </playlist>\n";
    const auto staticList = [&](const std::string &name, int every, int offset) {
        std::string attribute = escaped(name, true);
        for (std::size_t q = 0; (q = attribute.find('"', q)) != std::string::npos; q += 6)
            attribute.replace(q, 1, "&quot;");
        lists += "  <playlist name=\"" + attribute
            + "\" show-browser=\"true\" browser-position=\"180\" search-type=\"search-match\" type=\"static\">\n";
        for (std::size_t s = std::size_t(offset); s < songURIs.size(); s += std::size_t(every))
            lists += "    <location>" + escaped(songURIs[s].toStdString(), false) + "</location>\n";
        lists += "  </playlist>\n";
        ++res.playlists;
    };
    staticList("Road Trip", 7, 0);
    staticList("Déjà \"Vu\" & Co", 11, 3);
    lists += "  <playlist name=\"Empty\" show-browser=\"true\" browser-position=\"180\" search-type=\"search-match\" "
             "type=\"static\"/>\n";
    ++res.playlists;
    res.playlists += 1; // the automatic one
    lists += "  <playlist name=\"Play Queue\" show-browser=\"true\" browser-position=\"161\" "
             "search-type=\"search-match\" type=\"queue\">\n";
    if (!songURIs.empty())
        lists += "    <location>" + escaped(songURIs.front().toStdString(), false) + "</location>\n";
    lists += "  </playlist>\n</rhythmdb-playlists>\n";

    const auto save = [&](const QString &file, const std::string &bytes) {
        QDir().mkpath(QFileInfo(file).path());
        QSaveFile saved(file);
        if (!saved.open(QIODevice::WriteOnly) || saved.write(bytes.data(), qint64(bytes.size())) != qint64(bytes.size())
            || !saved.commit()) {
            m_error = u"Cannot write %1: %2"_s.arg(file, saved.errorString());
            return false;
        }
        return true;
    };
    if (!save(databaseFile, out) || !save(QFileInfo(databaseFile).absolutePath() + u"/playlists.xml"_s, lists))
        return false;
    res.bytes = qint64(out.size());
    if (result)
        *result = res;
    return true;
}
