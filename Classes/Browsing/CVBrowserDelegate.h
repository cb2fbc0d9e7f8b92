#pragma once

#include "Browsing/CVSelectionModel.h"
#include "Library/CVPredicate.h"
#include "Library/CVSelection.h"
#include "Library/CVTrackList.h"

#include <QHash>
#include <QObject>
#include <QStringList>

#include <functional>

class CVBrowserColumnModel;
class CVFileManagerLink;
class CVLibraryManager;
class CVMainWindow;
class CVPlayerLink;
class CVSettings;
class CVTrack;
class CVTrackListModel;
class QAction;
class QListView;

// The library browser (genre, artist and album columns above the track list), the span filter
// and the media filter. Each column is filled from the column to its left; the track list shows
// the tracks of the three selections and every other pane's filter; selections survive
// refreshes as long as their value is still listed. What it selects lives in the selection
// model; it refreshes when the model says so.
class CVBrowserDelegate : public QObject {
    Q_OBJECT

public:
    enum Column { GenreColumn = 0, ArtistColumn = 1, AlbumColumn = 2, TrackList = -1 };
    static const QStringList &mediaNames();
    static const QStringList &spanFilterNames();

    struct Links {
        std::function<CVPlayerLink *()> player;
        std::function<CVFileManagerLink *()> fileManager;
    };

    CVBrowserDelegate(CVLibraryManager *library, CVSettings *settings, CVSelectionModel *selection,
        CVMainWindow *window, Links links, QObject *parent = nullptr);
    ~CVBrowserDelegate() override;

    // Predicates of the stack.
    CVPredicate getSpanFilterPredicate() const;
    CVPredicate getMediaTypePredicate() const;
    static QString getPredicateForSpanFilter(const QString &title)
    {
        return CVSelection::predicateForSpanFilter(title);
    }

    // Filters.
    void setMediaFilter(const QString &text);
    void setSpanFilter(const QString &text);
    void setMediaFilterAction(int buttonIndex);
    void setSpanFilterAction(QAction *item);
    void refreshMediaFilters();
    void refreshSpanFilters();
    void refreshSpanFilterCounts(bool everyItem);
    void addOrRemoveClickedMediaTypeFromQueue(const QString &title);
    const QString &selectedMedia() const { return m_selection->media(); }
    const QString &selectedSpanFilter() const { return m_selection->spanFilter(); }

    // The browser.
    void refreshLibraryBrowser();
    void updateDataSourceForLibraryBrowserColumn(int column);
    CVBrowserList retrieveDataSourceForBrowserColumn(int column);
    void setBrowserSelectionsForColumnAndUpdateTrackTable(int column);
    void retrieveDataSourceForTrackTable();
    void updateDataSourceForTrackTable();
    void genreListAction();
    void artistListAction();
    void albumListAction();
    void trackListAction();
    void scrollTrackListToTop();
    void adjustBrowserForNewSize();
    bool shouldShowSpanLocationColumn() const { return m_showSpanLocationColumn; }
    void setShouldShowSpanLocationColumn(bool show);
    void clearAllForReload();

    const CVTrackList &trackSource() const { return m_trackSource; }
    QString selectedGenre() const { return m_selection->browserKey(CVSelectionModel::Pane::Genre); }
    QString selectedArtist() const { return m_selection->browserKey(CVSelectionModel::Pane::Artist); }
    QString selectedAlbum() const { return m_selection->browserKey(CVSelectionModel::Pane::Album); }
    QListView *columnView(int column) const;
    CVBrowserColumnModel *columnModel(int column) const { return m_columns[column]; }
    CVTrackListModel *trackModel() const { return m_trackModel; }
    int columnIndexForBrowserTable(const QObject *view) const;
    // Selects a column's row as a click would (tests and keyboard).
    void selectRow(int column, int row);

    // Predicates of rows.
    CVPredicate retrievePredicateForTrackTableRowIndexes(const QList<int> &rows) const;
    CVPredicate retrievePredicateForRowBeingDragged(int row, int column);
    QList<int> selectedTrackRows() const;

    // Track actions, on the first selected track.
    void trackListMenuAction(int tag, int clickedRow);
    void playSelectionInITunes();
    void revealSelectionInITunes();
    void showSelectionInFinder();
    const CVTrack *firstSelectedTrack() const;

    // The track list's columns, kept across starts.
    void setTableColumns(const QStringList &identifiers);
    QStringList getVisibleColumns() const;
    void saveTrackListColumns();
    void restoreTrackListColumns();

    // The context menus, titled for the clicked row; exposed for tests.
    QString queueMenuTitle(int column, int clickedRow) const;
    void showColumnMenu(int column, const QPoint &at);
    void showTrackListMenu(const QPoint &at);

Q_SIGNALS:
    // The column display options, asked for from the track list's header menu.
    void columnDisplayOptionsRequested();
    // The focused selection (or the clicked media) is to be added to or removed from the queue.
    void queueSelectionRequested();
    void queueMediaRequested(const CVPredicate &predicate, const QString &mediaName);
    // The track list's first selected track (null when none): the information panel shows it.
    void trackSelected(const CVTrack *track);
    void trackInformationRequested();
    // The sums of the tracks listed, for the line under the list.
    void tracksListed(const CVTrackList &tracks);

private:
    void selectionModelChanged(CVSelectionModel::Pane origin, CVSelectionModel::Pane listener);
    // The columns right of column, then the track list, follow the model's keys.
    void cascadeFrom(int column);
    void keepKey(int column);
    void showSpanFilter();
    void showMediaFilter();
    QString genreClause() const;
    QString artistClause(const QString &key) const;
    QString albumClause(const QString &key) const;
    QString readSelectedKey(int column) const;
    int selectedRow(int column) const;
    void connectViews();
    QString playlistNameForTrack(const CVTrack &track) const;

    CVLibraryManager *m_library;
    CVSettings *m_settings;
    CVSelectionModel *m_selection;
    CVMainWindow *m_window;
    Links m_links;

    CVBrowserColumnModel *m_columns[3] = {};
    CVTrackListModel *m_trackModel = nullptr;
    CVTrackList m_trackSource;
    QHash<int, QString> m_currentBrowserSelectionObjects;
    bool m_showSpanLocationColumn = false;
};
