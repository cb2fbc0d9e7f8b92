// CVMediaSpanner: destination paths, titles, pause and skip, and the helpers the runs share.
#include "Engine/CVMediaSpanner.h"

#include "Engine/CVMediaSpannerThreads.h"
#include "Engine/CVPlayerLink.h"
#include "Engine/CVSpannerHost.h"
#include "Engine/CVSpannerRunHost.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVTrack.h"
#include "Platform/CVFileCopier.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVLog.h"
#include "Platform/CVPresenter.h"
#include "Platform/CVSettings.h"
#include "Platform/CVVolumes.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QThread>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

// No path component may exceed this many bytes.
constexpr qsizetype kMaxNameBytes = 255;

QString truncatedToNameLimit(QString name)
{
    while (name.toUtf8().size() > kMaxNameBytes)
        name.chop(name.size() > 1 && name[name.size() - 1].isLowSurrogate() ? 2 : 1);
    return name;
}

// The last guard of every component we build: it stays one name inside its folder.
QString safeComponent(QString name)
{
    name.replace(u'/', u'_');
    name.replace(QChar(0), u'_');
    if (name.isEmpty() || name == u"."_s || name == u".."_s)
        name = u"_"_s;
    return truncatedToNameLimit(name);
}

} // namespace

CVMediaSpanner::CVMediaSpanner(
    CVPlayerLink *playerLink, CVFileManagerLink *fileManager, CVPresenter *presenter, QObject *parent)
    : QObject(parent)
    , m_playerLink(playerLink)
    , m_fileManager(fileManager)
    , m_presenter(presenter)
{
}

CVMediaSpanner::~CVMediaSpanner() = default;

bool CVMediaSpanner::restoreMode() const
{
    if (m_runUnderWay)
        return m_runRestoreMode;
    return m_runHost && m_runHost->restoreMode();
}

QString CVMediaSpanner::spanLocation() const
{
    if (m_runUnderWay)
        return m_runSpanLocation;
    return m_runHost ? m_runHost->spanLocation() : QString();
}

bool CVMediaSpanner::crashedWhileSpanningLastRun() const
{
    return m_host && m_host->crashedWhileSpanningLastRun();
}

QString CVMediaSpanner::replaceChactersInStringForFolderName(const QString &text)
{
    // Trailing blanks go, unless the text is nothing but blanks.
    QString s = text;
    const qsizetype end = [&] {
        qsizetype e = s.size();
        while (e > 0 && s[e - 1] == u' ')
            --e;
        return e;
    }();
    if (end > 0)
        s.truncate(end);
    static const QChar replaced[] = { u'/', u'"', u':', u'>', u'<', QChar(0x2019), u'*', u'?' };
    for (const QChar c : replaced)
        s.replace(c, u'_');
    if (s.startsWith(u' '))
        s[0] = u'_';
    if (s.startsWith(u'.'))
        s[0] = u'_';
    if (s.endsWith(u'.'))
        s[s.size() - 1] = u'_';
    if (s.endsWith(u' '))
        s[s.size() - 1] = u'_';
    s = safeComponent(s);
    // A cut can leave a blank or a dot at the end again.
    if (s.endsWith(u'.') || s.endsWith(u' '))
        s[s.size() - 1] = u'_';
    return s;
}

QString CVMediaSpanner::getBasePathForPath(const QString &path)
{
    return CVVolumes::basePathOfPath(path);
}

QString CVMediaSpanner::getOriginalPathForItem(const CVTrack *track)
{
    return track->text(CVAttr::OriginalLocation);
}

QString CVMediaSpanner::getITunesPathForItem(const CVTrack *track) const
{
    if (crashedWhileSpanningLastRun() && !track->flag(CVAttr::SymSpan)) {
        const auto it = m_previouslySpannedTracks.constFind(track->text(CVAttr::PersistentID));
        if (it != m_previouslySpannedTracks.cend())
            return *it;
    }
    return track->text(CVAttr::Location);
}

