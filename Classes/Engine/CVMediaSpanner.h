#pragma once

#include "Engine/CVResultRow.h"
#include "Library/CVSpanRunState.h"
#include "Platform/CVFileCopier.h"
#include "Platform/CVTrash.h"

#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QString>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <optional>

class CVFileManagerLink;
class CVLibraryManager;
class CVPlayerLink;
class CVPresenter;
class CVSettings;
class CVSpannerHost;
class CVSpannerRunHost;
class CVTrack;

// The spanning engine: span, restore, verification, reattempts, locating and the results of a
// run, with the player and Trash operations around them. It knows no widgets: it reads the run's
// parameters from its run host, talks to the player through a CVPlayerLink and to the desktop
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
    void setRunHost(CVSpannerRunHost *host) { m_runHost = host; }
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
    // A name a drive with Windows rules takes: no " * : < > ? \ | or control characters, no
    // trailing dots or blanks, "_" after the reserved device names (CON, AUX, COM1, ...).
    static QString windowsSafeName(const QString &name);
    // When destination names follow Windows rules: "auto" (the setting "CVWindowsFileNames", by
    // default) when the span location's filesystem wants them, or always, or never.
    enum class WindowsNames { Auto, Always, Never };
    void setWindowsNames(WindowsNames mode) { m_windowsNames = mode; }
    WindowsNames windowsNamesMode() const;
    bool usesWindowsNames() const;
    static QString getBasePathForPath(const QString &path);
    static QString getOriginalPathForItem(const CVTrack *track);
    QString getITunesPathForItem(const CVTrack *track) const;
    QString getCurrentPathForItem(const CVTrack *track) const;
    static QString createDisplayTitleForItem(const CVTrack *track);
    // Loads the in-flight map of the interrupted run ("CVLastTracksSpanned").
    void loadPreviouslySpannedTracks();

    // Runs as root are refused unless allowed (the tool's --allow-root; the window asks first):
    // files would be copied with the administrator's rights and land in root's Trash and history.
    void setAllowRoot(bool allow) { m_allowRoot = allow; }
    bool allowRoot() const { return m_allowRoot; }
    // Why a span, restore or update-dependent run cannot start now, or an empty text when it can:
    // not as root unless allowed, and the span history and the player link both take a real write.
    // The runs ask this themselves and do nothing when refused; front ends ask first to explain.
    QString checkRunCanStart();
    // Why Corvana must not move, copy over or trash the item at the path, or an empty text: only
    // the user's own regular files outside the system's folders are touched.
    static QString refusalForItem(const QString &path, bool followLinks = true);
    static bool isInSystemFolder(const QString &path);

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
    // The main view to show: a CVSpannerRunHost::View (the run host is also asked, and waited for).
    void viewChangeRequested(int view);
    // A run did not start: the reason (see checkRunCanStart).
    void runRefused(const QString &reason);
    void runFinished();
    void emptyTrashFinished();

