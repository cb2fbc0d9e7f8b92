#include "Library/CVStrawberryDB.h"

#include "Library/CVFileURL.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QUrl>

#include <sqlite3.h>

using namespace Qt::StringLiterals;

namespace CVStrawberryDB {

Connection::~Connection()
{
    if (m_db)
        sqlite3_close_v2(m_db);
}

bool Connection::open(const QString &path, bool writable)
{
    if (!QFileInfo::exists(path)) {
        m_error = u"There is no Strawberry collection at “%1”."_s.arg(path);
        return false;
    }
    const int flags = (writable ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(QFile::encodeName(path).constData(), &m_db, flags, nullptr) != SQLITE_OK) {
        m_error = u"The Strawberry collection “%1” cannot be opened: %2"_s.arg(path, lastError());
        sqlite3_close_v2(m_db);
        m_db = nullptr;
        return false;
    }
    sqlite3_extended_result_codes(m_db, 1);
    return true;
}

QString Connection::lastError() const
{
    return m_db ? QString::fromUtf8(sqlite3_errmsg(m_db)) : u"out of memory"_s;
}

bool Connection::exec(const char *sql)
{
    return sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::optional<int> Connection::schemaVersion(QString *error)
{
    Statement version(*this, "SELECT version FROM schema_version");
    if (!version || version.step() != SQLITE_ROW) {
        if (error)
            *error = u"It is not a Strawberry collection (it has no schema version): %1"_s.arg(lastError());
        return std::nullopt;
    }
    const int value = int(version.integer(0));
    if (value < OldestSchema || value > NewestSchema) {
        if (error)
            *error = u"The Strawberry collection is of schema version %1, which Corvana does not know "
                     "(it knows %2 to %3); nothing was changed."_s.arg(value)
                         .arg(OldestSchema)
                         .arg(NewestSchema);
        return std::nullopt;
    }
    return value;
}

Statement::Statement(const Connection &db, const char *sql)
{
    if (sqlite3_prepare_v2(db.handle(), sql, -1, &m_stmt, nullptr) != SQLITE_OK)
        m_stmt = nullptr;
}

Statement::~Statement()
{
    sqlite3_finalize(m_stmt);
}

int Statement::step()
{
    const int rc = sqlite3_step(m_stmt);
    if (rc != SQLITE_ROW)
        sqlite3_reset(m_stmt);
    return rc;
}

void Statement::reset()
{
    sqlite3_reset(m_stmt);
    sqlite3_clear_bindings(m_stmt);
}

void Statement::bind(int index, qint64 value)
{
    sqlite3_bind_int64(m_stmt, index, value);
}

void Statement::bind(int index, const QByteArray &utf8)
{
    sqlite3_bind_text(m_stmt, index, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
}

qint64 Statement::integer(int column) const
{
    return sqlite3_column_int64(m_stmt, column);
}

double Statement::real(int column) const
{
    return sqlite3_column_double(m_stmt, column);
}

bool Statement::isNull(int column) const
{
    return sqlite3_column_type(m_stmt, column) == SQLITE_NULL;
}

QByteArrayView Statement::text(int column) const
{
    const auto *bytes = reinterpret_cast<const char *>(sqlite3_column_text(m_stmt, column));
    return bytes ? QByteArrayView(bytes, sqlite3_column_bytes(m_stmt, column)) : QByteArrayView();
}

QByteArray urlFromPath(const QString &path)
{
    // Strawberry's scanner compares URLs as this writes them: any other spelling is a new song.
    return QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded).toUtf8();
}

std::optional<QString> pathFromURL(QByteArrayView url)
{
    return CVFileURL::pathFromFileURL(std::string_view(url.data(), std::size_t(url.size())));
}

QString persistentIDOf(qint64 rowID)
{
    return u"%1"_s.arg(quint64(rowID), 16, 16, QChar(u'0')).toUpper();
}

std::optional<qint64> rowIDOf(const QString &persistentID)
{
    bool ok = false;
    const qint64 rowID = persistentID.toLongLong(&ok, 16);
    if (!ok || persistentID.size() != 16 || rowID <= 0)
        return std::nullopt;
    return rowID;
}

QString libraryPersistentID(const QString &databasePath)
{
    const QByteArray key = "strawberry:" + QFile::encodeName(QFileInfo(databasePath).absoluteFilePath());
    return QString::fromLatin1(QCryptographicHash::hash(key, QCryptographicHash::Sha1).toHex().left(16)).toUpper();
}

QString checkDatabase(const QString &path)
{
    Connection db;
    if (!db.open(path, false))
        return db.errorString();
    QString error;
    if (!db.schemaVersion(&error))
        return error;
    return {};
}

} // namespace CVStrawberryDB
