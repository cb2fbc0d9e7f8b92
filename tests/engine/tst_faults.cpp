// Hostile drives, files and libraries. Every case builds a library with real files, runs a span or
// a restore into a fault, and then checks that every file's bytes are still where the user can
// find them (at the original place, at the span location or in the Trash), that the player's
// location names an existing file unless the run said which track it does not, and the rows.
// Drives are tmpfs mounts in a private mount namespace (as root, or in a user namespace), so the
// machine's own mounts are never touched; the cases that need them are skipped where neither can
// be had. Other faults are injected at the copier, the Trash and the history.
#include "CVCliRun.h"
#include "CVGeneratedLibrary.h"
#include "CVSpanSession.h"
#include "CVSyscallTrace.h"
#include "CVTestEnvironment.h"
#include "CVTestFiles.h"
#include "CVTestMounts.h"
#include "Engine/CVLibraryFilePlayerLink.h"
#include "Engine/CVMediaSpanner.h"
#include "Library/CVLibraryFileReader.h"
#include "Library/CVSpanHistory.h"
#include "Library/CVTrack.h"
#include "Platform/CVFaultInjection.h"
#include "Platform/CVSettings.h"
#include "Platform/CVTrash.h"
#include "Platform/FileSystemEventWatcher.h"

#include <QDirIterator>
#include <QProcess>
#include <QSignalSpy>
#include <QStorageInfo>
#include <QtTest>

#include <cerrno>
#include <fcntl.h>
#include <sched.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using CVFaultInjection::Point;

namespace {

using CVTestMounts::Drive;

using Session = CVFileSpanSession;

// The same run under strace, its calls replayed: what went into the Trash before its records.
CVCliRun runTracedCli(const QStringList &arguments, CVSyscallTrace &trace, const QString &faults = {})
{
    QTemporaryDir dir;
    CVCliRun run = runCli(arguments, faults, dir.filePath(u"trace"_s));
    if (!trace.read(dir.filePath(u"trace"_s)))
        run.status = -1;
    return run;
}

} // namespace

class TestFaults : public QObject {
    Q_OBJECT

private:
    QString libraryFile() const { return m_env->filePath(u"Music/iTunes/iTunes Library.xml"_s); }
    QString spanFolder() const { return m_env->filePath(u"Span Drive/Spanned"_s); }

    void makeLibrary(int tracks, const QString &secondDrive = {}, qint64 bytes = 0)
    {
        CVLibraryGeneratorOptions options;
        options.tracks = tracks;
        options.seed = 11;
        options.mediaRoot = m_env->filePath(u"Music/iTunes"_s);
        options.secondDrive = secondDrive.isEmpty() ? m_env->filePath(u"Archive"_s) : secondDrive;
        options.mediaFileBytes = bytes;
        QVERIFY2(m_library.write(libraryFile(), options), qPrintable(m_library.errorString));
        QVERIFY(m_library.digests.size() > tracks / 2);
    }

    // Roomy enough for the 100 MB that every drive keeps free; a tmpfs takes memory only as it fills.
    static Drive makeDrive(const QString &name, const char *size = "size=512m")
    {
        return CVTestMounts::makeTmpfsDrive(name, size);
    }

    // Every file the library had is somewhere the user can find it, with its bytes; and every
    // track whose player location names no file has a row that says it did not end where asked.
    void checkNothingLost(const CVRunResults *results = nullptr)
    {
        QStringList roots { m_env->path() };
        if (QFileInfo::exists(u"/mnt/.disks"_s))
            roots.append(u"/mnt/.disks"_s);
        const QStringList lost = m_library.lostUnder(roots);
        QVERIFY2(lost.isEmpty(), qPrintable(u"lost: "_s + lost.join(u", "_s)));

        const QHash<QString, QString> now = libraryLocations(libraryFile());
        for (auto [pid, bytes] : m_library.digests.asKeyValueRange()) {
            const QString location = now.value(pid);
            if (QFileInfo::exists(location)) {
                QVERIFY2(fileDigest(location) == bytes, qPrintable(u"the player's file of %1 changed"_s.arg(pid)));
                continue;
            }
            bool said = false;
            if (results)
                for (const CVShownResultRow &row : results->rows)
                    said |= row.trackObject && row.trackObject->text(CVAttr::PersistentID) == pid && !row.inPlace;
            QVERIFY2(said, qPrintable(u"the player points %1 at %2, and no row says so"_s.arg(pid, location)));
        }
    }

