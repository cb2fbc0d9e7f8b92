#include "MainWindow/CVLocationsDelegate.h"

#include "Library/CVLibraryManager.h"
#include "MainWindow/CVLocationsModel.h"
#include "MainWindow/CVMainWindow.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVSettings.h"

#include <QAction>
#include <QDir>
#include <QFileInfo>
#include <QItemSelectionModel>
#include <QLabel>
#include <QMenu>
#include <QSplitter>
#include <QTreeView>

using namespace Qt::StringLiterals;

CVLocationsDelegate::CVLocationsDelegate(CVLibraryManager *library, CVSettings *settings, CVSelectionModel *selection,
    CVMainWindow *window, Links links, QObject *parent)
    : QObject(parent)
    , m_library(library)
    , m_settings(settings)
    , m_selection(selection)
    , m_window(window)
    , m_links(std::move(links))
    , m_model(new CVLocationsModel(library, settings->stringValue(CVSettingsKey::StartupDriveName), this))
{
    m_settle.setSingleShot(true);
    m_settle.setInterval(SelectionSettleMs);
    connect(&m_settle, &QTimer::timeout, this, &CVLocationsDelegate::selectionSettled);
    QTreeView *view = window->locationsView;
    view->setModel(m_model);
    connect(
        view->selectionModel(), &QItemSelectionModel::selectionChanged, this, &CVLocationsDelegate::selectionChanged);
    connect(view, &QAbstractItemView::clicked, this, [this] { locationAction(); });
    // A row that stands for several folders opens and closes all of them.
    connect(view, &QTreeView::expanded, this, [this](const QModelIndex &index) {
        if (!m_saveExpandedLocations)
            return;
        for (const QString &key : index.data(CVLocationsModel::SharedLowerPathsRole).toStringList())
            m_expandedLocations.insert(key, u""_s);
        saveExpanded();
    });
    connect(view, &QTreeView::collapsed, this, [this](const QModelIndex &index) {
        if (!m_saveExpandedLocations)
            return;
        for (const QString &key : index.data(CVLocationsModel::SharedLowerPathsRole).toStringList())
            m_expandedLocations.remove(key);
        saveExpanded();
    });
    connect(view, &QWidget::customContextMenuRequested, this, &CVLocationsDelegate::showContextMenu);
    connect(m_selection, &CVSelectionModel::changed, this, &CVLocationsDelegate::selectionModelChanged);
}

CVLocationsDelegate::~CVLocationsDelegate() = default;

void CVLocationsDelegate::selectionModelChanged(CVSelectionModel::Pane origin, CVSelectionModel::Pane listener)
{
    if (listener != CVSelectionModel::Pane::Locations)
        return;
    if (origin != CVSelectionModel::Pane::Locations) {
        refreshLocations();
        return;
    }
    // The location filter was cleared elsewhere (the filter path bar): the row lets go too.
    if (!m_selection->hasLocation() && selectedIndex().isValid())
        doDeselectAll();
    updateToggleTitle();
}

void CVLocationsDelegate::updateToggleTitle()
{
    if (QAction *a = m_window->action(u"toggleLocations"_s))
        a->setText(toggleTitle());
}

QModelIndex CVLocationsDelegate::selectedIndex() const
{
    const QModelIndexList rows = m_window->locationsView->selectionModel()->selectedRows();
    return rows.isEmpty() ? QModelIndex() : rows.first();
}

QString CVLocationsDelegate::getPathForItem(const QModelIndex &index) const
{
    const CVLocationNode *node = m_model->node(index);
    return node ? node->path : QString();
}

QString CVLocationsDelegate::retrieveItemsPredicateForLocation(const CVLocationNode *node) const
{
    return m_library->trees().predicateForLocationPath(node ? node->path : QString());
}

CVPredicate CVLocationsDelegate::getLocationPredicate() const
{
    return m_selection->getLocationPredicate();
}

void CVLocationsDelegate::saveExpanded()
{
    m_settings->setValue(CVSettingsKey::ExpandedLocations, m_expandedLocations);
}

void CVLocationsDelegate::addLocationToExpand(const QString &path)
{
    const QStringList parts = path.split(u'/', Qt::SkipEmptyParts);
    if (!path.startsWith(u'/') || (parts.isEmpty() && path != u"/"_s)) {
        m_expandedLocations.insert(path, u""_s);
        saveExpanded();
        return;
    }
    QString key;
    qsizetype first = 0;
    if (parts.size() >= 2 && parts[0].toLower() == u"volumes"_s) {
        key = u"/volumes/%1/"_s.arg(parts[1].toLower());
        first = 2;
    } else {
        key = u"/"_s;
    }
    m_expandedLocations.insert(key, u""_s);
    for (qsizetype i = first; i < parts.size(); ++i) {
        key = u"%1%2/"_s.arg(key, parts[i].toLower());
        m_expandedLocations.insert(key, u""_s);
    }
    saveExpanded();
}

