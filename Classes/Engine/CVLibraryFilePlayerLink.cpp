#include "Engine/CVLibraryFilePlayerLink.h"

#include "Engine/CVPlayerJournal.h"
#include "Library/CVFileURL.h"
#include "Library/CVLibraryFileRewriter.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVLog.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

CVLibraryFilePlayerLink::CVLibraryFilePlayerLink(
    const QString &libraryPath, const QString &journalFolder, CVFileManagerLink *fileManager)
    : m_libraryPath(libraryPath)
    , m_fileManager(fileManager)
{
    // One journal per library file, so two libraries never mix their changes.
    const QByteArray key
        = QCryptographicHash::hash(QFile::encodeName(libraryPath), QCryptographicHash::Sha1).toHex().left(12);
    m_journalPath = journalFolder + u"/Player Journal "_s + QString::fromLatin1(key) + u".txt"_s;
}

QHash<QString, QString> CVLibraryFilePlayerLink::readJournal() const
{
    QHash<QString, QString> locations;
    for (const QByteArray &line : CVPlayerJournal::completeLines(m_journalPath)) {
        const qsizetype tab = line.indexOf('\t');
        if (tab <= 0)
            continue;
        const QByteArrayView url = QByteArrayView(line).sliced(tab + 1);
        const std::optional<QString> path
            = CVFileURL::pathFromFileURL(std::string_view(url.data(), size_t(url.size())));
        if (path)
            locations.insert(QString::fromUtf8(line.first(tab)), *path);
    }
    return locations;
}

QHash<QString, QString> CVLibraryFilePlayerLink::pendingLocations() const
{
    QMutexLocker lock(&m_mutex);
    return readJournal();
}

bool CVLibraryFilePlayerLink::applyJournal(QString *error)
{
    QMutexLocker lock(&m_mutex);
    const QHash<QString, QString> locations = readJournal();
    if (locations.isEmpty()) {
        QFile::remove(m_journalPath);
        m_journaled.reset();
        return true;
    }
    const CVLibraryFileRewriter::Result result = CVLibraryFileRewriter::applyLocations(m_libraryPath, locations);
    if (!result.ok) {
        CVLog::log(u"Corvana ScriptingBridge Error: %1"_s.arg(result.error));
        if (error)
            *error = result.error;
        return false;
    }
    // Only now is the journal spent; a crash before this line replays it, which is harmless.
    QFile::remove(m_journalPath);
    m_journaled.reset();
    return true;
}

QString CVLibraryFilePlayerLink::description() const
{
    return u"the library file “%1”"_s.arg(m_libraryPath);
}

bool CVLibraryFilePlayerLink::isRunning()
{
    QMutexLocker lock(&m_mutex);
    return QFile::exists(m_journalPath);
}

// The journal line and the rewritten library need exactly that.
QString CVLibraryFilePlayerLink::probeFolder(const QString &folder, const QString &what)
{
    const QByteArray probe = QFile::encodeName(folder + u"/.corvana-probe-"_s + QString::number(::getpid()));
    const int fd = ::open(probe.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        return u"%1 “%2” cannot be written: %3."_s.arg(what, folder, QString::fromLocal8Bit(strerror(errno)));
    static const char line[] = "Corvana checks that this folder can be written.\n";
    const bool ok = ::write(fd, line, sizeof line - 1) == ssize_t(sizeof line - 1) && ::fsync(fd) == 0;
    const int error = errno;
    ::close(fd);
    ::unlink(probe.constData());
    if (!ok)
        return u"%1 “%2” cannot be written: %3."_s.arg(what, folder, QString::fromLocal8Bit(strerror(error)));
    return {};
}

QString CVLibraryFilePlayerLink::checkLocationsCanBeSet()
{
    const QString journalFolder = QFileInfo(m_journalPath).absolutePath();
    if (!QDir().mkpath(journalFolder))
        return u"The folder “%1” cannot be made."_s.arg(journalFolder);
    QString error = probeFolder(journalFolder, u"The folder of the player journal"_s);
    if (error.isEmpty())
        error = probeFolder(QFileInfo(m_libraryPath).absolutePath(), u"The folder of the library file"_s);
    return error;
}

bool CVLibraryFilePlayerLink::setTrackLocation(const QString &persistentID, const QString &path)
{
    if (persistentID.isEmpty() || persistentID.contains(u'\t') || persistentID.contains(u'\n'))
        return false;
    QMutexLocker lock(&m_mutex);
    const QByteArray line = persistentID.toUtf8() + '\t' + CVFileURL::fileURLFromPath(path) + '\n';
    int error = 0;
    if (!CVPlayerJournal::appendLine(m_journalPath, line, &error)) {
        CVLog::log(u"Corvana ScriptingBridge Error: the player journal could not be written: %1"_s.arg(
            QString::fromLocal8Bit(strerror(error))));
        return false;
    }
    if (m_journaled)
        m_journaled->insert(persistentID, path);
    return true;
}

std::optional<QString> CVLibraryFilePlayerLink::trackLocation(const QString &persistentID)
{
    QMutexLocker lock(&m_mutex);
    // Read once, then kept up to date: a locate run asks for every track.
    if (!m_journaled)
        m_journaled = readJournal();
    const auto it = m_journaled->constFind(persistentID);
    if (it != m_journaled->cend())
        return *it;
    if (m_resolver) {
        const QString path = m_resolver(persistentID);
        if (!path.isEmpty())
            return path;
    }
    return std::nullopt;
}

std::optional<quint32> CVLibraryFilePlayerLink::playerState()
{
    return StateStopped; // a file does not play
}

QString CVLibraryFilePlayerLink::currentTrackPersistentID()
{
    return {};
}

QString CVLibraryFilePlayerLink::currentPlaylistName()
{
    return {};
}

std::optional<int> CVLibraryFilePlayerLink::playerPosition()
{
    return 0;
}

bool CVLibraryFilePlayerLink::setPlayerPosition(int)
{
    return false;
}

bool CVLibraryFilePlayerLink::pause()
{
    return true;
}

bool CVLibraryFilePlayerLink::playOnce(const QString &, const QString &persistentID)
{
    const std::optional<QString> path = trackLocation(persistentID);
    return path && m_fileManager && m_fileManager->openPath(*path);
}

bool CVLibraryFilePlayerLink::reveal(const QString &, const QString &persistentID)
{
    const std::optional<QString> path = trackLocation(persistentID);
    return path && m_fileManager && m_fileManager->selectFile(*path);
}

bool CVLibraryFilePlayerLink::activate()
{
    return true;
}

void CVLibraryFilePlayerLink::quit()
{
    applyJournal();
}

bool CVLibraryFilePlayerLink::launch()
{
    return true;
}
