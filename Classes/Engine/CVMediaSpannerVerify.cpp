// Verification of CVMediaSpanner: the player writes its library, Corvana reads it back, and only
// what the player really took, with its copy in place, is recorded; only once the records are
// on disk do the old files go to the Trash.
#include "Engine/CVMediaSpanner.h"

#include "Engine/CVMediaSpannerThreads.h"
#include "Engine/CVSpannerHost.h"
#include "Library/CVFileURL.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPlayerLibraryFile.h"
#include "Library/CVSpanHistory.h"
#include "Library/CVTrack.h"
#include "Platform/CVFaultInjection.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVLog.h"
#include "Platform/CVPresenter.h"
#include "Platform/CVSettings.h"

#include <QDir>
#include <QFileInfo>
#include <QThread>

#include <sys/stat.h>
#include <unistd.h>

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

bool itemExists(const QString &path)
{
    struct stat info { };
    return !path.isEmpty() && ::lstat(QFile::encodeName(path).constData(), &info) == 0;
}

QString linkTarget(const QString &path)
{
    struct stat info { };
    if (path.isEmpty() || ::lstat(QFile::encodeName(path).constData(), &info) != 0 || !S_ISLNK(info.st_mode))
        return {};
    return QFile::symLinkTarget(path);
}

} // namespace

