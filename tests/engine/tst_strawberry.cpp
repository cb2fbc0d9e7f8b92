// Span and restore runs against a Strawberry collection, end to end: with Strawberry not running,
// with a stand-in for Strawberry on a private bus (quit before the run, played again after it),
// with one that never quits, with the database held by another writer, of a schema Corvana does
// not know, and with the tool killed between the backup and the commit. Every time: every file's
// bytes are where the collection or the Trash says, and every row that is not a moved song's
// place is as it was.
#include "CVCliRun.h"
#include "CVGeneratedLibrary.h"
#include "CVSpanSession.h"
#include "CVTestEnvironment.h"
#include "CVTestFiles.h"
#include "Engine/CVStrawberryPlayerLink.h"
#include "Library/CVPlayerLibraryFile.h"
#include "Library/CVStrawberryDB.h"
#include "Library/CVTrack.h"
#include "Platform/CVSettings.h"
#include "Platform/CVTrash.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <QtTest>

#include <sqlite3.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

using Table = QMap<qint64, QStringList>; // ROWID -> every column as "type:value"

Table dump(const QString &database, const char *table)
{
    Table rows;
    sqlite3 *db = nullptr;
    sqlite3_open_v2(QFile::encodeName(database).constData(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt *s = nullptr;
    sqlite3_prepare_v2(db, QByteArray(QByteArray("SELECT ROWID, * FROM ") + table).constData(), -1, &s, nullptr);
    while (s && sqlite3_step(s) == SQLITE_ROW) {
        QStringList row;
        for (int c = 1; c < sqlite3_column_count(s); ++c)
            row.append(QString::number(sqlite3_column_type(s, c)) + u':'
                + QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(s, c))));
        rows.insert(sqlite3_column_int64(s, 0), row);
    }
    sqlite3_finalize(s);
    sqlite3_close(db);
    return rows;
}

