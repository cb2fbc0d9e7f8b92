// Runs from the window: the refusals and the confirmation, real span, restore and update runs
// through the window with the library-file link (to a folder and to a drive), pause, resume and
// skip, quitting during a run, the menus a run takes away, the results view and the Trash.
#include "Browsing/CVBrowserDelegate.h"
#include "CVSheetAnswer.h"
#include "CVTestMounts.h"
#include "CVWindowDelegate.h"
#include "CVWindowSession.h"
#include "Engine/CVMediaSpanner.h"
#include "Engine/CVSpannerRunHost.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVResultsModel.h"
#include "MainWindow/CVRunProgress.h"
#include "MainWindow/CVSheetPresenter.h"
#include "MainWindow/CVSounds.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVSettings.h"
#include "Platform/CVTrash.h"
#include "Platform/CVVolumes.h"
#include "Views/CVLoadingView.h"
#include "Views/CVResultsView.h"
#include "Views/CVSpanLocationView.h"
#include "Views/CVSpanningView.h"

#include <QAbstractItemModelTester>
#include <QAction>
#include <QDesktopServices>
#include <QDirIterator>
#include <QListView>
#include <QMenu>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int kRunTimeoutMs = 120000;

CVPredicate text(const QString &predicate)
{
    return CVPredicate::fromText(predicate);
}

int trashedFiles()
{
    return int(QDir(CVTrash::homeTrashFolder() + u"/files"_s)
                   .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden)
                   .size());
}

// Sets a track's "Size" in the library file: what the space check adds up.
void setLibrarySize(const QString &libraryFile, const QString &persistentID, qint64 size)
{
    QFile file(libraryFile);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QByteArray xml = file.readAll();
    file.close();
    const QByteArray idEntry = "<key>Persistent ID</key><string>" + persistentID.toLatin1() + "</string>";
    const qsizetype at = xml.indexOf(idEntry);
    QVERIFY(at > 0);
    const QByteArray key = "<key>Size</key><integer>";
    const qsizetype from = xml.lastIndexOf(key, at) + key.size();
    const qsizetype to = xml.indexOf("</integer>", from);
    QVERIFY(from > key.size() && to > from);
    xml.replace(from, to - from, QByteArray::number(size));
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(xml);
}

// Pauses the next run before its first track, the moment its view comes (the worker waits).
void pauseAtStart(CVMediaSpanner *spanner)
{
    auto *connection = new QMetaObject::Connection;
    *connection = QObject::connect(
        spanner, &CVMediaSpanner::viewChangeRequested, spanner,
        [spanner, connection](int view) {
            if (view != int(CVSpannerRunHost::View::Spanning))
                return;
            spanner->setPauseSpan(true);
            QObject::disconnect(*connection);
            delete connection;
        },
        Qt::DirectConnection);
}

} // namespace

// Takes the web pages the program opens, instead of a browser.
class UrlRecorder : public QObject {
    Q_OBJECT
public:
    QStringList urls;
public Q_SLOTS:
    void open(const QUrl &url) { urls.append(url.toString()); }
};

class TestRun : public QObject {
    Q_OBJECT

private:
    // The confirmation of the queue's run, answered; the run goes on its worker.
    static void confirm(CVWindowSession &session, const QString &expectedTitle = {})
    {
        CVWindowDelegate *window = session.app().windowDelegate();
        CVSheetPresenter *presenter = session.app().presenter();
        window->spanLibrary();
        QVERIFY(presenter->hasOpenSheet());
        QVERIFY2(presenter->openSheet().title.startsWith(u"Are you sure you want to "_s),
            qPrintable(QString(presenter->openSheet().title + u" / "_s + presenter->openSheet().text).simplified()));
        if (!expectedTitle.isEmpty())
            QCOMPARE(presenter->openSheet().title, expectedTitle);
        presenter->answerSheet(CVPresenter::DefaultReturn);
        QVERIFY(session.app().isRunThreadActive());
    }

    static void waitForResults(CVWindowSession &session)
    {
        CVWindowDelegate *window = session.app().windowDelegate();
        QTRY_VERIFY_WITH_TIMEOUT(window->isResultsViewOnScreen(), kRunTimeoutMs);
        QTRY_VERIFY_WITH_TIMEOUT(!session.app().isRunThreadActive(), kRunTimeoutMs);
    }

