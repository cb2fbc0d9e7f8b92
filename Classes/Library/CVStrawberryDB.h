#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

struct sqlite3;
struct sqlite3_stmt;

// Strawberry's collection: one SQLite database. What its reader, its rewriter and its player
// link share: opening it, the schema versions Corvana knows, and its file URLs.
namespace CVStrawberryDB {

// 15 is Strawberry 1.0's; up to 23 later releases only add columns and tables.
inline constexpr int OldestSchema = 15;
inline constexpr int NewestSchema = 23;
// playlist_items.type of an item that names a collection song by its ROWID.
inline constexpr int CollectionItem = 2;

// An open database, closed with the object.
class Connection {
public:
    Connection() = default;
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
    ~Connection();

    // Opens an existing database; false with errorString().
    bool open(const QString &path, bool writable);
    sqlite3 *handle() const { return m_db; }
    QString errorString() const { return m_error; }
    // The database's own text of its last error.
    QString lastError() const;
    bool exec(const char *sql);
    // The schema version, or an error text for a database Corvana must not touch.
    std::optional<int> schemaVersion(QString *error);

private:
    sqlite3 *m_db = nullptr;
    QString m_error;
};

// A prepared statement, finalized with the object.
class Statement {
public:
    Statement(const Connection &db, const char *sql);
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;
    ~Statement();
    explicit operator bool() const { return m_stmt != nullptr; }
    sqlite3_stmt *get() const { return m_stmt; }
    // SQLITE_ROW, SQLITE_DONE or an error code; resets itself after DONE.
    int step();
    void reset();
    void bind(int index, qint64 value);
    void bind(int index, const QByteArray &utf8);
    qint64 integer(int column) const;
    double real(int column) const;
    bool isNull(int column) const;
    QByteArrayView text(int column) const;

private:
    sqlite3_stmt *m_stmt = nullptr;
};

// The URL Strawberry writes for a file: QUrl::fromLocalFile(path) fully encoded.
QByteArray urlFromPath(const QString &path);
// The path of a file URL; nothing for another scheme.
std::optional<QString> pathFromURL(QByteArrayView url);
// A song's persistent ID: its ROWID in sixteen hexadecimal digits.
QString persistentIDOf(qint64 rowID);
std::optional<qint64> rowIDOf(const QString &persistentID);
// The persistent ID of the collection: from its database's path.
QString libraryPersistentID(const QString &databasePath);
// Why Corvana cannot work on this database (an empty text when it can): unreadable, not
// Strawberry's, or a schema version outside OldestSchema..NewestSchema.
QString checkDatabase(const QString &path);

} // namespace CVStrawberryDB
