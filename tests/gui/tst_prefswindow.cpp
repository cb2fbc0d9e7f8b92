// The windows around the main one in a running program: the column display options with the
// track list following them, settings changed in the preferences taking effect in the open
// window, the update check from the menu against a feed on loopback, help and about.
#include "Browsing/CVBrowserDelegate.h"
#include "Browsing/CVTrackColumns.h"
#include "Browsing/CVTrackListModel.h"
#include "CVFeedServer.h"
#include "CVWindowDelegate.h"
#include "CVWindowSession.h"
#include "Library/CVFilter.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSheetPresenter.h"
#include "Platform/CVSettings.h"
#include "Preferences/AdvancedPreferences.h"
#include "Preferences/CVAboutWindow.h"
#include "Preferences/CVColumnDisplayOptionDelegate.h"
#include "Preferences/CVColumnTokensModel.h"
#include "Preferences/CVHelpWindow.h"
#include "Preferences/CVPrefsWindowController.h"
#include "Preferences/GeneralPreferences.h"
#include "Views/CVSegmentedControl.h"

#include <QAbstractButton>
#include <QAbstractItemModelTester>
#include <QAction>
#include <QCheckBox>
#include <QDesktopServices>
#include <QDir>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMimeData>
#include <QPushButton>
#include <QTableView>
#include <QTextBrowser>
#include <QtTest>

using namespace Qt::StringLiterals;

class UrlRecorder : public QObject {
    Q_OBJECT
public:
    QList<QUrl> urls;
public Q_SLOTS:
    void open(const QUrl &url) { urls.append(url); }
};

class TestPrefsWindow : public QObject {
    Q_OBJECT

private:
    static CVAlert waitForSheet(CVWindowSession &session)
    {
        CVSheetPresenter *presenter = session.app().presenter();
        if (!QTest::qWaitFor([presenter] { return presenter->hasOpenSheet(); }, 20000))
            qFatal("no sheet was shown");
        return presenter->openSheet();
    }

private Q_SLOTS:
    void initTestCase() { QCoreApplication::setApplicationVersion(u"0.1.0"_s); }

    void columnsFollowTheOptionsAndPersist()
    {
        CVWindowSession session({ .tracks = 120 });
        CVWindowDelegate *window = session.app().windowDelegate();
        CVBrowserDelegate *browser = window->browserDelegate();
        window->corvanaWindow()->action(u"columnOptions"_s)->trigger();
        CVColumnDisplayOptionDelegate *options = window->columnDisplayOptions();
        QVERIFY(options && options->isVisible());
        QAbstractItemModelTester tester(options->model(), QAbstractItemModelTester::FailureReportingMode::QtTest);
        const QStringList defaults = CVTrackColumns::defaultIdentifiers();
        QCOMPARE(options->tokens(), defaults);

        // Reorder by keyboard: Name one place to the right.
        options->tokenView->setCurrentIndex(options->model()->index(0));
        QVERIFY(!options->upButton->isEnabled());
        options->downButton->click();
        QCOMPARE(options->tokens().mid(0, 2), (QStringList { u"Time"_s, u"Name"_s }));
        QCOMPARE(browser->getVisibleColumns(), options->tokens());
        // Reorder by drag: the last token dropped first.
        const int last = options->model()->rowCount() - 1;
        std::unique_ptr<QMimeData> drag(options->model()->mimeData({ options->model()->index(last) }));
        options->model()->dropMimeData(drag.get(), Qt::MoveAction, 0, 0, {});
        QCOMPARE(options->tokens().first(), defaults.last());
        QCOMPARE(browser->getVisibleColumns(), options->tokens());

        // Add after the selected token, remove the selected one.
        options->tokenView->setCurrentIndex(options->model()->index(0));
        options->addColumn(u"Year"_s);
        QCOMPARE(options->tokens().value(1), u"Year"_s);
        QCOMPARE(browser->getVisibleColumns().value(1), u"Year"_s);
        options->tokenView->setCurrentIndex(options->model()->index(int(options->tokens().indexOf(u"Plays"_s))));
        options->removeButton->click();
        QVERIFY(!browser->getVisibleColumns().contains(u"Plays"_s));

        // The smart column keeps to its side.
        options->addColumn(u"SmartRows"_s);
        QCOMPARE(options->tokens().first(), u"SmartRows"_s);
        QCOMPARE(options->smartButton->text(), u"Move Smart Column to Right"_s);
        options->smartButton->click();
        QCOMPARE(options->tokens().last(), u"SmartRows"_s);
        QCOMPARE(browser->getVisibleColumns().last(), u"SmartRows"_s);
        QCOMPARE(options->smartButton->text(), u"Move Smart Column to Left"_s);
        QCOMPARE(session.app().settings()->integerValue(CVSettingsKey::TrackListSmartColumnPosition), 1);
        // Its cells say where a track stands.
        const int smart = CVTrackColumns::indexOf(u"SmartRows"_s);
        const CVTrack *track = browser->trackModel()->track(0);
        QVERIFY(track);
        QCOMPARE(CVTrackListModel::cellText(*track, smart).isEmpty(),
            !track->flag(CVAttr::ItemIsSpanned) && !track->flag(CVAttr::ItemIsRestored));

        // A column moved in the track list itself shows in the options.
        QHeaderView *header = window->corvanaWindow()->trackView->horizontalHeader();
        header->moveSection(header->visualIndex(CVTrackColumns::indexOf(u"Genre"_s)), 0);
        QCOMPARE(options->tokens(), browser->getVisibleColumns());

        // Its Help opens the page about columns.
        Q_EMIT options->helpRequested();
        QVERIFY(window->helpWindow() && window->helpWindow()->isVisible());
        QVERIFY(window->helpWindow()->browser()->source().path().endsWith(u"/preferences.html"_s));

        // Everything is kept across starts.
        const QStringList chosen = browser->getVisibleColumns();
        options->close();
        session.app().terminate();
        session.restart();
        QCOMPARE(session.app().windowDelegate()->browserDelegate()->getVisibleColumns(), chosen);

        // The last column cannot go; reset brings the defaults back.
        session.app().windowDelegate()->showColumnDisplayOptions();
        options = session.app().windowDelegate()->columnDisplayOptions();
        QCOMPARE(options->tokens(), chosen);
        options->setTokens({ u"Album"_s });
        options->tokenView->setCurrentIndex(options->model()->index(0));
        QVERIFY(!options->removeButton->isEnabled());
        options->removeSelectedColumn();
        QCOMPARE(options->tokens(), QStringList { u"Album"_s });
        options->resetButton->click();
        QCOMPARE(options->tokens(), defaults);
        QCOMPARE(session.app().windowDelegate()->browserDelegate()->getVisibleColumns(), defaults);
    }

