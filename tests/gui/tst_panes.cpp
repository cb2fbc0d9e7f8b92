// The playlists pane and the locations pane.
#include "Browsing/CVBrowserDelegate.h"
#include "Browsing/CVPlaylistsDelegate.h"
#include "Browsing/CVPlaylistsModel.h"
#include "Browsing/CVTrackListModel.h"
#include "CVWindowDelegate.h"
#include "CVWindowSession.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPlaylist.h"
#include "Library/CVPredicateArchive.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVLocationsDelegate.h"
#include "MainWindow/CVLocationsItemDelegate.h"
#include "MainWindow/CVLocationsModel.h"
#include "MainWindow/CVMainWindow.h"
#include "Platform/CVSettings.h"
#include "Views/CVFilterPathBar.h"
#include "Views/CVMediaFilterBar.h"

#include <QAction>
#include <QLabel>
#include <QMimeData>
#include <QSplitter>
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

// What the locations pane shows of a row at the view's present width.
QString shownText(QTreeView *view, const QModelIndex &index)
{
    QStyleOptionViewItem option;
    option.initFrom(view);
    option.widget = view;
    option.rect = view->visualRect(index);
    const int icon = view->style()->pixelMetric(QStyle::PM_SmallIconSize, nullptr, view);
    option.decorationSize = QSize(icon, icon);
    return static_cast<CVLocationsItemDelegate *>(view->itemDelegate())->shownText(option, index);
}

