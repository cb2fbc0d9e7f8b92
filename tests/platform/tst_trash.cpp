#include "CVTestEnvironment.h"
#include "CVTestFiles.h"
#include "Platform/CVTrash.h"

#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

#include <sys/mount.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// Trashing as the desktop's trash clients see it: trash-cli must list and restore what we trash.
class TestTrash : public QObject {
    Q_OBJECT

private:
    static QString run(const QString &program, const QStringList &args, const QByteArray &input = {})
    {
        QProcess process;
        process.start(program, args);
        process.write(input);
        process.closeWriteChannel();
        process.waitForFinished(30000);
        return QString::fromUtf8(process.readAllStandardOutput());
    }

    static bool haveTrashCli() { return !QStandardPaths::findExecutable(u"trash-list"_s).isEmpty(); }

    // The Path= entries of trash-list under `prefix`.
    static QStringList listed(const QString &prefix)
    {
        QStringList paths;
        for (const QString &line : run(u"trash-list"_s, {}).split(u'\n', Qt::SkipEmptyParts)) {
            // "YYYY-MM-DD HH:MM:SS /path"
            const QString path = line.section(u' ', 2);
            if (path.startsWith(prefix))
                paths.append(path);
        }
        paths.sort();
        return paths;
    }

    // Mounts a small tmpfs at `folder` when the machine lets us: a second drive.
    static bool mountDrive(const QString &folder)
    {
        QDir().mkpath(folder);
        return ::mount("tmpfs", QFile::encodeName(folder).constData(), "tmpfs", 0, "size=16m") == 0;
    }

private Q_SLOTS:
    // Only our own volumes: the machine's real trash is never looked into or emptied.
    void init() { m_env = std::make_unique<CVTestEnvironment>(); }

    void cleanup() { m_env.reset(); }

    void trashesOnTheHomeDriveForEveryClient()
    {
        const QString music = m_env->filePath(u"Music"_s);
        const QStringList names = { u"100% pure.mp3"_s, u"Señor Ünïcødé ß.flac"_s, u"quote \"and\" 'single'.m4a"_s,
            u"back\\slash #1.mp3"_s };
        for (const QString &name : names)
            writeFile(music + u'/' + name, name.toUtf8());
        writeFile(music + u"/Album/inner.mp3"_s, "x");
        for (const QString &name : names) {
            const CVTrash::Result result = CVTrash::moveToTrash(music + u'/' + name);
            QVERIFY2(result.ok, qPrintable(result.error));
            QVERIFY(!QFileInfo::exists(music + u'/' + name));
            QVERIFY(result.trashedPath.startsWith(CVTrash::homeTrashFolder() + u"/files/"_s));
        }
        QVERIFY(CVTrash::moveToTrash(music + u"/Album"_s).ok);
        QVERIFY(!CVTrash::isEmpty());

        // Path= is percent-encoded: a raw "%" would not survive a restore.
        const QByteArray info = readAll(CVTrash::homeTrashFolder() + u"/info/100% pure.mp3.trashinfo"_s);
        const QByteArray expectedPath
            = "Path=" + QFile::encodeName(music).toPercentEncoding("/") + "/100%25%20pure.mp3\n";
        QVERIFY2(info.contains(expectedPath), info.constData());
        QVERIFY(info.contains("DeletionDate="));

        if (!haveTrashCli())
            QSKIP("trash-cli is not installed");
        QStringList expected = { music + u"/Album"_s };
        for (const QString &name : names)
            expected.append(music + u'/' + name);
        expected.sort();
        QCOMPARE(listed(music), expected);

        // trash-restore restores into the folder it is given; answer its prompt with 0.
        const QString target = music + u'/' + names[0];
        run(u"trash-restore"_s, { target }, "0\n");
        QCOMPARE(readAll(target), names[0].toUtf8());
        run(u"trash-restore"_s, { music + u'/' + names[1] }, "0\n");
        QCOMPARE(readAll(music + u'/' + names[1]), names[1].toUtf8());
    }