private:
    // Copy with the run's rules: free space with the reserve, missing folders made (only below
    // `top`, never on a drive that is gone), two attempts. The copy is noted in the run's ledger.
    enum class CopyOutcome { Copied, NoSpace, Failed, DriveGone, TooLarge };
    struct CopyAttempt {
        CopyOutcome outcome = CopyOutcome::Failed;
        QString error; // the folder or file and the system's reason
        QString drive; // the drive that went away
        bool existing = false; // another file took the destination's name
    };
    CopyAttempt copyWithRules(const CVTrack *track, const QString &from, const QString &to, const QString &top);
    void addRow(CVTrack *track, CVResultIcon icon, const QString &message, bool inPlace = false);
    // The largest file the filesystem that would hold the path takes; -1 for no limit.
    qint64 maxFileSizeFor(const QString &path);
    // Drives the run works on, by the device mounted at their root when the run started.
    void noteDrivesOfRun(const QStringList &paths);
    // The drive root of the path when it was mounted at the start and is gone (or another drive
    // is there now); else an empty text.
    QString driveGoneFor(const QString &path) const;
    // Exists, and its drive (when it lies on one) is still mounted.
    bool isPresent(const QString &path) const;
    // Whether the file at dest is the copy this run made or took for pid: unchanged since then,
    // or (when the filesystem cannot tell) the same bytes as the original at `original`.
    bool isOurCopy(const QString &pid, const QString &dest, const QString &original) const;
    // A track whose copy cannot be used after all: the player goes back to the untouched original.
    struct PointBack {
        CVTrack *track = nullptr;
        QString pid;
        QString copy;
        QString original;
        QString why;
        QString spanBefore;
    };
    void pointBackAtOriginals(const QList<PointBack> &tracks);
    // The locations of the player's library file as it is now; false when it cannot be read.
    bool readPlayerLibrary(QHash<QString, QString> &locations, QString &mediaFolder);
    // Saves the history on the main thread; false (logged) when the records are not on disk.
    bool saveHistory();
    // Whether the original may go to the Trash: the reason when it stays; `go` is unset also when
    // the file is not one of this run's (it stays without a word then).
    QString checkOriginalMayGo(const QString &pid, const QString &original, const QString &dest, bool &go) const;
    // The file at dest still stands in for the original: a name of it, or this run's copy as made.
    bool copyStandsInFor(const QString &pid, const QString &original, const QString &dest) const;
    // Moves the run's originals to the Trash, each only after its info file and the run's records
    // (history, player library, copies) are on disk; one sync per filesystem covers a batch.
    struct TrashStep {
        const CVTrack *track = nullptr;
        QString pid;
        QString original;
        QString dest;
        QString problem; // why the original stays, when it does
        bool go = false;
        CVTrash::Pending pending;
    };
    // `saveRecords` runs once, before the first move; when it fails every original stays.
    void trashOriginals(QList<TrashStep> &steps, const std::function<bool()> &saveRecords,
        const std::function<void(const TrashStep &)> &done);
    // Empty folders left behind by trashed files, climbed `depth` folders up, in batches as above.
    void cleanUpEmptyDirectories(const QList<std::pair<QString, int>> &trashedItems);
    // The places whose filesystems hold what records a run: the history and the player's library.
    QStringList recordPlaces() const;
    void setTaskLine(const QString &text, int alignment = 0x1);
    void showStep(int step, int maximum);
    void waitWhilePaused();
    void pointPlayerAt(CVTrack *track, const QString &path, const QString &title, bool tab);
    bool playerReady() const;
    void prepareWindowForRun();
    bool isProtectedFolder(const QString &folder) const;
    CVTrash::Result trashAndCleanUp(const CVTrack *track, const QString &path);
    // Flushes the filesystems that received copies since the last call; a failure is kept in
    // m_copiesNotDurable, and no original goes to the Trash while it is set.
    void syncCopies();
    QString displayTitleForPath(const QString &path) const;
    QVariantMap lastTracksSpanned() const;

    CVPlayerLink *m_playerLink;
    CVFileManagerLink *m_fileManager;
    CVPresenter *m_presenter;
    CVSpannerHost *m_host = nullptr;
    CVSpannerRunHost *m_runHost = nullptr;
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
    QString m_copiesNotDurable;
    QString m_playerLibraryFile; // the library file the player wrote, as last read
    QHash<QString, QString> m_previouslySpannedTracks;
    // The copies this run made or took as made, by persistent ID: what may stand in for an
    // original before the original goes to the Trash.
    QHash<QString, CVFileCopier::Identity> m_copies;
    QHash<QString, dev_t> m_driveDevices;
    QString m_destinationDriveGone; // once set, the rest of the run is skipped
    bool m_allowRoot = false;
    std::optional<WindowsNames> m_windowsNames;
    mutable QMutex m_windowsNamesMutex;
    mutable QHash<QString, bool> m_windowsNamesByLocation;
    // Destinations of this run by their case-folded path, on a drive that ignores letter case.
    bool m_destinationIgnoresCase = false;
    QHash<QString, QString> m_claimedDestinations;
    QHash<quint64, qint64> m_maxFileSizes; // by device
    QList<CVResultRow> m_rawContentForResults;
    CVRunResults m_lastResults;
    QString m_taskLine;
    int m_quitTimeoutMs = 300000;
};
