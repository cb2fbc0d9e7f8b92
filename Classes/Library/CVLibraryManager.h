#pragma once

#include "Library/CVLibraryFileReader.h"
#include "Library/CVLibraryTrees.h"
#include "Library/CVSelection.h"
#include "Platform/CVPresenter.h"

#include <QObject>
#include <QSet>

#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

class CVLibraryHost;
class CVPresenter;
class CVSpanHistory;
class CVSpanRecord;
class CVSpanRunState;
class CVSelectionPanes;
class CVSettings;

// The player's library as Corvana holds it while running: rebuilt from the library file
// at every load, owned here, and handed around as lists of pointers into it.
class CVLibraryManager : public QObject {
    Q_OBJECT

public:
    enum class LoadResult { Loaded, Quit, Failed };

    explicit CVLibraryManager(CVSettings *settings, QObject *parent = nullptr);
    ~CVLibraryManager() override;

    void setPresenter(CVPresenter *presenter) { m_presenter = presenter; }
    void setHost(CVLibraryHost *host) { m_host = host; }
    void setSpanHistory(CVSpanHistory *history) { m_history = history; }
    void setRunState(const CVSpanRunState *state) { m_runState = state; }
    // Reads this file instead of looking in the default places.
    void setLibraryFilePath(const QString &path) { m_fixedLibraryFile = path; }
    // Whose library is looked for ("auto", "rhythmbox", "itunes-file", "dbus"): this one, else
    // the preference "Player".
    void setPlayer(const QString &player) { m_player = player; }
    QString player() const;
    // The library file the player keeps under home, or an empty text when there is none.
    QString findLibraryFile() const;

    // The default library file under home, or an empty text when neither candidate exists.
    static QString chooseLibraryFile(const QString &homePath);
    // The texts shown while no library file can be found (the buttons are the caller's).
    static CVAlert noLibraryFileAlert();

    LoadResult loadiTunesXMLDatabase();

    const std::vector<CVTrack *> &allTracks() const { return m_selection.allTracks()->tracks; }
    CVTrackList allTrackList() const { return m_selection.allTracks(); }
    const std::vector<CVPlaylist> &playlists() const { return m_contents->playlists; }
    const std::optional<QString> &iTunesMediaPath() const { return m_iTunesMediaPath; }
    const std::optional<QString> &iTunesPersistentID() const { return m_contents->persistentID; }
    bool loadingDatabase() const { return m_loadingDatabase; }
    const QString &searchString() const { return m_selection.searchString(); }
    void setSearchString(const QString &text) { m_selection.setSearchString(text); }
    // Where the stack's pane predicates come from; the window's panes, or fixed values.
    void setPanes(const CVSelectionPanes *panes) { m_selection.setPanes(panes); }
    // The file that the last load read, and why it failed when it did.
    QString libraryFilePath() const { return m_libraryFile; }
    QString lastError() const { return m_lastError; }

    // Selection (the memo is libraryCache; see CVSelection).
    void clearMemoization() { m_selection.clearMemoization(); }
    void prepareSearch() { m_selection.prepareSearch(); }
    void prepareLists() { m_selection.prepareLists(); }
    QString getSearchPredicate() const { return m_selection.getSearchPredicate(); }
    QList<CVPredicate> getPredicateStack(const CVPredicate &p) const { return m_selection.getPredicateStack(p); }
    CVTrackList selectPredicateStack(const QList<CVPredicate> &stack)
    {
        return m_selection.selectPredicateStack(stack);
    }
    CVTrackList selectPredicate(const CVPredicate &p, const CVTrackList &source = {})
    {
        return m_selection.selectPredicate(p, source);
    }
    CVTrackList smartSelectPredicate(const CVPredicate &p) { return m_selection.smartSelectPredicate(p); }
    CVBrowserList getBrowserListForField(
        const QString &field, const QString &column, const QString &sortField, const CVTrackList &source = {})
    {
        return m_selection.getBrowserListForField(field, column, sortField, source);
    }
    QVariantMap getSummaryAttibutesForTracks(const CVTrackList &tracks)
    {
        return m_selection.getSummaryAttibutesForTracks(tracks);
    }
    QVariantMap getSummaryAttibutesForPredicate(const CVPredicate &p)
    {
        return m_selection.getSummaryAttibutesForPredicate(p);
    }
    QVariantMap getSummaryLinesForPredicate(const CVPredicate &p, const QString &alternateTitle)
    {
        return m_selection.getSummaryLinesForPredicate(p, alternateTitle);
    }
    static QString makeSafe(const QString &value) { return CVSelection::makeSafe(value); }
    static QString makeSafe(qint64 value) { return CVSelection::makeSafe(value); }

