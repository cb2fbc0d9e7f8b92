#include "CVHLinkRepairer.h"
#include "CVHMountWatcher.h"
#include "CVHSpanHistoryReader.h"
#include "CVHTestHistory.h"
#include "CVTestFiles.h"
#include "CVTestHome.h"

#include <QtTest>

#include <unistd.h>

using namespace Qt::StringLiterals;
using Outcome = CVHLinkRepairer::Outcome;

// The link rules on real files, the mount table's text, and which records the helper reads.
class TestLinkRepairer : public QObject {
    Q_OBJECT

private:
    QString path(const QString &relative) const { return m_home->filePath(relative); }

    static QStringList hiddenTemporaries(const QString &folder)
    {
        return QDir(folder).entryList({ u".corvana-link-*"_s }, QDir::AllEntries | QDir::Hidden | QDir::System);
    }

private Q_SLOTS:
    void init() { m_home = std::make_unique<CVTestHome>(); }
    void cleanup() { m_home.reset(); }

    void linksAreMadeCorrectedOrLeft()
    {
        writeFile(path(u"span/a.mp3"_s), "A");
        writeFile(path(u"span/b.mp3"_s), "B");
        CVHLinkRepairer repairer;

        // Nothing there: the link, with its folders.
        const CVHDependentTrack a { u"A"_s, u"a"_s, path(u"Music/Artist/Album/a.mp3"_s), path(u"span/a.mp3"_s) };
        QCOMPARE(repairer.repair(a).outcome, Outcome::Made);
        QCOMPARE(QFile::symLinkTarget(a.playerLocation), a.spanLocation);
        QCOMPARE(readAll(a.playerLocation), QByteArray("A"));
        QCOMPARE(repairer.repair(a).outcome, Outcome::AlreadyLinked);
        QCOMPARE(repairer.check(a).outcome, Outcome::AlreadyLinked);

        // A link that points elsewhere, even at a missing file, is pointed at the span file.
        const CVHDependentTrack b { u"B"_s, u"b"_s, path(u"Music/b.mp3"_s), path(u"span/b.mp3"_s) };
        QVERIFY(QFile::link(path(u"old/place/b.mp3"_s), b.playerLocation));
        QCOMPARE(repairer.check(b).outcome, Outcome::Failed);
        QCOMPARE(repairer.repair(b).outcome, Outcome::Corrected);
        QCOMPARE(QFile::symLinkTarget(b.playerLocation), b.spanLocation);
        QVERIFY(hiddenTemporaries(path(u"Music"_s)).isEmpty());
        QVERIFY(hiddenTemporaries(path(u"Music/Artist/Album"_s)).isEmpty());
    }

    void realFilesAndFoldersAreNeverTouched()
    {
        writeFile(path(u"span/c.mp3"_s), "span copy");
        CVHLinkRepairer repairer;
        const CVHDependentTrack file { u"C"_s, u"c"_s, path(u"Music/c.mp3"_s), path(u"span/c.mp3"_s) };
        writeFile(file.playerLocation, "the user's own file");
        QCOMPARE(repairer.repair(file).outcome, Outcome::RealItemInPlace);
        QVERIFY(repairer.repair(file).playable());
        QCOMPARE(readAll(file.playerLocation), QByteArray("the user's own file"));
        QVERIFY(!QFileInfo(file.playerLocation).isSymLink());

        const CVHDependentTrack folder { u"D"_s, u"d"_s, path(u"Music/d.mp3"_s), path(u"span/c.mp3"_s) };
        writeFile(folder.playerLocation + u"/inside"_s, "kept");
        QCOMPARE(repairer.repair(folder).outcome, Outcome::RealItemInPlace);
        QCOMPARE(readAll(folder.playerLocation + u"/inside"_s), QByteArray("kept"));
        QVERIFY(hiddenTemporaries(path(u"Music"_s)).isEmpty());
    }

