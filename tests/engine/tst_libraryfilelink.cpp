#include "CVLibraryGenerator.h"
#include "CVTestFiles.h"
#include "CVTestHome.h"
#include "Engine/CVLibraryFilePlayerLink.h"
#include "Library/CVFileURL.h"
#include "Library/CVLibraryFileReader.h"
#include "Library/CVLibraryFileRewriter.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QtTest>

#include <csignal>

using namespace Qt::StringLiterals;

// The library file as the player: journaled changes, written into the file on quit.
class TestLibraryFileLink : public QObject {
    Q_OBJECT

private:
    struct Library {
        QString path;
        CVLibraryContents contents;
    };

    Library makeLibrary(int tracks, std::uint64_t seed = 7)
    {
        Library library;
        library.path = m_home->filePath(u"Music/iTunes/iTunes Library.xml"_s);
        CVLibraryGeneratorOptions options;
        options.tracks = tracks;
        options.seed = seed;
        CVLibraryGenerator generator(options);
        QDir().mkpath(QFileInfo(library.path).path());
        if (!generator.write(library.path))
            qFatal("generator: %s", qPrintable(generator.errorString()));
        CVLibraryFileReader reader;
        if (!reader.readFile(library.path, library.contents))
            qFatal("reader: %s", qPrintable(reader.errorString()));
        return library;
    }

    static QHash<QString, QString> locationsOf(const QString &path)
    {
        CVLibraryContents contents;
        CVLibraryFileReader reader;
        if (!reader.readFile(path, contents))
            return {};
        QHash<QString, QString> locations;
        for (const CVTrack &track : contents.tracks)
            locations.insert(track.text(CVAttr::PersistentID), track.text(CVAttr::Location));
        return locations;
    }

    // File tracks with a location, in library order.
    static QList<const CVTrack *> fileTracks(const Library &library)
    {
        QList<const CVTrack *> tracks;
        for (const CVTrack &track : library.contents.tracks) {
            if (track.text(CVAttr::Location).startsWith(u'/'))
                tracks.append(&track);
        }
        return tracks;
    }

    QString journalFolder() const { return m_home->filePath(u".local/share/Corvana"_s); }

private Q_SLOTS:
    void init() { m_home = std::make_unique<CVTestHome>(); }
    void cleanup() { m_home.reset(); }

    void quitWritesOnlyTheLocations()
    {
        const Library library = makeLibrary(300);
        const QByteArray before = readAll(library.path);
        const QList<const CVTrack *> tracks = fileTracks(library);
        QVERIFY(tracks.size() > 10);
        const QStringList newPaths = { u"/Volumes/Span/Music/100% \"Quoted\" & <odd>.mp3"_s,
            u"/media/ann/Drive/Señor/ß é.flac"_s, u"/mnt/x/plain.m4a"_s };

        CVLibraryFilePlayerLink link(library.path, journalFolder(), nullptr);
        QVERIFY(!link.isRunning());
        for (int i = 0; i < newPaths.size(); ++i)
            QVERIFY(link.setTrackLocation(tracks[i]->text(CVAttr::PersistentID), newPaths[i]));
        QVERIFY(link.setTrackLocation(u"FFFFFFFFFFFFFFFF"_s, u"/nowhere.mp3"_s)); // not held: ignored
        QVERIFY(link.isRunning());
        QCOMPARE(*link.trackLocation(tracks[1]->text(CVAttr::PersistentID)), newPaths[1]);
        QCOMPARE(
            QFileInfo(link.journalPath()).permissions() & (QFile::ReadOther | QFile::ReadGroup), QFile::Permissions());

        link.quit();
        QVERIFY(!link.isRunning());
        const QHash<QString, QString> after = locationsOf(library.path);
        for (int i = 0; i < newPaths.size(); ++i)
            QCOMPARE(after.value(tracks[i]->text(CVAttr::PersistentID)), newPaths[i]);
        QCOMPARE(after.size(), int(library.contents.tracks.size()));
        QCOMPARE(readAll(CVLibraryFileRewriter::backupPath(library.path)), before);

        // Every other byte as it was: put the old Location elements back and compare.
        QByteArray restored = readAll(library.path);
        for (int i = 0; i < newPaths.size(); ++i) {
            const QByteArray oldElement
                = "<string>" + CVFileURL::fileURLFromPath(tracks[i]->text(CVAttr::Location)) + "</string>";
            const QByteArray newElement = "<string>" + CVFileURL::fileURLFromPath(newPaths[i]) + "</string>";
            QCOMPARE(restored.count(newElement), 1);
            restored.replace(newElement, oldElement);
        }
        QCOMPARE(restored, before);
    }

