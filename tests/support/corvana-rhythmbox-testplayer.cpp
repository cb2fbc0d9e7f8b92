// Stands in for Rhythmbox in tests: it owns org.gnome.Rhythmbox3, holds the entries of a
// rhythmdb.xml by location, answers GetEntryProperties and SetEntryProperties on
// /org/gnome/Rhythmbox3/RhythmDB, and quits through the "quit" action that rhythmbox-client
// activates, writing its whole file first (temporary file, then rename) as Rhythmbox does. Like
// Rhythmbox it takes a location that another entry already has.
//
//   corvana-rhythmbox-testplayer --library rhythmdb.xml [--record FILE] [--no-quit]

#include "Library/CVRhythmDB.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusSignature>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QFile>
#include <QSaveFile>
#include <QTimer>

#include <cstdio>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

void record(const QString &file, const QString &line)
{
    if (file.isEmpty())
        return;
    QFile out(file);
    if (out.open(QIODevice::Append))
        out.write(line.toUtf8() + '\n');
}

// How GLib's action groups describe an action: (bgav). QtDBus cannot write the empty signature
// of an action without a parameter, so "quit" is described with one; rhythmbox-client sends none
// all the same.
struct ActionDescription {
    bool enabled = true;
    QDBusSignature parameter { QStringLiteral("s") };
    QVariantList state;
};

QDBusArgument &operator<<(QDBusArgument &out, const ActionDescription &d)
{
    out.beginStructure();
    out << d.enabled << d.parameter << d.state;
    out.endStructure();
    return out;
}

const QDBusArgument &operator>>(const QDBusArgument &in, ActionDescription &d)
{
    in.beginStructure();
    in >> d.enabled >> d.parameter >> d.state;
    in.endStructure();
    return in;
}

struct Entry {
    QByteArray text; // the entry's bytes as read, up to its location
    QByteArray rest; // after its location (and mountpoint) elements
    QByteArray indent;
    QByteArray location;
    QByteArray mountPoint;
    uint playCount = 0;
    double rating = 0;
    bool song = false;
};

class Player : public QDBusVirtualObject {
public:
    Player(QString library, QString recordFile, bool noQuit)
        : m_library(std::move(library))
        , m_record(std::move(recordFile))
        , m_noQuit(noQuit)
    {
    }

    bool load(QString &error)
    {
        QFile file(m_library);
        if (!file.open(QIODevice::ReadOnly)) {
            error = file.errorString();
            return false;
        }
        m_bytes = file.readAll();
        CVRhythmDB::Scanner scanner(m_bytes);
        if (!scanner.readHeader()) {
            error = scanner.errorString();
            return false;
        }
        CVRhythmDB::Field field;
        qint64 last = 0; // the bytes before an entry go with it
        while (scanner.nextElement("entry")) {
            Entry entry;
            entry.song = scanner.attribute("type") == "song";
            const qint64 start = last;
            qint64 cutStart = -1, cutEnd = -1;
            while (scanner.nextField(field)) {
                const QByteArray value
                    = CVRhythmDB::decodeText(QByteArrayView(field.raw.data(), qsizetype(field.raw.size())));
                if (field.name == "location") {
                    entry.location = value;
                    cutStart = field.lineStart;
                    cutEnd = field.end;
                    entry.indent = m_bytes.mid(field.lineStart, field.start - field.lineStart);
                } else if (field.name == "mountpoint" && entry.song) {
                    entry.mountPoint = value;
                    cutEnd = field.end;
                } else if (field.name == "play-count") {
                    entry.playCount = value.toUInt();
                } else if (field.name == "rating") {
                    entry.rating = value.toDouble();
                }
            }
            const qint64 end = scanner.elementEnd();
            if (cutStart < 0) {
                entry.text = m_bytes.mid(start, end - start);
            } else {
                entry.text = m_bytes.mid(start, cutStart - start);
                entry.rest = m_bytes.mid(cutEnd, end - cutEnd);
            }
            last = end;
            m_entries.push_back(std::move(entry));
        }
        if (scanner.hasError()) {
            error = scanner.errorString();
            return false;
        }
        m_tail = m_bytes.mid(last);
        return true;
    }