    // Location and playlist trees.
    void compileAllKeyedLocationInformation();
    // The same table built on a thread of its own while the load goes on with steps that do not
    // read it. Its status text is shown at once; its progress reaches the presenter until
    // endLocationProgress(). Nothing may read the trees before finishCompiling... returns.
    void beginCompilingAllKeyedLocationInformation();
    void endLocationProgress();
    void finishCompilingAllKeyedLocationInformation();
    QList<CVPredicate> getPredicateStackForLocations() const { return m_trees.getPredicateStackForLocations(); }
    QList<CVPredicate> getPredicateStackForPlaylists() const { return m_trees.getPredicateStackForPlaylists(); }
    std::shared_ptr<const std::vector<int>> filterEmptyLocations() { return m_trees.filterEmptyLocations(); }
    std::shared_ptr<const std::vector<int>> getLocationsForPredicate(const QString &p)
    {
        return m_trees.getLocationsForPredicate(p);
    }
    const CVLocationNode &locationNode(int id) const { return m_trees.node(id); }
    std::shared_ptr<const std::vector<int>> filterEmptyPlaylist() { return m_trees.filterEmptyPlaylist(); }
    std::shared_ptr<const std::vector<int>> getPlaylistsForPredicate(const QString &p)
    {
        return m_trees.getPlaylistsForPredicate(p);
    }
    QStringList getPlaylistGroups() { return m_trees.getPlaylistGroups(); }
    QStringList getBaseSpanPaths() { return m_trees.getBaseSpanPaths(); }
    CVLibraryTrees &trees() { return m_trees; }

    // Span history (the caller saves the store).
    bool checkSpanHistoryWritable(QString *error);
    std::vector<CVSpanRecord *> fetchAllSpannedItems();
    void addItemToSpanStore(CVTrack *track, const QString &spanPath);
    void updateItemInSpanStore(CVTrack *track, const QString &spanPath);
    void setSpanInformationForSpannedManagedObject(CVSpanRecord *record, CVTrack *track);
    void tagSpanItemAsRemovedFromITunes(CVSpanRecord *record);

    struct JoinResult {
        int records = 0;
        int joined = 0;
        int removedFromITunes = 0;
    };
    // The load's join of the history with the tracks, then its save (steps 6 and 8 of a load).
    JoinResult joinSpanHistory();

    static QString humanReadableSizeFromBytes(double bytes);
    static QString formatSampleRate(double hertz);
    static QString humanReadableTimeFromMilliseconds(double milliseconds, bool roundOffTime);
    static QString formatDate(qint64 secondsSinceEpoch);
    // key is a library-file key ("Album"); the track is a library-file track dictionary.
    static QString customSortStringForKey(const QString &key, const QVariantMap &fileTrack);
    QString createDisplayTitleForPath(const QString &path) const;

private:
    // Waits for a build under way and says a new one begins.
    void prepareToCompileLocations();
    CVSettings *m_settings;
    CVPresenter *m_presenter = nullptr;
    CVLibraryHost *m_host = nullptr;
    CVSpanHistory *m_history = nullptr;
    const CVSpanRunState *m_runState = nullptr;
    QHash<QString, QString> m_displayTitles; // span location -> its title, for one load
    std::optional<QSet<QString>> m_inFlightTracks; // the crashed run's tracks, during a join
    QString m_fixedLibraryFile;
    QString m_player;
    QString m_libraryFile;
    QString m_lastError;

    std::unique_ptr<CVLibraryContents> m_contents;
    std::optional<QString> m_iTunesMediaPath;
    bool m_loadingDatabase = true;
    CVSelection m_selection;
    CVLibraryTrees m_trees;
    std::thread m_locationThread;
    std::mutex m_locationProgressLock;
    bool m_reportLocationProgress = false;
};
