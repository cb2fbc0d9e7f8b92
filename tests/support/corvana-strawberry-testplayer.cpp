// Stands in for Strawberry on a session bus: owns org.mpris.MediaPlayer2.strawberry and answers
// MPRIS as Strawberry does (a Quit sent without waiting for the reply is ignored, as Strawberry
// ignores it). While it runs it holds the collection database open, as Strawberry does.
//
//   corvana-strawberry-testplayer --database FILE [--record FILE] [--no-quit]
//       [--state Playing|Paused|Stopped --url URL --position SECONDS] [--linger MS]
//
// --no-quit answers Quit and stays; --linger keeps the process alive that long after its name
// has gone, as a player that is still writing does.

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QFile>
#include <QThread>
#include <QTimer>

#include <sqlite3.h>

using namespace Qt::StringLiterals;

namespace {

void record(const QString &file, const QString &line)
{
    QFile out(file);
    if (!file.isEmpty() && out.open(QIODevice::Append))
        out.write(line.toUtf8() + '\n');
}

class Player : public QDBusVirtualObject {
public:
    QString recordFile;
    bool noQuit = false;
    int lingerMs = 0;
    QString state = u"Stopped"_s;
    QString url;
    qint64 position = 0;

    QString introspect(const QString &) const override
    {
        return u"<interface name=\"org.mpris.MediaPlayer2\"><method name=\"Quit\"/><method name=\"Raise\"/></interface>"
               "<interface name=\"org.mpris.MediaPlayer2.Player\"><method name=\"Pause\"/><method name=\"Play\"/>"
               "<method name=\"OpenUri\"><arg type=\"s\" direction=\"in\"/></method>"
               "<method name=\"SetPosition\"><arg type=\"o\" direction=\"in\"/><arg type=\"x\" "
               "direction=\"in\"/></method>"
               "<property name=\"PlaybackStatus\" type=\"s\" access=\"read\"/>"
               "<property name=\"Position\" type=\"x\" access=\"read\"/>"
               "<property name=\"Metadata\" type=\"a{sv}\" access=\"read\"/></interface>"_s;
    }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        const QString member = message.member();
        const QVariantList args = message.arguments();
        const auto reply = [&](const QVariantList &values = {}) { connection.send(message.createReply(values)); };
        if (message.interface() == u"org.freedesktop.DBus.Introspectable"_s) {
            reply({ QVariant(u"<node>"_s + introspect(message.path()) + u"</node>"_s) });
            return true;
        }
        if (member == u"Get"_s && args.size() == 2) {
            const QString name = args[1].toString();
            QVariant value;
            if (name == u"PlaybackStatus"_s)
                value = state;
            else if (name == u"Position"_s)
                value = position * 1000000;
            else if (name == u"Metadata"_s)
                value = QVariantMap { { u"xesam:url"_s, url },
                    { u"mpris:trackid"_s,
                        QVariant::fromValue(QDBusObjectPath(u"/org/strawberrymusicplayer/strawberry/Track/1"_s)) } };
            reply({ QVariant::fromValue(QDBusVariant(value)) });
            return true;
        }
        if (member == u"Quit"_s) {
            if (message.isReplyRequired()) {
                record(recordFile, u"Quit %1"_s.arg(QCoreApplication::applicationPid()));
                reply();
                if (!noQuit)
                    QTimer::singleShot(0, [this] { leave(); });
            } else {
                record(recordFile, u"Quit without reply (ignored)"_s);
            }
            return true;
        }
        if (member == u"Pause"_s) {
            if (state == u"Playing"_s)
                state = u"Paused"_s;
        } else if (member == u"Play"_s) {
            state = u"Playing"_s;
        } else if (member == u"OpenUri"_s && !args.isEmpty()) {
            url = args[0].toString();
            state = u"Playing"_s;
            record(recordFile, u"OpenUri "_s + url);
        } else if (member == u"SetPosition"_s && args.size() == 2) {
            position = args[1].toLongLong() / 1000000;
            record(recordFile, u"SetPosition %1"_s.arg(position));
        }
        reply();
        return true;
    }

    void leave()
    {
        QDBusConnection::sessionBus().unregisterService(u"org.mpris.MediaPlayer2.strawberry"_s);
        QThread::msleep(lingerMs);
        QCoreApplication::quit();
    }
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption database(u"database"_s, u"collection"_s, u"file"_s);
    const QCommandLineOption recordFile(u"record"_s, u"record calls"_s, u"file"_s);
    const QCommandLineOption noQuit(u"no-quit"_s, u"never quit"_s);
    const QCommandLineOption state(u"state"_s, u"playback state"_s, u"state"_s, u"Stopped"_s);
    const QCommandLineOption url(u"url"_s, u"current song"_s, u"url"_s);
    const QCommandLineOption position(u"position"_s, u"seconds"_s, u"seconds"_s, u"0"_s);
    const QCommandLineOption linger(u"linger"_s, u"milliseconds"_s, u"ms"_s, u"0"_s);
    parser.addOptions({ database, recordFile, noQuit, state, url, position, linger });
    parser.process(app);

    // Held open, as Strawberry holds its collection while it runs.
    sqlite3 *db = nullptr;
    if (parser.isSet(database))
        sqlite3_open_v2(QFile::encodeName(parser.value(database)).constData(), &db, SQLITE_OPEN_READWRITE, nullptr);

    Player player;
    player.recordFile = parser.value(recordFile);
    player.noQuit = parser.isSet(noQuit);
    player.lingerMs = parser.value(linger).toInt();
    player.state = parser.value(state);
    player.url = parser.value(url);
    player.position = parser.value(position).toLongLong();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerVirtualObject(u"/org/mpris/MediaPlayer2"_s, &player)
        || !bus.registerService(u"org.mpris.MediaPlayer2.strawberry"_s)) {
        std::fprintf(stderr, "corvana-strawberry-testplayer: the bus name is taken or there is no bus\n");
        return 2;
    }
    record(player.recordFile, u"Started %1"_s.arg(QCoreApplication::applicationPid()));
    const int rc = QCoreApplication::exec();
    sqlite3_close(db);
    return rc;
}
