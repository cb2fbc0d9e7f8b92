#include "CVHSpanHistoryReader.h"
#include "CVHTestHistory.h"
#include "CVTestFiles.h"
#include "CVTestHome.h"
#include "CVTestMounts.h"
#include "CVTestPresenter.h"
#include "Platform/CVHUserDefaults.h"
#include "Platform/CVHelperApplicationControl.h"
#include "Platform/CVLoginItems.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QProcess>
#include <QtTest>

#include <sys/mount.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// Stands in for the desktop's notification service and records what it is sent.
class FakeNotifications : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Sent {
        QString summary;
        QString body;
        QStringList actions;
    };
    QList<Sent> sent;

public Q_SLOTS:
    uint Notify(const QString &, uint, const QString &, const QString &summary, const QString &body,
        const QStringList &actions, const QVariantMap &, int)
    {
        sent.append({ summary, body, actions });
        return uint(sent.size());
    }
    QStringList GetCapabilities() { return { u"body"_s, u"actions"_s }; }
    void CloseNotification(uint) { }

public:
    void invokeAction(uint id, const QString &key)
    {
        QDBusMessage signal = QDBusMessage::createSignal(
            u"/org/freedesktop/Notifications"_s, u"org.freedesktop.Notifications"_s, u"ActionInvoked"_s);
        signal << id << key;
        QDBusConnection::sessionBus().send(signal);
    }
};

// The helper program on a private session bus: links, warnings, quitting, one instance, and
// its installation and control from the main program.
class TestHelper : public QObject {
    Q_OBJECT

private:
    QString path(const QString &relative) const { return m_home->filePath(relative); }
    static QString storePath() { return CVHSpanHistoryReader::defaultStorePath(); }

    static bool helperRegistered()
    {
        return QDBusConnection::sessionBus().interface()->isServiceRegistered(
            QString::fromLatin1(CVHelperApplicationControl::BusName));
    }

    // Starts the helper from the build tree; false when it did not come up.
    bool startHelper()
    {
        m_helper = std::make_unique<QProcess>();
        m_helper->setProgram(QStringLiteral(CORVANA_HELPER));
        m_helper->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_helper->start();
        if (!QTest::qWaitFor([this] { return helperRegistered() || m_helper->state() == QProcess::NotRunning; }, 30000)
            || !helperRegistered())
            return false;
        // It answers once its first pass is done: links made, watches set up.
        return m_control.corvanaHelperStatus().has_value();
    }

    QVariantMap status() { return m_control.corvanaHelperStatus().value_or(QVariantMap()); }

    // Every message the helper sent before its last answer is handled here too.
    static void settle()
    {
        for (int i = 0; i < 5; ++i)
            QCoreApplication::processEvents();
    }

    QStringList summaries() const
    {
        QStringList list;
        for (const FakeNotifications::Sent &s : m_notifications.sent)
            list.append(s.summary);
        return list;
    }

    void setDefault(CVHSettingsKey key, const QVariant &value)
    {
        CVHUserDefaults defaults;
        defaults.setObject(value, key);
    }

    void makeDriveWithSpanFiles(const QStringList &names)
    {
        // Filled at a staging point, then moved into place: the drive appears with its files.
        QVERIFY(QDir().mkpath(u"/mnt/staging"_s));
        QCOMPARE(::mount("corvana-drive", "/mnt/staging", "tmpfs", 0, "size=4m"), 0);
        for (const QString &name : names)
            writeFile(u"/mnt/staging/Music/"_s + name, name.toUtf8());
        QVERIFY(QDir().mkpath(u"/mnt/Drive"_s));
        QCOMPARE(::mount("/mnt/staging", "/mnt/Drive", nullptr, MS_MOVE, nullptr), 0);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        QVERIFY2(bus.isConnected(), "needs a session bus (run through dbus-run-session)");
        QVERIFY(
            bus.registerObject(u"/org/freedesktop/Notifications"_s, &m_notifications, QDBusConnection::ExportAllSlots));
        QVERIFY(bus.registerService(u"org.freedesktop.Notifications"_s));
    }

    void init()
    {
        m_home = std::make_unique<CVTestHome>();
        m_notifications.sent.clear();
        m_control.setPackagedHelperPath(CVHelperApplicationControl::defaultPackagedHelperPath());
    }

