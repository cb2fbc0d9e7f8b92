// A music player for tests: it owns a library file, answers MPRIS2 and
// org.corvana.PlayerLibrary1 on the session bus, and writes its library file when told to
// quit. It can be told to misbehave the ways real players do.
//
//   corvana-testplayer --library FILE [--name NAME] [--record FILE]
//       [--state Playing|Paused|Stopped --track PID --playlist NAME --position SECONDS]
//       [--keep-location PID]... [--move-file PID]... [--quit-delay MS] [--no-answer]
//       [--file-manager]

#include "Library/CVFileURL.h"
#include "Library/CVLibraryFileReader.h"
#include "Library/CVLibraryFileRewriter.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QTimer>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

const QString kRoot = u"org.mpris.MediaPlayer2"_s;
const QString kPlayer = u"org.mpris.MediaPlayer2.Player"_s;
const QString kLibrary = u"org.corvana.PlayerLibrary1"_s;
const QString kProperties = u"org.freedesktop.DBus.Properties"_s;
const QString kIntrospectable = u"org.freedesktop.DBus.Introspectable"_s;

void record(const QString &file, const QString &line)
{
    if (file.isEmpty())
        return;
    QFile out(file);
    if (out.open(QIODevice::Append))
        out.write(line.toUtf8() + '\n');
}

QString pathOfURL(const QString &url)
{
    const QByteArray bytes = url.toUtf8();
    return CVFileURL::pathFromFileURL(std::string_view(bytes.constData(), size_t(bytes.size()))).value_or(QString());
}

struct Options {
    QString library;
    QString recordFile;
    QSet<QString> keepLocation;
    QSet<QString> moveFile;
    int quitDelayMs = 0;
    bool noAnswer = false;
};

class TestPlayer : public QDBusVirtualObject {
public:
    explicit TestPlayer(Options options)
        : m_options(std::move(options))
    {
    }

    bool load(QString &error)
    {
        CVLibraryContents contents;
        CVLibraryFileReader reader;
        if (!reader.readFile(m_options.library, contents)) {
            error = reader.errorString();
            return false;
        }
        for (const CVTrack &track : contents.tracks) {
            const QString pid = track.text(CVAttr::PersistentID);
            m_locations.insert(pid, QString::fromUtf8(CVFileURL::fileURLFromPath(track.text(CVAttr::Location))));
            m_kinds.insert(pid, track.text(CVAttr::MediaType));
        }
        for (const CVPlaylist &playlist : contents.playlists)
            m_playlists.insert(playlist.name);
        return true;
    }

    void setPlayback(const QString &state, const QString &track, const QString &playlist, qint64 seconds)
    {
        m_state = state;
        m_track = track;
        m_playlist = playlist;
        m_positionUs = seconds * 1000000;
    }

    QString introspect(const QString &) const override
    {
        return u"<interface name=\"org.mpris.MediaPlayer2\"><method name=\"Quit\"/><method name=\"Raise\"/></interface>"
               "<interface name=\"org.mpris.MediaPlayer2.Player\"><method name=\"Pause\"/><method name=\"Play\"/>"
               "<method name=\"SetPosition\"><arg type=\"o\" direction=\"in\"/><arg type=\"x\" "
               "direction=\"in\"/></method>"
               "<property name=\"PlaybackStatus\" type=\"s\" access=\"read\"/>"
               "<property name=\"Position\" type=\"x\" access=\"read\"/>"
               "<property name=\"Metadata\" type=\"a{sv}\" access=\"read\"/></interface>"
               "<interface name=\"org.corvana.PlayerLibrary1\"><method name=\"SetTrackLocation\"/>"
               "<method name=\"TrackLocation\"/><method name=\"PlayTrackOnce\"/><method name=\"RevealTrack\"/>"
               "<property name=\"CurrentTrack\" type=\"s\" access=\"read\"/>"
               "<property name=\"CurrentPlaylist\" type=\"s\" access=\"read\"/>"
               "<property name=\"LibraryFile\" type=\"s\" access=\"read\"/></interface>"_s;
    }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        const QString interface = message.interface();
        const QString member = message.member();
        const QVariantList args = message.arguments();
        if (interface == kIntrospectable) {
            const QString xml = u"<node>"_s + introspect(message.path()) + u"</node>"_s;
            connection.send(message.createReply(xml));
            return true;
        }
        if (m_options.noAnswer)
            return true; // the caller waits in vain
        const auto reply = [&](const QVariantList &values = {}) { connection.send(message.createReply(values)); };
        const auto fail = [&](const QString &text) {
            connection.send(message.createErrorReply(u"org.corvana.TestPlayer.Error"_s, text));
        };