    void preferencesTakeEffectInTheOpenWindow()
    {
        CVWindowSession session({ .tracks = 300 });
        CVWindowDelegate *window = session.app().windowDelegate();
        CVBrowserDelegate *browser = window->browserDelegate();
        CVMainWindow *w = window->corvanaWindow();
        browser->setMediaFilter(u"All"_s);
        QTest::keyClicks(w->searchField, u"ro"_s);
        const int everywhere = browser->trackModel()->rowCount();
        QVERIFY(everywhere > 0);

        w->action(u"preferences"_s)->trigger();
        CVPrefsWindowController *prefs = window->prefsWindow();
        QVERIFY(prefs && prefs->isVisible());
        GeneralPreferences *general = prefs->generalPreferences();
        // Searching names only: the search runs again at once and the menu follows.
        for (int segment : { 0, 1, 2 })
            general->searchFields->button(segment)->click();
        QVERIFY(!w->action(u"searchFieldGenre"_s)->isChecked());
        QVERIFY(w->action(u"searchFieldName"_s)->isChecked());
        const int names = browser->trackModel()->rowCount();
        QVERIFY(names < everywhere);
        for (int r = 0; r < names; ++r) {
            const QString name = CVFilter::foldText(
                browser->trackModel()->track(r)->text(CVAttr::Name), CVFilter::CaseFold | CVFilter::DiacriticFold);
            QVERIFY2(name.contains(u"ro"_s), qPrintable(name));
        }

        // The browser's place follows the box, and so does the View menu.
        QVERIFY(w->browserOnTop());
        general->browserOnTop->click();
        QVERIFY(!w->action(u"browserOnTop"_s)->isChecked());
        QVERIFY(!w->browserOnTop());
        // So does the fading of the views.
        QVERIFY(w->animatesViewChanges());
        general->animateWindow->click();
        QVERIFY(!w->animatesViewChanges());

        // The queue and the span location: saved when switched on, forgotten when switched off.
        CVSettings *settings = session.app().settings();
        AdvancedPreferences *advanced = prefs->advancedPreferences();
        prefs->showPane(CVPrefsWindowController::Advanced);
        advanced->saveQueue->button(0)->click();
        window->performDrop(CVPredicate::fromText(u"( MediaType == 'Movies' )"_s));
        QVERIFY(!settings->contains(CVSettingsKey::SavedSpanningQueue));
        advanced->saveQueue->button(1)->click();
        QVERIFY(settings->contains(CVSettingsKey::SavedSpanningQueue));
        // Off and on again with the queue unchanged: saved again all the same.
        advanced->saveQueue->button(0)->click();
        QVERIFY(!settings->contains(CVSettingsKey::SavedSpanningQueue));
        advanced->saveQueue->button(1)->click();
        QVERIFY(settings->contains(CVSettingsKey::SavedSpanningQueue));
        const QString folder = session.home.filePath(u"Out"_s);
        QDir().mkpath(folder);
        window->setSpanLocation(folder, false);
        advanced->saveSpanLocation->button(0)->click();
        QVERIFY(!settings->contains(CVSettingsKey::SavedSpanLocation));
        advanced->saveSpanLocation->button(1)->click();
        QCOMPARE(settings->stringValue(CVSettingsKey::SavedSpanLocation), folder);

        // The Settings menu stays open to a run; the Help button opens the pane's help.
        QVERIFY(w->action(u"preferences"_s)->isEnabled());
        prefs->showPane(CVPrefsWindowController::Helper);
        Q_EMIT prefs->helpRequested(u"helper.html"_s);
        QVERIFY(window->helpWindow() && window->helpWindow()->isVisible());
        QVERIFY(window->helpWindow()->browser()->source().path().endsWith(u"/helper.html"_s));
    }

