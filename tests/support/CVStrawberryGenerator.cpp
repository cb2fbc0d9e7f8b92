#include "CVStrawberryGenerator.h"

#include "Library/CVStrawberryDB.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sqlite3.h>

#include <random>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

// The song columns of Strawberry 1.0, as songs and playlist_items both hold them.
const char *const kSongColumns
    = "title TEXT, album TEXT, artist TEXT, albumartist TEXT, track INTEGER NOT NULL DEFAULT -1, "
      "disc INTEGER NOT NULL DEFAULT -1, year INTEGER NOT NULL DEFAULT -1, originalyear INTEGER NOT NULL DEFAULT -1, "
      "genre TEXT, compilation INTEGER NOT NULL DEFAULT 0, composer TEXT, performer TEXT, grouping TEXT, comment TEXT, "
      "lyrics TEXT, artist_id TEXT, album_id TEXT, song_id TEXT, beginning INTEGER NOT NULL DEFAULT 0, "
      "length INTEGER NOT NULL DEFAULT 0, bitrate INTEGER NOT NULL DEFAULT -1, samplerate INTEGER NOT NULL DEFAULT -1, "
      "bitdepth INTEGER NOT NULL DEFAULT -1, source INTEGER NOT NULL DEFAULT 0, directory_id INTEGER NOT NULL DEFAULT "
      "-1, "
      "url TEXT NOT NULL, filetype INTEGER NOT NULL DEFAULT 0, filesize INTEGER NOT NULL DEFAULT -1, "
      "mtime INTEGER NOT NULL DEFAULT -1, ctime INTEGER NOT NULL DEFAULT -1, unavailable INTEGER DEFAULT 0, "
      "fingerprint TEXT, playcount INTEGER NOT NULL DEFAULT 0, skipcount INTEGER NOT NULL DEFAULT 0, "
      "lastplayed INTEGER NOT NULL DEFAULT -1, lastseen INTEGER NOT NULL DEFAULT -1, "
      "compilation_detected INTEGER DEFAULT 0, compilation_on INTEGER NOT NULL DEFAULT 0, "
      "compilation_off INTEGER NOT NULL DEFAULT 0, compilation_effective INTEGER NOT NULL DEFAULT 0, "
      "art_automatic TEXT, art_manual TEXT, effective_albumartist TEXT, "
      "effective_originalyear INTEGER NOT NULL DEFAULT 0, cue_path TEXT, rating INTEGER DEFAULT -1";
// What versions 16 to 23 add to both.
const char *const kLaterColumns[] = { "acoustid_id TEXT", "acoustid_fingerprint TEXT",
    "musicbrainz_album_artist_id TEXT", "musicbrainz_recording_id TEXT", "art_embedded INTEGER DEFAULT 0",
    "art_unset INTEGER DEFAULT 0", "ebur128_integrated_loudness_lufs REAL", "ebur128_loudness_range_lu REAL" };

const char *const kArtists[] = { "The Beatles", "Björk", "AC_DC", "Guns N' Roses", "Sigur Rós", "50% Off", "Миша",
    "坂本龍一", "The \"Quoted\" Band", "Hash # Tag", "Why? Not", "Space  Twice" };
const char *const kWords[] = { "Love", "Night", "Blue", "Déjà", "Vu", "Naïve", "Über", "100%", "Rock & Roll", "東京",
    "Fire", "Rain", "%20 Road", "Star", "It's" };
const char *const kGenres[] = { "Rock", "Pop", "Jazz", "Classical", "Electronic", "Audiobook" };

bool run(sqlite3 *db, const QByteArray &sql, QString *error)
{
    char *message = nullptr;
    if (sqlite3_exec(db, sql.constData(), nullptr, nullptr, &message) == SQLITE_OK)
        return true;
    *error = QString::fromUtf8(message) + u" in: "_s + QString::fromUtf8(sql.left(200));
    sqlite3_free(message);
    return false;
}

qint64 mtimeOf(const QString &path)
{
    struct stat info { };
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? qint64(info.st_mtime) : 0;
}

} // namespace

CVStrawberryGenerator::CVStrawberryGenerator(CVLibraryGeneratorOptions options, int schemaVersion)
    : m_options(std::move(options))
    , m_schema(schemaVersion)
{
}

