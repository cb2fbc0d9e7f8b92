#include "CVTestEnvironment.h"
#include "CVTestFiles.h"
#include "CVTestPresenter.h"
#include "Library/CVSpanHistory.h"
#include "Platform/CVAuthorization.h"
#include "Platform/CVHUserDefaults.h"
#include "Platform/CVHelperApplicationControl.h"
#include "Platform/CVLoginItems.h"
#include "Platform/CVPrivilegedFileOperations.h"

#include <QProcess>
#include <QSet>
#include <QStandardPaths>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Result = CVHelperApplicationControl::InstallResult;

// Installing, updating and the autostart entry, with a packaged helper made by the test.
// Starting and quitting the real helper are tested with it, on a bus of their own.
class TestHelperControl : public QObject {
    Q_OBJECT

private:
    QString makePackagedHelper(const QByteArray &info)
    {
        const QString folder = m_env->filePath(u"bundle/Corvana Helper"_s);
        writeFile(folder + u"/corvana-helper"_s, "#!/bin/sh\nexit 0\n");
        QFile::setPermissions(folder + u"/corvana-helper"_s, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        writeFile(folder + u"/Info.ini"_s, info);
        return folder;
    }

    static QString installedInfo() { return CVHelperApplicationControl::installedHelperPath() + u"/Info.ini"_s; }

    CVHelperApplicationControl::InstallResult install(CVHelperApplicationControl &control)
    {
        return control.installOrUpdateCorvanaHelper(&m_presenter, [this](const QString &s) { m_status.append(s); });
    }

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<CVTestEnvironment>();
        m_presenter = CVTestPresenter();
        m_status.clear();
    }

    void cleanup()
    {
        CVPrivilegedFileOperations::dropAuthorization();
        CVAuthorization::setLauncher({});
        m_env.reset();
    }

    void sharedSettingsKeepDefaultsInMemoryAndWriteAtOnce()
    {
        CVHUserDefaults defaults;
        QCOMPARE(defaults.filePath(), m_env->path() + u"/.config/Corvana/Corvana Helper.conf"_s);
        QCOMPARE(CVHUserDefaults::keyTable().size(), std::size_t(CVHSettingsKey::Count));
        QSet<QString> names;
        for (std::size_t i = 0; i < CVHUserDefaults::keyTable().size(); ++i) {
            const CVHUserDefaults::KeyInfo &entry = CVHUserDefaults::keyTable()[i];
            QCOMPARE(std::size_t(entry.key), i); // name() indexes the table by key
            QVERIFY2(!names.contains(entry.name), qPrintable(entry.name));
            names.insert(entry.name);
            QCOMPARE(defaults.objectForKey(entry.key), entry.defaultValue);
        }
        QVERIFY(defaults.dictionaryValue().isEmpty());
        QVERIFY(!QFileInfo::exists(defaults.filePath()));

        // The other program sees a change at once, typed as written.
        defaults.setObject(0, CVHSettingsKey::ShowInMenubar);
        defaults.setObject(false, CVHSettingsKey::TracksUnavailableWhenDrivesUnmountAlertSupress);
        CVHUserDefaults other;
        QCOMPARE(other.integerForKey(CVHSettingsKey::ShowInMenubar), 0);
        QVERIFY(!other.boolForKey(CVHSettingsKey::TracksUnavailableWhenDrivesUnmountAlertSupress));
        QCOMPARE(other.dictionaryValue().keys(),
            (QStringList { CVHUserDefaults::name(CVHSettingsKey::ShowInMenubar),
                CVHUserDefaults::name(CVHSettingsKey::TracksUnavailableWhenDrivesUnmountAlertSupress) }));

        // An equal value is not written again; a change made elsewhere is read afresh.
        const QDateTime written = QFileInfo(defaults.filePath()).lastModified();
        QTest::qSleep(20);
        other.setObject(0, CVHSettingsKey::ShowInMenubar);
        QCOMPARE(QFileInfo(defaults.filePath()).lastModified(), written);
        other.setObject(true, CVHSettingsKey::LoginItemAlertSupress);
        QVERIFY(defaults.boolForKey(CVHSettingsKey::LoginItemAlertSupress));
        other.removeObjectForKey(CVHSettingsKey::ShowInMenubar);
        QCOMPARE(defaults.integerForKey(CVHSettingsKey::ShowInMenubar), 1);

        defaults.setIdentifier(u"Another"_s);
        QCOMPARE(defaults.filePath(), m_env->path() + u"/.config/Corvana/Another.conf"_s);
        QCOMPARE(defaults.integerForKey(CVHSettingsKey::ShowInMenubar), 1);
        QVERIFY(!defaults.boolForKey(CVHSettingsKey::LoginItemAlertSupress));
    }

