// The preferences panes on their own, over the settings of a temporary home: every control
// writes its key at once, reads it back when shown, and keeps the rules between controls.
#include "CVTestEnvironment.h"
#include "Platform/CVHUserDefaults.h"
#include "Platform/CVHelperApplicationControl.h"
#include "Platform/CVSettings.h"
#include "Preferences/AdvancedPreferences.h"
#include "Preferences/CVColumnTokensModel.h"
#include "Preferences/CVPrefsWindowController.h"
#include "Preferences/CVUpdateChecker.h"
#include "Preferences/CorvanaHelperPreferences.h"
#include "Preferences/GeneralPreferences.h"
#include "Preferences/UpdatingPreferences.h"
#include "Views/CVSegmentedControl.h"

#include <QAbstractButton>
#include <QAbstractItemModelTester>
#include <QCheckBox>
#include <QLabel>
#include <QMimeData>
#include <QPushButton>
#include <QToolBar>
#include <QtTest>

using namespace Qt::StringLiterals;

class TestPreferences : public QObject {
    Q_OBJECT

private:
    void click(CVSegmentedControl *control, int segment) { control->button(segment)->click(); }
    QStringList searchFields() const { return m_settings->stringListValue(CVSettingsKey::SearchFields); }

    std::unique_ptr<CVTestEnvironment> m_env;
    CVSettings *m_settings = nullptr;
    std::unique_ptr<CVUpdateChecker> m_checker;
    std::unique_ptr<CVHelperApplicationControl> m_control;
    std::unique_ptr<CVHUserDefaults> m_helperDefaults;
    std::unique_ptr<CVPrefsWindowController> m_window;
    int m_launches = 0;
    int m_quits = 0;
    int m_beeps = 0;

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<CVTestEnvironment>();
        m_settings = &m_env->settings();
        m_checker = std::make_unique<CVUpdateChecker>(m_settings, u"0.1.0"_s);
        m_control = std::make_unique<CVHelperApplicationControl>();
        m_helperDefaults = std::make_unique<CVHUserDefaults>();
        m_window = std::make_unique<CVPrefsWindowController>(
            m_settings, m_checker.get(), m_control.get(), m_helperDefaults.get());
        m_launches = m_quits = m_beeps = 0;
        m_window->helperPreferences()->setHelperActions(
            { [this] { ++m_launches; }, [this] { ++m_quits; }, [this] { ++m_beeps; } });
        m_window->show();
    }

    void cleanup()
    {
        m_window.reset();
        m_helperDefaults.reset();
        m_checker.reset();
        m_env.reset();
    }

    void searchFieldsKeepNameWhenNothingElseIsChosen()
    {
        GeneralPreferences *pane = m_window->generalPreferences();
        m_window->showPane(CVPrefsWindowController::General);
        for (int i = 0; i < 4; ++i)
            QVERIFY(pane->searchFields->isSelected(i));
        click(pane->searchFields, 0);
        QCOMPARE(searchFields(), (QStringList { u"Artist"_s, u"Album"_s, u"Name"_s }));
        // Name may go while another field stays.
        click(pane->searchFields, 3);
        QCOMPARE(searchFields(), (QStringList { u"Artist"_s, u"Album"_s }));
        click(pane->searchFields, 1);
        click(pane->searchFields, 2);
        QCOMPARE(searchFields(), QStringList { u"Name"_s });
        QVERIFY(pane->searchFields->isSelected(3));
        // The last field cannot be taken away.
        click(pane->searchFields, 3);
        QCOMPARE(searchFields(), QStringList { u"Name"_s });
        QVERIFY(pane->searchFields->isSelected(3));
        // Chosen again in any order, stored in the fields' order.
        click(pane->searchFields, 2);
        click(pane->searchFields, 0);
        QCOMPARE(searchFields(), (QStringList { u"Genre"_s, u"Album"_s, u"Name"_s }));
    }

    void generalPaneWritesAndReadsEveryKey()
    {
        GeneralPreferences *pane = m_window->generalPreferences();
        m_window->showPane(CVPrefsWindowController::General);
        QCOMPARE(pane->browserMedia->selectedSegment(), 1);
        click(pane->browserMedia, 0);
        QCOMPARE(m_settings->stringValue(CVSettingsKey::DefaultBrowserMedia), u"All"_s);
        QVERIFY(!m_settings->boolValue(CVSettingsKey::RememberLastBrowserMedia));
        // Remembering leaves the default media as it was.
        click(pane->browserMedia, 2);
        QVERIFY(m_settings->boolValue(CVSettingsKey::RememberLastBrowserMedia));
        QCOMPARE(m_settings->stringValue(CVSettingsKey::DefaultBrowserMedia), u"All"_s);
        click(pane->browserMedia, 1);
        QCOMPARE(m_settings->stringValue(CVSettingsKey::DefaultBrowserMedia), u"Music"_s);
        QVERIFY(!m_settings->boolValue(CVSettingsKey::RememberLastBrowserMedia));

        const QList<QPair<QCheckBox *, CVSettingsKey>> boxes {
            { pane->groupCompilations, CVSettingsKey::GroupCompilationsInBrowser },
            { pane->useAlbumArtists, CVSettingsKey::UseAlbumArtistsInBrowser },
            { pane->browserOnTop, CVSettingsKey::ColumnBrowserOnTop },
            { pane->animateWindow, CVSettingsKey::CubeAnimateWindow },
            { pane->dropSounds, CVSettingsKey::PlaySpanQueueDropSounds },
        };
        for (const auto &[box, key] : boxes) {
            QVERIFY2(box->isChecked(), qPrintable(CVSettings::name(key)));
            box->click();
            QVERIFY2(m_settings->contains(key) && !m_settings->boolValue(key), qPrintable(CVSettings::name(key)));
        }

        // Values changed elsewhere show when the pane is shown again.
        m_settings->setValue(CVSettingsKey::SearchFields, QStringList { u"Artist"_s });
        m_settings->setValue(CVSettingsKey::RememberLastBrowserMedia, true);
        m_settings->setValue(CVSettingsKey::ColumnBrowserOnTop, true);
        m_window->showPane(CVPrefsWindowController::Advanced);
        m_window->showPane(CVPrefsWindowController::General);
        QVERIFY(pane->searchFields->isSelected(1) && !pane->searchFields->isSelected(3));
        QCOMPARE(pane->browserMedia->selectedSegment(), 2);
        QVERIFY(pane->browserOnTop->isChecked());
    }

    void advancedPaneRules()
    {
        AdvancedPreferences *pane = m_window->advancedPreferences();
        m_window->showPane(CVPrefsWindowController::Advanced);
        QCOMPARE(pane->saveQueue->selectedSegment(), 1);
        click(pane->saveQueue, 0);
        QVERIFY(!m_settings->boolValue(CVSettingsKey::AutosaveSpanningQueue));

        // The clear-after-span box follows location saving: off shows it checked and disabled,
        // whatever is stored, and writes nothing.
        pane->clearSpanLocation->click();
        QVERIFY(!m_settings->boolValue(CVSettingsKey::ClearSpanLocationAfterSpan));
        click(pane->saveSpanLocation, 0);
        QVERIFY(!m_settings->boolValue(CVSettingsKey::AutosaveSpanLocation));
        QVERIFY(!pane->clearSpanLocation->isEnabled());
        QVERIFY(pane->clearSpanLocation->isChecked());
        QVERIFY(!m_settings->boolValue(CVSettingsKey::ClearSpanLocationAfterSpan));
        click(pane->saveSpanLocation, 1);
        QVERIFY(pane->clearSpanLocation->isEnabled());
        QVERIFY(!pane->clearSpanLocation->isChecked());

        QCOMPARE(pane->reattempts->selectedSegment(), 2);
        click(pane->reattempts, 4);
        QCOMPARE(m_settings->integerValue(CVSettingsKey::FullSpanReattempts), 4);
        // During a run the count cannot change; the control says so at once.
        m_settings->setValue(CVSettingsKey::IsSpanning, true);
        QVERIFY(!pane->reattempts->isEnabled());
        Q_EMIT pane->reattempts->segmentClicked(0);
        QCOMPARE(m_settings->integerValue(CVSettingsKey::FullSpanReattempts), 4);
        QCOMPARE(pane->reattempts->selectedSegment(), 4);
        m_settings->setValue(CVSettingsKey::IsSpanning, false);
        QVERIFY(pane->reattempts->isEnabled());

        QCOMPARE(pane->windowsFileNames->selectedSegment(), 0);
        click(pane->windowsFileNames, 1);
        QCOMPARE(m_settings->stringValue(CVSettingsKey::WindowsFileNames), u"always"_s);
        click(pane->windowsFileNames, 2);
        QCOMPARE(m_settings->stringValue(CVSettingsKey::WindowsFileNames), u"never"_s);
        QCOMPARE(pane->player->selectedSegment(), 0);
        click(pane->player, 3);
        QCOMPARE(m_settings->stringValue(CVSettingsKey::Player), u"rhythmbox"_s);
        click(pane->player, 4);
        QCOMPARE(m_settings->stringValue(CVSettingsKey::Player), u"strawberry"_s);
        QVERIFY(!pane->relaunchPlayer->isChecked());
        pane->relaunchPlayer->click();
        QVERIFY(m_settings->boolValue(CVSettingsKey::RelaunchPlayerAfterRun));
        click(pane->player, 1);
        QCOMPARE(m_settings->stringValue(CVSettingsKey::Player), u"itunes-file"_s);
        // A value written by hand that is no choice shows none.
        m_settings->setValue(CVSettingsKey::Player, u"winamp"_s);
        pane->reloadNibOutlets();
        QCOMPARE(pane->player->selectedSegment(), -1);
    }

    void updatingPaneWithoutAndWithAFeed()
    {
        UpdatingPreferences *pane = m_window->updatingPreferences();
        m_window->showPane(CVPrefsWindowController::Updating);
        if (CVUpdateChecker::builtInFeedUrl().isEmpty()) {
            QVERIFY(pane->noFeed->isVisible());
            QVERIFY(!pane->checkNow->isEnabled());
            QVERIFY(!pane->automaticChecks->isEnabled());
        }
        m_settings->setValue(CVSettingsKey::SUFeedURL, u"http://127.0.0.1:9/appcast.xml"_s);
        pane->reloadNibOutlets();
        QVERIFY(!pane->noFeed->isVisible());
        QVERIFY(pane->checkNow->isEnabled());
        QCOMPARE(pane->lastCheck->text(), u"Never"_s);
        QCOMPARE(pane->automaticChecks->selectedSegment(), 1);
        QVERIFY(pane->checkInterval->isEnabled());
        QCOMPARE(pane->checkInterval->selectedSegment(), 1);
        const qint64 seconds[] = { 3600, 86400, 604800, 2629744 };
        for (int i = 0; i < 4; ++i) {
            click(pane->checkInterval, i);
            QCOMPARE(m_settings->integerValue(CVSettingsKey::SUScheduledCheckInterval), seconds[i]);
        }
        // An interval that is none of the segments selects none.
        m_settings->setValue(CVSettingsKey::SUScheduledCheckInterval, 7200);
        pane->reloadNibOutlets();
        QCOMPARE(pane->checkInterval->selectedSegment(), -1);
        click(pane->automaticChecks, 0);
        QVERIFY(!m_settings->boolValue(CVSettingsKey::SUEnableAutomaticChecks));
        QVERIFY(!pane->checkInterval->isEnabled());
        QVERIFY(!m_checker->nextCheck().isValid());
        click(pane->automaticChecks, 1);
        QVERIFY(m_settings->boolValue(CVSettingsKey::SUEnableAutomaticChecks));
        QVERIFY(pane->checkInterval->isEnabled());
        QVERIFY(m_checker->nextCheck().isValid());
        m_settings->setValue(CVSettingsKey::SULastCheckTime, QDateTime::currentSecsSinceEpoch());
        QVERIFY(pane->lastCheck->text() != u"Never"_s);
    }

    void helperPaneWritesTheHelpersSettings()
    {
        CorvanaHelperPreferences *pane = m_window->helperPreferences();
        m_window->showPane(CVPrefsWindowController::Helper);
        QCOMPARE(pane->menubarItem->selectedSegment(), 1);
        click(pane->menubarItem, 0);
        QCOMPARE(m_helperDefaults->integerForKey(CVHSettingsKey::ShowInMenubar), 0);
        QCOMPARE(m_quits, 1);
        QCOMPARE(m_launches, 1);
        // The same value again: no restart.
        click(pane->menubarItem, 0);
        QCOMPARE(m_launches, 1);
        // During a run the value is kept but the restart refused with a beep.
        m_settings->setValue(CVSettingsKey::IsSpanning, true);
        click(pane->menubarItem, 1);
        QCOMPARE(m_helperDefaults->integerForKey(CVHSettingsKey::ShowInMenubar), 1);
        QCOMPARE(m_quits, 1);
        QCOMPARE(m_launches, 1);
        QCOMPARE(m_beeps, 1);
        pane->launchHelper->click();
        QCOMPARE(m_launches, 1);
        QCOMPARE(m_beeps, 2);
        m_settings->setValue(CVSettingsKey::IsSpanning, false);
        pane->launchHelper->click();
        QCOMPARE(m_launches, 2);

        click(pane->alwaysRun, 1);
        QCOMPARE(m_helperDefaults->integerForKey(CVHSettingsKey::AllowedToAlwaysRun), 1);

        // Suppression boxes store what they show; warning boxes store the opposite.
        QVERIFY(!pane->loginItemAlert->isChecked());
        pane->loginItemAlert->click();
        QVERIFY(m_helperDefaults->boolForKey(CVHSettingsKey::LoginItemAlertSupress));
        pane->notNecessaryAlert->click();
        QVERIFY(m_helperDefaults->boolForKey(CVHSettingsKey::NotNecessaryAlertSupress));
        QVERIFY(pane->warnWhenPlayerLaunches->isChecked());
        QVERIFY(!pane->warnWhenDrivesUnmount->isChecked());
        QVERIFY(pane->warnWhenFilesMissing->isChecked());
        pane->warnWhenPlayerLaunches->click();
        QVERIFY(m_helperDefaults->boolForKey(CVHSettingsKey::TracksUnavailableWhenITunesLaunchesAlertSupress));
        pane->warnWhenDrivesUnmount->click();
        QVERIFY(!m_helperDefaults->boolForKey(CVHSettingsKey::TracksUnavailableWhenDrivesUnmountAlertSupress));
        pane->warnWhenFilesMissing->click();
        QVERIFY(m_helperDefaults->boolForKey(CVHSettingsKey::TracksUnavailableWhenFilesMissingAlertSupress));

        // Another copy of the helper's settings (the helper's own) reads what was written.
        CVHUserDefaults helperSide;
        QCOMPARE(helperSide.integerForKey(CVHSettingsKey::AllowedToAlwaysRun), 1);
        QVERIFY(!helperSide.boolForKey(CVHSettingsKey::TracksUnavailableWhenDrivesUnmountAlertSupress));

        click(pane->loginItem, 1);
        QCOMPARE(pane->loginItem->selectedSegment(), m_control->inLoginItems() ? 1 : 0);
        click(pane->loginItem, 0);
        QVERIFY(!m_control->inLoginItems());
        QCOMPARE(pane->loginItem->selectedSegment(), 0);
    }

    void everyControlCanBeReachedAndNamed()
    {
        for (int p = CVPrefsWindowController::General; p <= CVPrefsWindowController::Helper; ++p) {
            m_window->showPane(p);
            QCOMPARE(m_window->currentPane(), p);
            for (QWidget *w : m_window->pane(p)->findChildren<QWidget *>()) {
                if (qobject_cast<QLabel *>(w) || !w->isVisibleTo(m_window.get()))
                    continue;
                const auto *button = qobject_cast<QAbstractButton *>(w);
                if (button)
                    QVERIFY2(w->focusPolicy() & Qt::TabFocus, qPrintable(w->objectName()));
                QVERIFY2(!w->accessibleName().isEmpty() || (button && !button->text().isEmpty()),
                    qPrintable(QString::fromLatin1(w->metaObject()->className()) + u' ' + w->objectName()));
            }
        }
        // The tool bar's panes answer Alt+1 … Alt+4.
        const QList<QAction *> panes = m_window->toolBar()->actions();
        QCOMPARE(panes.size(), 4);
        QCOMPARE(panes[2]->shortcut(), QKeySequence(u"Alt+3"_s));
        panes[2]->trigger();
        QCOMPARE(m_window->currentPane(), int(CVPrefsWindowController::Updating));
    }

    void columnTokensModel()
    {
        CVColumnTokensModel model;
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        model.setIdentifiers({ u"Name"_s, u"Nonsense"_s, u"Time"_s, u"Name"_s, u"SmartRows"_s, u"BPM"_s });
        QCOMPARE(model.identifiers(), (QStringList { u"Name"_s, u"Time"_s, u"SmartRows"_s, u"BPM"_s }));
        QCOMPARE(model.index(2).data().toString(), u"Smart Rows"_s);
        QCOMPARE(model.index(3).data().toString(), u"Beats Per Minute"_s);
        QCOMPARE(model.index(3).data(Qt::UserRole).toString(), u"BPM"_s);
        // Moving onto itself or just after itself is no move.
        QVERIFY(!model.moveToken(1, 1));
        QVERIFY(!model.moveToken(1, 2));
        QVERIFY(model.moveToken(0, 4));
        QCOMPARE(model.identifiers(), (QStringList { u"Time"_s, u"SmartRows"_s, u"BPM"_s, u"Name"_s }));
        // A drag within the list: the dragged row's data, dropped before row 0.
        QSignalSpy moved(&model, &CVColumnTokensModel::tokensMoved);
        std::unique_ptr<QMimeData> drag(model.mimeData({ model.index(2) }));
        QVERIFY(model.canDropMimeData(drag.get(), Qt::MoveAction, 0, 0, {}));
        QVERIFY(!model.canDropMimeData(drag.get(), Qt::CopyAction, 0, 0, {}));
        model.dropMimeData(drag.get(), Qt::MoveAction, 0, 0, {});
        QCOMPARE(moved.size(), 1);
        QCOMPARE(model.identifiers(), (QStringList { u"BPM"_s, u"Time"_s, u"SmartRows"_s, u"Name"_s }));
        // A drop of anything else is refused.
        QMimeData text;
        text.setText(u"Name"_s);
        QVERIFY(!model.canDropMimeData(&text, Qt::MoveAction, 0, 0, {}));
    }
};

QTEST_MAIN(TestPreferences)
#include "tst_preferences.moc"
