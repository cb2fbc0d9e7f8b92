#include "CVTestFiles.h"
#include "CVTestHome.h"
#include "Platform/CVAuthorization.h"
#include "Platform/CVLog.h"
#include "Platform/CVOneLineTasks.h"
#include "Platform/CVPrivilegedFileOperations.h"

#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
namespace Ops = CVPrivilegedFileOperations;

// The privileged operations run the real runner; only pkexec is replaced by a launcher that
// counts how often the user would have been asked.
class TestPrivileged : public QObject {
    Q_OBJECT

private:
    int timesAsked() const { return int(readAll(m_home->filePath(u"asked"_s)).count('\n')); }

    void useLauncher(const QString &body)
    {
        const QString script = m_home->filePath(u"launcher"_s);
        writeFile(script,
            ("#!/bin/sh\necho asked >> '" + QFile::encodeName(m_home->filePath(u"asked"_s)) + "'\n") + body.toUtf8()
                + '\n');
        QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        CVAuthorization::setLauncher({ script });
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<CVTestHome>();
        useLauncher(u"exec '%1'"_s.arg(QStringLiteral(CORVANA_RUNNER)));
        CVLog::setSink([this](const QString &line) { m_log.append(line); });
    }

    void cleanup()
    {
        Ops::dropAuthorization();
        CVAuthorization::setLauncher({});
        CVLog::setSink({});
        m_log.clear();
        m_home.reset();
    }

    void copyCreatesMissingFoldersAndAsksOnce()
    {
        const QString source = m_home->filePath(u"Helper"_s);
        writeFile(source + u"/Contents/Info.plist"_s, "plist");
        const QString destination = m_home->filePath(u"Support/Deep/Corvana Helper"_s);
        QString error;
        QVERIFY2(Ops::authorizedCopyItemAtPath(source, destination, &error), qPrintable(error));
        QCOMPARE(readAll(destination + u"/Contents/Info.plist"_s), QByteArray("plist"));
        QVERIFY(QFileInfo::exists(source));

        const QString moved = m_home->filePath(u"Moved Helper"_s);
        QVERIFY(Ops::authorizedMoveItemAtPath(destination, moved, &error));
        QVERIFY(!QFileInfo::exists(destination));
        QVERIFY(Ops::authorizedRemoveItemAtPath(moved, &error));
        QVERIFY(!QFileInfo::exists(moved));
        QCOMPARE(timesAsked(), 1);
    }

    void nothingIsOverwritten()
    {
        const QString source = m_home->filePath(u"new.txt"_s);
        const QString existing = m_home->filePath(u"old.txt"_s);
        writeFile(source, "new");
        writeFile(existing, "old");
        QVERIFY(!Ops::authorizedMoveItemAtPath(source, existing));
        QVERIFY(!Ops::authorizedCopyItemAtPath(source, existing));
        QCOMPARE(readAll(existing), QByteArray("old"));
        QCOMPARE(readAll(source), QByteArray("new"));
        QVERIFY(!Ops::authorizedMoveItemAtPath(m_home->filePath(u"missing"_s), m_home->filePath(u"x"_s)));
    }

    void removingWhatIsGoneNeverAsks()
    {
        QVERIFY(Ops::authorizedRemoveItemAtPath(m_home->filePath(u"never there"_s)));
        QCOMPARE(timesAsked(), 0);
        QVERIFY(!Ops::sharedAuthorization());
    }

    void refusalIsLoggedAndAskedAgain()
    {
        useLauncher(u"exit 126"_s);
        writeFile(m_home->filePath(u"f"_s), "f");
        QVERIFY(!Ops::authorizedRemoveItemAtPath(m_home->filePath(u"f"_s)));
        QVERIFY(QFileInfo::exists(m_home->filePath(u"f"_s)));
        QCOMPARE(m_log.size(), 1);
        QVERIFY2(m_log[0].startsWith(u"SFAuthorization error: "_s), qPrintable(m_log[0]));
        QVERIFY(!Ops::getAuthorization());
        QCOMPARE(timesAsked(), 2);
    }

    void runnerRunsOnlyItsFourTools()
    {
        QVERIFY(Ops::getAuthorization());
        CVAuthorization &authorization = *Ops::sharedAuthorization();
        QString error;
        const QString marker = m_home->filePath(u"marker"_s);
        QVERIFY(!CVOneLineTasks::stringByLaunchingPath(
            u"/bin/sh"_s, { u"-c"_s, u"touch "_s + marker }, authorization, &error));
        QVERIFY(error.startsWith(QLatin1StringView(CVOneLineTasks::ErrorDomain)));
        // Relative paths could pass for options; other options are not ours.
        QVERIFY(!CVOneLineTasks::stringByLaunchingPath(
            u"/bin/rm"_s, { u"-d"_s, u"-R"_s, u"-rf"_s }, authorization, &error));
        QVERIFY(
            !CVOneLineTasks::stringByLaunchingPath(u"/bin/rm"_s, { u"-d"_s, u"-R"_s, u"/"_s }, authorization, &error));
        QVERIFY(!QFileInfo::exists(marker));
        int status = -1;
        const auto output = CVOneLineTasks::stringByLaunchingPath(
            u"/bin/mkdir"_s, { u"-p"_s, m_home->filePath(u"made/here"_s) }, authorization, &error, &status);
        QVERIFY(output);
        QCOMPARE(status, 0);
        QVERIFY(error.isEmpty());
        QVERIFY(QFileInfo(m_home->filePath(u"made/here"_s)).isDir());
    }

    void resultsBelongToTheUserWhoAsked()
    {
        if (::geteuid() != 0)
            QSKIP("needs root to see ownership change");
        useLauncher(u"PKEXEC_UID=65534 exec '%1'"_s.arg(QStringLiteral(CORVANA_RUNNER)));
        const QString source = m_home->filePath(u"src"_s);
        writeFile(source + u"/inner"_s, "x");
        const QString destination = m_home->filePath(u"new parent/dest"_s);
        QVERIFY(Ops::authorizedCopyItemAtPath(source, destination));
        for (const QString &path :
            QStringList { destination, destination + u"/inner"_s, m_home->filePath(u"new parent"_s) }) {
            struct stat info { };
            QVERIFY(::lstat(QFile::encodeName(path).constData(), &info) == 0);
            QCOMPARE(info.st_uid, uid_t(65534));
        }
    }

    void oneLineTasks()
    {
        QCOMPARE(CVOneLineTasks::stringByLaunchingPathAndWaitingUntilExit(u"/bin/echo"_s, { u"ünï"_s, u"two"_s }),
            u"ünï two\n"_s);
        const QString file = m_home->filePath(u"touched"_s);
        CVOneLineTasks::launchPathAndWaitUntilExit(u"/usr/bin/touch"_s, { file });
        QVERIFY(QFileInfo::exists(file));
    }

private:
    std::unique_ptr<CVTestHome> m_home;
    QStringList m_log;
};

QTEST_GUILESS_MAIN(TestPrivileged)
#include "tst_privileged.moc"
