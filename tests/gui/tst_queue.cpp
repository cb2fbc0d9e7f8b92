// The spanning queue: drops, the menu command and its sheet, clearing, browsing, the summary,
// the bulk commands, the saved queue, the feedback, and the walk-through line in every state.
#include "Browsing/CVBrowserColumnModel.h"
#include "Browsing/CVBrowserDelegate.h"
#include "Browsing/CVTrackListModel.h"
#include "CVWindowDelegate.h"
#include "CVWindowSession.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPredicateArchive.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSheetPresenter.h"
#include "MainWindow/CVSounds.h"
#include "MainWindow/CVWalkThrough.h"
#include "Platform/CVSettings.h"
#include "Views/CVSpanQueueDropZone.h"
#include "Views/CVVanishingPuff.h"

#include <QAction>
#include <QApplication>
#include <QListView>
#include <QMimeData>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

QMimeData *predicateMime(const CVPredicate &predicate)
{
    auto *mime = new QMimeData;
    mime->setData(QString::fromLatin1(CVPredicateArchive::MimeType), CVPredicateArchive::archive(predicate));
    return mime;
}

// A drag that enters the zone and is dropped there, as the platform delivers it. False when
// the zone refused it.
bool drop(QWidget *zone, const QMimeData *mime, Qt::KeyboardModifiers modifiers = {}, Qt::DropAction *action = nullptr)
{
    const QPoint at(20, 10);
    QDragEnterEvent enter(at, Qt::CopyAction | Qt::MoveAction, mime, Qt::LeftButton, modifiers);
    QApplication::sendEvent(zone, &enter);
    if (!enter.isAccepted())
        return false;
    QDropEvent dropped(QPointF(at), Qt::CopyAction | Qt::MoveAction, mime, Qt::LeftButton, modifiers);
    QApplication::sendEvent(zone, &dropped);
    if (action)
        *action = dropped.dropAction();
    return dropped.isAccepted();
}

bool dropPredicate(CVWindowDelegate *window, const QString &predicate, Qt::KeyboardModifiers modifiers = {})
{
    std::unique_ptr<QMimeData> mime(predicateMime(CVPredicate::fromText(predicate)));
    return drop(window->corvanaWindow()->spanQueueDropZone, mime.get(), modifiers);
}

int countOf(CVWindowSession &session, const QString &predicate)
{
    return int(session.app().libraryManager()->selectPredicate(CVPredicate::fromText(predicate))->tracks.size());
}

int puffsShown()
{
    int n = 0;
    for (QWidget *w : QApplication::topLevelWidgets())
        n += qobject_cast<CVVanishingPuff *>(w) != nullptr;
    return n;
}

} // namespace

class TestQueue : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void dropsAddAndRemove();
    void dropsThatAreNotOursOrDuringRecoveryAreRefused();
    void droppingTheGenreColumnsAllRowQueuesEverything();
    void queuePredicatesListTheQueueInOrder();
    void menuCommandAsksWithTheSelectionsSummary_data();
    void menuCommandAsksWithTheSelectionsSummary();
    void clearingAsksAndKeepsBrowsing();
    void summarySaysItemOrItems();
    void bulkCommands();
    void selectLastTracksAddsOrReplaces();
    void queueIsSavedOnlyWithAutosave();
    void walkThroughForEveryState();
};

void TestQueue::cleanup()
{
    // Puffs delete themselves when their animation ends.
    QTRY_COMPARE(puffsShown(), 0);
}

