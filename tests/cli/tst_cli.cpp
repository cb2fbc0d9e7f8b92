#include "CVCliRun.h"
#include "CVTestHome.h"
#include "Platform/CVInstanceLock.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <QtTest>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QString kEdgeLibrary = QStringLiteral(CORVANA_TEST_DATA "/edge-library.xml");

using Run = CVCliRun;

QJsonDocument json(const Run &run)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(run.out, &error);
    if (error.error != QJsonParseError::NoError)
        qWarning() << error.errorString() << run.out.left(200);
    return doc;
}

} // namespace

class TestCommandLine : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_home = std::make_unique<CVTestHome>(); }
    void cleanup() { m_home.reset(); }

    void info()
    {
        const Run run = runCli({ u"--library"_s, kEdgeLibrary, u"info"_s });
        QCOMPARE(run.status, 0);
        const QJsonObject o = json(run).object();
        QCOMPARE(o.value(u"tracks"_s).toInt(), 8);
        QCOMPARE(o.value(u"playlists"_s).toInt(), 8);
        QCOMPARE(o.value(u"LibraryPersistentID"_s).toString(), u"ABCDEF0123456789"_s);
        QCOMPARE(o.value(u"MusicFolder"_s).toString(), u"/Users/ann/Music/iTunes/iTunes Media"_s);
    }

    void tracksCarryEveryPresentAttribute()
    {
        const Run run = runCli({ u"tracks"_s, u"--library"_s, kEdgeLibrary });
        QCOMPARE(run.status, 0);
        const QJsonArray tracks = json(run).array();
        QCOMPARE(tracks.size(), 8);
        const QJsonObject t = tracks.at(0).toObject();
        QCOMPARE(t.value(u"PersistentID"_s).toString(), u"1111111111111111"_s);
        QCOMPARE(t.value(u"TrackID"_s).toInt(), 100);
        QCOMPARE(t.value(u"Name"_s).toString(), u"\"Hey\" Jude"_s);
        QCOMPARE(t.value(u"Comments"_s).toString(), u"Café & bar <live>"_s);
        QCOMPARE(t.value(u"SortArtist"_s).toString(), u"beatles"_s);
        QCOMPARE(t.value(u"DisplayTime"_s).toString(), u"1:05"_s);
        QCOMPARE(t.value(u"DisplaySize"_s).toString(), u"5.00 MB"_s);
        QCOMPARE(t.value(u"DisplayDiscNumber"_s).toString(), u"1 of 2"_s);
        QCOMPARE(t.value(u"DateModified"_s).toString(), u"03/14/2009 09:05:07 PM"_s);
        QCOMPARE(t.value(u"MediaType"_s).toString(), u"Music"_s);
        QCOMPARE(t.value(u"Rating"_s).toInt(), 2);
        QCOMPARE(t.value(u"Size"_s).toDouble(), 5000000.0);
        QVERIFY(t.value(u"ItemIsSpanned"_s).isBool());
        QVERIFY(!t.value(u"ItemIsSpanned"_s).toBool());
        QCOMPARE(t.value(u"OriginalLocation"_s).toString(), t.value(u"Location"_s).toString());
        QVERIFY(!t.contains(u"SpanLocation"_s));
        QVERIFY(!t.contains(u"Season"_s));
        // A record without a location leaves the key out rather than writing null.
        const QJsonObject web = tracks.at(5).toObject();
        QCOMPARE(web.value(u"TrackID"_s).toInt(), 114);
        QVERIFY(!web.contains(u"Location"_s));
        QCOMPARE(
            tracks.at(3).toObject().value(u"Location"_s).toString(), u"/Users/ann/Café %20/Re\u0301sume\u0301.mp3"_s);
    }

    void playlists()
    {
        const Run run = runCli({ u"--library"_s, kEdgeLibrary, u"playlists"_s });
        QCOMPARE(run.status, 0);
        const QJsonArray lists = json(run).array();
        QCOMPARE(lists.size(), 8);
        const QJsonObject folder = lists.at(0).toObject();
        QCOMPARE(folder.value(u"Name"_s).toString(), u"Folder A"_s);
        QVERIFY(folder.value(u"Folder"_s).toBool());
        const QJsonObject predicate = folder.value(u"TracksPredicate"_s).toObject();
        QCOMPARE(predicate.value(u"TrackID"_s).toArray(), (QJsonArray { 100, 104 }));
        QCOMPARE(predicate.value(u"isPlaylist"_s).toBool(), true);
        QCOMPARE(predicate.value(u"cacheKey"_s).toString(), u"00000000000000FA"_s);
        QCOMPARE(lists.at(6).toObject().value(u"SmartPlaylist"_s).toBool(), true);
        QVERIFY(!folder.contains(u"SmartPlaylist"_s));
        QCOMPARE(lists.at(3).toObject().value(u"Group"_s).toString(), u"1 GENIUS"_s);
    }

    void missingLibraryIsAnError()
    {
        // HOME is the test's own, with no library in it.
        const Run run = runCli({ u"info"_s });
        QCOMPARE(run.status, 2);
        QVERIFY(run.err.contains("No iTunes Database Found"));
        QVERIFY(run.err.contains("~/Music/iTunes/iTunes Music Library.xml"));
        QVERIFY(run.out.isEmpty());

        QCOMPARE(runCli({ u"--library"_s, m_home->filePath(u"nope.xml"_s), u"info"_s }).status, 2);
        QCOMPARE(runCli({ u"--library"_s, kEdgeLibrary, u"frobnicate"_s }).status, 2);
        QCOMPARE(runCli({ u"--library"_s, kEdgeLibrary }).status, 2);
    }

    void findsTheDefaultLibrary()
    {
        QVERIFY(QDir().mkpath(m_home->filePath(u"Music/iTunes"_s)));
        QVERIFY(QFile::copy(kEdgeLibrary, m_home->filePath(u"Music/iTunes/iTunes Music Library.xml"_s)));
        const Run run = runCli({ u"info"_s });
        QCOMPARE(run.status, 0);
        QCOMPARE(json(run).object().value(u"tracks"_s).toInt(), 8);
    }

    void malformedLibraryIsAnError()
    {
        QFile edge(kEdgeLibrary);
        QVERIFY(edge.open(QIODevice::ReadOnly));
        const QString cut = m_home->filePath(u"cut.xml"_s);
        QFile out(cut);
        QVERIFY(out.open(QIODevice::WriteOnly));
        out.write(edge.readAll().left(3000));
        out.close();
        const Run run = runCli({ u"--library"_s, cut, u"tracks"_s });
        QCOMPARE(run.status, 2);
        QVERIFY(run.err.contains("The iTunes library could not be read."));
        QVERIFY(run.err.contains("unexpected end of file"));
    }

    void generatedLibraryOfAnySize()
    {
        const QString file = m_home->filePath(u"gen.xml"_s);
        QProcess gen;
        gen.start(QStringLiteral(CORVANA_GENLIB), { u"--tracks"_s, u"500"_s, u"--seed"_s, u"3"_s, file });
        QVERIFY(gen.waitForFinished(60000));
        QCOMPARE(gen.exitCode(), 0);
        const QJsonObject made = QJsonDocument::fromJson(gen.readAllStandardOutput()).object();
        const Run run = runCli({ u"--library"_s, file, u"info"_s });
        QCOMPARE(run.status, 0);
        QCOMPARE(json(run).object().value(u"tracks"_s).toInt(), made.value(u"fileTracks"_s).toInt());
        QCOMPARE(json(run).object().value(u"playlists"_s).toInt(), made.value(u"playlists"_s).toInt());
        const Run show = runCli({ u"--library"_s, file, u"show"_s });
        QCOMPARE(show.status, 0);
        QVERIFY(show.out.contains("Playlists:"));
    }

    void selectWithPanesAndPredicates()
    {
        auto select = [](QStringList args) {
            const Run run = runCli(QStringList { u"--library"_s, kEdgeLibrary, u"select"_s } + args);
            return run.status == 0 ? QString::fromUtf8(run.out).split(u'\n', Qt::SkipEmptyParts)
                                   : QStringList { u"ERROR"_s };
        };
        QCOMPARE(select({}).size(), 8);
        QCOMPARE(select({ u"--media"_s, u"Books"_s }), (QStringList { u"2222222222222222"_s, u"8888888888888888"_s }));
        QCOMPARE(select({ u"--media"_s, u"All"_s }).size(), 8);
        QCOMPARE(select({ u"--search"_s, u"HEY jude"_s }), QStringList { u"1111111111111111"_s });
        QCOMPARE(select({ u"--search"_s, u"rock"_s, u"--search-fields"_s, u"Name"_s }), QStringList {});
        QCOMPARE(select({ u"--search"_s, u"rock"_s, u"--search-fields"_s, u"Genre"_s }),
            QStringList { u"1111111111111111"_s });
        QCOMPARE(select({ u"--span-filter"_s, u"Never Spanned"_s }).size(), 8);
        QCOMPARE(select({ u"--span-filter"_s, u"All Spanned"_s }), QStringList {});
        QCOMPARE(select({ u"--location"_s, u"/Volumes/Media/"_s }), QStringList { u"4444444444444444"_s });
        QCOMPARE(
            select({ u"--playlist"_s, u"Folder A"_s }), (QStringList { u"1111111111111111"_s, u"4444444444444444"_s }));
        QCOMPARE(
            select({ u"( Name LIKE[cd] '*resume*' ) OR ( TrackID == 120 )"_s }), QStringList { u"EEEEEEEEEEEEEEEE"_s });
        QCOMPARE(select({ u"{\"PersistentID\": [\"4444444444444444\", \"1111111111111111\"]}"_s }),
            (QStringList { u"1111111111111111"_s, u"4444444444444444"_s }));
        QCOMPARE(select({ u"--media"_s, u"Films"_s }), QStringList { u"ERROR"_s });
        QCOMPARE(select({ u"--playlist"_s, u"Nope"_s }), QStringList { u"ERROR"_s });
        QCOMPARE(select({ u"( Name == "_s }), QStringList { u"ERROR"_s });

        const Run records
            = runCli({ u"--library"_s, kEdgeLibrary, u"select"_s, u"--json"_s, u"--media"_s, u"Movies"_s });
        QCOMPARE(json(records).array().size(), 1);
        QCOMPARE(json(records).array().at(0).toObject().value(u"Name"_s).toString(), u"Film"_s);
    }

    void browseSummaryAndTrees()
    {
        const Run browse = runCli({ u"--library"_s, kEdgeLibrary, u"browse"_s, u"--field"_s, u"Genre"_s, u"--column"_s,
            u"G"_s, u"--sort-field"_s, u"SortGenre"_s });
        QCOMPARE(browse.status, 0);
        const QJsonArray list = json(browse).array();
        QCOMPARE(list.at(0).toArray(), (QJsonArray { u"."_s, u"audiobook"_s, u"rock"_s }));
        QCOMPARE(list.at(1).toArray().at(0).toObject().value(u"G"_s).toString(), u"All (2 Genres)"_s);

        const Run summary = runCli({ u"--library"_s, kEdgeLibrary, u"summary"_s, u"{\"TrackID\": [100]}"_s });
        QCOMPARE(summary.status, 0);
        QCOMPARE(json(summary).object().value(u"LineOneString"_s).toString(), u"\"Hey\" Jude"_s);
        QCOMPARE(json(summary).object().value(u"OverviewString"_s).toString(), u"1 item, 1.1 minutes, 5.00 MB"_s);
        QCOMPARE(runCli({ u"--library"_s, kEdgeLibrary, u"summary"_s }).status, 2);

        const Run locations = runCli({ u"--library"_s, kEdgeLibrary, u"locations"_s, u"--media"_s, u"TV Shows"_s });
        QCOMPARE(locations.status, 0);
        QStringList paths;
        for (const QJsonValue &v : json(locations).array())
            paths.append(v.toObject().value(u"Path"_s).toString());
        QCOMPARE(paths,
            (QStringList {
                u"LOCATIONS"_s, u"/Volumes/Media/"_s, u"/Volumes/Media/TV/"_s, u"/Volumes/Media/TV/Pilot.m4v"_s }));

        const Run groups = runCli({ u"--library"_s, kEdgeLibrary, u"playlist-groups"_s, u"--media"_s, u"Books"_s });
        QCOMPARE(json(groups).object().value(u"groups"_s).toArray(), QJsonArray { u"0 NO PLAYLISTS"_s });
    }

    void loadAndHistory()
    {
        const Run load = runCli({ u"--library"_s, kEdgeLibrary, u"load"_s });
        QCOMPARE(load.status, 0);
        const QJsonObject o = json(load).object();
        QCOMPARE(o.value(u"tracks"_s).toInt(), 8);
        QCOMPARE(o.value(u"records"_s).toInt(), 0);
        QVERIFY(QFile::exists(m_home->filePath(u".local/share/Corvana/SpanRestoreHistory.cvcddb"_s)));
        const Run history = runCli({ u"--library"_s, kEdgeLibrary, u"history"_s, u"--json"_s });
        QCOMPARE(history.status, 0);
        QCOMPARE(json(history).array().size(), 0);

        // A store that cannot be opened: reported, the command goes on, status 3; the file stays.
        const QString store = m_home->filePath(u".local/share/Corvana/SpanRestoreHistory.cvcddb"_s);
        for (const QString &suffix : { u""_s, u"-wal"_s, u"-shm"_s })
            QFile::remove(store + suffix);
        QFile bad(store);
        QVERIFY(bad.open(QIODevice::WriteOnly));
        bad.write("not a database at all, but somebody's precious bytes");
        bad.close();
        const Run broken = runCli({ u"--library"_s, kEdgeLibrary, u"load"_s });
        QCOMPARE(broken.status, 3);
        QVERIFY(broken.err.contains("The span history could not be opened."));
        QCOMPARE(json(broken).object().value(u"tracks"_s).toInt(), 8);
        QCOMPARE(runCli({ u"--library"_s, kEdgeLibrary, u"tracks"_s }).status, 0);
        QVERIFY(bad.open(QIODevice::ReadOnly));
        QCOMPARE(bad.readAll(), QByteArray("not a database at all, but somebody's precious bytes"));
    }

    void oneInstanceAtATime()
    {
        const QString lockPath = CVInstanceLock::defaultPath();
        QVERIFY(lockPath.startsWith(m_home->path()));
        {
            CVInstanceLock held(lockPath);
            QVERIFY(held.tryLock());
            const Run second = runCli({ u"--library"_s, kEdgeLibrary, u"info"_s });
            QCOMPARE(second.status, 2);
            QVERIFY(second.err.contains("Only one instance of Corvana can run at a time..."));
        }
        // A lock left behind by a process that is gone is taken over.
        QProcess gone;
        gone.start(u"/bin/true"_s);
        QVERIFY(gone.waitForFinished());
        QFile stale(lockPath);
        QVERIFY(stale.open(QIODevice::WriteOnly));
        stale.write(QByteArray::number(gone.processId() ? gone.processId() : 2147483) + "\ncorvana-cli\n"
            + QSysInfo::machineHostName().toUtf8() + "\n");
        stale.close();
        QCOMPARE(runCli({ u"--library"_s, kEdgeLibrary, u"info"_s }).status, 0);
    }

    void spanAndRestore()
    {
        const QString library = m_home->filePath(u"Music/iTunes/iTunes Library.xml"_s);
        QProcess genlib;
        genlib.start(QStringLiteral(CORVANA_GENLIB),
            { u"--tracks"_s, u"30"_s, u"--create-media"_s, u"--media-root"_s, m_home->filePath(u"Music/iTunes"_s),
                u"--second-drive"_s, m_home->filePath(u"Archive"_s), library });
        QVERIFY(genlib.waitForFinished(60000) && genlib.exitCode() == 0);
        const QString span = m_home->filePath(u"Span Here"_s);
        const QStringList music { u"--media"_s, u"Music"_s };

        Run run = runCli(QStringList { u"span"_s } + music);
        QCOMPARE(run.status, 2);
        QVERIFY(run.err.contains("You have not selected a span location."));
        run = runCli(QStringList { u"span"_s, u"--to"_s, span } + music);
        QCOMPARE(run.status, 2);
        QVERIFY(run.err.contains("Selected span location cannot be found."));
        QDir().mkpath(span);
        run = runCli(QStringList { u"span"_s, u"--to"_s, span } + music);
        QCOMPARE(run.status, 2);
        QVERIFY(run.err.contains("Are you sure you want to span the"));
        QVERIFY(run.err.contains("Not confirmed"));
        run = runCli(QStringList { u"span"_s, u"--to"_s, span, u"--dry-run"_s } + music);
        QCOMPARE(run.status, 0);
        QVERIFY(run.out.contains(QByteArray("  to   " + QFile::encodeName(span) + "/Music/")));
        QVERIFY(QDir(span).isEmpty());
        // Names as a drive with Windows rules takes them, when asked for.
        const auto forbidden = [&](const QByteArray &out) {
            for (const QByteArray &line : out.split('\n')) {
                const QByteArray below = line.mid(7 + QFile::encodeName(span).size());
                if (line.startsWith("  to   ")
                    && (below.contains('?') || below.contains('"') || below.contains('*') || below.contains(':')
                        || below.contains('|')))
                    return true;
            }
            return false;
        };
        QVERIFY(forbidden(run.out));
        run = runCli(
            QStringList { u"span"_s, u"--to"_s, span, u"--dry-run"_s, u"--windows-names"_s, u"always"_s } + music);
        QCOMPARE(run.status, 0);
        QVERIFY(!forbidden(run.out));
        QCOMPARE(
            runCli(QStringList { u"span"_s, u"--to"_s, span, u"--windows-names"_s, u"often"_s } + music).status, 2);

        // A missing file is refused until --anyway answers "Span Anyway".
        const QList<QByteArray> planned = run.out.split('\n');
        const QString firstSource = QString::fromUtf8(planned.value(1).mid(7));
        QVERIFY(QFile::rename(firstSource, firstSource + u".gone"_s));
        run = runCli(QStringList { u"span"_s, u"--to"_s, span, u"--yes"_s } + music);
        QCOMPARE(run.status, 2);
        QVERIFY(run.err.contains("Files for 1 of the selected tracks could not be found."));
        QVERIFY(run.err.contains("--anyway answers \"Span Anyway\""));
        run = runCli(QStringList { u"span"_s, u"--to"_s, span, u"--yes"_s, u"--anyway"_s } + music);
        QCOMPARE(run.status, 1);
        QVERIFY(run.out.contains("Tracks Successfully Spanned"));
        QVERIFY(run.out.contains("1 track failed"));
        QVERIFY(run.out.contains("The original file could not be found."));
        QVERIFY(!QFileInfo::exists(firstSource));

        // Advice about the location is printed; the run goes on with it.
        run = runCli({ u"span"_s, u"--to"_s, m_home->filePath(u"Music/iTunes/iTunes Media/Music"_s), u"--dry-run"_s,
            u"--media"_s, u"Movies"_s });
        QVERIFY(run.err.contains("Location cannot be within the default iTunes Media location."));
        QVERIFY(run.err.contains("Keeping"));

        QVERIFY(QFile::rename(firstSource + u".gone"_s, firstSource));
        run = runCli({ u"restore"_s, u"--span-filter"_s, u"All Spanned"_s, u"--yes"_s });
        QCOMPARE(run.status, 0);
        QVERIFY(run.out.contains("Tracks Successfully Restored"));
        run = runCli({ u"update-dependent"_s });
        QCOMPARE(run.status, 0);
        QVERIFY(run.out.contains("No dependently spanned tracks."));
        run = runCli(QStringList { u"locate"_s } + music);
        QCOMPARE(run.status, 0);
        QVERIFY(run.out.contains("Asked the player to locate"));
    }

private:
    std::unique_ptr<CVTestHome> m_home;
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_cli.moc"
