// Verification of CVMediaSpanner: the player writes its library, Corvana reads it back, and only
// what the player really took has its old file trashed and its history written.
#include "Engine/CVMediaSpanner.h"

#include "Engine/CVMediaSpannerThreads.h"
#include "Engine/CVSpannerHost.h"
#include "Library/CVFileURL.h"
#include "Library/CVLibraryFileReader.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVTrack.h"
#include "Platform/CVLog.h"
#include "Platform/CVPresenter.h"
#include "Platform/CVSettings.h"

#include <QDir>
#include <QFileInfo>
#include <QThread>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

bool samePath(const QString &a, const QString &b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

bool inside(const QString &path, const QString &folder)
{
    if (folder.isEmpty())
        return false;
    const QString prefix = folder.endsWith(u'/') ? folder : folder + u'/';
    return path.startsWith(prefix);
}

qint64 fileSize(const QString &path)
{
    struct stat info { };
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? qint64(info.st_size) : -1;
}

} // namespace

void CVMediaSpanner::verifySpannedTracks(const QList<CVTrack *> &tracks)
{
    const int n = int(tracks.size());
    Q_EMIT headerChanged(u"Verifying %1 Track%2"_s.arg(n).arg(n == 1 ? QString() : u"s"_s));
    Q_EMIT progressChanged(0, 0, true);
    syncCopies();
    quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling();
    setTaskLine(u"Reading Updated iTunes Library Information"_s);

    // The library file the player wrote; the program waits for one to be there.
    QString file;
    for (;;) {
        file = m_library && !m_library->libraryFilePath().isEmpty() && QFileInfo::exists(m_library->libraryFilePath())
            ? m_library->libraryFilePath()
            : CVLibraryManager::chooseLibraryFile(QDir::homePath());
        if (!file.isEmpty())
            break;
        CVAlert alert = CVLibraryManager::noLibraryFileAlert();
        alert.defaultButton = u"Try Again"_s;
        alert.style = CVAlert::Style::Critical;
        CVPresenter *presenter = m_presenter;
        if (presenter)
            CVMediaSpannerThreads::onMainThreadAndWait([presenter, alert] { presenter->runAlertPanel(alert); });
        QThread::msleep(1000);
    }
    CVLibraryContents contents;
    CVLibraryFileReader reader;
    QHash<QString, QString> locations;
    QString mediaFolder;
    const bool libraryRead = reader.readFile(file, contents);
    if (libraryRead) {
        for (const CVTrack &t : contents.tracks)
            locations.insert(t.text(CVAttr::PersistentID), t.text(CVAttr::Location));
        mediaFolder = contents.mediaPath.value_or(QString());
    } else {
        // A library that cannot be read confirms nothing: every track goes to the failed list.
        CVLog::log(u"The library file could not be read: %1"_s.arg(reader.errorString()));
    }
    const QVariantMap lastSpanned = lastTracksSpanned();

    Q_EMIT progressChanged(1, n, false);
    setTaskLine(u"Verifying Track Locations and Moving Successfully Copied Files to Trash"_s);
    QList<CVTrack *> failed;
    int step = 1;
    for (CVTrack *t : tracks) {
        const QString pid = t->text(CVAttr::PersistentID);
        const auto spanned = m_spannedTracks.constFind(pid);
        if (spanned == m_spannedTracks.cend()) {
            showStep(step++, n);
            continue;
        }
        QString dest = *spanned;
        const bool known = t->flag(CVAttr::ItemIsSpanned) || t->flag(CVAttr::ItemIsRestored);
        const QString orig = t->text(CVAttr::OriginalLocation);
        // Without a readable library the player's place is unknown: the track keeps the one it had.
        const QString loc = libraryRead ? locations.value(pid) : t->text(CVAttr::Location);
        t->setText(CVAttr::Location, loc);
        t->setText(CVAttr::SpanLocation, dest);
        const bool isSpan = !samePath(orig, dest);

        if (loc != dest) {
            // The player did not take the new place, unless it moved the file inside its own
            // media folder by itself.
            if (!inside(dest, mediaFolder) || !inside(loc, mediaFolder)) {
                failed.append(t);
                showStep(step++, n);
                continue;
            }
            if (dest == orig)
                t->setText(CVAttr::OriginalLocation, loc);
            t->setText(CVAttr::SpanLocation, loc);
            dest = loc;
        }

        const QString prev = lastSpanned.value(pid).toString();
        if (!prev.isEmpty() && prev != loc && prev != dest && QFileInfo::exists(prev)) {
            // Only an old file with a whole copy at the destination goes to the Trash.
            if (fileSize(prev) == fileSize(dest)) {
                trashAndCleanUp(t, prev);
                if (!QFileInfo::exists(prev))
                    ++m_trashedFileCount;
                else
                    CVLog::log(u"Tried to trash file, but failed. (%1)"_s.arg(prev));
            } else {
                CVLog::log(u"This just happened... (%1)"_s.arg(dest));
            }
        }

        if (m_library) {
            if (known)
                m_library->updateItemInSpanStore(t, dest);
            else
                m_library->addItemToSpanStore(t, dest);
        }
        const QString where = m_runUnderWay ? displayTitleForPath(m_runSpanLocation)
                                            : displayTitleForPath(t->text(CVAttr::BaseSpanPath));
        addRow(t, CVResultIcon::FullSuccess,
            isSpan ? u"Track successfully spanned to '%1'."_s.arg(where)
                   : u"Track successfully restored to its original location."_s);
        showStep(step++, n);
    }

    if (failed.size() < tracks.size() && m_host) {
        CVSpannerHost *host = m_host;
        CVMediaSpannerThreads::onMainThreadAndWait([host] { host->saveAction(); });
    }
    if (failed.isEmpty()) {
        showResultsAfterSpan();
        return;
    }
    const qint64 allowed = m_settings ? m_settings->integerValue(u"CVFullSpanReattempts"_s) : 2;
    if (m_spanRepairAttempts >= allowed) {
        resolveFailedSpanTracks(failed);
        showResultsAfterSpan();
    } else {
        reattemptFailedSpanTracks(failed);
    }
}
