#include "MainWindow/CVMainWindow.h"

#include "MainWindow/CVLocationsItemDelegate.h"
#include "Views/CVFilterPathBar.h"
#include "Views/CVFilterPathPopover.h"
#include "Views/CVIcons.h"
#include "Views/CVLoadingView.h"
#include "Views/CVMediaFilterBar.h"
#include "Views/CVResultsView.h"
#include "Views/CVSpanLocationView.h"
#include "Views/CVSpanQueueDropZone.h"
#include "Views/CVSpanningView.h"

#include <QCloseEvent>
#include <QGraphicsOpacityEffect>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMenuBar>
#include <QPropertyAnimation>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QTableView>
#include <QToolButton>
#include <QTreeView>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

QListView *makeColumn(QWidget *parent, const QString &name)
{
    auto *view = new QListView(parent);
    view->setAccessibleName(name);
    view->setObjectName(name);
    view->setUniformItemSizes(true);
    view->setSelectionMode(QAbstractItemView::SingleSelection);
    view->setDragEnabled(true);
    view->setDragDropMode(QAbstractItemView::DragOnly);
    view->setContextMenuPolicy(Qt::CustomContextMenu);
    view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    view->setAlternatingRowColors(true);
    return view;
}

QTreeView *makeOutline(QWidget *parent, const QString &name)
{
    auto *view = new QTreeView(parent);
    view->setAccessibleName(name);
    view->setObjectName(name);
    view->setHeaderHidden(true);
    view->setSelectionMode(QAbstractItemView::SingleSelection);
    view->setDragEnabled(true);
    view->setDragDropMode(QAbstractItemView::DragOnly);
    view->setContextMenuPolicy(Qt::CustomContextMenu);
    view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    view->setExpandsOnDoubleClick(false);
    view->setFrameShape(QFrame::NoFrame);
    return view;
}

QLabel *makeSummary(QWidget *parent, const QString &name)
{
    auto *label = new QLabel(parent);
    label->setAccessibleName(name);
    label->setAlignment(Qt::AlignCenter);
    label->setContentsMargins(6, 3, 6, 3);
    label->setEnabled(false); // the palette's dimmed text
    label->setTextFormat(Qt::PlainText);
    return label;
}

} // namespace

CVMainWindow::CVMainWindow(QWidget *parent)
    : QMainWindow(parent)
{
    setWindowTitle(u"Corvana"_s);
    setWindowIcon(CVIcons::icon(CVIcons::Kind::Application));
    setObjectName(u"CVMainWindow"_s);
    m_stack = new QStackedWidget(this);
    loadingView = new CVLoadingView(m_stack);
    mainView = buildMainView();
    spanningView = new CVSpanningView(m_stack);
    resultsView = new CVResultsView(m_stack);
    m_stack->addWidget(loadingView);
    m_stack->addWidget(mainView);
    m_stack->addWidget(spanningView);
    m_stack->addWidget(resultsView);
    setCentralWidget(m_stack);
    buildMenus();
}

