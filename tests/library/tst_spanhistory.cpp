#include "CVTestEnvironment.h"
#include "CVTestFiles.h"
#include "CVTestPresenter.h"
#include "Library/CVFileURL.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVSpanHistory.h"
#include "Library/CVSpanHistoryStore.h"
#include "Library/CVSpanRunState.h"
#include "Platform/CVSettings.h"

#include <QtTest>

#include <sqlite3.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

int mode(const QString &path)
{
    struct stat st { };
    ::stat(QFile::encodeName(path).constData(), &st);
    return int(st.st_mode & 0777);
}

} // namespace

// One program run: a library read, the history opened and joined, as the load does it.
class Run {
public:
    Run(const QString &libraryFile, CVSettings *settings, CVFixedSpanRunState *state = nullptr)
        : library(settings)
        , history(&presenter)
    {
        library.setPresenter(&presenter);
        library.setLibraryFilePath(libraryFile);
        library.setRunState(state ? state : &ownState);
        library.setSpanHistory(&history);
        history.setLibraryPersistentID([this] { return library.iTunesPersistentID(); });
        loaded = library.loadiTunesXMLDatabase() == CVLibraryManager::LoadResult::Loaded;
        history.managedObjectContext(u"Span"_s);
        join = library.joinSpanHistory();
    }

    CVTrack *track(const QString &persistentID)
    {
        for (CVTrack *t : library.allTracks())
            if (t->text(CVAttr::PersistentID) == persistentID)
                return t;
        return nullptr;
    }
    CVSpanRecord *record(const QString &persistentID)
    {
        return history.spanManagedObjectContext()->fetchLast(persistentID);
    }

    CVTestPresenter presenter;
    CVFixedSpanRunState ownState;
    CVLibraryManager library;
    CVSpanHistory history;
    bool loaded = false;
    CVLibraryManager::JoinResult join;
};

