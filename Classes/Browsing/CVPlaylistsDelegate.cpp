#include "Browsing/CVPlaylistsDelegate.h"

#include "Browsing/CVPlaylistsModel.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPlaylist.h"
#include "MainWindow/CVMainWindow.h"
#include "Platform/CVSettings.h"

#include <QAction>
#include <QItemSelectionModel>
#include <QLabel>
#include <QMenu>
#include <QSplitter>
#include <QTreeView>

using namespace Qt::StringLiterals;

CVPlaylistsDelegate::CVPlaylistsDelegate(
    CVLibraryManager *library, CVSettings *settings, CVSelectionModel *selection, CVMainWindow *window, QObject *parent)
    : QObject(parent)
    , m_library(library)
    , m_settings(settings)
    , m_selection(selection)
    , m_window(window)
    , m_model(new CVPlaylistsModel(library, this))
{
    m_collapsedPlaylistFolders = m_settings->mapValue(CVSettingsKey::CollapsedPlaylistFolders);
    m_settle.setSingleShot(true);
    m_settle.setInterval(SelectionSettleMs);
    connect(&m_settle, &QTimer::timeout, this, &CVPlaylistsDelegate::selectionSettled);
    QTreeView *view = window->playlistsView;
    view->setModel(m_model);
    connect(
        view->selectionModel(), &QItemSelectionModel::selectionChanged, this, &CVPlaylistsDelegate::selectionChanged);
    connect(view, &QAbstractItemView::clicked, this, [this] { playlistAction(); });
    connect(view, &QTreeView::collapsed, this, [this](const QModelIndex &index) {
        if (!m_saveCollapsedFolders)
            return;
        const QString key = m_model->isHeading(index) ? index.data(CVPlaylistsModel::GroupRole).toString()
                                                      : index.data(CVPlaylistsModel::PersistentIDRole).toString();
        m_collapsedPlaylistFolders.insert(key, u""_s);
        saveCollapsed();
    });
    connect(view, &QTreeView::expanded, this, [this](const QModelIndex &index) {
        if (!m_saveCollapsedFolders)
            return;
        const QString key = m_model->isHeading(index) ? index.data(CVPlaylistsModel::GroupRole).toString()
                                                      : index.data(CVPlaylistsModel::PersistentIDRole).toString();
        m_collapsedPlaylistFolders.remove(key);
        saveCollapsed();
    });
    connect(view, &QWidget::customContextMenuRequested, this, &CVPlaylistsDelegate::showContextMenu);
    connect(m_selection, &CVSelectionModel::changed, this, &CVPlaylistsDelegate::selectionModelChanged);
}

CVPlaylistsDelegate::~CVPlaylistsDelegate() = default;

void CVPlaylistsDelegate::selectionModelChanged(CVSelectionModel::Pane origin, CVSelectionModel::Pane listener)
{
    if (listener != CVSelectionModel::Pane::Playlists)
        return;
    if (origin != CVSelectionModel::Pane::Playlists) {
        refreshPlaylists();
        return;
    }
    // The playlist filter was cleared elsewhere (the filter path bar): the row lets go too.
    if (!m_selection->hasPlaylist() && selectedIndex().isValid())
        doDeselectAll();
    updateToggleTitles();
}

QModelIndex CVPlaylistsDelegate::selectedIndex() const
{
    const QModelIndexList rows = m_window->playlistsView->selectionModel()->selectedRows();
    return rows.isEmpty() ? QModelIndex() : rows.first();
}

CVPredicate CVPlaylistsDelegate::retrieveItemsPredicateForPlaylist(const QModelIndex &row) const
{
    const CVPlaylist *p = m_model->playlist(row);
    return p ? p->tracksPredicate : CVPredicate::fromText(u""_s);
}

CVPredicate CVPlaylistsDelegate::getPlaylistPredicate() const
{
    return retrieveItemsPredicateForPlaylist(selectedIndex());
}

void CVPlaylistsDelegate::saveCollapsed()
{
    m_settings->setValue(CVSettingsKey::CollapsedPlaylistFolders, m_collapsedPlaylistFolders);
}

void CVPlaylistsDelegate::refreshPlaylists()
{
    QTreeView *view = m_window->playlistsView;
    const QModelIndex before = selectedIndex();
    const bool hadSelection = before.isValid();
    const QString persistentID = hadSelection ? before.data(CVPlaylistsModel::PersistentIDRole).toString() : QString();
    m_saveCollapsedFolders = false;
    m_model->reload();
    view->expandAll();
    for (auto it = m_collapsedPlaylistFolders.cbegin(); it != m_collapsedPlaylistFolders.cend(); ++it) {
        // A key with a blank is a heading ("2 PLAYLISTS"); any other is a folder's persistent ID.
        const QModelIndex index
            = it.key().contains(u' ') ? m_model->indexForGroup(it.key()) : m_model->indexForPersistentID(it.key());
        if (index.isValid() && view->isExpanded(index))
            view->collapse(index);
    }
    // "0 NO PLAYLISTS" is no heading to open.
    const QModelIndex none = m_model->indexForGroup(u"0 NO PLAYLISTS"_s);
    if (none.isValid())
        view->collapse(none);
    QModelIndex again = hadSelection ? m_model->indexForPersistentID(persistentID) : QModelIndex();
    if (again.isValid()) {
        view->selectionModel()->setCurrentIndex(again, QItemSelectionModel::ClearAndSelect);
        view->scrollTo(again);
    } else {
        view->scrollToTop();
    }
    m_saveCollapsedFolders = true;
    // A playlist that is gone no longer narrows the window (the model announces that after the
    // refresh under way).
    refreshItemsForPlaylists();
    m_window->playlistsSummary->setText(summary());
    updateToggleTitles();
}