QWidget *CVMainWindow::buildMainView()
{
    auto *view = new QWidget(m_stack);
    view->setAccessibleName(u"Library"_s);

    spanFilterButton = new QToolButton(view);
    spanFilterButton->setPopupMode(QToolButton::InstantPopup);
    spanFilterButton->setToolButtonStyle(Qt::ToolButtonTextOnly);
    spanFilterButton->setAccessibleName(u"Span filter"_s);
    spanFilterMenu = new QMenu(spanFilterButton);
    spanFilterButton->setMenu(spanFilterMenu);

    spanModeButton = new QToolButton(view);
    spanModeButton->setText(u"Span"_s);
    restoreModeButton = new QToolButton(view);
    restoreModeButton->setText(u"Restore"_s);
    for (QToolButton *b : { spanModeButton, restoreModeButton }) {
        b->setCheckable(true);
        b->setAutoExclusive(true);
        b->setAccessibleName(b->text() + u" mode"_s);
    }
    spanModeButton->setChecked(true);

    filterPathBar = new CVFilterPathBar(view);
    filterPathPopover = new CVFilterPathPopover(this);

    searchField = new QLineEdit(view);
    searchField->setPlaceholderText(u"Search"_s);
    searchField->setClearButtonEnabled(true);
    searchField->setAccessibleName(u"Search"_s);
    searchField->addAction(CVIcons::icon(CVIcons::Kind::Search), QLineEdit::LeadingPosition);

    auto *top = new QHBoxLayout;
    top->setContentsMargins(8, 6, 8, 6);
    top->addWidget(spanModeButton);
    top->addWidget(restoreModeButton);
    top->addSpacing(8);
    top->addWidget(spanFilterButton);
    top->addWidget(filterPathBar, 1);
    top->addWidget(searchField);

    mediaFilterBar = new CVMediaFilterBar(
        { u"All"_s, u"Music"_s, u"Movies"_s, u"TV Shows"_s, u"Podcasts"_s, u"iTunes U"_s, u"Books"_s }, view);

    // Left: playlists.
    playlistsPane = new QWidget(view);
    playlistsView = makeOutline(playlistsPane, u"Playlists"_s);
    playlistsSummary = makeSummary(playlistsPane, u"Playlists summary"_s);
    auto *playlistsLayout = new QVBoxLayout(playlistsPane);
    playlistsLayout->setContentsMargins(0, 0, 0, 0);
    playlistsLayout->setSpacing(0);
    playlistsLayout->addWidget(playlistsView, 1);
    playlistsLayout->addWidget(playlistsSummary);

    // Centre: the browser's three columns and the track list.
    browserSplitter = new QSplitter(Qt::Horizontal, view);
    browserSplitter->setChildrenCollapsible(false);
    genreView = makeColumn(browserSplitter, u"Genres"_s);
    artistView = makeColumn(browserSplitter, u"Artists"_s);
    albumView = makeColumn(browserSplitter, u"Albums"_s);
    for (QListView *v : { genreView, artistView, albumView })
        browserSplitter->addWidget(v);

    auto *tracksPane = new QWidget(view);
    trackView = new QTableView(tracksPane);
    trackView->setAccessibleName(u"Tracks"_s);
    trackView->setObjectName(u"Tracks"_s);
    trackView->setSelectionBehavior(QAbstractItemView::SelectRows);
    trackView->setSelectionMode(QAbstractItemView::ExtendedSelection);
    trackView->setDragEnabled(true);
    trackView->setDragDropMode(QAbstractItemView::DragOnly);
    trackView->setContextMenuPolicy(Qt::CustomContextMenu);
    trackView->setEditTriggers(QAbstractItemView::NoEditTriggers);
    trackView->setTabKeyNavigation(false);
    trackView->setShowGrid(false);
    trackView->setAlternatingRowColors(true);
    trackView->setSortingEnabled(false);
    trackView->setWordWrap(false);
    trackView->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    trackView->verticalHeader()->hide();
    // Fixed row heights: the view never measures rows, so 200,000 of them cost nothing.
    trackView->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    trackView->verticalHeader()->setDefaultSectionSize(trackView->fontMetrics().height() + 8);
    trackView->horizontalHeader()->setSectionsMovable(true);
    trackView->horizontalHeader()->setSectionsClickable(true);
    trackView->horizontalHeader()->setHighlightSections(false);
    trackView->horizontalHeader()->setContextMenuPolicy(Qt::CustomContextMenu);
    trackView->horizontalHeader()->setStretchLastSection(true);
    trackView->horizontalHeader()->setSortIndicatorShown(false);
    trackSummary = makeSummary(tracksPane, u"Tracks summary"_s);
    locationsSummary = makeSummary(tracksPane, u"Locations summary"_s);
    auto *summaries = new QHBoxLayout;
    summaries->setContentsMargins(0, 0, 0, 0);
    summaries->addWidget(trackSummary, 1);
    summaries->addWidget(locationsSummary);
    auto *tracksLayout = new QVBoxLayout(tracksPane);
    tracksLayout->setContentsMargins(0, 0, 0, 0);
    tracksLayout->setSpacing(0);
    tracksLayout->addWidget(trackView, 1);
    tracksLayout->addLayout(summaries);

    centreSplitter = new QSplitter(Qt::Vertical, view);
    centreSplitter->setChildrenCollapsible(false);
    centreSplitter->addWidget(browserSplitter);
    centreSplitter->addWidget(tracksPane);
    centreSplitter->setStretchFactor(1, 1);

    // Right: locations.
    locationsPane = new QWidget(view);
    locationsView = makeOutline(locationsPane, u"Locations"_s);
    locationsView->setUniformRowHeights(false);
    locationsView->setItemDelegate(new CVLocationsItemDelegate(locationsView));
    // Drives, then folders many levels deep: a smaller step keeps their names in view.
    locationsView->setIndentation(qMin(locationsView->indentation(), locationsView->fontMetrics().height() * 4 / 5));
    auto *locationsLayout = new QVBoxLayout(locationsPane);
    locationsLayout->setContentsMargins(0, 0, 0, 0);
    locationsLayout->addWidget(locationsView, 1);

    mainSplitter = new QSplitter(Qt::Horizontal, view);
    mainSplitter->addWidget(playlistsPane);
    mainSplitter->addWidget(centreSplitter);
    mainSplitter->addWidget(locationsPane);
    mainSplitter->setStretchFactor(1, 1);
    mainSplitter->setCollapsible(1, false);

    // Foot: the spanning queue, the span location and the run button.
    spanQueueDropZone = new CVSpanQueueDropZone(view);
    spanLocationView = new CVSpanLocationView(view);
    spanButton = new QPushButton(u"Span…"_s, view);
    spanButton->setAccessibleName(u"Start"_s);
    spanButton->setDefault(false);
    auto *foot = new QHBoxLayout;
    foot->setContentsMargins(8, 4, 8, 8);
    foot->addWidget(spanQueueDropZone, 3);
    foot->addWidget(spanLocationView, 2);
    foot->addWidget(spanButton);

    auto *layout = new QVBoxLayout(view);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(top);
    layout->addWidget(mediaFilterBar);
    layout->addWidget(mainSplitter, 1);
    layout->addLayout(foot);

    // Keyboard: Tab walks the panes in reading order.
    QWidget::setTabOrder(searchField, filterPathBar);
    QWidget::setTabOrder(filterPathBar, playlistsView);
    QWidget::setTabOrder(playlistsView, genreView);
    QWidget::setTabOrder(genreView, artistView);
    QWidget::setTabOrder(artistView, albumView);
    QWidget::setTabOrder(albumView, trackView);
    QWidget::setTabOrder(trackView, locationsView);
    QWidget::setTabOrder(locationsView, spanQueueDropZone);
    QWidget::setTabOrder(spanQueueDropZone, spanLocationView);
    QWidget::setTabOrder(spanLocationView, spanButton);
    return view;
}