void CVLocationsDelegate::initializeLocationsTable()
{
    if (!m_settings->contains(CVSettingsKey::ExpandedLocations)) {
        m_expandedLocations.clear();
        m_expandedLocations.insert(u"locations"_s, u""_s);
        if (const auto media = m_library->iTunesMediaPath())
            addLocationToExpand(*media);
        for (const QString &base : m_library->getBaseSpanPaths())
            addLocationToExpand(base);
        saveExpanded();
    } else {
        m_expandedLocations = m_settings->mapValue(CVSettingsKey::ExpandedLocations);
    }
    m_window->locationsPane->setVisible(!m_settings->boolValue(CVSettingsKey::LocationsAreHidden));
    refreshLocations();
}

void CVLocationsDelegate::refreshLocations()
{
    QTreeView *view = m_window->locationsView;
    const QString before = m_selection->locationPath();
    m_saveExpandedLocations = false;
    m_model->reload();
    if (!m_expandedLocations.isEmpty()) {
        const QModelIndex root = m_model->index(0, 0);
        if (root.isValid() && m_expandedLocations.contains(u"locations"_s))
            view->expand(root);
        // Sorted keys open parents before their children.
        QStringList keys = m_expandedLocations.keys();
        std::sort(keys.begin(), keys.end());
        for (const QString &key : std::as_const(keys)) {
            // A row of several folders is open when its innermost one is.
            const QModelIndex index = m_model->indexForLowerPath(key);
            if (index.isValid() && index.data(CVLocationsModel::LowerPathRole).toString() == key)
                view->expand(index);
        }
    }
    QModelIndex again;
    if (!before.isEmpty())
        again = m_model->indexForLowerPath(before.toLower());
    if (again.isValid()) {
        view->selectionModel()->setCurrentIndex(again, QItemSelectionModel::ClearAndSelect);
        view->scrollTo(again);
    } else {
        view->scrollToTop();
    }
    m_saveExpandedLocations = true;
    // A chosen folder that now shares its row with others stays the one chosen; a folder that
    // is gone lets the other panes widen (the model announces that after the refresh under way).
    const CVLocationNode *node = m_model->node(selectedIndex());
    const QString path = node ? (again.isValid() ? before : node->path) : QString();
    m_selection->setLocation(path, node ? m_library->createDisplayTitleForPath(path) : QString());
    m_window->locationsSummary->setText(summary());
    updateToggleTitle();
}

QString CVLocationsDelegate::summary() const
{
    const int files = m_model->fileCount();
    if (files == 0)
        return {};
    const int drives = m_model->driveCount();
    const int folders = m_model->folderCount();
    auto s = [](int n) { return n == 1 ? u""_s : u"s"_s; };
    return u"%1 drive%2, %3 folder%4, %5 file%6"_s.arg(drives)
        .arg(s(drives))
        .arg(folders)
        .arg(s(folders))
        .arg(files)
        .arg(s(files));
}

void CVLocationsDelegate::selectionChanged()
{
    if (!m_saveExpandedLocations)
        return;
    refreshItemsForLocations();
    m_justChanged = true;
    m_settle.start();
}

void CVLocationsDelegate::refreshItemsForLocations()
{
    const CVLocationNode *node = m_model->node(selectedIndex());
    const QString path = node ? node->path : QString();
    m_selection->setLocation(path, node ? m_library->createDisplayTitleForPath(path) : QString());
}

void CVLocationsDelegate::locationAction()
{
    if (!m_window->locationsView->hasFocus() || m_justChanged)
        return;
    const QModelIndex selected = selectedIndex();
    if (selected.isValid()
        && selected.data(CVLocationsModel::SharedLowerPathsRole)
               .toStringList()
               .contains(m_selection->locationPath().toLower()))
        doDeselectAll();
}

void CVLocationsDelegate::doDeselectAll()
{
    m_window->locationsView->selectionModel()->clearSelection();
    m_window->locationsView->selectionModel()->setCurrentIndex({}, QItemSelectionModel::NoUpdate);
}

QString CVLocationsDelegate::toggleTitle() const
{
    if (m_settings->boolValue(CVSettingsKey::LocationsAreHidden))
        return u"Show Locations"_s;
    return selectedIndex().isValid() ? u"Deselect All Locations"_s : u"Hide Locations"_s;
}

