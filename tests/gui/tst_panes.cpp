// The playlists pane and the locations pane.
#include "Browsing/CVBrowserDelegate.h"
#include "Browsing/CVPlaylistsDelegate.h"
#include "Browsing/CVPlaylistsModel.h"
#include "Browsing/CVTrackListModel.h"
#include "CVWindowDelegate.h"
#include "CVWindowSession.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPlaylist.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVLocationsDelegate.h"
#include "MainWindow/CVLocationsModel.h"
#include "MainWindow/CVMainWindow.h"
#include "Platform/CVSettings.h"
#include "Views/CVFilterPathBar.h"
#include "Views/CVMediaFilterBar.h"

#include <QAction>
#include <QLabel>
#include <QToolButton>
#include <QTreeView>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

QModelIndex findRow(const QAbstractItemModel *model, const QString &text, const QModelIndex &parent = {})
{
    for (int r = 0; r < model->rowCount(parent); ++r) {
        const QModelIndex i = model->index(r, 0, parent);
        if (i.data().toString() == text)
            return i;
        if (const QModelIndex below = findRow(model, text, i); below.isValid())
            return below;
    }
    return {};
}

void select(QTreeView *view, const QModelIndex &index)
{
    view->selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
}

} // namespace

class TestPanes : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void playlistsAreGroupedAndFolded();
    void playlistNarrowsAndSecondClickLetsGo();
    void collapsedFoldersStayCollapsed();
    void playlistsHideAndShow();
    void locationsTreeAndCounts();
    void locationNarrowsAndVanishedFolderWidens();
    void locationPredicateOfAQuotedFolder();
};

void TestPanes::playlistsAreGroupedAndFolded()
{
    CVWindowSession session({ .tracks = 300 });
    CVPlaylistsDelegate *playlists = session.app().windowDelegate()->playlistsDelegate();
    CVPlaylistsModel *model = playlists->model();
    session.app().windowDelegate()->browserDelegate()->setMediaFilter(u"All"_s);
    QStringList headings;
    for (int r = 0; r < model->rowCount(); ++r) {
        const QModelIndex i = model->index(r, 0);
        QVERIFY(model->isHeading(i));
        QVERIFY(!(model->flags(i) & Qt::ItemIsSelectable));
        headings.append(i.data().toString());
    }
    QCOMPARE(headings, QStringList({ u"STORE"_s, u"GENIUS"_s, u"PLAYLISTS"_s }));
    // The store's Genius playlist is listed under GENIUS.
    const QModelIndex storeGenius = findRow(model, u"Store Genius"_s);
    QVERIFY(storeGenius.isValid());
    QCOMPARE(storeGenius.parent().data().toString(), u"GENIUS"_s);
    // A folder holding only a folder that holds a playlist: both list it.
    const QModelIndex gold = findRow(model, u"'60s \"Gold\""_s);
    QCOMPARE(gold.parent().data().toString(), u"Only Folders Inside"_s);
    QCOMPARE(gold.parent().parent().data().toString(), u"Decades"_s);
    QCOMPARE(gold.parent().parent().parent().data().toString(), u"Collections"_s);
    // The empty playlist holds no selected track: not listed.
    QVERIFY(!findRow(model, u"Empty ☆ Playlist"_s).isValid());
    const QString summary = session.app().windowDelegate()->corvanaWindow()->playlistsSummary->text();
    QCOMPARE(summary, playlists->summary());
    QVERIFY(summary.startsWith(u"3 playlist folders, "_s));
    QVERIFY(summary.endsWith(u" playlists"_s));

    // A search that no playlist's tracks answer leaves "NO PLAYLISTS" alone, not expandable.
    session.app().windowDelegate()->filterSourcesWithSearch(u"qqqqzzzz"_s);
    QCOMPARE(model->rowCount(), 1);
    QCOMPARE(model->index(0, 0).data().toString(), u"NO PLAYLISTS"_s);
    QVERIFY(!model->hasChildren(model->index(0, 0)));
    QCOMPARE(playlists->summary(), QString());
}