QAction *CVMainWindow::makeAction(QMenu *menu, const QString &name, const QString &title, const QKeySequence &shortcut)
{
    auto *a = menu->addAction(title);
    a->setObjectName(name);
    if (!shortcut.isEmpty()) {
        a->setShortcut(shortcut);
        // Shortcuts work wherever the focus is in the window, menu bar or not.
        QWidget::addAction(a);
    }
    m_actions.insert(name, a);
    return a;
}

void CVMainWindow::buildMenus()
{
    QMenu *file = menuBar()->addMenu(u"&File"_s);
    m_menus.insert(u"File"_s, file);
    makeAction(file, u"reload"_s, u"Reload Library"_s, QKeySequence(u"Ctrl+R"_s));
    file->addSeparator();
    makeAction(file, u"close"_s, u"Close Window"_s, QKeySequence::Close);
    makeAction(file, u"quit"_s, u"Quit Corvana"_s, QKeySequence::Quit);

    QMenu *edit = menuBar()->addMenu(u"&Edit"_s);
    m_menus.insert(u"Edit"_s, edit);
    makeAction(edit, u"find"_s, u"Find"_s, QKeySequence::Find);
    QMenu *fields = edit->addMenu(u"Search In"_s);
    m_menus.insert(u"SearchFields"_s, fields);
    for (const QString &field : { u"Genre"_s, u"Artist"_s, u"Album"_s, u"Name"_s }) {
        QAction *a = makeAction(fields, u"searchField"_s + field, field);
        a->setCheckable(true);
        a->setData(field);
    }
    edit->addSeparator();
    makeAction(edit, u"selectAll"_s, u"Select All"_s, QKeySequence::SelectAll);

    QMenu *view = menuBar()->addMenu(u"&View"_s);
    m_menus.insert(u"View"_s, view);
    makeAction(view, u"togglePlaylists"_s, u"Hide Playlists"_s, QKeySequence(u"Ctrl+Alt+P"_s));
    makeAction(view, u"toggleLocations"_s, u"Hide Locations"_s, QKeySequence(u"Ctrl+Alt+L"_s));
    QAction *spanColumn = makeAction(view, u"spanLocationColumn"_s, u"Browse by Span Location"_s);
    spanColumn->setCheckable(true);
    QAction *onTop = makeAction(view, u"browserOnTop"_s, u"Column Browser on Top"_s);
    onTop->setCheckable(true);
    view->addSeparator();
    makeAction(view, u"getInfo"_s, u"Get Info"_s, QKeySequence(u"Ctrl+I"_s));
    view->addSeparator();
    makeAction(view, u"fullScreen"_s, u"Enter Full Screen"_s, QKeySequence(u"F11"_s));

    QMenu *queue = menuBar()->addMenu(u"Spanning &Queue"_s);
    m_menus.insert(u"EditSpanningQueue"_s, queue);
    makeAction(queue, u"addSelection"_s, u"Add Selection to Spanning Queue…"_s, QKeySequence(u"Ctrl+Return"_s));
    makeAction(
        queue, u"removeSelection"_s, u"Remove Selection from Spanning Queue…"_s, QKeySequence(u"Ctrl+Backspace"_s));
    makeAction(queue, u"clearQueue"_s, u"Clear Spanning Queue…"_s);
    queue->addSeparator();
    makeAction(queue, u"browseQueue"_s, u"Browse Spanning Queue"_s, QKeySequence(u"Ctrl+B"_s));
    queue->addSeparator();
    makeAction(queue, u"selectAllSpanned"_s, u"Select All Spanned Tracks to Restore…"_s);
    makeAction(queue, u"selectAllTracks"_s, u"Select All Tracks to Consolidate Files…"_s);
    makeAction(queue, u"selectLastTracks"_s, u"Select Last Tracks Spanned…"_s)->setVisible(false);
    queue->addSeparator();
    makeAction(queue, u"spanMode"_s, u"Span Mode"_s, QKeySequence(u"Ctrl+Alt+S"_s));
    makeAction(queue, u"restoreMode"_s, u"Restore Mode"_s, QKeySequence(u"Ctrl+Alt+R"_s));
    makeAction(queue, u"chooseLocation"_s, u"Choose Span Location…"_s, QKeySequence(u"Ctrl+Shift+O"_s));
    QMenu *recent = queue->addMenu(u"Recent Span Locations"_s);
    m_menus.insert(u"RecentSpanLocations"_s, recent);
    makeAction(queue, u"start"_s, u"Span…"_s, QKeySequence(u"Ctrl+Shift+Return"_s));

    // Settings stay reachable during a run: the panes themselves refuse what a run forbids.
    QMenu *settings = menuBar()->addMenu(u"&Settings"_s);
    m_menus.insert(u"Settings"_s, settings);
    makeAction(settings, u"columnOptions"_s, u"Column Display Options…"_s, QKeySequence(u"Ctrl+J"_s));
    settings->addSeparator();
    QAction *prefs = makeAction(settings, u"preferences"_s, u"Preferences…"_s, QKeySequence(u"Ctrl+,"_s));
    prefs->setMenuRole(QAction::PreferencesRole);
    prefs->setIcon(QIcon::fromTheme(u"preferences-system"_s));

    QMenu *help = menuBar()->addMenu(u"&Help"_s);
    m_menus.insert(u"Help"_s, help);
    QAction *contents = makeAction(help, u"help"_s, u"Corvana Help"_s, QKeySequence::HelpContents);
    contents->setIcon(QIcon::fromTheme(u"help-contents"_s));
    help->addSeparator();
    makeAction(help, u"checkForUpdates"_s, u"Check for Updates…"_s);
    makeAction(help, u"reportBug"_s, u"Report a Bug…"_s);
    help->addSeparator();
    QAction *about = makeAction(help, u"about"_s, u"About Corvana"_s);
    about->setMenuRole(QAction::AboutRole);
    about->setIcon(QIcon::fromTheme(u"help-about"_s));
}

