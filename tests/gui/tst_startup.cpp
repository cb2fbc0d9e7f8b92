// Start-up, the load sequence, crash detection and the guarded quit.
#include "CVWindowDelegate.h"
#include "CVWindowSession.h"
#include "Engine/CVMediaSpanner.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPredicateArchive.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSheetPresenter.h"
#include "Platform/CVSettings.h"
#include "Views/CVLoadingView.h"
#include "Views/CVSpanQueueDropZone.h"

#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

// Settings as the last run left them, written before the program starts.
void writeSettings(const QVariantMap &values)
{
    CVSettings settings;
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        settings.setValue(it.key(), it.value());
    settings.synchronize();
}

CVSettings storedSettings()
{
    return CVSettings();
}

} // namespace

class TestStartup : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void loadShowsItsStepsThenTheMainView();
    void firstRunCountsAsCrashButNotWhileSpanning();
    void crashFromFlags_data();
    void crashFromFlags();
    void windowLeftAtLoadingSizeIsACrash();
    void normalQuitClearsTheCrashFlagAndKeepsTheFrame();
    void quitDuringFirstLoadQuitsWhenTheLoadEnds();
    void quitDuringFirstLoadAfterCrashWhileSpanningIsRefused();
    void quitDuringRunAsksAndNeverQuits_data();
    void quitDuringRunAsksAndNeverQuits();
    void quitAfterCrashWhileSpanning_data();
    void quitAfterCrashWhileSpanning();
    void secondInstanceQuitsWithoutSaving();
    void savedQueueIsRefilled();
    void savedQueueThatIsNoRecordIsRemoved();
    void interruptedRunRefillsTheQueue();
};

void TestStartup::loadShowsItsStepsThenTheMainView()
{
    CVWindowSession session({ .tracks = 300, .start = false });
    session.awake();
    CVApplicationDelegate &app = session.app();
    CVMainWindow *window = app.windowDelegate()->corvanaWindow();
    QVERIFY(!window->isMainViewShown());
    QVERIFY(window->height() < CVMainWindow::MinimumMainSize.height());
    QVERIFY(!app.allowResize());
    QStringList statuses;
    connect(app.presenter(), &CVSheetPresenter::statusTextChanged, this,
        [&](const QString &text) { statuses.append(text); });
    session.launch();

    // A new home has no helper yet: it is installed first.
    const QStringList expected { u"Installing Corvana Helper"_s, u"Reading iTunes Library Information"_s,
        u"Loading iTunes Library Information into Corvana"_s, u"Compiling Location Information"_s,
        u"Preparing Corvana Interface"_s, u"Preparing to Load iTunes Library Database"_s };
    QCOMPARE(statuses, expected);
    QVERIFY(window->isMainViewShown());
    QVERIFY(window->height() >= CVMainWindow::MinimumMainSize.height());
    QVERIFY(app.allowResize());
    QVERIFY(!app.isLoadingCorvana());
    QVERIFY(app.liveRefreshPrefs());
    QCOMPARE(window->loadingView->statusText(), u"Preparing to Load iTunes Library Database"_s);
    QVERIFY(!app.settings()->boolValue(u"CVFirstRun"_s));
    // The flag stays on disk until an orderly quit.
    QVERIFY(storedSettings().boolValue(u"CVDidCrashLastRun"_s));
    QCOMPARE(int(app.libraryManager()->allTracks().size()), session.generated.fileTracks);
}

void TestStartup::firstRunCountsAsCrashButNotWhileSpanning()
{
    CVWindowSession session({ .tracks = 50, .start = false });
    session.awake();
    QVERIFY(session.app().crashedLastRun());
    QVERIFY(!session.app().crashedWhileSpanningLastRun());
    session.launch();
    // Cleared by the end of the first load.
    QVERIFY(!session.app().crashedLastRun());
}

void TestStartup::crashFromFlags_data()
{
    QTest::addColumn<bool>("didCrash");
    QTest::addColumn<bool>("isSpanning");
    QTest::addColumn<bool>("crashed");
    QTest::addColumn<bool>("crashedWhileSpanning");
    QTest::newRow("normal quit") << false << false << false << false;
    QTest::newRow("crash") << true << false << true << false;
    QTest::newRow("crash during a run") << true << true << true << true;
    QTest::newRow("spanning flag without a crash") << false << true << false << false;
}

