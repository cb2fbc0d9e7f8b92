#include "Engine/CVRhythmboxPlayerLink.h"

#include "Engine/CVLibraryFilePlayerLink.h"
#include "Engine/CVPlayerJournal.h"
#include "Library/CVRhythmDB.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVLog.h"

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
#include <QStandardPaths>
#include <QThread>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Change = CVRhythmDBRewriter::Change;

namespace {

void logError(const QString &what)
{
    CVLog::log(u"Corvana ScriptingBridge Error: %1"_s.arg(what));
}

QString text(const char *latin1)
{
    return QString::fromLatin1(latin1);
}

// Journal lines: from TAB to TAB mountpoint ("-" for none). URIs hold no tabs or newlines.
QByteArray journalLine(const Change &change)
{
    return change.from + '\t' + change.to + '\t' + (change.mountPoint ? *change.mountPoint : QByteArray("-")) + '\n';
}

} // namespace

CVRhythmboxPlayerLink::CVRhythmboxPlayerLink(
    const QString &databasePath, const QString &supportFolder, CVFileManagerLink *fileManager)
    : m_databasePath(databasePath)
    , m_fileManager(fileManager)
    , m_identities(supportFolder, databasePath)
    , m_mpris(text(MprisService))
{
    const QByteArray key
        = QCryptographicHash::hash(QFile::encodeName(databasePath), QCryptographicHash::Sha1).toHex().left(12);
    m_journalPath = supportFolder + u"/Rhythmbox Journal "_s + QString::fromLatin1(key) + u".txt"_s;
    const QString client = QStandardPaths::findExecutable(u"rhythmbox-client"_s);
    if (!client.isEmpty())
        m_quitCommand = { client, u"--quit"_s };
    m_mpris.setCallTimeout(m_timeoutMs);
}

void CVRhythmboxPlayerLink::setCallTimeout(int milliseconds)
{
    m_timeoutMs = milliseconds;
    m_mpris.setCallTimeout(milliseconds);
}

QString CVRhythmboxPlayerLink::description() const
{
    return u"Rhythmbox and its library “%1”"_s.arg(m_databasePath);
}

bool CVRhythmboxPlayerLink::isRhythmboxRunning() const
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface() && bus.interface()->isServiceRegistered(text(Service)).value();
}

QList<Change> CVRhythmboxPlayerLink::readJournal() const
{
    QList<Change> changes;
    for (const QByteArray &line : CVPlayerJournal::completeLines(m_journalPath)) {
        const QList<QByteArray> parts = line.split('\t');
        if (parts.size() != 3 || parts[0].isEmpty() || parts[1].isEmpty())
            continue;
        changes.append({ parts[0], parts[1], parts[2] == "-" ? std::nullopt : std::optional<QByteArray>(parts[2]) });
    }
    return changes;
}

QList<Change> CVRhythmboxPlayerLink::pendingChanges() const
{
    QMutexLocker lock(&m_mutex);
    return readJournal();
}

bool CVRhythmboxPlayerLink::appendToJournal(const Change &change)
{
    return CVPlayerJournal::appendLine(m_journalPath, journalLine(change));
}

bool CVRhythmboxPlayerLink::applyJournal(QString *error)
{
    QMutexLocker lock(&m_mutex);
    return applyJournalLocked(error);
}

bool CVRhythmboxPlayerLink::applyJournalLocked(QString *error)
{
    const QList<Change> changes = readJournal();
    if (changes.isEmpty()) {
        QFile::remove(m_journalPath);
        return true;
    }
    // Rhythmbox writes its whole file when it quits: a file written under it would be lost.
    if (isRhythmboxRunning()) {
        if (error)
            *error = u"Rhythmbox is running"_s;
        return false;
    }
    const CVRhythmDBRewriter::Result result = CVRhythmDBRewriter::apply(m_databasePath, changes);
    if (!result.ok) {
        logError(result.error);
        if (error)
            *error = result.error;
        return false;
    }
    for (const QByteArray &unknown : result.unknown)
        logError(u"the Rhythmbox library has no entry at %1"_s.arg(QString::fromUtf8(unknown)));
    // Only now is the journal spent; a crash before this line replays it, which changes nothing more.
    QFile::remove(m_journalPath);
    m_scanned = false;
    return true;
}