    void missingSpanFilesAndDrivesMakeNothing()
    {
        CVHLinkRepairer repairer;
        bool mounted = false;
        repairer.setMountCheck([&mounted](const QString &root) { return mounted && root == u"/mnt/Archive"_s; });

        // A missing span file leaves even a wrong link as it is.
        const CVHDependentTrack gone { u"E"_s, u"e"_s, path(u"Music/e.mp3"_s), path(u"span/e.mp3"_s) };
        QVERIFY(QDir().mkpath(path(u"Music"_s)));
        QVERIFY(QFile::link(path(u"elsewhere.mp3"_s), gone.playerLocation));
        QCOMPARE(repairer.repair(gone).outcome, Outcome::SpanMissing);
        QCOMPARE(QFile::symLinkTarget(gone.playerLocation), path(u"elsewhere.mp3"_s));

        const CVHDependentTrack onDrive { u"F"_s, u"f"_s, path(u"Music/f.mp3"_s), u"/mnt/Archive/Music/f.mp3"_s };
        QCOMPARE(repairer.repair(onDrive).outcome, Outcome::DriveMissing);
        mounted = true;
        QCOMPARE(repairer.repair(onDrive).outcome, Outcome::SpanMissing);

        // The player's own place on a drive that is not there: no folders in its mount point.
        writeFile(path(u"span/g.mp3"_s), "G");
        mounted = false;
        const CVHDependentTrack playerOnDrive { u"G"_s, u"g"_s, u"/mnt/Archive/CorvanaTest/g.mp3"_s,
            path(u"span/g.mp3"_s) };
        QCOMPARE(repairer.repair(playerOnDrive).outcome, Outcome::DriveMissing);
        QVERIFY(!QFileInfo::exists(u"/mnt/Archive/CorvanaTest"_s));
    }

    void failuresAreReportedNotHidden()
    {
        writeFile(path(u"span/h.mp3"_s), "H");
        writeFile(path(u"Music"_s), "a file where a folder should be");
        CVHLinkRepairer repairer;
        const CVHLinkRepairer::Result result
            = repairer.repair({ u"H"_s, u"h"_s, path(u"Music/Album/h.mp3"_s), path(u"span/h.mp3"_s) });
        QCOMPARE(result.outcome, Outcome::Failed);
        QVERIFY(!result.playable());
        QVERIFY(result.error.contains(path(u"Music/Album"_s)));
        QCOMPARE(readAll(path(u"Music"_s)), QByteArray("a file where a folder should be"));
    }

    void mountTableIsParsedWithItsEscapes()
    {
        const QByteArray text = "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
                                "97 22 0:45 / /media/ann/My\\040Drive rw - vfat /dev/sdb1 rw\n"
                                "98 22 0:46 / /mnt/back\\134slash rw - tmpfs tmpfs rw\n";
        const QHash<int, QString> mounts = CVHMountWatcher::parseMountInfo(text);
        QCOMPARE(mounts.size(), 3);
        QCOMPARE(mounts.value(22), u"/"_s);
        QCOMPARE(mounts.value(97), u"/media/ann/My Drive"_s);
        QCOMPARE(mounts.value(98), u"/mnt/back\\slash"_s);
    }

    void onlyDependentTracksAreRead()
    {
        const QString store = path(u"data/SpanRestoreHistory.cvcddb"_s);
        std::vector<CVHDependentTrack> tracks;
        QString error;
        // No store: no tracks, and none is created.
        QVERIFY(CVHSpanHistoryReader::read(store, tracks, &error));
        QVERIFY(tracks.empty());
        QVERIFY(!QFileInfo::exists(store));

        QVERIFY(writeTestHistory(store,
            {
                { u"1"_s, u"/m/1.mp3"_s, u"/s/1.mp3"_s },
                { u"2"_s, u"/s/2.mp3"_s, u"/s/2.mp3"_s, false },
                { u"3"_s, u"/m/3.mp3"_s, u"/s/3.mp3"_s, true, false, true },
                { u"4"_s, u"/m/4.mp3"_s, u"/m/4.mp3"_s, true, true },
                { u"5"_s, u"/m/5.mp3"_s, u"/s/5-old.mp3"_s },
                { u"5"_s, u"/m/5.mp3"_s, u"/s/5.mp3"_s },
                { u"6"_s, u"/m/6.mp3"_s, u"/s/6.mp3"_s },
                { u"6"_s, u"/s/6.mp3"_s, u"/s/6.mp3"_s, false },
            }));
        QVERIFY(CVHSpanHistoryReader::read(store, tracks, &error));
        QCOMPARE(tracks.size(), std::size_t(2));
        QCOMPARE(tracks[0].persistentID, u"1"_s);
        QCOMPARE(tracks[0].name, u"Track 1"_s);
        QCOMPARE(tracks[0].playerLocation, u"/m/1.mp3"_s);
        QCOMPARE(tracks[0].spanLocation, u"/s/1.mp3"_s);
        QCOMPARE(tracks[1].spanLocation, u"/s/5.mp3"_s);

        // A store that is not ours is refused and left as it was.
        writeFile(store, "not a database");
        QVERIFY(!CVHSpanHistoryReader::read(store, tracks, &error));
        QVERIFY(!error.isEmpty());
        QCOMPARE(readAll(store), QByteArray("not a database"));
    }

private:
    std::unique_ptr<CVTestHome> m_home;
};

QTEST_GUILESS_MAIN(TestLinkRepairer)
#include "tst_linkrepairer.moc"
