// A run through the window with a player on the session bus (the D-Bus test player), and what
// the desktop hears of a run: the task bar entry's progress and a notification at the end.
#include "CVSheetAnswer.h"
#include "CVWindowDelegate.h"
#include "CVWindowSession.h"
#include "Engine/CVDBusPlayerLink.h"
#include "Engine/CVMediaSpanner.h"
#include "Engine/CVSpannerRunHost.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSheetPresenter.h"
#include "Platform/CVLauncherEntry.h"
#include "Views/CVResultsView.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <QSignalSpy>
#include <QtTest>

#include <csignal>

using namespace Qt::StringLiterals;

namespace {

constexpr int kRunTimeoutMs = 120000;
const QString kPlayerService = u"org.mpris.MediaPlayer2.corvana-testplayer"_s;

bool registered(const QString &name)
{
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(name).value();
}

} // namespace

// Stands in for the desktop's notification service and records what it is sent.
class FakeNotifications : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    QStringList summaries;
    QStringList bodies;

public Q_SLOTS:
    uint Notify(const QString &, uint, const QString &, const QString &summary, const QString &body,
        const QStringList &, const QVariantMap &, int)
    {
        summaries.append(summary);
        bodies.append(body);
        return uint(summaries.size());
    }
    QStringList GetCapabilities() { return { u"body"_s }; }
    void CloseNotification(uint) { }
};

// Listens to the task bar entry's signal, as a dock does.
class LauncherListener : public QObject {
    Q_OBJECT

public:
    QStringList uris;
    QList<QVariantMap> updates;

public Q_SLOTS:
    void update(const QString &uri, const QVariantMap &properties)
    {
        uris.append(uri);
        updates.append(properties);
    }
};

class TestRunDesktop : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void spanWithTheBusPlayerShowsProgressAndNotifies();

private:
    QProcess *m_player = nullptr;
};

void TestRunDesktop::initTestCase()
{
    if (!QDBusConnection::sessionBus().isConnected())
        QSKIP("no session bus: run under dbus-run-session");
}

void TestRunDesktop::cleanup()
{
    if (m_player) {
        m_player->kill();
        m_player->waitForFinished();
        delete m_player;
        m_player = nullptr;
    }
    if (registered(kPlayerService)) {
        const uint pid = QDBusConnection::sessionBus().interface()->servicePid(kPlayerService).value();
        if (pid > 0)
            ::kill(pid_t(pid), SIGKILL);
    }
}

void TestRunDesktop::spanWithTheBusPlayerShowsProgressAndNotifies()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    FakeNotifications notifications;
    QVERIFY(bus.registerObject(u"/org/freedesktop/Notifications"_s, &notifications, QDBusConnection::ExportAllSlots));
    QVERIFY(bus.registerService(u"org.freedesktop.Notifications"_s));
    const auto unregister = qScopeGuard([&] {
        bus.unregisterService(u"org.freedesktop.Notifications"_s);
        bus.unregisterObject(u"/org/freedesktop/Notifications"_s);
    });
    LauncherListener launcher;
    QVERIFY(bus.connect(QString(), QString::fromLatin1(CVLauncherEntry::ObjectPath),
        QString::fromLatin1(CVLauncherEntry::Interface), u"Update"_s, &launcher, SLOT(update(QString, QVariantMap))));

    CVWindowSession session({ .tracks = 60, .start = false });
    const QString record = session.home.filePath(u"player-calls.txt"_s);
    m_player = new QProcess;
    m_player->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_player->start(
        QStringLiteral(CORVANA_TESTPLAYER), { u"--library"_s, session.libraryFile(), u"--record"_s, record });
    QVERIFY(m_player->waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(registered(kPlayerService), 10000);

    session.awake();
    session.launch();
    CVApplicationDelegate &app = session.app();
    QVERIFY(dynamic_cast<CVDBusPlayerLink *>(app.playerLink()));
    CVWindowDelegate *window = app.windowDelegate();
    CVMainWindow *w = window->corvanaWindow();
    const QString folder = session.home.filePath(u"Films"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    window->performDrop(CVPredicate::fromText(u"( MediaType == 'Movies' )"_s));
    const int n = int(window->spanQueue().size());
    QVERIFY(n > 0);
    QStringList pids;
    for (const CVTrack *t : window->spanQueue())
        pids.append(t->text(CVAttr::PersistentID));

    // The run waits at its start, the moment its view comes, while the user turns to another
    // window; then it goes on.
    CVMediaSpanner *spanner = app.spanner();
    connect(
        spanner, &CVMediaSpanner::viewChangeRequested, this,
        [spanner](int view) {
            if (view == int(CVSpannerRunHost::View::Spanning))
                spanner->setPauseSpan(true);
        },
        Qt::DirectConnection);
    window->spanLibrary();
    QVERIFY(answerSheet(
        app.presenter(), u"Are you sure you want to span"_s, CVPresenter::DefaultReturn, CVSheetTitle::Start));
    QTRY_VERIFY_WITH_TIMEOUT(window->isSpanningViewOnScreen() && spanner->pauseSpan(), kRunTimeoutMs);
    QWidget elsewhere;
    elsewhere.show();
    QApplication::setActiveWindow(&elsewhere);
    QTRY_VERIFY(!w->isActiveWindow());
    spanner->setPauseSpan(false);
    QTRY_VERIFY_WITH_TIMEOUT(window->isResultsViewOnScreen(), kRunTimeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(!app.isRunThreadActive(), kRunTimeoutMs);
    QCOMPARE(w->resultsView->headline(), u"All %1 Tracks Successfully Spanned"_s.arg(n));

    // The player was told every new place, then quit and wrote its library.
    QFile calls(record);
    QVERIFY(calls.open(QIODevice::ReadOnly));
    const QString told = QString::fromUtf8(calls.readAll());
    for (const QString &pid : std::as_const(pids))
        QVERIFY2(told.contains(u"SetTrackLocation "_s + pid), qPrintable(pid));
    QVERIFY(told.contains(u"Quit"_s));
    const QHash<QString, QString> locations = session.libraryLocations();
    for (const QString &pid : std::as_const(pids))
        QVERIFY(locations.value(pid).startsWith(folder + u'/') && QFileInfo(locations.value(pid)).isFile());

    // The task bar showed the progress and took it away at the end.
    QTRY_VERIFY(!launcher.updates.isEmpty() && !launcher.updates.constLast().value(u"progress-visible"_s).toBool());
    QCOMPARE(launcher.uris.constFirst(), u"application://org.corvana.Corvana.desktop"_s);
    bool shown = false;
    double last = -1;
    for (const QVariantMap &update : std::as_const(launcher.updates)) {
        if (!update.value(u"progress-visible"_s).toBool())
            continue;
        const double progress = update.value(u"progress"_s).toDouble();
        QVERIFY(progress >= 0 && progress <= 1);
        shown = true;
        last = progress;
    }
    QVERIFY(shown);
    QVERIFY(last > 0);

    // The run ended while the window was not in front: the desktop says so.
    QTRY_VERIFY2(notifications.summaries.size() == 1, qPrintable(session.log.join(u'\n')));
    QCOMPARE(notifications.summaries.constFirst(), w->resultsView->headline());
    QCOMPARE(notifications.bodies.constFirst(), w->resultsView->tally());
}

QTEST_MAIN(TestRunDesktop)
#include "tst_rundesktop.moc"