class TestSpanHistory : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<CVTestEnvironment>();
        m_settings = &m_env->settings();
        m_media = m_env->filePath(u"Music/iTunes/iTunes Media"_s);
        m_drive = m_env->filePath(u"Archive"_s);
    }
    void cleanup() { m_env.reset(); }

    void handsOutTheStoreByNameOnly()
    {
        CVSpanHistory history;
        QVERIFY(history.managedObjectModel(u"Span"_s));
        QCOMPARE(history.managedObjectModel(u"Span"_s)->entity, u"Tracks"_s);
        QVERIFY(!history.managedObjectModel(u"Other"_s));
        QVERIFY(!history.persistentStoreCoordinator(u"Other"_s));
        QVERIFY(!history.managedObjectContext(u"span"_s));
        // Without a library's persistent ID there is no store.
        QVERIFY(!history.persistentStoreCoordinator(u"Span"_s));
        QVERIFY(m_env->log.contains(u"No iTunes Persistent ID"_s));
        history.setLibraryPersistentID([] { return std::optional<QString>(); });
        QVERIFY(!history.managedObjectContext(u"Span"_s));
    }

    void freshUserGetsAPrivateStore()
    {
        const QString folder = CVSpanHistory::applicationSupportFolder();
        QCOMPARE(folder, m_env->path() + u"/.local/share/Corvana"_s);
        QVERIFY(!QDir(folder).exists());
        Run run(library({}), m_settings);
        QVERIFY(run.loaded);
        QCOMPARE(run.join.records, 0);
        QVERIFY(QFile::exists(folder + u"/SpanRestoreHistory.cvcddb"_s));
        QCOMPARE(mode(folder), 0700);
        QCOMPARE(mode(folder + u"/SpanRestoreHistory.cvcddb"_s), 0600);
        QVERIFY(!run.history.storeFailed());
    }

    void renamesTheEarlierFileOnlyWhenTheNewNameIsFree()
    {
        const QString folder = CVSpanHistory::applicationSupportFolder();
        {
            Run first(library({ track(1, u"/x/a.mp3"_s) }), m_settings);
            first.library.addItemToSpanStore(first.track(u"P1"_s), u"/Volumes/D/a.mp3"_s);
            QVERIFY(first.history.saveAction());
        }
        QVERIFY(QFile::rename(folder + u"/SpanRestoreHistory.cvcddb"_s, folder + u"/SpannedItemHistory.cvcddb"_s));
        QFile::remove(folder + u"/SpanRestoreHistory.cvcddb-wal"_s);
        QFile::remove(folder + u"/SpanRestoreHistory.cvcddb-shm"_s);
        {
            Run second(library({ track(1, u"/x/a.mp3"_s) }), m_settings);
            QCOMPARE(second.join.records, 1);
        }
        QVERIFY(!QFile::exists(folder + u"/SpannedItemHistory.cvcddb"_s));
        // Both present: the old one stays untouched, the new one is used.
        writeFile(folder + u"/SpannedItemHistory.cvcddb"_s, "old bytes");
        Run third(library({ track(1, u"/x/a.mp3"_s) }), m_settings);
        QCOMPARE(third.join.records, 1);
        QCOMPARE(readAll(folder + u"/SpannedItemHistory.cvcddb"_s), QByteArray("old bytes"));
    }

    void refusesStoresItCannotUseAndLeavesThemAlone_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("garbage") << u"garbage"_s;
        QTest::newRow("newer schema") << u"newer"_s;
        QTest::newRow("another program's database") << u"foreign"_s;
        QTest::newRow("unreadable") << u"unreadable"_s;
    }
    void refusesStoresItCannotUseAndLeavesThemAlone()
    {
        QFETCH(QString, kind);
        const QString path = CVSpanHistory::applicationSupportFolder() + u"/SpanRestoreHistory.cvcddb"_s;
        QDir().mkpath(QFileInfo(path).path());
        if (kind == u"garbage"_s) {
            writeFile(path, QByteArray("SQLite format 3\0", 16) + QByteArray(4000, '\x5A'));
        } else {
            sqlite3 *db = nullptr;
            QCOMPARE(sqlite3_open(QFile::encodeName(path).constData(), &db), SQLITE_OK);
            const char *sql = kind == u"newer"_s ? "CREATE TABLE Tracks (PersistentID TEXT); PRAGMA user_version = 99;"
                                                 : "CREATE TABLE Songs (Title TEXT); INSERT INTO Songs VALUES ('x');";
            QCOMPARE(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK);
            sqlite3_close(db);
            if (kind == u"unreadable"_s)
                QFile::setPermissions(path, QFile::WriteOwner);
        }
        if (kind == u"unreadable"_s && ::geteuid() == 0)
            QSKIP("root reads every file");
        const QByteArray before = readAll(path);
        const QDateTime modified = QFileInfo(path).lastModified();
        Run run(library({ track(1, u"/x/a.mp3"_s) }), m_settings);
        QVERIFY(run.loaded);
        QVERIFY(run.history.storeFailed());
        QCOMPARE(run.presenter.errors.size(), 1);
        QVERIFY(run.presenter.errors.first().startsWith(u"The span history could not be opened."_s));
        // The program goes on without history, and writes nothing there: a record cannot be saved,
        // and a run is refused before it starts.
        QCOMPARE(run.join.records, 0);
        QString why;
        QVERIFY(!run.history.checkWritable(&why));
        QVERIFY2(why.startsWith(u"The span history cannot be opened: "_s), qPrintable(why));
        run.library.addItemToSpanStore(run.track(u"P1"_s), u"/y/a.mp3"_s);
        QVERIFY(!run.history.saveAction());
        QCOMPARE(readAll(path), before);
        QCOMPARE(QFileInfo(path).lastModified(), modified);
        QVERIFY(!QFile::exists(path + u"-wal"_s));
    }

    void aSaveCutShortIsRolledBack()
    {
        // A store with records, and a save of another process caught in the middle: its journal
        // is on disk and changed pages are in the file, as a crash or a pulled plug leaves them.
        const QString folder = m_env->filePath(u"crashed"_s);
        QDir().mkpath(folder);
        const QString path = folder + u"/SpanRestoreHistory.cvcddb"_s;
        {
            CVSpanHistoryStore store;
            QVERIFY(store.open(path));
            std::deque<CVSpanRecord> records(400);
            std::vector<CVSpanRecord *> changed;
            for (std::size_t i = 0; i < records.size(); ++i) {
                records[i].setValue(CVSpanAttr::PersistentID, QString::number(i));
                records[i].setValue(CVSpanAttr::Name, QString(500, u'n'));
                changed.push_back(&records[i]);
            }
            QVERIFY(store.save(changed));
        }
        const QString crashed = m_env->filePath(u"copy/SpanRestoreHistory.cvcddb"_s);
        QDir().mkpath(QFileInfo(crashed).path());
        sqlite3 *db = nullptr;
        QCOMPARE(sqlite3_open(QFile::encodeName(path).constData(), &db), SQLITE_OK);
        QCOMPARE(
            sqlite3_exec(db, "PRAGMA cache_size=1; BEGIN; UPDATE Tracks SET Name = 'half';", nullptr, nullptr, nullptr),
            SQLITE_OK);
        QVERIFY(QFile::exists(path + u"-journal"_s));
        QVERIFY(QFile::copy(path, crashed));
        QVERIFY(QFile::copy(path + u"-journal"_s, crashed + u"-journal"_s));
        sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
        sqlite3_close(db);

        CVSpanHistoryStore store;
        QVERIFY2(store.open(crashed), qPrintable(store.errorString()));
        std::deque<CVSpanRecord> records;
        QVERIFY(store.fetchAll(records));
        QCOMPARE(records.size(), std::size_t(400));
        for (const CVSpanRecord &r : records)
            QCOMPARE(r.text(CVSpanAttr::Name), QString(500, u'n'));
        QVERIFY(store.checkWritable());
        QVERIFY(!QFile::exists(crashed + u"-journal"_s));
    }

    void writesRecordsThatSurviveARestart()
    {
        const QString home = m_env->filePath(u"home/a.mp3"_s);
        CVFixedSpanRunState state;
        state.running = true;
        state.location = m_drive;
        {
            Run run(library({ track(1, home), track(2, m_env->filePath(u"home/b.mp3"_s)) }), m_settings, &state);
            CVTrack *full = run.track(u"P1"_s);
            run.library.addItemToSpanStore(full, home); // the player already points at the new place
            run.library.addItemToSpanStore(run.track(u"P2"_s), m_drive + u"/b.mp3"_s);
            QVERIFY(run.history.saveAction());
        }
        Run again(library({ track(1, home), track(2, m_env->filePath(u"home/b.mp3"_s)) }), m_settings);
        QCOMPARE(again.join.records, 2);
        QCOMPARE(again.join.joined, 2);
        CVSpanRecord *one = again.record(u"P1"_s);
        QVERIFY(one->flag(CVSpanAttr::FullSpan));
        QVERIFY(!one->flag(CVSpanAttr::SymSpan));
        QCOMPARE(one->text(CVSpanAttr::BaseSpanPath), m_drive);
        QCOMPARE(one->text(CVSpanAttr::Name), u"Track 1"_s);
        QCOMPARE(one->value(CVSpanAttr::TrackID).toLongLong(), 1);
        QVERIFY(one->date(CVSpanAttr::LastSpanDate));
        QVERIFY(!one->has(CVSpanAttr::LastRestoreDate));
        CVSpanRecord *two = again.record(u"P2"_s);
        QVERIFY(two->flag(CVSpanAttr::SymSpan));
        QCOMPARE(two->text(CVSpanAttr::SpanLocation), m_drive + u"/b.mp3"_s);
        // The facts reach the track: a span location, its display title, the flags.
        CVTrack *t = again.track(u"P2"_s);
        QVERIFY(t->flag(CVAttr::ItemIsSpanned));
        QVERIFY(t->flag(CVAttr::SymSpan));
        QCOMPARE(t->text(CVAttr::SpanLocation), m_drive + u"/b.mp3"_s);
        QCOMPARE(t->text(CVAttr::BaseSpanPath), m_drive);
        QCOMPARE(t->text(CVAttr::DisplaySpanLocation), u"Archive (on Computer)"_s);
        QCOMPARE(t->currentPath(), m_drive + u"/b.mp3"_s);
        QVERIFY(t->has(CVAttr::LastSpanDate));
        QVERIFY(!t->has(CVAttr::LastSpanLocation));
        // The selection sees the joined flags.
        QCOMPARE(again.library.selectPredicate(CVPredicate::fromText(u"( ItemIsSpanned == 1 ) AND ( SymSpan == 1 )"_s))
                     ->tracks.size(),
            std::size_t(1));
    }

    void updatesSpansAndRestores()
    {
        const QString orig = m_env->filePath(u"home/a.mp3"_s);
        CVFixedSpanRunState state;
        state.running = true;
        state.location = m_drive;
        Run run(library({ track(1, orig) }), m_settings, &state);
        CVTrack *t = run.track(u"P1"_s);
        run.library.addItemToSpanStore(t, m_drive + u"/a.mp3"_s);
        CVSpanRecord *r = run.record(u"P1"_s);
        const double spanned = *r->date(CVSpanAttr::LastSpanDate);
        // A restore (the path is the original one, in another letter case) dates the restore only.
        state.restore = true;
        run.library.updateItemInSpanStore(t, orig.toUpper());
        QVERIFY(r->flag(CVSpanAttr::ItemIsRestored));
        QVERIFY(r->flag(CVSpanAttr::FullSpan));
        QCOMPARE(*r->date(CVSpanAttr::LastSpanDate), spanned);
        QVERIFY(r->date(CVSpanAttr::LastRestoreDate));
        QVERIFY(!r->has(CVSpanAttr::BaseSpanPath));
        QCOMPARE(r->text(CVSpanAttr::LastSpanLocation), m_drive + u"/a.mp3"_s);
        // Outside a run the base and last span location stay as they are.
        state.running = false;
        state.restore = false;
        run.library.updateItemInSpanStore(t, m_drive + u"/elsewhere.mp3"_s);
        QVERIFY(!r->has(CVSpanAttr::BaseSpanPath));
        QCOMPARE(r->text(CVSpanAttr::LastSpanLocation), m_drive + u"/a.mp3"_s);
        QVERIFY(r->flag(CVSpanAttr::SymSpan));
        QVERIFY(!r->flag(CVSpanAttr::ItemIsRestored));
        // No record: nothing to update, nothing made.
        run.library.updateItemInSpanStore(t, u"/z"_s);
        QCOMPARE(run.history.spanManagedObjectContext()->fetchAll().size(), std::size_t(1));
    }

    void joinCorrectsTheFactsFromTheFiles()
    {
        QDir().mkpath(m_env->filePath(u"home"_s));
        QDir().mkpath(m_drive);
        const QString homeA = m_env->filePath(u"home/a.mp3"_s), spanA = m_drive + u"/a.mp3"_s;
        const QString homeB = m_env->filePath(u"home/b.mp3"_s), spanB = m_drive + u"/b.mp3"_s;
        const QString homeC = m_env->filePath(u"home/c.mp3"_s), spanC = m_drive + u"/c.mp3"_s;
        const QString otherC = m_env->filePath(u"moved/c.mp3"_s);
        CVFixedSpanRunState state;
        state.running = true;
        state.location = m_drive;
        {
            Run run(library({ track(1, homeA), track(2, homeB), track(3, homeC), track(4, u"/gone.mp3"_s) }),
                m_settings, &state);
            run.library.addItemToSpanStore(run.track(u"P1"_s), spanA);
            run.library.addItemToSpanStore(run.track(u"P2"_s), spanB);
            run.library.addItemToSpanStore(run.track(u"P3"_s), spanC);
            run.library.addItemToSpanStore(run.track(u"P4"_s), m_drive + u"/gone.mp3"_s);
            QVERIFY(run.history.saveAction());
        }
        // a: the player points at a real file at home again; b: at a symbolic link to the span
        // location; c: at a real file somewhere else, outside the media folder; 4: gone.
        writeFile(homeA, "a");
        writeFile(spanB, "b");
        QVERIFY(QFile::link(spanB, homeB));
        writeFile(otherC, "c");
        Run again(library({ track(1, homeA), track(2, homeB), track(3, otherC) }), m_settings);
        QCOMPARE(again.join.records, 4);
        QCOMPARE(again.join.joined, 3);
        QCOMPARE(again.join.removedFromITunes, 1);
        QVERIFY(again.record(u"P4"_s)->flag(CVSpanAttr::RemovedFromITunes));

        CVTrack *a = again.track(u"P1"_s);
        QVERIFY(a->flag(CVAttr::ItemIsRestored));
        QVERIFY(!a->flag(CVAttr::ItemIsSpanned));
        QVERIFY(a->has(CVAttr::LastRestoreDate));
        QCOMPARE(again.record(u"P1"_s)->text(CVSpanAttr::SpanLocation), homeA);

        CVTrack *b = again.track(u"P2"_s);
        QVERIFY(b->flag(CVAttr::ItemIsSpanned));
        QVERIFY(b->flag(CVAttr::SymSpan));
        QCOMPARE(b->text(CVAttr::SpanLocation), spanB);

        CVTrack *c = again.track(u"P3"_s);
        QVERIFY(c->flag(CVAttr::ItemIsSpanned));
        QVERIFY(c->flag(CVAttr::FullSpan));
        QCOMPARE(c->text(CVAttr::SpanLocation), otherC);
        QCOMPARE(c->text(CVAttr::OriginalLocation), homeC);

        // Saved: a third run reads the corrected facts.
        Run third(library({ track(1, homeA), track(2, homeB), track(3, otherC) }), m_settings);
        QVERIFY(third.record(u"P1"_s)->flag(CVSpanAttr::ItemIsRestored));
        QCOMPARE(third.record(u"P3"_s)->text(CVSpanAttr::SpanLocation), otherC);
    }

    void inFlightTracksKeepTheirFactsAfterACrash()
    {
        const QString home = m_env->filePath(u"home/a.mp3"_s);
        writeFile(home, "a");
        {
            Run run(library({ track(1, home) }), m_settings);
            run.library.addItemToSpanStore(run.track(u"P1"_s), m_drive + u"/a.mp3"_s);
            QVERIFY(run.history.saveAction());
        }
        m_settings->setValue(CVSettingsKey::LastTracksSpanned, QVariantMap { { u"P1"_s, home } });
        CVFixedSpanRunState crashed;
        crashed.crashed = true;
        Run run(library({ track(1, home) }), m_settings, &crashed);
        // The real file at home would otherwise make it restored.
        QVERIFY(run.track(u"P1"_s)->flag(CVAttr::ItemIsSpanned));
        QCOMPARE(run.record(u"P1"_s)->text(CVSpanAttr::SpanLocation), m_drive + u"/a.mp3"_s);
    }

    void contendedLockIsLoggedAndIgnored()
    {
        Run run(library({ track(1, u"/x/a.mp3"_s) }), m_settings);
        run.history.spanManagedObjectContext()->lock().lock();
        std::thread([&] { run.library.addItemToSpanStore(run.track(u"P1"_s), u"/y/a.mp3"_s); }).join();
        run.history.spanManagedObjectContext()->lock().unlock();
        QVERIFY(
            m_env->log.contains(u"Unsuccessful spanManagedObjectContext tryLock (addItemToSpanStore:withSpanPath:)"_s));
        QVERIFY(run.record(u"P1"_s));
    }

private:
    QString track(int id, const QString &path)
    {
        return u"<key>%1</key><dict><key>Track ID</key><integer>%1</integer><key>Persistent "
               u"ID</key><string>P%1</string>"
               "<key>Track Type</key><string>File</string><key>Name</key><string>Track %1</string>"
               "<key>Location</key><string>%2</string></dict>"_s.arg(id)
                   .arg(QString::fromUtf8(CVFileURL::fileURLFromPath(path)));
    }
    QString library(const QStringList &tracks)
    {
        const QString file = m_env->filePath(u"library.xml"_s);
        writeFile(file,
            (u"<plist version=\"1.0\"><dict><key>Library Persistent ID</key><string>LIB</string>"
             "<key>Music Folder</key><string>%1</string><key>Tracks</key><dict>"_s.arg(
                 QString::fromUtf8(CVFileURL::fileURLFromPath(m_media)))
                + tracks.join(QString()) + u"</dict></dict></plist>"_s)
                .toUtf8());
        return file;
    }

    std::unique_ptr<CVTestEnvironment> m_env;
    CVSettings *m_settings = nullptr;
    QString m_media, m_drive;
};

QTEST_GUILESS_MAIN(TestSpanHistory)
#include "tst_spanhistory.moc"