        if (interface == kProperties && member == u"Get"_s && args.size() == 2) {
            const QVariant value = property(args[0].toString(), args[1].toString());
            if (!value.isValid())
                fail(u"no such property"_s);
            else
                reply({ QVariant::fromValue(QDBusVariant(value)) });
            return true;
        }
        if (interface == kRoot && member == u"Quit"_s) {
            record(m_options.recordFile, u"Quit"_s);
            reply();
            QTimer::singleShot(m_options.quitDelayMs, [this] { writeLibraryAndQuit(); });
            return true;
        }
        if (interface == kRoot && member == u"Raise"_s) {
            record(m_options.recordFile, u"Raise"_s);
            reply();
            return true;
        }
        if (interface == kPlayer && member == u"Pause"_s) {
            if (m_state == u"Playing"_s)
                m_state = u"Paused"_s;
            reply();
            return true;
        }
        if (interface == kPlayer && member == u"Play"_s) {
            if (!m_track.isEmpty())
                m_state = u"Playing"_s;
            reply();
            return true;
        }
        if (interface == kPlayer && member == u"SetPosition"_s && args.size() == 2) {
            if (qdbus_cast<QDBusObjectPath>(args[0]).path() == trackObject())
                m_positionUs = args[1].toLongLong();
            reply();
            return true;
        }
        if (interface == kLibrary && member == u"SetTrackLocation"_s && args.size() == 2) {
            const QString pid = args[0].toString();
            record(m_options.recordFile, u"SetTrackLocation "_s + pid + u' ' + args[1].toString());
            if (!m_locations.contains(pid)) {
                reply({ false });
                return true;
            }
            QString url = args[1].toString();
            if (m_options.moveFile.contains(pid)) {
                // The player tidies its media folder: the file ends up under another name.
                const QString path = pathOfURL(url);
                const QString moved = QFileInfo(path).absolutePath() + u"/Moved "_s + QFileInfo(path).fileName();
                if (QFile::rename(path, moved))
                    url = QString::fromUtf8(CVFileURL::fileURLFromPath(moved));
            }
            if (!m_options.keepLocation.contains(pid)) {
                m_locations.insert(pid, url);
                m_changed.insert(pid);
            }
            reply({ true });
            return true;
        }
        if (interface == kLibrary && member == u"TrackLocation"_s && args.size() == 1) {
            reply({ m_locations.value(args[0].toString()) });
            return true;
        }
        if (interface == kLibrary && (member == u"PlayTrackOnce"_s || member == u"RevealTrack"_s) && args.size() == 2) {
            const QString playlist = args[0].toString();
            const QString pid = args[1].toString();
            record(m_options.recordFile, member + u' ' + playlist + u' ' + pid);
            const bool found
                = m_locations.contains(pid) && (m_kinds.value(pid) == playlist || m_playlists.contains(playlist));
            if (found && member == u"PlayTrackOnce"_s)
                setPlayback(u"Playing"_s, pid, playlist, 0);
            reply({ found });
            return true;
        }
        fail(u"unknown call %1.%2"_s.arg(interface, member));
        return true;
    }

private:
    QString trackObject() const { return m_track.isEmpty() ? QString() : u"/org/corvana/track/"_s + m_track; }

    QVariant property(const QString &interface, const QString &name) const
    {
        if (interface == kPlayer && name == u"PlaybackStatus"_s)
            return m_state;
        if (interface == kPlayer && name == u"Position"_s)
            return qlonglong(m_positionUs);
        if (interface == kPlayer && name == u"Metadata"_s) {
            QVariantMap metadata;
            if (!m_track.isEmpty())
                metadata.insert(u"mpris:trackid"_s, QVariant::fromValue(QDBusObjectPath(trackObject())));
            return metadata;
        }
        if (interface == kLibrary && name == u"CurrentTrack"_s)
            return m_track;
        if (interface == kLibrary && name == u"CurrentPlaylist"_s)
            return m_playlist;
        if (interface == kLibrary && name == u"LibraryFile"_s)
            return m_options.library;
        return {};
    }

    void writeLibraryAndQuit()
    {
        QHash<QString, QString> changes;
        for (const QString &pid : std::as_const(m_changed))
            changes.insert(pid, pathOfURL(m_locations.value(pid)));
        const auto result = CVLibraryFileRewriter::applyLocations(m_options.library, changes);
        if (!result.ok)
            std::fprintf(stderr, "corvana-testplayer: %s\n", qUtf8Printable(result.error));
        QCoreApplication::exit(result.ok ? 0 : 1);
    }

    Options m_options;
    QHash<QString, QString> m_locations; // persistent ID -> file URL
    QHash<QString, QString> m_kinds;
    QSet<QString> m_playlists;
    QSet<QString> m_changed;
    QString m_state = u"Stopped"_s;
    QString m_track;
    QString m_playlist;
    qint64 m_positionUs = 0;
};

