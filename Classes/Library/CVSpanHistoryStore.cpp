#include "Library/CVSpanHistoryStore.h"

#include "Platform/CVFaultInjection.h"

#include <QFile>
#include <QFileInfo>

#include <sqlite3.h>

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Migration N brings a store from version N-1 to N. Never edit one that has shipped: add.
const char *const kMigrations[] = {
    // 1: the entity "Tracks"
    "CREATE TABLE Tracks ("
    " PersistentID TEXT, LibraryPersistentID TEXT, TrackID INTEGER, TrackNumber INTEGER, DiscNumber INTEGER,"
    " MediaType TEXT, Name TEXT, Artist TEXT, Album TEXT, AlbumArtist TEXT, SortName TEXT, SortArtist TEXT,"
    " SortAlbum TEXT, Kind TEXT, Size REAL, TotalTime REAL, ITunesLocation TEXT, OriginalLocation TEXT,"
    " SpanLocation TEXT, LastSpanLocation TEXT, BaseSpanPath TEXT, LastSpanDate REAL, LastRestoreDate REAL,"
    " FullSpan INTEGER, SymSpan INTEGER, ItemIsRestored INTEGER, RemovedFromITunes INTEGER,"
    " NeedsVerification INTEGER);"
    "CREATE INDEX TracksByPersistentID ON Tracks (PersistentID);",
};
static_assert(std::size(kMigrations) == CVSpanHistoryStore::kSchemaVersion);

QString columnList()
{
    QStringList names;
    for (int i = 0; i < kCVSpanAttrCount; ++i)
        names.append(QString(CVSpanRecord::name(CVSpanAttr(i))));
    return names.join(u", "_s);
}

struct Statement {
    sqlite3_stmt *stmt = nullptr;
    ~Statement() { sqlite3_finalize(stmt); }
};

} // namespace

CVSpanHistoryStore::~CVSpanHistoryStore()
{
    sqlite3_close_v2(m_db);
}

// SQLite's words, and the system's reason behind them when there is one ("disk is full").
QString CVSpanHistoryStore::reason() const
{
    if (!m_db)
        return {};
    QString text = QString::fromUtf8(sqlite3_errmsg(m_db));
    const int system = sqlite3_system_errno(m_db);
    if (system != 0) {
        const QString why = QString::fromLocal8Bit(strerror(system));
        if (!text.contains(why, Qt::CaseInsensitive))
            text += u" ("_s + why + u')';
    }
    return text;
}

bool CVSpanHistoryStore::fail(const QString &what)
{
    m_error = m_db ? u"%1: %2"_s.arg(what, reason()) : what;
    return false;
}

bool CVSpanHistoryStore::exec(const char *sql)
{
    char *message = nullptr;
    if (sqlite3_exec(m_db, sql, nullptr, nullptr, &message) == SQLITE_OK)
        return true;
    m_error = message ? QString::fromUtf8(message) : reason();
    const int system = sqlite3_system_errno(m_db);
    if (message && system != 0)
        m_error += u" ("_s + QString::fromLocal8Bit(strerror(system)) + u')';
    sqlite3_free(message);
    return false;
}