void TestStartup::crashFromFlags()
{
    QFETCH(bool, didCrash);
    QFETCH(bool, isSpanning);
    QFETCH(bool, crashed);
    QFETCH(bool, crashedWhileSpanning);
    CVWindowSession session({ .tracks = 50, .start = false });
    writeSettings({ { u"CVDidCrashLastRun"_s, didCrash }, { u"CVIsSpanning"_s, isSpanning } });
    session.awake();
    QCOMPARE(session.app().crashedLastRun(), crashed);
    QCOMPARE(session.app().crashedWhileSpanningLastRun(), crashedWhileSpanning);
    // Written at once: the spanning flag survives only while a crash is still to be recovered.
    const CVSettings stored;
    QVERIFY(stored.boolValue(u"CVDidCrashLastRun"_s));
    QCOMPARE(stored.boolValue(u"CVIsSpanning"_s), crashedWhileSpanning);
    session.launch();
}

void TestStartup::windowLeftAtLoadingSizeIsACrash()
{
    CVWindowSession session({ .tracks = 50, .start = false });
    const QString frameKey = QString::fromLatin1(CVWindowDelegate::FrameKey);
    writeSettings({ { u"CVDidCrashLastRun"_s, false }, { frameKey, u"100 100 480 200"_s } });
    session.awake();
    QVERIFY(session.app().crashedLastRun());
    QVERIFY(!session.app().crashedWhileSpanningLastRun());
    session.launch();
}

void TestStartup::normalQuitClearsTheCrashFlagAndKeepsTheFrame()
{
    CVWindowSession session({ .tracks = 50 });
    const QString frameKey = QString::fromLatin1(CVWindowDelegate::FrameKey);
    session.app().terminate();
    QCOMPARE(session.quits, 1);
    QVERIFY(session.log.contains(u"Quitting on my own terms..."_s));
    const CVSettings stored;
    QVERIFY(!stored.boolValue(u"CVDidCrashLastRun"_s));
    QVERIFY(!stored.boolValue(u"CVIsSpanning"_s));
    // The next start finds a full-size window: no crash.
    session.restart();
    QVERIFY(!session.app().crashedLastRun() || !session.app().settings()->boolValue(u"CVFirstRun"_s));
    const QStringList frame = session.app().settings()->stringValue(frameKey).split(u' ');
    QCOMPARE(frame.size(), 4);
}

void TestStartup::quitDuringFirstLoadQuitsWhenTheLoadEnds()
{
    CVWindowSession session({ .tracks = 200, .start = false });
    session.awake();
    CVApplicationDelegate &app = session.app();
    QSignalSpy finished(&app, &CVApplicationDelegate::loadFinished);
    QSignalSpy shown(app.windowDelegate(), &CVWindowDelegate::mainViewShown);
    app.applicationDidFinishLaunching();
    // The load thread waits for the main thread at its first step: it is still loading.
    app.terminate();
    QVERIFY(app.isWaitingToQuit());
    QCOMPARE(session.quits, 0);
    QVERIFY(finished.wait(120000));
    QCOMPARE(shown.count(), 0);
    QCOMPARE(session.quits, 1);
    QVERIFY(session.log.contains(u"Quitting on my own terms..."_s));
    const CVSettings stored;
    QVERIFY(!stored.boolValue(u"CVDidCrashLastRun"_s));
    // The frame on disk is the main view's, not the loading size.
    const QStringList frame = stored.stringValue(QString::fromLatin1(CVWindowDelegate::FrameKey)).split(u' ');
    QVERIFY(frame.value(3).toInt() >= CVMainWindow::MinimumMainSize.height());
}

void TestStartup::quitDuringFirstLoadAfterCrashWhileSpanningIsRefused()
{
    CVWindowSession session({ .tracks = 50, .start = false });
    writeSettings({ { u"CVDidCrashLastRun"_s, true }, { u"CVIsSpanning"_s, true }, { u"CVFirstRun"_s, false } });
    session.awake();
    CVApplicationDelegate &app = session.app();
    QSignalSpy finished(&app, &CVApplicationDelegate::loadFinished);
    app.applicationDidFinishLaunching();
    app.terminate();
    QVERIFY(!app.isWaitingToQuit());
    QVERIFY(app.presenter()->shownAlerts().isEmpty());
    QVERIFY(finished.wait(120000));
    QCOMPARE(session.quits, 0);
}

