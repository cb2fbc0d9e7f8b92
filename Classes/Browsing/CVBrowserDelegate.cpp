#include "Browsing/CVBrowserDelegate.h"

#include "Browsing/CVBrowserColumnModel.h"
#include "Browsing/CVTrackColumns.h"
#include "Browsing/CVTrackListModel.h"
#include "Engine/CVPlayerLink.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVMainWindow.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVLog.h"
#include "Platform/CVSettings.h"

#include <QHeaderView>
#include <QItemSelectionModel>
#include <QListView>
#include <QMenu>
#include <QSplitter>
#include <QTableView>

using namespace Qt::StringLiterals;

namespace {

constexpr CVSettingsKey kColumnsKey = CVSettingsKey::PlaylistTrackListColumns;
constexpr CVSettingsKey kHiddenColumnsKey = CVSettingsKey::PlaylistTrackListHiddenColumns;
constexpr CVSettingsKey kSortKey = CVSettingsKey::PlaylistTrackListSortOrdering;

using Pane = CVSelectionModel::Pane;

Pane paneOfColumn(int column)
{
    return column == CVBrowserDelegate::GenreColumn ? Pane::Genre
        : column == CVBrowserDelegate::ArtistColumn ? Pane::Artist
                                                    : Pane::Album;
}

} // namespace

const QStringList &CVBrowserDelegate::mediaNames()
{
    static const QStringList names { u"All"_s, u"Music"_s, u"Movies"_s, u"TV Shows"_s, u"Podcasts"_s, u"iTunes U"_s,
        u"Books"_s };
    return names;
}

const QStringList &CVBrowserDelegate::spanFilterNames()
{
    static const QStringList names { u"All Tracks"_s, u"All Spanned"_s, u"Dependently Spanned"_s, u"Fully Spanned"_s,
        u"Not Spanned"_s, u"All Restored"_s, u"Dependently Restored"_s, u"Fully Restored"_s, u"Never Spanned"_s };
    return names;
}

CVBrowserDelegate::CVBrowserDelegate(CVLibraryManager *library, CVSettings *settings, CVSelectionModel *selection,
    CVMainWindow *window, Links links, QObject *parent)
    : QObject(parent)
    , m_library(library)
    , m_settings(settings)
    , m_selection(selection)
    , m_window(window)
    , m_links(std::move(links))
{
    for (int c = 0; c < 3; ++c) {
        m_columns[c] = new CVBrowserColumnModel(this);
        m_columns[c]->setDragPredicate([this, c](int row) { return retrievePredicateForRowBeingDragged(row, c); });
        m_columns[c]->setSelectedRow([this, c] { return selectedRow(c); });
    }
    m_trackModel = new CVTrackListModel(this);
    const QString media = m_settings->stringValue(CVSettingsKey::DefaultBrowserMedia);
    for (const QString &name : mediaNames())
        if (media.contains(name))
            m_selection->setMedia(name);
    window->genreView->setModel(m_columns[0]);
    window->artistView->setModel(m_columns[1]);
    window->albumView->setModel(m_columns[2]);
    window->trackView->setModel(m_trackModel);
    connectViews();
    restoreTrackListColumns();
    connect(m_selection, &CVSelectionModel::changed, this, &CVBrowserDelegate::selectionModelChanged);
}

CVBrowserDelegate::~CVBrowserDelegate() = default;

void CVBrowserDelegate::selectionModelChanged(Pane origin, Pane listener)
{
    switch (listener) {
    case Pane::Browser:
        switch (origin) {
        case Pane::Genre:
            cascadeFrom(ArtistColumn);
            break;
        case Pane::Artist:
            cascadeFrom(AlbumColumn);
            break;
        case Pane::Album:
            cascadeFrom(TrackList);
            break;
        default:
            refreshLibraryBrowser();
            // A changed queue or listing keeps the list where it was; a new narrowing starts
            // from its top.
            if (origin != Pane::QueueContents && origin != Pane::Browser)
                scrollTrackListToTop();
            break;
        }
        break;
    case Pane::SpanFilter:
        if (origin == Pane::SpanFilter)
            showSpanFilter();
        else
            refreshSpanFilters();
        break;
    case Pane::MediaFilter:
        if (origin == Pane::MediaFilter)
            showMediaFilter();
        else
            refreshMediaFilters();
        break;
    default:
        break;
    }
}