bool CVStrawberryGenerator::write(const QString &databaseFile, CVStrawberryGeneratorResult *result)
{
    QDir().mkpath(QFileInfo(databaseFile).absolutePath());
    QFile::remove(databaseFile);
    sqlite3 *db = nullptr;
    if (sqlite3_open(QFile::encodeName(databaseFile).constData(), &db) != SQLITE_OK) {
        m_error = u"cannot create %1"_s.arg(databaseFile);
        sqlite3_close(db);
        return false;
    }
    const auto fail = [&] {
        sqlite3_close(db);
        return false;
    };
    QByteArray songColumns = kSongColumns;
    if (m_schema > 15)
        for (const char *column : kLaterColumns)
            songColumns += QByteArray(", ") + column;
    QByteArray schema = "BEGIN; CREATE TABLE schema_version (version INTEGER NOT NULL);"
                        "INSERT INTO schema_version (version) VALUES ("
        + QByteArray::number(m_schema)
        + ");"
          "CREATE TABLE directories (path TEXT NOT NULL, subdirs INTEGER NOT NULL);"
          "CREATE TABLE subdirectories (directory_id INTEGER NOT NULL, path TEXT NOT NULL, mtime INTEGER NOT NULL);"
          "CREATE TABLE songs ("
        + songColumns
        + ");"
          "CREATE TABLE playlists (name TEXT NOT NULL, last_played INTEGER NOT NULL DEFAULT -1, "
          "ui_order INTEGER NOT NULL DEFAULT 0, special_type TEXT, ui_path TEXT, is_favorite INTEGER NOT NULL DEFAULT "
          "0, "
          "dynamic_playlist_type INTEGER, dynamic_playlist_backend TEXT, dynamic_playlist_data BLOB"
        + QByteArray(m_schema >= 23 ? ", half_playing_time_s INTEGER, position_playing_time INTEGER" : "")
        + ");"
          "CREATE TABLE playlist_items (playlist INTEGER NOT NULL, type INTEGER NOT NULL DEFAULT 0, "
          "collection_id INTEGER, playlist_url TEXT, "
        + QByteArray(songColumns).replace(" NOT NULL DEFAULT", " DEFAULT")
        + ");"
          "CREATE INDEX idx_url ON songs (url);"
          "CREATE INDEX idx_artist ON songs (artist);";
    if (m_schema >= 23)
        schema += "CREATE UNIQUE INDEX idx_url_beginning ON songs (url, beginning);";
    if (!run(db, schema, &m_error))
        return fail();

    std::mt19937_64 rng(m_options.seed);
    const auto pick = [&](int n) { return int(rng() % std::uint64_t(n)); };
    const auto words = [&](int count) {
        QString s;
        for (int i = 0; i < count; ++i)
            s += (i ? u" "_s : QString()) + QString::fromUtf8(kWords[pick(int(std::size(kWords)))]);
        return s;
    };
    const QString folders[2] = { m_options.mediaRoot + u"/Music"_s,
        m_options.secondDrive.isEmpty() ? m_options.mediaRoot + u"/Archive"_s : m_options.secondDrive };

    sqlite3_stmt *song = nullptr;
    sqlite3_prepare_v2(db,
        "INSERT INTO songs (title, album, artist, albumartist, track, disc, year, genre, comment, length, bitrate, "
        "samplerate, source, directory_id, url, filetype, filesize, mtime, ctime, playcount, skipcount, lastplayed, "
        "rating, art_automatic, compilation_effective) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, 2, "
        "?13, "
        "?14, ?15, ?16, ?17, ?18, ?19, ?20, ?21, ?22, ?23, ?24)",
        -1, &song, nullptr);
    const auto text = [](sqlite3_stmt *s, int i, const QString &value) {
        const QByteArray utf8 = value.toUtf8();
        sqlite3_bind_text(s, i, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
    };
    CVStrawberryGeneratorResult res;
    std::vector<QByteArray> urls;
    QSet<QString> subfolders[2];
    QSet<QString> usedPaths;
    for (int i = 0; i < m_options.tracks; ++i) {
        const int drive = pick(10) == 0 ? 1 : 0;
        const QString artist = QString::fromUtf8(kArtists[pick(int(std::size(kArtists)))]);
        const QString album = words(1 + pick(2));
        QString title = words(1 + pick(3));
        const int track = 1 + pick(14);
        QString path;
        for (int attempt = 0;; ++attempt) {
            path = folders[drive] + u'/' + artist + u'/' + album + u'/' + QString::number(track).rightJustified(2, u'0')
                + u' ' + title + (attempt ? u" "_s + QString::number(attempt) : QString()) + u".mp3"_s;
            if (!usedPaths.contains(path))
                break;
        }
        usedPaths.insert(path);
        qint64 size = 1000 + pick(100000);
        if (m_options.createMediaFiles) {
            QDir().mkpath(QFileInfo(path).absolutePath());
            QFile file(path);
            if (!file.open(QIODevice::WriteOnly)) {
                m_error = u"cannot write %1"_s.arg(path);
                sqlite3_finalize(song);
                return fail();
            }
            QByteArray bytes = "ID3" + QByteArray::number(i) + ' ' + path.toUtf8();
            bytes += QByteArray(int(256 + pick(4096)), char('a' + i % 26));
            file.write(bytes);
            size = bytes.size();
        }
        for (QString dir = QFileInfo(path).absolutePath(); dir.size() >= folders[drive].size();
             dir = QFileInfo(dir).absolutePath())
            subfolders[drive].insert(dir);
        const QString genre = QString::fromUtf8(kGenres[pick(int(std::size(kGenres)))]);
        text(song, 1, title);
        text(song, 2, album);
        text(song, 3, artist);
        text(song, 4, pick(5) == 0 ? u"Various Artists"_s : QString());
        sqlite3_bind_int(song, 5, track);
        sqlite3_bind_int(song, 6, pick(3) == 0 ? 1 + pick(2) : -1);
        sqlite3_bind_int(song, 7, pick(6) == 0 ? -1 : 1960 + pick(60));
        text(song, 8, genre);
        text(song, 9, pick(4) == 0 ? words(4) : QString());
        sqlite3_bind_int64(song, 10, qint64(60 + pick(400)) * 1000000000LL);
        sqlite3_bind_int(song, 11, 128 + 32 * pick(7));
        sqlite3_bind_int(song, 12, pick(2) ? 44100 : 48000);
        sqlite3_bind_int(song, 13, drive + 1);
        const QByteArray url = CVStrawberryDB::urlFromPath(path);
        urls.push_back(url);
        sqlite3_bind_text(song, 14, url.constData(), int(url.size()), SQLITE_TRANSIENT);
        sqlite3_bind_int(song, 15, 9); // MPEG
        sqlite3_bind_int64(song, 16, size);
        const qint64 mtime = m_options.createMediaFiles ? mtimeOf(path) : 1600000000 + pick(100000000);
        sqlite3_bind_int64(song, 17, mtime);
        sqlite3_bind_int64(song, 18, mtime);
        sqlite3_bind_int(song, 19, pick(3) == 0 ? 0 : pick(500));
        sqlite3_bind_int(song, 20, pick(20));
        sqlite3_bind_int64(song, 21, pick(4) == 0 ? -1 : 1650000000 + pick(50000000));
        // Strawberry keeps a rating as a fraction; -1 is none.
        if (pick(3) == 0)
            sqlite3_bind_int(song, 22, -1);
        else
            sqlite3_bind_double(song, 22, pick(6) / 5.0);
        text(song, 23,
            pick(3) == 0
                ? QString::fromUtf8(CVStrawberryDB::urlFromPath(QFileInfo(path).absolutePath() + u"/cover.jpg"_s))
                : QString());
        sqlite3_bind_int(song, 24, pick(10) == 0 ? 1 : 0);
        if (sqlite3_step(song) != SQLITE_DONE) {
            m_error = QString::fromUtf8(sqlite3_errmsg(db));
            sqlite3_finalize(song);
            return fail();
        }
        sqlite3_reset(song);
        ++res.songs;
    }
    sqlite3_finalize(song);

    QByteArray rest;
    for (int drive = 0; drive < 2; ++drive) {
        rest += "INSERT INTO directories (path, subdirs) VALUES ('" + folders[drive].toUtf8().replace('\'', "''")
            + "', 1);";
        for (const QString &dir : std::as_const(subfolders[drive]))
            rest += "INSERT INTO subdirectories (directory_id, path, mtime) VALUES (" + QByteArray::number(drive + 1)
                + ", '" + dir.toUtf8().replace('\'', "''") + "', " + QByteArray::number(mtimeOf(dir)) + ");";
    }
    // Playlists: collection songs (type 2) by ROWID; other items (type 1) by their own url; a stream.
    const int lists = std::max(2, m_options.tracks / 40);
    for (int p = 0; p < lists && !urls.empty(); ++p) {
        rest += "INSERT INTO playlists (name, ui_order) VALUES ('" + words(2).toUtf8().replace('\'', "''") + " "
            + QByteArray::number(p) + "', " + QByteArray::number(p) + ");";
        const int items = 3 + pick(12);
        for (int k = 0; k < items; ++k) {
            const int index = pick(int(urls.size()));
            const QByteArray url = QByteArray(urls[std::size_t(index)]).replace('\'', "''");
            if (pick(3) == 0)
                rest += "INSERT INTO playlist_items (playlist, type, url, title) VALUES (" + QByteArray::number(p + 1)
                    + ", 1, '" + url + "', 'file item');";
            else
                rest += "INSERT INTO playlist_items (playlist, type, collection_id, url) VALUES ("
                    + QByteArray::number(p + 1) + ", 2, " + QByteArray::number(index + 1) + ", '');";
            ++res.playlistItems;
        }
        rest += "INSERT INTO playlist_items (playlist, type, url, title) VALUES (" + QByteArray::number(p + 1)
            + ", 5, 'http://radio.example/stream?x=1', 'A stream');";
        ++res.playlistItems;
        ++res.playlists;
    }
    rest += "COMMIT;";
    if (!run(db, rest, &m_error))
        return fail();
    sqlite3_close(db);
    if (result)
        *result = res;
    return true;
}
