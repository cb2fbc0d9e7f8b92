#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

// Points tracks of a library file at new places without parsing it into a tree: one streamed
// pass finds each changed track's Location string, and only those bytes are replaced. The file
// is replaced atomically (new file beside it, fsync, rename) after a backup beside it, so a
// crash at any moment leaves the old file or the new one, whole.
namespace CVLibraryFileRewriter {

struct Result {
    bool ok = false;
    int applied = 0; // tracks whose Location now reads the new place
    QStringList unknown; // persistent IDs the library does not hold
    QString error;
};

// locations: persistent ID -> new path of the file.
Result applyLocations(const QString &libraryPath, const QHash<QString, QString> &locations);

QString backupPath(const QString &libraryPath);

} // namespace CVLibraryFileRewriter