QListView *CVBrowserDelegate::columnView(int column) const
{
    switch (column) {
    case GenreColumn:
        return m_window->genreView;
    case ArtistColumn:
        return m_window->artistView;
    case AlbumColumn:
        return m_window->albumView;
    default:
        return nullptr;
    }
}

int CVBrowserDelegate::columnIndexForBrowserTable(const QObject *view) const
{
    for (int c = 0; c < 3; ++c)
        if (columnView(c) == view)
            return c;
    return view == m_window->trackView ? TrackList : -2;
}

void CVBrowserDelegate::connectViews()
{
    const std::pair<int, void (CVBrowserDelegate::*)()> actions[] = {
        { GenreColumn, &CVBrowserDelegate::genreListAction },
        { ArtistColumn, &CVBrowserDelegate::artistListAction },
        { AlbumColumn, &CVBrowserDelegate::albumListAction },
    };
    for (const auto &[column, action] : actions) {
        QListView *view = columnView(column);
        // The refresh keeps the model's key before it selects a row: only a row of another key
        // (a click, a key press) is a change.
        connect(view->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this, action] { (this->*action)(); });
        connect(view, &QWidget::customContextMenuRequested, this,
            [this, column](const QPoint &at) { showColumnMenu(column, at); });
    }
    QTableView *tracks = m_window->trackView;
    connect(tracks->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] { trackListAction(); });
    connect(tracks, &QWidget::customContextMenuRequested, this, &CVBrowserDelegate::showTrackListMenu);
    connect(tracks, &QAbstractItemView::doubleClicked, this, [this] { playSelectionInITunes(); });
    QHeaderView *header = tracks->horizontalHeader();
    connect(header, &QHeaderView::sectionClicked, this, [this, header](int section) {
        // Ascending first; a second click descends; a third goes back to the selection's order.
        const bool same = m_trackModel->sortColumn() == section;
        if (same && m_trackModel->sortOrder() == Qt::DescendingOrder) {
            m_trackModel->sort(-1, Qt::AscendingOrder);
            header->setSortIndicatorShown(false);
        } else {
            const Qt::SortOrder order = same ? Qt::DescendingOrder : Qt::AscendingOrder;
            m_trackModel->sort(section, order);
            header->setSortIndicatorShown(true);
            header->setSortIndicator(section, order);
        }
        saveTrackListColumns();
    });
    connect(header, &QHeaderView::sectionMoved, this, [this] { saveTrackListColumns(); });
    connect(header, &QHeaderView::sectionResized, this, [this] { saveTrackListColumns(); });
    connect(header, &QWidget::customContextMenuRequested, this, [this, header](const QPoint &at) {
        QMenu menu;
        const QStringList shown = getVisibleColumns();
        for (const CVTrackColumn &c : CVTrackColumns::all()) {
            QAction *a = menu.addAction(c.title);
            a->setCheckable(true);
            a->setChecked(shown.contains(c.identifier));
            a->setData(c.identifier);
            // The last shown column stays.
            a->setEnabled(!(shown.size() == 1 && shown.contains(c.identifier)));
        }
        menu.addSeparator();
        QAction *reset = menu.addAction(u"Default Columns"_s);
        QAction *options = menu.addAction(u"Column Display Options…"_s);
        QAction *chosen = menu.exec(header->mapToGlobal(at));
        if (!chosen)
            return;
        if (chosen == options) {
            Q_EMIT columnDisplayOptionsRequested();
            return;
        }
        QStringList next = shown;
        if (chosen == reset)
            next = CVTrackColumns::defaultIdentifiers();
        else if (chosen->isChecked())
            next.append(chosen->data().toString());
        else
            next.removeAll(chosen->data().toString());
        setTableColumns(next);
        saveTrackListColumns();
    });
}

// ---- Predicates of the stack -------------------------------------------------------------

CVPredicate CVBrowserDelegate::getSpanFilterPredicate() const
{
    return m_selection->getSpanFilterPredicate();
}

CVPredicate CVBrowserDelegate::getMediaTypePredicate() const
{
    return m_selection->getMediaTypePredicate();
}

// ---- The browser -------------------------------------------------------------------------

