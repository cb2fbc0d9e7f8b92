#pragma once

#include <QObject>
#include <QString>

#include <atomic>

class CVFileManagerLink;
class CVPlayerLink;
class CVPresenter;
class CVSpannerHost;
class CVTrack;

// The spanning engine. It knows no widgets: it talks to the player through a CVPlayerLink, to
// the desktop through a CVFileManagerLink, asks its questions through the presenter and reports
// what the window shows through signals.
class CVMediaSpanner : public QObject {
    Q_OBJECT
public:
    CVMediaSpanner(
        CVPlayerLink *playerLink, CVFileManagerLink *fileManager, CVPresenter *presenter, QObject *parent = nullptr);
    ~CVMediaSpanner() override;

    void setHost(CVSpannerHost *host) { m_host = host; }
    CVPlayerLink *playerLink() const { return m_playerLink; }
    void setPlayerLink(CVPlayerLink *link) { m_playerLink = link; }
    CVFileManagerLink *fileManager() const { return m_fileManager; }

    int trashedFileCount() const { return m_trashedFileCount; }
    int trashedFolderCount() const { return m_trashedFolderCount; }
    void setTrashedFileCount(int count) { m_trashedFileCount = count; }
    void setTrashedFolderCount(int count) { m_trashedFolderCount = count; }
    bool isRunUnderWay() const { return m_runUnderWay; }
    void setRunUnderWay(bool running) { m_runUnderWay = running; }

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
    // The run's task line and its alignment (Qt::Alignment).
    void taskLineChanged(const QString &text, int alignment);
    // The results view's Trash line, and whether its buttons hide.
    void trashSummaryChanged(const QString &text, bool hideTrashButtons);
    void emptyTrashFinished();

private:
    CVPlayerLink *m_playerLink;
    CVFileManagerLink *m_fileManager;
    CVPresenter *m_presenter;
    CVSpannerHost *m_host = nullptr;
    int m_trashedFileCount = 0;
    int m_trashedFolderCount = 0;
    std::atomic<bool> m_runUnderWay { false };
    int m_quitTimeoutMs = 300000;
};
