// Start-up, the load sequence, crash detection, the guarded quit, and the window on its screen.
#include "CVSheetAnswer.h"
#include "CVWindowDelegate.h"
#include "CVWindowSession.h"
#include "Engine/CVMediaSpanner.h"
#include "Engine/CVResultRow.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPredicateArchive.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVRunController.h"
#include "MainWindow/CVSheetPresenter.h"
#include "Platform/CVSettings.h"
#include "Views/CVLoadingView.h"
#include "Views/CVScreenFit.h"
#include "Views/CVSpanQueueDropZone.h"

#include <QElapsedTimer>
#include <QScreen>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

// Settings as the last run left them, written before the program starts.
void writeSettings(std::initializer_list<std::pair<CVSettingsKey, QVariant>> values)
{
    CVSettings settings;
    for (const auto &[key, value] : values)
        settings.setValue(key, value);
    settings.synchronize();
}

CVSettings storedSettings()
{
    return CVSettings();
}

QScreen *screenNamed(const QString &name)
{
    for (QScreen *screen : QGuiApplication::screens())
        if (screen->name() == name)
            return screen;
    return nullptr;
}

// Centres compared within the frame the offscreen platform draws around a window, which it
// knows only once the window is shown.
constexpr int kFrameSlack = 8;

// The whole window, title bar and borders included, inside its screen's available geometry.
bool isWhollyOn(const QWidget *window, const QScreen *screen)
{
    return screen && screen->availableGeometry().contains(window->frameGeometry());
}

} // namespace

class TestStartup : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void loadShowsItsStepsThenTheMainView();
    void mainViewComesAfterThePauseWithItsLocations();
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
    void framesFitTheirScreen_data();
    void framesFitTheirScreen();
    void windowGrowsAndRunsOnScreen_data();
    void windowGrowsAndRunsOnScreen();
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
    QVERIFY(!app.settings()->boolValue(CVSettingsKey::FirstRun));
    // The flag stays on disk until an orderly quit.
    QVERIFY(storedSettings().boolValue(CVSettingsKey::DidCrashLastRun));
    QCOMPARE(int(app.libraryManager()->allTracks().size()), session.generated.fileTracks);
}

void TestStartup::mainViewComesAfterThePauseWithItsLocations()
{
    // The work before the main view runs within the pause: the pause still holds from the
    // text on, and the location table is complete by the time the view shows.
    CVWindowSession session({ .tracks = 1500, .start = false, .mainViewDelayMs = 300 });
    session.awake();
    CVApplicationDelegate &app = session.app();
    QElapsedTimer sincePreparing;
    connect(
        app.presenter(), &CVSheetPresenter::statusTextChanged, this,
        [&](const QString &text) {
            if (text == u"Preparing Corvana Interface"_s)
                sincePreparing.start();
        },
        Qt::DirectConnection);
    qint64 pause = -1;
    qsizetype rows = 0;
    int tracksWithoutNodes = -1;
    connect(app.windowDelegate(), &CVWindowDelegate::mainViewShown, this, [&] {
        pause = sincePreparing.elapsed();
        CVLibraryManager *library = app.libraryManager();
        rows = qsizetype(library->filterEmptyLocations()->size());
        tracksWithoutNodes = 0;
        for (const CVTrack *t : library->allTracks())
            tracksWithoutNodes += library->trees().keyedLocation(*t).empty() ? 1 : 0;
    });
    session.launch();
    QVERIFY2(pause >= 300, qPrintable(QString::number(pause)));
    QCOMPARE(tracksWithoutNodes, 0);
    QVERIFY(rows > session.generated.fileTracks);
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
    writeSettings({ { CVSettingsKey::DidCrashLastRun, didCrash }, { CVSettingsKey::IsSpanning, isSpanning } });
    session.awake();
    QCOMPARE(session.app().crashedLastRun(), crashed);
    QCOMPARE(session.app().crashedWhileSpanningLastRun(), crashedWhileSpanning);
    // Written at once: the spanning flag survives only while a crash is still to be recovered.
    const CVSettings stored;
    QVERIFY(stored.boolValue(CVSettingsKey::DidCrashLastRun));
    QCOMPARE(stored.boolValue(CVSettingsKey::IsSpanning), crashedWhileSpanning);
    session.launch();
}

void TestStartup::windowLeftAtLoadingSizeIsACrash()
{
    CVWindowSession session({ .tracks = 50, .start = false });
    const CVSettingsKey frameKey = CVWindowDelegate::FrameKey;
    writeSettings({ { CVSettingsKey::DidCrashLastRun, false }, { frameKey, u"100 100 480 200"_s } });
    session.awake();
    QVERIFY(session.app().crashedLastRun());
    QVERIFY(!session.app().crashedWhileSpanningLastRun());
    session.launch();
}