    void theJournalOutlivesTheProcess()
    {
        const Library library = makeLibrary(50);
        const QString pid = fileTracks(library)[3]->text(CVAttr::PersistentID);
        {
            CVLibraryFilePlayerLink crashed(library.path, journalFolder(), nullptr);
            QVERIFY(crashed.setTrackLocation(pid, u"/Volumes/Span/a.mp3"_s));
            QVERIFY(crashed.setTrackLocation(pid, u"/Volumes/Span/b.mp3"_s)); // the later one counts
        }
        CVLibraryFilePlayerLink next(library.path, journalFolder(), nullptr);
        QCOMPARE(next.pendingLocations().value(pid), u"/Volumes/Span/b.mp3"_s);
        // A line cut short by a crash is not applied.
        QFile journal(next.journalPath());
        QVERIFY(journal.open(QIODevice::Append));
        journal.write(pid.toUtf8() + "\tfile://localhost/Volumes/Span/c");
        journal.close();
        QVERIFY(next.applyJournal());
        QCOMPARE(locationsOf(library.path).value(pid), u"/Volumes/Span/b.mp3"_s);
        QVERIFY(next.pendingLocations().isEmpty());
        // A second library keeps its own journal.
        CVLibraryFilePlayerLink other(m_home->filePath(u"other.xml"_s), journalFolder(), nullptr);
        QVERIFY(other.journalPath() != next.journalPath());
    }

    void aTrackWithoutLocationGetsOne()
    {
        const QString path = m_home->filePath(u"small.xml"_s);
        writeFile(path, R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
<dict>
	<key>Tracks</key>
	<dict>
		<key>1</key>
		<dict>
			<key>Track ID</key><integer>1</integer>
			<key>Persistent ID</key><string>AAAA000000000001</string>
			<key>Track Type</key><string>File</string>
		</dict>
	</dict>
	<key>Playlists</key>
	<array/>
</dict>
</plist>
)");
        const CVLibraryFileRewriter::Result result
            = CVLibraryFileRewriter::applyLocations(path, { { u"AAAA000000000001"_s, u"/a b.mp3"_s } });
        QVERIFY2(result.ok, qPrintable(result.error));
        QCOMPARE(result.applied, 1);
        QCOMPARE(locationsOf(path).value(u"AAAA000000000001"_s), u"/a b.mp3"_s);
    }

    void aBrokenLibraryIsLeftAlone()
    {
        const Library library = makeLibrary(50);
        QByteArray bytes = readAll(library.path);
        bytes.truncate(bytes.size() / 2);
        writeFile(library.path, bytes);
        CVLibraryFilePlayerLink link(library.path, journalFolder(), nullptr);
        QVERIFY(link.setTrackLocation(fileTracks(library)[0]->text(CVAttr::PersistentID), u"/x.mp3"_s));
        QString error;
        QVERIFY(!link.applyJournal(&error));
        QVERIFY2(error.contains(u"line"_s), qPrintable(error));
        QCOMPARE(readAll(library.path), bytes);
        QVERIFY(link.isRunning()); // the journal waits for a library that can be written
        QVERIFY(!QFileInfo::exists(library.path + u".corvana-new"_s));
    }

    void aKilledRewriteLeavesAWholeFile()
    {
        // Big enough that the rewrite takes a while, so the kills land inside it.
        const Library library = makeLibrary(20000, 11);
        const QByteArray original = readAll(library.path);
        const QList<const CVTrack *> tracks = fileTracks(library);
        QHash<QString, QString> changes;
        for (int i = 0; i < tracks.size(); i += 10)
            changes.insert(tracks[i]->text(CVAttr::PersistentID), u"/Volumes/Span/"_s + QString::number(i) + u".mp3"_s);
        QByteArray rewritten;
        int sawOld = 0;
        int sawNew = 0;
        for (int round = 0; round < 20; ++round) {
            writeFile(library.path, original);
            CVLibraryFilePlayerLink link(library.path, journalFolder(), nullptr);
            for (auto it = changes.cbegin(); it != changes.cend(); ++it)
                link.setTrackLocation(it.key(), it.value());
            QProcess tool;
            tool.start(QStringLiteral(CORVANA_LINKTOOL), { library.path, journalFolder() });
            QVERIFY(tool.waitForStarted());
            QTest::qSleep(int(QRandomGenerator::global()->bounded(5, 400)));
            ::kill(pid_t(tool.processId()), SIGKILL);
            tool.waitForFinished();
            const QByteArray now = readAll(library.path);
            if (now == original) {
                ++sawOld;
                // Nothing is lost: the journal still holds every change and finishes the job.
                QCOMPARE(link.pendingLocations().size(), changes.size());
                QVERIFY(link.applyJournal());
            } else {
                ++sawNew;
            }
            const QByteArray finished = readAll(library.path);
            if (rewritten.isEmpty())
                rewritten = finished;
            QCOMPARE(finished, rewritten);
            QFile::remove(link.journalPath());
        }
        const QHash<QString, QString> after = locationsOf(library.path);
        for (auto it = changes.cbegin(); it != changes.cend(); ++it)
            QCOMPARE(after.value(it.key()), it.value());
        qInfo("kills before the replace: %d, after: %d", sawOld, sawNew);
    }

private:
    std::unique_ptr<CVTestHome> m_home;
};

QTEST_GUILESS_MAIN(TestLibraryFileLink)
#include "tst_libraryfilelink.moc"