void CVMainWindow::showLoadingView()
{
    m_stack->setCurrentWidget(loadingView);
}

void CVMainWindow::showMainView()
{
    fadeTo(mainView);
}

void CVMainWindow::showSpanningView()
{
    fadeTo(spanningView);
}

void CVMainWindow::showResultsView()
{
    fadeTo(resultsView);
}

void CVMainWindow::fadeTo(QWidget *view)
{
    QWidget *from = m_stack->currentWidget();
    // The loading view changes the window's size: it is swapped, not faded. Offscreen (tests,
    // screenshots) a picture must show the new view at once.
    const bool fade = m_animatesViewChanges && from && from != view && from != loadingView && isVisible()
        && QGuiApplication::platformName() != u"offscreen"_s;
    QPixmap picture;
    if (fade)
        picture = from->grab();
    m_stack->setCurrentWidget(view);
    if (!fade)
        return;
    // A picture of the old view over the new one, fading out; the new view takes input at once.
    auto *cover = new QLabel(m_stack);
    cover->setAttribute(Qt::WA_TransparentForMouseEvents);
    cover->setPixmap(picture);
    cover->setGeometry(view->geometry());
    auto *opacity = new QGraphicsOpacityEffect(cover);
    cover->setGraphicsEffect(opacity);
    cover->show();
    cover->raise();
    auto *animation = new QPropertyAnimation(opacity, "opacity", cover);
    animation->setDuration(250);
    animation->setStartValue(1.0);
    animation->setEndValue(0.0);
    connect(animation, &QPropertyAnimation::finished, cover, &QObject::deleteLater);
    animation->start();
}