void TestStartup::normalQuitClearsTheCrashFlagAndKeepsTheFrame()
{
    CVWindowSession session({ .tracks = 50 });
    const CVSettingsKey frameKey = CVWindowDelegate::FrameKey;
    session.app().terminate();
    QCOMPARE(session.quits, 1);
    QVERIFY(session.log.contains(u"Quitting on my own terms..."_s));
    const CVSettings stored;
    QVERIFY(!stored.boolValue(CVSettingsKey::DidCrashLastRun));
    QVERIFY(!stored.boolValue(CVSettingsKey::IsSpanning));
    // The next start finds a full-size window: no crash.
    session.restart();
    QVERIFY(!session.app().crashedLastRun() || !session.app().settings()->boolValue(CVSettingsKey::FirstRun));
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
    QVERIFY(!stored.boolValue(CVSettingsKey::DidCrashLastRun));
    // The frame on disk is the main view's, not the loading size.
    const QStringList frame = stored.stringValue(CVWindowDelegate::FrameKey).split(u' ');
    QVERIFY(frame.value(3).toInt() >= CVMainWindow::MinimumMainSize.height());
}

void TestStartup::quitDuringFirstLoadAfterCrashWhileSpanningIsRefused()
{
    CVWindowSession session({ .tracks = 50, .start = false });
    writeSettings({ { CVSettingsKey::DidCrashLastRun, true }, { CVSettingsKey::IsSpanning, true },
        { CVSettingsKey::FirstRun, false } });
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
    app.windowDelegate()->runController()->showSpanningView();
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
    writeSettings({ { CVSettingsKey::DidCrashLastRun, true }, { CVSettingsKey::IsSpanning, true },
        { CVSettingsKey::FirstRun, false } });
    session.awake();
    session.launch();
    CVApplicationDelegate &app = session.app();
    // The crash sheet of the load comes first: closed.
    QVERIFY(answerSheet(
        app.presenter(), u"\nCorvana Crashed While Spanning!"_s, CVPresenter::AlternateReturn, CVSheetTitle::Start));
    app.terminate();
    const CVAlert &sheet = app.presenter()->openSheet();
    QCOMPARE(sheet.title, u"It is not recommended to quit without recovering from the last crash."_s);
    QCOMPARE(sheet.defaultButton, u"Don't Quit"_s);
    QCOMPARE(sheet.alternateButton, u"Quit & Recover Next Launch"_s);
    QCOMPARE(sheet.otherButton, u"Quit & Don't Recover"_s);
    app.presenter()->answerSheet(answer);
    QCOMPARE(session.quits, quits);
    const CVSettings stored;
    QCOMPARE(stored.boolValue(CVSettingsKey::IsSpanning), isSpanningAfter);
    QCOMPARE(stored.boolValue(CVSettingsKey::DidCrashLastRun), didCrashAfter);
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
    QVERIFY(CVSettings().boolValue(CVSettingsKey::DidCrashLastRun));
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
    writeSettings(
        { { CVSettingsKey::SavedSpanningQueue, CVPredicateArchive::archive(CVPredicate::fromText(u"EMPTY"_s)) } });
    session.awake();
    session.launch();
    QVERIFY(session.app().windowDelegate()->spanQueue().isEmpty());
    QVERIFY(!session.app().settings()->contains(CVSettingsKey::SavedSpanningQueue));
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
    writeSettings({ { CVSettingsKey::DidCrashLastRun, true }, { CVSettingsKey::IsSpanning, true },
        { CVSettingsKey::LastTracksSpanned, inFlight } });
    session.restart();
    CVWindowDelegate *window = session.app().windowDelegate();
    QVERIFY(session.app().crashedWhileSpanningLastRun());
    QCOMPARE(window->spanQueue().size(), qsizetype(books->tracks.size()));
    for (const CVTrack *t : window->spanQueue())
        QCOMPARE(t->text(CVAttr::MediaType), u"Books"_s);
}

void TestStartup::framesFitTheirScreen_data()
{
    QTest::addColumn<QRect>("frame");
    QTest::addColumn<QRect>("available");
    QTest::addColumn<QRect>("expected");
    const QRect laptop(0, 0, 1366, 768);
    const QRect right(1366, 0, 1600, 1000);
    QTest::newRow("inside: kept") << QRect(100, 50, 800, 600) << laptop << QRect(100, 50, 800, 600);
    QTest::newRow("past the foot: raised") << QRect(233, 227, 1180, 728) << laptop << QRect(186, 40, 1180, 728);
    QTest::newRow("past the left: moved right") << QRect(-300, 100, 800, 600) << laptop << QRect(0, 100, 800, 600);
    QTest::newRow("larger: shrunk, centred") << QRect(-100, -50, 2000, 1200) << laptop << laptop;
    QTest::newRow("wider only") << QRect(1300, 100, 1800, 700) << right << QRect(1366, 100, 1600, 700);
    QTest::newRow("on a screen right of another") << QRect(2500, 900, 600, 400) << right << QRect(2366, 600, 600, 400);
}

