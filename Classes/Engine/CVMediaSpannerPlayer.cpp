// The player and Trash operations of CVMediaSpanner.
#include "Engine/CVMediaSpanner.h"

#include "Engine/CVMediaSpannerThreads.h"
#include "Engine/CVPlayerLink.h"
#include "Engine/CVSpannerHost.h"
#include "Engine/CVSpannerRunHost.h"
#include "Library/CVTrack.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVLog.h"
#include "Platform/CVPresenter.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QThread>

using namespace Qt::StringLiterals;

using CVMediaSpannerThreads::onMainThread;
using CVMediaSpannerThreads::onMainThreadAndWait;

void CVMediaSpanner::setLocationForTrackIniTunesWithPersistentID(const QString &persistentID, const QString &location)
{
    if (m_playerLink)
        m_playerLink->setTrackLocation(persistentID, location);
}

void CVMediaSpanner::refreshTrackIniTunesWithPersistentID(const QString &persistentID)
{
    if (m_playerLink)
        m_playerLink->trackLocation(persistentID);
}

void CVMediaSpanner::quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling()
{
    Q_EMIT taskLineChanged(u"Quitting iTunes to Save Updated Library"_s, int(Qt::AlignRight));
    if (!m_playerLink)
        return;
    std::optional<quint32> state;
    QString persistentID;
    QString playlist;
    int position = 0;
    if (m_playerLink->isRunning()) {
        state = m_playerLink->playerState();
        if (state && *state != CVPlayerLink::StateStopped) {
            persistentID = m_playerLink->currentTrackPersistentID();
            playlist = m_playerLink->currentPlaylistName();
            m_playerLink->pause();
            position = m_playerLink->playerPosition().value_or(0);
        }
    }

    // The quit request goes to the main thread without waiting; this thread polls for the exit.
    CVSpannerHost *host = m_host;
    CVPlayerLink *link = m_playerLink;
    const auto tellToQuit = [host, link] {
        if (host)
            host->telliTunesToQuit();
        else
            link->quit();
    };
    if (onMainThread())
        tellToQuit();
    else
        QMetaObject::invokeMethod(QCoreApplication::instance(), tellToQuit, Qt::QueuedConnection);
    const QDeadlineTimer deadline(m_quitTimeoutMs);
    while (m_playerLink->isRunning()) {
        if (deadline.hasExpired()) {
            CVLog::log(u"Corvana ScriptingBridge Error: %1 did not quit in time"_s.arg(m_playerLink->description()));
            return;
        }
        if (onMainThread())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        QThread::msleep(500);
    }

    // Position 0 counts as nothing to restore.
    if (!state || *state == CVPlayerLink::StateStopped || playlist.isEmpty() || persistentID.isEmpty() || position == 0)
        return;
    if (!m_playerLink->playOnce(playlist, persistentID))
        return;
    if (*state == CVPlayerLink::StatePaused)
        m_playerLink->pause();
    m_playerLink->setPlayerPosition(position);
}

void CVMediaSpanner::playSelectionInITunes(const CVTrack *track)
{
    if (!track || !m_playerLink)
        return;
    m_playerLink->playOnce(track->text(CVAttr::MediaType), track->text(CVAttr::PersistentID));
}

void CVMediaSpanner::revealInITunesAction(const CVTrack *track)
{
    if (!track || !m_playerLink)
        return;
    m_playerLink->activate();
    m_playerLink->reveal(track->text(CVAttr::MediaType), track->text(CVAttr::PersistentID));
}

void CVMediaSpanner::showInFinderAction(const CVTrack *track)
{
    if (!track || !m_fileManager)
        return;
    const QString span = track->text(CVAttr::SpanLocation);
    const QString path = !span.isEmpty() && QFileInfo::exists(span) ? span : track->text(CVAttr::Location);
    if (!m_fileManager->selectFile(path))
        CVLog::log(u"Corvana ScriptingBridge Error: the file manager could not show %1"_s.arg(path));
}

void CVMediaSpanner::openITunesFromSpanResultsView()
{
    if (m_playerLink)
        m_playerLink->launch();
}

QString CVMediaSpanner::trashSummaryText(int files, int folders, bool trashEmpty)
{
    if (files == 0 && folders == 0)
        return u"No files or folders moved to Trash."_s;
    const QString folderClause = folders > 0
        ? u" (and %1 empty folder%2)"_s.arg(QString::number(folders), folders == 1 ? QString() : u"s"_s)
        : QString();
    return u"%1 %2 successfully copied file%3%4 %5."_s.arg(trashEmpty ? u"Removed"_s : u"Moved"_s,
        QString::number(files), files == 1 ? QString() : u"s"_s, folderClause,
        trashEmpty ? u"by emptying Trash"_s : u"to Trash"_s);
}

bool CVMediaSpanner::isTrashEmpty()
{
    if (m_runHost && !m_runHost->isResultsViewOnScreen() && (m_runUnderWay || !m_runHost->isSpanningViewOnScreen()))
        return true;
    const bool empty = m_fileManager ? m_fileManager->isTrashEmpty() : true;
    const bool nothingTrashed = m_trashedFileCount == 0 && m_trashedFolderCount == 0;
    Q_EMIT trashSummaryChanged(
        trashSummaryText(m_trashedFileCount, m_trashedFolderCount, empty), nothingTrashed || empty);
    return empty;
}

void CVMediaSpanner::askToEmptyTrash()
{
    CVAlert alert;
    alert.title = u"\nAre you sure you want to empty the Trash?"_s;
    alert.text = u"Finder will confirm before emptying the Trash."_s;
    alert.defaultButton = u"Empty Trash…"_s;
    alert.alternateButton = u"Cancel"_s;
    alert.otherButton = u"Open Trash"_s;
    alert.icon = u"TrashFull"_s;
    didEndEmptyTrashSheet(m_presenter ? m_presenter->runAlertPanel(alert) : CVPresenter::AlternateReturn);
}

void CVMediaSpanner::didEndEmptyTrashSheet(int returnCode)
{
    QThread::msleep(200);
    if (returnCode == CVPresenter::AlternateReturn)
        return;
    if (returnCode == CVPresenter::DefaultReturn) {
        QThread *worker = QThread::create([this] { doEmptyTrash(); });
        connect(worker, &QThread::finished, worker, &QObject::deleteLater);
        worker->start();
    } else if (m_fileManager && !m_fileManager->openTrash()) {
        CVLog::log(u"Corvana ScriptingBridge Error: the Trash could not be opened"_s);
    }
}

void CVMediaSpanner::doEmptyTrash()
{
    if (m_fileManager) {
        QStringList errors;
        m_fileManager->emptyTrash(&errors);
        for (const QString &path : std::as_const(errors))
            CVLog::log(u"Corvana ScriptingBridge Error: %1 could not be removed from the Trash"_s.arg(path));
    }
    QThread::msleep(500);
    onMainThreadAndWait([this] { isTrashEmpty(); });
    Q_EMIT emptyTrashFinished();
}