    void cleanup()
    {
        m_control.tellCorvanaHelperToQuit();
        if (m_helper && !m_helper->waitForFinished(10000))
            m_helper->kill();
        m_helper.reset();
        // What a helper sent before it went is taken in here, not in the next test.
        helperRegistered();
        settle();
        if (CVTestMounts::available()) {
            ::umount2("/mnt/Drive", MNT_DETACH);
            ::umount2("/mnt/staging", MNT_DETACH);
        }
        m_home.reset();
    }

    void linksForDependentTracksOnly()
    {
        for (const char *name : { "a", "b", "c", "d", "e", "f" })
            writeFile(path(u"span/"_s + QLatin1StringView(name) + u".mp3"_s), name);
        writeFile(path(u"Music/e.mp3"_s), "the player's own file");
        QVERIFY(QDir().mkpath(path(u"Music"_s)));
        QVERIFY(QFile::link(path(u"old/f.mp3"_s), path(u"Music/f.mp3"_s)));
        QVERIFY(writeTestHistory(storePath(),
            {
                { u"A"_s, path(u"Music/Artist/a.mp3"_s), path(u"span/a.mp3"_s) },
                { u"B"_s, path(u"span/b.mp3"_s), path(u"span/b.mp3"_s), false }, // fully spanned
                { u"C"_s, path(u"Music/c.mp3"_s), path(u"span/c.mp3"_s), true, false, true }, // left the player
                { u"D"_s, path(u"Music/d.mp3"_s), path(u"span/d.mp3"_s), true, true }, // restored
                { u"E"_s, path(u"Music/e.mp3"_s), path(u"span/e.mp3"_s) }, // a real file in place
                { u"F"_s, path(u"Music/f.mp3"_s), path(u"span/f.mp3"_s) }, // a link pointing elsewhere
                { u"G"_s, path(u"Music/g.mp3"_s), path(u"span/g.mp3"_s) }, // its span file is gone
            }));
        QVERIFY(startHelper());

        QCOMPARE(QFile::symLinkTarget(path(u"Music/Artist/a.mp3"_s)), path(u"span/a.mp3"_s));
        QCOMPARE(QFile::symLinkTarget(path(u"Music/f.mp3"_s)), path(u"span/f.mp3"_s));
        QCOMPARE(readAll(path(u"Music/e.mp3"_s)), QByteArray("the player's own file"));
        for (const char *name : { "c.mp3", "d.mp3", "g.mp3" })
            QVERIFY(!QFileInfo::exists(path(u"Music/"_s + QLatin1StringView(name))));
        QVERIFY(!QFileInfo(path(u"Music/g.mp3"_s)).isSymLink());
        const QVariantMap s = status();
        QCOMPARE(s.value(u"DependentTracks"_s).toUInt(), 4u);
        QCOMPARE(s.value(u"LinksMade"_s).toUInt(), 2u);
        QCOMPARE(s.value(u"TracksUnavailable"_s).toUInt(), 1u);
        QCOMPARE(s.value(u"Status"_s).toString(), u"1 of 4 dependent tracks unavailable"_s);

        // The missing file is told once, not again at the next pass; and no link is made twice.
        QTRY_COMPARE_WITH_TIMEOUT(summaries().count(u"1 Track Unavailable"_s), 1, 20000);
        QVERIFY(m_notifications.sent[summaries().indexOf(u"1 Track Unavailable"_s)].body.contains(u"“Track G”"_s));
        QCOMPARE(m_control.repairCorvanaHelperLinksNow(), std::optional<uint>(0));
        settle();
        QCOMPARE(summaries().count(u"1 Track Unavailable"_s), 1);

        // A link removed and a file come back are repaired on request.
        QVERIFY(QFile::remove(path(u"Music/Artist/a.mp3"_s)));
        writeFile(path(u"span/g.mp3"_s), "g");
        QCOMPARE(m_control.repairCorvanaHelperLinksNow(), std::optional<uint>(2));
        QCOMPARE(status().value(u"TracksUnavailable"_s).toUInt(), 0u);
        QCOMPARE(status().value(u"Status"_s).toString(), u"4 dependent tracks, all playable"_s);
    }

