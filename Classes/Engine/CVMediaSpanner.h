#pragma once

#include "Engine/CVResultRow.h"
#include "Library/CVSpanRunState.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QVariantMap>

#include <atomic>

class CVFileManagerLink;
class CVLibraryManager;
class CVPlayerLink;
class CVPresenter;
class CVSettings;
class CVSpannerHost;
class CVTrack;

// The spanning engine: span, restore, verification, reattempts, locating and the results of a
// run, with the player and Trash operations around them. It knows no widgets: it reads the run's
// parameters from its host, talks to the player through a CVPlayerLink and to the desktop
// through a CVFileManagerLink, asks its questions through the presenter, and reports what the
// window shows through signals. Runs execute on one worker thread and block it.
class CVMediaSpanner : public QObject, public CVSpanRunState {
    Q_OBJECT
public:
    // The space every destination drive keeps free.
    static constexpr qint64 FreeSpaceReserve = 100000000;

    CVMediaSpanner(
        CVPlayerLink *playerLink, CVFileManagerLink *fileManager, CVPresenter *presenter, QObject *parent = nullptr);
    ~CVMediaSpanner() override;

    void setHost(CVSpannerHost *host) { m_host = host; }
    void setLibrary(CVLibraryManager *library) { m_library = library; }
    void setSettings(CVSettings *settings) { m_settings = settings; }
    CVPlayerLink *playerLink() const { return m_playerLink; }
    void setPlayerLink(CVPlayerLink *link) { m_playerLink = link; }
    CVFileManagerLink *fileManager() const { return m_fileManager; }

    // CVSpanRunState, for the history writes.
    bool restoreMode() const override;
    QString spanLocation() const override;
    bool isSpanningOrRestoringTracks() const override { return m_runUnderWay; }
    bool crashedWhileSpanningLastRun() const override;

    int trashedFileCount() const { return m_trashedFileCount; }
    int trashedFolderCount() const { return m_trashedFolderCount; }
    void setTrashedFileCount(int count) { m_trashedFileCount = count; }
    void setTrashedFolderCount(int count) { m_trashedFolderCount = count; }
    bool isRunUnderWay() const { return m_runUnderWay; }
    void setRunUnderWay(bool running) { m_runUnderWay = running; }
    bool needsReloadAfterSpan() const { return m_needsReloadAfterSpan; }
    int spanRepairAttempts() const { return m_spanRepairAttempts; }
    const QHash<QString, QString> &spannedTracks() const { return m_spannedTracks; }
    const QList<CVResultRow> &rawContentForResults() const { return m_rawContentForResults; }
    const CVRunResults &lastResults() const { return m_lastResults; }

    // Destination paths and titles.
    QString createNewPathForItem(const CVTrack *track, const QString &fileName) const;
    static QString replaceChactersInStringForFolderName(const QString &text);
    static QString getBasePathForPath(const QString &path);
    static QString getOriginalPathForItem(const CVTrack *track);
    QString getITunesPathForItem(const CVTrack *track) const;
    QString getCurrentPathForItem(const CVTrack *track) const;
    static QString createDisplayTitleForItem(const CVTrack *track);
    // Loads the in-flight map of the interrupted run ("CVLastTracksSpanned").
    void loadPreviouslySpannedTracks();

    // The runs. Each ends in the results (or, for locate, a reload).
    void spanTracks(const QList<CVTrack *> &tracks);
    void verifySpannedTracks(const QList<CVTrack *> &tracks);
    void reattemptFailedSpanTracks(const QList<CVTrack *> &tracks);
    void resolveFailedSpanTracks(const QList<CVTrack *> &tracks);
    void updateDependentTracks();
    void showResultsAfterSpan();
    void refreshTracks(const QList<CVTrack *> &tracks);
    void cleanUpEmptyDirectoriesStartingFromPath(const QString &path, int depth);
    static bool urlIsInvisible(const QString &path);
    static CVRunResults summarizeResults(const QList<CVResultRow> &rows, bool restore);