    void updateCheckFromTheMenu()
    {
        CVWindowSession session({ .tracks = 60 });
        CVWindowDelegate *window = session.app().windowDelegate();
        CVSheetPresenter *presenter = session.app().presenter();
        QAction *check = window->corvanaWindow()->action(u"checkForUpdates"_s);
        UrlRecorder web;
        QDesktopServices::setUrlHandler(u"https"_s, &web, "open");
        const auto restoreHandler = qScopeGuard([] { QDesktopServices::unsetUrlHandler(u"https"_s); });

        // Without a feed: said so, nothing fetched.
        session.app().settings()->setValue(CVSettingsKey::SUFeedURL, QString());
        check->trigger();
        CVAlert sheet = waitForSheet(session);
        QVERIFY2(sheet.title.contains(u"checks for no updates"_s), qPrintable(sheet.title));
        presenter->answerSheet(CVPresenter::DefaultReturn);

        CVFeedServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        session.app().settings()->setValue(CVSettingsKey::SUFeedURL, server.url());
        const QString current = QCoreApplication::applicationVersion();
        server.body = CVFeedServer::appcast(CVFeedServer::item("99.0", "99.0"));
        check->trigger();
        sheet = waitForSheet(session);
        QCOMPARE(sheet.title, u"\nA new version of Corvana is available!"_s);
        QVERIFY2(sheet.text.contains(u"99.0"_s), qPrintable(sheet.text));
        QCOMPARE(sheet.defaultButton, u"Show Release Notes"_s);
        presenter->answerSheet(CVPresenter::DefaultReturn);
        QCOMPARE(web.urls, QList<QUrl> { QUrl(u"https://corvana.org/notes/99.0.html"_s) });
        QVERIFY(session.app().settings()->integerValue(CVSettingsKey::SULastCheckTime) > 0);

        // "Later" opens nothing.
        check->trigger();
        waitForSheet(session);
        presenter->answerSheet(CVPresenter::AlternateReturn);
        QCOMPARE(web.urls.size(), 1);

        // The same version: up to date.
        server.body = CVFeedServer::appcast(CVFeedServer::item(current.toUtf8().constData(), "same"));
        check->trigger();
        sheet = waitForSheet(session);
        QCOMPARE(sheet.title, u"\nCorvana is up to date."_s);
        presenter->answerSheet(CVPresenter::DefaultReturn);

        // A scheduled check that finds nothing new stays silent; one that fails too.
        server.body = "not a feed";
        session.app().updateChecker()->checkForUpdates(false);
        QTRY_VERIFY(!session.app().updateChecker()->isChecking());
        QTest::qWait(50);
        QVERIFY(!presenter->hasOpenSheet());
        // By hand it is reported.
        check->trigger();
        sheet = waitForSheet(session);
        QCOMPARE(sheet.title, u"\nCorvana could not check for updates."_s);
        presenter->answerSheet(CVPresenter::DefaultReturn);
    }

    void helpAndAbout()
    {
        CVWindowSession session({ .tracks = 30 });
        CVWindowDelegate *window = session.app().windowDelegate();
        CVMainWindow *w = window->corvanaWindow();
        QCOMPARE(w->action(u"help"_s)->shortcut(), QKeySequence(QKeySequence::HelpContents));
        w->action(u"help"_s)->trigger();
        CVHelpWindow *help = window->helpWindow();
        QVERIFY(help && help->isVisible());
        QVERIFY2(help->browser()->source().path().endsWith(u"/help/index.html"_s),
            qPrintable(help->browser()->source().toString()));
        QCOMPARE(help->browser()->documentTitle(), u"Corvana Help"_s);
        // Links between the pages are followed inside the window.
        window->showHelp(u"dependent.html"_s);
        QVERIFY(help->browser()->source().path().endsWith(u"/dependent.html"_s));
        QVERIFY(help->windowTitle().startsWith(u"Corvana Help — "_s));
        help->browser()->backward();
        QVERIFY(help->browser()->source().path().endsWith(u"/index.html"_s));
        // A page that is not there falls back to the contents.
        window->showHelp(u"no-such-page.html"_s);
        QVERIFY(help->browser()->source().path().endsWith(u"/index.html"_s));

        w->action(u"about"_s)->trigger();
        CVAboutWindow *about = window->aboutWindow();
        QVERIFY(about && about->isVisible());
        QVERIFY(about->versionLabel->text().contains(QCoreApplication::applicationVersion()));
        QVERIFY(about->versionLabel->text().contains(QString::fromLatin1(qVersion())));
        QVERIFY(about->licenceLabel->text().contains(u"GPL-3.0"_s));
    }
};

QTEST_MAIN(TestPrefsWindow)
#include "tst_prefswindow.moc"
