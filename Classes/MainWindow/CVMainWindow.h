#pragma once

#include <QHash>
#include <QMainWindow>

class CVFilterPathBar;
class CVFilterPathPopover;
class CVLoadingView;
class CVMediaFilterBar;
class CVResultsView;
class CVSpanLocationView;
class CVSpanQueueDropZone;
class CVSpanningView;
class QAction;
class QLabel;
class QLineEdit;
class QListView;
class QMenu;
class QPushButton;
class QSplitter;
class QStackedWidget;
class QTableView;
class QToolButton;
class QTreeView;

// The main window: the loading view, the main view, a run's spanning view and its results view
// in one stack, the menus, and every pane's widget. It lays things out and forwards the window's
// events; the controllers do the rest.
class CVMainWindow : public QMainWindow {
    Q_OBJECT

public:
    // The smallest main view; a window restored below it was left at the loading size.
    static constexpr QSize MinimumMainSize { 760, 500 };
    static constexpr QSize LoadingSize { 480, 200 };

    explicit CVMainWindow(QWidget *parent = nullptr);

    enum class View { Loading, Main, Spanning, Results };

    void showLoadingView();
    void showMainView();
    void showSpanningView();
    void showResultsView();
    bool isMainViewShown() const;
    // The main, spanning and results views fade into each other when this is on.
    void setAnimatesViewChanges(bool animate) { m_animatesViewChanges = animate; }
    bool animatesViewChanges() const { return m_animatesViewChanges; }
    View currentView() const;
    // The browser above the track list, or left of it.
    void setBrowserOnTop(bool onTop);
    bool browserOnTop() const { return m_browserOnTop; }

    QAction *action(const QString &name) const { return m_actions.value(name); }
    QMenu *menu(const QString &name) const { return m_menus.value(name); }

    CVLoadingView *loadingView = nullptr;
    QWidget *mainView = nullptr;
    CVSpanningView *spanningView = nullptr;
    CVResultsView *resultsView = nullptr;
    QToolButton *spanFilterButton = nullptr;
    QMenu *spanFilterMenu = nullptr;
    CVFilterPathBar *filterPathBar = nullptr;
    CVFilterPathPopover *filterPathPopover = nullptr;
    QLineEdit *searchField = nullptr;
    QToolButton *spanModeButton = nullptr;
    QToolButton *restoreModeButton = nullptr;
    CVMediaFilterBar *mediaFilterBar = nullptr;
    QSplitter *mainSplitter = nullptr; // playlists | centre | locations
    QSplitter *centreSplitter = nullptr; // browser above (or left of) the track list
    QSplitter *browserSplitter = nullptr; // the three columns
    QWidget *playlistsPane = nullptr;
    QTreeView *playlistsView = nullptr;
    QLabel *playlistsSummary = nullptr;
    QListView *genreView = nullptr;
    QListView *artistView = nullptr;
    QListView *albumView = nullptr;
    QTableView *trackView = nullptr;
    QLabel *trackSummary = nullptr;
    QLabel *locationsSummary = nullptr;
    QWidget *locationsPane = nullptr;
    QTreeView *locationsView = nullptr;
    CVSpanQueueDropZone *spanQueueDropZone = nullptr;
    CVSpanLocationView *spanLocationView = nullptr;
    QPushButton *spanButton = nullptr;

Q_SIGNALS:
    void closeRequested();
    void activationChanged(bool active);
    void resized();
    void moved();

protected:
    void closeEvent(QCloseEvent *event) override;
    void changeEvent(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void moveEvent(QMoveEvent *event) override;

private:
    void fadeTo(QWidget *view);
    QWidget *buildMainView();
    void buildMenus();
    QAction *makeAction(QMenu *menu, const QString &name, const QString &title, const QKeySequence &shortcut = {});

    QStackedWidget *m_stack = nullptr;
    QHash<QString, QAction *> m_actions;
    QHash<QString, QMenu *> m_menus;
    bool m_browserOnTop = true;
    bool m_animatesViewChanges = true;
};