    // "Span More": the library is read again and the main view comes back.
    static void spanMore(CVWindowSession &session)
    {
        CVWindowDelegate *window = session.app().windowDelegate();
        QSignalSpy loaded(&session.app(), &CVApplicationDelegate::loadFinished);
        window->corvanaWindow()->resultsView->spanMoreButton()->click();
        QVERIFY(loaded.wait(kRunTimeoutMs));
        QVERIFY(window->mainViewIsVisible());
    }

    static void emptyQueue(CVWindowSession &session)
    {
        session.app().windowDelegate()->clearSpanningQueue();
        if (session.app().presenter()->hasOpenSheet())
            session.app().presenter()->answerSheet(CVPresenter::DefaultReturn);
        QVERIFY(session.app().windowDelegate()->spanQueue().isEmpty());
    }

    static QList<CVTrack *> tracks(CVWindowSession &session, const QString &predicate)
    {
        const CVTrackList list = session.app().libraryManager()->selectPredicate(text(predicate));
        return QList<CVTrack *>(list->tracks.cbegin(), list->tracks.cend());
    }

private Q_SLOTS:
    void refusalsBeforeARun();
    void restoreModeIgnoresTheLocation();
    void filesNotFoundOfferLocateAndAnyway();
    void spaceIsStrictAndAskedBeforeMissingFiles();
    void asRootTheRunIsOfferedAnyway();
    void spanAndRestoreThroughTheWindow();
    void spanToADrive();
    void pauseHoldsTheRunUntilResumed();
    void skipTheRestSkipsTheRemainingTracks();
    void quitDuringARun_data();
    void quitDuringARun();
    void runTakesTheMenusUntilTheReload();
    void resultsViewActions();
    void dependentTracksOfferAndUpdate();
    void statisticsText();
};