void TestStartup::framesFitTheirScreen()
{
    QFETCH(QRect, frame);
    QFETCH(QRect, available);
    QFETCH(QRect, expected);
    QCOMPARE(CVScreenFit::fitted(frame, available), expected);
}

void TestStartup::windowGrowsAndRunsOnScreen_data()
{
    // The frame the last run saved ("" for a first start) and the screen it must end on.
    QTest::addColumn<QString>("saved");
    QTest::addColumn<QString>("screen");
    QTest::addColumn<bool>("centreKept");
    QTest::newRow("1366x768, first start") << QString() << u"Laptop"_s << false;
    QTest::newRow("1366x768, at the foot") << u"233 227 1180 728"_s << u"Laptop"_s << false;
    QTest::newRow("1366x768, frame from a larger screen") << u"0 0 1900 1150"_s << u"Laptop"_s << false;
    QTest::newRow("1600x1000, centre kept") << u"1600 100 1200 800"_s << u"Desktop"_s << true;
    QTest::newRow("1600x1000, past the foot") << u"1500 400 1180 760"_s << u"Desktop"_s << false;
    QTest::newRow("HiDPI, frame from a larger screen") << u"3000 40 1600 1000"_s << u"HiDPI"_s << false;
    QTest::newRow("on a screen no longer there") << u"9000 9000 1180 760"_s << u"Laptop"_s << false;
}

void TestStartup::windowGrowsAndRunsOnScreen()
{
    QFETCH(QString, saved);
    QFETCH(QString, screen);
    QFETCH(bool, centreKept);
    QScreen *expected = screenNamed(screen);
    QVERIFY2(expected, "the test's screens (tests/data/screens.json) are not in use");
    CVWindowSession session({ .tracks = 50, .start = false });
    if (!saved.isEmpty())
        writeSettings({ { CVWindowDelegate::FrameKey, saved } });
    const QStringList parts = saved.split(u' ');
    const QPoint savedCentre = saved.isEmpty()
        ? QPoint()
        : QRect(parts[0].toInt(), parts[1].toInt(), parts[2].toInt(), parts[3].toInt()).center();
    session.awake();
    CVWindowDelegate *delegate = session.app().windowDelegate();
    CVMainWindow *window = delegate->corvanaWindow();
    QCOMPARE(window->size(), CVMainWindow::LoadingSize);
    QVERIFY(isWhollyOn(window, expected));
    const QPoint loadingCentre = window->geometry().center();
    session.launch();
    QVERIFY(window->isMainViewShown());
    QVERIFY2(isWhollyOn(window, expected),
        qPrintable(u"%1,%2 %3x%4"_s.arg(window->x()).arg(window->y()).arg(window->width()).arg(window->height())));
    QVERIFY(window->width() >= CVMainWindow::MinimumMainSize.width());
    QVERIFY(window->height() >= CVMainWindow::MinimumMainSize.height());
    // Grown around the loading view's centre, which stood where the main view's did.
    QVERIFY((window->geometry().center() - loadingCentre).manhattanLength() <= kFrameSlack);
    if (centreKept)
        QVERIFY((window->geometry().center() - savedCentre).manhattanLength() <= kFrameSlack);
    if (saved.isEmpty())
        QVERIFY(
            (window->geometry().center() - expected->availableGeometry().center()).manhattanLength() <= kFrameSlack);

    // A run's views and the way back keep it there.
    const QRect main = window->geometry();
    delegate->runController()->showSpanningView();
    QVERIFY(isWhollyOn(window, expected));
    QCOMPARE(window->geometry(), main);
    CVRunResults results;
    results.headline = u"Span Completed"_s;
    delegate->runController()->showResultsAfterRun(results);
    QVERIFY(isWhollyOn(window, expected));
    QCOMPARE(window->geometry(), main);
    delegate->runController()->showReloadingView();
    QVERIFY(isWhollyOn(window, expected));
    delegate->displayMainViewBeforeQuit();
    QVERIFY(isWhollyOn(window, expected));
    QCOMPARE(window->geometry(), main);
}

int main(int argc, char *argv[])
{
    // The screens the window must fit, side by side: a laptop's 1366x768, a desktop's 1600x1000
    // and a HiDPI screen of 2560x1440 pixels at twice the scale.
    if (qEnvironmentVariable("QT_QPA_PLATFORM", u"offscreen"_s) == u"offscreen"_s)
        qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" CORVANA_TEST_DATA "/screens.json");
    QApplication app(argc, argv);
    app.setAttribute(Qt::AA_Use96Dpi, true);
    TestStartup test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_startup.moc"
