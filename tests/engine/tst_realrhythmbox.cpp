// Debian's Rhythmbox itself, under xvfb-run on this test's private bus: after a span written into
// its file while it was not running, it finds every spanned song at its new place with its play
// count and rating; then, while it runs, a restore sets the places live and its quit saves them.
// Skipped, with the reason, where Rhythmbox or xvfb-run is not installed (scripts/setup-deps --tests).
#include "CVSpanSession.h"
#include "CVTestFiles.h"
#include "CVTestHome.h"
#include "Engine/CVRhythmboxPlayerLink.h"
#include "Library/CVPlayerLibraryFile.h"
#include "Library/CVRhythmDB.h"
#include "Library/CVTrack.h"
#include "Platform/CVTrash.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

// A second of silence that GStreamer reads as audio.
QByteArray wave()
{
    const quint32 samples = 8000;
    QByteArray out;
    const auto u32 = [&](quint32 v) { out.append(reinterpret_cast<const char *>(&v), 4); };
    const auto u16 = [&](quint16 v) { out.append(reinterpret_cast<const char *>(&v), 2); };
    out.append("RIFF");
    u32(36 + samples * 2);
    out.append("WAVEfmt ");
    u32(16);
    u16(1);
    u16(1);
    u32(8000);
    u32(16000);
    u16(2);
    u16(16);
    out.append("data");
    u32(samples * 2);
    out.append(QByteArray(int(samples * 2), '\0'));
    return out;
}

std::optional<QVariantMap> entry(const QByteArray &uri)
{
    QDBusMessage call = QDBusMessage::createMethodCall(u"org.gnome.Rhythmbox3"_s, u"/org/gnome/Rhythmbox3/RhythmDB"_s,
        u"org.gnome.Rhythmbox3.RhythmDB"_s, u"GetEntryProperties"_s);
    call << QString::fromUtf8(uri);
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 10000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    return qdbus_cast<QVariantMap>(reply.arguments().constFirst());
}

} // namespace

