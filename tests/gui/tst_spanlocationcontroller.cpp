// The span location's controller with its view alone, without the main window: which folders
// become the location, what is saved, the history, and the confirmation of a change.
#include "CVPartTest.h"
#include "Library/CVLibraryManager.h"
#include "MainWindow/CVSheetPresenter.h"
#include "MainWindow/CVSpanLocationController.h"
#include "Platform/CVSettings.h"
#include "Views/CVSpanLocationView.h"

#include <QDir>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

class TestSpanLocationController : public QObject, private CVPartTest {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        setUpParts(Model::None);
        m_presenter = std::make_unique<CVSheetPresenter>();
        m_presenter->setAnswering(true);
        m_view = std::make_unique<CVSpanLocationView>();
        m_crashed = m_restore = false;
        CVSpanLocationController::Context context;
        context.crashedWhileSpanning = [this] { return m_crashed; };
        context.spanner = [] { return nullptr; };
        context.restoreMode = [this] { return m_restore; };
        context.mainViewVisible = [] { return true; };
        context.fileManager = [] { return nullptr; };
        m_controller = std::make_unique<CVSpanLocationController>(
            m_settings, m_library.get(), m_presenter.get(), m_view.get(), m_view.get(), std::move(context));
    }
    void cleanup()
    {
        m_controller.reset();
        m_view.reset();
        m_presenter.reset();
        tearDownParts();
    }

    void containersAreNoLocationAndTheViewFollows()
    {
        QSignalSpy changed(m_controller.get(), &CVSpanLocationController::locationChanged);
        const QString folder = folderNamed(u"Films"_s);
        m_controller->setSpanLocation(folder, false);
        QCOMPARE(m_controller->spanLocation(), folder);
        QCOMPARE(m_view->locationName(), m_library->createDisplayTitleForPath(folder));
        for (const QString &container : { u"/Volumes"_s, u"/Network"_s }) {
            m_controller->setSpanLocation(container, false);
            QVERIFY2(m_controller->spanLocation().isEmpty(), qPrintable(container));
        }
        QCOMPARE(changed.count(), 3);
        QCOMPARE(changed.last().first().toString(), QString());
    }

    void aCrashedRunKeepsItsLocation()
    {
        const QString folder = folderNamed(u"Films"_s);
        m_controller->setSpanLocation(folder, false);
        m_crashed = true;
        m_controller->setSpanLocation(folderNamed(u"Other"_s), false);
        m_controller->spanLocationDropped(folderNamed(u"Other"_s));
        QCOMPARE(m_controller->spanLocation(), folder);
    }

    void savedWhenAutosaveIsOnAndNeverChosenInRestoreMode()
    {
        m_settings->setValue(CVSettingsKey::AutosaveSpanLocation, true);
        const QString folder = folderNamed(u"Films"_s);
        m_controller->spanLocationDropped(folder);
        QCOMPARE(m_settings->stringValue(CVSettingsKey::SavedSpanLocation), folder);
        m_restore = true;
        m_controller->spanLocationDropped(folderNamed(u"Other"_s));
        QCOMPARE(m_controller->spanLocation(), folder);
        // A location set in restore mode (the settings at start) saves the mode, not the folder.
        m_controller->setSpanLocation(folderNamed(u"Other"_s), false);
        QCOMPARE(m_settings->stringValue(CVSettingsKey::SavedSpanLocation), u"CVRestoreMode"_s);
    }

    void historyKeepsTheFiveNewestOnce()
    {
        QStringList folders;
        for (int i = 0; i < 7; ++i)
            folders.append(folderNamed(u"F%1"_s.arg(i)));
        for (const QString &f : std::as_const(folders))
            m_controller->addLocationToHistory(f);
        m_controller->addLocationToHistory(folders[3]);
        QCOMPARE(m_controller->spanLocationHistory(),
            (QStringList { folders[3], folders[6], folders[5], folders[4], folders[2] }));
        // The current location goes in, and out again.
        m_controller->setSpanLocation(folders[0], false);
        m_controller->addOrRemoveLocationToHistory();
        QCOMPARE(m_controller->spanLocationHistory().first(), folders[0]);
        m_controller->addOrRemoveLocationToHistory();
        QVERIFY(!m_controller->spanLocationHistory().contains(folders[0]));
    }

    void aChangeIsConfirmed()
    {
        const QString first = folderNamed(u"First"_s), second = folderNamed(u"Second"_s);
        // Nothing chosen yet: no question.
        m_controller->changeSpanLocationWithConfirmation(first);
        QCOMPARE(m_controller->spanLocation(), first);
        QVERIFY(m_presenter->shownAlerts().isEmpty());
        m_controller->changeSpanLocationWithConfirmation(first);
        QVERIFY(m_presenter->shownAlerts().isEmpty());
        m_presenter->queueAnswer(CVPresenter::AlternateReturn);
        m_controller->changeSpanLocationWithConfirmation(second);
        QTRY_COMPARE(m_presenter->shownAlerts().size(), 1);
        QVERIFY(m_presenter->shownAlerts().first().title.contains(u"change the current span location"_s));
        QTest::qWait(10);
        QCOMPARE(m_controller->spanLocation(), first);
        m_presenter->queueAnswer(CVPresenter::DefaultReturn);
        m_controller->changeSpanLocationWithConfirmation(second);
        QTRY_COMPARE(m_controller->spanLocation(), second);
    }

private:
    QString folderNamed(const QString &name)
    {
        const QString path = m_env->filePath(name);
        QDir().mkpath(path);
        return path;
    }

    std::unique_ptr<CVSheetPresenter> m_presenter;
    std::unique_ptr<CVSpanLocationView> m_view;
    std::unique_ptr<CVSpanLocationController> m_controller;
    bool m_crashed = false;
    bool m_restore = false;
};

QTEST_MAIN(TestSpanLocationController)
#include "tst_spanlocationcontroller.moc"