    void packagedHelperIsFoundBesideOrInTheInstalledLayout()
    {
        // The test program's own folder: the build tree puts the helper in ../libexec/corvana.
        const QString expected
            = QDir::cleanPath(QCoreApplication::applicationDirPath() + u"/../libexec/corvana/Corvana Helper"_s);
        qunsetenv(CVHelperApplicationControl::PackagedHelperVariable);
        QCOMPARE(CVHelperApplicationControl::defaultPackagedHelperPath(), expected);
        qputenv(CVHelperApplicationControl::PackagedHelperVariable, "/elsewhere/Corvana Helper");
        QCOMPARE(CVHelperApplicationControl::defaultPackagedHelperPath(), u"/elsewhere/Corvana Helper"_s);
        qunsetenv(CVHelperApplicationControl::PackagedHelperVariable);
    }

    void missingPackagedHelperQuitsWithoutSaving()
    {
        CVHelperApplicationControl control;
        control.setPackagedHelperPath(m_env->filePath(u"nowhere"_s));
        QCOMPARE(install(control), Result::QuitWithoutSaving);
        QCOMPARE(m_presenter.alerts.size(), 1);
        QCOMPARE(m_presenter.alerts[0].title, u"\nCorvana Helper not in bundle"_s);
        QCOMPARE(m_presenter.alerts[0].text, u"Corvana cannot run without Corvana Helper in its application bundle."_s);
        QCOMPARE(m_presenter.alerts[0].defaultButton, u"Quit"_s);
        QVERIFY(!QFileInfo::exists(CVHelperApplicationControl::installedHelperPath()));
    }

    void installUpdateOrLeaveAlone()
    {
        CVHelperApplicationControl control;
        control.setPackagedHelperPath(makePackagedHelper("[Corvana Helper]\nVersion=1\nBuildID=aaaa\n"));
        // No support folder yet: it is made with its parents.
        QVERIFY(!QFileInfo::exists(CVSpanHistory::applicationSupportFolder()));
        QCOMPARE(install(control), Result::Installed);
        QCOMPARE(m_status, QStringList { u"Installing Corvana Helper"_s });
        QVERIFY(m_env->log.contains(u"Installing Corvana Helper..."_s));
        QVERIFY(control.isInstalledHelperCurrent());
        QVERIFY(QFileInfo(CVHelperApplicationControl::installedHelperExecutable()).isExecutable());
        QVERIFY(m_presenter.alerts.isEmpty());

        // Equal bytes: nothing is touched.
        struct stat before { };
        QCOMPARE(::stat(QFile::encodeName(installedInfo()).constData(), &before), 0);
        m_status.clear();
        QCOMPARE(install(control), Result::UpToDate);
        QVERIFY(m_status.isEmpty());
        struct stat after { };
        QCOMPARE(::stat(QFile::encodeName(installedInfo()).constData(), &after), 0);
        QCOMPARE(after.st_ino, before.st_ino);

        // One byte different (an older build counts as well): replaced whole.
        writeFile(control.packagedHelperPath() + u"/Info.ini"_s, "[Corvana Helper]\nVersion=1\nBuildID=aaab\n");
        writeFile(control.packagedHelperPath() + u"/corvana-helper"_s, "#!/bin/sh\nexit 1\n");
        writeFile(CVHelperApplicationControl::installedHelperPath() + u"/stale-file"_s, "old");
        QCOMPARE(install(control), Result::Updated);
        QCOMPARE(m_status, QStringList { u"Updating Corvana Helper"_s });
        QCOMPARE(readAll(installedInfo()), QByteArray("[Corvana Helper]\nVersion=1\nBuildID=aaab\n"));
        QCOMPARE(readAll(CVHelperApplicationControl::installedHelperExecutable()), QByteArray("#!/bin/sh\nexit 1\n"));
        QVERIFY(!QFileInfo::exists(CVHelperApplicationControl::installedHelperPath() + u"/stale-file"_s));
        // Nothing half-copied is left beside it.
        QCOMPARE(QDir(CVSpanHistory::applicationSupportFolder())
                     .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
            QStringList { u"Corvana Helper"_s });
    }