QString CVMediaSpanner::getCurrentPathForItem(const CVTrack *track) const
{
    if (track->flag(CVAttr::SymSpan))
        return track->text(CVAttr::SpanLocation);
    return getITunesPathForItem(track);
}

QString CVMediaSpanner::createNewPathForItem(const CVTrack *track, const QString &fileName) const
{
    if (restoreMode())
        return getOriginalPathForItem(track);
    const auto first = [&](std::initializer_list<CVAttr> attrs, const QString &fallback) {
        for (const CVAttr a : attrs) {
            if (track->has(a) && !track->text(a).isEmpty())
                return track->text(a);
        }
        return fallback;
    };
    const QString mediaType = track->text(CVAttr::MediaType);
    const QString artist
        = replaceChactersInStringForFolderName(first({ CVAttr::AlbumArtist, CVAttr::Artist }, u"Unknown Artist"_s));
    const QString album = replaceChactersInStringForFolderName(
        first({ CVAttr::Album }, mediaType == u"Podcasts"_s ? u"Unknown Podcast"_s : u"Unknown Album"_s));
    const QString show = replaceChactersInStringForFolderName(first({ CVAttr::Show }, u"Unknown Show"_s));
    // The season is used as it stands, but it may never leave its folder.
    const QString season = safeComponent(first({ CVAttr::Season }, u"No Season"_s));
    const QString file = safeComponent(fileName);

    QStringList parts;
    if (mediaType == u"Music"_s) {
        const bool compilation = track->value(CVAttr::Compilation).toInt() == 1;
        parts = { u"Music"_s, compilation ? u"Compilations"_s : artist, album, file };
    } else if (mediaType == u"Movies"_s) {
        parts
            = { u"Movies"_s, replaceChactersInStringForFolderName(first({ CVAttr::Name }, u"Untitled Movie"_s)), file };
    } else if (mediaType == u"TV Shows"_s) {
        parts = { u"TV Shows"_s, show, season, file };
    } else if (mediaType == u"Podcasts"_s) {
        parts = { u"Podcasts"_s, album, file };
    } else if (mediaType == u"iTunes U"_s) {
        parts = { u"iTunes U"_s, album, file };
    } else if (mediaType == u"Books"_s) {
        parts = { u"Audiobooks"_s, artist, file };
    } else {
        CVLog::log(u"UNCAUGHT MEDIATYPE!"_s);
        parts = { safeComponent(mediaType), artist, album, file };
    }
    // A drive that follows Windows rules refuses some names that Linux takes.
    if (usesWindowsNames()) {
        for (QString &part : parts)
            part = windowsSafeName(part);
    }
    return spanLocation() + u'/' + parts.join(u'/');
}

