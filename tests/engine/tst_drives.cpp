// The drives users span to: a library of names that Linux takes and other systems refuse, spanned
// to a drive of each common filesystem and restored from it. Every file's bytes must come back,
// every name on the drive must be one the drive takes, and what the drive moves to the Trash must
// be where trash clients find it. The drives are images on loop devices in a mount namespace of
// the test's own; a filesystem this machine cannot make or mount is skipped with the reason.
#include "CVSpanSession.h"
#include "CVTestEnvironment.h"
#include "CVTestFiles.h"
#include "CVTestLibraryWriter.h"
#include "CVTestMounts.h"
#include "Engine/CVLibraryFilePlayerLink.h"
#include "Engine/CVMediaSpanner.h"
#include "Library/CVLibraryFileReader.h"
#include "Library/CVSpanHistory.h"
#include "Library/CVTrack.h"
#include "Platform/CVVolumes.h"

#include <QDirIterator>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

using Session = CVFileSpanSession;

// Names that a Linux filesystem takes as they are.
QList<CVTestLibraryWriter::Track> hostileTracks(const QString &media)
{
    return {
        { u"Intro: Part 1?"_s, u"AC|DC"_s, u"Back <in> \"Black\""_s, media + u"/a/01 Intro: Part 1?.m4a"_s, 1 },
        { u"con"_s, u"Con"_s, u"AUX"_s, media + u"/b/con.m4a"_s, 2 },
        { u"Dots"_s, u"Artist..."_s, u"Album. . "_s, media + u"/c/03 Dots..."_s, 3 },
        { u"Song"_s, u"ABBA"_s, u"Gold"_s, media + u"/d/01 Song.m4a"_s, 1 },
        { u"Song"_s, u"Abba"_s, u"Gold"_s, media + u"/e/01 Song.m4a"_s, 1 },
        { u"Jóga"_s, u"Björk"_s, u"Ев ★"_s, media + u"/f/04 Jóga ★.m4a"_s, 4 },
        { u"Tab"_s, u"Back\\Slash"_s, u"Line\tTab"_s, media + u"/g/05 a\\b\tc.m4a"_s, 5 },
    };
}

const QString kTwin = CVTestLibraryWriter::persistentID(4); // the second of ABBA and Abba

} // namespace