int CVBrowserDelegate::selectedRow(int column) const
{
    const QListView *view = columnView(column);
    if (!view || !view->selectionModel())
        return -1;
    const QModelIndexList rows = view->selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.first().row();
}

QString CVBrowserDelegate::readSelectedKey(int column) const
{
    const int row = selectedRow(column);
    if (row < 0)
        return u"."_s;
    return CVLibraryManager::makeSafe(m_columns[column]->key(row));
}

QString CVBrowserDelegate::genreClause() const
{
    const QString genre = selectedGenre();
    if (genre == u"."_s)
        return u""_s;
    return u"( %1 == '%2' )"_s.arg(m_showSpanLocationColumn ? u"BaseSpanPath"_s : u"SortGenre"_s, genre);
}

QString CVBrowserDelegate::artistClause(const QString &key) const
{
    if (key == u"."_s)
        return u""_s;
    if (key == u"Compilations"_s)
        return u"( Compilation == 1 )"_s;
    if (selectedMedia() == u"TV Shows"_s)
        return u"( SortShow == '%1' )"_s.arg(key);
    // An artist row matches by artist or by album artist, whatever the album-artist setting.
    return u"( ( SortArtist == '%1' ) || ( SortAlbumArtist == '%1' ) )"_s.arg(key);
}

QString CVBrowserDelegate::albumClause(const QString &key) const
{
    if (key == u"."_s)
        return u""_s;
    // A season sorts as a number: compared bare.
    if (selectedMedia() == u"TV Shows"_s)
        return u"( SortSeason == %1 )"_s.arg(key);
    return u"( SortAlbum == '%1' )"_s.arg(key);
}

CVBrowserList CVBrowserDelegate::retrieveDataSourceForBrowserColumn(int column)
{
    const bool tv = selectedMedia() == u"TV Shows"_s;
    QString field, sortField, predicate;
    switch (column) {
    case GenreColumn:
        field = m_showSpanLocationColumn ? u"DisplaySpanLocation"_s : u"Genre"_s;
        sortField = m_showSpanLocationColumn ? u"BaseSpanPath"_s : u"SortGenre"_s;
        predicate = u""_s;
        return m_library->getBrowserListForField(
            field, u"Genre"_s, sortField, m_library->smartSelectPredicate(CVPredicate::fromText(predicate)));
    case ArtistColumn:
        field = tv ? u"Show"_s : u"Artist"_s;
        sortField = tv ? u"SortShow"_s : u"SortArtist"_s;
        predicate = genreClause();
        return m_library->getBrowserListForField(
            field, u"Artist"_s, sortField, m_library->smartSelectPredicate(CVPredicate::fromText(predicate)));
    case AlbumColumn:
        field = tv ? u"Season"_s : u"Album"_s;
        sortField = tv ? u"SortSeason"_s : u"SortAlbum"_s;
        predicate = genreClause() + artistClause(selectedArtist());
        return m_library->getBrowserListForField(
            field, u"Album"_s, sortField, m_library->smartSelectPredicate(CVPredicate::fromText(predicate)));
    default:
        return {};
    }
}

void CVBrowserDelegate::updateDataSourceForLibraryBrowserColumn(int column)
{
    const int row = selectedRow(column);
    if (row >= 0)
        m_currentBrowserSelectionObjects.insert(column, m_columns[column]->rowText(row));
    m_columns[column]->setBrowserList(retrieveDataSourceForBrowserColumn(column));
}

void CVBrowserDelegate::setBrowserSelectionsForColumnAndUpdateTrackTable(int column)
{
    if (column == TrackList) {
        retrieveDataSourceForTrackTable();
        updateDataSourceForTrackTable();
        return;
    }
    QListView *view = columnView(column);
    const CVBrowserList &list = m_columns[column]->browserList();
    int row = m_currentBrowserSelectionObjects.contains(column)
        ? int(list.rows.indexOf(m_currentBrowserSelectionObjects.value(column)))
        : 0;
    if (row < 0)
        row = 0;
    if (list.rows.isEmpty())
        return;
    const QModelIndex index = m_columns[column]->index(row);
    m_selection->keepBrowserKey(paneOfColumn(column), CVLibraryManager::makeSafe(m_columns[column]->key(row)));
    if (selectedRow(column) != row)
        view->selectionModel()->select(index, QItemSelectionModel::ClearAndSelect);
    view->selectionModel()->setCurrentIndex(index, QItemSelectionModel::NoUpdate);
    view->scrollTo(index);
    m_currentBrowserSelectionObjects.insert(column, list.rows.at(row));
}

