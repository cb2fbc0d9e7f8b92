#include "Engine/CVDBusPlayerLink.h"

#include "Library/CVFileURL.h"
#include "Platform/CVLog.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDeadlineTimer>
#include <QProcess>
#include <QThread>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

const QString kMpris = u"org.mpris.MediaPlayer2"_s;
const QString kMprisPlayer = u"org.mpris.MediaPlayer2.Player"_s;
const QString kProperties = u"org.freedesktop.DBus.Properties"_s;

void logError(const QString &what)
{
    CVLog::log(u"Corvana ScriptingBridge Error: %1"_s.arg(what));
}

QString library()
{
    return QString::fromLatin1(CVDBusPlayerLink::LibraryInterface);
}

QString pathOfURL(const QString &url)
{
    const QByteArray bytes = url.toUtf8();
    const std::optional<QString> path
        = CVFileURL::pathFromFileURL(std::string_view(bytes.constData(), size_t(bytes.size())));
    return path.value_or(QString());
}

} // namespace

CVDBusPlayerLink::CVDBusPlayerLink(const QString &service)
    : m_service(service)
{
}

QString CVDBusPlayerLink::findPlayerService()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return {};
    const QStringList names = bus.interface()->registeredServiceNames().value();
    for (const QString &name : names) {
        if (!name.startsWith(kMpris + u'.'))
            continue;
        QDBusMessage introspect = QDBusMessage::createMethodCall(
            name, QString::fromLatin1(ObjectPath), u"org.freedesktop.DBus.Introspectable"_s, u"Introspect"_s);
        const QDBusMessage reply = bus.call(introspect, QDBus::Block, 2000);
        if (reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty()
            && reply.arguments().constFirst().toString().contains(library()))
            return name;
    }
    return {};
}

std::optional<QDBusMessage> CVDBusPlayerLink::call(
    const QString &interface, const QString &method, const QVariantList &arguments, bool wait)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        logError(u"the session bus is not available"_s);
        return std::nullopt;
    }
    QDBusMessage message
        = QDBusMessage::createMethodCall(m_service, QString::fromLatin1(ObjectPath), interface, method);
    message.setArguments(arguments);
    if (!wait) {
        message.setAutoStartService(false);
        if (!bus.send(message)) {
            logError(bus.lastError().message());
            return std::nullopt;
        }
        return QDBusMessage();
    }
    const QDBusMessage reply = bus.call(message, QDBus::Block, m_timeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        logError(u"%1.%2: %3 (%4)"_s.arg(interface, method, reply.errorMessage(), reply.errorName()));
        return std::nullopt;
    }
    return reply;
}

std::optional<QVariant> CVDBusPlayerLink::property(const QString &interface, const QString &name)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    QDBusMessage message
        = QDBusMessage::createMethodCall(m_service, QString::fromLatin1(ObjectPath), kProperties, u"Get"_s);
    message << interface << name;
    const QDBusMessage reply = bus.call(message, QDBus::Block, m_timeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        logError(u"%1.%2: %3 (%4)"_s.arg(interface, name, reply.errorMessage(), reply.errorName()));
        return std::nullopt;
    }
    return reply.arguments().constFirst().value<QDBusVariant>().variant();
}

QString CVDBusPlayerLink::description() const
{
    return u"the player %1 on the session bus"_s.arg(m_service);
}

bool CVDBusPlayerLink::isRunning()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface() && bus.interface()->isServiceRegistered(m_service).value();
}

bool CVDBusPlayerLink::setTrackLocation(const QString &persistentID, const QString &path)
{
    if (!isRunning() && !launch())
        return false;
    const QString url = QString::fromUtf8(CVFileURL::fileURLFromPath(path));
    const auto reply = call(library(), u"SetTrackLocation"_s, { persistentID, url });
    return reply && !reply->arguments().isEmpty() && reply->arguments().constFirst().toBool();
}

