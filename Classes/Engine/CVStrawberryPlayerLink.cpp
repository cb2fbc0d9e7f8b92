#include "Engine/CVStrawberryPlayerLink.h"

#include "Engine/CVLibraryFilePlayerLink.h"
#include "Engine/CVPlayerJournal.h"
#include "Library/CVStrawberryDB.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVLog.h"
#include "Platform/CVSettings.h"
#include "Platform/CVVolumes.h"

#include <QCryptographicHash>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>
#include <QThread>

#include <sqlite3.h>

#include <csignal>

using namespace Qt::StringLiterals;
using Change = CVStrawberryRewriter::Change;

namespace {

void logError(const QString &what)
{
    CVLog::log(u"Corvana ScriptingBridge Error: %1"_s.arg(what));
}

QString service()
{
    return QString::fromLatin1(CVStrawberryPlayerLink::MprisService);
}

// Gone, or a zombie that its parent has not reaped yet.
bool processAlive(uint pid)
{
    if (pid == 0 || ::kill(pid_t(pid), 0) != 0)
        return false;
    QFile stat(u"/proc/%1/stat"_s.arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return true;
    const QByteArray line = stat.readAll();
    const qsizetype close = line.lastIndexOf(')');
    return close < 0 || line.size() < close + 3 || line[close + 2] != 'Z';
}

QByteArray currentURL(int timeoutMs)
{
    QDBusMessage message = QDBusMessage::createMethodCall(
        service(), u"/org/mpris/MediaPlayer2"_s, u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    message << u"org.mpris.MediaPlayer2.Player"_s << u"Metadata"_s;
    const QDBusMessage reply = QDBusConnection::sessionBus().call(message, QDBus::Block, timeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {};
    const QVariantMap metadata
        = qdbus_cast<QVariantMap>(reply.arguments().constFirst().value<QDBusVariant>().variant());
    return metadata.value(u"xesam:url"_s).toString().toUtf8();
}

} // namespace

CVStrawberryPlayerLink::CVStrawberryPlayerLink(
    const QString &databasePath, const QString &supportFolder, CVFileManagerLink *fileManager)
    : m_databasePath(databasePath)
    , m_fileManager(fileManager)
    , m_mpris(service())
{
    const QString key = QString::fromLatin1(
        QCryptographicHash::hash(QFile::encodeName(databasePath), QCryptographicHash::Sha1).toHex().left(12));
    m_journalPath = supportFolder + u"/Strawberry Journal "_s + key + u".txt"_s;
    m_backupPath = supportFolder + u"/Strawberry Backup "_s + key + u".db"_s;
    m_mpris.setCallTimeout(10000);
}

QString CVStrawberryPlayerLink::strawberryConfigFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u"/strawberry/strawberry.conf"_s;
}

QString CVStrawberryPlayerLink::unavailableSongsWarning(const QString &configFile)
{
    // Strawberry's defaults: missing songs are marked unavailable, and deleted after 60 days.
    QSettings settings(configFile, QSettings::IniFormat);
    settings.beginGroup(u"Collection"_s);
    if (!settings.value(u"mark_songs_unavailable"_s, true).toBool())
        return u"Strawberry is set not to keep songs whose files are missing (“mark_songs_unavailable” is off in "
               "“%1”): at a scan while a span drive is unplugged, it deletes the spanned songs with their play "
               "counts, ratings and places in playlists. Keep the drive plugged in while Strawberry runs, or turn "
               "the setting on."_s.arg(configFile);
    const int days = settings.value(u"expire_unavailable_songs"_s, 60).toInt();
    if (days > 0)
        return u"Strawberry deletes a song whose file it has not seen for %1 days, even one a playlist holds "
               "(“expire_unavailable_songs” in “%2”): plug each span drive in at least that often while "
               "Strawberry runs, or turn the expiry off."_s.arg(days)
                   .arg(configFile);
    return {};
}

QString CVStrawberryPlayerLink::description() const
{
    return u"Strawberry and its collection “%1”"_s.arg(m_databasePath);
}

bool CVStrawberryPlayerLink::isStrawberryRunning() const
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface() && bus.interface()->isServiceRegistered(service()).value();
}

QList<Change> CVStrawberryPlayerLink::readJournal() const
{
    // "ROWID TAB path TAB span location" a line; a later line for a song wins.
    QList<Change> changes;
    for (const QByteArray &line : CVPlayerJournal::completeLines(m_journalPath)) {
        const QList<QByteArray> parts = line.split('\t');
        bool ok = false;
        const qint64 rowID = parts.size() == 3 ? parts[0].toLongLong(&ok) : 0;
        if (ok && rowID > 0 && !parts[1].isEmpty())
            changes.append({ rowID, QString::fromUtf8(parts[1]), QString::fromUtf8(parts[2]) });
    }
    return changes;
}

QList<Change> CVStrawberryPlayerLink::pendingChanges() const
{
    QMutexLocker lock(&m_mutex);
    return readJournal();
}

bool CVStrawberryPlayerLink::applyJournal(QString *error)
{
    QMutexLocker lock(&m_mutex);
    return applyJournalLocked(error);
}

bool CVStrawberryPlayerLink::applyJournalLocked(QString *error)
{
    const QList<Change> changes = readJournal();
    if (changes.isEmpty()) {
        QFile::remove(m_journalPath);
        return true;
    }
    // Strawberry saves what it holds in memory: a database written under it would be overwritten.
    if (isStrawberryRunning()) {
        if (error)
            *error = u"Strawberry is running"_s;
        return false;
    }
    const CVStrawberryRewriter::Result result = CVStrawberryRewriter::apply(m_databasePath, m_backupPath, changes);
    const bool onADrive = std::any_of(changes.cbegin(), changes.cend(),
        [](const Change &change) { return !CVVolumes::driveRootOfPath(change.path).isEmpty(); });
    if (result.ok && onADrive) {
        const QString warning = unavailableSongsWarning(strawberryConfigFile());
        if (!warning.isEmpty())
            CVLog::log(u"Corvana: %1"_s.arg(warning));
    }
    if (!result.ok) {
        logError(result.error);
        if (error)
            *error = result.error;
        return false;
    }
    for (qint64 rowID : result.unknown)
        logError(u"the Strawberry collection holds no song %1"_s.arg(rowID));
    for (qint64 rowID : result.refused)
        logError(
            u"the new place of Strawberry song %1 is already another song's; it was left where it was"_s.arg(rowID));
    // Only now is the journal spent; a crash before this line writes it again, which changes nothing more.
    QFile::remove(m_journalPath);
    m_scanned = false;
    return true;
}

bool CVStrawberryPlayerLink::ensureSongs()
{
    if (m_scanned)
        return true;
    CVStrawberryDB::Connection db;
    if (!db.open(m_databasePath, false)) {
        logError(db.errorString());
        return false;
    }
    QString error;
    if (!db.schemaVersion(&error)) {
        logError(error);
        return false;
    }
    CVStrawberryDB::Statement songs(db, "SELECT ROWID, url FROM songs");
    if (!songs) {
        logError(db.lastError());
        return false;
    }
    m_urls.clear();
    m_byURL.clear();
    m_shared.clear();
    while (songs.step() == SQLITE_ROW) {
        const qint64 rowID = songs.integer(0);
        const QByteArray url = songs.text(1).toByteArray();
        m_urls.insert(rowID, url);
        if (m_byURL.contains(url))
            m_shared.insert(url);
        m_byURL.insert(url, rowID);
    }
    for (const Change &change : readJournal()) {
        const auto old = m_urls.constFind(change.rowID);
        if (old == m_urls.cend())
            continue;
        m_byURL.remove(*old);
        const QByteArray url = CVStrawberryDB::urlFromPath(change.path);
        m_urls.insert(change.rowID, url);
        m_byURL.insert(url, change.rowID);
    }
    m_scanned = true;
    return true;
}

bool CVStrawberryPlayerLink::quitStrawberry(QString *error)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!isStrawberryRunning())
        return true;
    m_startedAfterWrite = false;
    const uint pid = bus.interface()->servicePid(service()).value();
    Before before;
    before.running = true;
    before.state = m_mpris.playerState().value_or(StateStopped);
    if (before.state != StateStopped) {
        const QByteArray url = currentURL(5000);
        {
            QMutexLocker lock(&m_mutex);
            if (ensureSongs())
                before.rowID = rowIDOfURL(url);
        }
        m_mpris.pause();
        before.position = m_mpris.playerPosition().value_or(0);
    }
    m_before = before;

    // Strawberry ignores a Quit sent without waiting for its reply.
    QDBusMessage quit = QDBusMessage::createMethodCall(
        service(), u"/org/mpris/MediaPlayer2"_s, u"org.mpris.MediaPlayer2"_s, u"Quit"_s);
    quit.setAutoStartService(false);
    const QDBusMessage reply = bus.call(quit, QDBus::Block, qMin(m_quitTimeoutMs, 10000));
    if (reply.type() != QDBusMessage::ReplyMessage)
        logError(u"Quit: %1 (%2)"_s.arg(reply.errorMessage(), reply.errorName()));
    const QDeadlineTimer deadline(m_quitTimeoutMs);
    while (isStrawberryRunning() || processAlive(pid)) {
        if (deadline.hasExpired()) {
            const QString text = u"Strawberry did not quit within %1 seconds. Corvana writes Strawberry's "
                                 "collection only while Strawberry is not running, so nothing was copied. Quit "
                                 "Strawberry and start again."_s.arg((m_quitTimeoutMs + 999) / 1000);
            logError(text);
            if (error)
                *error = text;
            return false;
        }
        QThread::msleep(50);
    }
    return true;
}