    void failedCopyOffersAuthenticationOrQuit()
    {
        CVHelperApplicationControl control;
        control.setPackagedHelperPath(makePackagedHelper("v1"));
        // A file where the support folder should be: no copy can succeed.
        writeFile(CVSpanHistory::applicationSupportFolder(), "not a folder");
        m_presenter.queueAnswer(CVPresenter::AlternateReturn);
        QCOMPARE(install(control), Result::QuitWithoutSaving);
        QCOMPARE(m_presenter.alerts.size(), 1);
        const CVAlert &ask = m_presenter.alerts[0];
        QCOMPARE(ask.title, u"Corvana Helper needs to be installed."_s);
        QVERIFY(ask.text.startsWith(u"Corvana Helper will notify you when it launches (after tracks are spanned)"_s));
        QVERIFY(ask.text.endsWith(
            u"\n\nClick \"Authenticate\" to install Corvana Helper with administrator privileges."_s));
        QCOMPARE(ask.defaultButton, u"Authenticate"_s);
        QCOMPARE(ask.alternateButton, u"Don't Install Corvana Helper & Quit"_s);
        QCOMPARE(readAll(CVSpanHistory::applicationSupportFolder()), QByteArray("not a folder"));
        QVERIFY(!control.reportBugRequested());

        // With rights it fails the same way: the last panel, and a bug report asked for.
        CVAuthorization::setLauncher({ QStringLiteral(CORVANA_RUNNER) });
        m_presenter.alerts.clear();
        QCOMPARE(install(control), Result::QuitWithoutSaving);
        QCOMPARE(m_presenter.alerts.size(), 2);
        QCOMPARE(m_presenter.alerts[1].title, u"Corvana Helper installation failed."_s);
        QCOMPARE(m_presenter.alerts[1].text,
            u"Corvana cannot be used without Corvana Helper.\n\nSorry for this inconvenience, please report a bug."_s);
        QCOMPARE(m_presenter.alerts[1].defaultButton, u"Quit & Report a Bug"_s);
        QVERIFY(control.reportBugRequested());
    }

    void authenticatedCopyInstallsWhatThePlainCopyCannot()
    {
        CVHelperApplicationControl control;
        const QString packaged = makePackagedHelper("v1");
        control.setPackagedHelperPath(packaged);
        QCOMPARE(install(control), Result::Installed);
        // A special file the plain copy refuses; cp -R, run with rights, copies it.
        writeFile(packaged + u"/Info.ini"_s, "v2");
        QCOMPARE(::mkfifo(QFile::encodeName(packaged + u"/pipe"_s).constData(), 0600), 0);
        CVAuthorization::setLauncher({ QStringLiteral(CORVANA_RUNNER) });
        m_presenter.alerts.clear();
        QCOMPARE(install(control), Result::Updated);
        QCOMPARE(m_presenter.alerts.size(), 1);
        QCOMPARE(m_presenter.alerts[0].title, u"Corvana Helper needs to be updated."_s);
        QCOMPARE(m_presenter.alerts[0].alternateButton, u"Don't Update Corvana Helper & Quit"_s);
        QCOMPARE(readAll(installedInfo()), QByteArray("v2"));
        QVERIFY(control.isInstalledHelperCurrent());
    }

    void loginItemFollowsTheSegment()
    {
        CVHelperApplicationControl control;
        QVERIFY(!control.inLoginItems());
        control.setCorvanaHelperLoginItem(1);
        QVERIFY(control.inLoginItems());
        const QString entry = CVLoginItems::autostartFolder() + u"/org.corvana.CorvanaHelper.desktop"_s;
        QVERIFY(readAll(entry).contains(
            QFile::encodeName(CVLoginItems::execLine({ CVHelperApplicationControl::installedHelperExecutable() }))));
        if (!QStandardPaths::findExecutable(u"desktop-file-validate"_s).isEmpty()) {
            QProcess validate;
            validate.start(u"desktop-file-validate"_s, { entry });
            QVERIFY(validate.waitForFinished(30000));
            const QByteArray output = validate.readAllStandardOutput() + validate.readAllStandardError();
            QVERIFY2(validate.exitCode() == 0 && !output.contains("error"), output.constData());
        }
        control.setCorvanaHelperLoginItem(1);
        QCOMPARE(QDir(CVLoginItems::autostartFolder()).entryList(QDir::Files).size(), 1);
        control.setCorvanaHelperLoginItem(0);
        QVERIFY(!control.inLoginItems());
        QVERIFY(!QFileInfo::exists(entry));
    }

private:
    std::unique_ptr<CVTestEnvironment> m_env;
    CVTestPresenter m_presenter;
    QStringList m_status;
};

QTEST_GUILESS_MAIN(TestHelperControl)
#include "tst_helpercontrol.moc"