QString CVMediaSpanner::windowsSafeName(const QString &name)
{
    QString s = name;
    for (QChar &c : s) {
        const char16_t u = c.unicode();
        if (u < 0x20 || u == 0x7F || u == u'"' || u == u'*' || u == u':' || u == u'<' || u == u'>' || u == u'?'
            || u == u'\\' || u == u'|' || u == u'/')
            c = u'_';
    }
    const auto dropTrailing = [](QString &text) {
        qsizetype end = text.size();
        while (end > 0 && (text[end - 1] == u'.' || text[end - 1] == u' '))
            --end;
        text.truncate(end);
    };
    dropTrailing(s);
    if (s.isEmpty())
        return u"_"_s;
    // The device names, with or without an extension: "CON", "aux.m4a", "com1.x" become "CON_", ...
    static const QRegularExpression reserved(
        u"^(CON|PRN|AUX|NUL|COM[1-9]|LPT[1-9])(\\..*)?$"_s, QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = reserved.match(s);
    if (match.hasMatch())
        s.insert(match.capturedEnd(1), u'_');
    s = truncatedToNameLimit(s);
    dropTrailing(s);
    return s.isEmpty() ? u"_"_s : s;
}

bool CVMediaSpanner::usesWindowsNames() const
{
    const WindowsNames mode = windowsNamesMode();
    if (mode != WindowsNames::Auto)
        return mode == WindowsNames::Always;
    const QString location = spanLocation();
    if (location.isEmpty())
        return false;
    // The filesystem is asked once per location: a dry run or a queue asks for every track.
    QMutexLocker lock(&m_windowsNamesMutex);
    const auto it = m_windowsNamesByLocation.constFind(location);
    if (it != m_windowsNamesByLocation.cend())
        return *it;
    const bool windows = CVVolumes::fileSystemOf(location).windowsNames;
    m_windowsNamesByLocation.insert(location, windows);
    return windows;
}

CVMediaSpanner::WindowsNames CVMediaSpanner::windowsNamesMode() const
{
    if (m_windowsNames)
        return *m_windowsNames;
    const QString setting = m_settings ? m_settings->stringValue(CVSettingsKey::WindowsFileNames) : QString();
    if (setting == u"always"_s)
        return WindowsNames::Always;
    if (setting == u"never"_s)
        return WindowsNames::Never;
    return WindowsNames::Auto;
}

QString CVMediaSpanner::createDisplayTitleForItem(const CVTrack *track)
{
    const auto text = [&](CVAttr a, const QString &fallback) {
        return track->has(a) && !track->text(a).isEmpty() ? track->text(a) : fallback;
    };
    const qint64 number = track->has(CVAttr::TrackNumber) ? track->integer(CVAttr::TrackNumber) : 0;
    const QString prefix = number != 0 ? u"%1. "_s.arg(number) : QString();
    return u"%1 · %2 · %3%4"_s.arg(text(CVAttr::Artist, u"Unknown Artist"_s), text(CVAttr::Album, u"Unknown Album"_s),
        prefix, text(CVAttr::Name, u"Untitled Track"_s));
}

QVariantMap CVMediaSpanner::lastTracksSpanned() const
{
    return m_settings ? m_settings->mapValue(CVSettingsKey::LastTracksSpanned) : QVariantMap();
}

void CVMediaSpanner::loadPreviouslySpannedTracks()
{
    m_previouslySpannedTracks.clear();
    const QVariantMap map = lastTracksSpanned();
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        m_previouslySpannedTracks.insert(it.key(), it.value().toString());
}

QString CVMediaSpanner::displayTitleForPath(const QString &path) const
{
    return m_library ? m_library->createDisplayTitleForPath(path) : QFileInfo(path).fileName();
}

void CVMediaSpanner::addRow(CVTrack *track, CVResultIcon icon, const QString &message, bool inPlace)
{
    m_rawContentForResults.append(
        { track->text(CVAttr::PersistentID), icon, track, message, inPlace || icon == CVResultIcon::FullSuccess });
}

void CVMediaSpanner::setTaskLine(const QString &text, int alignment)
{
    m_taskLine = text;
    Q_EMIT taskLineChanged(text, alignment);
}

void CVMediaSpanner::showStep(int step, int maximum)
{
    Q_EMIT progressChanged(step, maximum, false);
}

void CVMediaSpanner::waitWhilePaused()
{
    while (m_pauseSpan) {
        if (!m_taskLine.startsWith(u"Paused After "_s))
            setTaskLine(u"Paused After %1"_s.arg(m_taskLine));
        QThread::msleep(500);
    }
}

bool CVMediaSpanner::playerReady() const
{
    return m_playerLink && m_playerLink->isReady();
}

void CVMediaSpanner::pointPlayerAt(CVTrack *track, const QString &path, const QString &title, bool tab)
{
    const bool ready = playerReady();
    if (ready) {
        setTaskLine((tab ? u"Updating:\t%1"_s : u"Updating: %1"_s).arg(title));
    } else {
        Q_EMIT waitingForPlayer(true);
        setTaskLine(u"Launching iTunes & Updating: %1"_s.arg(title));
    }
    setLocationForTrackIniTunesWithPersistentID(track->text(CVAttr::PersistentID), path);
    if (!ready)
        Q_EMIT waitingForPlayer(false);
}

void CVMediaSpanner::prepareWindowForRun()
{
    Q_EMIT viewChangeRequested(int(CVSpannerRunHost::View::Spanning));
    CVSpannerRunHost *host = m_runHost;
    if (host)
        CVMediaSpannerThreads::onMainThreadAndWait([host] { host->showView(CVSpannerRunHost::View::Spanning); });
}

CVMediaSpanner::CopyAttempt CVMediaSpanner::copyWithRules(
    const CVTrack *track, const QString &from, const QString &to, const QString &top)
{
    CopyAttempt attempt;
    // The library's Size, or the file's own when that is larger (a stale library undercounts).
    const qint64 size = qMax(qint64(track->real(CVAttr::Size)), QFileInfo(from).size());
    const auto driveGone = [&] {
        const QString gone = driveGoneFor(to);
        attempt.drive = gone.isEmpty() ? driveGoneFor(from) : gone;
        if (!attempt.drive.isEmpty())
            attempt.outcome = CopyOutcome::DriveGone;
        return !attempt.drive.isEmpty();
    };
    for (int round = 0; round < 2; ++round) {
        if (driveGone())
            return attempt;
        // Every destination drive keeps its last 100 MB free. Measured on the filesystem that
        // will hold the file, which on Linux need not be the one of its drive root.
        const qint64 free = CVVolumes::freeSpaceForPath(to);
        if (size + FreeSpaceReserve > free) {
            attempt.outcome = CopyOutcome::NoSpace;
            return attempt;
        }
        // FAT takes no file of 4 GiB or more: found out before a byte is copied.
        const qint64 limit = maxFileSizeFor(to);
        if (limit >= 0 && size > limit) {
            attempt.outcome = CopyOutcome::TooLarge;
            attempt.error = u"The file is too large for that drive: %1, where a file can be at most %2."_s.arg(
                CVLibraryManager::humanReadableSizeFromBytes(double(size)),
                CVLibraryManager::humanReadableSizeFromBytes(double(limit)));
            return attempt;
        }
        const QString folder = QFileInfo(to).absolutePath();
        const CVFileCopier::FolderResult folders = CVFileCopier::makeFolders(folder, top);
        if (!folders.ok) {
            attempt.error = folders.error;
            CVLog::log(folders.error);
            if (driveGone())
                return attempt;
            continue;
        }
        // Copies reach the disk together: verification syncs their filesystems before it lets the
        // player take them and before any original goes to the Trash.
        const CVFileCopier::Result result = CVFileCopier::copyFile(from, to, CVFileCopier::Durability::Deferred);
        if (result.ok) {
            m_unsyncedFolders.insert(folder);
            m_copies.insert(track->text(CVAttr::PersistentID), result.copy);
            Q_EMIT fileCopied(size);
            attempt.outcome = CopyOutcome::Copied;
            return attempt;
        }
        attempt.error = result.error;
        CVLog::log(u"Copy failed: %1"_s.arg(result.error));
        if (driveGone())
            return attempt;
        if (result.noSpace) {
            attempt.outcome = CopyOutcome::NoSpace;
            return attempt;
        }
        // Neither of these gets better by trying again.
        if (result.notAFile || result.errorNumber == EEXIST) {
            attempt.existing = result.errorNumber == EEXIST;
            break;
        }
    }
    attempt.outcome = CopyOutcome::Failed;
    return attempt;
}

qint64 CVMediaSpanner::maxFileSizeFor(const QString &path)
{
    QString probe = QFileInfo(path).absolutePath();
    struct stat info { };
    while (::stat(QFile::encodeName(probe).constData(), &info) != 0 && probe != u"/"_s)
        probe = QFileInfo(probe).absolutePath();
    const auto it = m_maxFileSizes.constFind(quint64(info.st_dev));
    if (it != m_maxFileSizes.cend())
        return *it;
    const qint64 limit = CVVolumes::fileSystemOf(probe).maxFileSize;
    m_maxFileSizes.insert(quint64(info.st_dev), limit);
    return limit;
}

void CVMediaSpanner::syncCopies()
{
    QString error;
    if (!CVFileCopier::syncFileSystemsOf(QStringList(m_unsyncedFolders.cbegin(), m_unsyncedFolders.cend()), &error)) {
        CVLog::log(error);
        m_copiesNotDurable = error;
    }
    m_unsyncedFolders.clear();
}

bool CVMediaSpanner::urlIsInvisible(const QString &path)
{
    return QFileInfo(path).fileName().startsWith(u'.');
}

bool CVMediaSpanner::isProtectedFolder(const QString &folder) const
{
    // Clean-up climbs a few folders; it must never take a folder that holds more than media.
    const QString clean = QDir::cleanPath(folder);
    const auto isSelfOrAncestor = [&](const QString &of) {
        if (of.isEmpty())
            return false;
        const QString other = QDir::cleanPath(of);
        return other == clean || other.startsWith(clean == u"/"_s ? clean : QString(clean + u'/'));
    };
    if (clean == u"/"_s || CVVolumes::isDriveRoot(clean) || CVVolumes::isDriveContainer(clean)
        || isInSystemFolder(clean))
        return true;
    if (isSelfOrAncestor(QDir::homePath()) || isSelfOrAncestor(spanLocation()) || isSelfOrAncestor(m_runSpanLocation))
        return true;
    if (m_library && m_library->iTunesMediaPath() && isSelfOrAncestor(*m_library->iTunesMediaPath()))
        return true;
    return false;
}

void CVMediaSpanner::cleanUpEmptyDirectoriesStartingFromPath(const QString &path, int depth)
{
    QString p = path;
    for (int level = 0; level < depth; ++level) {
        p = QFileInfo(p).absolutePath();
        if (isProtectedFolder(p))
            return;
        const QStringList entries
            = QDir(p).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
        for (const QString &entry : entries) {
            if (!urlIsInvisible(p + u'/' + entry))
                return;
        }
        if (!m_fileManager)
            return;
        m_fileManager->moveToTrash(p);
        if (!QFileInfo::exists(p))
            ++m_trashedFolderCount;
    }
}

void CVMediaSpanner::cleanUpEmptyDirectories(const QList<std::pair<QString, int>> &trashedItems)
{
    // Folders at one height are trashed as one batch: their info files, one sync, then the moves.
    QHash<QString, int> round;
    const auto climb = [&round](const QString &item, int depth) {
        if (depth <= 0)
            return;
        const QString parent = QFileInfo(item).absolutePath();
        round[parent] = qMax(round.value(parent), depth);
    };
    for (const auto &[item, depth] : trashedItems)
        climb(item, depth);
    const auto onlyInvisible = [](const QString &folder) {
        const QStringList entries
            = QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
        return std::all_of(entries.cbegin(), entries.cend(),
            [&](const QString &entry) { return urlIsInvisible(folder + u'/' + entry); });
    };
    while (!round.isEmpty() && m_fileManager) {
        QStringList folders = round.keys();
        // Deeper folders first: a folder that holds another of the round is looked at again after it.
        std::sort(
            folders.begin(), folders.end(), [](const QString &a, const QString &b) { return a.size() > b.size(); });
        QList<CVTrash::Pending> pending;
        QStringList infoFolders;
        QHash<QString, int> next;
        for (const QString &folder : std::as_const(folders)) {
            if (isProtectedFolder(folder))
                continue;
            if (!onlyInvisible(folder)) {
                const bool holdsAnother = std::any_of(folders.cbegin(), folders.cend(),
                    [&](const QString &other) { return other.startsWith(folder + u'/'); });
                if (holdsAnother)
                    next[folder] = qMax(next.value(folder), round.value(folder));
                continue;
            }
            CVTrash::Pending p;
            if (!CVTrash::prepare(folder, p))
                continue;
            infoFolders.append(p.infoFolder());
            pending.append(p);
        }
        if (!pending.isEmpty() && !CVFileCopier::syncFileSystemsOf(infoFolders)) {
            for (CVTrash::Pending &p : pending)
                CVTrash::abandon(p);
            return;
        }
        for (CVTrash::Pending &p : pending) {
            // Still nothing but hidden files in it, right before it goes.
            if (!onlyInvisible(p.path) || !CVTrash::commit(p).ok) {
                CVTrash::abandon(p);
                continue;
            }
            ++m_trashedFolderCount;
            const int depth = round.value(p.path) - 1;
            if (depth > 0) {
                const QString parent = QFileInfo(p.path).absolutePath();
                next[parent] = qMax(next.value(parent), depth);
            }
        }
        round = std::move(next);
    }
}

CVTrash::Result CVMediaSpanner::trashAndCleanUp(const CVTrack *track, const QString &path)
{
    CVTrash::Result result;
    if (!m_fileManager) {
        result.error = u"No Trash is available."_s;
        return result;
    }
    result = m_fileManager->moveToTrash(path);
    if (!result.ok)
        return result;
    const QString kind = track->text(CVAttr::MediaType);
    cleanUpEmptyDirectoriesStartingFromPath(path, kind == u"Music"_s || kind == u"TV Shows"_s ? 3 : 2);
    return result;
}

void CVMediaSpanner::setPauseSpan(bool pause)
{
    m_pauseSpan = pause;
    Q_EMIT pauseTitleChanged(pauseControlTitle());
}

QString CVMediaSpanner::pauseControlTitle() const
{
    QString suffix;
    if (m_runUnderWay) {
        if (m_pauseSpan)
            suffix = m_runRestoreMode ? u" Restoring"_s : u" Spanning"_s;
        else
            suffix = m_runRestoreMode ? u" Restore"_s : u" Span"_s;
    }
    return u"%1%2"_s.arg(m_pauseSpan ? u"Resume"_s : u"Pause"_s, suffix);
}

void CVMediaSpanner::skipTheRestAction()
{
    setPauseSpan(true);
    CVAlert alert;
    if (!crashedWhileSpanningLastRun() && m_spanRepairAttempts < 1) {
        alert.title = u"%1Are you sure you want skip the rest?"_s.arg(m_runUnderWay ? QString() : u"\n"_s);
        alert.defaultButton = u"Skip the Rest"_s;
        alert.otherButton
            = u"Resume%1"_s.arg(m_runUnderWay ? (m_runRestoreMode ? u" Restoring"_s : u" Spanning"_s) : QString());
        if (m_runUnderWay)
            alert.text = u"Skipping the rest will not reverse what has already been done. To reverse anything, you "
                         "must do it through Corvana once this process is complete."_s;
        didEndSkipTheRestAlertSheet(m_presenter ? m_presenter->runAlertPanel(alert) : CVPresenter::OtherReturn);
        return;
    }
    setPauseSpan(false);
    alert.title = u"\nSorry, you can't skip the rest when %1."_s.arg(
        crashedWhileSpanningLastRun() ? u"recovering from a crash"_s : u"reattempting tracks"_s);
    if (m_presenter)
        m_presenter->runAlertPanel(alert);
}

void CVMediaSpanner::didEndSkipTheRestAlertSheet(int returnCode)
{
    if (!m_runHost || m_runHost->isSpanningViewOnScreen())
        m_skipTheRest = returnCode == CVPresenter::DefaultReturn;
    setPauseSpan(false);
}