QString CVPlaylistsDelegate::summary() const
{
    const int playlists = m_model->playlistCount();
    const int folders = m_model->folderCount();
    if (playlists == 0)
        return {};
    const QString folderPart
        = folders > 0 ? u"%1 playlist folder%2, "_s.arg(folders).arg(folders == 1 ? u""_s : u"s"_s) : QString();
    return u"%1%2 playlist%3"_s.arg(folderPart).arg(playlists).arg(playlists == 1 ? u""_s : u"s"_s);
}

void CVPlaylistsDelegate::selectionChanged()
{
    if (!m_saveCollapsedFolders)
        return;
    refreshItemsForPlaylists();
    m_justChanged = true;
    m_settle.start();
}

void CVPlaylistsDelegate::refreshItemsForPlaylists()
{
    const QModelIndex now = selectedIndex();
    const QString persistentID = now.isValid() ? now.data(CVPlaylistsModel::PersistentIDRole).toString() : QString();
    m_selection->setPlaylist(persistentID, now.isValid() ? now.data(Qt::DisplayRole).toString() : QString(),
        retrieveItemsPredicateForPlaylist(now));
}

void CVPlaylistsDelegate::playlistAction()
{
    // A click on the row selected before (and not just now) lets the playlist go.
    if (!m_window->playlistsView->hasFocus() || m_justChanged)
        return;
    const QModelIndex now = selectedIndex();
    if (now.isValid() && now.data(CVPlaylistsModel::PersistentIDRole).toString() == m_selection->playlistID())
        doDeselectAll();
}

void CVPlaylistsDelegate::doDeselectAll()
{
    m_window->playlistsView->selectionModel()->clearSelection();
    m_window->playlistsView->selectionModel()->setCurrentIndex({}, QItemSelectionModel::NoUpdate);
}

void CVPlaylistsDelegate::updateToggleTitles()
{
    const QString title = toggleTitle();
    if (QAction *a = m_window->action(u"togglePlaylists"_s))
        a->setText(title);
}

QString CVPlaylistsDelegate::toggleTitle() const
{
    if (m_settings->boolValue(CVSettingsKey::PlaylistsAreHidden))
        return u"Show Playlists"_s;
    return selectedIndex().isValid() ? u"Deselect All Playlists"_s : u"Hide Playlists"_s;
}

void CVPlaylistsDelegate::togglePlaylists(bool fromInterface)
{
    if (fromInterface && !m_selection->isLive())
        return;
    // With a selection, the menu item first lets it go.
    if (fromInterface && !m_settings->boolValue(CVSettingsKey::PlaylistsAreHidden) && selectedIndex().isValid()) {
        doDeselectAll();
        return;
    }
    QSplitter *splitter = m_window->mainSplitter;
    QList<int> sizes = splitter->sizes();
    if (m_settings->boolValue(CVSettingsKey::PlaylistsAreHidden)) {
        const int width = int(m_settings->realValue(CVSettingsKey::PlaylistsLeftFrameWidthBeforeSquishing));
        if (width == 0)
            return;
        m_window->playlistsPane->show();
        sizes[1] = qMax(100, sizes[1] - width);
        sizes[0] = width;
        splitter->setSizes(sizes);
        m_settings->setValue(CVSettingsKey::PlaylistsAreHidden, false);
    } else {
        if (sizes[0] > 0)
            m_settings->setValue(CVSettingsKey::PlaylistsLeftFrameWidthBeforeSquishing, double(sizes[0]));
        m_window->playlistsPane->hide();
        m_settings->setValue(CVSettingsKey::PlaylistsAreHidden, true);
    }
    doDeselectAll();
    updateToggleTitles();
}

void CVPlaylistsDelegate::clearAllForReload()
{
    m_saveCollapsedFolders = false;
    m_model->clear();
    m_saveCollapsedFolders = true;
}

void CVPlaylistsDelegate::initializePlaylistTable()
{
    m_window->playlistsPane->setVisible(!m_settings->boolValue(CVSettingsKey::PlaylistsAreHidden));
    refreshPlaylists();
}

QString CVPlaylistsDelegate::queueMenuTitle(const QModelIndex &clicked) const
{
    const CVPlaylist *p = m_model->playlist(clicked);
    if (!p || m_library->smartSelectPredicate(p->tracksPredicate)->tracks.empty())
        return {};
    const bool browsing = m_selection->isBrowsingQueue();
    return u"%1 Playlist %2 Spanning Queue…"_s.arg(browsing ? u"Remove"_s : u"Add"_s, browsing ? u"from"_s : u"to"_s);
}

void CVPlaylistsDelegate::addOrRemoveClickedRowsFromQueue(const QModelIndex &clicked)
{
    if (clicked.isValid())
        m_window->playlistsView->selectionModel()->setCurrentIndex(clicked, QItemSelectionModel::ClearAndSelect);
    m_window->playlistsView->setFocus();
    Q_EMIT queueSelectionRequested();
}

void CVPlaylistsDelegate::showContextMenu(const QPoint &at)
{
    QTreeView *view = m_window->playlistsView;
    const QModelIndex clicked = view->indexAt(at);
    QMenu menu;
    const QString title = queueMenuTitle(clicked);
    QAction *queue = menu.addAction(title);
    QAction *separator = menu.addSeparator();
    queue->setVisible(!title.isEmpty());
    separator->setVisible(!title.isEmpty());
    QAction *toggle = menu.addAction(toggleTitle());
    QAction *chosen = menu.exec(view->viewport()->mapToGlobal(at));
    if (chosen == queue)
        addOrRemoveClickedRowsFromQueue(clicked);
    else if (chosen == toggle)
        togglePlaylists();
}
