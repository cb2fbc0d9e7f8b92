#pragma once

#include "Library/CVSpanRecord.h"

#include <QString>

#include <deque>
#include <vector>

struct sqlite3;

// The span history's SQLite file: one table "Tracks" with the record's attributes, the
// schema version in PRAGMA user_version, numbered migrations. A rollback journal, so that the
// one file holds every committed record whenever no save is under way (a side file that could
// be lost or left behind when the file is copied holds nothing). The helper program opens the
// same file with the same definition.
class CVSpanHistoryStore {
public:
    static constexpr int kSchemaVersion = 1;

    CVSpanHistoryStore() = default;
    ~CVSpanHistoryStore();
    CVSpanHistoryStore(const CVSpanHistoryStore &) = delete;
    CVSpanHistoryStore &operator=(const CVSpanHistoryStore &) = delete;

    // Opens the file, creating it (readable by the user only) when absent, and brings its
    // schema up to date. A file that is not a store of ours, is damaged, unreadable or of a
    // newer schema is refused with a message and left exactly as it was.
    bool open(const QString &path);
    bool isOpen() const { return m_db != nullptr; }
    QString errorString() const { return m_error; }

    // Every record, in the order they were first written.
    bool fetchAll(std::deque<CVSpanRecord> &out);
    // Writes the changed records in one transaction: all of them or none, on disk when it returns.
    bool save(const std::vector<CVSpanRecord *> &records);
    // Whether a save can go through now: a real write in a transaction, not a guess from the
    // permissions (a full drive, a read-only file or folder all show).
    bool checkWritable();

private:
    bool exec(const char *sql);
    bool fail(const QString &what);
    QString reason() const;

    sqlite3 *m_db = nullptr;
    QString m_path;
    QString m_error;
};