bool CVMainWindow::isMainViewShown() const
{
    return m_stack->currentWidget() == mainView;
}

CVMainWindow::View CVMainWindow::currentView() const
{
    const QWidget *current = m_stack->currentWidget();
    if (current == mainView)
        return View::Main;
    if (current == spanningView)
        return View::Spanning;
    if (current == resultsView)
        return View::Results;
    return View::Loading;
}

void CVMainWindow::setBrowserOnTop(bool onTop)
{
    m_browserOnTop = onTop;
    centreSplitter->setOrientation(onTop ? Qt::Vertical : Qt::Horizontal);
    // Left of the track list the columns stand one above the other.
    browserSplitter->setOrientation(onTop ? Qt::Horizontal : Qt::Vertical);
}

void CVMainWindow::closeEvent(QCloseEvent *event)
{
    // Closing the last window quits, through the guarded path.
    event->ignore();
    Q_EMIT closeRequested();
}

void CVMainWindow::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::ActivationChange)
        Q_EMIT activationChanged(isActiveWindow());
    QMainWindow::changeEvent(event);
}

void CVMainWindow::resizeEvent(QResizeEvent *event)
{
    QMainWindow::resizeEvent(event);
    Q_EMIT resized();
}

void CVMainWindow::moveEvent(QMoveEvent *event)
{
    QMainWindow::moveEvent(event);
    Q_EMIT moved();
}
