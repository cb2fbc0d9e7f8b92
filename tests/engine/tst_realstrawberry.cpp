// Debian's Strawberry itself, under xvfb-run on this test's private bus: it builds its collection
// from tagged files the test writes; after a span written into its database while it was not
// running, its start-up scan finds every song as one row at its new place, available, with its
// play count, rating and playlist, also after a start with the span drive away and one with it
// back; then a restore quits the running Strawberry first, and the same holds at home. Skipped, with the reason, where
// Strawberry or xvfb-run is not installed (scripts/setup-deps --tests). Only one Strawberry runs per user, so this test
// runs alone.
#include "CVSpanSession.h"
#include "CVTestFiles.h"
#include "CVTestHome.h"
#include "Engine/CVStrawberryPlayerLink.h"
#include "Library/CVPlayerLibraryFile.h"
#include "Library/CVStrawberryDB.h"
#include "Library/CVTrack.h"
#include "Platform/CVTrash.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

#include <sqlite3.h>

using namespace Qt::StringLiterals;

namespace {

// A second of silence with its title, artist and album in a RIFF INFO list.
QByteArray taggedWave(const QByteArray &title)
{
    const quint32 samples = 8000;
    const auto u32 = [](QByteArray &out, quint32 v) { out.append(reinterpret_cast<const char *>(&v), 4); };
    const auto u16 = [](QByteArray &out, quint16 v) { out.append(reinterpret_cast<const char *>(&v), 2); };
    QByteArray info = "INFO";
    for (const auto &[id, text] :
        { std::pair { QByteArray("INAM"), title }, std::pair { QByteArray("IART"), QByteArray("Artist") },
            std::pair { QByteArray("IPRD"), QByteArray("Album") } }) {
        QByteArray value = text + '\0';
        if (value.size() % 2)
            value += '\0';
        info += id;
        u32(info, quint32(value.size()));
        info += value;
    }
    QByteArray body = "WAVEfmt ";
    u32(body, 16);
    u16(body, 1);
    u16(body, 1);
    u32(body, 8000);
    u32(body, 16000);
    u16(body, 2);
    u16(body, 16);
    body += "LIST";
    u32(body, quint32(info.size()));
    body += info;
    body += "data";
    u32(body, samples * 2);
    body += QByteArray(int(samples * 2), '\0');
    QByteArray out = "RIFF";
    u32(out, quint32(body.size()));
    return out + body;
}

struct Row {
    qint64 rowID;
    QString path;
    qint64 plays;
    double rating;
    bool unavailable;
};

QList<Row> songsOf(const QString &database)
{
    QList<Row> rows;
    sqlite3 *db = nullptr;
    sqlite3_open_v2(QFile::encodeName(database).constData(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_busy_timeout(db, 5000);
    sqlite3_stmt *s = nullptr;
    sqlite3_prepare_v2(
        db, "SELECT ROWID, url, playcount, rating, unavailable FROM songs ORDER BY ROWID", -1, &s, nullptr);
    while (s && sqlite3_step(s) == SQLITE_ROW) {
        const QByteArray url(reinterpret_cast<const char *>(sqlite3_column_text(s, 1)));
        rows.append({ sqlite3_column_int64(s, 0), CVStrawberryDB::pathFromURL(url).value_or(QString()),
            sqlite3_column_int64(s, 2), sqlite3_column_double(s, 3), sqlite3_column_int(s, 4) != 0 });
    }
    sqlite3_finalize(s);
    sqlite3_close(db);
    return rows;
}

// The playlist's items: "type collection_id url".
QStringList itemsOf(const QString &database)
{
    QStringList items;
    sqlite3 *db = nullptr;
    sqlite3_open_v2(QFile::encodeName(database).constData(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt *s = nullptr;
    sqlite3_prepare_v2(
        db, "SELECT type, coalesce(collection_id, 0), url FROM playlist_items ORDER BY ROWID", -1, &s, nullptr);
    while (s && sqlite3_step(s) == SQLITE_ROW)
        items.append(u"%1 %2 %3"_s.arg(sqlite3_column_int(s, 0))
                         .arg(sqlite3_column_int64(s, 1))
                         .arg(QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(s, 2)))));
    sqlite3_finalize(s);
    sqlite3_close(db);
    return items;
}

bool exec(const QString &database, const QByteArray &sql)
{
    sqlite3 *db = nullptr;
    sqlite3_open(QFile::encodeName(database).constData(), &db);
    char *error = nullptr;
    const bool ok = sqlite3_exec(db, sql.constData(), nullptr, nullptr, &error) == SQLITE_OK;
    if (!ok)
        qWarning("%s", error);
    sqlite3_free(error);
    sqlite3_close(db);
    return ok;
}

QString quoted(const QString &text)
{
    return u"'"_s + QString(text).replace(u"'"_s, u"''"_s) + u"'"_s;
}

} // namespace

class TestRealStrawberry : public QObject {
    Q_OBJECT

private:
    QString m_xvfb, m_strawberry;
    QProcess *m_player = nullptr;

    bool running() const
    {
        return QDBusConnection::sessionBus().interface()->isServiceRegistered(
            QString::fromLatin1(CVStrawberryPlayerLink::MprisService));
    }

    // Starts Strawberry and gives its start-up scan time to finish.
    // Starts Strawberry and gives its start-up scan time to finish. A Strawberry started while the
    // one before is still going away hands over to it and ends: it is started again.
    bool start(QProcess &player, int settleMs)
    {
        for (int attempt = 0; attempt < 3 && !running(); ++attempt) {
            player.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            player.setStandardOutputFile(QProcess::nullDevice());
            player.start(m_xvfb, { u"-a"_s, m_strawberry });
            if (!player.waitForStarted())
                return false;
            QDeadlineTimer deadline(60000);
            while (!running() && !deadline.hasExpired() && player.state() == QProcess::Running)
                QTest::qWait(100);
            if (!running()) {
                qWarning("Strawberry did not come up (attempt %d)", attempt + 1);
                player.kill();
                player.waitForFinished();
                QTest::qWait(2000);
            }
        }
        QTest::qWait(settleMs);
        return running();
    }

    bool stop(CVStrawberryPlayerLink &link, QProcess &player)
    {
        QString error;
        if (!link.quitStrawberry(&error))
            qWarning("%s", qPrintable(error));
        return error.isEmpty() && player.waitForFinished(30000);
    }

private Q_SLOTS:
    void strawberryFindsSpannedSongs()
    {
        m_strawberry = QStandardPaths::findExecutable(u"strawberry"_s);
        m_xvfb = QStandardPaths::findExecutable(u"xvfb-run"_s);
        if (m_strawberry.isEmpty() || m_xvfb.isEmpty())
            QSKIP("Debian's strawberry and xvfb-run are not installed (scripts/setup-deps --tests installs them)");
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no private session bus (run through ctest, which starts one)");
        if (running())
            QSKIP("another Strawberry owns org.mpris.MediaPlayer2.strawberry on this bus");

        CVTestHome home;
        const QString home_ = home.path();
        CVTrash::setMountPointFilter([home_](const QString &point) { return point.startsWith(home_); });
        const auto unfilter = qScopeGuard([] { CVTrash::setMountPointFilter({}); });
        const QString database = CVPlayerLibraryFile::strawberryLibraryPath();
        QVERIFY(database.startsWith(home.path()));
        const QString collection = home.filePath(u"Media/Collection"_s);
        const QStringList names { u"One & Only.wav"_s, u"Déjà vu 100%.wav"_s, u"#3 (live) why?.wav"_s,
            u"It's %20 here.wav"_s };
        for (const QString &name : names)
            writeFile(collection + u"/Artist/Album/"_s + name, taggedWave(name.toUtf8().chopped(4)));

        CVStrawberryPlayerLink link(database, CVSpanHistory::applicationSupportFolder(), nullptr);
        link.setQuitTimeout(30000);
        QProcess player;
        const auto cleanup = qScopeGuard([&] {
            link.quitStrawberry();
            if (!player.waitForFinished(20000))
                player.kill();
        });
        // The first start makes the database; its collection folders are rows of it.
        QVERIFY(start(player, 2000));
        QVERIFY(stop(link, player));
        QVERIFY(QFileInfo::exists(database));
        QVERIFY(
            exec(database, "INSERT INTO directories (path, subdirs) VALUES (" + quoted(collection).toUtf8() + ", 1)"));
        QVERIFY(start(player, 0));
        QTRY_COMPARE_WITH_TIMEOUT(songsOf(database).size(), names.size(), 60000);
        QTest::qWait(3000);
        QVERIFY(stop(link, player));

        // Play counts, ratings and a playlist of two collection songs and one file item.
        QList<Row> rows = songsOf(database);
        QCOMPARE(rows.size(), names.size());
        QByteArray facts = "BEGIN;";
        for (int i = 0; i < rows.size(); ++i)
            facts += "UPDATE songs SET playcount = " + QByteArray::number(5 + i) + ", rating = "
                + QByteArray::number(0.2 * (i + 1)) + " WHERE ROWID = " + QByteArray::number(rows[i].rowID) + ";";
        facts += "INSERT INTO playlists (name, ui_order) VALUES ('Mix', 0);"
                 "INSERT INTO playlist_items (playlist, type, collection_id, url) VALUES (1, 2, "
            + QByteArray::number(rows[0].rowID)
            + ", '');"
              "INSERT INTO playlist_items (playlist, type, collection_id, url) VALUES (1, 2, "
            + QByteArray::number(rows[1].rowID)
            + ", '');"
              "INSERT INTO playlist_items (playlist, type, url, title) VALUES (1, 1, "
            + quoted(QString::fromUtf8(CVStrawberryDB::urlFromPath(rows[2].path))).toUtf8() + ", 'file');COMMIT;";
        QVERIFY(exec(database, facts));
        rows = songsOf(database);

        const auto checkAt = [&](const QString &folder) {
            const QList<Row> now = songsOf(database);
            QCOMPARE(now.size(), rows.size()); // one row a song, no new ones
            for (int i = 0; i < now.size(); ++i) {
                QCOMPARE(now[i].rowID, rows[i].rowID);
                QVERIFY2(now[i].path.startsWith(folder + u'/'), qPrintable(now[i].path));
                QVERIFY2(QFileInfo::exists(now[i].path), qPrintable(now[i].path));
                QVERIFY(!now[i].unavailable);
                QCOMPARE(now[i].plays, rows[i].plays);
                QCOMPARE(now[i].rating, rows[i].rating);
            }
            const QStringList items = itemsOf(database);
            QCOMPARE(items,
                (QStringList { u"2 %1 "_s.arg(rows[0].rowID), u"2 %1 "_s.arg(rows[1].rowID),
                    u"1 0 "_s + QString::fromUtf8(CVStrawberryDB::urlFromPath(now[2].path)) }));
        };

        const QString spanFolder = home.filePath(u"Span Drive/Spanned"_s);
        {
            CVSpanSession s(database);
            CVStrawberryPlayerLink runLink(database, CVSpanHistory::applicationSupportFolder(), &s.files);
            s.usePlayerLink(&runLink);
            s.span(s.select(u""_s), spanFolder);
            QCOMPARE(s.spanner.lastResults().successes, names.size());
        }
        checkAt(spanFolder);
        QVERIFY(start(player, 15000)); // the start-up scan runs and changes nothing
        checkAt(spanFolder);
        QVERIFY(stop(link, player));

        // The span drive away: every moved song is kept, unavailable; back: available again, no new rows.
        QVERIFY(QDir().rename(spanFolder, spanFolder + u" away"_s));
        QVERIFY(start(player, 15000));
        QVERIFY(stop(link, player));
        const QList<Row> away = songsOf(database);
        QCOMPARE(away.size(), rows.size());
        for (int i = 0; i < away.size(); ++i) {
            QCOMPARE(away[i].rowID, rows[i].rowID);
            QVERIFY(away[i].unavailable);
            QCOMPARE(away[i].plays, rows[i].plays);
        }
        QVERIFY(QDir().rename(spanFolder + u" away"_s, spanFolder));
        QVERIFY(start(player, 15000));
        checkAt(spanFolder);

        // Strawberry running: the restore quits it before it copies anything.
        {
            CVSpanSession s(database);
            CVStrawberryPlayerLink runLink(database, CVSpanHistory::applicationSupportFolder(), &s.files);
            s.usePlayerLink(&runLink);
            s.restore(s.select(u"( FullSpan == 1 )"_s));
            QCOMPARE(s.spanner.lastResults().successes, names.size());
        }
        QVERIFY(!running());
        QVERIFY(player.waitForFinished(30000));
        checkAt(collection);
        QVERIFY(start(player, 15000));
        checkAt(collection);
        QVERIFY(stop(link, player));
        checkAt(collection);
    }
};

QTEST_GUILESS_MAIN(TestRealStrawberry)
#include "tst_realstrawberry.moc"