void TestQueue::dropsAddAndRemove()
{
    CVWindowSession session({ .tracks = 120 });
    CVWindowDelegate *window = session.app().windowDelegate();
    QSignalSpy sounds(window->sounds(), &CVSounds::played);
    const int movies = countOf(session, u"( MediaType == 'Movies' )"_s);
    const int books = countOf(session, u"( MediaType == 'Books' )"_s);
    QVERIFY(movies > 0 && books > 0);

    QVERIFY(dropPredicate(window, u"( MediaType == 'Movies' )"_s));
    QCOMPARE(window->spanQueue().size(), movies);
    QCOMPARE(sounds.size(), 1);
    QCOMPARE(sounds.at(0).at(0).toString(), u"DropTrack"_s);
    QCOMPARE(puffsShown(), 0);
    // The same tracks again: still one entry each.
    QVERIFY(dropPredicate(window, u"( MediaType == 'Movies' )"_s));
    QCOMPARE(window->spanQueue().size(), movies);
    QVERIFY(dropPredicate(window, u"( MediaType == 'Books' )"_s));
    QCOMPARE(window->spanQueue().size(), movies + books);

    // Alt makes a drop a removal, with the puff instead of the sound; the drag says move.
    std::unique_ptr<QMimeData> mime(predicateMime(CVPredicate::fromText(u"( MediaType == 'Books' )"_s)));
    Qt::DropAction action = Qt::IgnoreAction;
    QVERIFY(drop(window->corvanaWindow()->spanQueueDropZone, mime.get(), Qt::AltModifier, &action));
    QCOMPARE(action, Qt::MoveAction);
    QCOMPARE(window->spanQueue().size(), movies);
    QCOMPARE(sounds.size(), 3);
    QCOMPARE(puffsShown(), 1);
    QVERIFY(!window->wantsRemoveDropSet());
    // Removing tracks that are not queued changes nothing.
    QVERIFY(dropPredicate(window, u"( MediaType == 'Books' )"_s, Qt::AltModifier));
    QCOMPARE(window->spanQueue().size(), movies);

    // Browsing the queue, every drop removes.
    window->browseSpanningQueue(true);
    QVERIFY(window->isBrowsingSpanningQueue());
    QVERIFY(dropPredicate(window, u"( MediaType == 'Movies' )"_s));
    QVERIFY(window->spanQueue().isEmpty());
    QVERIFY(window->isBrowsingSpanningQueue());

    // Without drop sounds there is no feedback at all.
    window->browseSpanningQueue(true);
    session.app().settings()->setValue(CVSettingsKey::PlaySpanQueueDropSounds, false);
    QVERIFY(dropPredicate(window, u"( MediaType == 'Movies' )"_s));
    QCOMPARE(window->spanQueue().size(), movies);
    QCOMPARE(sounds.size(), 3);
}

