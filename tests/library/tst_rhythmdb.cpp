// Rhythmbox's library file: what the reader makes of each entry type, the identities of songs
// across moves, and the rewriter's promises (only the changed elements change, refusals touch
// nothing, a repeat changes nothing more).
#include "CVRhythmboxGenerator.h"
#include "CVTestFiles.h"
#include "CVTestHome.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPlayerLibraryFile.h"
#include "Library/CVRhythmDB.h"
#include "Library/CVRhythmDBReader.h"
#include "Library/CVRhythmDBRewriter.h"
#include "Library/CVRhythmboxIdentities.h"
#include "Library/CVSpanHistory.h"
#include "Platform/CVSettings.h"

#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

const QByteArray kLibrary = R"(<?xml version="1.0" standalone="yes"?>
<rhythmdb version="2.0">
  <entry type="song">
    <title>&#xC9;t&#xE9; &amp; "Hiver"</title>
    <genre>Audiobook</genre>
    <artist>The Band</artist>
    <album>Alb</album>
    <track-number>3</track-number>
    <disc-number>1</disc-number>
    <disc-total>2</disc-total>
    <duration>201</duration>
    <file-size>4000</file-size>
    <location>file:///home/u/Music/%C3%89t%C3%A9%20&amp;%20100%25.mp3</location>
    <mtime>1700000000</mtime>
    <first-seen>1600000000</first-seen>
    <last-seen>1700000001</last-seen>
    <rating>4.5</rating>
    <play-count>7</play-count>
    <last-played>0</last-played>
    <bitrate>320</bitrate>
    <date>730120</date>
    <media-type>audio/mpeg</media-type>
    <artist-sortname>Band, The</artist-sortname>
  </entry>
  <entry type="iradio">
    <title>Radio</title>
    <location>http://radio.invalid/stream</location>
  </entry>
  <entry type="song">
    <title>On a drive</title>
    <location>file:///media/u/Drive/Music/a.ogg</location>
    <mountpoint>file:///media/u/Drive</mountpoint>
    <media-type>audio/x-vorbis</media-type>
  </entry>
  <entry type="ignore">
    <location>file:///home/u/Music/cover.jpg</location>
  </entry>
  <entry type="song">
    <title>No location</title>
  </entry>
</rhythmdb>
)";

const QByteArray kPlaylists = R"(<?xml version="1.0"?>
<rhythmdb-playlists>
  <playlist name="Smart" type="automatic"><conjunction><equals prop="type">song</equals></conjunction></playlist>
  <playlist name="Mix &amp; Match" type="static">
    <location>file:///media/u/Drive/Music/a.ogg</location>
    <location>file:///home/u/Music/%C3%89t%C3%A9%20&amp;%20100%25.mp3</location>
    <location>file:///nowhere.mp3</location>
  </playlist>
  <playlist name="Play Queue" type="queue"><location>file:///media/u/Drive/Music/a.ogg</location></playlist>
</rhythmdb-playlists>
)";

// Every byte of `after` outside the named elements is the same as in `before`.
QByteArray withoutElements(QByteArray bytes, const QList<QByteArray> &names)
{
    for (const QByteArray &name : names) {
        const QByteArray open = '<' + name + '>';
        const QByteArray close = "</" + name + '>';
        qsizetype at = 0;
        while ((at = bytes.indexOf(open, at)) >= 0) {
            const qsizetype end = bytes.indexOf(close, at);
            bytes.replace(at, end + close.size() - at, QByteArray("<" + name + "/>"));
            at += 1;
        }
    }
    return bytes;
}

} // namespace