void TestStartup::quitDuringRunAsksAndNeverQuits_data()
{
    QTest::addColumn<bool>("restore");
    QTest::addColumn<int>("answer");
    QTest::newRow("span, resume") << false << int(CVPresenter::DefaultReturn);
    QTest::newRow("restore, skip the rest") << true << int(CVPresenter::AlternateReturn);
}

void TestStartup::quitDuringRunAsksAndNeverQuits()
{
    QFETCH(bool, restore);
    QFETCH(int, answer);
    CVWindowSession session({ .tracks = 50 });
    CVApplicationDelegate &app = session.app();
    if (restore)
        app.windowDelegate()->doSetRestoreMode();
    CVMediaSpanner *spanner = app.spanner();
    spanner->setRunUnderWay(true); // a run at work on its thread, its view on screen
    app.windowDelegate()->showSpanningView();
    app.terminate();
    QVERIFY(spanner->pauseSpan());
    const CVAlert &sheet = app.presenter()->openSheet();
    QCOMPARE(sheet.title, restore ? u"Cannot quit while restoring…"_s : u"Cannot quit while spanning…"_s);
    QCOMPARE(sheet.defaultButton, restore ? u"Resume Restoring"_s : u"Resume Spanning"_s);
    QCOMPARE(sheet.alternateButton, u"Skip the rest…"_s);
    QVERIFY(sheet.text.contains(restore ? u"To complete the restore faster"_s : u"To complete the span faster"_s));
    app.presenter()->answerSheet(answer);
    if (answer == CVPresenter::DefaultReturn) {
        QVERIFY(!spanner->pauseSpan());
        QVERIFY(!spanner->skipTheRest());
    } else {
        // The engine's own question, answered "Skip the Rest".
        QVERIFY(spanner->skipTheRest());
    }
    QCOMPARE(session.quits, 0);
    spanner->setRunUnderWay(false);
}

void TestStartup::quitAfterCrashWhileSpanning_data()
{
    QTest::addColumn<int>("answer");
    QTest::addColumn<int>("quits");
    QTest::addColumn<bool>("isSpanningAfter");
    QTest::addColumn<bool>("didCrashAfter");
    QTest::newRow("Don't Quit") << int(CVPresenter::DefaultReturn) << 0 << true << true;
    QTest::newRow("Quit & Recover Next Launch") << int(CVPresenter::AlternateReturn) << 1 << true << true;
    QTest::newRow("Quit & Don't Recover") << int(CVPresenter::OtherReturn) << 1 << false << false;
}

void TestStartup::quitAfterCrashWhileSpanning()
{
    QFETCH(int, answer);
    QFETCH(int, quits);
    QFETCH(bool, isSpanningAfter);
    QFETCH(bool, didCrashAfter);
    CVWindowSession session({ .tracks = 50, .start = false });
    writeSettings({ { u"CVDidCrashLastRun"_s, true }, { u"CVIsSpanning"_s, true }, { u"CVFirstRun"_s, false } });
    session.awake();
    session.launch();
    CVApplicationDelegate &app = session.app();
    // The crash sheet of the load comes first: closed.
    QVERIFY(app.presenter()->openSheet().title.startsWith(u"\nCorvana Crashed While Spanning!"_s));
    app.presenter()->answerSheet(CVPresenter::AlternateReturn);
    app.terminate();
    const CVAlert &sheet = app.presenter()->openSheet();
    QCOMPARE(sheet.title, u"It is not recommended to quit without recovering from the last crash."_s);
    QCOMPARE(sheet.defaultButton, u"Don't Quit"_s);
    QCOMPARE(sheet.alternateButton, u"Quit & Recover Next Launch"_s);
    QCOMPARE(sheet.otherButton, u"Quit & Don't Recover"_s);
    app.presenter()->answerSheet(answer);
    QCOMPARE(session.quits, quits);
    const CVSettings stored;
    QCOMPARE(stored.boolValue(u"CVIsSpanning"_s), isSpanningAfter);
    QCOMPARE(stored.boolValue(u"CVDidCrashLastRun"_s), didCrashAfter);
    if (answer == CVPresenter::AlternateReturn) {
        // The next start recovers exactly as after the crash.
        session.restart();
        QVERIFY(session.app().crashedWhileSpanningLastRun());
    }
}