bool CVRhythmboxPlayerLink::ensureLocations()
{
    const QFileInfo info(m_databasePath);
    if (m_scanned && info.lastModified() == m_scannedModified && info.size() == m_scannedSize)
        return true;
    QFile file(m_databasePath);
    if (!file.open(QIODevice::ReadOnly)) {
        logError(u"the Rhythmbox library “%1” cannot be read: %2"_s.arg(m_databasePath, file.errorString()));
        return false;
    }
    const QByteArray bytes = file.readAll();
    QString error;
    if (!m_identities.load(&error)) {
        logError(error);
        return false;
    }
    CVRhythmDB::Scanner scanner(bytes);
    if (!scanner.readHeader()) {
        logError(u"the Rhythmbox library “%1” cannot be read: %2"_s.arg(m_databasePath, scanner.errorString()));
        return false;
    }
    m_locations.clear();
    m_songs.clear();
    m_taken.clear();
    std::vector<QByteArray> songs;
    CVRhythmDB::Field field;
    while (scanner.nextElement("entry")) {
        const bool song = scanner.attribute("type") == "song";
        QByteArray uri;
        while (scanner.nextField(field))
            if (field.name == "location")
                uri = CVRhythmDB::decodeText(QByteArrayView(field.raw.data(), qsizetype(field.raw.size())));
        if (uri.isEmpty())
            continue;
        m_taken.insert(uri);
        if (song)
            songs.push_back(uri);
    }
    if (scanner.hasError()) {
        logError(u"the Rhythmbox library “%1” cannot be read: %2"_s.arg(m_databasePath, scanner.errorString()));
        return false;
    }
    // The same IDs as the reader gives: the same table over the same songs in the same order.
    const std::vector<QString> ids = m_identities.resolve(songs);
    for (std::size_t i = 0; i < songs.size(); ++i) {
        m_locations.insert(ids[i], songs[i]);
        m_songs.insert(songs[i], ids[i]);
    }
    for (const Change &change : readJournal()) {
        const auto song = m_songs.constFind(change.from);
        if (song != m_songs.cend())
            noteMove(*song, change.from, change.to);
    }
    m_scanned = true;
    m_scannedModified = info.lastModified();
    m_scannedSize = info.size();
    return true;
}

void CVRhythmboxPlayerLink::noteMove(const QString &persistentID, const QByteArray &from, const QByteArray &to)
{
    m_taken.remove(from);
    m_taken.insert(to);
    m_songs.remove(from);
    m_songs.insert(to, persistentID);
    m_locations.insert(persistentID, to);
}

namespace {

// Seconds since the process started, from its start time in clock ticks after boot.
double processAge(qint64 pid)
{
    QFile stat(u"/proc/%1/stat"_s.arg(pid));
    QFile uptime(u"/proc/uptime"_s);
    if (!stat.open(QIODevice::ReadOnly) || !uptime.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray line = stat.readAll();
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 20)
        return -1;
    const double started = fields[19].toDouble() / double(::sysconf(_SC_CLK_TCK));
    return uptime.readAll().split(' ').value(0).toDouble() - started;
}

} // namespace

void CVRhythmboxPlayerLink::letRhythmboxSettle()
{
    // In its first seconds Rhythmbox scans its library folders: a run's first copies appearing
    // there then become new songs, and the old entries keep their places and counts. Wait for
    // the scan to pass before the run copies anything.
    constexpr double kSettleSeconds = 5.0;
    const QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    const qint64 pid = bus ? qint64(bus->servicePid(text(Service)).value()) : 0;
    if (pid <= 0 || pid == m_settledPid)
        return;
    const double age = processAge(pid);
    if (age >= 0 && age < kSettleSeconds)
        QThread::msleep(quint64((kSettleSeconds - age) * 1000));
    m_settledPid = pid;
}

bool CVRhythmboxPlayerLink::setLive(const Change &change)
{
    QDBusMessage message = QDBusMessage::createMethodCall(
        text(Service), text(DatabaseObject), text(DatabaseInterface), u"SetEntryProperties"_s);
    // An empty mountpoint is what Rhythmbox keeps as none.
    const QVariantMap properties { { u"location"_s, QString::fromUtf8(change.to) },
        { u"mountpoint"_s, change.mountPoint ? QString::fromUtf8(*change.mountPoint) : QString() } };
    message << QString::fromUtf8(change.from) << properties;
    const QDBusMessage reply = QDBusConnection::sessionBus().call(message, QDBus::Block, m_timeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        logError(u"SetEntryProperties %1: %2 (%3)"_s.arg(
            QString::fromUtf8(change.from), reply.errorMessage(), reply.errorName()));
        return false;
    }
    return true;
}

QString CVRhythmboxPlayerLink::checkLocationsCanBeSet()
{
    QString error = CVRhythmDBRewriter::checkFile(m_databasePath);
    if (error.isEmpty()) {
        const QString folder = QFileInfo(m_journalPath).absolutePath();
        if (!QDir().mkpath(folder))
            return u"The folder “%1” cannot be made."_s.arg(folder);
        error = CVLibraryFilePlayerLink::probeFolder(folder, u"The folder of the player journal"_s);
    }
    if (error.isEmpty())
        error = CVLibraryFilePlayerLink::probeFolder(
            QFileInfo(m_databasePath).absolutePath(), u"The folder of the Rhythmbox library"_s);
    QMutexLocker lock(&m_mutex);
    m_scanned = false; // a run starts from the file as it is now
    return error;
}