class TestDrives : public QObject {
    Q_OBJECT

private:
    QString libraryFile() const { return m_env->filePath(u"Music/iTunes/iTunes Library.xml"_s); }

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<CVTestEnvironment>();
        m_env->trashRoots.append(u"/mnt"_s);
    }

    void cleanup()
    {
        CVTestMounts::removeDrives();
        m_env.reset();
    }

    void namesFollowTheDrivesRules()
    {
        using FS = CVVolumes::FileSystem;
        const auto line = [](const char *type) -> QByteArray {
            return QByteArray("36 35 0:52 / /mnt/share rw,relatime shared:1 - ") + type + " //server/music rw\n";
        };
        // The type comes from the mount table line; "fuseblk" stands for NTFS and exFAT through FUSE.
        for (const char *type : { "cifs", "smb3", "vfat", "exfat", "ntfs3", "fuseblk", "fuse.exfat" }) {
            const QList<CVVolumes::Mount> mounts = CVVolumes::parseMountInfo(line(type));
            QCOMPARE(mounts.size(), 1);
            QCOMPARE(mounts[0].point, u"/mnt/share"_s);
            const FS fs = CVVolumes::fileSystemOfType(mounts[0].type);
            QVERIFY2(fs.windowsNames, type);
        }
        for (const char *type : { "nfs4", "nfs", "ext4", "btrfs", "xfs", "tmpfs", "fuse.sshfs" })
            QVERIFY2(!CVVolumes::fileSystemOfType(QString::fromLatin1(type)).windowsNames, type);
        QCOMPARE(CVVolumes::fileSystemOfType(u"vfat"_s).maxFileSize, (qint64(1) << 32) - 1);
        QCOMPARE(CVVolumes::fileSystemOfType(u"exfat"_s).maxFileSize, qint64(-1));
        // A mount point with a blank, as the kernel writes it.
        QCOMPARE(
            CVVolumes::parseMountInfo("40 1 7:1 / /media/ann/My\\040Disk rw - ext4 /dev/loop1 rw\n").value(0).point,
            u"/media/ann/My Disk"_s);

        QCOMPARE(CVMediaSpanner::windowsSafeName(u"Intro: Part 1?.m4a"_s), u"Intro_ Part 1_.m4a"_s);
        QCOMPARE(CVMediaSpanner::windowsSafeName(u"AC|DC"_s), u"AC_DC"_s);
        QCOMPARE(CVMediaSpanner::windowsSafeName(u"a\\b\tc"_s), u"a_b_c"_s);
        QCOMPARE(CVMediaSpanner::windowsSafeName(u"Album. . "_s), u"Album"_s);
        QCOMPARE(CVMediaSpanner::windowsSafeName(u"..."_s), u"_"_s);
        QCOMPARE(CVMediaSpanner::windowsSafeName(u"con"_s), u"con_"_s);
        QCOMPARE(CVMediaSpanner::windowsSafeName(u"AUX.m4a"_s), u"AUX_.m4a"_s);
        QCOMPARE(CVMediaSpanner::windowsSafeName(u"COM1"_s), u"COM1_"_s);
        QCOMPARE(CVMediaSpanner::windowsSafeName(u"Console"_s), u"Console"_s);
        QCOMPARE(CVMediaSpanner::windowsSafeName(u"LPT10"_s), u"LPT10"_s);
        QCOMPARE(CVMediaSpanner::windowsSafeName(u"Björk ★"_s), u"Björk ★"_s);
        const QString cut = CVMediaSpanner::windowsSafeName(QString(250, u'x') + u"  .  ...zzzzzzzz"_s);
        QVERIFY(cut.toUtf8().size() <= 255 && !cut.endsWith(u'.') && !cut.endsWith(u' '));
    }

    void spanAndRestore_data()
    {
        QTest::addColumn<QString>("type");
        for (const char *type :
            { "tmpfs", "ext4", "btrfs", "xfs", "vfat", "exfat", "ntfs", "ntfs-windows-names", "cifs", "nfs" })
            QTest::newRow(type) << QString::fromLatin1(type);
    }

    void spanAndRestore()
    {
        QFETCH(QString, type);
        if (!CVTestMounts::available())
            QSKIP(qPrintable(CVTestMounts::unavailableReason()));
        CVTestMounts::Drive drive;
        if (type == u"cifs"_s || type == u"nfs"_s) {
            // A share needs the kernel's client and a server on loopback; their name rules are
            // checked from mount table lines in namesFollowTheDrivesRules.
            const QByteArray kernel = readAll(u"/proc/filesystems"_s);
            if (!kernel.contains(QByteArray("\t" + type.toLatin1() + "\n")))
                QSKIP(qPrintable(u"%1: this kernel has no %1 client"_s.arg(type)));
            QSKIP(qPrintable(u"%1: no loopback %2 server is started by this test"_s.arg(
                type, type == u"cifs"_s ? u"Samba"_s : u"NFS"_s)));
        }
        if (type == u"tmpfs"_s) {
            drive = CVTestMounts::makeTmpfsDrive(u"Drive"_s);
        } else {
            QString why;
            drive = CVTestMounts::makeImageDrive(type, u"Drive"_s, m_env->path(), &why);
            if (drive.root.isEmpty())
                QSKIP(qPrintable(why));
        }
        const CVVolumes::FileSystem fs = CVVolumes::fileSystemOf(drive.root);
        const bool windows = fs.windowsNames;
        const bool folds = CVVolumes::ignoresLetterCase(drive.root);
        QCOMPARE(windows, type == u"vfat"_s || type == u"exfat"_s || type.startsWith(u"ntfs"_s));

        CVTestLibraryWriter writer;
        const QString media = m_env->filePath(u"Music/iTunes/iTunes Media"_s);
        const QList<CVTestLibraryWriter::Track> tracks = hostileTracks(media);
        for (const CVTestLibraryWriter::Track &t : tracks)
            writer.add(t);
        QVERIFY2(writer.write(libraryFile(), media), qPrintable(writer.errorString()));
        QHash<QString, QByteArray> before;
        for (int i = 0; i < tracks.size(); ++i)
            before.insert(CVTestLibraryWriter::persistentID(i), fileDigest(tracks[i].path));

        const QString span = drive.root + u"/Spanned"_s;
        QHash<QString, QString> spannedTo;
        {
            Session s(libraryFile());
            s.span(s.select(QString()), span);
            const CVRunResults &results = s.spanner.lastResults();
            for (const CVShownResultRow &row : results.rows) {
                const QString pid = row.trackObject->text(CVAttr::PersistentID);
                if (folds && pid == kTwin) {
                    QVERIFY2(row.message.startsWith(u"Another track of this run already uses the name “"_s),
                        qPrintable(row.message));
                    continue;
                }
                QVERIFY2(row.icon == CVResultIcon::FullSuccess, qPrintable(row.title + u": "_s + row.message));
                const QString at = row.trackObject->text(CVAttr::SpanLocation);
                QVERIFY2(at.startsWith(span + u'/'), qPrintable(at));
                QCOMPARE(fileDigest(at), before.value(pid));
                spannedTo.insert(pid, at);
                // Every name on a drive with Windows rules is one that Windows takes.
                if (windows) {
                    for (const QString &name : at.mid(span.size() + 1).split(u'/'))
                        QCOMPARE(CVMediaSpanner::windowsSafeName(name), name);
                }
            }
            QCOMPARE(results.successes, int(tracks.size()) - (folds ? 1 : 0));
        }
        for (int i = 0; i < tracks.size(); ++i) {
            const QString pid = CVTestLibraryWriter::persistentID(i);
            QCOMPARE(QFileInfo::exists(tracks[i].path), folds && pid == kTwin);
        }

        {
            Session s(libraryFile());
            const QList<CVTrack *> spanned = s.select(u"( ItemIsSpanned == 1 )"_s);
            QCOMPARE(spanned.size(), spannedTo.size());
            s.restore(spanned);
            QVERIFY2(s.spanner.lastResults().successes == int(spanned.size()), qPrintable(s.messages().join(u'\n')));
        }
        for (int i = 0; i < tracks.size(); ++i)
            QCOMPARE(fileDigest(tracks[i].path), before.value(CVTestLibraryWriter::persistentID(i)));
        // The copies went to the drive's own Trash, where trash clients look for them.
        const QString trash = drive.root + u"/.Trash-"_s + QString::number(::getuid());
        for (const QString &copy : std::as_const(spannedTo))
            QVERIFY2(!QFileInfo::exists(copy), qPrintable(copy));
        QCOMPARE(QDir(trash + u"/files"_s).entryList(QDir::Files).size(), spannedTo.size());
        if (!QStandardPaths::findExecutable(u"trash-list"_s).isEmpty()) {
            QString listed;
            QVERIFY(CVTestMounts::run(u"trash-list"_s, {}, &listed) == 0);
            for (const QString &copy : std::as_const(spannedTo))
                QVERIFY2(listed.contains(copy), qPrintable(u"trash-list does not list "_s + copy + u"\n"_s + listed));
            // And one of them comes back from there to its place on the drive.
            const QString one = spannedTo.value(CVTestLibraryWriter::persistentID(5));
            QProcess restore;
            restore.start(u"trash-restore"_s, { one });
            QVERIFY(restore.waitForStarted());
            restore.write("0\n");
            restore.closeWriteChannel();
            QVERIFY(restore.waitForFinished(60000));
            QVERIFY2(QFileInfo::exists(one), restore.readAllStandardError().constData());
            QCOMPARE(fileDigest(one), before.value(CVTestLibraryWriter::persistentID(5)));
        }
    }

private:
    std::unique_ptr<CVTestEnvironment> m_env;
};

int main(int argc, char *argv[])
{
    // Before any thread exists: a user namespace can only be entered by a single thread.
    CVTestMounts::enterPrivateMounts();
    QCoreApplication app(argc, argv);
    TestDrives test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_drives.moc"