QString CVStrawberryPlayerLink::checkLocationsCanBeSet()
{
    m_before = {};
    QString error = CVStrawberryDB::checkDatabase(m_databasePath);
    if (!error.isEmpty())
        return error;
    const QString folder = QFileInfo(m_journalPath).absolutePath();
    if (!QDir().mkpath(folder))
        return u"The folder “%1” cannot be made."_s.arg(folder);
    error = CVLibraryFilePlayerLink::probeFolder(folder, u"The folder of the player journal"_s);
    if (!error.isEmpty())
        return error;
    if (!quitStrawberry(&error))
        return error;
    {
        // A real write, as the run's will be: a database held by another writer is found now.
        CVStrawberryDB::Connection db;
        if (!db.open(m_databasePath, true))
            return db.errorString();
        sqlite3_busy_timeout(db.handle(), 2000);
        if (!db.exec("BEGIN IMMEDIATE"))
            return u"The Strawberry collection “%1” is in use by another program (%2)."_s.arg(
                m_databasePath, db.lastError());
        db.exec("ROLLBACK");
    }
    QMutexLocker lock(&m_mutex);
    m_scanned = false; // a run starts from the database as it is now
    return {};
}

bool CVStrawberryPlayerLink::setTrackLocation(const QString &persistentID, const QString &path)
{
    QMutexLocker lock(&m_mutex);
    if (!ensureSongs())
        return false;
    const std::optional<qint64> rowID = CVStrawberryDB::rowIDOf(persistentID);
    const auto from = rowID ? m_urls.constFind(*rowID) : m_urls.cend();
    if (from == m_urls.cend()) {
        logError(u"the Strawberry collection holds no song %1"_s.arg(persistentID));
        return false;
    }
    const QByteArray to = CVStrawberryDB::urlFromPath(path);
    if (to == *from)
        return true;
    if (m_shared.contains(*from)) {
        // The songs of a cue sheet, or rows that Strawberry 1.0 doubled, share one file: moving one
        // would leave the others at a file that is gone.
        logError(u"The file “%1” is the place of several songs of the Strawberry collection; its place was not "
                 "changed."_s.arg(CVStrawberryDB::pathFromURL(*from).value_or(QString())));
        return false;
    }
    if (m_byURL.contains(to)) {
        // Strawberry would hold two songs at one place and drop one of them at its next scan.
        logError(u"The new location “%1” is already the location of another song of the Strawberry collection; "
                 "nothing was changed."_s.arg(path));
        return false;
    }
    const QString folder
        = !m_runSpanLocation.isEmpty() && path.startsWith(m_runSpanLocation + u'/') ? m_runSpanLocation : QString();
    if (path.contains(u'\n') || path.contains(u'\t') || folder.contains(u'\t')
        || !CVPlayerJournal::appendLine(
            m_journalPath, QByteArray::number(*rowID) + '\t' + path.toUtf8() + '\t' + folder.toUtf8() + '\n')) {
        logError(u"the player journal could not be written"_s);
        return false;
    }
    m_byURL.remove(*from);
    m_urls.insert(*rowID, to);
    m_byURL.insert(to, *rowID);
    return true;
}

