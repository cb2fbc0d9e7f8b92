// A run killed in the middle (SIGKILL, as a crash or a pulled plug would end it) and what the
// next start does about it: the crash-while-running sheet, the queue refilled with the
// interrupted run's tracks and its location, the recovery run; and the plain crash sheet.
#include "CVSheetAnswer.h"
#include "CVWindowDelegate.h"
#include "CVWindowSession.h"
#include "Engine/CVMediaSpanner.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSheetPresenter.h"
#include "Platform/CVBugReport.h"
#include "Platform/CVSettings.h"
#include "Views/CVResultsView.h"
#include "Views/CVSpanQueueDropZone.h"

#include <QMenu>
#include <QProcess>
#include <QSignalSpy>
#include <QToolButton>
#include <QtTest>

#include <csignal>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int kRunTimeoutMs = 120000;

// The child: the program in the test's home (the environment says where), a span of the music
// to $HOME/Spanned through the window, killed by the fault injection at its third copy.
int runChild()
{
    CVApplicationDelegate::Options options;
    options.answerDialogs = true;
    options.mainViewDelayMs = 0;
    CVApplicationDelegate app(options);
    app.setQuitHandler([] {});
    app.awakeFromNib();
    if (::geteuid() == 0)
        app.spanner()->setAllowRoot(true);
    QSignalSpy loaded(&app, &CVApplicationDelegate::loadFinished);
    app.applicationDidFinishLaunching();
    if (!loaded.wait(kRunTimeoutMs))
        return 3;
    CVWindowDelegate *window = app.windowDelegate();
    const QString folder = QDir::home().filePath(u"Spanned"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    window->performDrop(CVPredicate::fromText(u"( MediaType == 'Music' )"_s));
    window->spanLibrary();
    if (!app.presenter()->openSheet().title.startsWith(u"Are you sure you want to span"_s))
        return 4;
    app.presenter()->answerSheet(CVPresenter::DefaultReturn);
    // Never reached when the kill comes.
    QTest::qWait(kRunTimeoutMs);
    return 5;
}

} // namespace

class TestRunCrash : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void killedRunIsRecoveredAtTheNextStart();
    void crashOutsideARunOffersABugReportThenTheDependentTracks();
};

