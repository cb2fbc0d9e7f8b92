// The run controller with a bare main window and an idle engine: which view is on screen, the
// menus a run takes away and gives back, the way back from the results, the sheets after a load,
// and what the engine asks it. Runs themselves are in tst_run.
#include "CVPartTest.h"
#include "Engine/CVMediaSpanner.h"
#include "Library/CVLibraryManager.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVRunController.h"
#include "MainWindow/CVSheetPresenter.h"
#include "MainWindow/CVSounds.h"
#include "MainWindow/CVSpanQueue.h"
#include "Platform/CVSettings.h"

#include <QAction>
#include <QMenu>
#include <QThread>
#include <QtTest>

using namespace Qt::StringLiterals;
using View = CVRunController::View;

class TestRunController : public QObject, private CVPartTest {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        setUpParts(Model::None);
        m_presenter = std::make_unique<CVSheetPresenter>();
        m_presenter->setAnswering(true);
        m_window = std::make_unique<CVMainWindow>();
        m_queue = std::make_unique<CVSpanQueue>(m_library.get(), m_settings);
        m_sounds = std::make_unique<CVSounds>();
        m_loading = m_crashed = m_restore = false;
        m_location.clear();
        m_reloads = m_bugReports = 0;
        CVRunController::Context context;
        context.isLoading = [this] { return m_loading; };
        context.crashedWhileSpanning = [this] { return m_crashed; };
        context.restoreMode = [this] { return m_restore; };
        context.spanLocation = [this] { return m_location; };
        context.setSpanMode = [this] { m_restore = false; };
        context.clearSpanLocation = [this] { m_location.clear(); };
        context.mainViewVisible = [] { return true; };
        context.setWindow = [](bool, bool) {};
        context.reload = [this] { ++m_reloads; };
        context.reportBug = [this] { ++m_bugReports; };
        context.quit = [] {};
        m_run = std::make_unique<CVRunController>(m_settings, m_library.get(), m_presenter.get(), m_window.get(),
            m_queue.get(), m_sounds.get(), std::move(context));
    }
    void cleanup()
    {
        m_run.reset();
        m_spanner.reset();
        m_sounds.reset();
        m_queue.reset();
        m_window.reset();
        m_presenter.reset();
        tearDownParts();
    }

    void theViewOnScreenIsKnownFromAnyThread()
    {
        QVERIFY(!m_run->isSpanningViewOnScreen() && !m_run->isResultsViewOnScreen());
        m_run->setShownView(View::Results);
        bool results = false;
        QThread *reader = QThread::create([&] { results = m_run->isResultsViewOnScreen(); });
        reader->start();
        QVERIFY(reader->wait(5000));
        delete reader;
        QVERIFY(results);
        m_run->setShownView(View::Main);
        QVERIFY(m_run->isMainViewShown());
    }

    void onlyTheResultsLeadBackAndNeverDuringALoad()
    {
        m_run->setShownView(View::Main);
        m_run->leaveResultsView();
        QCOMPARE(m_reloads, 0);
        m_run->setShownView(View::Results);
        m_loading = true;
        m_run->leaveResultsView();
        QCOMPARE(m_reloads, 0);
        m_loading = false;
        m_run->leaveResultsView();
        QCOMPARE(m_reloads, 1);
    }

    void menusGoWithTheirItemsAndTheQueuesStayAwayAfterACrash()
    {
        QMenu *edit = m_window->menu(u"EditSpanningQueue"_s);
        QVERIFY(edit && !edit->actions().isEmpty());
        m_run->setMenuEnabled(u"EditSpanningQueue"_s, false);
        QVERIFY(!edit->isEnabled());
        for (const QAction *a : edit->actions())
            QVERIFY2(!a->isEnabled(), qPrintable(a->text()));
        m_crashed = true;
        m_run->enableMenusAfterRun();
        QVERIFY(m_window->menu(u"View"_s)->isEnabled());
        QVERIFY(m_window->action(u"getInfo"_s)->isEnabled());
        QVERIFY(!edit->isEnabled());
        m_crashed = false;
        m_run->enableMenusAfterRun();
        QVERIFY(edit->isEnabled());
    }

    void nothingRunsWithoutAnEngine()
    {
        m_queue->fill(CVPredicate::fromText(u""_s), false);
        m_run->spanLibrary();
        m_run->updateDependentTracks();
        QVERIFY(!m_run->isRunThreadActive());
        QVERIFY(m_presenter->shownAlerts().isEmpty());
    }

    void theEngineAsksTheControllerAndForgetsItWhenItGoes()
    {
        m_spanner = std::make_unique<CVMediaSpanner>(nullptr, nullptr, m_presenter.get());
        m_run->attachEngine(m_spanner.get());
        m_restore = true;
        m_location = u"/media/Films/Spanned"_s;
        QVERIFY(m_spanner->restoreMode());
        QCOMPARE(m_spanner->spanLocation(), m_location);

        CVSpannerRunHost *host = m_run.get();
        host->showView(CVSpannerRunHost::View::Spanning);
        QVERIFY(m_run->isSpanningViewOnScreen());
        QCOMPARE(m_window->currentView(), CVMainWindow::View::Spanning);
        host->showView(CVSpannerRunHost::View::Results);
        QVERIFY(m_run->isResultsViewOnScreen());
        QCOMPARE(m_window->currentView(), CVMainWindow::View::Results);
        host->showView(CVSpannerRunHost::View::Loading);
        QVERIFY(!m_run->isSpanningViewOnScreen() && !m_run->isResultsViewOnScreen());
        host->doSetSpanMode();
        host->clearSpanLocation();
        QVERIFY(!m_restore && m_location.isEmpty());

        // The engine outlives the window: it must not ask a controller that is gone.
        m_restore = true;
        m_run.reset();
        QVERIFY(!m_spanner->restoreMode());
        QVERIFY(m_spanner->spanLocation().isEmpty());
    }

    void theCrashSheetsSayWhatWasUnderWay_data()
    {
        QTest::addColumn<QString>("lastLocation");
        QTest::addColumn<QString>("title");
        QTest::newRow("span") << u"/media/Films"_s << u"Corvana Crashed While Spanning!"_s;
        QTest::newRow("restore") << u"CVRestoreMode"_s << u"Corvana Crashed While Restoring!"_s;
    }
    void theCrashSheetsSayWhatWasUnderWay()
    {
        QFETCH(QString, lastLocation);
        QFETCH(QString, title);
        m_settings->setValue(CVSettingsKey::LastSpanLocation, lastLocation);
        m_presenter->queueAnswer(CVPresenter::OtherReturn);
        m_run->showCrashWhileRunningSheet();
        QTRY_COMPARE(m_bugReports, 1);
        QVERIFY(m_presenter->shownAlerts().first().title.contains(title));
        // The other crash sheet offers the bug report by default, then the dependent tracks
        // (none in an empty library: no further sheet).
        m_presenter->queueAnswer(CVPresenter::DefaultReturn);
        m_run->showCrashSheet();
        QTRY_COMPARE(m_bugReports, 2);
        QCOMPARE(m_presenter->shownAlerts().size(), 2);
    }

private:
    std::unique_ptr<CVSheetPresenter> m_presenter;
    std::unique_ptr<CVMainWindow> m_window;
    std::unique_ptr<CVSpanQueue> m_queue;
    std::unique_ptr<CVSounds> m_sounds;
    std::unique_ptr<CVMediaSpanner> m_spanner;
    std::unique_ptr<CVRunController> m_run;
    bool m_loading = false;
    bool m_crashed = false;
    bool m_restore = false;
    QString m_location;
    int m_reloads = 0;
    int m_bugReports = 0;
};

QTEST_MAIN(TestRunController)
#include "tst_runcontroller.moc"