// Stands in for the desktop's file manager and writes down what it is asked to show.
class TestFileManager : public QDBusVirtualObject {
public:
    explicit TestFileManager(QString recordFile)
        : m_recordFile(std::move(recordFile))
    {
    }
    QString introspect(const QString &) const override
    {
        return u"<interface name=\"org.freedesktop.FileManager1\"><method name=\"ShowItems\"/>"
               "<method name=\"ShowFolders\"/></interface>"_s;
    }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        const QVariantList args = message.arguments();
        if (!args.isEmpty())
            record(m_recordFile, message.member() + u' ' + args[0].toStringList().join(u' '));
        connection.send(message.createReply());
        return true;
    }

private:
    QString m_recordFile;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption library(u"library"_s, u"library file"_s, u"file"_s);
    const QCommandLineOption name(u"name"_s, u"bus name"_s, u"name"_s, u"org.mpris.MediaPlayer2.corvana-testplayer"_s);
    const QCommandLineOption recordFile(u"record"_s, u"write calls here"_s, u"file"_s);
    const QCommandLineOption state(u"state"_s, u"playback state"_s, u"state"_s, u"Stopped"_s);
    const QCommandLineOption track(u"track"_s, u"current track"_s, u"pid"_s);
    const QCommandLineOption playlist(u"playlist"_s, u"current playlist"_s, u"name"_s);
    const QCommandLineOption position(u"position"_s, u"position in seconds"_s, u"seconds"_s, u"0"_s);
    const QCommandLineOption keep(u"keep-location"_s, u"ignore new locations of a track"_s, u"pid"_s);
    const QCommandLineOption move(u"move-file"_s, u"move a track's file when it is set"_s, u"pid"_s);
    const QCommandLineOption quitDelay(u"quit-delay"_s, u"milliseconds before quitting"_s, u"ms"_s, u"0"_s);
    const QCommandLineOption noAnswer(u"no-answer"_s, u"never answer a call"_s);
    const QCommandLineOption fileManager(u"file-manager"_s, u"also be the file manager"_s);
    parser.addOptions(
        { library, name, recordFile, state, track, playlist, position, keep, move, quitDelay, noAnswer, fileManager });
    parser.process(app);

    Options options;
    options.library = parser.value(library);
    options.recordFile = parser.value(recordFile);
    const QStringList kept = parser.values(keep);
    const QStringList moved = parser.values(move);
    options.keepLocation = QSet<QString>(kept.cbegin(), kept.cend());
    options.moveFile = QSet<QString>(moved.cbegin(), moved.cend());
    options.quitDelayMs = parser.value(quitDelay).toInt();
    options.noAnswer = parser.isSet(noAnswer);

    TestPlayer player(options);
    QString error;
    if (!player.load(error)) {
        std::fprintf(stderr, "corvana-testplayer: %s\n", qUtf8Printable(error));
        return 2;
    }
    player.setPlayback(
        parser.value(state), parser.value(track), parser.value(playlist), parser.value(position).toLongLong());

    QDBusConnection bus = QDBusConnection::sessionBus();
    TestFileManager files(options.recordFile);
    if (parser.isSet(fileManager)) {
        if (!bus.registerVirtualObject(u"/org/freedesktop/FileManager1"_s, &files)
            || !bus.registerService(u"org.freedesktop.FileManager1"_s))
            return 3;
    }
    if (!bus.registerVirtualObject(u"/org/mpris/MediaPlayer2"_s, &player) || !bus.registerService(parser.value(name))) {
        std::fprintf(stderr, "corvana-testplayer: %s\n", qUtf8Printable(bus.lastError().message()));
        return 3;
    }
    return app.exec();
}
