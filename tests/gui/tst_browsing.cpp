// The library browser, the track list, the span and media filters, and the search.
#include "Browsing/CVBrowserColumnModel.h"
#include "Browsing/CVBrowserDelegate.h"
#include "Browsing/CVFilterPathDelegate.h"
#include "Browsing/CVItemInformationDelegate.h"
#include "Browsing/CVPlaylistsDelegate.h"
#include "Browsing/CVPlaylistsModel.h"
#include "Browsing/CVTrackColumns.h"
#include "Browsing/CVTrackListModel.h"
#include "CVSpanSession.h"
#include "CVTestFiles.h"
#include "CVWindowDelegate.h"
#include "CVWindowSession.h"
#include "Engine/CVLibraryFilePlayerLink.h"
#include "Library/CVFilter.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPredicateArchive.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVLocationsDelegate.h"
#include "MainWindow/CVLocationsModel.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSheetPresenter.h"
#include "MainWindow/CVWalkThrough.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVSettings.h"
#include "Views/CVFilterPathBar.h"
#include "Views/CVFilterPathPopover.h"
#include "Views/CVMediaFilterBar.h"

#include <QAbstractItemModelTester>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QTableView>
#include <QToolButton>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

// Spans the tracks of a predicate with the program's own engine before the window starts.
void spanBeforeStart(CVWindowSession &session, const QString &predicate, const QString &to)
{
    CVSpanSession span(session.libraryFile());
    CVLibraryFilePlayerLink link(session.libraryFile(), CVSpanHistory::applicationSupportFolder(), &span.files);
    span.usePlayerLink(&link);
    span.span(span.select(predicate), to);
}

int rowOf(const CVBrowserColumnModel *model, const QString &text)
{
    return int(model->browserList().rows.indexOf(text));
}

} // namespace

class TestBrowsing : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyModelPassesTheTester();
    void genreChangeKeepsTheArtistWhileListed();
    void compilationsRowShowsCompilationsAlbumFirst();
    void tvShowsListShowsAndSeasons();
    void spanLocationColumnListsSpanLocations();
    void spanFiltersCountAndFallBack();
    void mediaFiltersCountAndDisable();
    void searchNarrowsEveryPaneAndShowsInThePath();
    void filterPathBarRemovesAndReordersFilters();
    void dragDataCarriesTheRowsPredicate();
    void typeToSelectNeverLandsOnAll();
    void trackListColumnsAreKeptAcrossStarts();
    void contextMenuTitlesFollowTheQueueMode();
    void informationPanelSections();
};

