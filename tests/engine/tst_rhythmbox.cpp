// Span and restore runs against a Rhythmbox library, end to end: with Rhythmbox not running (the
// link rewrites rhythmdb.xml), with a stand-in for Rhythmbox on a private bus (new locations set
// live, the file written when it quits), with one that never quits, and with the tool killed
// between the backup and the rename of the library file. Every time: every file's bytes are where
// the library or the Trash says, and outside the changed elements the library file is as it was.
#include "CVCliRun.h"
#include "CVGeneratedLibrary.h"
#include "CVSpanSession.h"
#include "CVTestEnvironment.h"
#include "CVTestFiles.h"
#include "Engine/CVRhythmboxPlayerLink.h"
#include "Library/CVPlayerLibraryFile.h"
#include "Library/CVRhythmDB.h"
#include "Library/CVTrack.h"
#include "Platform/CVSettings.h"
#include "Platform/CVTrash.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDirIterator>
#include <QProcess>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

// The file with the text of every location and mountpoint element taken out.
QByteArray withoutPlaces(QByteArray bytes)
{
    for (const QByteArray &name : { QByteArray("location"), QByteArray("mountpoint") }) {
        const QByteArray open = '<' + name + '>';
        const QByteArray close = "</" + name + '>';
        qsizetype at = 0;
        while ((at = bytes.indexOf(open, at)) >= 0) {
            const qsizetype lineStart = bytes.lastIndexOf('\n', at) + 1;
            const qsizetype end = bytes.indexOf(close, at) + close.size();
            if (name == "mountpoint" && bytes.mid(lineStart, at - lineStart).trimmed().isEmpty()) {
                bytes.remove(lineStart - 1, end - lineStart + 1);
                at = lineStart - 1;
            } else {
                bytes.replace(at, end - at, QByteArray(open + close));
                at += open.size() + close.size();
            }
        }
    }
    return bytes;
}

using Session = CVPlayerSpanSession<CVRhythmboxPlayerLink>;

} // namespace

class TestRhythmbox : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<CVTestEnvironment> m_home;
    CVGeneratedLibrary m_generated;
    QByteArray m_library;
    QByteArray m_playlists;

    QString database() const { return m_home->filePath(u".local/share/rhythmbox/rhythmdb.xml"_s); }
    QString playlists() const { return m_home->filePath(u".local/share/rhythmbox/playlists.xml"_s); }
    QString spanFolder() const { return m_home->filePath(u"Span Drive/Spanned"_s); }

    void makeLibrary(int songs)
    {
        CVLibraryGeneratorOptions options;
        options.tracks = songs;
        options.seed = 17;
        options.mediaRoot = m_home->filePath(u"Music"_s);
        options.createMediaFiles = true;
        QVERIFY2(m_generated.write(database(), options, CVGeneratedLibrary::Player::Rhythmbox),
            qPrintable(m_generated.errorString));
        m_library = readAll(database());
        m_playlists = readAll(playlists());
        QCOMPARE(m_generated.digests.size(), songs);
    }

    // Every song's file is at the place the library names, with its bytes, or (for the listed
    // songs that did not move) still at its original place.
    void checkEverySong(const QSet<QString> &notMoved = {})
    {
        const QHash<QString, QString> now = m_generated.locationsNow();
        QCOMPARE(now.size(), m_generated.digests.size());
        const QStringList misplaced = m_generated.notAtTheirPlace();
        QVERIFY2(misplaced.isEmpty(), qPrintable(misplaced.join(u", "_s)));
        for (const QString &pid : notMoved)
            QVERIFY(!now.value(pid).startsWith(spanFolder()));
        // Outside the places, not a byte changed.
        QCOMPARE(withoutPlaces(readAll(database())), withoutPlaces(m_library));
    }

    QStringList trashed() const
    {
        return QDir(CVTrash::homeTrashFolder() + u"/files"_s).entryList(QDir::Files | QDir::NoDotAndDotDot);
    }

    QString startPlayer(QProcess &player, const QStringList &extra = {})
    {
        const QString record = m_home->filePath(u"player.txt"_s);
        player.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        player.start(QStringLiteral(CORVANA_RHYTHMBOX_TESTPLAYER),
            QStringList { u"--library"_s, database(), u"--record"_s, record } + extra);
        if (!player.waitForStarted() || !waitForBusName(u"org.gnome.Rhythmbox3"_s, true))
            return {};
        return record;
    }