class TestRhythmDB : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<CVTestHome> m_home;
    QString database() const { return m_home->filePath(u".local/share/rhythmbox/rhythmdb.xml"_s); }

    bool read(CVLibraryContents &contents, QString *error = nullptr)
    {
        QString why;
        const bool ok = CVPlayerLibraryFile::read(database(), contents, {}, &why);
        if (error)
            *error = why;
        return ok;
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<CVTestHome>();
        writeFile(database(), kLibrary);
        writeFile(QFileInfo(database()).absolutePath() + u"/playlists.xml"_s, kPlaylists);
    }
    void cleanup() { m_home.reset(); }

    void uriEscapingIsGLibs()
    {
        // As Rhythmbox itself stored them (Debian 12's 3.4.6).
        QCOMPARE(CVRhythmDB::fileURIFromPath(u"/tmp/rbx/home/Music/ünï%cøde.wav"_s),
            QByteArray("file:///tmp/rbx/home/Music/%C3%BCn%C3%AF%25c%C3%B8de.wav"));
        QCOMPARE(CVRhythmDB::fileURIFromPath(u"/a b/Guns N' Roses/Why? #1 [x] & (y) +=,@$!~*.mp3"_s),
            QByteArray("file:///a%20b/Guns%20N'%20Roses/Why%3F%20%231%20%5Bx%5D%20&%20(y)%20+=,@$!~*.mp3"));
        QCOMPARE(CVRhythmDB::pathFromURI("file:///a%20b/%C3%A9%25.mp3").value(), u"/a b/é%.mp3"_s);
        QCOMPARE(CVRhythmDB::mountPointForPath(u"/mnt/Drive/x/y.mp3"_s).value(), QByteArray("file:///mnt/Drive"));
        QVERIFY(!CVRhythmDB::mountPointForPath(u"/home/u/Music/y.mp3"_s));
        QCOMPARE(
            CVRhythmDB::decodeText("a &amp; &lt;b&gt; &#233;&#xE9; &bogus; &"), QByteArray("a & <b> éé &bogus; &"));
    }

    void songsBecomeTracks()
    {
        CVLibraryContents contents;
        QString error;
        QVERIFY2(read(contents, &error), qPrintable(error));
        QCOMPARE(contents.tracks.size(), std::size_t(2)); // radio, ignore and the song without a place are Rhythmbox's
        const CVTrack &first = contents.tracks[0];
        QCOMPARE(first.text(CVAttr::Name), u"Été & \"Hiver\""_s);
        QCOMPARE(first.text(CVAttr::Location), u"/home/u/Music/Été & 100%.mp3"_s);
        QCOMPARE(first.text(CVAttr::OriginalLocation), first.text(CVAttr::Location));
        QCOMPARE(first.text(CVAttr::Kind), u"audio/mpeg"_s);
        QCOMPARE(first.text(CVAttr::MediaType), u"Books"_s);
        QCOMPARE(first.text(CVAttr::SortArtist), u"band, the"_s);
        QCOMPARE(first.integer(CVAttr::Rating), 4);
        QCOMPARE(first.integer(CVAttr::Plays), 7);
        QCOMPARE(first.integer(CVAttr::Year), 2000);
        QCOMPARE(first.integer(CVAttr::BitRate), 320);
        QCOMPARE(first.real(CVAttr::TotalTime), 201000.0);
        QCOMPARE(first.real(CVAttr::Size), 4000.0);
        QCOMPARE(first.text(CVAttr::DisplayDiscNumber), u"1 of 2"_s);
        QVERIFY(!first.has(CVAttr::LastPlayed)); // 0 is never
        QCOMPARE(first.integer(CVAttr::TrackID), 1);
        QCOMPARE(contents.tracks[1].integer(CVAttr::TrackID), 3);
        QCOMPARE(contents.tracks[1].text(CVAttr::MediaType), u"Music"_s);
        QCOMPARE(contents.persistentID.value(), CVRhythmboxIdentities::libraryPersistentID(database()));
        QCOMPARE(first.text(CVAttr::LibraryPersistentID), *contents.persistentID);
        QCOMPARE(first.text(CVAttr::PersistentID).size(), 16);

        // Static and smart playlists; the play queue is not the user's.
        QCOMPARE(contents.playlists.size(), std::size_t(2));
        QVERIFY(contents.playlists[0].smartPlaylist.has_value());
        QCOMPARE(contents.playlists[1].name, u"Mix & Match"_s);
        QCOMPARE(contents.playlists[1].tracksPredicate.trackIDs(), (std::vector<qint64> { 1, 3 }));
    }

    void badFilesSayWhere_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("said");
        QTest::newRow("version") << QByteArray("<rhythmdb version=\"1.3\">\n</rhythmdb>\n") << u"“1.3”"_s;
        QTest::newRow("not a library") << QByteArray("<plist version=\"1.0\"><dict/></plist>") << u"line 1"_s;
        QTest::newRow("cut short") << kLibrary.left(kLibrary.indexOf("<mtime>") + 3) << u"line 14"_s;
        QTest::newRow("unclosed entry") << QByteArray("<rhythmdb version=\"2.0\">\n  <entry type=\"song\">\n    "
                                                      "<title>x</artist>\n")
                                        << u"line 3"_s;
    }
    void badFilesSayWhere()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, said);
        writeFile(database(), bytes);
        CVLibraryContents contents;
        QString error;
        QVERIFY(!read(contents, &error));
        QVERIFY2(error.contains(said), qPrintable(error));
        QVERIFY(contents.tracks.empty());
        // And the rewriter touches nothing of it.
        const auto result = CVRhythmDBRewriter::apply(database(), { { "file:///x", "file:///y", std::nullopt } });
        QVERIFY(!result.ok);
        QCOMPARE(readAll(database()), bytes);
    }

    // A song keeps its ID across moves, and a newcomer at its old place gets another.
    void identitiesFollowMoves()
    {
        CVRhythmboxIdentities table(CVSpanHistory::applicationSupportFolder(), database());
        QVERIFY(table.load());
        const QByteArray home = "file:///home/a.mp3", span = "file:///span/a.mp3", other = "file:///b.mp3";
        const QString id = table.resolve({ home, other })[0];
        QCOMPARE(id, CVRhythmboxIdentities::derivedID(home));
        QVERIFY(table.record(id, span));
        QCOMPARE(table.resolve({ other, span })[1], id);
        // Before Rhythmbox wrote the move (it was killed): the song at home is still itself.
        QCOMPARE(table.resolve({ home, other })[0], id);
        // A new song at the old place while the first lies at the span location.
        const std::vector<QString> both = table.resolve({ home, span });
        QCOMPARE(both[1], id);
        QVERIFY(both[0] != id);
        // The table is on disk, for the next start; a line cut short by a crash is ignored.
        QFile raw(table.path());
        QVERIFY(raw.open(QIODevice::Append));
        raw.write("ABCDEF\tfile:///half");
        raw.close();
        CVRhythmboxIdentities again(CVSpanHistory::applicationSupportFolder(), database());
        QVERIFY(again.load());
        QCOMPARE(again.resolve({ span })[0], id);
        QCOMPARE(again.resolve({ "file:///half" })[0], CVRhythmboxIdentities::derivedID("file:///half"));
        // Moved back home: the table's latest place wins again.
        QVERIFY(again.record(id, home));
        QCOMPARE(again.resolve({ span, home })[1], id);
    }

    void rewriteChangesOnlyTheChangedElements()
    {
        const QByteArray song = "file:///home/u/Music/%C3%89t%C3%A9%20&%20100%25.mp3";
        const QByteArray onDrive = "file:///media/u/Drive/Music/a.ogg";
        const QByteArray playlistsBefore = readAll(QFileInfo(database()).absolutePath() + u"/playlists.xml"_s);
        const auto result = CVRhythmDBRewriter::apply(database(),
            { { song, "file:///media/u/New/%C3%89t%C3%A9.mp3", QByteArray("file:///media/u/New") },
                { onDrive, "file:///home/u/a&b.ogg", std::nullopt },
                { "file:///gone.mp3", "file:///x", std::nullopt } });
        QVERIFY2(result.ok, qPrintable(result.error));
        QCOMPARE(result.applied, 2);
        QCOMPARE(result.unknown, QList<QByteArray> { "file:///gone.mp3" });
        const QByteArray after = readAll(database());
        QVERIFY(after.contains("    <location>file:///media/u/New/%C3%89t%C3%A9.mp3</location>\n"
                               "    <mountpoint>file:///media/u/New</mountpoint>\n    <mtime>"));
        QVERIFY(after.contains("<location>file:///home/u/a&amp;b.ogg</location>\n    <media-type>"));
        QCOMPARE(after.count("<mountpoint>"), 1);
        QCOMPARE(withoutElements(after, { "location", "mountpoint" }).replace("\n    <mountpoint/>", ""),
            withoutElements(kLibrary, { "location", "mountpoint" }).replace("\n    <mountpoint/>", ""));
        QCOMPARE(readAll(database() + u".corvana-backup"_s), kLibrary);
        const QByteArray playlists = readAll(QFileInfo(database()).absolutePath() + u"/playlists.xml"_s);
        QCOMPARE(playlists.count("file:///home/u/a&amp;b.ogg"), 2); // the static list and the queue
        QVERIFY(playlists.contains("file:///media/u/New/%C3%89t%C3%A9.mp3"));
        QCOMPARE(withoutElements(playlists, { "location" }), withoutElements(playlistsBefore, { "location" }));
        QVERIFY(!QFileInfo::exists(database() + u".corvana-new"_s));

        // Applying it again (after an interruption) changes nothing more.
        const auto repeat = CVRhythmDBRewriter::apply(
            database(), { { song, "file:///media/u/New/%C3%89t%C3%A9.mp3", QByteArray("file:///media/u/New") } });
        QVERIFY(repeat.ok);
        QCOMPARE(readAll(database()), after);

        // The reader finds the songs at their new places, under the IDs they had.
        CVLibraryContents contents;
        QVERIFY(read(contents));
        QCOMPARE(contents.tracks[0].text(CVAttr::Location), u"/media/u/New/Été.mp3"_s);
    }

    void rewriteRefusesATakenLocation()
    {
        // The ignored cover's place, and a chain where the second change takes the first's old place.
        const QByteArray song = "file:///home/u/Music/%C3%89t%C3%A9%20&%20100%25.mp3";
        auto refused
            = CVRhythmDBRewriter::apply(database(), { { song, "file:///home/u/Music/cover.jpg", std::nullopt } });
        QVERIFY(!refused.ok);
        QVERIFY2(
            refused.error.contains(u"/home/u/Music/cover.jpg"_s) && refused.error.contains(u"nothing was changed"_s),
            qPrintable(refused.error));
        QCOMPARE(readAll(database()), kLibrary);
        QVERIFY(!QFileInfo::exists(database() + u".corvana-backup"_s));
        const auto chain = CVRhythmDBRewriter::apply(database(),
            { { song, "file:///tmp/x.mp3", std::nullopt },
                { "file:///media/u/Drive/Music/a.ogg", song, std::nullopt } });
        QVERIFY2(chain.ok, qPrintable(chain.error));
        QVERIFY(CVRhythmDBRewriter::checkFile(database()).isEmpty());
        writeFile(database(), "<rhythmdb version=\"3.0\"></rhythmdb>");
        QVERIFY(CVRhythmDBRewriter::checkFile(database()).contains(u"“3.0”"_s));
    }

    void theLoadFindsRhythmboxWhenThereIsNoOtherLibrary()
    {
        CVSettings settings(CVSettings::defaultFilePath());
        QCOMPARE(settings.stringValue(CVSettingsKey::Player), u"auto"_s);
        CVLibraryManager library(&settings);
        QCOMPARE(library.findLibraryFile(), database());
        QCOMPARE(library.loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Loaded);
        QCOMPARE(library.allTracks().size(), std::size_t(2));
        // An iTunes-format library wins unless Rhythmbox is asked for.
        const QString iTunes = m_home->filePath(u"Music/iTunes/iTunes Library.xml"_s);
        writeFile(iTunes, "<plist version=\"1.0\"><dict><key>Tracks</key><dict/></dict></plist>");
        QCOMPARE(library.findLibraryFile(), iTunes);
        settings.setValue(CVSettingsKey::Player, u"rhythmbox"_s);
        QCOMPARE(library.findLibraryFile(), database());
        library.setPlayer(u"itunes-file"_s);
        QCOMPARE(library.findLibraryFile(), iTunes);
    }

    // The generator's library: every entry type, as many songs as asked.
    void generatedLibrary()
    {
        CVLibraryGeneratorOptions options;
        options.tracks = 500;
        options.mediaRoot = m_home->filePath(u"media"_s);
        CVRhythmboxGenerator generator(options);
        CVRhythmboxGeneratorResult made;
        QVERIFY2(generator.write(database(), &made), qPrintable(generator.errorString()));
        CVLibraryContents contents;
        QString error;
        QVERIFY2(read(contents, &error), qPrintable(error));
        QCOMPARE(int(contents.tracks.size()), made.songs);
        QVERIFY(made.otherEntries > 10);
        QCOMPARE(int(contents.playlists.size()), made.playlists);
        QSet<QString> ids;
        for (const CVTrack &track : contents.tracks) {
            ids.insert(track.text(CVAttr::PersistentID));
            QVERIFY(track.text(CVAttr::Location).startsWith(options.mediaRoot));
        }
        QCOMPARE(ids.size(), made.songs);
    }
};

QTEST_GUILESS_MAIN(TestRhythmDB)
#include "tst_rhythmdb.moc"