int columnOf(const QString &database, const char *table, const char *column)
{
    sqlite3 *db = nullptr;
    sqlite3_open_v2(QFile::encodeName(database).constData(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt *s = nullptr;
    sqlite3_prepare_v2(db, QByteArray(QByteArray("SELECT * FROM ") + table).constData(), -1, &s, nullptr);
    int found = -1;
    for (int c = 0; s && c < sqlite3_column_count(s); ++c)
        if (qstrcmp(sqlite3_column_name(s, c), column) == 0)
            found = c;
    sqlite3_finalize(s);
    sqlite3_close(db);
    return found;
}

QString value(const QStringList &row, int column)
{
    return row.value(column).section(u':', 1);
}

bool exec(const QString &database, const char *sql)
{
    sqlite3 *db = nullptr;
    sqlite3_open(QFile::encodeName(database).constData(), &db);
    const bool ok = sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
    sqlite3_close(db);
    return ok;
}

using Session = CVPlayerSpanSession<CVStrawberryPlayerLink>;

} // namespace

class TestStrawberry : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<CVTestEnvironment> m_home;
    CVGeneratedLibrary m_generated;
    Table m_songs, m_directories, m_subdirectories, m_playlists, m_items;

    QString database() const { return m_home->filePath(u".local/share/strawberry/strawberry/strawberry.db"_s); }
    QString spanFolder() const { return m_home->filePath(u"Span Drive/Spanned"_s); }

    void makeCollection(int songs, int schema = 15)
    {
        CVLibraryGeneratorOptions options;
        options.tracks = songs;
        options.seed = 23;
        options.mediaRoot = m_home->filePath(u"Music Library"_s);
        QVERIFY2(m_generated.write(database(), options, CVGeneratedLibrary::Player::Strawberry, schema),
            qPrintable(m_generated.errorString));
        m_songs = dump(database(), "songs");
        m_directories = dump(database(), "directories");
        m_subdirectories = dump(database(), "subdirectories");
        m_playlists = dump(database(), "playlists");
        m_items = dump(database(), "playlist_items");
        QCOMPARE(m_generated.digests.size(), songs);
    }

    // Every song's file is where the collection names it, with its bytes; of every song row only
    // the place may have changed; every other table row is as it was, with new folder rows added.
    void checkCollection()
    {
        QCOMPARE(m_generated.locationsNow().size(), m_generated.digests.size());
        const QStringList misplaced = m_generated.notAtTheirPlace();
        QVERIFY2(misplaced.isEmpty(), qPrintable(misplaced.join(u", "_s)));
        const int url = columnOf(database(), "songs", "url");
        const int folder = columnOf(database(), "songs", "directory_id");
        const int art = columnOf(database(), "songs", "art_automatic");
        const Table songs = dump(database(), "songs");
        QCOMPARE(songs.keys(), m_songs.keys());
        const Table directories = dump(database(), "directories");
        for (auto [rowID, row] : songs.asKeyValueRange()) {
            QStringList before = m_songs.value(rowID);
            QStringList after = row;
            if (value(after, url) != value(before, url)) {
                // Moved: its collection folder holds its new place.
                const QString path = *CVStrawberryDB::pathFromURL(value(after, url).toUtf8());
                const QString collection = value(directories.value(value(after, folder).toLongLong()), 0);
                QVERIFY2(path.startsWith(collection + u'/'), qPrintable(path + u" not under "_s + collection));
                for (int c : { url, folder, art })
                    before[c] = after[c] = QString();
            }
            QCOMPARE(after, before);
        }
        for (auto [rowID, row] : m_directories.asKeyValueRange())
            QCOMPARE(directories.value(rowID), row);
        const Table subdirectories = dump(database(), "subdirectories");
        for (auto [rowID, row] : m_subdirectories.asKeyValueRange())
            QCOMPARE(subdirectories.value(rowID).mid(0, 2), row.mid(0, 2));
        // Every folder that holds a song is registered under the song's collection folder.
        QSet<QString> registered;
        for (const QStringList &row : subdirectories)
            registered.insert(value(row, 0) + u'\t' + value(row, 1));
        for (const QStringList &row : songs) {
            const QString path = *CVStrawberryDB::pathFromURL(value(row, url).toUtf8());
            QVERIFY2(
                registered.contains(value(row, folder) + u'\t' + QFileInfo(path).absolutePath()), qPrintable(path));
        }
        QCOMPARE(dump(database(), "playlists"), m_playlists);
        // Items of other types name files by their own url, which follows the file.
        const Table items = dump(database(), "playlist_items");
        QCOMPARE(items.keys(), m_items.keys());
        const int itemURL = columnOf(database(), "playlist_items", "url");
        const int type = columnOf(database(), "playlist_items", "type");
        QSet<QString> songURLs;
        for (const QStringList &row : songs)
            songURLs.insert(value(row, url));
        for (auto [rowID, row] : items.asKeyValueRange()) {
            QStringList before = m_items.value(rowID);
            if (value(row, type) == u"1"_s) {
                QVERIFY(songURLs.contains(value(row, itemURL)));
                before[itemURL] = row[itemURL];
            }
            QCOMPARE(row, before);
        }
    }

    QStringList trashed() const
    {
        return QDir(CVTrash::homeTrashFolder() + u"/files"_s).entryList(QDir::Files | QDir::NoDotAndDotDot);
    }

    QString startPlayer(QProcess &player, const QStringList &extra = {})
    {
        const QString record = m_home->filePath(u"player.txt"_s);
        player.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        player.start(QStringLiteral(CORVANA_STRAWBERRY_TESTPLAYER),
            QStringList { u"--database"_s, database(), u"--record"_s, record } + extra);
        if (!player.waitForStarted()
            || !waitForBusName(QString::fromLatin1(CVStrawberryPlayerLink::MprisService), true))
            return {};
        return record;
    }

private Q_SLOTS:
    void init() { m_home = std::make_unique<CVTestEnvironment>(); }
    void cleanup() { m_home.reset(); }

    // The collection as tracks: places decoded from Strawberry's URLs, play counts, ratings,
    // both kinds of playlist item; found by the player preference and on its own.
    void readCollection_data()
    {
        QTest::addColumn<int>("schema");
        QTest::newRow("15") << 15;
        QTest::newRow("23") << 23;
    }
    void readCollection()
    {
        QFETCH(int, schema);
        makeCollection(80, schema);
        CVLibraryContents contents;
        QString error;
        QVERIFY2(CVPlayerLibraryFile::read(database(), contents, {}, &error), qPrintable(error));
        QCOMPARE(int(contents.tracks.size()), 80);
        const int plays = columnOf(database(), "songs", "playcount");
        const int rating = columnOf(database(), "songs", "rating");
        bool special = false;
        for (const CVTrack &track : contents.tracks) {
            const QStringList row = m_songs.value(track.integer(CVAttr::TrackID));
            QVERIFY(QFileInfo::exists(track.text(CVAttr::Location)));
            QCOMPARE(track.integer(CVAttr::Plays), value(row, plays).toLongLong());
            const double stars = value(row, rating).toDouble();
            QCOMPARE(track.integer(CVAttr::Rating), stars < 0 ? 0 : qRound(stars * 5));
            special |= track.text(CVAttr::Location).contains(u'%') || track.text(CVAttr::Location).contains(u'#');
        }
        QVERIFY(special);
        // Each playlist holds its collection songs and the songs its other items name.
        QCOMPARE(int(contents.playlists.size()), m_playlists.size());
        QVERIFY(!contents.playlists.front().tracksPredicate.trackIDs().empty());

        QCOMPARE(CVPlayerLibraryFile::chooseLibraryFile(m_home->path(), u"strawberry"_s), database());
        QCOMPARE(CVPlayerLibraryFile::chooseLibraryFile(m_home->path(), u"auto"_s), database());
        QCOMPARE(CVPlayerLibraryFile::kindOf(database()), CVPlayerLibraryFile::Kind::Strawberry);
        QFile::copy(database(), m_home->filePath(u"copy.sqlite"_s));
        QCOMPARE(
            CVPlayerLibraryFile::kindOf(m_home->filePath(u"copy.sqlite"_s)), CVPlayerLibraryFile::Kind::Strawberry);
    }

    // Strawberry not running: the link writes the database itself, the history finds the songs
    // at their span location at the next start, and restore brings them home to their own
    // collection folder.
    void spanAndRestore_data() { readCollection_data(); }
    void spanAndRestore()
    {
        QFETCH(int, schema);
        makeCollection(60, schema);
        QStringList spanned;
        {
            Session s(database());
            const QList<CVTrack *> tracks = s.select(u""_s).mid(0, 25);
            for (const CVTrack *t : tracks)
                spanned.append(t->text(CVAttr::PersistentID));
            s.span(tracks, spanFolder());
            QCOMPARE(s.spanner.lastResults().successes, 25);
            QVERIFY(s.link.pendingChanges().isEmpty());
            QVERIFY(QFileInfo::exists(s.link.backupPath()));
        }
        checkCollection();
        QCOMPARE(trashed().size(), 25);
        const QHash<QString, QString> after = playerLocations(database());
        for (const QString &pid : std::as_const(spanned))
            QVERIFY(after.value(pid).startsWith(spanFolder()));
        // The span location is the one new collection folder.
        const Table directories = dump(database(), "directories");
        QCOMPARE(directories.size(), m_directories.size() + 1);
        QCOMPARE(value(directories.last(), 0), spanFolder());

        {
            Session s(database());
            const QList<CVTrack *> full = s.select(u"( FullSpan == 1 )"_s);
            QCOMPARE(full.size(), 25);
            s.restore(full);
            QCOMPARE(s.spanner.lastResults().successes, 25);
        }
        checkCollection();
        // Home again, each in its own collection folder: the songs table is as it was.
        const Table songs = dump(database(), "songs");
        const int mtime = columnOf(database(), "songs", "mtime");
        for (auto [rowID, row] : m_songs.asKeyValueRange()) {
            QStringList now = songs.value(rowID);
            now[mtime] = row[mtime];
            QCOMPARE(now, row);
        }
        Session again(database());
        QCOMPARE(again.select(u"( ItemIsRestored == 1 )"_s).size(), 25);
    }

    // Strawberry playing: it is quit (with a Quit whose reply is waited for) before anything is
    // copied, the database is written, and it plays the same song from its new place afterwards.
    void strawberryQuitsAndPlaysAgain()
    {
        makeCollection(20);
        const QString pid = m_generated.locations.keys().constFirst();
        QProcess player;
        const QString record = startPlayer(player,
            { u"--state"_s, u"Playing"_s, u"--url"_s,
                QString::fromUtf8(CVStrawberryDB::urlFromPath(m_generated.locations.value(pid))), u"--position"_s,
                u"42"_s, u"--linger"_s, u"300"_s });
        QVERIFY(!record.isEmpty());
        Session s(database());
        s.link.setLaunchCommand(
            { QStringLiteral(CORVANA_STRAWBERRY_TESTPLAYER), u"--database"_s, database(), u"--record"_s, record });
        s.span({ s.track(pid) }, spanFolder());
        QCOMPARE(s.spanner.lastResults().successes, 1);
        QVERIFY(player.waitForFinished(10000));
        const QString spannedAt = playerLocations(database()).value(pid);
        QVERIFY(spannedAt.startsWith(spanFolder()));
        QVERIFY(waitForBusName(QString::fromLatin1(CVStrawberryPlayerLink::MprisService), true));
        QStringList calls;
        for (const QString &line : QString::fromUtf8(readAll(record)).split(u'\n', Qt::SkipEmptyParts))
            calls.append(line.startsWith(u"Started"_s) || line.startsWith(u"Quit"_s) ? line.section(u' ', 0, 0) : line);
        QCOMPARE(calls.mid(0, 3), (QStringList { u"Started"_s, u"Quit"_s, u"Started"_s }));
        QVERIFY(calls.contains(u"OpenUri "_s + QString::fromUtf8(CVStrawberryDB::urlFromPath(spannedAt))));
        QVERIFY(calls.contains(u"SetPosition 42"_s));
        checkCollection();
        s.link.quitStrawberry();
    }

    // Strawberry running but not playing stays quit after the run, unless the user asked for it back.
    void strawberryStoppedComesBackWhenAskedFor()
    {
        makeCollection(10);
        for (const bool relaunch : { false, true }) {
            QProcess player;
            const QString record = startPlayer(player);
            QVERIFY(!record.isEmpty());
            Session s(database());
            s.settings.setValue(CVSettingsKey::RelaunchPlayerAfterRun, relaunch);
            s.link.setLaunchCommand({ QStringLiteral(CORVANA_STRAWBERRY_TESTPLAYER), u"--database"_s, database() });
            const QList<CVTrack *> tracks = s.select(u"( ItemIsSpanned == 0 )"_s).mid(0, 2);
            s.span(tracks, spanFolder());
            QCOMPARE(s.spanner.lastResults().successes, 2);
            QVERIFY2(player.waitForFinished(10000), readAll(record).constData());
            QCOMPARE(s.link.isStrawberryRunning(), relaunch);
            QVERIFY(s.link.quitStrawberry());
        }
        checkCollection();
    }

    // A Strawberry that does not quit: the run stops before any copy, and says why.
    void strawberryThatDoesNotQuit()
    {
        makeCollection(10);
        QProcess player;
        QVERIFY(!startPlayer(player, { u"--no-quit"_s }).isEmpty());
        const QByteArray bytes = readAll(database());
        {
            Session s(database());
            s.link.setQuitTimeout(1000);
            const QString why = s.spanner.checkRunCanStart();
            QVERIFY2(why.contains(u"did not quit within 1 seconds"_s), qPrintable(why));
            s.span(s.select(u""_s), spanFolder());
            QVERIFY(s.select(u"( ItemIsSpanned == 1 )"_s).isEmpty());
        }
        QVERIFY(QDir(spanFolder()).isEmpty());
        QVERIFY(trashed().isEmpty());
        QCOMPARE(readAll(database()), bytes);
        player.kill();
        player.waitForFinished();
    }

    void refusals()
    {
        makeCollection(10);
        const QStringList pids = m_generated.locations.keys();
        // A new place that another song already has: not taken, nothing journaled.
        {
            Session s(database());
            QVERIFY(!s.link.setTrackLocation(pids[0], m_generated.locations.value(pids[1])));
            QVERIFY(s.link.pendingChanges().isEmpty());
            QVERIFY(s.link.setTrackLocation(pids[0], m_home->filePath(u"elsewhere.mp3"_s)));
            QVERIFY(!s.link.setTrackLocation(pids[1], m_home->filePath(u"elsewhere.mp3"_s)));
            QCOMPARE(s.link.pendingChanges().size(), 1);
            // Taken in the database since: refused at the write, the rest written.
            QVERIFY(s.link.setTrackLocation(pids[2], m_home->filePath(u"there.mp3"_s)));
            const QByteArray there = CVStrawberryDB::urlFromPath(m_home->filePath(u"there.mp3"_s));
            QVERIFY(exec(database(),
                QByteArray("UPDATE songs SET url = '" + there
                    + "' WHERE ROWID = " + QByteArray::number(*CVStrawberryDB::rowIDOf(pids[3])))
                    .constData()));
            QVERIFY(s.link.applyJournal());
            const QHash<QString, QString> now = playerLocations(database());
            QCOMPARE(now.value(pids[0]), m_home->filePath(u"elsewhere.mp3"_s));
            QCOMPARE(now.value(pids[2]), m_generated.locations.value(pids[2]));
        }
        // One file that two songs share (a cue sheet, or a row Strawberry 1.0 doubled) keeps its place.
        {
            const qint64 twin = *CVStrawberryDB::rowIDOf(pids[5]);
            QVERIFY(exec(database(),
                QByteArray("INSERT INTO songs (url, beginning) SELECT url, 1 FROM songs WHERE ROWID = "
                    + QByteArray::number(twin))
                    .constData()));
            Session s(database());
            QVERIFY(!s.link.setTrackLocation(pids[5], m_home->filePath(u"cue.mp3"_s)));
            QVERIFY(s.link.pendingChanges().isEmpty());
        }
        // A schema Corvana does not know: refused before the run, nothing touched.
        for (const char *version : { "14", "24" }) {
            QVERIFY(
                exec(database(), QByteArray(QByteArray("UPDATE schema_version SET version = ") + version).constData()));
            const QByteArray bytes = readAll(database());
            CVLibraryContents contents;
            QString error;
            QVERIFY(!CVPlayerLibraryFile::read(database(), contents, {}, &error));
            QVERIFY2(error.contains(u"schema version "_s + QLatin1StringView(version)), qPrintable(error));
            CVStrawberryPlayerLink link(database(), CVSpanHistory::applicationSupportFolder(), nullptr);
            QVERIFY(link.checkLocationsCanBeSet().contains(QLatin1StringView(version)));
            QVERIFY(link.setTrackLocation(pids[4], m_home->filePath(u"x.mp3"_s)) == false);
            QCOMPARE(readAll(database()), bytes);
        }
    }

    // Strawberry's own settings decide whether a song whose drive is away survives.
    void unavailableSongsWarning()
    {
        const QString conf = m_home->filePath(u"strawberry.conf"_s);
        QVERIFY(CVStrawberryPlayerLink::unavailableSongsWarning(conf).contains(u"60 days"_s)); // the defaults
        writeFile(conf, "[Collection]\nexpire_unavailable_songs=0\n");
        QVERIFY(CVStrawberryPlayerLink::unavailableSongsWarning(conf).isEmpty());
        writeFile(conf, "[Collection]\nmark_songs_unavailable=false\nexpire_unavailable_songs=0\n");
        QVERIFY(CVStrawberryPlayerLink::unavailableSongsWarning(conf).contains(u"deletes the spanned songs"_s));
    }

    // Another program holds a write transaction: the run does not start; a journal written
    // meanwhile stays until the database can be written, and is then written whole.
    void lockedDatabase()
    {
        makeCollection(10);
        sqlite3 *other = nullptr;
        sqlite3_open(QFile::encodeName(database()).constData(), &other);
        QCOMPARE(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
        Session s(database());
        const QString why = s.spanner.checkRunCanStart();
        QVERIFY2(why.contains(u"in use by another program"_s), qPrintable(why));
        const QString pid = m_generated.locations.keys().constFirst();
        QVERIFY(s.link.setTrackLocation(pid, m_home->filePath(u"moved.mp3"_s)));
        QString error;
        QVERIFY(!s.link.applyJournal(&error));
        QVERIFY2(error.contains(u"in use"_s), qPrintable(error));
        QCOMPARE(s.link.pendingChanges().size(), 1);
        QCOMPARE(dump(database(), "songs"), m_songs);
        sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
        sqlite3_close(other);
        QVERIFY(s.link.applyJournal(&error));
        QVERIFY(s.link.pendingChanges().isEmpty());
        QCOMPARE(playerLocations(database()).value(pid), m_home->filePath(u"moved.mp3"_s));
    }

    // The tool killed between the backup and the commit: the database is as it was, and the
    // next start finishes the work from the journal.
    void killedBetweenBackupAndCommit()
    {
        makeCollection(20);
        const QStringList span { u"--player"_s, u"strawberry"_s, u"span"_s, u"--to"_s, spanFolder(), u"--yes"_s,
            u"--media"_s, u"Music"_s };
        QDir().mkpath(spanFolder());
        QVERIFY(runCli(span, u"library-rename=1:KILL"_s).killed);
        QCOMPARE(dump(database(), "songs"), m_songs);
        QVERIFY(trashed().isEmpty());
        QVERIFY(!QDir(CVSpanHistory::applicationSupportFolder()).entryList({ u"Strawberry Backup*"_s }).isEmpty());
        QVERIFY(!QDir(CVSpanHistory::applicationSupportFolder()).entryList({ u"Strawberry Journal*"_s }).isEmpty());

        const CVCliRun again = runCli(span);
        QVERIFY2(again.status == 0, again.err.constData());
        checkCollection();
        int moved = 0;
        for (const QString &path : playerLocations(database()))
            moved += path.startsWith(spanFolder()) ? 1 : 0;
        QVERIFY(moved > 0);
        QVERIFY(QDir(CVSpanHistory::applicationSupportFolder()).entryList({ u"Strawberry Journal*"_s }).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestStrawberry)
#include "tst_strawberry.moc"