void TestRunCrash::killedRunIsRecoveredAtTheNextStart()
{
    CVWindowSession session({ .tracks = 60, .start = false });
    const QHash<QString, QString> before = session.libraryLocations();
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"CORVANA_FAULT_INJECTION"_s, u"copy-write=3:KILL"_s);
    environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    child.start(QCoreApplication::applicationFilePath(), { u"--child-run"_s });
    QVERIFY(child.waitForFinished(kRunTimeoutMs));
    QCOMPARE(child.exitStatus(), QProcess::CrashExit);
    QCOMPARE(child.exitCode(), int(SIGKILL));
    const QVariantMap inFlight = CVSettings().mapValue(CVSettingsKey::LastTracksSpanned);
    QVERIFY(inFlight.size() >= 3);
    QVERIFY(CVSettings().boolValue(CVSettingsKey::IsSpanning));

    session.awake();
    CVApplicationDelegate &app = session.app();
    QVERIFY(app.crashedWhileSpanningLastRun());
    session.launch();
    CVWindowDelegate *window = app.windowDelegate();
    CVMainWindow *w = window->corvanaWindow();
    CVSheetPresenter *presenter = app.presenter();
    const CVAlert sheet = presenter->openSheet();
    QCOMPARE(sheet.title, u"\nCorvana Crashed While Spanning!\n\nDon't Panic!"_s);
    QCOMPARE(sheet.defaultButton, u"Respan Now"_s);
    QCOMPARE(sheet.alternateButton, u"Just Close Alert"_s);
    QCOMPARE(sheet.otherButton, u"Report a Bug"_s);
    QVERIFY(
        sheet.text.startsWith(u"Everything will be fine, Corvana has refilled the spanning queue with the tracks you "
                              "last selected and reselected your last span location.\nNow, just respan"_s));
    QVERIFY(sheet.text.contains(CVBugReport::address() + u" to resolve this issue promptly."_s));
    QVERIFY(sheet.text.endsWith(u"It is strongly recommended that you respan these tracks now."_s));

    // The interrupted run's tracks and location are back; the queue cannot be changed meanwhile.
    QCOMPARE(window->spanQueue().size(), inFlight.size());
    for (const CVTrack *t : window->spanQueue())
        QVERIFY(inFlight.contains(t->text(CVAttr::PersistentID)));
    QCOMPARE(window->spanLocation(), session.home.filePath(u"Spanned"_s));
    QVERIFY(!w->menu(u"EditSpanningQueue"_s)->isEnabled());
    QVERIFY(!w->spanModeButton->isEnabled());
    QVERIFY(w->spanQueueDropZone->refusesDrags());

    // "Respan Now": the normal checks and the confirmation, then the run finishes the job.
    presenter->answerSheet(CVPresenter::DefaultReturn);
    QVERIFY(answerSheet(presenter, u"Are you sure you want to span the %1 selected tracks?"_s.arg(inFlight.size()),
        CVPresenter::DefaultReturn, CVSheetTitle::Start));
    QTRY_VERIFY_WITH_TIMEOUT(window->isResultsViewOnScreen(), kRunTimeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(!app.isRunThreadActive(), kRunTimeoutMs);
    QCOMPARE(app.spanner()->lastResults().successes, int(inFlight.size()));
    QVERIFY(!app.crashedWhileSpanningLastRun());
    QVERIFY(!CVSettings().boolValue(CVSettingsKey::IsSpanning));
    // Every track's file is at its new place, once; the player points there.
    const QHash<QString, QString> after = session.libraryLocations();
    for (auto it = inFlight.cbegin(); it != inFlight.cend(); ++it) {
        const QString now = after.value(it.key());
        QVERIFY2(now.startsWith(session.home.filePath(u"Spanned/"_s)) && QFileInfo(now).isFile(), qPrintable(now));
        QVERIFY(!QFileInfo::exists(before.value(it.key())));
    }
    // A quit is no longer held by the crash.
    app.terminate();
    QCOMPARE(session.quits, 1);
}

void TestRunCrash::crashOutsideARunOffersABugReportThenTheDependentTracks()
{
    CVWindowSession session({ .tracks = 60, .start = false });
    const QStringList spanned
        = session.spanBeforeStart(u"( MediaType == 'Music' )"_s, session.home.filePath(u"Elsewhere"_s));
    QVERIFY(!spanned.isEmpty());
    session.makeDependentBeforeStart(spanned.mid(0, 1));
    {
        CVSettings settings;
        settings.setValue(CVSettingsKey::FirstRun, false);
        settings.setValue(CVSettingsKey::DidCrashLastRun, true);
        settings.setValue(CVSettingsKey::IsSpanning, false);
        settings.synchronize();
    }
    session.awake();
    session.launch();
    CVSheetPresenter *presenter = session.app().presenter();
    QCOMPARE(presenter->openSheet().title, u"\nCorvana Crashed Last Run!\n\nNothing to Worry About…"_s);
    QCOMPARE(presenter->openSheet().defaultButton, u"Report a Bug"_s);
    QVERIFY(presenter->openSheet().text.contains(CVBugReport::address()));
    presenter->answerSheet(CVPresenter::AlternateReturn);
    // Closing it leads to the offer; one track reads "track".
    QVERIFY(answerSheet(
        presenter, u"\nYou have 1 dependent track that can now be fully spanned!\n"_s, CVPresenter::AlternateReturn));
    QVERIFY(!presenter->hasOpenSheet());
    QVERIFY(session.app().windowDelegate()->mainViewIsVisible());
}

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    if (app.arguments().contains(u"--child-run"_s))
        return runChild();
    TestRunCrash test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_runcrash.moc"