void TestRun::refusalsBeforeARun()
{
    CVWindowSession session({ .tracks = 40 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSheetPresenter *presenter = session.app().presenter();
    const auto refusal = [&] {
        window->spanLibrary();
        const CVAlert sheet = presenter->openSheet();
        presenter->answerSheet(CVPresenter::DefaultReturn);
        return sheet;
    };
    CVAlert sheet = refusal();
    QCOMPARE(sheet.title, u"\nYou have not selected any tracks."_s);
    QCOMPARE(sheet.defaultButton, u"OK"_s);
    window->performDrop(text(u"( MediaType == 'Movies' )"_s));
    QCOMPARE(refusal().title, u"\nYou have not selected a span location."_s);
    window->setSpanLocation(session.home.filePath(u"Gone"_s), false);
    sheet = refusal();
    QCOMPARE(sheet.title, u"\nSelected span location cannot be found."_s);
    QCOMPARE(sheet.text, u"Choose a new span location."_s);
    QVERIFY(!session.app().isRunThreadActive());

    // The confirmation says track for one and tracks for more.
    const QString folder = session.home.filePath(u"Out"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    emptyQueue(session);
    const QList<CVTrack *> music = tracks(session, u"( MediaType == 'Music' )"_s);
    QVERIFY(music.size() >= 2);
    window->performDrop(text(u"( TrackID == %1 )"_s.arg(music[0]->integer(CVAttr::TrackID))));
    window->spanLibrary();
    QCOMPARE(presenter->openSheet().title,
        u"Are you sure you want to span the 1 selected track?\nAll files will be copied to 'Out (on Computer)'."_s);
    QCOMPARE(presenter->openSheet().defaultButton, u"Span"_s);
    presenter->answerSheet(CVPresenter::AlternateReturn);
    window->performDrop(text(u"( TrackID == %1 )"_s.arg(music[1]->integer(CVAttr::TrackID))));
    window->spanLibrary();
    QVERIFY(answerSheet(presenter, u"Are you sure you want to span the 2 selected tracks?"_s,
        CVPresenter::AlternateReturn, CVSheetTitle::Start));
    QVERIFY(!session.app().isRunThreadActive());
    QVERIFY(window->mainViewIsVisible());
}

void TestRun::restoreModeIgnoresTheLocation()
{
    CVWindowSession session({ .tracks = 40 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSheetPresenter *presenter = session.app().presenter();
    window->performDrop(text(u"( MediaType == 'Movies' )"_s));
    window->setSpanLocation(session.home.filePath(u"Gone"_s), false);
    window->setRestoreMode();
    QVERIFY(window->restoreMode());
    QCOMPARE(window->corvanaWindow()->spanButton->text(), u"Restore…"_s);
    window->spanLibrary();
    QVERIFY(presenter->openSheet().title.endsWith(u"\nAll files will be copied to their original locations."_s));
    QCOMPARE(presenter->openSheet().defaultButton, u"Restore"_s);
    presenter->answerSheet(CVPresenter::AlternateReturn);
    window->clearSpanLocation();
    window->spanLibrary();
    QVERIFY(answerSheet(
        presenter, u"Are you sure you want to restore the "_s, CVPresenter::AlternateReturn, CVSheetTitle::Start));
}

void TestRun::filesNotFoundOfferLocateAndAnyway()
{
    CVWindowSession session({ .tracks = 40 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSheetPresenter *presenter = session.app().presenter();
    const QList<CVTrack *> movies = tracks(session, u"( MediaType == 'Movies' )"_s);
    QVERIFY(!movies.isEmpty());
    QVERIFY(QFile::remove(movies[0]->text(CVAttr::Location)));
    const QString folder = session.home.filePath(u"Out"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    window->performDrop(text(u"( MediaType == 'Movies' )"_s));
    window->spanLibrary();
    QCOMPARE(presenter->openSheet().title, u"Files for 1 of the selected tracks could not be found."_s);
    QCOMPARE(presenter->openSheet().alternateButton, u"Locate Tracks"_s);
    QCOMPARE(presenter->openSheet().otherButton, u"Span Anyway"_s);
    presenter->answerSheet(CVPresenter::OtherReturn);
    // One pass without the check: the confirmation; then the check is back.
    QVERIFY(answerSheet(
        presenter, u"Are you sure you want to span the "_s, CVPresenter::AlternateReturn, CVSheetTitle::Start));
    window->spanLibrary();
    QCOMPARE(presenter->openSheet().title, u"Files for 1 of the selected tracks could not be found."_s);

    // Locating: the player looks for the file, the library is read again (a manual reload,
    // so restore mode would stay), the main view returns with the menus.
    QSignalSpy shown(window, &CVWindowDelegate::mainViewShown);
    presenter->answerSheet(CVPresenter::AlternateReturn);
    QVERIFY(shown.wait(kRunTimeoutMs));
    QVERIFY(session.log.contains(u"Starting locate with 1 tracks"_s));
    QVERIFY(window->corvanaWindow()->menu(u"EditSpanningQueue"_s)->isEnabled());
    QVERIFY(window->corvanaWindow()->action(u"getInfo"_s)->isEnabled());
    QTRY_VERIFY(!session.app().isRunThreadActive());
}

void TestRun::spaceIsStrictAndAskedBeforeMissingFiles()
{
    if (!CVTestMounts::available())
        QSKIP(qPrintable(u"a drive of a known size is needed: "_s + CVTestMounts::unavailableReason()));
    const QString drive = CVTestMounts::makeTmpfsDrive(u"Small"_s, "size=200m,mode=0755").root;
    QVERIFY(!drive.isEmpty());
    const auto unmount = qScopeGuard([] { CVTestMounts::removeDrives(); });
    const QString location = drive + u"/Spanned Media"_s;
    QVERIFY(QDir().mkpath(location));
    // Nothing else writes to this drive: its free space stays what it is now.
    const qint64 room = CVVolumes::freeSpaceForPath(location) - CVMediaSpanner::FreeSpaceReserve;
    QVERIFY(room > 0);

    CVWindowSession session({ .tracks = 40, .start = false });
    QStringList pids;
    QStringList paths;
    for (const auto &[pid, path] : session.libraryLocations().asKeyValueRange()) {
        if (QFileInfo(path).isFile() && pids.size() < 3) {
            pids.append(pid);
            paths.append(path);
        }
    }
    QCOMPARE(pids.size(), 3);
    setLibrarySize(session.libraryFile(), pids[0], room); // exactly free = size + 10^8
    setLibrarySize(session.libraryFile(), pids[1], room - 1);
    setLibrarySize(session.libraryFile(), pids[2], 0);
    QVERIFY(QFile::remove(paths[2]));
    session.awake();
    session.launch();
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSheetPresenter *presenter = session.app().presenter();
    window->setSpanLocation(location, false);
    const auto queueOnly = [&](const QStringList &ids) {
        emptyQueue(session);
        // By persistent ID, whatever the panes show.
        CVPredicate these = CVPredicate::forPersistentIDs(ids);
        these.setIsSavedQueue(true);
        window->performDrop(these);
        QCOMPARE(window->spanQueue().size(), ids.size());
    };
    queueOnly({ pids[0] });
    window->spanLibrary();
    QVERIFY2(presenter->openSheet().title.startsWith(u"Cannot span all the selected tracks to Spanned Media"_s),
        qPrintable(presenter->openSheet().title));
    QCOMPARE(presenter->openSheet().otherButton, u"Span Anyway"_s);
    QVERIFY(presenter->openSheet().alternateButton.isEmpty());
    presenter->answerSheet(CVPresenter::DefaultReturn);
    queueOnly({ pids[1] });
    window->spanLibrary();
    QVERIFY(answerSheet(presenter, u"Are you sure you want to span the 1 selected track?"_s,
        CVPresenter::AlternateReturn, CVSheetTitle::Start));

    // Space short and a file missing: the space first, then the files, then the confirmation.
    queueOnly({ pids[0], pids[2] });
    window->spanLibrary();
    QVERIFY(answerSheet(
        presenter, u"Cannot span all the selected tracks"_s, CVPresenter::OtherReturn, CVSheetTitle::Start));
    QVERIFY(
        answerSheet(presenter, u"Files for 1 of the selected tracks could not be found."_s, CVPresenter::OtherReturn));
    QVERIFY(answerSheet(presenter, u"Are you sure you want to span the 2 selected tracks?"_s,
        CVPresenter::AlternateReturn, CVSheetTitle::Start));
    // The overrides are spent: the next pass asks again from the start.
    window->spanLibrary();
    QVERIFY(answerSheet(
        presenter, u"Cannot span all the selected tracks"_s, CVPresenter::DefaultReturn, CVSheetTitle::Start));
}

void TestRun::asRootTheRunIsOfferedAnyway()
{
    if (::geteuid() != 0)
        QSKIP("the refusal of root needs root");
    CVWindowSession session({ .tracks = 40, .allowRoot = false });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSheetPresenter *presenter = session.app().presenter();
    QVERIFY(!session.app().spanner()->allowRoot());
    const QString folder = session.home.filePath(u"Out"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    window->performDrop(text(u"( MediaType == 'Music' )"_s));
    window->spanLibrary();
    QCOMPARE(presenter->openSheet().title, u"\nCorvana is running as the administrator (root)."_s);
    QCOMPARE(presenter->openSheet().otherButton, u"Span Anyway"_s);
    presenter->answerSheet(CVPresenter::DefaultReturn);
    QVERIFY(!session.app().spanner()->allowRoot());
    window->spanLibrary();
    presenter->answerSheet(CVPresenter::OtherReturn);
    QVERIFY(session.app().spanner()->allowRoot());
    QVERIFY(answerSheet(
        presenter, u"Are you sure you want to span the "_s, CVPresenter::AlternateReturn, CVSheetTitle::Start));
}

void TestRun::spanAndRestoreThroughTheWindow()
{
    CVWindowSession session({ .tracks = 60 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVMainWindow *w = window->corvanaWindow();
    QSignalSpy sounds(window->sounds(), &CVSounds::played);
    const QString folder = session.home.filePath(u"Spanned"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    window->performDrop(text(u"( MediaType == 'Music' )"_s));
    const int n = int(window->spanQueue().size());
    QVERIFY(n >= 5);
    QHash<QString, QString> before;
    for (const CVTrack *t : window->spanQueue())
        before.insert(t->text(CVAttr::PersistentID), t->text(CVAttr::Location));
    QSignalSpy headers(session.app().spanner(), &CVMediaSpanner::headerChanged);
    confirm(session);
    waitForResults(session);

    QCOMPARE(headers.first().at(0).toString(), u"Spanning %1 Tracks"_s.arg(n));
    CVResultsView *results = w->resultsView;
    QCOMPARE(results->headline(), u"All %1 Tracks Successfully Spanned"_s.arg(n));
    QCOMPARE(results->tally(), u"%1 tracks fully spanned"_s.arg(n));
    CVResultsModel *model = window->resultsModel();
    QAbstractItemModelTester tester(model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QCOMPARE(model->rowCount(), n);
    // Every row matches the files on disk: the copy under the location, the original gone.
    for (int r = 0; r < n; ++r) {
        const CVShownResultRow &row = model->row(r);
        QCOMPARE(row.icon, CVResultIcon::FullSuccess);
        QCOMPARE(row.message, u"Track successfully spanned to 'Spanned (on Computer)'."_s);
        const QString pid = row.trackObject->text(CVAttr::PersistentID);
        const QString span = row.trackObject->text(CVAttr::SpanLocation);
        QVERIFY(span.startsWith(folder + u'/'));
        QVERIFY(QFileInfo(span).isFile());
        QVERIFY(!QFileInfo::exists(before.value(pid)));
    }
    QCOMPARE(trashedFiles(), n + session.app().spanner()->trashedFolderCount());
    QVERIFY(results->trashSummary().startsWith(u"Moved %1 successfully copied files"_s.arg(n)));
    QVERIFY(results->trashSummary().endsWith(u" to Trash."_s));
    QVERIFY(!results->trashButtonsHidden());
    QCOMPARE(results->donateText(), u"Thanks for using Corvana! Donations appreciated."_s);
    QVERIFY(sounds.wait(5000) || !sounds.isEmpty());
    QCOMPARE(sounds.last().at(0).toString(), u"SpanComplete"_s);
    // The player (the library file) points at the copies; the location went with the run.
    const QHash<QString, QString> after = session.libraryLocations();
    for (auto [pid, path] : before.asKeyValueRange())
        QVERIFY(after.value(pid).startsWith(folder + u'/'));
    QVERIFY(window->spanLocation().isEmpty());
    QCOMPARE(session.app().settings()->stringListValue(CVSettingsKey::SpanLocationHistory).value(0), folder);
    QVERIFY(!session.app().settings()->boolValue(CVSettingsKey::IsSpanning));
    QVERIFY(session.log.contains(u"Completed span with %1 tracks: %1 tracks fully spanned"_s.arg(n)));

    // After the reload the history shows them spanned, and the queue is empty.
    spanMore(session);
    QVERIFY(window->spanQueue().isEmpty());
    QCOMPARE(tracks(session, u"( ItemIsSpanned == 1 )"_s).size(), n);

    // And back.
    window->setRestoreMode();
    window->performDrop(text(u"( ItemIsSpanned == 1 )"_s));
    confirm(session,
        u"Are you sure you want to restore the %1 selected tracks?\nAll files will be copied to their "
        "original locations."_s.arg(n));
    waitForResults(session);
    QCOMPARE(results->headline(), u"All %1 Tracks Successfully Restored"_s.arg(n));
    QCOMPARE(results->tally(), u"%1 tracks fully restored"_s.arg(n));
    for (int r = 0; r < model->rowCount(); ++r)
        QCOMPARE(model->row(r).message, u"Track successfully restored to its original location."_s);
    for (auto [pid, path] : before.asKeyValueRange())
        QVERIFY(QFileInfo(path).isFile());
    QCOMPARE(session.libraryLocations().value(before.constBegin().key()), before.constBegin().value());
    spanMore(session);
    QVERIFY(!window->restoreMode()); // the location is cleared after a run, and span mode is back
    QCOMPARE(tracks(session, u"( ItemIsRestored == 1 )"_s).size(), n);
}

void TestRun::spanToADrive()
{
    if (!CVTestMounts::available())
        QSKIP(qPrintable(u"a drive is needed: "_s + CVTestMounts::unavailableReason()));
    const QString drive = CVTestMounts::makeTmpfsDrive(u"Backup"_s, "size=512m,mode=0755").root;
    QVERIFY(!drive.isEmpty());
    const auto unmount = qScopeGuard([] { CVTestMounts::removeDrives(); });
    CVWindowSession session({ .tracks = 40 });
    session.trashRoots.append(drive);
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSheetPresenter *presenter = session.app().presenter();
    // The drive dropped on the location view: the advice to use a folder on it, taken.
    QMimeData mime;
    mime.setUrls({ QUrl::fromLocalFile(drive) });
    CVSpanLocationView *view = window->corvanaWindow()->spanLocationView;
    QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(view, &enter);
    QVERIFY(enter.isAccepted());
    QDropEvent dropped(QPointF(5, 5), Qt::CopyAction, &mime, Qt::LeftButton, {});
    QApplication::sendEvent(view, &dropped);
    QCOMPARE(presenter->openSheet().title, u"It is recommended that you span to a subfolder on any drive."_s);
    QCOMPARE(presenter->openSheet().otherButton, u"Keep 'Backup'"_s);
    presenter->answerSheet(CVPresenter::DefaultReturn);
    QCOMPARE(window->spanLocation(), drive + u"/Spanned Media"_s);
    QVERIFY(QFileInfo(window->spanLocation()).isDir());

    window->performDrop(text(u"( MediaType == 'Movies' ) OR ( MediaType == 'Books' )"_s));
    const int n = int(window->spanQueue().size());
    confirm(session);
    waitForResults(session);
    QCOMPARE(window->corvanaWindow()->resultsView->headline(), u"All %1 Tracks Successfully Spanned"_s.arg(n));
    int onDrive = 0;
    for (const QString &path : session.libraryLocations())
        onDrive += path.startsWith(drive + u"/Spanned Media/"_s) && QFileInfo(path).isFile();
    QCOMPARE(onDrive, n);
    QCOMPARE(trashedFiles(), n + session.app().spanner()->trashedFolderCount());
}

void TestRun::pauseHoldsTheRunUntilResumed()
{
    CVWindowSession session({ .tracks = 40 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSpanningView *view = window->corvanaWindow()->spanningView;
    const QString folder = session.home.filePath(u"Out"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    window->performDrop(text(u"( MediaType == 'Movies' )"_s));
    const int n = int(window->spanQueue().size());
    pauseAtStart(session.app().spanner());
    confirm(session);
    QTRY_VERIFY_WITH_TIMEOUT(view->taskLine().startsWith(u"Paused After"_s), kRunTimeoutMs);
    QVERIFY(window->isSpanningViewOnScreen());
    QCOMPARE(view->header(), u"Spanning %1 Track%2"_s.arg(n).arg(n == 1 ? u""_s : u"s"_s));
    QCOMPARE(view->pauseButton()->text(), u"Resume Spanning"_s);
    QCOMPARE(view->skipButton()->text(), u"Skip the rest…"_s);
    QVERIFY(view->statistics().contains(u"Paused"_s));
    // Nothing is copied while paused.
    QVERIFY(QDir(folder).isEmpty());
    view->pauseButton()->click();
    QCOMPARE(view->pauseButton()->text(), u"Pause Span"_s);
    waitForResults(session);
    QCOMPARE(window->corvanaWindow()->resultsView->headline(), u"All %1 Tracks Successfully Spanned"_s.arg(n));
}

void TestRun::skipTheRestSkipsTheRemainingTracks()
{
    CVWindowSession session({ .tracks = 60 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVMediaSpanner *spanner = session.app().spanner();
    CVSpanningView *view = window->corvanaWindow()->spanningView;
    const QString folder = session.home.filePath(u"Out"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    window->performDrop(text(u"( MediaType == 'Music' )"_s));
    const int n = int(window->spanQueue().size());
    QVERIFY(n >= 5);
    // The worker pauses itself after its second copy, before the third track.
    int copies = 0;
    connect(
        spanner, &CVMediaSpanner::fileCopied, this,
        [&](qint64) {
            if (++copies == 2)
                spanner->setPauseSpan(true);
        },
        Qt::DirectConnection);
    confirm(session);
    QTRY_VERIFY_WITH_TIMEOUT(view->taskLine().startsWith(u"Paused After"_s), kRunTimeoutMs);
    session.app().presenter()->queueAnswer(CVPresenter::DefaultReturn); // "Skip the Rest"
    view->skipButton()->click();
    const CVAlert asked = session.app().presenter()->shownAlerts().constLast();
    QCOMPARE(asked.title, u"Are you sure you want skip the rest?"_s);
    QCOMPARE(asked.otherButton, u"Resume Spanning"_s);
    waitForResults(session);
    CVResultsView *results = window->corvanaWindow()->resultsView;
    QCOMPARE(results->headline(), u"2 of %1 Tracks Successfully Spanned"_s.arg(n));
    QCOMPARE(results->tally(), u"2 tracks fully spanned     ·     %1 tracks skipped"_s.arg(n - 2));
    CVResultsModel *model = window->resultsModel();
    // Successes first, then the skipped.
    QCOMPARE(model->row(0).icon, CVResultIcon::FullSuccess);
    QCOMPARE(model->row(n - 1).icon, CVResultIcon::Skip);
    QCOMPARE(model->row(n - 1).message, u"You skipped the rest."_s);
    QCOMPARE(QDirIterator(folder, QDir::Files, QDirIterator::Subdirectories).hasNext(), true);
}

void TestRun::quitDuringARun_data()
{
    QTest::addColumn<int>("answer");
    QTest::addColumn<int>("successes");
    QTest::newRow("resume") << int(CVPresenter::DefaultReturn) << -1;
    QTest::newRow("skip the rest") << int(CVPresenter::AlternateReturn) << 0;
}

void TestRun::quitDuringARun()
{
    QFETCH(int, answer);
    QFETCH(int, successes);
    CVWindowSession session({ .tracks = 40 });
    CVApplicationDelegate &app = session.app();
    CVWindowDelegate *window = app.windowDelegate();
    const QString folder = session.home.filePath(u"Out"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    window->performDrop(text(u"( MediaType == 'Movies' )"_s));
    const int n = int(window->spanQueue().size());
    pauseAtStart(app.spanner());
    confirm(session);
    QTRY_VERIFY_WITH_TIMEOUT(window->isSpanningViewOnScreen(), kRunTimeoutMs);
    app.spanner()->setPauseSpan(false);
    // The window's close asks, pauses, and never quits.
    window->corvanaWindow()->close();
    QVERIFY(app.spanner()->pauseSpan());
    QCOMPARE(app.presenter()->openSheet().title, u"Cannot quit while spanning…"_s);
    app.presenter()->queueAnswer(CVPresenter::DefaultReturn); // the engine's "Skip the Rest"
    app.presenter()->answerSheet(answer);
    waitForResults(session);
    QCOMPARE(session.quits, 0);
    const CVRunResults &results = app.spanner()->lastResults();
    QCOMPARE(results.successes, successes < 0 ? n : successes);
    // Now nothing holds the quit.
    app.terminate();
    QCOMPARE(session.quits, 1);
    QVERIFY(session.log.contains(u"Quitting on my own terms..."_s));
}

void TestRun::runTakesTheMenusUntilTheReload()
{
    CVWindowSession session({ .tracks = 40 });
    CVApplicationDelegate &app = session.app();
    CVWindowDelegate *window = app.windowDelegate();
    CVMainWindow *w = window->corvanaWindow();
    const QString folder = session.home.filePath(u"Out"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    window->performDrop(text(u"( MediaType == 'Movies' )"_s));
    pauseAtStart(app.spanner());
    confirm(session);
    QTRY_VERIFY_WITH_TIMEOUT(window->isSpanningViewOnScreen(), kRunTimeoutMs);
    for (const QString &menu : { u"View"_s, u"Edit"_s, u"EditSpanningQueue"_s })
        QVERIFY(!w->menu(menu)->isEnabled());
    for (const QString &action : { u"getInfo"_s, u"clearQueue"_s, u"browseQueue"_s, u"start"_s, u"find"_s })
        QVERIFY2(!w->action(action)->isEnabled(), qPrintable(action));
    QVERIFY(!app.allowResize());
    // A second run, a reload, a queue change: none of them.
    const int sheets = int(app.presenter()->shownAlerts().size());
    window->spanLibrary();
    w->action(u"reload"_s)->trigger();
    QCOMPARE(int(app.presenter()->shownAlerts().size()), sheets);
    QVERIFY(!app.isLoadingCorvana());
    app.spanner()->setPauseSpan(false);
    waitForResults(session);
    QVERIFY(app.allowResize());
    // Still disabled on the results view; back after the reload.
    QVERIFY(!w->menu(u"EditSpanningQueue"_s)->isEnabled());
    spanMore(session);
    for (const QString &menu : { u"View"_s, u"Edit"_s, u"EditSpanningQueue"_s })
        QVERIFY(w->menu(menu)->isEnabled());
    QVERIFY(w->action(u"getInfo"_s)->isEnabled());
    QVERIFY(w->action(u"clearQueue"_s)->isEnabled());
}

void TestRun::resultsViewActions()
{
    CVWindowSession session({ .tracks = 40 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVResultsView *results = window->corvanaWindow()->resultsView;
    // What the desktop is asked to open is recorded, not opened.
    const QString record = session.home.filePath(u"opened.txt"_s);
    const QString opener = session.home.filePath(u"opener.sh"_s);
    {
        QFile script(opener);
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\necho \"$@\" >> '" + record.toUtf8() + "'\n");
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    CVFileManagerLink::shared()->setOpener(opener);
    const auto restoreOpener = qScopeGuard([] { CVFileManagerLink::shared()->setOpener(u"xdg-open"_s); });
    UrlRecorder web;
    QDesktopServices::setUrlHandler(u"https"_s, &web, "open");
    const auto restoreHandler = qScopeGuard([] { QDesktopServices::unsetUrlHandler(u"https"_s); });

    const QString folder = session.home.filePath(u"Out"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    window->performDrop(text(u"( MediaType == 'Movies' )"_s));
    const int n = int(window->spanQueue().size());
    confirm(session);
    waitForResults(session);

    // A row shown in the file manager: its copy, selected in its folder.
    results->listView()->setCurrentIndex(window->resultsModel()->index(0, 0));
    QCOMPARE(results->currentRow(), 0);
    Q_EMIT results->showInFileManagerRequested(0);
    const QString copy = window->resultsModel()->track(0)->text(CVAttr::SpanLocation);
    QTRY_VERIFY(QFile::exists(record));
    QFile recorded(record);
    QVERIFY(recorded.open(QIODevice::ReadOnly));
    QVERIFY2(recorded.readAll().contains(QFileInfo(copy).path().toUtf8()), qPrintable(copy));

    // The donation panel only opens the project's page.
    QCOMPARE(results->donateText(), u"Thanks for using Corvana! Donations appreciated."_s);
    Q_EMIT results->donateClicked();
    QCOMPARE(web.urls, QStringList { CVWindowDelegate::donationPageUrl() });
    QCOMPARE(results->donateText(), u"Thanks for using Corvana!"_s);
    QVERIFY(session.app().settings()->boolValue(CVSettingsKey::UserClickedDonate));

    // Emptying the Trash, after its question; then the line says so and the button goes.
    QCOMPARE(trashedFiles(), n + session.app().spanner()->trashedFolderCount());
    QSignalSpy emptied(session.app().spanner(), &CVMediaSpanner::emptyTrashFinished);
    session.app().presenter()->queueAnswer(CVPresenter::DefaultReturn);
    results->emptyTrashButton()->click();
    QCOMPARE(
        session.app().presenter()->shownAlerts().constLast().title, u"\nAre you sure you want to empty the Trash?"_s);
    QVERIFY(emptied.wait(kRunTimeoutMs));
    QTRY_VERIFY(results->trashButtonsHidden());
    QCOMPARE(trashedFiles(), 0);
    QVERIFY2(results->trashSummary().startsWith(u"Removed %1 successfully copied files"_s.arg(n)),
        qPrintable(results->trashSummary()));
    QVERIFY(results->trashSummary().endsWith(u"by emptying Trash."_s));
}

void TestRun::dependentTracksOfferAndUpdate()
{
    CVWindowSession session({ .tracks = 60, .start = false });
    const QStringList spanned
        = session.spanBeforeStart(u"( MediaType == 'Music' )"_s, session.home.filePath(u"Elsewhere"_s));
    QVERIFY(spanned.size() >= 2);
    session.makeDependentBeforeStart(spanned.mid(0, 2));
    session.awake();
    session.launch();
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSheetPresenter *presenter = session.app().presenter();
    QCOMPARE(presenter->openSheet().title, u"\nYou have 2 dependent tracks that can now be fully spanned!\n"_s);
    QCOMPARE(presenter->openSheet().alternateButton, u"Not Right Now \u2013 Remind Me Later"_s);
    presenter->answerSheet(CVPresenter::DefaultReturn);
    waitForResults(session);
    QCOMPARE(window->corvanaWindow()->resultsView->headline(), u"All 2 Tracks Successfully Spanned"_s);
    spanMore(session);
    // Nothing dependent is left: no offer this time.
    QVERIFY(!presenter->hasOpenSheet());
    QCOMPARE(tracks(session, u"( SymSpan == 1 )"_s).size(), 0);
    for (const QString &pid : spanned.mid(0, 2))
        QVERIFY(QFileInfo(session.libraryLocations().value(pid)).isFile());
}

void TestRun::statisticsText()
{
    // The copying phase of a span of 10 tracks, 100 MB, 4 of them done after 8 seconds.
    const QString s = CVRunProgress::statisticsText(8, 20, 10, 40e6, 100e6, 8, false);
    QVERIFY2(s.startsWith(u"4 of 10 tracks  ·  40.00 MB of 100.00 MB  ·  5.00 MB/s  ·  "_s), qPrintable(s));
    QVERIFY2(s.endsWith(u"about 10 seconds left"_s), qPrintable(s));
    QCOMPARE(CVRunProgress::statisticsText(1, 1, 0, 0, 0, 3, false), u"1 of 1 track"_s);
    QVERIFY(CVRunProgress::statisticsText(2, 20, 10, 1e6, 100e6, 3, true).endsWith(u"Paused"_s));
    QCOMPARE(CVRunProgress::statisticsText(0, 0, 10, 0, 0, 3, false), QString());
    QCOMPARE(CVRunProgress::timeLeftText(5), u"a few seconds left"_s);
    QCOMPARE(CVRunProgress::timeLeftText(61), u"about 2 minutes left"_s);
    QCOMPARE(CVRunProgress::timeLeftText(3 * 3600 + 5 * 60), u"about 3 h 05 min left"_s);
}

int main(int argc, char *argv[])
{
    // Before any thread exists: a user namespace can only be entered by a single thread.
    CVTestMounts::enterPrivateMounts();
    QApplication app(argc, argv);
    TestRun test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_run.moc"