void CVBrowserDelegate::refreshLibraryBrowser()
{
    updateDataSourceForLibraryBrowserColumn(GenreColumn);
    setBrowserSelectionsForColumnAndUpdateTrackTable(GenreColumn);
    keepKey(GenreColumn);
    cascadeFrom(ArtistColumn);
}

void CVBrowserDelegate::keepKey(int column)
{
    m_selection->keepBrowserKey(paneOfColumn(column), readSelectedKey(column));
    if (const int row = selectedRow(column); row >= 0)
        m_currentBrowserSelectionObjects.insert(column, m_columns[column]->rowText(row));
}

void CVBrowserDelegate::cascadeFrom(int column)
{
    for (int c = column; c >= 0 && c <= AlbumColumn; ++c) {
        updateDataSourceForLibraryBrowserColumn(c);
        setBrowserSelectionsForColumnAndUpdateTrackTable(c);
        keepKey(c);
    }
    setBrowserSelectionsForColumnAndUpdateTrackTable(TrackList);
    // A selection change outside the track list clears the information panel.
    Q_EMIT trackSelected(nullptr);
}

void CVBrowserDelegate::genreListAction()
{
    if (const int row = selectedRow(GenreColumn); row >= 0)
        m_currentBrowserSelectionObjects.insert(GenreColumn, m_columns[GenreColumn]->rowText(row));
    m_selection->setBrowserKey(Pane::Genre, readSelectedKey(GenreColumn));
}

void CVBrowserDelegate::artistListAction()
{
    if (const int row = selectedRow(ArtistColumn); row >= 0)
        m_currentBrowserSelectionObjects.insert(ArtistColumn, m_columns[ArtistColumn]->rowText(row));
    m_selection->setBrowserKey(Pane::Artist, readSelectedKey(ArtistColumn));
}

void CVBrowserDelegate::albumListAction()
{
    if (const int row = selectedRow(AlbumColumn); row >= 0)
        m_currentBrowserSelectionObjects.insert(AlbumColumn, m_columns[AlbumColumn]->rowText(row));
    m_selection->setBrowserKey(Pane::Album, readSelectedKey(AlbumColumn));
}

void CVBrowserDelegate::retrieveDataSourceForTrackTable()
{
    if (selectedRow(AlbumColumn) < 0)
        return;
    const QString predicate = genreClause() + artistClause(selectedArtist()) + albumClause(selectedAlbum());
    m_trackSource = m_library->smartSelectPredicate(CVPredicate::fromText(predicate));
}

void CVBrowserDelegate::updateDataSourceForTrackTable()
{
    // Typing in the list matches the most specific name the browser leaves open.
    const CVAttr typeSelect = selectedAlbum() != u"."_s ? CVAttr::SortName
        : selectedArtist() != u"."_s                    ? CVAttr::SortAlbum
                                                        : CVAttr::SortArtist;
    m_trackModel->setTypeSelectAttribute(typeSelect);
    m_trackModel->setTracks(m_trackSource);
    Q_EMIT tracksListed(m_trackSource);
}

void CVBrowserDelegate::trackListAction()
{
    Q_EMIT trackSelected(firstSelectedTrack());
}

void CVBrowserDelegate::selectRow(int column, int row)
{
    if (column == TrackList) {
        m_window->trackView->selectRow(row);
        return;
    }
    QListView *view = columnView(column);
    view->selectionModel()->setCurrentIndex(m_columns[column]->index(row), QItemSelectionModel::ClearAndSelect);
}

void CVBrowserDelegate::scrollTrackListToTop()
{
    m_window->trackView->scrollToTop();
}

void CVBrowserDelegate::setShouldShowSpanLocationColumn(bool show)
{
    if (m_showSpanLocationColumn == show)
        return;
    m_showSpanLocationColumn = show;
    m_currentBrowserSelectionObjects.remove(GenreColumn);
    m_selection->browserListingChanged();
}

