#include "CVLibraryGenerator.h"
#include "CVTestEnvironment.h"
#include "CVTestFiles.h"
#include "CVTestPresenter.h"
#include "Library/CVLibraryFileReader.h"
#include "Library/CVLibraryHost.h"
#include "Library/CVLibraryManager.h"
#include "Platform/CVSettings.h"

#include <QFile>
#include <QtTest>

#include <limits>

#include <utime.h>

using namespace Qt::StringLiterals;

namespace {

const QString kEdgeLibrary = QStringLiteral(CORVANA_TEST_DATA "/edge-library.xml");

class Host : public CVLibraryHost {
public:
    bool crashed = false;
    bool quitNow = false;
    int playerQuits = 0;
    bool crashedWhileSpanningLastRun() const override { return crashed; }
    void setQuitNowWithoutSaving(bool quit) override { quitNow = quit; }
    void quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling() override { ++playerQuits; }
};

const CVTrack *trackWithID(const CVLibraryManager &library, qint64 id)
{
    for (const CVTrack *t : library.allTracks())
        if (t->integer(CVAttr::TrackID) == id)
            return t;
    return nullptr;
}

const CVPlaylist *playlistNamed(const CVLibraryManager &library, const QString &name)
{
    for (const CVPlaylist &p : library.playlists())
        if (p.name == name)
            return &p;
    return nullptr;
}

void setModified(const QString &path, time_t when)
{
    struct utimbuf times {
        when, when
    };
    QCOMPARE(utime(QFile::encodeName(path).constData(), &times), 0);
}

// Everything a read gave, as text, so that two ways of reading can be compared.
QStringList describe(const CVLibraryContents &contents)
{
    QStringList out { contents.mediaPath.value_or(u"-"_s), contents.persistentID.value_or(u"-"_s) };
    for (const CVTrack &t : contents.tracks) {
        QStringList fields;
        for (int a = 0; a < kCVAttrCount; ++a)
            fields << t.value(CVAttr(a)).toString();
        out << fields.join(u'|');
    }
    for (const CVPlaylist &p : contents.playlists) {
        QStringList ids;
        for (qint64 id : p.tracksPredicate.trackIDs())
            ids << QString::number(id);
        out << QStringList { p.name, p.playlistPersistentID, p.parentPersistentID.value_or(u"-"_s), p.group,
            QString::number(p.folder.value_or(false)),
            QString::fromLatin1(p.smartPlaylist.value_or(QByteArray()).toHex()), p.tracksPredicate.cacheKey(),
            ids.join(u',') }
                   .join(u'|');
    }
    return out;
}

struct Read {
    bool ok = false;
    CVLibraryContents contents;
    QString error;
    CVLibraryFileReader::Split split = CVLibraryFileReader::Split::None;
};

// From a file when a path is given, else from memory; in one part or, where it can, in two.
Read readLibrary(const QByteArray &document, bool twoParts, const QString &path = {})
{
    CVLibraryFileReader::Options options;
    options.twoPartsFrom = twoParts ? 0 : std::numeric_limits<qint64>::max();
    CVLibraryFileReader reader(options);
    Read read;
    read.ok = path.isEmpty() ? reader.readDocument(document, read.contents) : reader.readFile(path, read.contents);
    read.error = reader.errorString();
    read.split = reader.lastSplit();
    return read;
}

QByteArray generatedDocument(int tracks, std::uint64_t seed, const QString &dir)
{
    CVLibraryGeneratorOptions options;
    options.tracks = tracks;
    options.seed = seed;
    const QString file = dir + u"/generated-"_s + QString::number(tracks) + u".xml"_s;
    if (!CVLibraryGenerator(options).write(file))
        return {};
    QFile f(file);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QByteArray minimalLibrary(const char *name)
{
    return QByteArray("<plist version=\"1.0\"><dict><key>Library Persistent ID</key><string>") + name
        + "</string><key>Tracks</key><dict/></dict></plist>";
}

} // namespace

class TestLibraryReader : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<CVTestEnvironment>();
        m_settings = &m_env->settings();
        QLocale::setDefault(QLocale::c());
    }
    void cleanup() { m_env.reset(); }

    void readsTrackAttributes()
    {
        CVLibraryManager library(m_settings);
        library.setLibraryFilePath(kEdgeLibrary);
        QCOMPARE(library.loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Loaded);
        QVERIFY(!library.loadingDatabase());
        QCOMPARE(library.iTunesPersistentID().value(), u"ABCDEF0123456789"_s);
        QCOMPARE(library.iTunesMediaPath().value(), u"/Users/ann/Music/iTunes/iTunes Media"_s);

        // Streams and file tracks without a location are left out; the order is the file's.
        QList<qint64> ids;
        for (const CVTrack *t : library.allTracks())
            ids.append(t->integer(CVAttr::TrackID));
        QCOMPARE(ids, (QList<qint64> { 100, 102, 104, 106, 108, 114, 116, 120 }));

        const CVTrack *t = trackWithID(library, 100);
        QCOMPARE(t->text(CVAttr::PersistentID), u"1111111111111111"_s);
        QCOMPARE(t->text(CVAttr::LibraryPersistentID), u"ABCDEF0123456789"_s);
        QCOMPARE(t->text(CVAttr::Name), u"\"Hey\" Jude"_s);
        QCOMPARE(t->text(CVAttr::Comments), u"Café & bar <live>"_s);
        QCOMPARE(t->text(CVAttr::Composer), u"Lennon/McCartney"_s);
        QCOMPARE(t->integer(CVAttr::Rating), 2);
        QCOMPARE(t->integer(CVAttr::AlbumRating), 4);
        QCOMPARE(t->integer(CVAttr::Compilation), 1); // present, whatever its value
        QCOMPARE(t->integer(CVAttr::Plays), 12);
        QCOMPARE(t->integer(CVAttr::Skips), 2);
        QCOMPARE(t->real(CVAttr::Size), 5000000.0);
        QCOMPARE(t->text(CVAttr::DisplaySize), u"5.00 MB"_s);
        QCOMPARE(t->text(CVAttr::DisplayTime), u"1:05"_s);
        QCOMPARE(t->text(CVAttr::DisplaySampleRate), u"44.100 kHz"_s);
        QCOMPARE(t->text(CVAttr::DisplayBitRate), u"256 kbps"_s);
        QCOMPARE(t->text(CVAttr::DisplayDiscNumber), u"1 of 2"_s);
        QCOMPARE(t->text(CVAttr::MediaType), u"Music"_s);
        QCOMPARE(t->text(CVAttr::SortArtist), u"beatles"_s);
        QCOMPARE(t->text(CVAttr::SortName), u"hey\" jude"_s);
        QCOMPARE(t->text(CVAttr::SortAlbumArtist), u"the beatles"_s);
        QCOMPARE(t->text(CVAttr::SortComposer), u"lennon/mccartney"_s);
        QCOMPARE(t->text(CVAttr::SortShow), u"zzzz"_s);
        QCOMPARE(
            t->date(CVAttr::DateModified), QDateTime(QDate(2009, 3, 14), QTime(21, 5, 7), Qt::UTC).toSecsSinceEpoch());
        QCOMPARE(t->date(CVAttr::LastPlayed), QDateTime(QDate(2010, 1, 2), QTime(3, 4, 5), Qt::UTC).toSecsSinceEpoch());
        QCOMPARE(
            t->date(CVAttr::LastSkipped), QDateTime(QDate(2011, 1, 2), QTime(3, 4, 5), Qt::UTC).toSecsSinceEpoch());
        QCOMPARE(t->text(CVAttr::Location),
            u"/Users/ann/Music/iTunes/iTunes Media/Music/The Beatles/Hey Jude/07 Hey Jude.m4a"_s);
        QCOMPARE(t->text(CVAttr::OriginalLocation), t->text(CVAttr::Location));
        for (CVAttr flag : { CVAttr::ItemIsSpanned, CVAttr::FullSpan, CVAttr::SymSpan, CVAttr::ItemIsRestored }) {
            QVERIFY(t->has(flag));
            QVERIFY(!t->flag(flag));
        }
        QVERIFY(!t->has(CVAttr::SpanLocation));
        QVERIFY(!t->has(CVAttr::Season));
    }

    void decidesMediaTypesDiscsAndRatings()
    {
        CVLibraryManager library(m_settings);
        library.setLibraryFilePath(kEdgeLibrary);
        QCOMPARE(library.loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Loaded);

        const CVTrack *book = trackWithID(library, 102); // genre "Audiobook" beats the podcast key
        QCOMPARE(book->text(CVAttr::MediaType), u"Books"_s);
        QCOMPARE(book->text(CVAttr::DisplayDiscNumber), u"? of 2"_s);
        QCOMPARE(book->integer(CVAttr::Rating), 0);
        QCOMPARE(book->real(CVAttr::Size), 0.0);
        QCOMPARE(book->text(CVAttr::DisplaySize), u"0 bytes"_s);
        QVERIFY(!book->has(CVAttr::DisplaySampleRate));
        QVERIFY(!book->has(CVAttr::DisplayBitRate));
        QCOMPARE(book->text(CVAttr::SortName), u"a tale"_s);

        const CVTrack *show = trackWithID(library, 104); // "TV Show" wins over "Movie"
        QCOMPARE(show->text(CVAttr::MediaType), u"TV Shows"_s);
        QCOMPARE(show->text(CVAttr::DisplayDiscNumber), u"3"_s);
        QCOMPARE(show->text(CVAttr::Show), u"The Show"_s);
        QCOMPARE(show->text(CVAttr::Season), u"Season 2"_s);
        QCOMPARE(show->integer(CVAttr::SortSeason), 2);
        QCOMPARE(show->text(CVAttr::EpisodeID), u"S2E3"_s);
        QCOMPARE(show->integer(CVAttr::EpisodeNumber), 3);
        QCOMPARE(show->text(CVAttr::SortShow), u"the show"_s);

        QCOMPARE(trackWithID(library, 106)->text(CVAttr::MediaType), u"iTunes U"_s);
        QCOMPARE(trackWithID(library, 106)->text(CVAttr::SortArtist), u"zzz123 band"_s);
        // A hidden playlist gets no record but its book marker still counts.
        QCOMPARE(trackWithID(library, 108)->text(CVAttr::MediaType), u"Books"_s);
        QCOMPARE(trackWithID(library, 120)->text(CVAttr::MediaType), u"Movies"_s);
        QCOMPARE(trackWithID(library, 120)->text(CVAttr::DisplayDiscNumber), QString());
    }

    void turnsLocationsIntoPaths()
    {
        CVLibraryManager library(m_settings);
        library.setLibraryFilePath(kEdgeLibrary);
        QCOMPARE(library.loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Loaded);
        // Decoded once: "%2520" is a literal "%20"; decomposed letters stay decomposed.
        QCOMPARE(trackWithID(library, 106)->text(CVAttr::Location), u"/Users/ann/Café %20/Re\u0301sume\u0301.mp3"_s);
        QCOMPARE(trackWithID(library, 102)->text(CVAttr::Location), u"/Users/ann/Books/tale.m4b"_s);
        QCOMPARE(trackWithID(library, 104)->text(CVAttr::Location), u"/Volumes/Media/TV/Pilot.m4v"_s);
        QCOMPARE(trackWithID(library, 108)->text(CVAttr::Location), u"/C:/Music/a.mp3"_s);
        QCOMPARE(trackWithID(library, 116)->text(CVAttr::Location), u"/Users/ann/folder"_s);
        // Not a file URL: the record stays, without a location; a missing name sorts last.
        const CVTrack *web = trackWithID(library, 114);
        QVERIFY(!web->has(CVAttr::Location));
        QVERIFY(!web->has(CVAttr::OriginalLocation));
        QCOMPARE(web->text(CVAttr::SortName), u"zzzz"_s);
    }

    void buildsPlaylistsAndRollsUpFolders()
    {
        CVLibraryManager library(m_settings);
        library.setLibraryFilePath(kEdgeLibrary);
        QCOMPARE(library.loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Loaded);

        QStringList names;
        for (const CVPlaylist &p : library.playlists())
            names.append(p.name);
        QCOMPARE(names,
            (QStringList { u"Folder A"_s, u"Folder B"_s, u"Leaf & ★ \"Quoted\""_s, u"Store Genius"_s, u"Purchased"_s,
                u"Genius Mix"_s, u"Smart"_s, u"Empty"_s }));

        const std::vector<qint64> leafTracks { 100, 104 };
        for (const QString &name : { u"Folder A"_s, u"Folder B"_s, u"Leaf & ★ \"Quoted\""_s }) {
            const CVPlaylist *p = playlistNamed(library, name);
            QCOMPARE(p->tracksPredicate.trackIDs(), leafTracks);
            QVERIFY(p->tracksPredicate.isPlaylist());
            QCOMPARE(p->tracksPredicate.cacheKey(), p->playlistPersistentID);
        }
        QCOMPARE(playlistNamed(library, u"Folder A"_s)->folder, std::optional<bool>(true));
        QCOMPARE(
            playlistNamed(library, u"Folder B"_s)->parentPersistentID, std::optional<QString>(u"00000000000000FA"_s));

        QCOMPARE(playlistNamed(library, u"Store Genius"_s)->group, u"1 GENIUS"_s);
        QVERIFY(!playlistNamed(library, u"Store Genius"_s)->genius);
        QCOMPARE(playlistNamed(library, u"Purchased"_s)->group, u"0 STORE"_s);
        QCOMPARE(playlistNamed(library, u"Genius Mix"_s)->group, u"1 GENIUS"_s);
        QVERIFY(playlistNamed(library, u"Genius Mix"_s)->genius);
        QCOMPARE(playlistNamed(library, u"Empty"_s)->group, u"2 PLAYLISTS"_s);
        QVERIFY(playlistNamed(library, u"Empty"_s)->tracksPredicate.trackIDs().empty());
        const CVPlaylist *smart = playlistNamed(library, u"Smart"_s);
        QVERIFY(smart->smartPlaylist.has_value());
        QCOMPARE(smart->smartPlaylist->toHex(), QByteArray("01010003000000020000001900000000"));
        QCOMPARE(playlistNamed(library, u"Empty"_s)->playlistID, std::optional<qint64>(24));
    }

    void emptyTracksStillReadsPlaylists()
    {
        const QString file = m_env->filePath(u"empty.xml"_s);
        writeFile(file,
            "<plist version=\"1.0\"><dict><key>Tracks</key><dict/><key>Playlists</key><array><dict>"
            "<key>Name</key><string>Only</string><key>Playlist Persistent ID</key><string>01</string>"
            "</dict></array></dict></plist>");
        CVLibraryManager library(m_settings);
        library.setLibraryFilePath(file);
        QCOMPARE(library.loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Loaded);
        QVERIFY(library.allTracks().empty());
        QCOMPARE(library.playlists().size(), std::size_t(1));
        QVERIFY(!library.loadingDatabase());
        QVERIFY(!library.iTunesPersistentID());
    }

    void takesOriginalLocationFromTheInterruptedRun()
    {
        QVariantMap last;
        last.insert(u"1111111111111111"_s, u"/Users/ann/Old Place/Hey Jude.m4a"_s);
        m_settings->setValue(CVSettingsKey::LastTracksSpanned, last);
        Host host;
        host.crashed = true;
        CVTestPresenter presenter;
        CVLibraryManager library(m_settings);
        library.setHost(&host);
        library.setPresenter(&presenter);
        library.setLibraryFilePath(kEdgeLibrary);
        QCOMPARE(library.loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Loaded);
        QCOMPARE(host.playerQuits, 1);
        QCOMPARE(
            presenter.statusTexts.first(), u"Quitting iTunes to Save Updated Library After Crash While Spanning"_s);
        QVERIFY(presenter.statusTexts.contains(u"Reading iTunes Library Information"_s));
        QVERIFY(presenter.statusTexts.contains(u"Loading iTunes Library Information into Corvana"_s));
        QCOMPARE(trackWithID(library, 100)->text(CVAttr::OriginalLocation), u"/Users/ann/Old Place/Hey Jude.m4a"_s);
        QCOMPARE(trackWithID(library, 102)->text(CVAttr::OriginalLocation), u"/Users/ann/Books/tale.m4b"_s);

        // Without the crash the saved paths are not looked at.
        host.crashed = false;
        QCOMPARE(library.loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Loaded);
        QCOMPARE(host.playerQuits, 1);
        QCOMPARE(trackWithID(library, 100)->text(CVAttr::OriginalLocation),
            trackWithID(library, 100)->text(CVAttr::Location));
    }

    void choosesBetweenTheTwoDefaultFiles()
    {
        const QString home = m_env->path();
        const QString library = home + u"/Music/iTunes/iTunes Library.xml"_s;
        const QString musicLibrary = home + u"/Music/iTunes/iTunes Music Library.xml"_s;
        QCOMPARE(CVLibraryManager::chooseLibraryFile(home), QString());
        writeFile(musicLibrary, minimalLibrary("MUSIC"));
        QCOMPARE(CVLibraryManager::chooseLibraryFile(home), musicLibrary);
        writeFile(library, minimalLibrary("LIBRARY"));
        setModified(library, 1000000);
        setModified(musicLibrary, 2000000);
        QCOMPARE(CVLibraryManager::chooseLibraryFile(home), musicLibrary); // the other one is older
        setModified(musicLibrary, 1000000);
        QCOMPARE(CVLibraryManager::chooseLibraryFile(home), library); // equal dates
        setModified(musicLibrary, 500000);
        QCOMPARE(CVLibraryManager::chooseLibraryFile(home), library);

        CVLibraryManager manager(m_settings);
        QCOMPARE(manager.loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Loaded);
        QCOMPARE(manager.iTunesPersistentID().value(), u"LIBRARY"_s);
    }

    void asksAgainUntilALibraryAppearsOrTheUserQuits()
    {
        Host host;
        CVTestPresenter presenter;
        CVLibraryManager library(m_settings);
        library.setHost(&host);
        library.setPresenter(&presenter);
        QCOMPARE(library.loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Quit);
        QVERIFY(host.quitNow);
        QCOMPARE(presenter.alerts.size(), 1);
        const CVAlert alert = presenter.alerts.first();
        QCOMPARE(alert.title, u"No iTunes Database Found"_s);
        QCOMPARE(alert.text,
            u"Corvana can only load a single iTunes database.\nThe readable file must be in its default "
            "location:\n\n\t~/Music/iTunes/iTunes Library.xml\nor\n\t~/Music/iTunes/iTunes Music Library.xml"_s);
        QCOMPARE(alert.defaultButton, u"Quit"_s);
        QCOMPARE(alert.alternateButton, u"Try Again"_s);

        // "Try Again" twice; the file appears before the third look.
        class AppearingPresenter : public CVTestPresenter {
        public:
            QString home;
            int runAlertPanel(const CVAlert &a) override
            {
                alerts.append(a);
                if (alerts.size() == 2)
                    writeFile(home + u"/Music/iTunes/iTunes Music Library.xml"_s, minimalLibrary("LATE"));
                return AlternateReturn;
            }
        } appearing;
        appearing.home = m_env->path();
        host.quitNow = false;
        library.setPresenter(&appearing);
        QCOMPARE(library.loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Loaded);
        QCOMPARE(appearing.alerts.size(), 2);
        QVERIFY(!host.quitNow);
        QCOMPARE(library.iTunesPersistentID().value(), u"LATE"_s);
    }

    void reportsAMalformedLibraryWithItsPosition()
    {
        QFile edge(kEdgeLibrary);
        QVERIFY(edge.open(QIODevice::ReadOnly));
        const QByteArray whole = edge.readAll();
        const QString file = m_env->filePath(u"cut.xml"_s);
        writeFile(file, whole.left(whole.indexOf("<key>104</key>")));
        CVTestPresenter presenter;
        CVLibraryManager library(m_settings);
        library.setPresenter(&presenter);
        library.setLibraryFilePath(file);
        QCOMPARE(library.loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Failed);
        QVERIFY(library.allTracks().empty());
        QVERIFY(library.lastError().contains(u"unexpected end of file"_s));
        QVERIFY2(library.lastError().startsWith(u"line "_s), qPrintable(library.lastError()));
        QCOMPARE(presenter.errors.size(), 1);
        QVERIFY(presenter.errors.first().startsWith(u"The iTunes library could not be read."_s));
        QVERIFY(QFile::exists(file)); // nothing is written back
    }

    void generatedLibraryReadsCompletely()
    {
        CVLibraryGeneratorOptions options;
        options.tracks = 3000;
        options.seed = 42;
        const QString file = m_env->filePath(u"generated.xml"_s);
        CVLibraryGeneratorResult result;
        QVERIFY(CVLibraryGenerator(options).write(file, &result));
        CVTestPresenter presenter;
        CVLibraryManager library(m_settings);
        library.setPresenter(&presenter);
        library.setLibraryFilePath(file);
        QCOMPARE(library.loadiTunesXMLDatabase(), CVLibraryManager::LoadResult::Loaded);
        QCOMPARE(int(library.allTracks().size()), result.fileTracks);
        QCOMPARE(int(library.playlists().size()), result.playlists);
        QCOMPARE(presenter.lastProgressValue, presenter.lastProgressMaximum);
        QSet<QString> ids;
        QHash<QString, int> types;
        for (const CVTrack *t : library.allTracks()) {
            QVERIFY(t->has(CVAttr::Location));
            QVERIFY(t->text(CVAttr::Location).startsWith(u'/'));
            ids.insert(t->text(CVAttr::PersistentID));
            ++types[t->text(CVAttr::MediaType)];
        }
        QCOMPARE(ids.size(), result.fileTracks);
        for (const QString &type : { u"Music"_s, u"Movies"_s, u"TV Shows"_s, u"Podcasts"_s, u"iTunes U"_s, u"Books"_s })
            QVERIFY2(types.value(type) > 0, qPrintable(type));
    }

    // Two threads read the tracks of a large library, half each: what they give must be what
    // one gives, wherever the halves meet.
    void readsInTwoPartsAsInOne()
    {
        for (int tracks : { 40, 700, 2500 }) {
            const QByteArray doc = generatedDocument(tracks, 7, m_env->path());
            QVERIFY(!doc.isEmpty());
            const QString file = m_env->filePath(u"two.xml"_s);
            writeFile(file, doc);
            const Read one = readLibrary(doc, false);
            QVERIFY2(one.ok, qPrintable(one.error));
            QCOMPARE(one.split, CVLibraryFileReader::Split::TooSmall);
            const QStringList expected = describe(one.contents);
            for (const QString &path : { QString(), file }) {
                const Read two = readLibrary(doc, true, path);
                QVERIFY2(two.ok, qPrintable(two.error));
                QCOMPARE(two.split, CVLibraryFileReader::Split::TwoParts);
                QCOMPARE(describe(two.contents), expected);

                // Equal texts of both halves are one shared text.
                QHash<QString, const QChar *> shared;
                for (const CVTrack &t : two.contents.tracks)
                    for (CVAttr a : { CVAttr::Artist, CVAttr::Album, CVAttr::Genre, CVAttr::SortArtist })
                        if (t.has(a) && !t.textRef(a).isEmpty()) {
                            const QChar *own = t.textRef(a).constData();
                            QCOMPARE(*shared.insert(t.textRef(a), shared.value(t.textRef(a), own)), own);
                        }
            }
        }
    }

    // Damage in either half, or in the playlists after the tracks, is reported at the same
    // line and column as one reader finds it.
    void reportsDamageInEitherPartAsOneReaderDoes()
    {
        const QByteArray doc = generatedDocument(1500, 11, m_env->path());
        const QString file = m_env->filePath(u"damaged.xml"_s);
        for (double where : { 0.2, 0.55, 0.8, 0.97 }) {
            for (const char *damage : { "<integer>x", "<key>Name</key><key>", "</dict></dict>" }) {
                QByteArray damaged = doc;
                const qsizetype at = damaged.indexOf("<integer>", qsizetype(double(doc.size()) * where));
                QVERIFY(at > 0);
                damaged.replace(at, 9, damage);
                writeFile(file, damaged);
                const Read one = readLibrary(damaged, false);
                QVERIFY(!one.ok);
                QVERIFY2(one.error.startsWith(u"line "_s), qPrintable(one.error));
                QCOMPARE(readLibrary(damaged, true).error, one.error);
                QCOMPARE(readLibrary(damaged, true, file).error, one.error);
            }
            const QByteArray cut = doc.left(qsizetype(double(doc.size()) * where));
            writeFile(file, cut);
            const Read one = readLibrary(cut, false);
            QVERIFY(one.error.contains(u"unexpected end of file"_s));
            QCOMPARE(readLibrary(cut, true).error, one.error);
            QCOMPARE(readLibrary(cut, true, file).error, one.error);
        }
    }

    // Texts that look like the end of a track and the key of the next (in CDATA and comments)
    // make no split: the first reader hands over only where a track really ended.
    void readsAloneWhereTheSplitIsNoBoundary()
    {
        const QByteArray lookAlike = QByteArray("</dict>\n\t\t<key>9</key>\n").repeated(12000);
        QByteArray doc = "<plist version=\"1.0\"><dict><key>Tracks</key><dict>\n";
        for (int id = 1; id <= 40; ++id) {
            const QByteArray comment = id % 2
                ? QByteArray("<key>Comments</key><string><![CDATA[" + lookAlike + "]]></string>")
                : QByteArray("<!-- " + lookAlike + " -->");
            doc += "\t\t<key>" + QByteArray::number(id) + "</key>\n\t\t<dict><key>Track ID</key><integer>"
                + QByteArray::number(id) + "</integer><key>Track Type</key><string>File</string>"
                + "<key>Location</key><string>file:///m/" + QByteArray::number(id) + ".mp3</string>"
                + "<key>Artist</key><string>A" + QByteArray::number(id % 3) + "</string>" + comment + "</dict>\n";
        }
        doc += "</dict></dict></plist>\n";
        const Read one = readLibrary(doc, false);
        QVERIFY2(one.ok, qPrintable(one.error));
        QCOMPARE(one.contents.tracks.size(), std::size_t(40));
        const Read two = readLibrary(doc, true);
        QVERIFY(
            two.split == CVLibraryFileReader::Split::Abandoned || two.split == CVLibraryFileReader::Split::NoBoundary);
        QCOMPARE(describe(two.contents), describe(one.contents));
    }

private:
    std::unique_ptr<CVTestEnvironment> m_env;
    CVSettings *m_settings = nullptr;
};

QTEST_GUILESS_MAIN(TestLibraryReader)
#include "tst_libraryreader.moc"