private Q_SLOTS:
    void init() { m_home = std::make_unique<CVTestEnvironment>(); }
    void cleanup() { m_home.reset(); }

    // Rhythmbox not running: the link writes rhythmdb.xml itself, and the history finds the
    // songs at their span location at the next start, so restore brings them home.
    void spanAndRestoreWithoutRhythmbox()
    {
        makeLibrary(60);
        QStringList spanned;
        {
            Session s(database());
            QVERIFY(!s.link.isRhythmboxRunning());
            const QList<CVTrack *> tracks = s.select(u"( MediaType == 'Music' )"_s).mid(0, 25);
            for (const CVTrack *t : tracks)
                spanned.append(t->text(CVAttr::PersistentID));
            s.span(tracks, spanFolder());
            QCOMPARE(s.spanner.lastResults().successes, 25);
            QVERIFY(s.link.pendingChanges().isEmpty());
        }
        checkEverySong();
        QVERIFY(QFileInfo::exists(database() + u".corvana-backup"_s));
        QCOMPARE(trashed().size(), 25);
        const QHash<QString, QString> after = playerLocations(database());
        for (const QString &pid : std::as_const(spanned))
            QVERIFY(after.value(pid).startsWith(spanFolder()));
        // The playlists name the songs at their new places.
        const QByteArray lists = readAll(playlists());
        int listed = 0;
        for (const QString &pid : std::as_const(spanned)) {
            const auto uri = [](const QString &path) {
                return QByteArray(
                    "<location>" + CVRhythmDB::encodeText(CVRhythmDB::fileURIFromPath(path)) + "</location>");
            };
            const qsizetype before = m_playlists.count(uri(m_generated.locations.value(pid)));
            QCOMPARE(lists.count(uri(after.value(pid))), before);
            QCOMPARE(lists.count(uri(m_generated.locations.value(pid))), 0);
            listed += int(before);
        }
        QVERIFY(listed > 0);

        {
            Session s(database());
            const QList<CVTrack *> full = s.select(u"( FullSpan == 1 )"_s);
            QCOMPARE(full.size(), 25);
            for (const CVTrack *t : full)
                QVERIFY(spanned.contains(t->text(CVAttr::PersistentID)));
            s.restore(full);
            QCOMPARE(s.spanner.lastResults().successes, 25);
        }
        checkEverySong();
        QCOMPARE(withoutPlaces(readAll(database())), withoutPlaces(m_library));
        // Home again: the same locations as before the span.
        const QHash<QString, QString> home = playerLocations(database());
        QCOMPARE(home.size(), m_generated.digests.size());
        for (const QString &pid : std::as_const(spanned))
            QVERIFY(!home.value(pid).startsWith(spanFolder()));
        Session again(database());
        QCOMPARE(again.select(u"( ItemIsRestored == 1 )"_s).size(), 25);
    }

    // Rhythmbox running: each place is set live, its quit writes the file, and verification reads it.
    void spanWhileRhythmboxRuns()
    {
        makeLibrary(30);
        QProcess player;
        const QString record = startPlayer(player);
        QVERIFY(!record.isEmpty());
        {
            Session s(database());
            QVERIFY(s.link.isRhythmboxRunning());
            const QList<CVTrack *> tracks = s.select(u""_s).mid(0, 10);
            s.span(tracks, spanFolder());
            QCOMPARE(s.spanner.lastResults().successes, 10);
            QVERIFY(s.link.pendingChanges().isEmpty());
        }
        QVERIFY(player.waitForFinished(20000));
        QCOMPARE(player.exitCode(), 0);
        const QStringList calls = QString::fromUtf8(readAll(record)).split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(calls.filter(u"SetEntryProperties"_s).size(), 10);
        QCOMPARE(calls.last(), u"Quit"_s);
        // A song on the start-up drive keeps no mountpoint: the call clears it.
        QVERIFY(calls.first().endsWith(u".mp3 "_s));
        QVERIFY(!QFileInfo::exists(database() + u".corvana-backup"_s)); // Rhythmbox wrote its own file
        checkEverySong();
    }

    // A Rhythmbox that never quits never writes the new places: nothing is trashed or recorded.
    void rhythmboxThatDoesNotQuit()
    {
        makeLibrary(20);
        QProcess player;
        QVERIFY(!startPlayer(player, { u"--no-quit"_s }).isEmpty());
        QSet<QString> pids;
        {
            Session s(database());
            s.settings.setValue(CVSettingsKey::FullSpanReattempts, 0);
            s.spanner.setQuitTimeout(1000);
            const QList<CVTrack *> tracks = s.select(u""_s).mid(0, 5);
            for (const CVTrack *t : tracks)
                pids.insert(t->text(CVAttr::PersistentID));
            s.span(tracks, spanFolder());
            QCOMPARE(s.spanner.lastResults().successes, 0);
            QVERIFY(s.select(u"( ItemIsSpanned == 1 )"_s).isEmpty());
        }
        player.kill();
        player.waitForFinished();
        // The copies the player never took may go; every original stays where it was.
        QCOMPARE(readAll(database()), m_library);
        checkEverySong(pids);
    }

    void refusals()
    {
        makeLibrary(10);
        // A new place that another entry already has: not set, nothing written.
        {
            Session s(database());
            const QHash<QString, QString> places = playerLocations(database());
            const QStringList pids = places.keys();
            QVERIFY(!s.link.setTrackLocation(pids[0], places.value(pids[1])));
            QVERIFY(s.link.pendingChanges().isEmpty());
            QVERIFY(s.link.setTrackLocation(pids[0], m_home->filePath(u"elsewhere.mp3"_s)));
            QVERIFY(!s.link.setTrackLocation(pids[1], m_home->filePath(u"elsewhere.mp3"_s)));
            QCOMPARE(s.link.pendingChanges().size(), 1);
        }
        // A version Corvana does not know: the run does not start and copies nothing.
        QByteArray foreign = m_library;
        foreign.replace("<rhythmdb version=\"2.0\">", "<rhythmdb version=\"2.1\">");
        Session s(database());
        for (const QString &file :
            QDir(CVSpanHistory::applicationSupportFolder()).entryList({ u"Rhythmbox Journal*"_s }))
            QFile::remove(CVSpanHistory::applicationSupportFolder() + u'/' + file);
        writeFile(database(), foreign);
        QVERIFY2(s.spanner.checkRunCanStart().contains(u"“2.1”"_s), qPrintable(s.spanner.checkRunCanStart()));
        s.span(s.select(u""_s), spanFolder());
        QVERIFY(QDir(spanFolder()).isEmpty());
        QCOMPARE(readAll(database()), foreign);
    }

    // The tool killed between the backup and the rename: the old file stays whole, and the next
    // start finishes writing it; running the span again completes the work.
    void killedBetweenBackupAndRename()
    {
        makeLibrary(20);
        const QStringList span { u"--player"_s, u"rhythmbox"_s, u"span"_s, u"--to"_s, spanFolder(), u"--yes"_s,
            u"--media"_s, u"Music"_s };
        QDir().mkpath(spanFolder());
        QVERIFY(runCli(span, u"library-rename=1:KILL"_s).killed);
        QCOMPARE(readAll(database()), m_library); // never half a file
        QVERIFY(QFileInfo::exists(database() + u".corvana-backup"_s));
        QVERIFY(trashed().isEmpty());
        QVERIFY(m_generated.notAtTheirPlace().isEmpty());

        const CVCliRun again = runCli(span);
        QVERIFY2(again.status == 0, again.err.constData());
        checkEverySong();
        // The history knows every moved song at its span location.
        const CVCliRun select
            = runCli({ u"--player"_s, u"rhythmbox"_s, u"select"_s, u"--span-filter"_s, u"Fully Spanned"_s });
        const QList<QByteArray> full = select.out.trimmed().split('\n');
        int moved = 0;
        for (const QString &path : playerLocations(database()))
            moved += path.startsWith(spanFolder()) ? 1 : 0;
        QVERIFY(moved > 0);
        QCOMPARE(full.size(), moved);
    }
};

QTEST_GUILESS_MAIN(TestRhythmbox)
#include "tst_rhythmbox.moc"