void forEachRow(const QAbstractItemModel *model, const std::function<void(const QModelIndex &)> &visit,
    const QModelIndex &parent = {})
{
    for (int r = 0; r < model->rowCount(parent); ++r) {
        const QModelIndex i = model->index(r, 0, parent);
        visit(i);
        forEachRow(model, visit, i);
    }
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
    void foldersHoldingOnlyAFolderShareARow();
    void everyFolderNameIsReadable_data();
    void everyFolderNameIsReadable();
    void sharedRowsLoseOuterFoldersFirst_data();
    void sharedRowsLoseOuterFoldersFirst();
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
    QVERIFY(settings->boolValue(CVSettingsKey::PlaylistsAreHidden));
    QVERIFY(window->corvanaWindow()->playlistsPane->isHidden());
    QCOMPARE(toggle->text(), u"Show Playlists"_s);
    toggle->trigger();
    QVERIFY(!settings->boolValue(CVSettingsKey::PlaylistsAreHidden));
    QVERIFY(!window->corvanaWindow()->playlistsPane->isHidden());
    QCOMPARE(toggle->text(), u"Hide Playlists"_s);
    window->corvanaWindow()->action(u"toggleLocations"_s)->trigger();
    QVERIFY(settings->boolValue(CVSettingsKey::LocationsAreHidden));
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

void TestPanes::foldersHoldingOnlyAFolderShareARow()
{
    CVWindowSession session({ .tracks = 200 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVLocationsDelegate *locations = window->locationsDelegate();
    CVLocationsModel *model = locations->model();
    CVLibraryManager *library = session.app().libraryManager();
    QTreeView *view = window->corvanaWindow()->locationsView;
    window->browserDelegate()->setMediaFilter(u"All"_s);
    const int folders = model->folderCount();

    // Above the home, which holds the media folder and the second drive's folder, nothing
    // branches: the drive, then one row down to the home.
    const QString home = session.home.path() + u'/';
    const QModelIndex drive = model->index(0, 0, model->index(0, 0));
    QCOMPARE(model->rowCount(drive), 1);
    const QModelIndex top = model->index(0, 0, drive);
    QCOMPARE(top.data().toString(), home.mid(1).chopped(1));
    QCOMPARE(top.data(CVLocationsModel::PathRole).toString(), home);
    QCOMPARE(top.data(Qt::ToolTipRole).toString(), home);
    QCOMPARE(top.data(CVLocationsModel::SharedLowerPathsRole).toStringList().constLast(), home.toLower());
    QCOMPARE(model->indexForLowerPath(u'/' + home.section(u'/', 1, 1).toLower() + u'/'), top);
    // The media folder's row names the folders it stands for; each of them finds it.
    const QString media = library->iTunesMediaPath().value() + u'/';
    const QModelIndex mediaRow = model->indexForLowerPath(media.toLower());
    QCOMPARE(mediaRow.data().toString(), u"Music/iTunes/iTunes Media"_s);
    QCOMPARE(mediaRow.parent(), top);
    QCOMPARE(mediaRow.data(CVLocationsModel::SharedLowerPathsRole).toStringList(),
        QStringList({ (home + u"Music/"_s).toLower(), (home + u"Music/iTunes/"_s).toLower(), media.toLower() }));
    QCOMPARE(model->indexForLowerPath((home + u"music/"_s).toLower()), mediaRow);
    // The summary still counts every folder.
    QCOMPARE(model->folderCount(), folders);

    // Chosen, dragged and counted as the innermost folder.
    const QMimeData *mime = model->mimeData({ mediaRow });
    QCOMPARE(CVPredicateArchive::unarchive(mime->data(QString::fromLatin1(CVPredicateArchive::MimeType)))->text(),
        library->trees().predicateForLocationPath(media));
    delete mime;
    select(view, mediaRow);
    QCOMPARE(locations->selectedLocation(), library->createDisplayTitleForPath(media));
    QCOMPARE(locations->getLocationPredicate().text(), library->trees().predicateForLocationPath(media));

    // A folder chosen while it had a row of its own stays the one chosen when a search leaves
    // it holding one folder only, so that its row is shared: the selection does not narrow.
    const QString music = media + u"Music/"_s;
    select(view, model->indexForLowerPath(music.toLower()));
    const QString chosen = library->trees().predicateForLocationPath(music);
    QCOMPARE(locations->getLocationPredicate().text(), chosen);
    bool shared = false;
    for (const CVTrack *t : library->allTracks()) {
        if (!t->currentPath().startsWith(music))
            continue;
        window->filterSourcesWithSearch(t->text(CVAttr::Name));
        const QModelIndex row = model->indexForLowerPath(music.toLower());
        if (row.isValid() && row.data(CVLocationsModel::LowerPathRole).toString() != music.toLower()) {
            shared = true;
            break;
        }
    }
    QVERIFY(shared);
    QCOMPARE(locations->selectedIndex(), model->indexForLowerPath(music.toLower()));
    QCOMPARE(locations->getLocationPredicate().text(), chosen);
    window->filterSourcesWithSearch(u""_s);
    QCOMPARE(locations->selectedIndex().data(CVLocationsModel::PathRole).toString(), music);
    QCOMPARE(locations->getLocationPredicate().text(), chosen);
    locations->doDeselectAll();

    // Closing the row closes all its folders, across starts; opening it opens them all.
    view->collapse(model->indexForLowerPath(media.toLower()));
    for (const QString &key :
        model->indexForLowerPath(media.toLower()).data(CVLocationsModel::SharedLowerPathsRole).toStringList())
        QVERIFY(!locations->expandedLocations().contains(key));
    session.app().terminate();
    session.restart();
    CVLocationsDelegate *again = session.app().windowDelegate()->locationsDelegate();
    QTreeView *againView = session.app().windowDelegate()->corvanaWindow()->locationsView;
    const QModelIndex row = again->model()->indexForLowerPath(media.toLower());
    QVERIFY(!againView->isExpanded(row));
    QVERIFY(againView->isExpanded(row.parent()));
    againView->expand(row);
    for (const QString &key : row.data(CVLocationsModel::SharedLowerPathsRole).toStringList())
        QVERIFY(again->expandedLocations().contains(key));
}

void TestPanes::everyFolderNameIsReadable_data()
{
    QTest::addColumn<QString>("mediaFolder");
    QTest::newRow("the player's own place") << u"Music/iTunes"_s;
    QTest::newRow("ten folders deep")
        << u"Archive/2019/Sorted/By Year/Collections/Old Disks/Imported/From Laptop/Music/iTunes"_s;
}

void TestPanes::everyFolderNameIsReadable()
{
    QFETCH(QString, mediaFolder);
    CVWindowSession session({ .tracks = 300, .mediaFolder = mediaFolder });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVMainWindow *w = window->corvanaWindow();
    CVLocationsModel *model = window->locationsDelegate()->model();
    window->browserDelegate()->setMediaFilter(u"All"_s);
    // The main view at its first size, the pane at its default width, every folder open.
    w->resize(1180, 728);
    const int width = int(session.app().settings()->realValue(CVSettingsKey::LocationsRightFrameWidth));
    QList<int> sizes = w->mainSplitter->sizes();
    sizes[1] += sizes[2] - width;
    sizes[2] = width;
    w->mainSplitter->setSizes(sizes);
    QCOMPARE(w->mainSplitter->sizes().value(2), width);
    w->locationsView->expandAll();
    QApplication::processEvents();
    int checked = 0;
    QStringList unreadable;
    forEachRow(model, [&](const QModelIndex &index) {
        if (index.data(CVLocationsModel::IsFileRole).toBool() || !index.parent().isValid())
            return;
        // The innermost folder's name, whole or (a long one) its first 16 characters at least;
        // outer folders sharing its row may give way. The full path is in the tool tip.
        const QString name = index.data().toString().section(u'/', -1);
        const QString shown = shownText(w->locationsView, index).section(u'/', -1);
        if (shown != name && (!shown.endsWith(u'…') || !name.startsWith(shown.chopped(1)) || shown.size() < 17))
            unreadable.append(u"\"%1\" as \"%2\""_s.arg(index.data().toString(), shown));
        if (index.data(Qt::ToolTipRole).toString() != index.data(CVLocationsModel::PathRole).toString())
            unreadable.append(u"no tool tip: "_s + index.data().toString());
        ++checked;
    });
    QVERIFY2(unreadable.isEmpty(), qPrintable(unreadable.join(u", "_s)));
    QVERIFY(checked > 20);
}

void TestPanes::sharedRowsLoseOuterFoldersFirst_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("keepFirst");
    QTest::addColumn<QString>("fitting"); // the widest text the width allows
    QTest::addColumn<QString>("expected");
    const QString media = u"home/alice/Music/iTunes/iTunes Media"_s;
    QTest::newRow("fits") << media << false << media << media;
    QTest::newRow("outer folders give way")
        << media << false << u"…/Music/iTunes/iTunes Media"_s << u"…/Music/iTunes/iTunes Media"_s;
    QTest::newRow("a folder's width short")
        << media << false << u"…/Music/iTunes/iTunes Medi"_s << u"…/iTunes/iTunes Media"_s;
    QTest::newRow("the innermost alone") << media << false << u"…/iTunes Media"_s << u"…/iTunes Media"_s;
    QTest::newRow("even that cut") << media << false << u"…/iTunes"_s << QString();
    QTest::newRow("one folder") << u"Computer"_s << false << u"Comp"_s << QString();
    const QString lectures = u"iTunes U/Physics/Year One/Lectures"_s;
    QTest::newRow("the first kept") << lectures << true << u"iTunes U/…/Year One/Lectures"_s
                                    << u"iTunes U/…/Year One/Lectures"_s;
    QTest::newRow("the first and the innermost")
        << lectures << true << u"iTunes U/…/Year One/Lecture"_s << u"iTunes U/…/Lectures"_s;
    QTest::newRow("the first given up last") << lectures << true << u"iTunes U/…/Lecture"_s << u"…/Lectures"_s;
}

void TestPanes::sharedRowsLoseOuterFoldersFirst()
{
    QFETCH(QString, text);
    QFETCH(bool, keepFirst);
    QFETCH(QString, fitting);
    QFETCH(QString, expected);
    const QFontMetrics metrics(QApplication::font());
    const int width = metrics.horizontalAdvance(fitting);
    const QString shown = CVLocationsItemDelegate::elidedFolders(text, metrics, width, keepFirst);
    QVERIFY(metrics.horizontalAdvance(shown) <= width);
    if (!expected.isEmpty()) {
        QCOMPARE(shown, expected);
    } else {
        // Cut at its end, as any name too long for its row.
        QVERIFY(shown.endsWith(u'…'));
        QVERIFY(shown.size() > 1);
    }
}

QTEST_MAIN(TestPanes)
#include "tst_panes.moc"