void TestStartup::secondInstanceQuitsWithoutSaving()
{
    CVWindowSession first({ .tracks = 50 });
    CVApplicationDelegate::Options options;
    options.answerDialogs = true;
    CVApplicationDelegate second(options);
    int quits = 0;
    second.setQuitHandler([&] { ++quits; });
    second.awakeFromNib();
    QCOMPARE(quits, 1);
    QVERIFY(first.log.contains(u"Only one instance of Corvana can run at a time..."_s));
    QVERIFY(first.log.contains(u"QUITTING WITHOUT SAVING!"_s));
    QVERIFY(!first.log.contains(u"Quitting on my own terms..."_s));
    // The first instance's flag is as it left it.
    QVERIFY(CVSettings().boolValue(u"CVDidCrashLastRun"_s));
}

void TestStartup::savedQueueIsRefilled()
{
    CVWindowSession session({ .tracks = 100 });
    CVLibraryManager *library = session.app().libraryManager();
    const CVTrackList some = library->selectPredicate(CVPredicate::fromText(u"( MediaType == 'Movies' )"_s));
    QVERIFY(!some->tracks.empty());
    session.app().windowDelegate()->performDrop(CVPredicate::fromText(u"( MediaType == 'Movies' )"_s));
    QCOMPARE(session.app().windowDelegate()->spanQueue().size(), qsizetype(some->tracks.size()));
    session.app().terminate();
    session.restart();
    CVWindowDelegate *window = session.app().windowDelegate();
    QCOMPARE(window->spanQueue().size(), qsizetype(some->tracks.size()));
    for (const CVTrack *t : window->spanQueue())
        QCOMPARE(t->text(CVAttr::MediaType), u"Movies"_s);
    QVERIFY(window->corvanaWindow()->spanQueueDropZone->summary().startsWith(u"%1 item"_s.arg(some->tracks.size())));
}

void TestStartup::savedQueueThatIsNoRecordIsRemoved()
{
    CVWindowSession session({ .tracks = 50, .start = false });
    writeSettings({ { u"CVSavedSpanningQueue"_s, CVPredicateArchive::archive(CVPredicate::fromText(u"EMPTY"_s)) } });
    session.awake();
    session.launch();
    QVERIFY(session.app().windowDelegate()->spanQueue().isEmpty());
    QVERIFY(!session.app().settings()->contains(u"CVSavedSpanningQueue"_s));
    QCOMPARE(session.app().windowDelegate()->corvanaWindow()->spanQueueDropZone->summary(), u"No Media Selected"_s);
}

void TestStartup::interruptedRunRefillsTheQueue()
{
    CVWindowSession session({ .tracks = 60 });
    CVLibraryManager *library = session.app().libraryManager();
    const CVTrackList books = library->selectPredicate(CVPredicate::fromText(u"( MediaType == 'Books' )"_s));
    QVariantMap inFlight;
    for (const CVTrack *t : books->tracks)
        inFlight.insert(t->text(CVAttr::PersistentID), t->text(CVAttr::Location));
    // Another saved queue is ignored after a crash during a run.
    session.app().windowDelegate()->performDrop(CVPredicate::fromText(u"( MediaType == 'Movies' )"_s));
    session.app().terminate();
    writeSettings(
        { { u"CVDidCrashLastRun"_s, true }, { u"CVIsSpanning"_s, true }, { u"CVLastTracksSpanned"_s, inFlight } });
    session.restart();
    CVWindowDelegate *window = session.app().windowDelegate();
    QVERIFY(session.app().crashedWhileSpanningLastRun());
    QCOMPARE(window->spanQueue().size(), qsizetype(books->tracks.size()));
    for (const CVTrack *t : window->spanQueue())
        QCOMPARE(t->text(CVAttr::MediaType), u"Books"_s);
}

QTEST_MAIN(TestStartup)
#include "tst_startup.moc"