std::optional<QString> CVStrawberryPlayerLink::trackLocation(const QString &persistentID)
{
    QMutexLocker lock(&m_mutex);
    const std::optional<qint64> rowID = CVStrawberryDB::rowIDOf(persistentID);
    if (!rowID || !ensureSongs() || !m_urls.contains(*rowID))
        return std::nullopt;
    return CVStrawberryDB::pathFromURL(m_urls.value(*rowID));
}

bool CVStrawberryPlayerLink::isRunning()
{
    // A Strawberry that Corvana started after writing has every change: the run need not wait for it.
    return QFile::exists(m_journalPath) || (!m_startedAfterWrite && isStrawberryRunning());
}

void CVStrawberryPlayerLink::quit()
{
    if (!quitStrawberry())
        return;
    QString error;
    if (!applyJournal(&error))
        return;
    // Not playing: nothing for the run's end to play again, but the user may want it back.
    if (m_before.running && m_before.state == StateStopped
        && CVSettings().boolValue(CVSettingsKey::RelaunchPlayerAfterRun)) {
        m_before = {};
        launch();
    }
}

bool CVStrawberryPlayerLink::launch()
{
    if (isStrawberryRunning())
        return true;
    // Strawberry reads its database when it starts: the journal goes in first.
    if (!applyJournal())
        return false;
    if (m_launchCommand.isEmpty() || !QProcess::startDetached(m_launchCommand.first(), m_launchCommand.mid(1))) {
        logError(u"Strawberry cannot be started"_s);
        return false;
    }
    const QDeadlineTimer deadline(m_launchTimeoutMs);
    while (!deadline.hasExpired()) {
        if (isStrawberryRunning()) {
            m_startedAfterWrite = true;
            return true;
        }
        QThread::msleep(50);
    }
    logError(u"Strawberry did not start in time"_s);
    return false;
}