    void suppressedWarningsAreNotSent()
    {
        setDefault(CVHSettingsKey::TracksUnavailableWhenFilesMissingAlertSupress, true);
        setDefault(CVHSettingsKey::LoginItemAlertSupress, true);
        QVERIFY(writeTestHistory(storePath(), { { u"G"_s, path(u"Music/g.mp3"_s), path(u"span/g.mp3"_s) } }));
        QVERIFY(startHelper());
        QCOMPARE(status().value(u"TracksUnavailable"_s).toUInt(), 1u);
        settle();
        QVERIFY2(m_notifications.sent.isEmpty(), qPrintable(summaries().join(u", "_s)));
    }

    void oneHelperAtATimeAndQuitOnRequest()
    {
        setDefault(CVHSettingsKey::AllowedToAlwaysRun, 1);
        QVERIFY(!m_control.isCorvanaHelperRunning());
        QVERIFY(startHelper());
        QVERIFY(m_control.isCorvanaHelperRunning());
        QProcess second;
        second.start(QStringLiteral(CORVANA_HELPER), QStringList());
        QVERIFY(second.waitForFinished(30000));
        QCOMPARE(second.exitCode(), 1);
        QVERIFY(m_control.isCorvanaHelperRunning());

        m_control.tellCorvanaHelperToQuit();
        QVERIFY(!m_control.isCorvanaHelperRunning());
        QVERIFY(m_helper->waitForFinished(10000));
        QCOMPARE(m_helper->exitStatus(), QProcess::NormalExit);
        QCOMPARE(m_helper->exitCode(), 0);
        // Quitting a helper that is not running is harmless.
        m_control.tellCorvanaHelperToQuit();
        QVERIFY(!m_control.corvanaHelperStatus());
    }

    void installLaunchUpdateFromTheMainProgram()
    {
        setDefault(CVHSettingsKey::AllowedToAlwaysRun, 1);
        QVERIFY2(m_control.isPackagedHelperPresent(), qPrintable(m_control.packagedHelperPath()));
        CVTestPresenter presenter;
        QCOMPARE(m_control.installOrUpdateCorvanaHelper(&presenter, {}),
            CVHelperApplicationControl::InstallResult::Installed);
        m_control.launchCorvanaHelper();
        QVERIFY(QTest::qWaitFor([] { return helperRegistered(); }, 30000));
        QCOMPARE(status().value(u"Status"_s).toString(), u"No dependent tracks"_s);

        // Equal metadata: the running helper is left alone.
        QCOMPARE(m_control.installOrUpdateCorvanaHelper(&presenter, {}),
            CVHelperApplicationControl::InstallResult::UpToDate);
        QVERIFY(m_control.isCorvanaHelperRunning());

        // One byte different: the helper is asked to quit first, then replaced.
        const QString info = CVHelperApplicationControl::installedHelperPath() + u"/Info.ini"_s;
        QByteArray bytes = readAll(info);
        bytes[bytes.size() - 2] = bytes[bytes.size() - 2] == 'x' ? 'y' : 'x';
        writeFile(info, bytes);
        QCOMPARE(
            m_control.installOrUpdateCorvanaHelper(&presenter, {}), CVHelperApplicationControl::InstallResult::Updated);
        QVERIFY(!m_control.isCorvanaHelperRunning());
        QVERIFY(m_control.isInstalledHelperCurrent());
        QVERIFY(presenter.alerts.isEmpty());
        m_control.launchCorvanaHelper();
        QVERIFY(QTest::qWaitFor([] { return helperRegistered(); }, 30000));
    }