void CVLocationsDelegate::toggleLocations(bool fromInterface)
{
    if (fromInterface && !m_selection->isLive())
        return;
    if (fromInterface && !m_settings->boolValue(CVSettingsKey::LocationsAreHidden) && selectedIndex().isValid()) {
        doDeselectAll();
        return;
    }
    QSplitter *splitter = m_window->mainSplitter;
    QList<int> sizes = splitter->sizes();
    if (m_settings->boolValue(CVSettingsKey::LocationsAreHidden)) {
        const int width = int(m_settings->realValue(CVSettingsKey::LocationsRightFrameWidthBeforeSquishing));
        m_window->locationsPane->show();
        if (width > 0) {
            sizes[1] = qMax(100, sizes[1] - width);
            sizes[2] = width;
            splitter->setSizes(sizes);
        }
        m_settings->setValue(CVSettingsKey::LocationsAreHidden, false);
    } else {
        if (sizes[2] > 0)
            m_settings->setValue(CVSettingsKey::LocationsRightFrameWidthBeforeSquishing, double(sizes[2]));
        m_window->locationsPane->hide();
        m_settings->setValue(CVSettingsKey::LocationsAreHidden, true);
    }
    if (QAction *a = m_window->action(u"toggleLocations"_s))
        a->setText(toggleTitle());
}

void CVLocationsDelegate::clearAllForReload()
{
    m_saveExpandedLocations = false;
    m_model->clear();
    m_saveExpandedLocations = true;
}

QString CVLocationsDelegate::queueMenuTitle(const QModelIndex &clicked) const
{
    const CVLocationNode *node = m_model->node(clicked);
    if (!node || !node->hasParent)
        return {};
    const CVPredicate p = CVPredicate::fromText(retrieveItemsPredicateForLocation(node));
    if (m_library->smartSelectPredicate(p)->tracks.empty())
        return {};
    const bool browsing = m_selection->isBrowsingQueue();
    return u"%1 Location %2 Spanning Queue…"_s.arg(browsing ? u"Remove"_s : u"Add"_s, browsing ? u"from"_s : u"to"_s);
}

void CVLocationsDelegate::setToSpanLocation(const QModelIndex &clicked)
{
    const CVLocationNode *node = m_model->node(clicked);
    if (!node || !node->path.endsWith(u'/') || !QFileInfo(node->path).isDir())
        return;
    QString path = node->path;
    if (path != u"/"_s)
        path.chop(1);
    Q_EMIT spanLocationRequested(path);
}

void CVLocationsDelegate::showLocationInFinder(const QModelIndex &clicked)
{
    const QString path = getPathForItem(clicked);
    CVFileManagerLink *files = m_links.fileManager ? m_links.fileManager() : nullptr;
    if (path.isEmpty() || !files)
        return;
    files->selectFile(path.size() > 1 && path.endsWith(u'/') ? path.chopped(1) : path);
}

void CVLocationsDelegate::showContextMenu(const QPoint &at)
{
    QTreeView *view = m_window->locationsView;
    const QModelIndex clicked = view->indexAt(at);
    const QString path = getPathForItem(clicked);
    QMenu menu;
    const QString title = queueMenuTitle(clicked);
    QAction *queue = menu.addAction(title);
    QAction *span = menu.addAction(u"Set as Span Location"_s);
    QAction *show = menu.addAction(u"Show in File Manager"_s);
    menu.addSeparator();
    QAction *toggle = menu.addAction(toggleTitle());
    const bool restore = m_links.restoreMode && m_links.restoreMode();
    const bool isFile = path.size() >= 2 && !path.endsWith(u'/');
    const bool exists = !path.isEmpty() && QFileInfo::exists(path);
    span->setVisible(!restore && !isFile && exists);
    show->setVisible(exists);
    if (title.isEmpty()) {
        queue->setVisible(false);
        span->setVisible(false);
        show->setVisible(false);
        toggle->setVisible(false);
    }
    QAction *chosen = menu.exec(view->viewport()->mapToGlobal(at));
    if (chosen == queue) {
        view->selectionModel()->setCurrentIndex(clicked, QItemSelectionModel::ClearAndSelect);
        view->setFocus();
        Q_EMIT queueSelectionRequested();
    } else if (chosen == span) {
        setToSpanLocation(clicked);
    } else if (chosen == show) {
        showLocationInFinder(clicked);
    } else if (chosen == toggle) {
        toggleLocations();
    }
}
