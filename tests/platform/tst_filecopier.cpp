#include "CVTestFiles.h"
#include "Platform/CVFileCopier.h"

#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <sys/mount.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

class TestFileCopier : public QObject {
    Q_OBJECT

private:
    static QStringList leftovers(const QString &folder)
    {
        return QDir(folder).entryList({ u".corvana-copy-*"_s }, QDir::Files | QDir::Hidden);
    }

private Q_SLOTS:
    void copiesKeepBytesModeAndTime_data()
    {
        QTest::addColumn<bool>("deferred");
        QTest::newRow("synced") << false;
        QTest::newRow("deferred") << true;
    }

    void copiesKeepBytesModeAndTime()
    {
        QFETCH(bool, deferred);
        QTemporaryDir dir;
        const QString source = dir.filePath(u"Señor \"100%\".mp3"_s);
        QByteArray bytes(3 * 1024 * 1024 + 7, '\0');
        for (qsizetype i = 0; i < bytes.size(); ++i)
            bytes[i] = char(i * 31);
        writeFile(source, bytes);
        QVERIFY(::chmod(QFile::encodeName(source).constData(), 0640) == 0);
        const struct timespec times[2] = { { 1000000000, 0 }, { 1200000000, 500 } };
        QVERIFY(::utimensat(AT_FDCWD, QFile::encodeName(source).constData(), times, 0) == 0);

        const QString destination = dir.filePath(u"copy.mp3"_s);
        const auto result = CVFileCopier::copyFile(
            source, destination, deferred ? CVFileCopier::Durability::Deferred : CVFileCopier::Durability::Sync);
        QVERIFY2(result.ok, qPrintable(result.error));
        if (deferred)
            QVERIFY(CVFileCopier::syncFileSystemOf(destination));
        QCOMPARE(readAll(destination), bytes);
        struct stat info { };
        QVERIFY(::stat(QFile::encodeName(destination).constData(), &info) == 0);
        QCOMPARE(info.st_mode & 07777, mode_t(0640));
        QCOMPARE(qint64(info.st_mtim.tv_sec), qint64(1200000000));
        QVERIFY(leftovers(dir.path()).isEmpty());
    }

    void neverOverwritesAndLeavesNothingBehind()
    {
        QTemporaryDir dir;
        writeFile(dir.filePath(u"a"_s), "new");
        writeFile(dir.filePath(u"b"_s), "old");
        auto result = CVFileCopier::copyFile(dir.filePath(u"a"_s), dir.filePath(u"b"_s));
        QVERIFY(!result.ok);
        QCOMPARE(readAll(dir.filePath(u"b"_s)), QByteArray("old"));
        QVERIFY(leftovers(dir.path()).isEmpty());

        result = CVFileCopier::copyFile(dir.filePath(u"missing"_s), dir.filePath(u"c"_s));
        QVERIFY(!result.ok);
        QVERIFY(result.error.contains(u"missing"_s));
        QVERIFY(!QFileInfo::exists(dir.filePath(u"c"_s)));

        // A stale part of a copy whose process is gone is cleared away.
        writeFile(dir.filePath(u"sub/.corvana-copy-999999999-0.part"_s), "half");
        writeFile(dir.filePath(u"d"_s), "d");
        QVERIFY(CVFileCopier::copyFile(dir.filePath(u"d"_s), dir.filePath(u"sub/d"_s)).ok);
        QVERIFY(leftovers(dir.filePath(u"sub"_s)).isEmpty());
    }

    void onlyFilesAreCopiedAndNothingHangs()
    {
        QTemporaryDir dir;
        // Reading a FIFO would wait for a writer forever; a folder or a device is no media file.
        const QString fifo = dir.filePath(u"pipe"_s);
        QVERIFY(::mkfifo(QFile::encodeName(fifo).constData(), 0644) == 0);
        QDir().mkpath(dir.filePath(u"folder"_s));
        for (const QString &source : { fifo, dir.filePath(u"folder"_s), u"/dev/null"_s }) {
            const auto result = CVFileCopier::copyFile(source, dir.filePath(u"copy"_s));
            QVERIFY(!result.ok);
            QVERIFY(result.notAFile);
            QVERIFY2(result.error.contains(u", not a file."_s), qPrintable(result.error));
            QVERIFY(!QFileInfo::exists(dir.filePath(u"copy"_s)));
        }
    }