    void sameNameTwiceKeepsBoth()
    {
        const QString file = m_env->filePath(u"a.mp3"_s);
        writeFile(file, "first");
        const CVTrash::Result first = CVTrash::moveToTrash(file);
        writeFile(file, "second");
        const CVTrash::Result second = CVTrash::moveToTrash(file);
        QVERIFY(first.ok && second.ok);
        QVERIFY(first.trashedPath != second.trashedPath);
        QCOMPARE(readAll(first.trashedPath), QByteArray("first"));
        QCOMPARE(readAll(second.trashedPath), QByteArray("second"));
    }

    void longNamesStillFit()
    {
        const QString name = QString(120, u'é') + u".mp3"_s; // 244 bytes
        const QString file = m_env->filePath(name);
        writeFile(file, "long");
        const CVTrash::Result result = CVTrash::moveToTrash(file);
        QVERIFY2(result.ok, qPrintable(result.error));
        QCOMPARE(readAll(result.trashedPath), QByteArray("long"));
    }

    void missingFileIsAnErrorAndCreatesNothing()
    {
        const CVTrash::Result result = CVTrash::moveToTrash(m_env->filePath(u"nothing.mp3"_s));
        QVERIFY(!result.ok);
        QVERIFY(result.error.contains(u"nothing.mp3"_s));
        QVERIFY(CVTrash::isEmpty());
    }

    void otherDriveUsesItsOwnTrash()
    {
        const QString drive = m_env->filePath(u"drive"_s);
        if (!mountDrive(drive))
            QSKIP("this machine does not let the test mount a second drive");
        m_env->unmountAtEnd(drive);
        const QString file = drive + u"/Music/50% off é.mp3"_s;
        writeFile(file, "on the drive");
        const CVTrash::Result result = CVTrash::moveToTrash(file);
        QVERIFY2(result.ok, qPrintable(result.error));
        const QString trash = drive + u"/.Trash-"_s + QString::number(::getuid());
        QVERIFY2(result.trashedPath.startsWith(trash + u"/files/"_s), qPrintable(result.trashedPath));
        // Relative to the drive, so the entry still holds when the drive is mounted elsewhere.
        QVERIFY(readAll(trash + u"/info/50% off é.mp3.trashinfo"_s).contains("Path=Music/50%25%20off%20%C3%A9.mp3\n"));
        QVERIFY(CVTrash::trashFolders().contains(trash));
        QVERIFY(!CVTrash::isEmpty());

        if (haveTrashCli()) {
            QCOMPARE(listed(drive), QStringList { file });
            run(u"trash-restore"_s, { file }, "0\n");
            QCOMPARE(readAll(file), QByteArray("on the drive"));
        }
    }

    void readOnlyDriveRefusesAndKeepsTheFile()
    {
        const QString drive = m_env->filePath(u"ro"_s);
        if (!mountDrive(drive))
            QSKIP("this machine does not let the test mount a second drive");
        m_env->unmountAtEnd(drive);
        const QString file = drive + u"/keep.mp3"_s;
        writeFile(file, "keep");
        QVERIFY(::mount(nullptr, QFile::encodeName(drive).constData(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0);
        const CVTrash::Result result = CVTrash::moveToTrash(file);
        QVERIFY(!result.ok);
        QVERIFY(!result.error.isEmpty());
        QCOMPARE(readAll(file), QByteArray("keep"));
    }

    void emptyingRemovesEntriesAndTheirInfo()
    {
        const QString folder = m_env->filePath(u"Old"_s);
        writeFile(folder + u"/a.mp3"_s, "a");
        writeFile(m_env->filePath(u".hidden.mp3"_s), "h");
        QVERIFY(CVTrash::moveToTrash(folder).ok);
        QVERIFY(CVTrash::moveToTrash(m_env->filePath(u".hidden.mp3"_s)).ok);
        QVERIFY(!CVTrash::isEmpty());
        QStringList errors;
        QCOMPARE(CVTrash::emptyTrash(&errors), 2);
        QVERIFY(errors.isEmpty());
        QVERIFY(CVTrash::isEmpty());
        QVERIFY(QDir(CVTrash::homeTrashFolder() + u"/info"_s).isEmpty());
        if (haveTrashCli())
            QVERIFY(listed(m_env->path()).isEmpty());
    }

private:
    std::unique_ptr<CVTestEnvironment> m_env;
};

QTEST_GUILESS_MAIN(TestTrash)
#include "tst_trash.moc"