void CVBrowserDelegate::adjustBrowserForNewSize()
{
    const bool onTop = m_settings->boolValue(CVSettingsKey::ColumnBrowserOnTop);
    if (onTop != m_window->browserOnTop())
        m_window->setBrowserOnTop(onTop);
    const int total = onTop ? m_window->centreSplitter->height() : m_window->centreSplitter->width();
    if (total <= 0)
        return;
    const double wanted = onTop ? m_settings->realValue(CVSettingsKey::BrowserTopFrameHeight)
                                : m_settings->realValue(CVSettingsKey::BrowserLeftFrameWidth);
    // The browser never squeezes the track list below a third of the space.
    const int browser = qBound(60, int(wanted), qMax(60, total * 2 / 3));
    m_window->centreSplitter->setSizes({ browser, total - browser });
}

void CVBrowserDelegate::clearAllForReload()
{
    // The model is cleared by its owner; the filters' buttons show what it holds now.
    setMediaFilter(m_settings->stringValue(CVSettingsKey::DefaultBrowserMedia));
    showSpanFilter();
    m_currentBrowserSelectionObjects.clear();
    for (CVBrowserColumnModel *model : m_columns)
        model->setBrowserList({});
    m_trackSource.reset();
    m_trackModel->setTracks({});
    Q_EMIT trackSelected(nullptr);
}

// ---- Rows and their predicates ----------------------------------------------------------