    void checkNothingTrashed()
    {
        const QString trash = CVTrash::homeTrashFolder() + u"/files"_s;
        QVERIFY2(QDir(trash).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
            qPrintable(QDir(trash).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).join(u", "_s)));
    }

    static QString rowsText(const Session &s) { return s.messages().join(u'\n'); }

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<CVTestEnvironment>();
        m_env->trashRoots.append(u"/mnt"_s);
    }

    void cleanup()
    {
        m_env.reset(); // before the drives go: it detaches what is mounted on them
        CVTestMounts::removeDrives();
    }

    void aForeignFileIsNeverTakenForTheCopy()
    {
        makeLibrary(24);
        QString foreignPath;
        QByteArray foreign;
        QString sameOriginal;
        {
            Session s(libraryFile());
            const QList<CVTrack *> tracks = s.select(u"( MediaType == 'Music' )"_s).mid(0, 3);
            s.host.location = spanFolder();
            const auto destinationOf = [&](const CVTrack *t) {
                return s.spanner.createNewPathForItem(t, QFileInfo(t->text(CVAttr::Location)).fileName());
            };
            // Same size, same modification time, other bytes.
            const QString original = tracks[0]->text(CVAttr::Location);
            foreignPath = destinationOf(tracks[0]);
            foreign = readAll(original);
            foreign[0] = char(foreign[0] ^ 0x55);
            writeFile(foreignPath, foreign);
            struct stat info { };
            QVERIFY(::stat(QFile::encodeName(original).constData(), &info) == 0);
            const struct timespec times[2] = { info.st_atim, info.st_mtim };
            QVERIFY(::utimensat(AT_FDCWD, QFile::encodeName(foreignPath).constData(), times, 0) == 0);
            // The very same bytes: that one is the copy already.
            sameOriginal = tracks[1]->text(CVAttr::Location);
            QVERIFY(QFile::copy(sameOriginal, destinationOf(tracks[1])));

            s.span(tracks, spanFolder());
            QCOMPARE(s.row(tracks[0]),
                u"A different file already exists at “%1”; both files were left as they are."_s.arg(foreignPath));
            QVERIFY(s.row(tracks[1]).startsWith(u"Track successfully spanned to 'Spanned"_s));
            QCOMPARE(s.spanner.lastResults().successes, 2);
            QCOMPARE(readAll(foreignPath), foreign);
            QVERIFY(QFileInfo::exists(original));
            QVERIFY(!QFileInfo::exists(sameOriginal));
            checkNothingLost(&s.spanner.lastResults());
        }
        QCOMPARE(libraryLocations(libraryFile()).value(m_library.digests.keys().first()).isEmpty(), false);

        // The original gone and a stranger at the destination: nothing is taken, even "anyway".
        QString pid;
        QString stranger;
        {
            Session s(libraryFile());
            CVTrack *t = s.select(u"( MediaType == 'Music' AND ItemIsSpanned == 0 )"_s).first();
            pid = t->text(CVAttr::PersistentID);
            s.host.location = spanFolder();
            stranger = s.spanner.createNewPathForItem(t, QFileInfo(t->text(CVAttr::Location)).fileName());
            QVERIFY(QFile::rename(t->text(CVAttr::Location), m_env->filePath(u"moved away.m4a"_s)));
        }
        writeFile(stranger, "not the track");
        const QString before = libraryLocations(libraryFile()).value(pid);
        const CVCliRun run = runCli({ u"--library"_s, libraryFile(), u"span"_s, u"--to"_s, spanFolder(), u"--yes"_s,
            u"--anyway"_s, u"{\"PersistentID\": [\"%1\"]}"_s.arg(pid) });
        QCOMPARE(run.status, 1);
        QVERIFY2(run.out.contains("is not known to be its copy; it was left as it is."), run.out.constData());
        QCOMPARE(readAll(stranger), QByteArray("not the track"));
        QCOMPARE(libraryLocations(libraryFile()).value(pid), before);
    }

    void aRunNeedsAWritableHistory_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::newRow("support folder on a full drive") << u"full"_s;
        QTest::newRow("support folder read-only") << u"read-only"_s;
    }

    void aRunNeedsAWritableHistory()
    {
        QFETCH(QString, fault);
        if (!CVTestMounts::available())
            QSKIP(qPrintable(CVTestMounts::unavailableReason()));
        makeLibrary(16);
        {
            Session s(libraryFile());
        } // the store exists, with the join saved
        const QString support = CVSpanHistory::applicationSupportFolder();
        // The support folder becomes a drive of its own, with the store on it.
        const Drive drive = makeDrive(u"Support"_s, "size=1m");
        QVERIFY(QFile::copy(support + u"/SpanRestoreHistory.cvcddb"_s, drive.root + u"/SpanRestoreHistory.cvcddb"_s));
        QVERIFY(::mount(qPrintable(drive.root), qPrintable(support), nullptr, MS_BIND, nullptr) == 0);
        m_env->unmountAtEnd(support);
        if (fault == u"full"_s)
            drive.fill(0);
        else
            QVERIFY(::mount(nullptr, qPrintable(support), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0);
        QDir().mkpath(spanFolder());
        const CVCliRun run = runCli({ u"--library"_s, libraryFile(), u"span"_s, u"--to"_s, spanFolder(), u"--yes"_s,
            u"( MediaType == 'Music' )"_s });
        QCOMPARE(run.status, 2);
        QVERIFY2(run.err.contains("The span history cannot be written"), run.err.constData());
        QVERIFY2(run.err.contains(fault == u"full"_s ? "full" : "read"), run.err.constData());
        QVERIFY(QDir(spanFolder()).isEmpty());
        checkNothingTrashed();
        checkNothingLost();
    }

    void aHistoryThatFailsMidRunStopsTheTrash()
    {
        makeLibrary(20);
        Session s(libraryFile());
        const QList<CVTrack *> tracks = s.select(u"( MediaType == 'Music' )"_s).mid(0, 4);
        QStringList originals;
        for (const CVTrack *t : tracks)
            originals.append(t->text(CVAttr::Location));
        CVFaultInjection::set(Point::HistoryCommit, 1, EIO);
        s.span(tracks, spanFolder());
        QCOMPARE(s.spanner.lastResults().successes, 0);
        QCOMPARE(s.spanner.trashedFileCount(), 0);
        for (int i = 0; i < tracks.size(); ++i) {
            QCOMPARE(s.row(tracks[i]),
                u"The span history could not be written, so the original file was kept at “%1”."_s.arg(originals[i]));
            QVERIFY(QFileInfo::exists(originals[i]));
        }
        QVERIFY(m_env->log.filter(u"Cannot save the span history"_s).size() == 1);
        checkNothingTrashed();
        checkNothingLost(&s.spanner.lastResults());
    }

    void aDriveThatGoesAwayMidSpan()
    {
        if (!CVTestMounts::available())
            QSKIP(qPrintable(CVTestMounts::unavailableReason()));
        makeLibrary(30);
        const Drive drive = makeDrive(u"Span Disk"_s);
        const QString span = drive.root + u"/Spanned"_s;
        Session s(libraryFile());
        const QList<CVTrack *> tracks = s.select(u"( MediaType == 'Music' )"_s).mid(0, 6);
        QStringList originals;
        for (const CVTrack *t : tracks)
            originals.append(t->text(CVAttr::Location));
        int copies = 0;
        connect(&s.spanner, &CVMediaSpanner::fileCopied, this, [&] {
            if (++copies == 2)
                QVERIFY(drive.unplug());
        });
        s.span(tracks, span);
        const QStringList rows = s.messages();
        QCOMPARE(
            rows.count(u"The drive “%1” was disconnected during the run; this track was not copied."_s.arg(drive.root)),
            4);
        QCOMPARE(rows.filter(u"cannot be used (its drive “%1” was disconnected); the original file stays at"_s.arg(
                                 drive.root))
                     .size(),
            2);
        QVERIFY(!s.spanner.lastResults().headline.startsWith(u"All"_s));
        // Nothing was made on the system disk under the unplugged drive's folder, nothing trashed.
        QVERIFY(QDir(drive.root).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden));
        QCOMPARE(s.spanner.trashedFileCount(), 0);
        for (const QString &original : std::as_const(originals))
            QVERIFY(QFileInfo::exists(original));
        checkNothingLost(&s.spanner.lastResults());
        QVERIFY(drive.plug());
    }

    void aDriveThatGoesAwayMidRestore()
    {
        if (!CVTestMounts::available())
            QSKIP(qPrintable(CVTestMounts::unavailableReason()));
        makeLibrary(30);
        const Drive drive = makeDrive(u"Span Disk"_s);
        const QString span = drive.root + u"/Spanned"_s;
        {
            Session s(libraryFile());
            s.span(s.select(u"( MediaType == 'Music' )"_s).mid(0, 6), span);
            QVERIFY2(s.spanner.lastResults().successes == 6, qPrintable(rowsText(s)));
        }
        Session s(libraryFile());
        const QList<CVTrack *> spanned = s.select(u"( ItemIsSpanned == 1 )"_s);
        QCOMPARE(spanned.size(), 6);
        int copies = 0;
        connect(&s.spanner, &CVMediaSpanner::fileCopied, this, [&] {
            if (++copies == 2)
                QVERIFY(drive.unplug());
        });
        s.restore(spanned);
        QCOMPARE(s.spanner.lastResults().successes, 2);
        QCOMPARE(s.messages()
                     .filter(u"The drive “%1” that holds this track's file was disconnected; nothing was done."_s.arg(
                         drive.root))
                     .size(),
            4);
        checkNothingLost(&s.spanner.lastResults());
        QVERIFY(drive.plug());
    }

    void aFullOrReadOnlyDriveToRestoreTo_data()
    {
        QTest::addColumn<bool>("readOnly");
        QTest::newRow("full") << false;
        QTest::newRow("read-only") << true;
    }

    void aFullOrReadOnlyDriveToRestoreTo()
    {
        QFETCH(bool, readOnly);
        if (!CVTestMounts::available())
            QSKIP(qPrintable(CVTestMounts::unavailableReason()));
        // The originals of the second drive's tracks go back to a drive that cannot take them.
        const Drive archive = makeDrive(u"Archive"_s, "size=220m");
        makeLibrary(60, archive.root, 20000);
        {
            Session s(libraryFile());
            const QList<CVTrack *> onDrive = s.select(u"( Location LIKE '%1/*' )"_s.arg(archive.root));
            QVERIFY(!onDrive.isEmpty());
            s.span(onDrive, spanFolder());
            QCOMPARE(s.spanner.lastResults().successes, int(onDrive.size()));
        }
        if (readOnly)
            QVERIFY(archive.makeReadOnly());
        else
            archive.fill(50000);
        Session s(libraryFile());
        const QList<CVTrack *> spanned = s.select(u"( ItemIsSpanned == 1 )"_s);
        s.restore(spanned);
        QCOMPARE(s.spanner.lastResults().successes, 0);
        const QString expected = readOnly ? u"Read-only file system"_s
                                          : u"File not copied, no more space available on destination drive."_s;
        QVERIFY2(s.messages().first().contains(expected), qPrintable(rowsText(s)));
        checkNothingLost(&s.spanner.lastResults());
    }

    void onlyTheUsersOwnRegularFiles()
    {
        makeLibrary(24);
        QString fifoPid, folderPid, systemPid;
        {
            Session s(libraryFile());
            const QList<CVTrack *> music = s.select(u"( MediaType == 'Music' )"_s);
            fifoPid = music[0]->text(CVAttr::PersistentID);
            folderPid = music[1]->text(CVAttr::PersistentID);
            systemPid = music[2]->text(CVAttr::PersistentID);
            // A FIFO and a folder where files were (the files moved aside, not lost).
            for (int i = 0; i < 2; ++i) {
                const QString path = music[i]->text(CVAttr::Location);
                QVERIFY(QFile::rename(path, path + u".aside"_s));
            }
            QVERIFY(::mkfifo(QFile::encodeName(music[0]->text(CVAttr::Location)).constData(), 0644) == 0);
            QVERIFY(QDir().mkdir(music[1]->text(CVAttr::Location)));
            // A track that names a system file.
            CVLibraryFilePlayerLink link(libraryFile(), CVSpanHistory::applicationSupportFolder(), nullptr);
            QVERIFY(link.setTrackLocation(systemPid, u"/etc/hostname"_s));
            QVERIFY(link.applyJournal());
        }
        const QByteArray hostname = readAll(u"/etc/hostname"_s);
        Session s(libraryFile());
        const QList<CVTrack *> three { s.track(fifoPid), s.track(folderPid), s.track(systemPid) };
        s.span(three, spanFolder());
        QCOMPARE(s.row(three[0]),
            u"“%1” is a FIFO, not a file; only files are spanned and restored."_s.arg(
                three[0]->text(CVAttr::Location)));
        QCOMPARE(s.row(three[1]),
            u"“%1” is a folder, not a file; only files are spanned and restored."_s.arg(
                three[1]->text(CVAttr::Location)));
        QCOMPARE(
            s.row(three[2]), u"“/etc/hostname” lies in a system folder; Corvana moves only your own media files."_s);
        QCOMPARE(readAll(u"/etc/hostname"_s), hostname);
        QVERIFY(!QFileInfo::exists(spanFolder() + u"/Music"_s));
        checkNothingTrashed();
    }

    void anEscapedSlashIsNotAPath()
    {
        makeLibrary(12);
        // "a%2Fb.m4a" names one file; decoded as a path it would be another one: b.m4a in a/.
        const QString decoy = m_env->filePath(u"Music/a/b.m4a"_s);
        writeFile(decoy, "decoy");
        QByteArray xml = readAll(libraryFile());
        const qsizetype at = xml.indexOf("<key>Location</key><string>file://");
        QVERIFY(at > 0);
        const qsizetype start = xml.indexOf("<string>", at) + 8;
        const qsizetype end = xml.indexOf("</string>", start);
        const QByteArray escaped = "file://localhost" + QFile::encodeName(m_env->filePath(u"Music"_s)) + "/a%2Fb.m4a";
        xml.replace(start, end - start, escaped);
        writeFile(libraryFile(), xml);
        Session s(libraryFile());
        s.span(s.select(u"( MediaType == 'Music' )"_s), spanFolder());
        QCOMPARE(readAll(decoy), QByteArray("decoy"));
        QVERIFY(s.messages().contains(u"The original file could not be found."_s));
    }

    void injectedFaultsKeepEveryFile_data()
    {
        QTest::addColumn<int>("point");
        QTest::addColumn<int>("nth");
        QTest::addColumn<bool>("repeat");
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("row");
        QTest::newRow("write fails once: tried again")
            << int(Point::CopyWrite) << 1 << false << EIO << u"Track successfully spanned to 'Spanned"_s;
        QTest::newRow("write fails") << int(Point::CopyWrite) << 1 << true << EIO
                                     << u"The original file could not be copied, an error occurred. “"_s;
        QTest::newRow("drive fills while copying")
            << int(Point::CopyWrite) << 2 << true << ENOSPC
            << u"File not copied, no more space available on destination drive."_s;
        QTest::newRow("rename fails") << int(Point::CopyRename) << 1 << true << EIO << u"Input/output error"_s;
        QTest::newRow("folder cannot be made")
            << int(Point::FolderCreate) << 1 << true << EACCES << u"could not be made: Permission denied."_s;
        QTest::newRow("trash fails") << int(Point::TrashRename) << 1 << true << EIO
                                     << u"Track spanned to 'Spanned (on Computer)', but its original file stays at “"_s;
    }

    void injectedFaultsKeepEveryFile()
    {
        QFETCH(int, point);
        QFETCH(int, nth);
        QFETCH(bool, repeat);
        QFETCH(int, error);
        QFETCH(QString, row);
        makeLibrary(20);
        Session s(libraryFile());
        const QList<CVTrack *> tracks = s.select(u"( MediaType == 'Music' )"_s).mid(0, 3);
        CVFaultInjection::set(Point(point), nth, error, repeat);
        s.span(tracks, spanFolder());
        QVERIFY2(rowsText(s).contains(row), qPrintable(rowsText(s)));
        if (Point(point) == Point::TrashRename) {
            QVERIFY2(s.row(tracks[0]).endsWith(u"Input/output error."_s), qPrintable(s.row(tracks[0])));
            for (const CVTrack *t : tracks)
                QVERIFY(QFileInfo::exists(t->text(CVAttr::Location)));
        }
        // No half-made copy is left under any name.
        QDirIterator parts(
            spanFolder(), { u".corvana-copy-*"_s }, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        QVERIFY(!parts.hasNext());
        checkNothingLost(&s.spanner.lastResults());
    }

    // The trace checker itself, on calls as strace prints them.
    void theTraceCheckerNeedsEachSync()
    {
        const QByteArray head
            = "10 openat(AT_FDCWD</w>, \"/h/Trash/info/a \\\"b\\\".mp3.trashinfo\", "
              "O_WRONLY|O_CREAT|O_EXCL|O_CLOEXEC, 0600) = 5</h/Trash/info/a \"b\".mp3.trashinfo>\n"
              "10 write(5</h/Trash/info/a \"b\".mp3.trashinfo>, \"\"..., 60) = 60\n"
              "11 openat(AT_FDCWD</w>, \"/h/Corvana/S.cvcddb-journal\", O_RDWR|O_CREAT, 0600 <unfinished ...>\n"
              "10 mkdir(\"/d/Span/Art\\303\\251\", 0777) = 0\n"
              "11 <... openat resumed>) = 6</h/Corvana/S.cvcddb-journal>\n"
              "11 unlink(\"/h/Corvana/S.cvcddb-journal\") = 0\n";
        const QByteArray move = "10 renameat2(AT_FDCWD</w>, \"/m/a \\\"b\\\".mp3\", AT_FDCWD</w>, "
                                "\"/h/Trash/files/a \\\"b\\\".mp3\", RENAME_NOREPLACE) = 0\n";
        const auto check = [&](const QByteArray &syncs) {
            CVSyscallTrace trace;
            trace.setRecordAreas({ u"/h/Corvana"_s, u"/d/Span"_s });
            trace.setDeviceOf([](const QString &path) { return path.startsWith(u"/d/"_s) ? 2u : 1u; });
            [&] { QVERIFY(trace.parse(head + syncs + move)); }();
            return trace.violations().join(u'\n');
        };
        QString v = check({});
        QVERIFY2(v.contains(u"its info file “/h/Trash/info/a \"b\".mp3.trashinfo”"_s), qPrintable(v));
        QVERIFY2(v.contains(u"the name “/d/Span/Arté”"_s), qPrintable(v));
        QVERIFY2(v.contains(u"the name “/h/Corvana/S.cvcddb-journal”"_s), qPrintable(v));
        // A sync of the home filesystem covers the info file and the store, not the other drive.
        v = check("12 syncfs(7</h/Trash/info>) = 0\n");
        QVERIFY2(!v.contains(u"info file"_s) && !v.contains(u"journal"_s) && v.contains(u"Arté"_s), qPrintable(v));
        // The info file's own sync and its folder's, the store's folder, the new folder's parent.
        QCOMPARE(check("12 fsync(5</h/Trash/info/a \"b\".mp3.trashinfo>) = 0\n12 fsync(8</h/Trash/info>) = 0\n"
                       "12 fsync(9</h/Corvana>) = 0\n12 fdatasync(4</d/Span>) = 0\n"),
            QString());
        // A sync that failed, or one before the write, covers nothing.
        QVERIFY(
            !check("12 syncfs(7</h/Trash/info>) = -1 EIO (Input/output error)\n12 syncfs(4</d/Span>) = 0\n").isEmpty());
        CVSyscallTrace trace;
        QVERIFY(trace.parse("10 syncfs(7</h>) = 0\n" + head + move));
        QCOMPARE(trace.trashMoves().size(), 1);
        QCOMPARE(trace.trashMoves().first().first, u"/m/a \"b\".mp3"_s);
        QVERIFY(!trace.violations().isEmpty());
    }

    // Every move into the Trash comes after the syncs that make the copy, its folders, the
    // history (and the support folder it lies in), the player's library and the Trash's info
    // file durable, seen in the system calls of real runs.
    void everyTrashStepComesAfterItsRecords_data()
    {
        QTest::addColumn<bool>("drive");
        QTest::addColumn<bool>("restore");
        QTest::newRow("first span, same drive") << false << false;
        QTest::newRow("first span, to another drive") << true << false;
        QTest::newRow("restore from another drive") << true << true;
    }

    void everyTrashStepComesAfterItsRecords()
    {
        QFETCH(bool, drive);
        QFETCH(bool, restore);
        QString why;
        if (!CVSyscallTrace::available(&why))
            QSKIP(qPrintable(why));
        if (drive && !CVTestMounts::available())
            QSKIP(qPrintable(CVTestMounts::unavailableReason()));
        makeLibrary(16);
        const QString to = drive ? makeDrive(u"Span"_s).root + u"/Spanned"_s : spanFolder();
        QDir().mkpath(to);
        const QString support = CVSpanHistory::applicationSupportFolder();
        QVERIFY(!QFileInfo::exists(support)); // the run makes it
        const QStringList span { u"--library"_s, libraryFile(), u"span"_s, u"--to"_s, to, u"--yes"_s,
            u"( MediaType == 'Music' )"_s };
        CVSyscallTrace trace;
        trace.setRecordAreas({ support, QFileInfo(libraryFile()).path(), restore ? m_env->path() : to });
        CVCliRun run;
        if (restore) {
            QCOMPARE(runCli(span).status, 0);
            run = runTracedCli(
                { u"--library"_s, libraryFile(), u"restore"_s, u"--yes"_s, u"( MediaType == 'Music' )"_s }, trace);
        } else {
            run = runTracedCli(span, trace);
        }
        QVERIFY2(run.status == 0, QByteArray(run.out + run.err).constData());
        QVERIFY(trace.trashMoves().size() >= 4);
        QVERIFY2(trace.violations().isEmpty(), qPrintable(trace.violations().join(u'\n')));
        checkNothingLost();

        // Without the sync of the run's filesystems the same check fails.
        if (restore)
            return;
        makeLibrary(16);
        CVSyscallTrace skipped;
        skipped.setRecordAreas({ support, QFileInfo(libraryFile()).path(), to });
        const CVCliRun unsynced = runTracedCli(span, skipped, u"filesystem-sync=1+:SKIP"_s);
        QVERIFY2(unsynced.status == 0, QByteArray(unsynced.out + unsynced.err).constData());
        const QString found = skipped.violations().join(u'\n');
        QVERIFY2(found.contains(u"info file"_s), qPrintable(found));
    }

    // Another program puts a file at the copy's place (or rewrites it) between the copy and the
    // Trash step: the original stays, and so does the stranger.
    void aCopyReplacedBeforeTheTrashKeepsItsOriginal_data()
    {
        QTest::addColumn<bool>("inPlace");
        QTest::newRow("replaced by another file") << false;
        QTest::newRow("rewritten in place, same size and time") << true;
    }

    void aCopyReplacedBeforeTheTrashKeepsItsOriginal()
    {
        QFETCH(bool, inPlace);
        makeLibrary(20);
        Session s(libraryFile());
        const QList<CVTrack *> tracks = s.select(u"( MediaType == 'Music' )"_s).mid(0, 3);
        QHash<QString, QByteArray> strangers;
        CVFaultInjection::setAction(Point::BeforeTrash, [&](const QString &copy) {
            QByteArray bytes = readAll(copy);
            bytes[bytes.size() / 2] = char(bytes[bytes.size() / 2] ^ 0x5a);
            struct stat info { };
            ::stat(QFile::encodeName(copy).constData(), &info);
            if (inPlace) {
                QFile file(copy);
                QVERIFY(file.open(QIODevice::ReadWrite));
                QCOMPARE(file.write(bytes), qint64(bytes.size()));
            } else {
                writeFile(copy + u".new"_s, bytes);
                QVERIFY(QFile::rename(copy + u".new"_s, copy)
                    || (QFile::remove(copy) && QFile::rename(copy + u".new"_s, copy)));
            }
            const struct timespec times[2] = { info.st_atim, info.st_mtim };
            ::utimensat(AT_FDCWD, QFile::encodeName(copy).constData(), times, 0);
            strangers.insert(copy, bytes);
        });
        QStringList originals;
        for (const CVTrack *t : tracks)
            originals.append(t->text(CVAttr::Location));
        s.span(tracks, spanFolder());
        QCOMPARE(strangers.size(), 3);
        QCOMPARE(s.spanner.trashedFileCount(), 0);
        for (int i = 0; i < tracks.size(); ++i) {
            QVERIFY2(s.row(tracks[i]).contains(u"is not there as Corvana made it."_s), qPrintable(s.row(tracks[i])));
            QCOMPARE(fileDigest(originals[i]), m_library.digests.value(tracks[i]->text(CVAttr::PersistentID)));
        }
        for (auto [copy, bytes] : strangers.asKeyValueRange())
            QCOMPARE(readAll(copy), bytes);
        checkNothingTrashed();
    }

    // A run watches its own folders: never "/", never a whole drive, and a restore of n tracks
    // no more folders than it has tracks and span location.
    void aRunWatchesOnlyItsFolders()
    {
        makeLibrary(40);
        QList<int> counts;
        QStringList watched;
        CVFaultInjection::setAction(Point::BeforeTrash, [&](const QString &) {
            counts.append(FileSystemEventWatcher::sharedPathWatcher()->watchCount());
            watched = FileSystemEventWatcher::sharedPathWatcher()->watchedPaths();
        });
        QString location;
        int n = 0;
        {
            Session s(libraryFile());
            const QList<CVTrack *> tracks = s.select(u"( MediaType == 'Music' )"_s);
            n = int(tracks.size());
            s.span(tracks, spanFolder());
            QCOMPARE(s.spanner.lastResults().successes, n);
        }
        QVERIFY(!counts.isEmpty());
        QVERIFY2(counts.first() <= n + 1, qPrintable(QString::number(counts.first())));
        QVERIFY(watched.contains(spanFolder()));
        counts.clear();
        {
            Session s(libraryFile());
            const QList<CVTrack *> tracks = s.select(u"( ItemIsSpanned == 1 )"_s);
            QCOMPARE(int(tracks.size()), n);
            s.restore(tracks);
            QCOMPARE(s.spanner.lastResults().successes, n);
        }
        QVERIFY(!counts.isEmpty());
        QVERIFY2(counts.first() <= 2 * n, qPrintable(QString::number(counts.first())));
        for (const QString &folder : std::as_const(watched)) {
            QVERIFY2(folder.startsWith(m_env->path() + u'/'), qPrintable(folder));
            QVERIFY(folder != m_env->path());
        }
        QVERIFY(!FileSystemEventWatcher::sharedPathWatcher()->isWatchingPaths());
    }

    void aKilledRunLosesNothing_data()
    {
        QTest::addColumn<QString>("faults");
        QTest::addColumn<bool>("restore");
        QTest::newRow("while copying") << u"copy-rename=3:KILL"_s << false;
        QTest::newRow("while saving the history") << u"history-commit=1:KILL"_s << false;
        QTest::newRow("while trashing") << u"trash-rename=3:KILL"_s << false;
        // Its records are saved: the same restore again must still find the tracks to finish.
        QTest::newRow("a restore, at its first move into the Trash") << u"trash-rename=1:KILL"_s << true;
    }

    void aKilledRunLosesNothing()
    {
        QFETCH(QString, faults);
        QFETCH(bool, restore);
        makeLibrary(24);
        QDir().mkpath(spanFolder());
        const QStringList span { u"--library"_s, libraryFile(), u"span"_s, u"--to"_s, spanFolder(), u"--yes"_s,
            u"( MediaType == 'Music' )"_s };
        if (restore) {
            QCOMPARE(runCli(span).status, 0);
            const QStringList again { u"--library"_s, libraryFile(), u"restore"_s, u"--yes"_s, u"--span-filter"_s,
                u"All Spanned"_s };
            const CVCliRun killed = runCli(again, faults);
            QVERIFY2(killed.killed, killed.err.constData());
            checkNothingLost();
            const CVCliRun finished = runCli(again);
            QVERIFY2(finished.status == 0, QByteArray(finished.out + finished.err).constData());
            QVERIFY2(finished.err.contains("of the interrupted run are added to this run"), finished.err.constData());
            checkNothingLost();
            // Every track home, and nothing of the run's left at the span location.
            for (auto [pid, location] : libraryLocations(libraryFile()).asKeyValueRange())
                QVERIFY2(!location.startsWith(spanFolder()), qPrintable(location));
            QDirIterator left(spanFolder(), QDir::Files | QDir::NoSymLinks, QDirIterator::Subdirectories);
            QVERIFY2(!left.hasNext(), qPrintable(left.hasNext() ? left.next() : QString()));
            return;
        }
        const CVCliRun killed = runCli(span, faults);
        QVERIFY2(killed.killed, killed.err.constData());
        checkNothingLost();
        // The next start finishes the work: every track at the span location, its bytes intact.
        const CVCliRun again = runCli(span);
        QVERIFY2(again.status == 0, QByteArray(again.out + again.err).constData());
        const CVCliRun third = runCli(span);
        QVERIFY2(third.status == 0, QByteArray(third.out + third.err).constData());
        QVERIFY2(third.out.contains("Track already spanned to"), third.out.constData());
        checkNothingLost();
        const QHash<QString, QString> now = libraryLocations(libraryFile());
        Session s(libraryFile());
        for (CVTrack *t : s.select(u"( MediaType == 'Music' )"_s))
            QVERIFY2(
                now.value(t->text(CVAttr::PersistentID)).startsWith(spanFolder()), qPrintable(t->text(CVAttr::Name)));
    }

    void theHistoryLivesInItsOneFile()
    {
        makeLibrary(16);
        {
            Session s(libraryFile());
            s.span(s.select(u"( MediaType == 'Music' )"_s), spanFolder());
            QVERIFY(s.spanner.lastResults().successes > 3);
        }
        const QString store = CVSpanHistory::applicationSupportFolder() + u"/SpanRestoreHistory.cvcddb"_s;
        QVERIFY(!QFileInfo::exists(store + u"-wal"_s));
        QVERIFY(!QFileInfo::exists(store + u"-journal"_s));
        // The file alone, copied elsewhere, holds every record.
        const QString copy = m_env->filePath(u"copy.cvcddb"_s);
        QVERIFY(QFile::copy(store, copy));
        sqlite3 *db = nullptr;
        QCOMPARE(sqlite3_open_v2(QFile::encodeName(copy).constData(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
        sqlite3_stmt *stmt = nullptr;
        QCOMPARE(
            sqlite3_prepare_v2(db, "SELECT count(*) FROM Tracks WHERE FullSpan = 1", -1, &stmt, nullptr), SQLITE_OK);
        QCOMPARE(sqlite3_step(stmt), SQLITE_ROW);
        const int records = sqlite3_column_int(stmt, 0);
        sqlite3_finalize(stmt);
        sqlite3_close(db);
        Session s(libraryFile());
        QCOMPARE(records, int(s.select(u"( FullSpan == 1 )"_s).size()));
    }

    void dependentlySpannedTracksAreRecorded()
    {
        makeLibrary(20);
        QString pid;
        {
            Session s(libraryFile());
            s.settings.setValue(CVSettingsKey::FullSpanReattempts, 0);
            CVTrack *t = s.select(u"( MediaType == 'Music' )"_s).first();
            pid = t->text(CVAttr::PersistentID);
            const QString original = t->text(CVAttr::Location);
            // The player keeps the old place, and the original goes away after its copy was made.
            s.link.ignored.insert(pid);
            connect(&s.spanner, &CVMediaSpanner::fileCopied, this,
                [&] { QVERIFY(QFile::rename(original, m_env->filePath(u"gone.m4a"_s))); });
            s.span({ t }, spanFolder());
            QCOMPARE(
                s.messages(), QStringList { u"Track dependently spanned. Another reattempt is highly recommended."_s });
        }
        Session s(libraryFile());
        CVTrack *t = s.track(pid);
        QVERIFY(t->flag(CVAttr::SymSpan));
        QVERIFY(t->text(CVAttr::SpanLocation).startsWith(spanFolder()));
        // Now update-dependent finds it and points the player at its file.
        s.spanner.updateDependentTracks();
        QCOMPARE(s.spanner.lastResults().successes, 1);
        QCOMPARE(libraryLocations(libraryFile()).value(pid), t->text(CVAttr::SpanLocation));
    }

    void rowsNameTheCause()
    {
        makeLibrary(20);
        Session s(libraryFile());
        const QList<CVTrack *> tracks = s.select(u"( MediaType == 'Music' )"_s).mid(0, 2);
        // A file where a folder must go.
        writeFile(spanFolder() + u"/Music"_s, "in the way");
        s.span(tracks, spanFolder());
        QCOMPARE(s.row(tracks[0]),
            u"The original file could not be copied, an error occurred. The folder “%1/Music” could not be made: a "
            u"file "
            "of that name is in the way."_s.arg(spanFolder()));
        checkNothingLost(&s.spanner.lastResults());
    }

    void theRunAsAnotherUser()
    {
        if (!CVTestMounts::realRoot() || !QFileInfo::exists(u"/usr/bin/setpriv"_s))
            QSKIP("needs root, to run the tool as an unprivileged user");
        // A home of the user "nobody" with a library of its own.
        QTemporaryDir top;
        QFile::setPermissions(top.path(),
            QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ExeOther | QFile::ReadOther
                | QFile::ExeGroup | QFile::ReadGroup);
        const QString home = top.filePath(u"nobody"_s);
        const QString library = home + u"/Music/iTunes/iTunes Library.xml"_s;
        CVLibraryGeneratorOptions options;
        options.tracks = 24;
        options.seed = 3;
        options.mediaRoot = home + u"/Music/iTunes"_s;
        options.secondDrive = home + u"/Archive"_s;
        options.createMediaFiles = true;
        QDir().mkpath(QFileInfo(library).path());
        QVERIFY(CVLibraryGenerator(options).write(library));
        QProcess::execute(u"chown"_s, { u"-R"_s, u"65534:65534"_s, home });
        const QString span = home + u"/Span"_s;
        QDir().mkpath(span);
        QProcess::execute(u"chown"_s, { u"65534:65534"_s, span });
        const auto asNobody = [&](const QStringList &arguments) {
            QProcess process;
            QProcessEnvironment env;
            env.insert(u"HOME"_s, home);
            env.insert(u"XDG_RUNTIME_DIR"_s, home + u"/.runtime"_s);
            env.insert(u"PATH"_s, u"/usr/bin:/bin"_s);
            process.setProcessEnvironment(env);
            process.start(u"/usr/bin/setpriv"_s,
                QStringList { u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s, QStringLiteral(CORVANA_CLI),
                    u"--library"_s, library }
                    + arguments);
            process.waitForFinished(120000);
            return CVCliRun { process.exitCode(), false, process.readAllStandardOutput(),
                process.readAllStandardError() };
        };
        const QHash<QString, QString> locations = libraryLocations(library);
        // Three tracks in three folders.
        QStringList music;
        QSet<QString> folders;
        for (auto [pid, path] : locations.asKeyValueRange()) {
            const QString folder = QFileInfo(path).absolutePath();
            if (path.contains(u"/iTunes Media/Music/"_s) && QFileInfo(path).isFile() && !folders.contains(folder)
                && music.size() < 3) {
                music.append(pid);
                folders.insert(folder);
            }
        }
        QCOMPARE(music.size(), 3);
        // Not the user's: a file of root's; out of reach: a folder that may not be opened; one that
        // could not be moved out of its folder afterwards.
        const QString rootsFile = locations.value(music[0]);
        QVERIFY(::chown(QFile::encodeName(rootsFile).constData(), 0, 0) == 0);
        const QString hidden = locations.value(music[1]);
        const QString lockedFolder = locations.value(music[2]);
        const auto selectThree = u"{\"PersistentID\": [\"%1\", \"%2\", \"%3\"]}"_s.arg(music[0], music[1], music[2]);
        QVERIFY(::chmod(QFile::encodeName(QFileInfo(hidden).absolutePath()).constData(), 0) == 0);
        CVCliRun run = asNobody({ u"span"_s, u"--to"_s, span, u"--yes"_s, selectThree });
        QCOMPARE(run.status, 2);
        QVERIFY2(
            run.err.contains("cannot be reached: Corvana is not allowed to open the folders"), run.err.constData());
        QVERIFY(::chmod(QFile::encodeName(QFileInfo(lockedFolder).absolutePath()).constData(), 0555) == 0);
        run = asNobody({ u"span"_s, u"--to"_s, span, u"--yes"_s, u"--anyway"_s, selectThree });
        QCOMPARE(run.status, 1);
        QVERIFY2(run.out.contains(
                     qPrintable(u"“%1” belongs to another user; Corvana moves only files you own."_s.arg(rootsFile))),
            run.out.constData());
        QVERIFY2(run.out.contains("cannot be reached: Permission denied."), run.out.constData());
        ::chmod(QFile::encodeName(QFileInfo(hidden).absolutePath()).constData(), 0755);
        QVERIFY(QFileInfo::exists(rootsFile));
        QVERIFY(QFileInfo::exists(hidden));
        QVERIFY2(run.out.contains("cannot be moved out of"), run.out.constData());
        QVERIFY(QFileInfo::exists(lockedFolder));
        // A read-only store refuses the run before a copy.
        const QString store = home + u"/.local/share/Corvana/SpanRestoreHistory.cvcddb"_s;
        QVERIFY(QFileInfo::exists(store));
        QVERIFY(::chmod(QFile::encodeName(store).constData(), 0444) == 0);
        run = asNobody({ u"span"_s, u"--to"_s, span, u"--yes"_s, u"( MediaType == 'Music' )"_s });
        QCOMPARE(run.status, 2);
        QVERIFY2(run.err.contains("The span history cannot be written"), run.err.constData());
    }

    void rootIsAskedToRunAsTheUser()
    {
        if (::geteuid() != 0)
            QSKIP("only root is refused");
        makeLibrary(8);
        QDir().mkpath(spanFolder());
        QProcess process;
        process.start(QStringLiteral(CORVANA_CLI),
            { u"--library"_s, libraryFile(), u"span"_s, u"--to"_s, spanFolder(), u"--yes"_s,
                u"( MediaType == 'Music' )"_s });
        QVERIFY(process.waitForFinished(60000));
        QCOMPARE(process.exitCode(), 2);
        QVERIFY(process.readAllStandardError().contains("--allow-root"));
        QVERIFY(QDir(spanFolder()).isEmpty());
    }

private:
    std::unique_ptr<CVTestEnvironment> m_env;
    CVGeneratedLibrary m_library;
};

int main(int argc, char *argv[])
{
    // Before any thread exists: a user namespace can only be entered by a single thread.
    CVTestMounts::enterPrivateMounts();
    QCoreApplication app(argc, argv);
    TestFaults test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_faults.moc"