void TestBrowsing::everyModelPassesTheTester()
{
    CVWindowSession session({ .tracks = 200 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVBrowserDelegate *browser = window->browserDelegate();
    QList<QAbstractItemModelTester *> testers;
    const QList<QAbstractItemModel *> models { browser->columnModel(0), browser->columnModel(1),
        browser->columnModel(2), browser->trackModel(), window->playlistsDelegate()->model(),
        window->locationsDelegate()->model() };
    for (QAbstractItemModel *m : models)
        testers.append(new QAbstractItemModelTester(m, QAbstractItemModelTester::FailureReportingMode::QtTest, this));
    // Every kind of change the models go through.
    browser->setMediaFilter(u"All"_s);
    browser->selectRow(CVBrowserDelegate::GenreColumn, 2);
    window->filterSourcesWithSearch(u"a"_s);
    browser->trackModel()->sort(0, Qt::DescendingOrder);
    window->filterSourcesWithSearch(u""_s);
    browser->setSpanFilter(u"Not Spanned"_s);
    browser->setMediaFilter(u"TV Shows"_s);
    window->playlistsDelegate()->refreshPlaylists();
    window->locationsDelegate()->refreshLocations();
    qDeleteAll(testers);
}

void TestBrowsing::genreChangeKeepsTheArtistWhileListed()
{
    CVWindowSession session({ .tracks = 300 });
    CVBrowserDelegate *browser = session.app().windowDelegate()->browserDelegate();
    CVLibraryManager *library = session.app().libraryManager();
    browser->setMediaFilter(u"Music"_s);
    CVBrowserColumnModel *genres = browser->columnModel(0);
    CVBrowserColumnModel *artists = browser->columnModel(1);
    QVERIFY(genres->rowCount() > 3);
    QVERIFY(genres->rowText(0).startsWith(u"All ("_s) && genres->rowText(0).endsWith(u" Genres)"_s));

    // Pick an artist of the first genre, then move to a genre that has the artist, and to one without.
    browser->selectRow(0, 1);
    const QString genreKey = genres->key(1);
    const int artistRow = artists->rowCount() > 2 ? 2 : 1;
    const QString artistText = artists->rowText(artistRow);
    const QString artistKey = artists->key(artistRow);
    browser->selectRow(1, artistRow);
    QCOMPARE(browser->selectedArtist(), CVLibraryManager::makeSafe(artistKey));
    for (const CVTrack *t : browser->trackSource()->tracks) {
        QCOMPARE(t->textRef(CVAttr::SortGenre), genreKey);
        QVERIFY(t->textRef(CVAttr::SortArtist) == artistKey || t->textRef(CVAttr::SortAlbumArtist) == artistKey);
    }
    int withArtist = -1, withoutArtist = -1;
    for (int g = 1; g < genres->rowCount(); ++g) {
        if (genres->key(g) == genreKey)
            continue;
        const QString clause = u"( SortGenre == '%1' )( ( SortArtist == '%2' ) || ( SortAlbumArtist == '%2' ) )"_s.arg(
            CVLibraryManager::makeSafe(genres->key(g)), CVLibraryManager::makeSafe(artistKey));
        const bool has = !library->smartSelectPredicate(CVPredicate::fromText(clause))->tracks.empty();
        (has ? withArtist : withoutArtist) = g;
    }
    QVERIFY(withoutArtist > 0);
    if (withArtist > 0) {
        browser->selectRow(0, withArtist);
        QCOMPARE(artists->rowText(session.app().windowDelegate()->corvanaWindow()->artistView->currentIndex().row()),
            artistText);
    }
    browser->selectRow(0, withoutArtist);
    QCOMPARE(browser->selectedArtist(), u"."_s);
    QVERIFY(session.app().windowDelegate()->corvanaWindow()->artistView->selectionModel()->isRowSelected(0));
}

void TestBrowsing::compilationsRowShowsCompilationsAlbumFirst()
{
    CVWindowSession session({ .tracks = 300 });
    CVBrowserDelegate *browser = session.app().windowDelegate()->browserDelegate();
    browser->setMediaFilter(u"All"_s);
    CVBrowserColumnModel *artists = browser->columnModel(1);
    QCOMPARE(artists->rowText(1), u"Compilations"_s);
    browser->selectRow(1, 1);
    const std::vector<CVTrack *> &tracks = browser->trackSource()->tracks;
    QVERIFY(!tracks.empty());
    QStringList albums;
    for (const CVTrack *t : tracks) {
        QCOMPARE(t->integer(CVAttr::Compilation), 1);
        albums.append(t->text(CVAttr::SortAlbum));
    }
    QVERIFY(std::is_sorted(albums.cbegin(), albums.cend()));
    // Grouping off: the compilations' own artists come back, the row goes.
    session.app().settings()->setValue(CVSettingsKey::GroupCompilationsInBrowser, false);
    QVERIFY(rowOf(artists, u"Compilations"_s) < 0);
}

void TestBrowsing::tvShowsListShowsAndSeasons()
{
    CVWindowSession session({ .tracks = 300 });
    CVBrowserDelegate *browser = session.app().windowDelegate()->browserDelegate();
    browser->setMediaFilter(u"TV Shows"_s);
    CVBrowserColumnModel *shows = browser->columnModel(1);
    CVBrowserColumnModel *seasons = browser->columnModel(2);
    QVERIFY(shows->rowText(0).endsWith(u" Shows)"_s) || shows->rowText(0).endsWith(u" Show)"_s));
    QVERIFY(shows->rowCount() > 1);
    browser->selectRow(1, 1);
    QVERIFY(seasons->rowText(0).contains(u"Season"_s));
    QVERIFY(seasons->rowText(1).startsWith(u"Season "_s));
    browser->selectRow(2, 1);
    const QString season = seasons->key(1);
    QVERIFY(!browser->trackSource()->tracks.empty());
    for (const CVTrack *t : browser->trackSource()->tracks) {
        QCOMPARE(t->text(CVAttr::MediaType), u"TV Shows"_s);
        QCOMPARE(QString::number(t->integer(CVAttr::SortSeason)), season);
        QCOMPARE(t->textRef(CVAttr::SortShow), shows->key(1));
    }
    // The tooltip names the show and the season.
    const CVTrack *first = browser->trackModel()->track(0);
    QVERIFY(CVTrackListModel::toolTipForTrack(*first).contains(
        u"%1 \u00B7 Season %2"_s.arg(first->text(CVAttr::Show), season)));
}

void TestBrowsing::spanLocationColumnListsSpanLocations()
{
    CVWindowSession session({ .tracks = 150, .start = false });
    spanBeforeStart(session, u"( MediaType == 'Movies' )"_s, session.home.filePath(u"Volumes/Films/Spanned"_s));
    spanBeforeStart(session, u"( MediaType == 'Books' )"_s, session.home.filePath(u"Volumes/Talk/Books"_s));
    session.awake();
    session.launch();
    CVBrowserDelegate *browser = session.app().windowDelegate()->browserDelegate();
    browser->setMediaFilter(u"All"_s);
    browser->setShouldShowSpanLocationColumn(true);
    CVBrowserColumnModel *first = browser->columnModel(0);
    QCOMPARE(first->rowText(0), u"All (2 Span Locations)"_s);
    QCOMPARE(first->rowCount(), 3);
    const QString title
        = session.app().libraryManager()->createDisplayTitleForPath(session.home.filePath(u"Volumes/Films/Spanned"_s));
    const int films = rowOf(first, title);
    QVERIFY(films > 0);
    browser->selectRow(0, films);
    QVERIFY(!browser->trackSource()->tracks.empty());
    for (const CVTrack *t : browser->trackSource()->tracks)
        QCOMPARE(t->text(CVAttr::MediaType), u"Movies"_s);
}

void TestBrowsing::spanFiltersCountAndFallBack()
{
    CVWindowSession session({ .tracks = 150, .start = false });
    spanBeforeStart(session, u"( MediaType == 'Movies' )"_s, session.home.filePath(u"Volumes/Films/Spanned"_s));
    session.awake();
    session.launch();
    CVWindowDelegate *window = session.app().windowDelegate();
    CVBrowserDelegate *browser = window->browserDelegate();
    CVLibraryManager *library = session.app().libraryManager();
    window->corvanaWindow()->resize(1280, 580); // room for the media buttons' counts
    browser->setMediaFilter(u"All"_s);
    const int movies
        = int(library->selectPredicate(CVPredicate::fromText(u"( MediaType == 'Movies' )"_s))->tracks.size());
    const int all = int(library->allTracks().size());
    QHash<QString, QAction *> items;
    // The counts are made when the menu opens.
    Q_EMIT window->corvanaWindow()->spanFilterMenu->aboutToShow();
    for (QAction *a : window->corvanaWindow()->spanFilterMenu->actions())
        if (!a->isSeparator())
            items.insert(a->text().section(u" ("_s, 0, 0), a);
    QCOMPARE(items.size(), 9);
    QCOMPARE(items[u"All Tracks"_s]->text(), u"All Tracks (%1)"_s.arg(all));
    QCOMPARE(items[u"All Spanned"_s]->text(), u"All Spanned (%1)"_s.arg(movies));
    QCOMPARE(items[u"Fully Spanned"_s]->text(), u"Fully Spanned (%1)"_s.arg(movies));
    QCOMPARE(items[u"Not Spanned"_s]->text(), u"Not Spanned (%1)"_s.arg(all - movies));
    QCOMPARE(items[u"Never Spanned"_s]->text(), u"Never Spanned (%1)"_s.arg(all - movies));
    // Zero counts: hidden, or disabled when the item has a shortcut; "All Tracks" stays enabled.
    QVERIFY(!items[u"Dependently Spanned"_s]->isVisible());
    QVERIFY(items[u"All Restored"_s]->isVisible() && !items[u"All Restored"_s]->isEnabled());

    browser->setSpanFilter(u"Fully Spanned (12)"_s);
    QCOMPARE(browser->selectedSpanFilter(), u"Fully Spanned"_s);
    QCOMPARE(window->corvanaWindow()->spanFilterButton->text(), u"Span Filter: Fully Spanned"_s);
    QCOMPARE(browser->trackModel()->rowCount(), movies);
    // The media buttons count within the span filter.
    QCOMPARE(window->corvanaWindow()->mediaFilterBar->button(2)->text(), u"Movies (%1)"_s.arg(movies));
    QVERIFY(!window->corvanaWindow()->mediaFilterBar->button(1)->isEnabled());
    // A search that leaves no spanned track falls back to "All Tracks".
    window->filterSourcesWithSearch(u"zzzzqqq"_s);
    QCOMPARE(browser->selectedSpanFilter(), u"All Tracks"_s);
    Q_EMIT window->corvanaWindow()->spanFilterMenu->aboutToShow();
    QVERIFY(items[u"All Tracks"_s]->isEnabled());
    QCOMPARE(items[u"All Tracks"_s]->text(), u"All Tracks (0)"_s);
}

void TestBrowsing::mediaFiltersCountAndDisable()
{
    CVWindowSession session({ .tracks = 200 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVBrowserDelegate *browser = window->browserDelegate();
    CVLibraryManager *library = session.app().libraryManager();
    CVMediaFilterBar *bar = window->corvanaWindow()->mediaFilterBar;
    window->corvanaWindow()->resize(1280, 580); // room for the counts
    // The default media at start.
    QCOMPARE(browser->selectedMedia(), u"Music"_s);
    QVERIFY(bar->button(1)->isChecked());
    const QStringList names = CVBrowserDelegate::mediaNames();
    for (int i = 1; i < names.size(); ++i) {
        const int count = int(
            library->selectPredicate(CVPredicate::fromText(u"( MediaType == '%1' )"_s.arg(names[i])))->tracks.size());
        QCOMPARE(bar->button(i)->text(), u"%1 (%2)"_s.arg(names[i]).arg(count));
    }
    QCOMPARE(bar->button(0)->text(), u"All (%1)"_s.arg(library->allTracks().size()));
    // A search that only music answers: the other buttons are disabled, "All" never.
    browser->setMediaFilter(u"Books"_s);
    QVERIFY(bar->button(6)->isChecked());
    const CVTrack *music
        = library->selectPredicate(CVPredicate::fromText(u"( MediaType == 'Music' )"_s))->tracks.front();
    window->filterSourcesWithSearch(music->text(CVAttr::Name));
    if (!bar->button(6)->isEnabled())
        QCOMPARE(browser->selectedMedia(), u"."_s); // fell back to "All"
    QVERIFY(bar->button(0)->isEnabled());
    // A narrow window drops the counts after closing the gaps.
    bar->resize(300, bar->height());
    QVERIFY(!bar->countsShown());
    bar->resize(2000, bar->height());
    QVERIFY(bar->countsShown());
    QCOMPARE(bar->gap(), 12);
}

void TestBrowsing::searchNarrowsEveryPaneAndShowsInThePath()
{
    CVWindowSession session({ .tracks = 300 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVBrowserDelegate *browser = window->browserDelegate();
    CVMainWindow *w = window->corvanaWindow();
    browser->setMediaFilter(u"All"_s);
    const int allTracks = browser->trackModel()->rowCount();
    const QString playlistsBefore = w->playlistsSummary->text();
    const QString locationsBefore = w->locationsSummary->text();
    QCOMPARE(w->filterPathBar->lineOneString(), u"Browsing Library"_s);
    QCOMPARE(w->filterPathBar->lineTwoString(), u"All Tracks"_s);

    // Typed a key at a time into the field.
    QTest::keyClicks(w->searchField, u"ro"_s);
    QCOMPARE(session.app().libraryManager()->searchString(), u"ro"_s);
    const int narrowed = browser->trackModel()->rowCount();
    QVERIFY(narrowed > 0 && narrowed < allTracks);
    for (int r = 0; r < narrowed; ++r) {
        const CVTrack *t = browser->trackModel()->track(r);
        const QString text = CVFilter::foldText(t->text(CVAttr::Name) + u'|' + t->text(CVAttr::Artist) + u'|'
                + t->text(CVAttr::Album) + u'|' + t->text(CVAttr::Genre),
            CVFilter::CaseFold | CVFilter::DiacriticFold);
        QVERIFY2(text.contains(u"ro"_s), qPrintable(text));
    }
    QVERIFY(w->locationsSummary->text() != locationsBefore);
    Q_UNUSED(playlistsBefore);
    QCOMPARE(w->filterPathBar->lineOneString(), u"Browsing Library"_s);
    QCOMPARE(w->filterPathBar->lineTwoString(), u"Search : ro"_s);
    QCOMPARE(window->recentSearches().value(0), u"ro"_s);

    // The same text again changes nothing; clearing it widens every pane.
    window->filterSourcesWithSearch(u"ro"_s);
    QCOMPARE(browser->trackModel()->rowCount(), narrowed);
    w->searchField->clear();
    QCOMPARE(browser->trackModel()->rowCount(), allTracks);
    QCOMPARE(w->locationsSummary->text(), locationsBefore);
    QCOMPARE(w->filterPathBar->lineTwoString(), u"All Tracks"_s);

    // Ctrl+F puts the focus in the field.
    QApplication::setActiveWindow(w);
    w->trackView->setFocus();
    QTest::keySequence(w, QKeySequence::Find);
    QCOMPARE(QApplication::focusWidget(), w->searchField);
}

void TestBrowsing::filterPathBarRemovesAndReordersFilters()
{
    CVWindowSession session({ .tracks = 300 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVBrowserDelegate *browser = window->browserDelegate();
    CVMainWindow *w = window->corvanaWindow();
    const QString arrow = u"   \u25B8   "_s;
    // Media "Music" is in force at start.
    QCOMPARE(w->filterPathBar->lineTwoString(), u"Media Type : Music"_s);
    window->filterSourcesWithSearch(u"e"_s);
    QCOMPARE(w->filterPathBar->lineOneString(), u"Browsing Library"_s);
    QCOMPARE(w->filterPathBar->lineTwoString(), u"Search : e"_s + arrow + u"Media Type : Music"_s);
    browser->setSpanFilter(u"Not Spanned"_s);
    QCOMPARE(w->filterPathBar->lineOneString(), u"Library"_s + arrow + u"Search : e"_s);
    QCOMPARE(w->filterPathBar->lineTwoString(), u"Span Filter : Not Spanned"_s + arrow + u"Media Type : Music"_s);
    QCOMPARE(w->filterPathPopover->rowTitle(1), u"Search:"_s);
    QCOMPARE(w->filterPathPopover->rowDescription(2), u"Not Spanned"_s);
    QCOMPARE(w->filterPathPopover->rowDescription(4), u"None Selected"_s);
    QCOMPARE(w->filterPathPopover->browseTitle(), u"Span Queue Empty"_s);

    // Moving the first filter "up" moves it down.
    window->filterPathDelegate()->filterPathMenuItemAction(1, 2);
    QCOMPARE(session.app().settings()->stringListValue(CVSettingsKey::FilterPathOrder),
        QStringList({ u"Span Filter"_s, u"Search"_s, u"Media Type"_s, u"Playlist"_s, u"Location"_s }));
    QCOMPARE(w->filterPathBar->lineOneString(), u"Library"_s + arrow + u"Span Filter : Not Spanned"_s);
    // The last row's second segment moves it up.
    window->filterPathDelegate()->filterPathMenuItemAction(5, 1);
    QCOMPARE(session.app().settings()->stringListValue(CVSettingsKey::FilterPathOrder).value(3), u"Location"_s);
    // Clearing after the first row keeps it alone.
    window->filterPathDelegate()->filterPathMenuItemAction(1, 1);
    QCOMPARE(session.app().libraryManager()->searchString(), QString());
    QCOMPARE(browser->selectedMedia(), u"."_s);
    QCOMPARE(browser->selectedSpanFilter(), u"Not Spanned"_s);
    QCOMPARE(w->filterPathBar->lineTwoString(), u"Span Filter : Not Spanned"_s);
    // Clear all.
    window->filterPathDelegate()->filterPathMenuItemAction(0, 1);
    QCOMPARE(browser->selectedSpanFilter(), u"All Tracks"_s);
    QCOMPARE(w->filterPathBar->lineTwoString(), u"All Tracks"_s);
    // While the mouse is over it, line two invites a click.
    window->filterPathDelegate()->setIsMouseOverFilterPathBar(true);
    QCOMPARE(w->filterPathBar->lineTwoString(), u"Click to Modify Filters"_s);
}

void TestBrowsing::dragDataCarriesTheRowsPredicate()
{
    CVWindowSession session({ .tracks = 200 });
    CVBrowserDelegate *browser = session.app().windowDelegate()->browserDelegate();
    CVLibraryManager *library = session.app().libraryManager();
    const QString mime = QString::fromLatin1(CVPredicateArchive::MimeType);
    browser->setMediaFilter(u"All"_s);
    // The "All" row drags the stack's whole selection.
    std::unique_ptr<QMimeData> all(browser->columnModel(0)->mimeData({ browser->columnModel(0)->index(0) }));
    QCOMPARE(CVPredicateArchive::unarchive(all->data(mime)), CVPredicate::fromText(u""_s));
    browser->selectRow(0, 1);
    std::unique_ptr<QMimeData> artist(browser->columnModel(1)->mimeData({ browser->columnModel(1)->index(1) }));
    const auto p = CVPredicateArchive::unarchive(artist->data(mime));
    QVERIFY(p && p->text().startsWith(u"( SortGenre == '"_s) && p->text().contains(u"SortAlbumArtist"_s));
    QVERIFY(!library->smartSelectPredicate(*p)->tracks.empty());
    // Track rows drag their TrackIDs, ascending.
    CVTrackListModel *tracks = browser->trackModel();
    std::unique_ptr<QMimeData> rows(
        tracks->mimeData({ tracks->index(2, 0), tracks->index(0, 0), tracks->index(0, 3) }));
    const auto ids = CVPredicateArchive::unarchive(rows->data(mime));
    QVERIFY(ids);
    std::vector<qint64> expected { tracks->track(0)->integer(CVAttr::TrackID),
        tracks->track(2)->integer(CVAttr::TrackID) };
    std::sort(expected.begin(), expected.end());
    QCOMPARE(ids->trackIDs(), expected);
}

void TestBrowsing::typeToSelectNeverLandsOnAll()
{
    CVWindowSession session({ .tracks = 200 });
    CVBrowserDelegate *browser = session.app().windowDelegate()->browserDelegate();
    CVMainWindow *w = session.app().windowDelegate()->corvanaWindow();
    browser->setMediaFilter(u"All"_s);
    CVBrowserColumnModel *genres = browser->columnModel(0);
    // "a" would match "All (12 Genres)" by its text; the row answers a blank instead.
    QModelIndexList hits
        = genres->match(genres->index(0), Qt::DisplayRole, u"a"_s, 1, Qt::MatchStartsWith | Qt::MatchWrap);
    QVERIFY(hits.isEmpty() || hits.first().row() != 0);
    w->genreView->setFocus();
    const QString target = genres->key(3);
    QTest::keyClicks(w->genreView, target.left(3));
    QVERIFY(genres->key(w->genreView->currentIndex().row()).startsWith(target.left(3)));
    QVERIFY(w->genreView->currentIndex().row() != 0);
}

void TestBrowsing::trackListColumnsAreKeptAcrossStarts()
{
    CVWindowSession session({ .tracks = 80 });
    CVBrowserDelegate *browser = session.app().windowDelegate()->browserDelegate();
    QCOMPARE(browser->getVisibleColumns(), CVTrackColumns::defaultIdentifiers());
    const QStringList chosen { u"Artist"_s, u"Name"_s, u"Year"_s, u"SpanLocation"_s };
    browser->setTableColumns(chosen);
    QCOMPARE(browser->getVisibleColumns(), chosen);
    QHeaderView *header = session.app().windowDelegate()->corvanaWindow()->trackView->horizontalHeader();
    // Sorting by a header: ascending, then descending.
    const int year = CVTrackColumns::indexOf(u"Year"_s);
    Q_EMIT header->sectionClicked(year);
    Q_EMIT header->sectionClicked(year);
    CVTrackListModel *tracks = browser->trackModel();
    QCOMPARE(tracks->sortColumn(), year);
    QCOMPARE(tracks->sortOrder(), Qt::DescendingOrder);
    for (int r = 1; r < tracks->rowCount(); ++r)
        QVERIFY(tracks->track(r - 1)->integer(CVAttr::Year) >= tracks->track(r)->integer(CVAttr::Year));
    session.app().terminate();
    session.restart();
    CVBrowserDelegate *again = session.app().windowDelegate()->browserDelegate();
    QCOMPARE(again->getVisibleColumns(), chosen);
    QCOMPARE(again->trackModel()->sortColumn(), year);
    QCOMPARE(again->trackModel()->sortOrder(), Qt::DescendingOrder);
}

void TestBrowsing::contextMenuTitlesFollowTheQueueMode()
{
    CVWindowSession session({ .tracks = 120 });
    CVWindowDelegate *window = session.app().windowDelegate();
    CVBrowserDelegate *browser = window->browserDelegate();
    QCOMPARE(browser->queueMenuTitle(0, 0), u"Add Genres to Spanning Queue…"_s);
    QCOMPARE(browser->queueMenuTitle(1, 2), u"Add Artist to Spanning Queue…"_s);
    QCOMPARE(browser->queueMenuTitle(2, 0), u"Add Albums to Spanning Queue…"_s);
    window->corvanaWindow()->trackView->selectRow(0);
    QCOMPARE(browser->queueMenuTitle(CVBrowserDelegate::TrackList, 0), u"Add Track to Spanning Queue…"_s);
    window->corvanaWindow()->trackView->selectAll();
    QCOMPARE(browser->queueMenuTitle(CVBrowserDelegate::TrackList, 1), u"Add Tracks to Spanning Queue…"_s);
    // Adding the selection through the menu asks first, with the selection's summary.
    window->corvanaWindow()->trackView->selectRow(1);
    window->corvanaWindow()->trackView->setFocus();
    QApplication::setActiveWindow(window->corvanaWindow());
    session.app().presenter()->queueAnswer(CVPresenter::DefaultReturn);
    window->addOrRemoveSelectionFromQueue();
    QCOMPARE(session.app().presenter()->openSheet().title,
        u"Are you sure you want to add the current track selection to the spanning queue?"_s);
    QTRY_COMPARE(window->spanQueue().size(), 1);
    window->browseSpanningQueue(true);
    QVERIFY(window->isBrowsingSpanningQueue());
    QCOMPARE(browser->trackModel()->rowCount(), 1);
    QCOMPARE(browser->queueMenuTitle(CVBrowserDelegate::TrackList, 0), u"Remove Track from Spanning Queue…"_s);
    QCOMPARE(window->corvanaWindow()->filterPathBar->lineOneString(), u"Browsing Spanning Queue"_s);
    QCOMPARE(window->walkThrough()->walkThroughText(), u"Browsing Spanning Queue \u2013 Drag Media Here to Remove"_s);
}

void TestBrowsing::informationPanelSections()
{
    CVWindowSession session({ .tracks = 120, .start = false });
    spanBeforeStart(session, u"( MediaType == 'Movies' )"_s, session.home.filePath(u"Volumes/Films/Spanned"_s));
    session.awake();
    session.launch();
    CVWindowDelegate *window = session.app().windowDelegate();
    CVBrowserDelegate *browser = window->browserDelegate();
    CVItemInformationDelegate *info = window->itemInformationDelegate();
    QCOMPARE(info->fieldText(u"lineTwo"_s), u"No Track Selected"_s);
    QVERIFY(!info->isSectionControlVisible());
    // With nothing loaded, choosing a section does nothing.
    info->setInfoSectionAction(CVItemInformationDelegate::SpanSection);
    QCOMPARE(info->currentSection(), 0);

    browser->setMediaFilter(u"Movies"_s);
    window->corvanaWindow()->trackView->selectRow(0);
    const CVTrack *movie = browser->firstSelectedTrack();
    QVERIFY(movie && movie->flag(CVAttr::ItemIsSpanned));
    QCOMPARE(info->fieldText(u"lineOne"_s), movie->text(CVAttr::Name));
    QVERIFY(info->isSectionControlVisible());
    info->setInfoSectionAction(CVItemInformationDelegate::SpanSection);
    QCOMPARE(info->currentSection(), int(CVItemInformationDelegate::SpanSection));
    QCOMPARE(info->fieldText(u"spanOverview"_s),
        u"Fully Spanned to '%1'"_s.arg(session.app().libraryManager()->createDisplayTitleForPath(
            session.home.filePath(u"Volumes/Films/Spanned"_s))));
    QCOMPARE(info->fieldText(u"spanLocation"_s), movie->text(CVAttr::SpanLocation));
    QVERIFY(info->fieldText(u"spanSummary"_s).startsWith(u"Spanned on "_s));
    QVERIFY(info->fieldText(u"spanSummary"_s).contains(u" at "_s));
    QVERIFY(info->isLocationNoteVisible());
    QCOMPARE(info->fieldText(u"show"_s), movie->text(CVAttr::Show));

    browser->setMediaFilter(u"Music"_s);
    window->corvanaWindow()->trackView->selectRow(0);
    const CVTrack *song = browser->firstSelectedTrack();
    QCOMPARE(info->fieldText(u"spanOverview"_s), u"Never Spanned"_s);
    QCOMPARE(info->fieldText(u"spanLocation"_s), u"Not Spanned"_s);
    QCOMPARE(info->fieldText(u"compilation"_s), song->integer(CVAttr::Compilation) ? u"Yes"_s : u"No"_s);
    QCOMPARE(info->fieldText(u"playCount"_s), song->has(CVAttr::Plays) ? song->text(CVAttr::Plays) : u"0"_s);
    QCOMPARE(info->fieldText(u"bitRate"_s),
        song->has(CVAttr::BitRate) ? song->text(CVAttr::DisplayBitRate) : u"Not applicable"_s);
    QVERIFY(!info->isLocationNoteVisible());
    // A music track leaves the video fields as they were.
    QCOMPARE(info->fieldText(u"show"_s), movie->text(CVAttr::Show));
    // Ctrl+I shows the window.
    window->corvanaWindow()->action(u"getInfo"_s)->trigger();
    QVERIFY(info->window()->isVisible());
    // Its buttons act on the track it shows: the player here is the library file, so showing,
    // revealing and playing all go to the desktop, whose opener records what it is asked.
    const QString record = session.home.filePath(u"opened.txt"_s);
    const QString opener = session.home.filePath(u"opener.sh"_s);
    writeFile(opener, "#!/bin/sh\necho \"$@\" >> '" + record.toUtf8() + "'\n");
    QFile::setPermissions(opener, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    CVFileManagerLink::shared()->setOpener(opener);
    const auto restoreOpener = qScopeGuard([] { CVFileManagerLink::shared()->setOpener(u"xdg-open"_s); });
    const QString songPath = song->text(CVAttr::Location);
    int asked = 0;
    for (const QString &button : { u"Show in File Manager"_s, u"Reveal in Player"_s, u"Play in Player"_s }) {
        QPushButton *b = nullptr;
        for (QPushButton *candidate : info->window()->findChildren<QPushButton *>())
            if (candidate->accessibleName() == button)
                b = candidate;
        QVERIFY2(b && b->isVisible(), qPrintable(button));
        b->click();
        QTRY_VERIFY2(readAll(record).count('\n') > asked, qPrintable(button));
        asked = int(readAll(record).count('\n'));
    }
    const QByteArray opened = readAll(record);
    QVERIFY2(opened.contains(QFileInfo(songPath).path().toUtf8()), opened.constData());
    QVERIFY2(opened.contains(songPath.toUtf8()), opened.constData());
    // A selection change outside the track list clears it.
    browser->selectRow(0, 1);
    QCOMPARE(info->fieldText(u"lineTwo"_s), u"No Track Selected"_s);
}

QTEST_MAIN(TestBrowsing)
#include "tst_browsing.moc"