void TestQueue::dropsThatAreNotOursOrDuringRecoveryAreRefused()
{
    CVWindowSession session({ .tracks = 60 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSpanQueueDropZone *zone = window->corvanaWindow()->spanQueueDropZone;
    // Text only, and our type followed by another: neither is a drag of a pane.
    QMimeData text;
    text.setText(u"( MediaType == 'Movies' )"_s);
    QVERIFY(!drop(zone, &text));
    std::unique_ptr<QMimeData> mixed(predicateMime(CVPredicate::fromText(u""_s)));
    mixed->setText(u"something else"_s);
    QVERIFY(!drop(zone, mixed.get()));
    QVERIFY(window->spanQueue().isEmpty());

    // While a crash during a run is still to be recovered, the zone takes nothing.
    zone->setRefusesDrags(true);
    QVERIFY(!dropPredicate(window, u""_s));
    QVERIFY(window->spanQueue().isEmpty());
}

void TestQueue::droppingTheGenreColumnsAllRowQueuesEverything()
{
    CVWindowSession session({ .tracks = 150 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVBrowserDelegate *browser = window->browserDelegate();
    browser->setMediaFilter(u"All"_s);
    // The drag data the genre column makes for its first row, as a real drag would carry it.
    CVBrowserColumnModel *genres = browser->columnModel(CVBrowserDelegate::GenreColumn);
    std::unique_ptr<QMimeData> mime(genres->mimeData({ genres->index(0, 0) }));
    QVERIFY(mime);
    QVERIFY(drop(window->corvanaWindow()->spanQueueDropZone, mime.get()));
    QCOMPARE(window->spanQueue().size(), qsizetype(session.app().libraryManager()->allTracks().size()));
    QVERIFY(window->corvanaWindow()->spanQueueDropZone->summary().startsWith(
        u"%1 items, "_s.arg(window->spanQueue().size())));
}

void TestQueue::queuePredicatesListTheQueueInOrder()
{
    CVWindowSession session({ .tracks = 150 });
    CVWindowDelegate *window = session.app().windowDelegate();
    QCOMPARE(window->getSpanQueuePredicateForField(u"PersistentID"_s), CVPredicate::fromText(u"EMPTY"_s));
    window->browserDelegate()->setMediaFilter(u"All"_s);
    window->performDrop(CVPredicate::fromText(u""_s));
    QStringList pids;
    std::vector<qint64> ids;
    for (const CVTrack *t : window->spanQueue()) {
        pids.append(t->text(CVAttr::PersistentID));
        ids.push_back(t->integer(CVAttr::TrackID));
    }
    pids.sort();
    std::sort(ids.begin(), ids.end());
    const CVPredicate byPid = window->getSpanQueuePredicateForField(u"PersistentID"_s);
    QCOMPARE(byPid.persistentIDs(), pids);
    QCOMPARE(byPid.cacheKey(), pids.join(u','));
    const CVPredicate byID = window->getSpanQueuePredicateForField(u"TrackID"_s);
    QCOMPARE(byID.trackIDs(), ids);
    QCOMPARE(window->getSpanQueuePredicateForField(u"Name"_s), CVPredicate::fromText(u"EMPTY"_s));
    // Browsing narrows every pane to exactly the queue.
    window->browseSpanningQueue(true);
    QCOMPARE(window->getSpanQueuePredicate(), byPid);
    QCOMPARE(window->browserDelegate()->trackModel()->rowCount(), pids.size());
    // A few removed: the saved queue follows.
    window->browseSpanningQueue(true);
    window->setWantsRemoveDropSet(true);
    window->performDrop(CVPredicate::fromText(u"( MediaType == 'Movies' )"_s));
    window->setWantsRemoveDropSet(false);
    const auto saved
        = CVPredicateArchive::unarchive(session.app().settings()->dataValue(CVSettingsKey::SavedSpanningQueue));
    QVERIFY(saved);
    QCOMPARE(saved->persistentIDs().size(), window->spanQueue().size());
    QCOMPARE(*saved, window->getSpanQueuePredicateForField(u"PersistentID"_s));
}

void TestQueue::menuCommandAsksWithTheSelectionsSummary_data()
{
    QTest::addColumn<bool>("browsing");
    QTest::addColumn<int>("answer");
    QTest::newRow("add, confirmed") << false << int(CVPresenter::DefaultReturn);
    QTest::newRow("add, cancelled") << false << int(CVPresenter::AlternateReturn);
    QTest::newRow("remove while browsing") << true << int(CVPresenter::DefaultReturn);
}

void TestQueue::menuCommandAsksWithTheSelectionsSummary()
{
    QFETCH(bool, browsing);
    QFETCH(int, answer);
    CVWindowSession session({ .tracks = 120 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVMainWindow *w = window->corvanaWindow();
    CVBrowserDelegate *browser = window->browserDelegate();
    browser->setMediaFilter(u"All"_s);
    if (browsing) {
        window->performDrop(CVPredicate::fromText(u""_s));
        window->browseSpanningQueue(true);
    }
    const qsizetype before = window->spanQueue().size();
    browser->selectRow(CVBrowserDelegate::GenreColumn, 1);
    const QString genre = browser->columnModel(CVBrowserDelegate::GenreColumn)->index(1, 0).data().toString();
    w->show();
    w->genreView->setFocus();
    QApplication::setActiveWindow(w);
    QTRY_COMPARE(QApplication::focusWidget(), w->genreView);
    // The menu shows the item that does what the command will do.
    QCOMPARE(w->action(u"addSelection"_s)->isVisible(), !browsing);
    QCOMPARE(w->action(u"removeSelection"_s)->isVisible(), browsing);
    w->action(browsing ? u"removeSelection"_s : u"addSelection"_s)->trigger();
    const CVAlert sheet = session.app().presenter()->openSheet();
    QCOMPARE(sheet.title,
        browsing ? u"Are you sure you want to remove the current genre selection from the spanning queue?"_s
                 : u"Are you sure you want to add the current genre selection to the spanning queue?"_s);
    QCOMPARE(sheet.defaultButton, browsing ? u"Remove"_s : u"Add"_s);
    QCOMPARE(sheet.alternateButton, u"Cancel"_s);
    const QStringList lines = sheet.text.split(u'\n');
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines[0], genre); // the genre's name stands for the selection
    QVERIFY(lines[2].contains(u" item"_s));
    QVERIFY(window->wantsRemoveDropSet() == browsing);
    session.app().presenter()->answerSheet(answer);
    QVERIFY(!window->wantsRemoveDropSet());
    const int inGenre = countOf(session, u"( Genre == '%1' )"_s.arg(CVLibraryManager::makeSafe(genre)));
    if (answer != CVPresenter::DefaultReturn)
        QCOMPARE(window->spanQueue().size(), before);
    else if (browsing)
        QCOMPARE(window->spanQueue().size(), before - inGenre);
    else
        QCOMPARE(window->spanQueue().size(), inGenre);
}

void TestQueue::clearingAsksAndKeepsBrowsing()
{
    CVWindowSession session({ .tracks = 80 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSheetPresenter *presenter = session.app().presenter();
    // Nothing to clear: no question.
    window->clearSpanningQueue();
    QVERIFY(!presenter->hasOpenSheet());
    window->performDrop(CVPredicate::fromText(u"( MediaType == 'Music' )"_s));
    window->browseSpanningQueue(true);
    window->clearSpanningQueue();
    QCOMPARE(
        presenter->openSheet().title, u"\nAre you sure you want to clear all of the tracks in the spanning queue?"_s);
    QCOMPARE(presenter->openSheet().defaultButton, u"Clear All"_s);
    presenter->answerSheet(CVPresenter::AlternateReturn);
    QVERIFY(!window->spanQueue().isEmpty());
    window->clearSpanningQueue();
    presenter->answerSheet(CVPresenter::DefaultReturn);
    QVERIFY(window->spanQueue().isEmpty());
    QCOMPARE(puffsShown(), 1);
    // Browsing stays on, with nothing to show.
    QVERIFY(window->isBrowsingSpanningQueue());
    QCOMPARE(window->browserDelegate()->trackModel()->rowCount(), 0);
    QCOMPARE(window->corvanaWindow()->spanQueueDropZone->summary(), u"No Media Selected"_s);
    QVERIFY(!session.app().settings()->value(CVSettingsKey::SavedSpanningQueue).toByteArray().contains("PersistentID"));
    // Leaving browse mode is always possible; entering it with an empty queue is not.
    window->browseSpanningQueue(true);
    QVERIFY(!window->isBrowsingSpanningQueue());
    window->browseSpanningQueue(true);
    QVERIFY(!window->isBrowsingSpanningQueue());
}

void TestQueue::summarySaysItemOrItems()
{
    CVWindowSession session({ .tracks = 60 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSpanQueueDropZone *zone = window->corvanaWindow()->spanQueueDropZone;
    const QList<CVTrack *> music = [&] {
        const CVTrackList list
            = session.app().libraryManager()->selectPredicate(CVPredicate::fromText(u"( MediaType == 'Music' )"_s));
        return QList<CVTrack *>(list->tracks.cbegin(), list->tracks.cend());
    }();
    QVERIFY(music.size() >= 2);
    const auto byID = [](const CVTrack *t) { return u"( TrackID == %1 )"_s.arg(t->integer(CVAttr::TrackID)); };
    window->performDrop(CVPredicate::fromText(byID(music[0])));
    QVERIFY2(zone->summary().startsWith(u"1 item, "_s), qPrintable(zone->summary()));
    const double one = window->currentSpanQueueSize();
    QCOMPARE(one, music[0]->real(CVAttr::Size));
    window->performDrop(CVPredicate::fromText(byID(music[1])));
    QVERIFY(zone->summary().startsWith(u"2 items, "_s));
    // The exact time, then rounded again.
    window->toggleRoundTimesForSummary();
    QVERIFY2(zone->summary().contains(u" total time, "_s), qPrintable(zone->summary()));
    window->toggleRoundTimesForSummary();
    QVERIFY(!zone->summary().contains(u"total time"_s));
    // Emptied: the text says so, and the size stays as it was.
    window->setWantsRemoveDropSet(true);
    window->performDrop(CVPredicate::fromText(u""_s));
    window->setWantsRemoveDropSet(false);
    QCOMPARE(zone->summary(), u"No Media Selected"_s);
    QCOMPARE(window->currentSpanQueueSize(), one + music[1]->real(CVAttr::Size));
}

void TestQueue::bulkCommands()
{
    CVWindowSession session({ .tracks = 100, .start = false });
    const QStringList spanned
        = session.spanBeforeStart(u"( MediaType == 'Movies' )"_s, session.home.filePath(u"Films"_s));
    QVERIFY(!spanned.isEmpty());
    session.awake();
    session.launch();
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSheetPresenter *presenter = session.app().presenter();
    CVMainWindow *w = window->corvanaWindow();
    window->performDrop(CVPredicate::fromText(u"( MediaType == 'Books' )"_s));

    w->action(u"selectAllSpanned"_s)->trigger();
    QCOMPARE(
        presenter->openSheet().title, u"Are you sure you want to select all spanned tracks and set to restore mode?"_s);
    QCOMPARE(presenter->openSheet().defaultButton, u"Select All Spanned Tracks & Set Restore Mode"_s);
    QCOMPARE(presenter->openSheet().text, u"Any tracks currently in the spanning queue will be replaced."_s);
    presenter->answerSheet(CVPresenter::DefaultReturn);
    QCOMPARE(window->spanQueue().size(), spanned.size());
    for (const CVTrack *t : window->spanQueue())
        QVERIFY(spanned.contains(t->text(CVAttr::PersistentID)));
    QVERIFY(window->restoreMode());
    QCOMPARE(window->walkThrough()->walkThroughText(),
        u"When Ready, Click 'Restore…' to Move Selected Tracks to Original Locations"_s);

    w->action(u"selectAllTracks"_s)->trigger();
    QCOMPARE(presenter->openSheet().title, u"Are you sure you want to select all tracks and set span mode?"_s);
    QCOMPARE(presenter->openSheet().defaultButton, u"Select All Tracks & Set Span Mode"_s);
    presenter->answerSheet(CVPresenter::AlternateReturn);
    QVERIFY(window->restoreMode());
    w->action(u"selectAllTracks"_s)->trigger();
    presenter->answerSheet(CVPresenter::DefaultReturn);
    QCOMPARE(window->spanQueue().size(), qsizetype(session.app().libraryManager()->allTracks().size()));
    QVERIFY(!window->restoreMode());
    QCOMPARE(
        window->walkThrough()->walkThroughText(), u"Select Span Location by Clicking or Dropping a Folder Below"_s);
}

void TestQueue::selectLastTracksAddsOrReplaces()
{
    CVWindowSession session({ .tracks = 80, .start = false });
    session.spanBeforeStart(u"( MediaType == 'Books' )"_s, session.home.filePath(u"Audio"_s));
    // The last run was a restore of the books.
    {
        CVSettings settings;
        settings.setValue(CVSettingsKey::LastSpanLocation, u"CVRestoreMode"_s);
        settings.synchronize();
    }
    session.awake();
    session.launch();
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSheetPresenter *presenter = session.app().presenter();
    QAction *last = window->corvanaWindow()->action(u"selectLastTracks"_s);
    QVERIFY(last->isVisible());
    QCOMPARE(last->text(), u"Select Last Tracks Restored…"_s);
    const int books = countOf(session, u"( MediaType == 'Books' )"_s);
    const int movies = countOf(session, u"( MediaType == 'Movies' )"_s);

    // An empty queue takes them without a question.
    last->trigger();
    QVERIFY(!presenter->hasOpenSheet());
    QCOMPARE(window->spanQueue().size(), books);
    // Otherwise: add, or replace.
    window->performDrop(CVPredicate::fromText(u"( MediaType == 'Movies' )"_s));
    last->trigger();
    QCOMPARE(presenter->openSheet().title, u"Add to, or replace the spanning queue?"_s);
    QCOMPARE(presenter->openSheet().otherButton, u"Replace"_s);
    QVERIFY(presenter->openSheet().text.contains(u"the last tracks restored to the tracks"_s));
    presenter->answerSheet(CVPresenter::DefaultReturn);
    QCOMPARE(window->spanQueue().size(), books + movies);
    last->trigger();
    presenter->answerSheet(CVPresenter::OtherReturn);
    QCOMPARE(window->spanQueue().size(), books);
    QVERIFY(!window->restoreMode()); // the mode is left alone
}

void TestQueue::queueIsSavedOnlyWithAutosave()
{
    CVWindowSession session({ .tracks = 60 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSettings *settings = session.app().settings();
    window->performDrop(CVPredicate::fromText(u"( MediaType == 'Movies' )"_s));
    QVERIFY(settings->contains(CVSettingsKey::SavedSpanningQueue));
    // Switched off: the saved queue goes at once, and the next start begins empty.
    settings->setValue(CVSettingsKey::AutosaveSpanningQueue, false);
    QVERIFY(!settings->contains(CVSettingsKey::SavedSpanningQueue));
    window->performDrop(CVPredicate::fromText(u"( MediaType == 'Books' )"_s));
    QVERIFY(!settings->contains(CVSettingsKey::SavedSpanningQueue));
    session.app().terminate();
    session.restart();
    QVERIFY(session.app().windowDelegate()->spanQueue().isEmpty());
}

void TestQueue::walkThroughForEveryState()
{
    CVWindowSession session({ .tracks = 60, .start = false });
    session.awake();
    CVWindowDelegate *window = session.app().windowDelegate();
    // Before the browser has stored its texts the line stays blank.
    QVERIFY(window->walkThrough()->walkThroughText().isEmpty());
    session.launch();
    QCOMPARE(window->walkThrough()->walkThroughText(), u"Drag Media Here to Select for Spanning"_s);
    window->walkThrough()->setIsMouseOverSpanQueueDropZone(true);
    QCOMPARE(window->walkThrough()->walkThroughText(), u"Spanning Queue Empty - Drag Something into Here"_s);
    window->walkThrough()->setIsMouseOverSpanQueueDropZone(false);
    window->doSetRestoreMode();
    QCOMPARE(window->walkThrough()->walkThroughText(), u"Drag Media Here to Select for Restoration"_s);
    window->performDrop(CVPredicate::fromText(u"( MediaType == 'Movies' )"_s));
    QCOMPARE(window->walkThrough()->walkThroughText(),
        u"When Ready, Click 'Restore…' to Move Selected Tracks to Original Locations"_s);
    window->doSetSpanMode();
    QCOMPARE(
        window->walkThrough()->walkThroughText(), u"Select Span Location by Clicking or Dropping a Folder Below"_s);
    const QString folder = session.home.filePath(u"Spanned"_s);
    QDir().mkpath(folder);
    window->setSpanLocation(folder, false);
    QCOMPARE(window->walkThrough()->walkThroughText(),
        u"When Ready, Click 'Span…' to Move Selected Tracks to 'Spanned (on Computer)'"_s);
    window->walkThrough()->setIsMouseOverSpanQueueDropZone(true);
    QCOMPARE(window->walkThrough()->walkThroughText(), u"Click to Browse Spanning Queue"_s);
    // While a drag is over the zone the line tells the step, not the click.
    CVSpanQueueDropZone *zone = window->corvanaWindow()->spanQueueDropZone;
    std::unique_ptr<QMimeData> mime(predicateMime(CVPredicate::fromText(u""_s)));
    QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, mime.get(), Qt::LeftButton, {});
    QApplication::sendEvent(zone, &enter);
    QVERIFY(zone->isDragOver());
    QCOMPARE(window->walkThrough()->walkThroughText(),
        u"When Ready, Click 'Span…' to Move Selected Tracks to 'Spanned (on Computer)'"_s);
    QDragLeaveEvent leave;
    QApplication::sendEvent(zone, &leave);
    QCOMPARE(window->walkThrough()->walkThroughText(), u"Click to Browse Spanning Queue"_s);
    window->walkThrough()->setIsMouseOverSpanQueueDropZone(false);
    window->browseSpanningQueue(true);
    QCOMPARE(window->walkThrough()->walkThroughText(), u"Browsing Spanning Queue \u2013 Drag Media Here to Remove"_s);
    window->walkThrough()->setIsMouseOverSpanQueueDropZone(true);
    QCOMPARE(window->walkThrough()->walkThroughText(), u"Browsing Spanning Queue \u2013 Click to Browse Library"_s);
    window->walkThrough()->setIsMouseOverSpanQueueDropZone(false);
    window->browseSpanningQueue(true);
    QCOMPARE(window->walkThrough()->walkThroughText(),
        u"When Ready, Click 'Span…' to Move Selected Tracks to 'Spanned (on Computer)'"_s);
}

QTEST_MAIN(TestQueue)
#include "tst_queue.moc"