bool CVMediaSpanner::readPlayerLibrary(QHash<QString, QString> &locations, QString &mediaFolder)
{
    // The library file the player wrote; the program waits for one to be there.
    QString file;
    for (;;) {
        file = m_library && !m_library->libraryFilePath().isEmpty() && QFileInfo::exists(m_library->libraryFilePath())
            ? m_library->libraryFilePath()
            : m_library ? m_library->findLibraryFile()
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
    QString error;
    if (!CVPlayerLibraryFile::read(file, contents, {}, &error)) {
        // A library that cannot be read confirms nothing.
        CVLog::log(u"The library file could not be read: %1"_s.arg(error));
        return false;
    }
    m_playerLibraryFile = file;
    locations.clear();
    for (const CVTrack &t : contents.tracks)
        locations.insert(t.text(CVAttr::PersistentID), t.text(CVAttr::Location));
    mediaFolder = contents.mediaPath.value_or(QString());
    return true;
}

void CVMediaSpanner::verifySpannedTracks(const QList<CVTrack *> &tracks)
{
    const int n = int(tracks.size());
    Q_EMIT headerChanged(u"Verifying %1 Track%2"_s.arg(n).arg(n == 1 ? QString() : u"s"_s));
    Q_EMIT progressChanged(0, 0, true);
    syncCopies();
    quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling();
    setTaskLine(u"Reading Updated iTunes Library Information"_s);
    QHash<QString, QString> locations;
    QString mediaFolder;
    const bool libraryRead = readPlayerLibrary(locations, mediaFolder);
    const QVariantMap lastSpanned = lastTracksSpanned();

    struct Confirmed {
        CVTrack *track;
        QString pid;
        QString dest;
        QString prev;
        QString loc;
        QString linkBefore; // the player's old place, when a link stood there
        bool known;
        bool isSpan;
    };
    QList<Confirmed> confirmed;
    QList<PointBack> pointBack;
    QList<CVTrack *> failed;
    for (CVTrack *t : tracks) {
        const QString pid = t->text(CVAttr::PersistentID);
        const auto spanned = m_spannedTracks.constFind(pid);
        if (spanned == m_spannedTracks.cend())
            continue;
        QString dest = *spanned;
        const bool known = t->flag(CVAttr::ItemIsSpanned) || t->flag(CVAttr::ItemIsRestored);
        const QString orig = t->text(CVAttr::OriginalLocation);
        const QString before = t->text(CVAttr::Location);
        const QString spanBefore = t->text(CVAttr::SpanLocation);
        // Without a readable library the player's place is unknown: the track keeps the one it had.
        const QString loc = libraryRead ? locations.value(pid) : before;
        t->setText(CVAttr::Location, loc);
        t->setText(CVAttr::SpanLocation, dest);
        const bool isSpan = !samePath(orig, dest);

        if (loc != dest) {
            // The player did not take the new place, unless it moved the file inside its own
            // media folder by itself.
            if (!inside(dest, mediaFolder) || !inside(loc, mediaFolder)) {
                failed.append(t);
                continue;
            }
            if (dest == orig)
                t->setText(CVAttr::OriginalLocation, loc);
            t->setText(CVAttr::SpanLocation, loc);
            dest = loc;
        }

        const QString prev = lastSpanned.value(pid).toString();
        // The player takes a path, not a file: the copy must still be there as it was made.
        QString why;
        if (!CVFileCopier::identityOf(dest).valid) {
            const QString drive = driveGoneFor(dest);
            why = drive.isEmpty() ? u"it is no longer there"_s : u"its drive “%1” was disconnected"_s.arg(drive);
        } else if (m_copies.contains(pid) && !isOurCopy(pid, dest, prev)) {
            why = u"it was changed after Corvana made it"_s;
        }
        if (!why.isEmpty()) {
            if (!prev.isEmpty() && prev != dest && QFileInfo::exists(prev)) {
                pointBack.append({ t, pid, dest, prev, why, spanBefore });
            } else {
                CVLog::log(u"LOST A FILE - Not at iTunes Path AND Not at Span Path"_s);
                addRow(t, CVResultIcon::Fail,
                    u"The copy at “%1” cannot be used (%2), and the original file cannot be found."_s.arg(dest, why));
            }
            continue;
        }
        const QString linkBefore = t->flag(CVAttr::SymSpan) && before != dest ? before : QString();
        confirmed.append({ t, pid, dest, prev, loc, linkBefore, known, isSpan });
    }

    // The records go to disk before any original goes to the Trash: a file whose move is not
    // recorded must still be where the user had it. They are saved right before the first move,
    // once everything else that move needs is on disk (the store's commit is durable by itself).
    bool recorded = true;
    const auto saveRecords = [&] {
        if (confirmed.isEmpty() || !m_library)
            return true;
        for (const Confirmed &c : std::as_const(confirmed)) {
            if (c.known)
                m_library->updateItemInSpanStore(c.track, c.dest);
            else
                m_library->addItemToSpanStore(c.track, c.dest);
        }
        recorded = saveHistory();
        return recorded;
    };

    Q_EMIT progressChanged(1, n, false);
    setTaskLine(u"Verifying Track Locations and Moving Successfully Copied Files to Trash"_s);
    QList<TrashStep> steps;
    steps.reserve(confirmed.size());
    for (const Confirmed &c : std::as_const(confirmed)) {
        TrashStep step;
        step.track = c.track;
        step.pid = c.pid;
        step.original = c.prev;
        step.dest = c.dest;
        if (!c.prev.isEmpty() && c.prev != c.loc && c.prev != c.dest && itemExists(c.prev))
            step.problem = checkOriginalMayGo(c.pid, c.prev, c.dest, step.go);
        steps.append(step);
    }
    int stepNumber = 1;
    const QString where = m_runUnderWay ? displayTitleForPath(m_runSpanLocation) : QString();
    qsizetype index = 0;
    trashOriginals(steps, saveRecords, [&](const TrashStep &step) {
        const Confirmed &c = confirmed.at(index++);
        showStep(stepNumber++, int(confirmed.size()));
        if (!recorded) {
            const bool oldFileLeft = !c.prev.isEmpty() && c.prev != c.loc && c.prev != c.dest && itemExists(c.prev);
            addRow(c.track, CVResultIcon::Fail,
                oldFileLeft
                    ? u"The span history could not be written, so the original file was kept at “%1”."_s.arg(c.prev)
                    : u"The span history could not be written."_s);
            return;
        }
        QString problem = step.problem;
        if (!problem.isEmpty())
            CVLog::log(u"Tried to trash file, but failed. (%1) %2"_s.arg(c.prev, problem));
        // The link that made a dependent track playable leads nowhere once its file is gone.
        if (problem.isEmpty() && !c.linkBefore.isEmpty() && !c.prev.isEmpty() && linkTarget(c.linkBefore) == c.prev
            && !QFileInfo::exists(c.prev) && m_fileManager)
            m_fileManager->moveToTrash(c.linkBefore);
        const QString place = m_runUnderWay ? where : displayTitleForPath(c.track->text(CVAttr::BaseSpanPath));
        if (!problem.isEmpty()) {
            addRow(c.track, CVResultIcon::Fail,
                c.isSpan
                    ? u"Track spanned to '%1', but its original file stays at “%2”: %3"_s.arg(place, c.prev, problem)
                    : u"Track restored to its original location, but the spanned file stays at “%1”: %2"_s.arg(
                        c.prev, problem));
            return;
        }
        addRow(c.track, CVResultIcon::FullSuccess,
            c.isSpan ? u"Track successfully spanned to '%1'."_s.arg(place)
                     : u"Track successfully restored to its original location."_s);
    });
    if (!pointBack.isEmpty())
        pointBackAtOriginals(pointBack);

    if (!recorded) {
        // A run that cannot record stops: what the player did not take is only located.
        resolveFailedSpanTracks(failed);
        showResultsAfterSpan();
        return;
    }
    if (failed.isEmpty()) {
        showResultsAfterSpan();
        return;
    }
    const qint64 allowed = m_settings ? m_settings->integerValue(CVSettingsKey::FullSpanReattempts) : 2;
    if (m_spanRepairAttempts >= allowed) {
        resolveFailedSpanTracks(failed);
        showResultsAfterSpan();
    } else {
        reattemptFailedSpanTracks(failed);
    }
}

bool CVMediaSpanner::saveHistory()
{
    bool saved = false;
    CVSpannerHost *host = m_host;
    if (host)
        CVMediaSpannerThreads::onMainThreadAndWait([host, &saved] { saved = host->saveAction(); });
    if (!saved)
        CVLog::log(u"The span history could not be saved: no original is moved to the Trash"_s);
    return saved;
}

QStringList CVMediaSpanner::recordPlaces() const
{
    QStringList places { CVSpanHistory::applicationSupportFolder() };
    if (!m_playerLibraryFile.isEmpty())
        places.append(m_playerLibraryFile);
    return places;
}

void CVMediaSpanner::trashOriginals(QList<TrashStep> &steps, const std::function<bool()> &saveRecords,
    const std::function<void(const TrashStep &)> &done)
{
    // Info files of a batch, one sync of every filesystem involved (the first time also those of
    // the support folder and the player's library), then the moves. The records are saved between
    // the first sync and the first move, so that a crash finds either no record or every record
    // with its original still there, for the next run to finish. A sync waits for whatever else
    // the filesystem holds unwritten, so batches double: a crash leaves no more info files without
    // their items than the moves already made (or 1,000).
    qsizetype batch = 1000;
    QList<std::pair<QString, int>> trashed;
    bool saved = false;
    bool recordsSynced = false;
    for (qsizetype from = 0; from < steps.size() || !saved; from += batch, batch *= 2) {
        const qsizetype to = qMin(steps.size(), from + batch);
        QStringList places;
        for (qsizetype i = from; i < to; ++i) {
            TrashStep &step = steps[i];
            if (!step.go || !step.problem.isEmpty())
                continue;
            if (!m_copiesNotDurable.isEmpty()) {
                step.problem = u"“%1” was kept: %2"_s.arg(step.original, m_copiesNotDurable);
                continue;
            }
            if (!m_fileManager) {
                step.problem = u"No Trash is available."_s;
                continue;
            }
            if (!CVTrash::prepare(step.original, step.pending)) {
                step.problem = step.pending.error;
                continue;
            }
            places.append(step.pending.infoFolder());
        }
        const bool moves = !places.isEmpty();
        if (!recordsSynced)
            places += recordPlaces();
        QString error;
        if (moves && CVFileCopier::syncFileSystemsOf(places, &error)) {
            recordsSynced = true;
        } else if (moves) {
            CVLog::log(error);
            for (qsizetype i = from; i < to; ++i) {
                if (steps[i].go && steps[i].problem.isEmpty()) {
                    CVTrash::abandon(steps[i].pending);
                    steps[i].problem = u"“%1” was kept: %2"_s.arg(steps[i].original, error);
                }
            }
        }
        if (!saved) {
            saved = true;
            if (!saveRecords()) {
                // Nothing is recorded: every original stays.
                for (TrashStep &step : steps) {
                    if (step.go && step.problem.isEmpty())
                        CVTrash::abandon(step.pending);
                    step.go = false;
                    done(step);
                }
                return;
            }
        }
        for (qsizetype i = from; i < to; ++i) {
            TrashStep &step = steps[i];
            if (step.go && step.problem.isEmpty()) {
                CVFaultInjection::fault(CVFaultInjection::Point::BeforeTrash, step.dest);
                // The copy is looked at last right before its original moves: the info file and
                // the sync took time, and anything may have replaced it since the checks.
                if (!copyStandsInFor(step.pid, step.original, step.dest)) {
                    CVTrash::abandon(step.pending);
                    step.problem = u"“%1” was kept: its copy at “%2” is not there as Corvana made it."_s.arg(
                        step.original, step.dest);
                } else if (const CVTrash::Result moved = CVTrash::commit(step.pending); !moved.ok) {
                    step.problem = moved.error;
                } else {
                    ++m_trashedFileCount;
                    const QString kind = step.track->text(CVAttr::MediaType);
                    trashed.append({ step.original, kind == u"Music"_s || kind == u"TV Shows"_s ? 3 : 2 });
                }
            }
            done(step);
        }
    }
    cleanUpEmptyDirectories(trashed);
}

void CVMediaSpanner::pointBackAtOriginals(const QList<PointBack> &tracks)
{
    // The copy is of no use: the player goes back to the original, which was never touched.
    for (const PointBack &p : tracks)
        pointPlayerAt(p.track, p.original, createDisplayTitleForItem(p.track), true);
    quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling();
    QHash<QString, QString> locations;
    QString mediaFolder;
    const bool read = readPlayerLibrary(locations, mediaFolder);
    for (const PointBack &p : tracks) {
        const QString loc = read ? locations.value(p.pid) : p.copy;
        p.track->setText(CVAttr::Location, loc);
        if (!p.spanBefore.isEmpty())
            p.track->setText(CVAttr::SpanLocation, p.spanBefore);
        else
            p.track->clear(CVAttr::SpanLocation);
        addRow(p.track, CVResultIcon::Fail,
            loc == p.original
                ? u"The copy at “%1” cannot be used (%2); the original file stays at “%3”, and the player points at "
                  "it again."_s.arg(p.copy, p.why, p.original)
                : u"The copy at “%1” cannot be used (%2); the original file is still at “%3”, but the player could "
                  "not be pointed back at it."_s.arg(p.copy, p.why, p.original));
    }
}
