#pragma once

#include <QList>
#include <QString>

// Writes new places of songs into Strawberry's collection database while Strawberry is not
// running: first a copy of the whole database (SQLite's backup), then one transaction that
// moves each song's url and collection folder, registers the folders it now lies in, and
// carries its playlist items along; then the database checks itself.
namespace CVStrawberryRewriter {

struct Change {
    qint64 rowID = 0;
    QString path; // the song's new place
    // The collection folder for a place under no collection folder yet: the span location.
    QString collectionFolder;
};

struct Result {
    bool ok = false; // committed (or nothing to do)
    QString error;
    QList<qint64> unknown; // ROWIDs the database does not hold
    QList<qint64> refused; // new places that another song already has: left as they were
    int changed = 0;
    // Where the time went, in milliseconds.
    qint64 backupMs = 0, transactionMs = 0, checkMs = 0;
};

Result apply(const QString &databasePath, const QString &backupPath, const QList<Change> &changes);

// Copies the database with SQLite's backup API into a new file that then takes backupPath.
bool backup(const QString &databasePath, const QString &backupPath, QString *error);

} // namespace CVStrawberryRewriter