    QString introspect(const QString &path) const override
    {
        if (path == u"/org/gnome/Rhythmbox3/RhythmDB"_s)
            return u"<interface name=\"org.gnome.Rhythmbox3.RhythmDB\">"
                   "<method name=\"GetEntryProperties\"><arg name=\"uri\" type=\"s\" direction=\"in\"/>"
                   "<arg name=\"properties\" type=\"a{sv}\" direction=\"out\"/></method>"
                   "<method name=\"SetEntryProperties\"><arg name=\"uri\" type=\"s\" direction=\"in\"/>"
                   "<arg name=\"properties\" type=\"a{sv}\" direction=\"in\"/></method></interface>"_s;
        return u"<interface name=\"org.gtk.Actions\"><method name=\"List\"><arg type=\"as\" direction=\"out\"/>"
               "</method>"
               "<method name=\"Activate\"><arg type=\"s\" direction=\"in\"/><arg type=\"av\" direction=\"in\"/>"
               "<arg type=\"a{sv}\" direction=\"in\"/></method></interface>"_s;
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
        if (message.interface() == u"org.freedesktop.DBus.Properties"_s) {
            reply({ QVariant::fromValue(QVariantMap()) });
            return true;
        }
        if (member == u"GetEntryProperties"_s && args.size() == 1) {
            const Entry *entry = find(args[0].toString().toUtf8());
            if (!entry) {
                notFound(message, connection, args[0].toString());
                return true;
            }
            QVariantMap properties { { u"location"_s, QString::fromUtf8(entry->location) },
                { u"mountpoint"_s, QString::fromUtf8(entry->mountPoint) }, { u"play-count"_s, entry->playCount },
                { u"rating"_s, entry->rating } };
            reply({ properties });
            return true;
        }
        if (member == u"SetEntryProperties"_s && args.size() == 2) {
            Entry *entry = find(args[0].toString().toUtf8());
            const QVariantMap properties = qdbus_cast<QVariantMap>(args[1]);
            record(m_record,
                u"SetEntryProperties %1 %2 %3"_s.arg(args[0].toString(), properties.value(u"location"_s).toString(),
                    properties.value(u"mountpoint"_s).toString()));
            if (!entry) {
                notFound(message, connection, args[0].toString());
                return true;
            }
            if (properties.contains(u"location"_s))
                entry->location = properties.value(u"location"_s).toString().toUtf8();
            if (properties.contains(u"mountpoint"_s))
                entry->mountPoint = properties.value(u"mountpoint"_s).toString().toUtf8();
            reply();
            return true;
        }
        if (member == u"DescribeAll"_s) {
            // rhythmbox-client waits for "load-uri" to say that the library is loaded and scanned.
            QDBusArgument loaded;
            loaded.beginStructure();
            loaded << true << true;
            loaded.endStructure();
            ActionDescription loadURI;
            loadURI.state = { QVariant::fromValue(loaded) };
            const QMap<QString, ActionDescription> actions { { u"quit"_s, ActionDescription() },
                { u"load-uri"_s, loadURI } };
            reply({ QVariant::fromValue(actions) });
            return true;
        }
        if (member == u"List"_s) {
            reply({ QStringList { u"quit"_s, u"load-uri"_s } });
            return true;
        }
        if (member == u"Activate"_s && !args.isEmpty() && args[0].toString() == u"quit"_s) {
            record(m_record, u"Quit"_s);
            reply();
            if (!m_noQuit)
                QTimer::singleShot(0, [this] { saveAndQuit(); });
            return true;
        }
        connection.send(message.createErrorReply(u"org.freedesktop.DBus.Error.UnknownMethod"_s, member));
        return true;
    }

private:
    Entry *find(const QByteArray &uri)
    {
        for (Entry &entry : m_entries)
            if (entry.location == uri)
                return &entry;
        return nullptr;
    }

    static void notFound(const QDBusMessage &message, const QDBusConnection &connection, const QString &uri)
    {
        connection.send(message.createErrorReply(
            u"org.freedesktop.DBus.Error.FileNotFound"_s, u"No database entry %1 exists"_s.arg(uri)));
    }

    // The whole file again, as Rhythmbox writes it: a temporary file renamed over the old one.
    void saveAndQuit()
    {
        QByteArray out;
        for (const Entry &entry : m_entries) {
            out += entry.text;
            if (!entry.location.isEmpty()) {
                out += entry.indent + "<location>" + CVRhythmDB::encodeText(entry.location) + "</location>";
                if (entry.song && !entry.mountPoint.isEmpty())
                    out += '\n' + entry.indent + "<mountpoint>" + CVRhythmDB::encodeText(entry.mountPoint)
                        + "</mountpoint>";
            }
            out += entry.rest;
        }
        out += m_tail;
        QSaveFile file(m_library);
        const bool ok = file.open(QIODevice::WriteOnly) && file.write(out) == out.size() && file.commit();
        if (!ok)
            std::fprintf(stderr, "corvana-rhythmbox-testplayer: %s\n", qUtf8Printable(file.errorString()));
        QCoreApplication::exit(ok ? 0 : 1);
    }

    QString m_library;
    QString m_record;
    bool m_noQuit;
    QByteArray m_bytes;
    QByteArray m_tail;
    std::vector<Entry> m_entries;
};

} // namespace

Q_DECLARE_METATYPE(ActionDescription)

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    qDBusRegisterMetaType<ActionDescription>();
    qDBusRegisterMetaType<QMap<QString, ActionDescription>>();
    QCommandLineParser parser;
    const QCommandLineOption library(u"library"_s, u"rhythmdb.xml"_s, u"file"_s);
    const QCommandLineOption recordFile(u"record"_s, u"write calls here"_s, u"file"_s);
    const QCommandLineOption noQuit(u"no-quit"_s, u"never quit when asked"_s);
    parser.addOptions({ library, recordFile, noQuit });
    parser.process(app);

    Player player(parser.value(library), parser.value(recordFile), parser.isSet(noQuit));
    QString error;
    if (!player.load(error)) {
        std::fprintf(stderr, "corvana-rhythmbox-testplayer: %s\n", qUtf8Printable(error));
        return 2;
    }
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerVirtualObject(u"/org/gnome/Rhythmbox3"_s, &player, QDBusConnection::SubPath)
        || !bus.registerService(u"org.gnome.Rhythmbox3"_s)) {
        std::fprintf(stderr, "corvana-rhythmbox-testplayer: %s\n", qUtf8Printable(bus.lastError().message()));
        return 3;
    }
    return app.exec();
}