bool CVSpanHistoryStore::open(const QString &path)
{
    m_path = path;
    const QByteArray file = QFile::encodeName(path);
    int version = 0;
    const QFileInfo info(path);
    if (info.exists()) {
        if (!info.isFile())
            return fail(u"%1 is not a file"_s.arg(path));
        // Look first, read-only, so that a file we must refuse is never written to.
        sqlite3 *probe = nullptr;
        int rc = SQLITE_OK;
        bool foreign = false;
        for (int attempt = 0; attempt < 2; ++attempt) {
            sqlite3_close_v2(probe);
            probe = nullptr;
            foreign = false;
            rc = sqlite3_open_v2(file.constData(), &probe, SQLITE_OPEN_READONLY, nullptr);
            sqlite3_extended_result_codes(probe, 1);
            sqlite3_stmt *stmt = nullptr;
            if (rc == SQLITE_OK)
                rc = sqlite3_prepare_v2(probe, "PRAGMA user_version", -1, &stmt, nullptr);
            if (rc == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW)
                version = sqlite3_column_int(stmt, 0);
            else if (rc == SQLITE_OK)
                rc = sqlite3_extended_errcode(probe);
            sqlite3_finalize(stmt);
            if (rc == SQLITE_OK) {
                // A store of ours has its table; a database with other tables is not ours to change.
                rc = sqlite3_prepare_v2(probe,
                    version >= 1 ? "SELECT count(*) FROM Tracks" : "SELECT count(*) FROM sqlite_master", -1, &stmt,
                    nullptr);
                if (rc == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW)
                    foreign = version == 0 && sqlite3_column_int(stmt, 0) > 0;
                else if (rc == SQLITE_OK)
                    rc = sqlite3_extended_errcode(probe);
                sqlite3_finalize(stmt);
            }
            if (rc != SQLITE_READONLY_ROLLBACK)
                break;
            // A save cut short by a crash left its journal: only a connection that may write
            // rolls it back, to the last save that completed. Then look again.
            sqlite3 *recovery = nullptr;
            if (sqlite3_open_v2(file.constData(), &recovery, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK)
                sqlite3_exec(recovery, "PRAGMA user_version", nullptr, nullptr, nullptr);
            sqlite3_close_v2(recovery);
        }
        const QString probeError = QString::fromUtf8(sqlite3_errmsg(probe));
        sqlite3_close_v2(probe);
        if (rc != SQLITE_OK) {
            m_error = u"%1 cannot be read as a span history: %2"_s.arg(path, probeError);
            return false;
        }
        if (foreign) {
            m_error = u"%1 is a database of another program, not a span history"_s.arg(path);
            return false;
        }
        if (version > kSchemaVersion) {
            m_error = u"%1 was written by a newer version of Corvana (schema %2; this version knows %3)"_s.arg(path)
                          .arg(version)
                          .arg(kSchemaVersion);
            return false;
        }
    } else {
        // Created readable by the user only; SQLite gives its journal files the same mode.
        const int fd = ::open(file.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0)
            return fail(u"Cannot create %1: %2"_s.arg(path, QString::fromLocal8Bit(strerror(errno))));
        ::close(fd);
    }

    if (sqlite3_open_v2(file.constData(), &m_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr) != SQLITE_OK) {
        fail(u"Cannot open %1"_s.arg(path));
        sqlite3_close_v2(m_db);
        m_db = nullptr;
        return false;
    }
    sqlite3_busy_timeout(m_db, 5000);
    // A crash or a power cut keeps every committed save: EXTRA also syncs the folder once the
    // journal is deleted, else the journal could come back and roll the commit back. A store
    // that an earlier version kept with a write-ahead log is folded back into its one file here;
    // when that cannot be done now (read-only, or the helper has it open), after each save.
    if (!exec("PRAGMA synchronous=EXTRA;"))
        return fail(u"Cannot set up %1"_s.arg(path));
    exec("PRAGMA journal_mode=DELETE;");
    if (version < kSchemaVersion) {
        if (!exec("BEGIN IMMEDIATE"))
            return fail(u"Cannot update %1"_s.arg(path));
        for (int v = version; v < kSchemaVersion; ++v) {
            if (!exec(kMigrations[v])) {
                const QString error = m_error;
                exec("ROLLBACK");
                m_error = u"Cannot update %1 to schema %2: %3"_s.arg(path).arg(v + 1).arg(error);
                sqlite3_close_v2(m_db);
                m_db = nullptr;
                return false;
            }
        }
        const QByteArray setVersion = "PRAGMA user_version = " + QByteArray::number(kSchemaVersion);
        if (!exec(setVersion.constData()) || !exec("COMMIT")) {
            exec("ROLLBACK");
            return fail(u"Cannot update %1"_s.arg(path));
        }
    }
    return true;
}

bool CVSpanHistoryStore::fetchAll(std::deque<CVSpanRecord> &out)
{
    out.clear();
    if (!m_db)
        return true;
    Statement s;
    const QByteArray sql = (u"SELECT rowid, "_s + columnList() + u" FROM Tracks ORDER BY rowid"_s).toUtf8();
    if (sqlite3_prepare_v2(m_db, sql.constData(), -1, &s.stmt, nullptr) != SQLITE_OK)
        return fail(u"Cannot read the span history"_s);
    int rc;
    while ((rc = sqlite3_step(s.stmt)) == SQLITE_ROW) {
        CVSpanRecord &r = out.emplace_back();
        for (int i = 0; i < kCVSpanAttrCount; ++i) {
            const int column = i + 1;
            if (sqlite3_column_type(s.stmt, column) == SQLITE_NULL)
                continue;
            const auto a = CVSpanAttr(i);
            switch (CVSpanRecord::type(a)) {
            case CVSpanAttrType::Text:
                r.setStoredValue(a,
                    QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(s.stmt, column)),
                        sqlite3_column_bytes(s.stmt, column)));
                break;
            case CVSpanAttrType::Integer:
                r.setStoredValue(a, qint64(sqlite3_column_int64(s.stmt, column)));
                break;
            case CVSpanAttrType::Real:
            case CVSpanAttrType::Date:
                r.setStoredValue(a, sqlite3_column_double(s.stmt, column));
                break;
            case CVSpanAttrType::Boolean:
                r.setStoredValue(a, sqlite3_column_int(s.stmt, column) != 0);
                break;
            }
        }
        r.setStored(sqlite3_column_int64(s.stmt, 0));
    }
    if (rc != SQLITE_DONE) {
        out.clear();
        return fail(u"Cannot read the span history"_s);
    }
    return true;
}