    void contentsAndIdentity()
    {
        QTemporaryDir dir;
        writeFile(dir.filePath(u"a"_s), QByteArray(3 << 20, 'x') + "end");
        writeFile(dir.filePath(u"same"_s), QByteArray(3 << 20, 'x') + "end");
        writeFile(dir.filePath(u"other"_s), QByteArray(3 << 20, 'x') + "END");
        using C = CVFileCopier::Comparison;
        QCOMPARE(CVFileCopier::compareContents(dir.filePath(u"a"_s), dir.filePath(u"same"_s)), C::Same);
        QCOMPARE(CVFileCopier::compareContents(dir.filePath(u"a"_s), dir.filePath(u"other"_s)), C::Different);
        QCOMPARE(CVFileCopier::compareContents(dir.filePath(u"a"_s), dir.filePath(u"gone"_s)), C::Unreadable);

        // The identity of a copy is what the kernel shows for the file under its real name, and
        // any later write changes it.
        const auto result = CVFileCopier::copyFile(dir.filePath(u"a"_s), dir.filePath(u"copy"_s));
        QVERIFY(result.ok);
        QVERIFY(CVFileCopier::sameIdentity(result.copy, CVFileCopier::identityOf(dir.filePath(u"copy"_s))));
        QThread::msleep(20);
        QFile copy(dir.filePath(u"copy"_s));
        QVERIFY(copy.open(QIODevice::ReadWrite));
        copy.seek(10);
        copy.write("y");
        copy.close();
        QVERIFY(!CVFileCopier::sameIdentity(result.copy, CVFileCopier::identityOf(dir.filePath(u"copy"_s))));
    }

    void foldersAreMadeOnlyBelowTheirTop()
    {
        QTemporaryDir dir;
        const QString top = dir.filePath(u"Span"_s);
        auto made = CVFileCopier::makeFolders(top + u"/Music/A"_s, top);
        QVERIFY(!made.ok); // the top itself is never made
        QDir().mkpath(top);
        made = CVFileCopier::makeFolders(top + u"/Music/A/B"_s, top);
        QVERIFY2(made.ok, qPrintable(made.error));
        QVERIFY(QFileInfo(top + u"/Music/A/B"_s).isDir());
        QVERIFY(!CVFileCopier::makeFolders(dir.filePath(u"elsewhere"_s), top).ok);
        writeFile(top + u"/Movies"_s, "a file");
        made = CVFileCopier::makeFolders(top + u"/Movies/X"_s, top);
        QCOMPARE(
            made.error, u"The folder “%1/Movies” could not be made: a file of that name is in the way."_s.arg(top));
    }

    void aFullDriveFailsCleanly()
    {
        QTemporaryDir dir;
        const QString drive = dir.filePath(u"full"_s);
        QDir().mkpath(drive);
        if (::mount("tmpfs", QFile::encodeName(drive).constData(), "tmpfs", 0, "size=1m") != 0)
            QSKIP("this machine does not let the test mount a drive");
        writeFile(dir.filePath(u"big"_s), QByteArray(4 * 1024 * 1024, 'x'));
        const auto result = CVFileCopier::copyFile(dir.filePath(u"big"_s), drive + u"/big"_s);
        QVERIFY(!result.ok);
        QVERIFY(result.noSpace);
        QVERIFY(QDir(drive).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).isEmpty());
        ::umount2(QFile::encodeName(drive).constData(), MNT_DETACH);
    }
};

QTEST_GUILESS_MAIN(TestFileCopier)
#include "tst_filecopier.moc"