bool CVRhythmboxPlayerLink::setTrackLocation(const QString &persistentID, const QString &path)
{
    QMutexLocker lock(&m_mutex);
    if (!ensureLocations())
        return false;
    const QByteArray from = m_locations.value(persistentID);
    if (from.isEmpty()) {
        logError(u"the Rhythmbox library holds no song %1"_s.arg(persistentID));
        return false;
    }
    const Change change { from, CVRhythmDB::fileURIFromPath(path), CVRhythmDB::mountPointForPath(path) };
    if (change.to == from && !isRhythmboxRunning())
        return true;
    if (change.to != from && m_taken.contains(change.to)) {
        // Rhythmbox would take it and hold two entries at one place.
        logError(u"The new location “%1” is already the location of another entry of the Rhythmbox library; "
                 "nothing was changed."_s.arg(path));
        return false;
    }
    // The identity first: a crash after the player took the place must still find the song.
    QString error;
    if (!m_identities.record(persistentID, change.to, &error)) {
        logError(u"the table of Rhythmbox songs cannot be written: %1"_s.arg(error));
        return false;
    }
    const bool ok = isRhythmboxRunning() ? setLive(change) : appendToJournal(change);
    if (!ok) {
        if (!isRhythmboxRunning())
            logError(u"the player journal could not be written"_s);
        m_identities.record(persistentID, from); // the song stays where it was
        return false;
    }
    noteMove(persistentID, from, change.to);
    return true;
}

std::optional<QString> CVRhythmboxPlayerLink::trackLocation(const QString &persistentID)
{
    QByteArray uri;
    {
        QMutexLocker lock(&m_mutex);
        if (!ensureLocations())
            return std::nullopt;
        uri = m_locations.value(persistentID);
    }
    if (uri.isEmpty())
        return std::nullopt;
    if (isRhythmboxRunning()) {
        // Asking for the entry makes Rhythmbox look at it; one it does not hold is not there.
        QDBusMessage message = QDBusMessage::createMethodCall(
            text(Service), text(DatabaseObject), text(DatabaseInterface), u"GetEntryProperties"_s);
        message << QString::fromUtf8(uri);
        const QDBusMessage reply = QDBusConnection::sessionBus().call(message, QDBus::Block, m_timeoutMs);
        if (reply.type() != QDBusMessage::ReplyMessage)
            return std::nullopt;
    }
    return CVRhythmDB::pathFromURI(uri);
}