QList<int> CVBrowserDelegate::selectedTrackRows() const
{
    QList<int> rows;
    for (const QModelIndex &i : m_window->trackView->selectionModel()->selectedRows())
        rows.append(i.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

const CVTrack *CVBrowserDelegate::firstSelectedTrack() const
{
    const QList<int> rows = selectedTrackRows();
    return rows.isEmpty() ? nullptr : m_trackModel->track(rows.first());
}

CVPredicate CVBrowserDelegate::retrievePredicateForTrackTableRowIndexes(const QList<int> &rows) const
{
    std::vector<const CVTrack *> tracks;
    for (int row : rows)
        tracks.push_back(m_trackModel->track(row));
    return CVTrackListModel::predicateForTracks(tracks);
}

CVPredicate CVBrowserDelegate::retrievePredicateForRowBeingDragged(int row, int column)
{
    const QString key = CVLibraryManager::makeSafe(m_columns[column]->key(row));
    switch (column) {
    case GenreColumn:
        if (key == u"."_s)
            return CVPredicate::fromText(u""_s);
        return CVPredicate::fromText(
            u"( %1 == '%2' )"_s.arg(m_showSpanLocationColumn ? u"BaseSpanPath"_s : u"SortGenre"_s, key));
    case ArtistColumn:
        return CVPredicate::fromText(genreClause() + artistClause(key));
    case AlbumColumn:
        return CVPredicate::fromText(genreClause() + artistClause(selectedArtist()) + albumClause(key));
    default:
        return CVPredicate::fromText(u""_s);
    }
}

// ---- Track actions -----------------------------------------------------------------------

QString CVBrowserDelegate::playlistNameForTrack(const CVTrack &track) const
{
    // The selected playlist, else the player's own playlist of the track's kind.
    const QString &playlist = m_selection->playlistName();
    return playlist.isEmpty() ? track.text(CVAttr::MediaType) : playlist;
}

void CVBrowserDelegate::playSelectionInITunes()
{
    const CVTrack *track = firstSelectedTrack();
    CVPlayerLink *link = m_links.player ? m_links.player() : nullptr;
    if (!track || !link)
        return;
    if (!link->playOnce(playlistNameForTrack(*track), track->text(CVAttr::PersistentID)))
        CVLog::log(u"Corvana ScriptingBridge Error: %1 could not play the track"_s.arg(link->description()));
}

void CVBrowserDelegate::revealSelectionInITunes()
{
    const CVTrack *track = firstSelectedTrack();
    CVPlayerLink *link = m_links.player ? m_links.player() : nullptr;
    if (!track || !link)
        return;
    link->activate();
    if (!link->reveal(playlistNameForTrack(*track), track->text(CVAttr::PersistentID)))
        CVLog::log(u"Corvana ScriptingBridge Error: %1 could not reveal the track"_s.arg(link->description()));
}

void CVBrowserDelegate::showSelectionInFinder()
{
    const CVTrack *track = firstSelectedTrack();
    CVFileManagerLink *files = m_links.fileManager ? m_links.fileManager() : nullptr;
    if (!track || !files)
        return;
    const QString path
        = track->has(CVAttr::SpanLocation) ? track->text(CVAttr::SpanLocation) : track->text(CVAttr::Location);
    if (!files->selectFile(path))
        CVLog::log(u"Corvana ScriptingBridge Error: the file manager could not show %1"_s.arg(path));
}

void CVBrowserDelegate::trackListMenuAction(int tag, int clickedRow)
{
    if (clickedRow >= 0)
        m_window->trackView->selectRow(clickedRow);
    switch (tag) {
    case 0:
        Q_EMIT trackInformationRequested();
        break;
    case 1:
        showSelectionInFinder();
        break;
    case 2:
        revealSelectionInITunes();
        break;
    case 3:
        playSelectionInITunes();
        break;
    default:
        break;
    }
}

QString CVBrowserDelegate::queueMenuTitle(int column, int clickedRow) const
{
    const bool browsing = m_selection->isBrowsingQueue();
    const QString verb = browsing ? u"Remove"_s : u"Add"_s;
    const QString preposition = browsing ? u"from"_s : u"to"_s;
    QString kind;
    bool plural = false;
    switch (column) {
    case GenreColumn:
        kind = u"Genre"_s;
        plural = clickedRow == 0;
        break;
    case ArtistColumn:
        kind = u"Artist"_s;
        plural = clickedRow == 0;
        break;
    case AlbumColumn:
        kind = u"Album"_s;
        plural = clickedRow == 0;
        break;
    default: {
        kind = u"Track"_s;
        const QList<int> rows = selectedTrackRows();
        const int concerned = rows.contains(clickedRow) ? int(rows.size()) : 1;
        plural = concerned != 1;
        break;
    }
    }
    return u"%1 %2%3 %4 Spanning Queue…"_s.arg(verb, kind, plural ? u"s"_s : u""_s, preposition);
}

void CVBrowserDelegate::showColumnMenu(int column, const QPoint &at)
{
    QListView *view = columnView(column);
    const QModelIndex clicked = view->indexAt(at);
    QMenu menu;
    QAction *queue = menu.addAction(queueMenuTitle(column, clicked.isValid() ? clicked.row() : -1));
    menu.addSeparator();
    QAction *info = menu.addAction(u"Get Info"_s);
    info->setEnabled(false);
    // Nothing to queue when the row's predicate selects no tracks.
    if (!clicked.isValid()
        || m_library->smartSelectPredicate(retrievePredicateForRowBeingDragged(clicked.row(), column))
               ->tracks.empty()) {
        queue->setVisible(false);
        info->setVisible(false);
    }
    if (menu.exec(view->viewport()->mapToGlobal(at)) == queue && clicked.isValid()) {
        selectRow(column, clicked.row());
        view->setFocus();
        Q_EMIT queueSelectionRequested();
    }
}

void CVBrowserDelegate::showTrackListMenu(const QPoint &at)
{
    QTableView *view = m_window->trackView;
    const QModelIndex clicked = view->indexAt(at);
    if (!clicked.isValid())
        return;
    QMenu menu;
    QAction *queue = menu.addAction(queueMenuTitle(TrackList, clicked.row()));
    menu.addSeparator();
    const QString titles[] = { u"Get Info"_s, u"Show in File Manager"_s, u"Reveal in Player"_s, u"Play in Player"_s };
    QList<QAction *> items;
    for (int tag = 0; tag < 4; ++tag) {
        QAction *a = menu.addAction(titles[tag]);
        a->setData(tag);
        items.append(a);
    }
    QAction *chosen = menu.exec(view->viewport()->mapToGlobal(at));
    if (!chosen)
        return;
    if (chosen == queue) {
        // The selection stays when the clicked row is part of it.
        if (!selectedTrackRows().contains(clicked.row()))
            view->selectRow(clicked.row());
        view->setFocus();
        Q_EMIT queueSelectionRequested();
        return;
    }
    trackListMenuAction(chosen->data().toInt(), clicked.row());
}

// ---- Columns of the track list ----------------------------------------------------------

void CVBrowserDelegate::setTableColumns(const QStringList &identifiers)
{
    QHeaderView *header = m_window->trackView->horizontalHeader();
    const QList<CVTrackColumn> &all = CVTrackColumns::all();
    for (int i = 0; i < all.size(); ++i)
        header->setSectionHidden(i, !identifiers.contains(all[i].identifier));
    // Then the shown ones move into the list's order, the smart column at its end.
    const QStringList ordered = m_settings ? CVTrackColumns::placeSmartColumn(identifiers,
                                    int(m_settings->integerValue(CVSettingsKey::TrackListSmartColumnPosition)))
                                           : identifiers;
    int visual = 0;
    for (const QString &id : ordered) {
        const int logical = CVTrackColumns::indexOf(id);
        if (logical < 0)
            continue;
        header->moveSection(header->visualIndex(logical), visual++);
    }
}

QStringList CVBrowserDelegate::getVisibleColumns() const
{
    QStringList out;
    const QHeaderView *header = m_window->trackView->horizontalHeader();
    for (int visual = 0; visual < header->count(); ++visual) {
        const int logical = header->logicalIndex(visual);
        if (!header->isSectionHidden(logical))
            out.append(CVTrackColumns::all()[logical].identifier);
    }
    return out;
}

void CVBrowserDelegate::saveTrackListColumns()
{
    if (!m_settings)
        return;
    const QHeaderView *header = m_window->trackView->horizontalHeader();
    QStringList shown, hidden;
    for (int visual = 0; visual < header->count(); ++visual) {
        const int logical = header->logicalIndex(visual);
        const QString entry
            = u"%1 %2"_s.arg(CVTrackColumns::all()[logical].identifier).arg(header->sectionSize(logical));
        (header->isSectionHidden(logical) ? hidden : shown).append(entry);
    }
    m_settings->setValue(kColumnsKey, shown);
    m_settings->setValue(kHiddenColumnsKey, hidden);
    const int sorted = m_trackModel->sortColumn();
    if (sorted < 0)
        m_settings->remove(kSortKey);
    else
        m_settings->setValue(kSortKey,
            u"%1 %2"_s.arg(CVTrackColumns::all()[sorted].identifier,
                m_trackModel->sortOrder() == Qt::AscendingOrder ? u"ascending"_s : u"descending"_s));
}

void CVBrowserDelegate::restoreTrackListColumns()
{
    QHeaderView *header = m_window->trackView->horizontalHeader();
    const QStringList stored = m_settings->stringListValue(kColumnsKey);
    QStringList identifiers;
    const QSignalBlocker block(header);
    for (const QString &entry : stored) {
        const QStringList parts = entry.split(u' ');
        const int logical = CVTrackColumns::indexOf(parts.value(0));
        if (logical < 0)
            continue;
        identifiers.append(parts.value(0));
        if (const int width = parts.value(1).toInt(); width > 0)
            header->resizeSection(logical, width);
    }
    if (identifiers.isEmpty()) {
        identifiers = CVTrackColumns::defaultIdentifiers();
        const QFontMetrics fm = m_window->trackView->fontMetrics();
        const int x = fm.horizontalAdvance(u'x');
        header->resizeSection(CVTrackColumns::indexOf(u"Name"_s), x * 28);
        for (const QString &id : { u"Artist"_s, u"Album"_s })
            header->resizeSection(CVTrackColumns::indexOf(id), x * 20);
        header->resizeSection(CVTrackColumns::indexOf(u"Genre"_s), x * 13);
        header->resizeSection(CVTrackColumns::indexOf(u"Rating"_s), x * 11);
        for (const QString &id : { u"Time"_s, u"Plays"_s, u"ItemIsSpanned"_s })
            header->resizeSection(CVTrackColumns::indexOf(id), x * 8);
    }
    setTableColumns(identifiers);
    const QStringList sort = m_settings->stringValue(kSortKey).split(u' ');
    const int sorted = CVTrackColumns::indexOf(sort.value(0));
    if (sorted >= 0) {
        const Qt::SortOrder order = sort.value(1) == u"descending"_s ? Qt::DescendingOrder : Qt::AscendingOrder;
        m_trackModel->sort(sorted, order);
        header->setSortIndicatorShown(true);
        header->setSortIndicator(sorted, order);
    }
}