    void quitsWhenNothingDependsOnIt()
    {
        // Never needed: it goes quietly.
        QVERIFY(writeTestHistory(storePath(), { { u"B"_s, path(u"s/b.mp3"_s), path(u"s/b.mp3"_s), false } }));
        QProcess helper;
        helper.start(QStringLiteral(CORVANA_HELPER), QStringList());
        QVERIFY(helper.waitForFinished(30000));
        QCOMPARE(helper.exitCode(), 0);
        settle();
        QVERIFY(m_notifications.sent.isEmpty());

        // Needed before, not now: it says so and quits.
        setDefault(CVHSettingsKey::HadDependentTracks, true);
        helper.start(QStringLiteral(CORVANA_HELPER), QStringList());
        // It waits for the notification to be taken before it quits: keep answering.
        QVERIFY(QTest::qWaitFor([&helper] { return helper.state() == QProcess::NotRunning; }, 30000));
        QCOMPARE(helper.exitCode(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(summaries(), QStringList { u"Corvana Helper Is No Longer Necessary"_s }, 20000);
        QVERIFY(m_notifications.sent[0].body.endsWith(u"Corvana Helper quits now."_s));

        // Allowed to always run: it stays, and the alert can be suppressed.
        setDefault(CVHSettingsKey::HadDependentTracks, true);
        setDefault(CVHSettingsKey::AllowedToAlwaysRun, 1);
        setDefault(CVHSettingsKey::NotNecessaryAlertSupress, true);
        m_notifications.sent.clear();
        QVERIFY(startHelper());
        QVERIFY(m_control.isCorvanaHelperRunning());
        settle();
        QVERIFY(m_notifications.sent.isEmpty());
    }

    void offersToStartAtLogin()
    {
        writeFile(path(u"span/a.mp3"_s), "a");
        QVERIFY(writeTestHistory(storePath(), { { u"A"_s, path(u"Music/a.mp3"_s), path(u"span/a.mp3"_s) } }));
        QVERIFY(startHelper());
        QTRY_COMPARE_WITH_TIMEOUT(summaries(), QStringList { u"Start Corvana Helper at Login?"_s }, 20000);
        const FakeNotifications::Sent &offer = m_notifications.sent[0];
        QCOMPARE(offer.body,
            u"1 track in iTunes depends on Corvana Helper to be playable. Start it at login to keep it available."_s);
        QCOMPARE(offer.actions,
            (QStringList { u"start-at-login"_s, u"Start at Login"_s, u"dont-ask"_s, u"Don't Ask Again"_s }));
        m_notifications.invokeAction(1, u"start-at-login"_s);
        const QString entry = CVLoginItems::autostartFolder() + u"/org.corvana.CorvanaHelper.desktop"_s;
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(entry), 20000);
        QVERIFY(CVLoginItems().inLoginItems(QFileInfo(QStringLiteral(CORVANA_HELPER)).absolutePath() + u'/'));

        // Once a session: a helper started again does not ask again.
        m_control.tellCorvanaHelperToQuit();
        QVERIFY(m_helper->waitForFinished(10000));
        QVERIFY(QFile::remove(entry));
        QVERIFY(startHelper());
        QCOMPARE(status().value(u"DependentTracks"_s).toUInt(), 1u);
        settle();
        QCOMPARE(m_notifications.sent.size(), 1);
    }

    void warnsWhenAPlayerStarts()
    {
        setDefault(CVHSettingsKey::LoginItemAlertSupress, true);
        setDefault(CVHSettingsKey::TracksUnavailableWhenFilesMissingAlertSupress, true);
        QVERIFY(QDir().mkpath(path(u"Music/iTunes"_s)));
        writeFile(path(u"Music/iTunes/iTunes Library.xml"_s), "<plist/>");
        QVERIFY(writeTestHistory(storePath(),
            { { u"G"_s, path(u"Music/g.mp3"_s), path(u"span/g.mp3"_s) },
                { u"H"_s, path(u"Music/h.mp3"_s), path(u"span/h.mp3"_s) } }));
        QVERIFY(startHelper());
        QCOMPARE(status().value(u"TracksUnavailable"_s).toUInt(), 2u);

        // A music player appears on the bus.
        QDBusConnection player = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"player"_s);
        QVERIFY(player.registerService(u"org.mpris.MediaPlayer2.testplayer"_s));
        QTRY_COMPARE_WITH_TIMEOUT(summaries(), QStringList { u"2 Tracks Unavailable in iTunes"_s }, 20000);
        QVERIFY(m_notifications.sent[0].body.startsWith(u"Their files are on drives that are not connected"_s));
        player.unregisterService(u"org.mpris.MediaPlayer2.testplayer"_s);
        QDBusConnection::disconnectFromBus(u"player"_s);
    }