namespace {

// Alive, and not only a zombie that nobody has reaped yet.
bool processAlive(qint64 pid)
{
    QFile stat(u"/proc/%1/stat"_s.arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return false;
    const QByteArray line = stat.readAll();
    const qsizetype paren = line.lastIndexOf(')');
    return paren > 0 && paren + 2 < line.size() && line[paren + 2] != 'Z' && line[paren + 2] != 'X';
}

} // namespace

bool CVRhythmboxPlayerLink::isRunning()
{
    if (isRhythmboxRunning())
        return true;
    QMutexLocker lock(&m_mutex);
    if (m_quittingPid > 0 && processAlive(m_quittingPid))
        return true;
    m_quittingPid = 0;
    // Rhythmbox has gone after a quit: what it could not be told live is written now.
    if (m_quitRequested && QFile::exists(m_journalPath)) {
        m_quitRequested = false;
        applyJournalLocked(nullptr);
    }
    return QFile::exists(m_journalPath);
}

void CVRhythmboxPlayerLink::quit()
{
    if (!isRhythmboxRunning()) {
        applyJournal();
        return;
    }
    {
        // Changes journaled before Rhythmbox started are told to it now, so that it saves them.
        QMutexLocker lock(&m_mutex);
        QList<Change> left;
        for (const Change &change : readJournal())
            if (!setLive(change))
                left.append(change);
        QFile::remove(m_journalPath);
        for (const Change &change : std::as_const(left))
            appendToJournal(change);
        m_quitRequested = true;
        m_scanned = false;
        const QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
        m_quittingPid = bus ? qint64(bus->servicePid(text(Service)).value()) : 0;
    }
    // Rhythmbox saves its library before it quits; the caller waits for its name to go.
    if (!m_quitCommand.isEmpty()) {
        if (QProcess::startDetached(m_quitCommand.first(), m_quitCommand.mid(1)))
            return;
        logError(u"%1 cannot be started"_s.arg(m_quitCommand.first()));
    }
    QDBusMessage message = QDBusMessage::createMethodCall(
        text(Service), u"/org/gnome/Rhythmbox3"_s, u"org.gtk.Actions"_s, u"Activate"_s);
    message << u"quit"_s << QVariant::fromValue(QVariantList()) << QVariantMap();
    message.setAutoStartService(false);
    if (!QDBusConnection::sessionBus().send(message))
        logError(QDBusConnection::sessionBus().lastError().message());
}

bool CVRhythmboxPlayerLink::launch()
{
    if (isRhythmboxRunning())
        return true;
    // Rhythmbox reads its file when it starts: the journal goes in first.
    if (!applyJournal())
        return false;
    if (m_launchCommand.isEmpty() || !QProcess::startDetached(m_launchCommand.first(), m_launchCommand.mid(1))) {
        logError(u"Rhythmbox cannot be started"_s);
        return false;
    }
    const QDeadlineTimer deadline(m_launchTimeoutMs);
    while (!deadline.hasExpired()) {
        if (isRhythmboxRunning())
            return true;
        QThread::msleep(50);
    }
    logError(u"Rhythmbox did not start in time"_s);
    return false;
}

std::optional<quint32> CVRhythmboxPlayerLink::playerState()
{
    // Playback is reached through Rhythmbox's MPRIS plugin; without it nothing plays that Corvana can see.
    if (!m_mpris.isRunning())
        return StateStopped;
    return m_mpris.playerState();
}

QString CVRhythmboxPlayerLink::currentTrackPersistentID()
{
    if (!m_mpris.isRunning())
        return {};
    QDBusMessage message = QDBusMessage::createMethodCall(
        text(MprisService), u"/org/mpris/MediaPlayer2"_s, u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    message << u"org.mpris.MediaPlayer2.Player"_s << u"Metadata"_s;
    const QDBusMessage reply = QDBusConnection::sessionBus().call(message, QDBus::Block, m_timeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {};
    const QVariantMap metadata
        = qdbus_cast<QVariantMap>(reply.arguments().constFirst().value<QDBusVariant>().variant());
    const QByteArray uri = metadata.value(u"xesam:url"_s).toString().toUtf8();
    QMutexLocker lock(&m_mutex);
    if (uri.isEmpty() || !ensureLocations())
        return {};
    return m_songs.value(uri);
}

QString CVRhythmboxPlayerLink::currentPlaylistName()
{
    // Rhythmbox plays a song again by its location, from its library, which it calls "Music".
    return currentTrackPersistentID().isEmpty() ? QString() : u"Music"_s;
}

std::optional<int> CVRhythmboxPlayerLink::playerPosition()
{
    return m_mpris.isRunning() ? m_mpris.playerPosition() : std::optional<int>(0);
}

bool CVRhythmboxPlayerLink::setPlayerPosition(int seconds)
{
    return m_mpris.isRunning() && m_mpris.setPlayerPosition(seconds);
}

bool CVRhythmboxPlayerLink::pause()
{
    return !m_mpris.isRunning() || m_mpris.pause();
}

bool CVRhythmboxPlayerLink::playOnce(const QString &, const QString &persistentID)
{
    QByteArray uri;
    {
        QMutexLocker lock(&m_mutex);
        if (!ensureLocations())
            return false;
        uri = m_locations.value(persistentID);
    }
    if (uri.isEmpty() || !launch())
        return false;
    // The MPRIS plugin comes up a moment after Rhythmbox's own name.
    const QDeadlineTimer deadline(m_launchTimeoutMs);
    while (!m_mpris.isRunning() && !deadline.hasExpired())
        QThread::msleep(50);
    QDBusMessage message = QDBusMessage::createMethodCall(
        text(MprisService), u"/org/mpris/MediaPlayer2"_s, u"org.mpris.MediaPlayer2.Player"_s, u"OpenUri"_s);
    message << QString::fromUtf8(uri);
    const QDBusMessage reply = QDBusConnection::sessionBus().call(message, QDBus::Block, m_timeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        logError(u"OpenUri: %1 (%2)"_s.arg(reply.errorMessage(), reply.errorName()));
        return false;
    }
    return true;
}

bool CVRhythmboxPlayerLink::reveal(const QString &, const QString &persistentID)
{
    const std::optional<QString> path = trackLocation(persistentID);
    return path && m_fileManager && m_fileManager->selectFile(*path);
}

bool CVRhythmboxPlayerLink::activate()
{
    if (!isRhythmboxRunning())
        return false;
    QDBusMessage message = QDBusMessage::createMethodCall(
        text(Service), u"/org/gnome/Rhythmbox3"_s, u"org.gtk.Application"_s, u"Activate"_s);
    message << QVariantMap();
    return QDBusConnection::sessionBus().call(message, QDBus::Block, m_timeoutMs).type() == QDBusMessage::ReplyMessage;
}