bool CVSpanHistoryStore::save(const std::vector<CVSpanRecord *> &records)
{
    if (!m_db)
        return true;
    if (records.empty())
        return true;
    QStringList placeholders, assignments;
    for (int i = 0; i < kCVSpanAttrCount; ++i) {
        placeholders.append(u"?"_s);
        assignments.append(QString(CVSpanRecord::name(CVSpanAttr(i))) + u" = ?"_s);
    }
    const QByteArray insertSQL
        = (u"INSERT INTO Tracks ("_s + columnList() + u") VALUES ("_s + placeholders.join(u", "_s) + u")"_s).toUtf8();
    const QByteArray updateSQL = (u"UPDATE Tracks SET "_s + assignments.join(u", "_s) + u" WHERE rowid = ?"_s).toUtf8();
    Statement insert, update;
    if (sqlite3_prepare_v2(m_db, insertSQL.constData(), -1, &insert.stmt, nullptr) != SQLITE_OK
        || sqlite3_prepare_v2(m_db, updateSQL.constData(), -1, &update.stmt, nullptr) != SQLITE_OK)
        return fail(u"Cannot save the span history"_s);
    if (!exec("BEGIN IMMEDIATE"))
        return fail(u"Cannot save the span history"_s);

    std::vector<std::pair<CVSpanRecord *, qint64>> written;
    for (CVSpanRecord *r : records) {
        sqlite3_stmt *stmt = r->rowID() ? update.stmt : insert.stmt;
        sqlite3_reset(stmt);
        for (int i = 0; i < kCVSpanAttrCount; ++i) {
            const auto a = CVSpanAttr(i);
            const QVariant v = r->value(a);
            if (!v.isValid()) {
                sqlite3_bind_null(stmt, i + 1);
                continue;
            }
            switch (CVSpanRecord::type(a)) {
            case CVSpanAttrType::Text: {
                const QByteArray utf8 = v.toString().toUtf8();
                sqlite3_bind_text(stmt, i + 1, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
                break;
            }
            case CVSpanAttrType::Integer:
                sqlite3_bind_int64(stmt, i + 1, v.toLongLong());
                break;
            case CVSpanAttrType::Real:
            case CVSpanAttrType::Date:
                sqlite3_bind_double(stmt, i + 1, v.toDouble());
                break;
            case CVSpanAttrType::Boolean:
                sqlite3_bind_int(stmt, i + 1, v.toBool() ? 1 : 0);
                break;
            }
        }
        if (r->rowID())
            sqlite3_bind_int64(stmt, kCVSpanAttrCount + 1, r->rowID());
        if (sqlite3_step(stmt) != SQLITE_DONE) {
            fail(u"Cannot save the span history"_s);
            const QString error = m_error;
            exec("ROLLBACK");
            m_error = error;
            return false;
        }
        written.emplace_back(r, r->rowID() ? r->rowID() : sqlite3_last_insert_rowid(m_db));
    }
    if (const int injected = CVFaultInjection::fault(CVFaultInjection::Point::HistoryCommit)) {
        exec("ROLLBACK");
        m_error = u"Cannot save the span history: %1"_s.arg(QString::fromLocal8Bit(strerror(injected)));
        return false;
    }
    if (!exec("COMMIT")) {
        const QString error = u"Cannot save the span history: "_s + m_error;
        exec("ROLLBACK");
        m_error = error;
        return false;
    }
    // Only a committed save marks the records written.
    for (const auto &[r, rowID] : written)
        r->setStored(rowID);
    // A store still in write-ahead mode keeps its records in a side file until checkpointed.
    exec("PRAGMA wal_checkpoint(TRUNCATE);");
    return true;
}

bool CVSpanHistoryStore::checkWritable()
{
    if (!m_db) {
        if (m_error.isEmpty())
            m_error = u"The span history is not open."_s;
        return false;
    }
    // Rewriting the schema version is a real write of the file's first page, through the journal.
    const QByteArray probe = "BEGIN IMMEDIATE; PRAGMA user_version = " + QByteArray::number(kSchemaVersion) + ";";
    if (!exec(probe.constData())) {
        const QString error = m_error;
        exec("ROLLBACK");
        m_error = u"The span history “%1” cannot be written: %2"_s.arg(m_path, error);
        return false;
    }
    if (!exec("COMMIT")) {
        const QString error = m_error;
        exec("ROLLBACK");
        m_error = u"The span history “%1” cannot be written: %2"_s.arg(m_path, error);
        return false;
    }
    return true;
}