std::optional<QString> CVDBusPlayerLink::trackLocation(const QString &persistentID)
{
    const auto reply = call(library(), u"TrackLocation"_s, { persistentID });
    if (!reply || reply->arguments().isEmpty())
        return std::nullopt;
    const QString path = pathOfURL(reply->arguments().constFirst().toString());
    if (path.isEmpty())
        return std::nullopt;
    return path;
}

std::optional<quint32> CVDBusPlayerLink::playerState()
{
    const auto status = property(kMprisPlayer, u"PlaybackStatus"_s);
    if (!status)
        return std::nullopt;
    const QString text = status->toString();
    if (text == u"Stopped"_s)
        return StateStopped;
    if (text == u"Paused"_s)
        return StatePaused;
    return StatePlaying;
}

QString CVDBusPlayerLink::currentTrackPersistentID()
{
    return property(library(), u"CurrentTrack"_s).value_or(QVariant()).toString();
}

QString CVDBusPlayerLink::currentPlaylistName()
{
    return property(library(), u"CurrentPlaylist"_s).value_or(QVariant()).toString();
}

std::optional<int> CVDBusPlayerLink::playerPosition()
{
    const auto position = property(kMprisPlayer, u"Position"_s);
    if (!position)
        return std::nullopt;
    return int(position->toLongLong() / 1000000);
}

bool CVDBusPlayerLink::setPlayerPosition(int seconds)
{
    // MPRIS sets a position only together with the current track's id.
    const auto metadata = property(kMprisPlayer, u"Metadata"_s);
    if (!metadata)
        return false;
    const QVariantMap map = qdbus_cast<QVariantMap>(*metadata);
    const QDBusObjectPath track = qdbus_cast<QDBusObjectPath>(map.value(u"mpris:trackid"_s));
    if (track.path().isEmpty()) {
        logError(u"SetPosition: the player has no current track"_s);
        return false;
    }
    return call(kMprisPlayer, u"SetPosition"_s, { QVariant::fromValue(track), qlonglong(seconds) * 1000000 })
        .has_value();
}

bool CVDBusPlayerLink::pause()
{
    return call(kMprisPlayer, u"Pause"_s, {}).has_value();
}

bool CVDBusPlayerLink::playOnce(const QString &playlistName, const QString &persistentID)
{
    if (!isRunning() && !launch())
        return false;
    const auto reply = call(library(), u"PlayTrackOnce"_s, { playlistName, persistentID });
    return reply && !reply->arguments().isEmpty() && reply->arguments().constFirst().toBool();
}

bool CVDBusPlayerLink::reveal(const QString &playlistName, const QString &persistentID)
{
    const auto reply = call(library(), u"RevealTrack"_s, { playlistName, persistentID });
    return reply && !reply->arguments().isEmpty() && reply->arguments().constFirst().toBool();
}

bool CVDBusPlayerLink::activate()
{
    return call(kMpris, u"Raise"_s, {}).has_value();
}

void CVDBusPlayerLink::quit()
{
    // The caller polls isRunning() for the player's exit.
    call(kMpris, u"Quit"_s, {}, false);
}

bool CVDBusPlayerLink::launch()
{
    if (isRunning())
        return true;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return false;
    bool started = false;
    const QStringList activatable = bus.interface()->activatableServiceNames().value();
    if (activatable.contains(m_service))
        started = bus.interface()->startService(m_service).isValid();
    if (!started && !m_launchCommand.isEmpty())
        started = QProcess::startDetached(m_launchCommand.first(), m_launchCommand.mid(1));
    if (!started) {
        logError(u"%1 cannot be started"_s.arg(m_service));
        return false;
    }
    const QDeadlineTimer deadline(m_launchTimeoutMs);
    while (!deadline.hasExpired()) {
        if (isRunning())
            return true;
        QThread::msleep(50);
    }
    logError(u"%1 did not start in time"_s.arg(m_service));
    return false;
}
