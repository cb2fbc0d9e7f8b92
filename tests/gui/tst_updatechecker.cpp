// The update check against a feed served on loopback by the test: newer, same and older versions,
// a feed that is no feed, a server that is not there and one that does not answer in time.
#include "CVFeedServer.h"
#include "CVTestEnvironment.h"
#include "Platform/CVSettings.h"
#include "Preferences/CVUpdateChecker.h"

#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

QByteArray appcast(const QByteArray &items)
{
    return CVFeedServer::appcast(items);
}

QByteArray item(const char *version, const char *shown)
{
    return CVFeedServer::item(version, shown);
}

} // namespace

class TestUpdateChecker : public QObject {
    Q_OBJECT

private:
    CVUpdateChecker::Result check(CVUpdateChecker &checker)
    {
        QSignalSpy finished(&checker, &CVUpdateChecker::checkFinished);
        checker.checkForUpdates(true);
        if (finished.isEmpty() && !finished.wait(20000))
            qFatal("the check never ended");
        return finished.first().first().value<CVUpdateChecker::Result>();
    }

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<CVTestEnvironment>();
        m_settings = &m_env->settings();
        QVERIFY(m_server.listen(QHostAddress::LocalHost));
        m_settings->setValue(CVSettingsKey::SUFeedURL, u"http://127.0.0.1:%1/appcast.xml"_s.arg(m_server.serverPort()));
    }

    void cleanup()
    {
        m_server.close();
        m_env.reset();
    }

    void versionsOfTheFeed_data()
    {
        QTest::addColumn<QByteArray>("items");
        QTest::addColumn<int>("outcome");
        QTest::addColumn<QString>("message");
        QTest::newRow("newer") << item("0.9.0", "0.9") + item("0.12.1", "0.12.1") + item("0.1.0", "0.1")
                               << int(CVUpdateChecker::Outcome::UpdateAvailable)
                               << u"Corvana 0.12.1 is available; you have 0.1.0."_s;
        QTest::newRow("same") << item("0.1.0", "0.1.0") << int(CVUpdateChecker::Outcome::UpToDate)
                              << u"Corvana 0.1.0 is the newest version."_s;
        QTest::newRow("older") << item("0.0.9", "0.0.9") << int(CVUpdateChecker::Outcome::UpToDate)
                               << u"Corvana 0.1.0 is the newest version."_s;
        QTest::newRow("pre-release of this version")
            << item("0.1.0b2", "0.1 beta 2") << int(CVUpdateChecker::Outcome::UpToDate)
            << u"Corvana 0.1.0 is the newest version."_s;
    }

    void versionsOfTheFeed()
    {
        QFETCH(QByteArray, items);
        QFETCH(int, outcome);
        QFETCH(QString, message);
        m_server.body = appcast(items);
        CVUpdateChecker checker(m_settings, u"0.1.0"_s);
        const CVUpdateChecker::Result result = check(checker);
        QCOMPARE(int(result.outcome), outcome);
        QCOMPARE(result.message, message);
        QVERIFY(result.userInitiated);
        if (result.outcome == CVUpdateChecker::Outcome::UpdateAvailable) {
            QCOMPARE(result.newest->releaseNotes, QUrl(u"https://corvana.org/notes/0.12.1.html"_s));
            QCOMPARE(result.newest->download, QUrl(u"https://corvana.org/corvana-0.12.1.tar.xz"_s));
        }
        QVERIFY(m_settings->integerValue(CVSettingsKey::SULastCheckTime) > 0);
    }

    void feedsThatFail_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("message");
        QTest::newRow("not xml") << QByteArray("<html><body>Oops") << u"The update check failed: the update feed"_s;
        QTest::newRow("no versions")
            << appcast("<item><title>x</title></item>")
            << u"The update check failed: the update feed cannot be read (it lists no version)."_s;
        QTest::newRow("server down") << QByteArray() << u"The update check failed: "_s;
        QTest::newRow("too slow") << appcast(item("9", "9"))
                                  << u"The update check failed: the server did not answer in time."_s;
    }

    void feedsThatFail()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, message);
        m_server.body = body;
        CVUpdateChecker checker(m_settings, u"0.1.0"_s);
        if (QByteArray(QTest::currentDataTag()) == "server down")
            m_server.close();
        if (QByteArray(QTest::currentDataTag()) == "too slow") {
            m_server.delayMs = 60000;
            checker.setTimeout(300);
        }
        const CVUpdateChecker::Result result = check(checker);
        QCOMPARE(result.outcome, CVUpdateChecker::Outcome::Failed);
        QVERIFY2(result.message.startsWith(message), qPrintable(result.message));
    }

    void withoutAFeedNothingIsFetched()
    {
        m_settings->setValue(CVSettingsKey::SUFeedURL, QString());
        CVUpdateChecker checker(m_settings, u"0.1.0"_s);
        const CVUpdateChecker::Result result = check(checker);
        QCOMPARE(result.outcome, CVUpdateChecker::Outcome::Failed);
        QVERIFY(result.message.startsWith(u"This build of Corvana checks for no updates"_s));
        checker.startScheduling();
        QVERIFY(!checker.nextCheck().isValid());
    }

    void theScheduleFollowsTheSettings()
    {
        CVUpdateChecker checker(m_settings, u"0.1.0"_s);
        const qint64 now = QDateTime::currentSecsSinceEpoch();
        m_settings->setValue(CVSettingsKey::SULastCheckTime, now - 3000);
        m_settings->setValue(CVSettingsKey::SUScheduledCheckInterval, 86400);
        checker.startScheduling();
        QVERIFY(qAbs(checker.nextCheck().toSecsSinceEpoch() - (now - 3000 + 86400)) < 5);
        // A check that is overdue comes a minute after the start, never during the load.
        m_settings->setValue(CVSettingsKey::SULastCheckTime, now - 90000);
        checker.startScheduling();
        QVERIFY(qAbs(checker.nextCheck().toSecsSinceEpoch() - (now + 60)) < 5);
        m_settings->setValue(CVSettingsKey::SUEnableAutomaticChecks, false);
        QVERIFY(!checker.nextCheck().isValid());
    }

    void versionOrder()
    {
        QVERIFY(CVUpdateChecker::compareVersions(u"1.10"_s, u"1.9"_s) > 0);
        QVERIFY(CVUpdateChecker::compareVersions(u"2.0"_s, u"2.0.0"_s) < 0);
        QVERIFY(CVUpdateChecker::compareVersions(u"2.0b1"_s, u"2.0"_s) < 0);
        QVERIFY(CVUpdateChecker::compareVersions(u"2.0b2"_s, u"2.0b10"_s) < 0);
        QCOMPARE(CVUpdateChecker::compareVersions(u"0.1.0"_s, u"0.1.0"_s), 0);
    }

private:
    std::unique_ptr<CVTestEnvironment> m_env;
    CVSettings *m_settings = nullptr;
    CVFeedServer m_server;
};

QTEST_GUILESS_MAIN(TestUpdateChecker)
#include "tst_updatechecker.moc"