    // Pause and skip: set from the main thread, polled by the worker between tracks.
    bool pauseSpan() const { return m_pauseSpan; }
    void setPauseSpan(bool pause);
    void togglePauseSpanAction() { setPauseSpan(!m_pauseSpan); }
    QString pauseControlTitle() const;
    void skipTheRestAction();
    void didEndSkipTheRestAlertSheet(int returnCode);
    bool skipTheRest() const { return m_skipTheRest; }

    // Player control. Location work and the quit run on the worker thread and block it.
    void setLocationForTrackIniTunesWithPersistentID(const QString &persistentID, const QString &location);
    void refreshTrackIniTunesWithPersistentID(const QString &persistentID);
    void quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling();
    // How long the quit waits for the player to be gone before the run goes on without it.
    void setQuitTimeout(int milliseconds) { m_quitTimeoutMs = milliseconds; }

    // Actions on a results row: the row's track, or none for no clicked row.
    void playSelectionInITunes(const CVTrack *track);
    void playInITunesAction(const CVTrack *track) { playSelectionInITunes(track); }
    void revealInITunesAction(const CVTrack *track);
    void showInFinderAction(const CVTrack *track);
    void openITunesFromSpanResultsView();

    // The Trash after a run.
    bool isTrashEmpty();
    static QString trashSummaryText(int files, int folders, bool trashEmpty);
    void askToEmptyTrash();
    void emptyTrashAction() { askToEmptyTrash(); }
    void didEndEmptyTrashSheet(int returnCode);
    void doEmptyTrash();

Q_SIGNALS:
    void headerChanged(const QString &text);
    // The run's task line and its alignment (Qt::Alignment).
    void taskLineChanged(const QString &text, int alignment);
    void progressChanged(double value, double maximum, bool indeterminate);
    // The spinner shown while the player starts.
    void waitingForPlayer(bool waiting);
    // A file was copied (bytes), for rates and time estimates.
    void fileCopied(qint64 bytes);
    void pauseTitleChanged(const QString &title);
    void skipTitleChanged(const QString &title);
    // The results view's Trash line, and whether its buttons hide.
    void trashSummaryChanged(const QString &text, bool hideTrashButtons);
    void resultsReady(const CVRunResults &results);
    // The main view to show: a CVSpannerHost::View (the host is also asked, and waited for).
    void viewChangeRequested(int view);
    void runFinished();
    void emptyTrashFinished();

private:
    // Copy with the run's rules: free space with the reserve, missing folders made, two attempts.
    enum class CopyOutcome { Copied, NoSpace, Failed };
    CopyOutcome copyWithRules(const CVTrack *track, const QString &from, const QString &to);
    void addRow(CVTrack *track, CVResultIcon icon, const QString &message);
    void setTaskLine(const QString &text, int alignment = 0x1);
    void showStep(int step, int maximum);
    void waitWhilePaused();
    void pointPlayerAt(CVTrack *track, const QString &path, const QString &title, bool tab);
    bool playerReady() const;
    void prepareWindowForRun();
    bool isProtectedFolder(const QString &folder) const;
    void trashAndCleanUp(const CVTrack *track, const QString &path);
    // Flushes the filesystems that received copies since the last call.
    void syncCopies();
    QString displayTitleForPath(const QString &path) const;
    QVariantMap lastTracksSpanned() const;

    CVPlayerLink *m_playerLink;
    CVFileManagerLink *m_fileManager;
    CVPresenter *m_presenter;
    CVSpannerHost *m_host = nullptr;
    CVLibraryManager *m_library = nullptr;
    CVSettings *m_settings = nullptr;

    std::atomic<bool> m_runUnderWay { false };
    std::atomic<bool> m_pauseSpan { false };
    std::atomic<bool> m_skipTheRest { false };
    bool m_needsReloadAfterSpan = false;
    bool m_runRestoreMode = false; // the mode of the run under way
    QString m_runSpanLocation;
    int m_spanRepairAttempts = 0;
    int m_trashedFileCount = 0;
    int m_trashedFolderCount = 0;
    QHash<QString, QString> m_spannedTracks;
    QSet<QString> m_unsyncedFolders;
    QHash<QString, QString> m_previouslySpannedTracks;
    QList<CVResultRow> m_rawContentForResults;
    CVRunResults m_lastResults;
    QString m_taskLine;
    int m_quitTimeoutMs = 300000;
};