    void warnsWhenThePlayerReadsItsLibraryUnlessSuppressed()
    {
        setDefault(CVHSettingsKey::LoginItemAlertSupress, true);
        setDefault(CVHSettingsKey::TracksUnavailableWhenFilesMissingAlertSupress, true);
        QVERIFY(QDir().mkpath(path(u"Music/iTunes"_s)));
        writeFile(path(u"Music/iTunes/iTunes Library.xml"_s), "<plist/>");
        QVERIFY(writeTestHistory(storePath(), { { u"G"_s, path(u"Music/g.mp3"_s), path(u"span/g.mp3"_s) } }));
        QVERIFY(startHelper());
        // Reading the library file is the player starting, as far as the library-file player goes.
        readAll(path(u"Music/iTunes/iTunes Library.xml"_s));
        readAll(path(u"Music/iTunes/iTunes Library.xml"_s));
        QTRY_COMPARE_WITH_TIMEOUT(summaries(), QStringList { u"1 Track Unavailable in iTunes"_s }, 20000);
        m_control.tellCorvanaHelperToQuit();
        QVERIFY(m_helper->waitForFinished(10000));

        setDefault(CVHSettingsKey::TracksUnavailableWhenITunesLaunchesAlertSupress, true);
        QVERIFY(startHelper());
        readAll(path(u"Music/iTunes/iTunes Library.xml"_s));
        m_control.repairCorvanaHelperLinksNow();
        settle();
        QCOMPARE(m_notifications.sent.size(), 1);
    }

    void linksReturnWithTheDrive()
    {
        if (!CVTestMounts::available())
            QSKIP(qPrintable(CVTestMounts::unavailableReason()));
        setDefault(CVHSettingsKey::LoginItemAlertSupress, true);
        setDefault(CVHSettingsKey::TracksUnavailableWhenDrivesUnmountAlertSupress, false);
        makeDriveWithSpanFiles({ u"a.mp3"_s, u"b.mp3"_s });
        QVERIFY(writeTestHistory(storePath(),
            { { u"A"_s, path(u"Music/a.mp3"_s), u"/mnt/Drive/Music/a.mp3"_s },
                { u"B"_s, path(u"Music/b.mp3"_s), u"/mnt/Drive/Music/b.mp3"_s } }));
        QVERIFY(startHelper());
        QCOMPARE(readAll(path(u"Music/a.mp3"_s)), QByteArray("a.mp3"));
        QCOMPARE(status().value(u"LinksMade"_s).toUInt(), 2u);

        // Unplugged: the player loses both, and the user is told once.
        QCOMPARE(::umount2("/mnt/Drive", MNT_DETACH), 0);
        QTRY_COMPARE_WITH_TIMEOUT(status().value(u"TracksUnavailable"_s).toUInt(), 2u, 20000);
        QTRY_COMPARE_WITH_TIMEOUT(summaries(), QStringList { u"2 Tracks Unavailable"_s }, 20000);
        QCOMPARE(m_notifications.sent[0].body,
            u"“Drive” was disconnected. iTunes cannot play their 2 tracks until it is connected again."_s);

        // A link cleared away meanwhile, then the drive is back: every track plays again.
        QVERIFY(QFile::remove(path(u"Music/b.mp3"_s)));
        makeDriveWithSpanFiles({ u"a.mp3"_s, u"b.mp3"_s });
        QTRY_COMPARE_WITH_TIMEOUT(status().value(u"TracksUnavailable"_s).toUInt(), 0u, 20000);
        QCOMPARE(readAll(path(u"Music/b.mp3"_s)), QByteArray("b.mp3"));
        QCOMPARE(status().value(u"LinksMade"_s).toUInt(), 3u);
        settle();
        QCOMPARE(m_notifications.sent.size(), 1);

        // The drive warning is off by default.
        CVHUserDefaults().removeObjectForKey(CVHSettingsKey::TracksUnavailableWhenDrivesUnmountAlertSupress);
        QCOMPARE(::umount2("/mnt/Drive", MNT_DETACH), 0);
        QTRY_COMPARE_WITH_TIMEOUT(status().value(u"TracksUnavailable"_s).toUInt(), 2u, 20000);
        settle();
        QCOMPARE(m_notifications.sent.size(), 1);
    }

private:
    std::unique_ptr<CVTestHome> m_home;
    std::unique_ptr<QProcess> m_helper;
    FakeNotifications m_notifications;
    CVHelperApplicationControl m_control;
};

int main(int argc, char *argv[])
{
    CVTestMounts::enterPrivateMounts("size=16m");
    QCoreApplication app(argc, argv);
    TestHelper test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_helper.moc"