std::optional<quint32> CVStrawberryPlayerLink::playerState()
{
    if (isStrawberryRunning())
        return m_mpris.playerState();
    // Quit by Corvana before the run: what it was doing then.
    return m_before.running ? m_before.state : StateStopped;
}

QString CVStrawberryPlayerLink::currentTrackPersistentID()
{
    if (isStrawberryRunning()) {
        const QByteArray url = currentURL(5000);
        QMutexLocker lock(&m_mutex);
        if (url.isEmpty() || !ensureSongs() || !m_byURL.contains(url))
            return {};
        return CVStrawberryDB::persistentIDOf(m_byURL.value(url));
    }
    return m_before.rowID > 0 ? CVStrawberryDB::persistentIDOf(m_before.rowID) : QString();
}

QString CVStrawberryPlayerLink::currentPlaylistName()
{
    // Strawberry plays a song again by its place, from its collection.
    return currentTrackPersistentID().isEmpty() ? QString() : u"Collection"_s;
}

std::optional<int> CVStrawberryPlayerLink::playerPosition()
{
    if (isStrawberryRunning())
        return m_mpris.playerPosition();
    return m_before.running ? m_before.position : 0;
}

bool CVStrawberryPlayerLink::setPlayerPosition(int seconds)
{
    return isStrawberryRunning() && m_mpris.setPlayerPosition(seconds);
}

bool CVStrawberryPlayerLink::pause()
{
    return !isStrawberryRunning() || m_mpris.pause();
}

bool CVStrawberryPlayerLink::playOnce(const QString &, const QString &persistentID)
{
    const std::optional<QString> path = trackLocation(persistentID);
    if (!path || !launch())
        return false;
    m_before = {};
    QDBusMessage message = QDBusMessage::createMethodCall(
        service(), u"/org/mpris/MediaPlayer2"_s, u"org.mpris.MediaPlayer2.Player"_s, u"OpenUri"_s);
    message << QString::fromUtf8(CVStrawberryDB::urlFromPath(*path));
    const QDBusMessage reply = QDBusConnection::sessionBus().call(message, QDBus::Block, 10000);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        logError(u"OpenUri: %1 (%2)"_s.arg(reply.errorMessage(), reply.errorName()));
        return false;
    }
    return true;
}

bool CVStrawberryPlayerLink::reveal(const QString &, const QString &persistentID)
{
    const std::optional<QString> path = trackLocation(persistentID);
    return path && m_fileManager && m_fileManager->selectFile(*path);
}

bool CVStrawberryPlayerLink::activate()
{
    return isStrawberryRunning() && m_mpris.activate();
}