void TestPanes::playlistNarrowsAndSecondClickLetsGo()
{
    CVWindowSession session({ .tracks = 300 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVPlaylistsDelegate *playlists = window->playlistsDelegate();
    CVBrowserDelegate *browser = window->browserDelegate();
    QTreeView *view = window->corvanaWindow()->playlistsView;
    browser->setMediaFilter(u"All"_s);
    const int all = browser->trackModel()->rowCount();
    const QModelIndex rock = findRow(playlists->model(), u"Rock*Star"_s);
    const CVPlaylist *p = playlists->model()->playlist(rock);
    QVERIFY(p);
    select(view, rock);
    QCOMPARE(playlists->selectedPlaylist(), u"Rock*Star"_s);
    const CVTrackList shown = browser->trackSource();
    QCOMPARE(
        shown->tracks.size(), session.app().libraryManager()->smartSelectPredicate(p->tracksPredicate)->tracks.size());
    QVERIFY(int(shown->tracks.size()) < all);
    QCOMPARE(window->corvanaWindow()->filterPathBar->lineTwoString(), u"Playlist : Rock*Star"_s);
    QCOMPARE(window->corvanaWindow()->action(u"togglePlaylists"_s)->text(), u"Deselect All Playlists"_s);

    // A click on it at once (the selection just changed) keeps it; once settled, lets it go.
    QApplication::setActiveWindow(window->corvanaWindow());
    view->setFocus();
    QVERIFY(playlists->playlistSelectionJustChanged());
    playlists->playlistAction();
    QCOMPARE(playlists->selectedPlaylist(), u"Rock*Star"_s);
    playlists->selectionSettled();
    playlists->playlistAction();
    QCOMPARE(playlists->selectedPlaylist(), QString());
    QCOMPARE(browser->trackModel()->rowCount(), all);
    QCOMPARE(window->corvanaWindow()->action(u"togglePlaylists"_s)->text(), u"Hide Playlists"_s);

    // A playlist whose tracks are all filtered out offers no queue items.
    QVERIFY(!playlists->queueMenuTitle(findRow(playlists->model(), u"Rock*Star"_s)).isEmpty());
}

void TestPanes::collapsedFoldersStayCollapsed()
{
    CVWindowSession session({ .tracks = 200 });
    CVWindowDelegate *window = session.app().windowDelegate();
    QTreeView *view = window->corvanaWindow()->playlistsView;
    CVPlaylistsModel *model = window->playlistsDelegate()->model();
    const QModelIndex decades = findRow(model, u"Decades"_s);
    QVERIFY(view->isExpanded(decades));
    view->collapse(decades);
    view->collapse(model->indexForGroup(u"1 GENIUS"_s));
    QVERIFY(window->playlistsDelegate()->isCollapsed(u"1 GENIUS"_s));
    // Across filter changes...
    window->browserDelegate()->setMediaFilter(u"All"_s);
    QVERIFY(!view->isExpanded(findRow(model, u"Decades"_s)));
    QVERIFY(view->isExpanded(findRow(model, u"Collections"_s)));
    QVERIFY(!view->isExpanded(model->indexForGroup(u"1 GENIUS"_s)));
    // ...and across starts.
    session.app().terminate();
    session.restart();
    CVPlaylistsModel *again = session.app().windowDelegate()->playlistsDelegate()->model();
    QTreeView *againView = session.app().windowDelegate()->corvanaWindow()->playlistsView;
    QVERIFY(!againView->isExpanded(findRow(again, u"Decades"_s)));
    QVERIFY(againView->isExpanded(findRow(again, u"Collections"_s)));
}

void TestPanes::playlistsHideAndShow()
{
    CVWindowSession session({ .tracks = 80 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVSettings *settings = session.app().settings();
    QAction *toggle = window->corvanaWindow()->action(u"togglePlaylists"_s);
    toggle->trigger();
    QVERIFY(settings->boolValue(u"CVPlaylistsAreHidden"_s));
    QVERIFY(window->corvanaWindow()->playlistsPane->isHidden());
    QCOMPARE(toggle->text(), u"Show Playlists"_s);
    toggle->trigger();
    QVERIFY(!settings->boolValue(u"CVPlaylistsAreHidden"_s));
    QVERIFY(!window->corvanaWindow()->playlistsPane->isHidden());
    QCOMPARE(toggle->text(), u"Hide Playlists"_s);
    window->corvanaWindow()->action(u"toggleLocations"_s)->trigger();
    QVERIFY(settings->boolValue(u"CVLocationsAreHidden"_s));
    QCOMPARE(window->corvanaWindow()->action(u"toggleLocations"_s)->text(), u"Show Locations"_s);
}

void TestPanes::locationsTreeAndCounts()
{
    CVWindowSession session({ .tracks = 200 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVLocationsModel *model = window->locationsDelegate()->model();
    CVLibraryManager *library = session.app().libraryManager();
    window->browserDelegate()->setMediaFilter(u"All"_s);
    QCOMPARE(model->rowCount(), 1);
    const QModelIndex root = model->index(0, 0);
    QCOMPARE(root.data().toString(), u"LOCATIONS"_s);
    QVERIFY(!(model->flags(root) & Qt::ItemIsSelectable));
    // One drive ("/"), its drive rows taller than the rest.
    QCOMPARE(model->rowCount(root), 1);
    const QModelIndex drive = model->index(0, 0, root);
    QCOMPARE(drive.data(CVLocationsModel::PathRole).toString(), u"/"_s);
    QCOMPARE(drive.data(Qt::SizeHintRole).toSize().height(), 39);
    QCOMPARE(model->index(0, 0, drive).data(Qt::SizeHintRole).toSize().height(), 22);
    // Files: one per track (every track has its own file); the summary counts them.
    QCOMPARE(model->fileCount(), int(library->allTracks().size()));
    QCOMPARE(model->driveCount(), 1);
    const QString summary = window->corvanaWindow()->locationsSummary->text();
    QCOMPARE(summary, u"1 drive, %1 folders, %2 files"_s.arg(model->folderCount()).arg(model->fileCount()));
    // The media folder opened at first start.
    const QString media = library->iTunesMediaPath().value();
    const QModelIndex mediaRow = model->indexForLowerPath(media.toLower() + u'/');
    QVERIFY(mediaRow.isValid());
    QVERIFY(window->corvanaWindow()->locationsView->isExpanded(mediaRow));
    // No track left: the placeholder alone.
    window->filterSourcesWithSearch(u"qqqqzzzz"_s);
    QCOMPARE(model->index(0, 0).data().toString(), u"NO LOCATIONS"_s);
    QCOMPARE(window->locationsDelegate()->summary(), QString());
}

void TestPanes::locationNarrowsAndVanishedFolderWidens()
{
    CVWindowSession session({ .tracks = 300 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVLocationsDelegate *locations = window->locationsDelegate();
    CVBrowserDelegate *browser = window->browserDelegate();
    CVLocationsModel *model = locations->model();
    QTreeView *view = window->corvanaWindow()->locationsView;
    browser->setMediaFilter(u"All"_s);
    const int all = browser->trackModel()->rowCount();
    const QString media = session.app().libraryManager()->iTunesMediaPath().value();
    const QModelIndex movies = model->indexForLowerPath((media + u"/Movies/"_s).toLower());
    QVERIFY(movies.isValid());
    select(view, movies);
    QCOMPARE(locations->selectedLocation(),
        session.app().libraryManager()->createDisplayTitleForPath(media + u"/Movies/"_s));
    const int shown = browser->trackModel()->rowCount();
    QVERIFY(shown > 0 && shown < all);
    for (int r = 0; r < shown; ++r)
        QVERIFY(browser->trackModel()->track(r)->currentPath().startsWith(media + u"/Movies/"_s));
    QVERIFY(window->corvanaWindow()->filterPathBar->lineTwoString().contains(u"Location : "_s));
    // Music has no track in the folder: its button is off while the folder is chosen.
    QVERIFY(!window->corvanaWindow()->mediaFilterBar->button(1)->isEnabled());
    // A search that leaves nothing in the folder: the row goes, and with the search gone the
    // panes are as wide as before.
    window->filterSourcesWithSearch(u"qqqqzzzz"_s);
    QVERIFY(!locations->selectedIndex().isValid());
    QCOMPARE(locations->selectedLocation(), QString());
    window->filterSourcesWithSearch(u""_s);
    QCOMPARE(browser->trackModel()->rowCount(), all);
    // Expanded rows are remembered by lower-case path.
    const QModelIndex music = model->indexForLowerPath((media + u"/Music/"_s).toLower());
    view->expand(music);
    QVERIFY(locations->expandedLocations().contains((media + u"/Music/"_s).toLower()));
}

void TestPanes::locationPredicateOfAQuotedFolder()
{
    CVWindowSession session({ .tracks = 200 });
    CVLocationsDelegate *locations = session.app().windowDelegate()->locationsDelegate();
    CVLibraryManager *library = session.app().libraryManager();
    // Some folder with a quote in its name, as the generator makes them.
    CVLocationsModel *model = locations->model();
    QString quoted;
    for (const CVTrack *t : library->allTracks()) {
        const QString folder = QFileInfo(t->currentPath()).path() + u'/';
        if (folder.contains(u'\'')) {
            quoted = folder;
            break;
        }
    }
    QVERIFY(!quoted.isEmpty());
    const QModelIndex row = model->indexForLowerPath(quoted.toLower());
    QVERIFY(row.isValid());
    const QString predicate = locations->retrieveItemsPredicateForLocation(model->node(row));
    const CVTrackList tracks = library->smartSelectPredicate(CVPredicate::fromText(predicate));
    QVERIFY(!tracks->tracks.empty());
    for (const CVTrack *t : tracks->tracks)
        QVERIFY(t->currentPath().startsWith(quoted, Qt::CaseInsensitive));
}

QTEST_MAIN(TestPanes)
#include "tst_panes.moc"