class TestRealRhythmbox : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void rhythmboxFindsSpannedSongs()
    {
        const QString rhythmbox = QStandardPaths::findExecutable(u"rhythmbox"_s);
        const QString xvfb = QStandardPaths::findExecutable(u"xvfb-run"_s);
        if (rhythmbox.isEmpty() || xvfb.isEmpty())
            QSKIP("Debian's rhythmbox and xvfb-run are not installed (scripts/setup-deps --tests installs them)");
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no private session bus (run through ctest, which starts one)");

        CVTestHome home;
        const QString database = home.filePath(u".local/share/rhythmbox/rhythmdb.xml"_s);
        // Outside ~/Music, which Rhythmbox would scan as its library folder.
        const QStringList names { u"One & Only.wav"_s, u"Déjà vu 100%.wav"_s, u"#3 (live).wav"_s };
        QByteArray xml = "<?xml version=\"1.0\" standalone=\"yes\"?>\n<rhythmdb version=\"2.0\">\n";
        QHash<QString, QPair<uint, int>> facts; // path -> play count, rating
        for (int i = 0; i < names.size(); ++i) {
            const QString path = home.filePath(u"Media/Artist/"_s + names[i]);
            writeFile(path, wave());
            struct stat info { };
            QVERIFY(::stat(QFile::encodeName(path).constData(), &info) == 0);
            facts.insert(path, { uint(3 + i), 1 + i });
            xml += "  <entry type=\"song\">\n    <title>" + CVRhythmDB::encodeText(names[i].toUtf8())
                + "</title>\n    <genre>Test</genre>\n    <artist>Artist</artist>\n    <album>Album</album>\n"
                  "    <duration>1</duration>\n    <file-size>16044</file-size>\n    <location>"
                + CVRhythmDB::encodeText(CVRhythmDB::fileURIFromPath(path)) + "</location>\n    <mtime>"
                + QByteArray::number(qint64(info.st_mtime)) + "</mtime>\n    <first-seen>1700000000</first-seen>\n"
                + "    <last-seen>1700000000</last-seen>\n    <rating>" + QByteArray::number(1 + i)
                + "</rating>\n    <play-count>" + QByteArray::number(3 + i)
                + "</play-count>\n    <media-type>audio/x-wav</media-type>\n  </entry>\n";
        }
        xml += "</rhythmdb>\n";
        writeFile(database, xml);

        const QString spanFolder = home.filePath(u"Spanned"_s);
        CVLibraryContents contents;
        QVERIFY(CVPlayerLibraryFile::read(database, contents, {}, nullptr));
        QHash<QString, QString> before; // persistent ID -> old place
        for (const CVTrack &track : contents.tracks)
            before.insert(track.text(CVAttr::PersistentID), track.text(CVAttr::Location));
        {
            CVSpanSession s(database);
            CVRhythmboxPlayerLink link(database, CVSpanHistory::applicationSupportFolder(), &s.files);
            s.usePlayerLink(&link);
            s.span(s.select(u""_s), spanFolder);
            QCOMPARE(s.spanner.lastResults().successes, 3);
        }
        QHash<QString, QString> spanned; // new place -> old place
        contents = {};
        QVERIFY(CVPlayerLibraryFile::read(database, contents, {}, nullptr));
        for (const CVTrack &track : contents.tracks)
            spanned.insert(track.text(CVAttr::Location), before.value(track.text(CVAttr::PersistentID)));
        QCOMPARE(spanned.size(), 3);

        QProcess player;
        player.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        player.start(xvfb, { u"-a"_s, rhythmbox });
        QVERIFY(player.waitForStarted());
        const auto stop = qScopeGuard([&] {
            QProcess::execute(u"rhythmbox-client"_s, { u"--quit"_s });
            if (!player.waitForFinished(20000))
                player.kill();
            player.waitForFinished();
        });
        QTRY_VERIFY_WITH_TIMEOUT(
            QDBusConnection::sessionBus().interface()->isServiceRegistered(u"org.gnome.Rhythmbox3"_s).value(), 60000);
        for (auto [now, old] : spanned.asKeyValueRange()) {
            QVERIFY2(now.startsWith(spanFolder), qPrintable(now));
            std::optional<QVariantMap> properties;
            QTRY_VERIFY_WITH_TIMEOUT((properties = entry(CVRhythmDB::fileURIFromPath(now))).has_value(), 30000);
            QCOMPARE(properties->value(u"play-count"_s).toUInt(), facts.value(old).first);
            QCOMPARE(properties->value(u"rating"_s).toDouble(), double(facts.value(old).second));
            QVERIFY(!entry(CVRhythmDB::fileURIFromPath(old)).has_value());
        }

        // While Rhythmbox runs: the places are set live, and its quit writes them.
        {
            CVSpanSession s(database);
            CVRhythmboxPlayerLink link(database, CVSpanHistory::applicationSupportFolder(), &s.files);
            s.usePlayerLink(&link);
            QVERIFY(link.isRhythmboxRunning());
            s.restore(s.select(u"( FullSpan == 1 )"_s));
            QCOMPARE(s.spanner.lastResults().successes, 3);
            QVERIFY(!link.isRhythmboxRunning());
        }
        QVERIFY(player.waitForFinished(30000));
        contents = {};
        QVERIFY(CVPlayerLibraryFile::read(database, contents, {}, nullptr));
        for (const CVTrack &track : contents.tracks) {
            QVERIFY(facts.contains(track.text(CVAttr::Location)));
            QCOMPARE(uint(track.integer(CVAttr::Plays)), facts.value(track.text(CVAttr::Location)).first);
        }
    }
};

QTEST_GUILESS_MAIN(TestRealRhythmbox)
#include "tst_realrhythmbox.moc"
