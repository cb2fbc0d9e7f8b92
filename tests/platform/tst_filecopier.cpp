#include "CVTestFiles.h"
#include "Platform/CVFileCopier.h"

#include <QTemporaryDir>
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
