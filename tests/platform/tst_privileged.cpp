#include "CVTestEnvironment.h"
#include "CVTestFiles.h"
#include "Platform/CVAuthorization.h"
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
    int timesAsked() const { return int(readAll(m_env->filePath(u"asked"_s)).count('\n')); }

    void useLauncher(const QString &body)
    {
        const QString script = m_env->filePath(u"launcher"_s);
        writeFile(script,
            ("#!/bin/sh\necho asked >> '" + QFile::encodeName(m_env->filePath(u"asked"_s)) + "'\n") + body.toUtf8()
                + '\n');
        QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        CVAuthorization::setLauncher({ script });
    }

private Q_SLOTS:
    QString installed() const { return m_env->filePath(u"Support/Deep/Corvana Helper"_s); }
    QString packaged() const { return m_env->filePath(u"Package/Corvana Helper"_s); }

    void init()
    {
        m_env = std::make_unique<CVTestEnvironment>();
        useLauncher(u"exec '%1' \"$@\""_s.arg(QStringLiteral(CORVANA_RUNNER)));
        CVAuthorization::setScope(installed(), packaged());
        writeFile(packaged() + u"/Contents/Info.plist"_s, "plist");
    }

    void cleanup()
    {
        Ops::dropAuthorization();
        CVAuthorization::setLauncher({});
        CVAuthorization::setScope({}, {});
        m_env.reset();
    }

    void copyCreatesMissingFoldersAndAsksOnce()
    {
        QString error;
        QVERIFY2(Ops::authorizedCopyItemAtPath(packaged(), installed(), &error), qPrintable(error));
        QCOMPARE(readAll(installed() + u"/Contents/Info.plist"_s), QByteArray("plist"));
        QVERIFY(QFileInfo::exists(packaged()));

        const QString moved = installed() + u"/Moved"_s;
        QVERIFY(Ops::authorizedMoveItemAtPath(installed() + u"/Contents"_s, moved, &error));
        QVERIFY(!QFileInfo::exists(installed() + u"/Contents"_s));
        QVERIFY(Ops::authorizedRemoveItemAtPath(installed(), &error));
        QVERIFY(!QFileInfo::exists(installed()));
        QCOMPARE(timesAsked(), 1);
    }

    void nothingIsOverwritten()
    {
        const QString source = installed() + u"/new.txt"_s;
        const QString existing = installed() + u"/old.txt"_s;
        writeFile(source, "new");
        writeFile(existing, "old");
        QVERIFY(!Ops::authorizedMoveItemAtPath(source, existing));
        QVERIFY(!Ops::authorizedCopyItemAtPath(packaged(), installed()));
        QCOMPARE(readAll(existing), QByteArray("old"));
        QCOMPARE(readAll(source), QByteArray("new"));
        QVERIFY(!Ops::authorizedMoveItemAtPath(installed() + u"/missing"_s, installed() + u"/x"_s));
    }

    void removingWhatIsGoneNeverAsks()
    {
        QVERIFY(Ops::authorizedRemoveItemAtPath(m_env->filePath(u"never there"_s)));
        QCOMPARE(timesAsked(), 0);
        QVERIFY(!Ops::sharedAuthorization());
    }

    void refusalIsLoggedAndAskedAgain()
    {
        useLauncher(u"exit 126"_s);
        writeFile(m_env->filePath(u"f"_s), "f");
        QVERIFY(!Ops::authorizedRemoveItemAtPath(m_env->filePath(u"f"_s)));
        QVERIFY(QFileInfo::exists(m_env->filePath(u"f"_s)));
        QCOMPARE(m_env->log.size(), 1);
        QVERIFY2(m_env->log[0].startsWith(u"SFAuthorization error: "_s), qPrintable(m_env->log[0]));
        QVERIFY(!Ops::getAuthorization());
        QCOMPARE(timesAsked(), 2);
    }

    void runnerRunsOnlyItsFourToolsInItsFolder()
    {
        QVERIFY(Ops::getAuthorization());
        CVAuthorization &authorization = *Ops::sharedAuthorization();
        QString error;
        const auto refused = [&](const QString &tool, const QStringList &arguments) {
            return !CVOneLineTasks::stringByLaunchingPath(tool, arguments, authorization, &error)
                && error.endsWith(u"is not allowed"_s);
        };
        const QString marker = m_env->filePath(u"marker"_s);
        QVERIFY(!CVOneLineTasks::stringByLaunchingPath(
            u"/bin/sh"_s, { u"-c"_s, u"touch "_s + marker }, authorization, &error));
        QVERIFY(error.startsWith(QLatin1StringView(CVOneLineTasks::ErrorDomain)));
        // Relative paths could pass for options; other options are not ours.
        QVERIFY(refused(u"/bin/rm"_s, { u"-d"_s, u"-R"_s, u"-rf"_s }));
        QVERIFY(refused(u"/bin/rm"_s, { u"-d"_s, u"-R"_s, u"/"_s }));
        QVERIFY(!QFileInfo::exists(marker));

        // Nothing outside the install folder, not by "..", not through a link, not copied from elsewhere.
        writeFile(m_env->filePath(u"precious"_s), "mine");
        QVERIFY(refused(u"/bin/rm"_s, { u"-d"_s, u"-R"_s, m_env->filePath(u"precious"_s) }));
        QVERIFY(refused(u"/bin/rm"_s, { u"-d"_s, u"-R"_s, installed() + u"/../../../precious"_s }));
        QVERIFY(refused(u"/bin/mkdir"_s, { u"-p"_s, m_env->filePath(u"elsewhere"_s) }));
        QVERIFY(refused(u"/bin/cp"_s, { u"-R"_s, m_env->filePath(u"precious"_s), installed() + u"/p"_s }));
        QVERIFY(refused(u"/bin/mv"_s, { u"-n"_s, m_env->filePath(u"precious"_s), installed() + u"/p"_s }));
        QVERIFY(QDir().mkpath(installed()));
        QVERIFY(QFile::link(m_env->path(), installed() + u"/link"_s));
        QVERIFY(refused(u"/bin/rm"_s, { u"-d"_s, u"-R"_s, installed() + u"/link/precious"_s }));
        QCOMPARE(readAll(m_env->filePath(u"precious"_s)), QByteArray("mine"));
        QVERIFY(!QFileInfo::exists(m_env->filePath(u"elsewhere"_s)));

        int status = -1;
        const auto output = CVOneLineTasks::stringByLaunchingPath(
            u"/bin/mkdir"_s, { u"-p"_s, installed() + u"/made/here"_s }, authorization, &error, &status);
        QVERIFY(output);
        QCOMPARE(status, 0);
        QVERIFY(QFileInfo(installed() + u"/made/here"_s).isDir());
    }

    void runnerRefusesAFolderThatIsNotTheHelpers()
    {
        // Named otherwise, or below no folder of the asking user's: the runner does not start.
        CVAuthorization::setScope(m_env->filePath(u"Support/Anything"_s), packaged());
        QVERIFY(!Ops::getAuthorization());
        QVERIFY(m_env->log.last().contains(u"refused"_s));
        CVAuthorization::setScope(u"/Corvana Helper"_s, packaged());
        useLauncher(u"PKEXEC_UID=65534 exec '%1' \"$@\""_s.arg(QStringLiteral(CORVANA_RUNNER)));
        QVERIFY(!Ops::getAuthorization());
    }

    void resultsBelongToTheUserWhoAsked()
    {
        if (::geteuid() != 0)
            QSKIP("needs root to see ownership change");
        useLauncher(u"PKEXEC_UID=65534 exec '%1' \"$@\""_s.arg(QStringLiteral(CORVANA_RUNNER)));
        // The asking user's own folder holds the install folder and the package.
        const QString own = m_env->filePath(u"nobody"_s);
        QVERIFY(QDir().mkpath(own));
        QVERIFY(::chown(QFile::encodeName(own).constData(), 65534, 65534) == 0);
        const QString source = own + u"/Corvana Helper"_s;
        writeFile(source + u"/inner"_s, "x");
        QVERIFY(::chown(QFile::encodeName(source).constData(), 65534, 65534) == 0);
        const QString destination = own + u"/new parent/Corvana Helper"_s;
        CVAuthorization::setScope(destination, source);
        QVERIFY(Ops::authorizedCopyItemAtPath(source, destination));
        for (const QString &path : QStringList { destination, destination + u"/inner"_s, own + u"/new parent"_s }) {
            struct stat info { };
            QVERIFY(::lstat(QFile::encodeName(path).constData(), &info) == 0);
            QCOMPARE(info.st_uid, uid_t(65534));
        }
    }

    void oneLineTasks()
    {
        QCOMPARE(CVOneLineTasks::stringByLaunchingPathAndWaitingUntilExit(u"/bin/echo"_s, { u"ünï"_s, u"two"_s }),
            u"ünï two\n"_s);
        const QString file = m_env->filePath(u"touched"_s);
        CVOneLineTasks::launchPathAndWaitUntilExit(u"/usr/bin/touch"_s, { file });
        QVERIFY(QFileInfo::exists(file));
    }

private:
    std::unique_ptr<CVTestEnvironment> m_env;
};

QTEST_GUILESS_MAIN(TestPrivileged)
#include "tst_privileged.moc"
